#pragma once

#include "AuthService.h"
#include "DataStore.h"
#include "FakeKeychain.h"
#include "FakeSyncServer.h"
#include "KeychainStore.h"
#include "Preferences.h"
#include "SyncEngine.h"

#include <QStandardPaths>
#include <QTest>

using Response = FakeSyncServer::Response;
Q_DECLARE_METATYPE(Response)

// JSON written with single quotes, to keep the tables readable.
inline QByteArray j(const char* text)
{
    QByteArray json(text);
    json.replace('\'', '"');
    return json;
}

// What the tests that talk to a server share: the stored address points at a
// fresh fake server, the keychain is a fake, and the browser is only recorded.
class SyncFixture
{
protected:
    std::unique_ptr<FakeSyncServer> m_server;
    std::shared_ptr<FakeKeychain> m_keychain;
    QList<QUrl> m_opened;

    static AuthService& auth() { return AuthService::shared(); }
    static SyncEngine& engine() { return SyncEngine::shared(); }

    static int count(const FakeSyncServer& server, const char* method, const char* path)
    {
        return int(server.requestsFor(method, QString::fromLatin1(path)).size());
    }

    // Before the service reads its first token: never the user's keychain or settings.
    void setUpOnce()
    {
        QStandardPaths::setTestModeEnabled(true);
        QString error;
        DataStore::setShared(DataStore::open(QStringLiteral(":memory:"), &error));
        KeychainStore::setBackend(std::make_shared<FakeKeychain>());
        auth().setBrowserOpener([this](const QUrl& url) {
            m_opened.append(url);
            return true;
        });
    }

    // Signed out, with an empty keychain and a server serving an empty account.
    void setUp()
    {
        m_server = std::make_unique<FakeSyncServer>();
        m_server->serveEmptyAccount();
        Preferences::setServerURLOverride(m_server->url().toString());
        m_keychain = std::make_shared<FakeKeychain>();
        KeychainStore::setBackend(m_keychain);
        auth().signOut();
        m_opened.clear();
    }

    // As at start-up with `token` in the keychain (none: no item).
    void startWithToken(std::optional<QByteArray> token = QByteArray("tok"))
    {
        m_keychain->stored = std::move(token);
        KeychainStore::setBackend(m_keychain); // forgets what the store had cached
        auth().reload();
    }

    // Waits for the pull that follows a sign-in and checks it was exactly one;
    // the token test before it adds a GET of the tasks.
    static void verifyOnePull(const FakeSyncServer& server)
    {
        QTRY_COMPARE(count(server, "GET", "/api/v1/pomodoro"), 1);
        QTRY_VERIFY(!engine().isSyncing());
        QCOMPARE(count(server, "GET", "/api/v1/habits"), 1);
        QCOMPARE(count(server, "GET", "/api/v1/tasks"), 2);
        QVERIFY(auth().lastSyncedAt().isValid());
    }
};
