#pragma once

#include "AuthService.h"
#include "FakeSyncServer.h"
#include "Preferences.h"
#include "SyncEngine.h"
#include "TestServices.h"

#include <QSignalSpy>
#include <QStandardPaths>
#include <QTest>
#include <QUrlQuery>

using namespace Qt::StringLiterals;
using Response = FakeSyncServer::Response;
Q_DECLARE_METATYPE(Response)

// A fresh fake server as the stored address, a fake keychain, a recorded browser
// and a stopped clock.
class SyncFixture
{
protected:
    std::unique_ptr<FakeSyncServer> m_server;
    std::shared_ptr<FakeKeychain> m_keychain;
    QList<QUrl> m_opened;
    QString m_storePath = u":memory:"_s;
    std::unique_ptr<AppServices> m_services;

    static QDateTime now() { return QDateTime(QDate(2024, 5, 6), QTime(14, 5)); }
    AuthService& auth() { return m_services->auth(); }
    SyncEngine& engine() { return m_services->sync(); }
    // JSON written with single quotes, to keep the tables readable.
    static QByteArray j(QByteArray json) { return json.replace('\'', '"'); }
    static Response reply(int status, const QByteArray& body = {}, int delayMs = 0)
    {
        return {status, body, {}, delayMs, false};
    }
    static QString api(const QByteArray& resource) { return "/api/v1/"_L1 + resource; }
    static int count(const FakeSyncServer& server, const char* method, const char* resource)
    {
        return int(server.requestsFor(method, api(resource)).size());
    }
    void on(const QByteArray& method, const QByteArray& resource, const Response& response)
    {
        m_server->on(method, api(resource), response);
    }

    // Never the user's settings.
    static void setUpOnce() { QStandardPaths::setTestModeEnabled(true); }

    void setUp()
    {
        m_server = std::make_unique<FakeSyncServer>();
        m_server->serveEmptyAccount();
        Preferences::setServerURLOverride(m_server->url().toString());
        m_keychain = std::make_shared<FakeKeychain>();
        m_opened.clear();
        start();
    }

    // The services built afresh over the store at m_storePath and the test's
    // keychain, as a new process would build them.
    void start()
    {
        m_services.reset();
        AppServices::Parts parts = testParts(m_storePath);
        parts.clock = now;
        parts.keychain = m_keychain;
        parts.browser = [this](const QUrl& url) {
            m_opened.append(url);
            return true;
        };
        m_services = std::make_unique<AppServices>(std::move(parts));
    }

    void callback(const QString& url) { QCoro::waitFor(auth().consumeCallback(QUrl(url))); }

    // As at start-up with `token` in the keychain (none: no item).
    // As after a run that signed in (a token) or never did (none).
    void startWithToken(std::optional<QByteArray> token = QByteArray("tok"))
    {
        Preferences::setAccountExists(token.has_value());
        m_keychain->stored = std::move(token);
        start();
        auth().reload();
        QTRY_VERIFY(!auth().isLoading());
    }

    // Exactly one pull after a sign-in; the token test adds a GET of the tasks.
    void verifyOnePull(const FakeSyncServer& server)
    {
        QTRY_COMPARE(count(server, "GET", "pomodoro"), 1);
        QTRY_VERIFY(!engine().isSyncing());
        QCOMPARE(count(server, "GET", "habits"), 1);
        QCOMPARE(count(server, "GET", "tasks"), 2);
        QVERIFY(engine().lastSyncedAt().isValid());
    }
};
