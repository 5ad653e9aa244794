#include "APIClient.h"
#include "AuthService.h"
#include "DataStore.h"
#include "FakeKeychain.h"
#include "FakeSyncServer.h"
#include "KeychainStore.h"
#include "Preferences.h"
#include "SyncEngine.h"

#include <QRegularExpression>
#include <QSignalSpy>
#include <QStandardPaths>
#include <QTest>
#include <QUrlQuery>

using Response = FakeSyncServer::Response;

class TestAuthService final : public QObject
{
    Q_OBJECT

    std::unique_ptr<FakeSyncServer> m_server;
    std::shared_ptr<FakeKeychain> m_keychain;
    QList<QUrl> m_opened;

    static AuthService& auth() { return AuthService::shared(); }

    bool signIn(const QString& token) { return QCoro::waitFor(auth().signIn(token)); }
    void callback(const QString& url) { QCoro::waitFor(auth().consumeCallback(QUrl(url))); }

    // Starts a browser sign-in and returns the state it sent.
    QString beginBrowserSignIn()
    {
        auth().beginBrowserSignIn(m_server->url().toString());
        return m_opened.isEmpty()
                   ? QString()
                   : QUrlQuery(m_opened.last()).queryItemValue(QStringLiteral("state"));
    }

    int tokenTests() const
    {
        return int(m_server->requestsFor("GET", QStringLiteral("/api/v1/tasks")).size());
    }

private slots:
    void initTestCase()
    {
        QStandardPaths::setTestModeEnabled(true);
        QString error;
        DataStore::setShared(DataStore::open(QStringLiteral(":memory:"), &error));
        // Before the service reads its first token: never the user's keychain.
        KeychainStore::setBackend(std::make_shared<FakeKeychain>());
        auth().setBrowserOpener([this](const QUrl& url) {
            m_opened.append(url);
            return true;
        });
    }

    void init()
    {
        m_server = std::make_unique<FakeSyncServer>();
        m_server->serveEmptyAccount();
        Preferences::setServerURLOverride(m_server->url().toString());
        m_keychain = std::make_shared<FakeKeychain>();
        KeychainStore::setBackend(m_keychain);
        auth().signOut();
        m_opened.clear();
    }

    void cleanup() { m_server.reset(); }

    void startsSignedInOnlyWithAStoredToken_data()
    {
        QTest::addColumn<QByteArray>("stored"); // null: no item
        QTest::addColumn<bool>("signedIn");
        QTest::newRow("token") << QByteArray("tok") << true;
        QTest::newRow("empty item") << QByteArray("") << false;
        QTest::newRow("no item") << QByteArray() << false;
        QTest::newRow("not UTF-8") << QByteArray("\xc3\x28") << false;
    }

    void startsSignedInOnlyWithAStoredToken()
    {
        QFETCH(QByteArray, stored);
        QFETCH(bool, signedIn);
        m_keychain->stored = stored.isNull() ? std::nullopt : std::optional<QByteArray>(stored);
        KeychainStore::setBackend(m_keychain);
        auth().reload();
        QCOMPARE(auth().isSignedIn(), signedIn);
        QVERIFY(m_server->requests().isEmpty()); // not re-validated
    }

    void signsInWithPastedToken_data()
    {
        QTest::addColumn<QString>("typed");
        QTest::addColumn<int>("status");
        QTest::addColumn<bool>("accepted");
        QTest::addColumn<QString>("error");
        QTest::newRow("blanks and newline") << "  tok-1 \n" << 200 << true << "";
        QTest::newRow("only blanks") << " \t\n" << 200 << false << "Token is empty";
        QTest::newRow("rejected") << "bad" << 401 << false << "Token rejected by server";
        QTest::newRow("server error") << "tok" << 500 << false << "HTTP 500: nope";
    }

    void signsInWithPastedToken()
    {
        QFETCH(QString, typed);
        QFETCH(int, status);
        QFETCH(bool, accepted);
        QFETCH(QString, error);
        m_server->on("GET", QStringLiteral("/api/v1/tasks"),
                     status == 200 ? Response::json(200, "{\"data\":[]}")
                                   : Response{status, "nope", {}, 0, false});
        QSignalSpy signedIn(&auth(), &AuthService::isSignedInChanged);
        QCOMPARE(signIn(typed), accepted);
        QCOMPARE(auth().isSignedIn(), accepted);
        QCOMPARE(signedIn.count(), accepted ? 1 : 0);
        QCOMPARE(auth().lastError(), error);
        QCOMPARE(m_keychain->stored, accepted ? std::optional<QByteArray>("tok-1") : std::nullopt);
        if (typed.trimmed().isEmpty()) {
            QVERIFY(m_server->requests().isEmpty());
            QCOMPARE(m_keychain->writes, 0);
        } else {
            QCOMPARE(m_server->requests().first().header("Authorization"),
                     "Bearer " + typed.trimmed().toUtf8());
        }
        QVERIFY(!auth().lastError().contains(u"tok-1"));
    }

    void buildsConnectURL_data()
    {
        QTest::addColumn<QString>("suffix"); // after the fake server's address
        QTest::newRow("bare") << "";
        QTest::newRow("path query fragment") << "/app/base?x=1#top";
        QTest::newRow("blanks around") << "  ";
    }

    void buildsConnectURL()
    {
        QFETCH(QString, suffix);
        const QString typed = u"  " + m_server->url().toString() + suffix;
        auth().beginBrowserSignIn(typed);
        QCOMPARE(auth().lastError(), QString());
        QCOMPARE(Preferences::serverURLOverride(), typed.trimmed());
        QCOMPARE(m_opened.size(), 1);
        const QUrl url = m_opened.first();
        QCOMPARE(url.toString(QUrl::RemoveQuery), m_server->url().toString() + u"/en/app/connect");
        const QUrlQuery query(url);
        const auto items = query.queryItems();
        QCOMPARE(items.size(), 2);
        QCOMPARE(items[0].first, QStringLiteral("state"));
        QVERIFY(
            QRegularExpression(QStringLiteral("^[0-9a-f]{48}$")).match(items[0].second).hasMatch());
        QCOMPARE(items[1], qMakePair(QStringLiteral("scheme"), QStringLiteral("tidewell")));

        // A new sign-in replaces the state.
        auth().beginBrowserSignIn(typed);
        QVERIFY(QUrlQuery(m_opened.last()).queryItemValue(QStringLiteral("state")) !=
                items[0].second);
    }

    void refusesUnusableServerAddress_data()
    {
        QTest::addColumn<QString>("typed");
        QTest::addColumn<QString>("error");
        QTest::addColumn<bool>("stored");
        QTest::newRow("empty") << " \n"
                               << "Invalid server URL" << false;
        QTest::newRow("blank inside") << "http://exa mple.com"
                                      << "Invalid server URL" << false;
        QTest::newRow("no host") << "localhost:3000"
                                 << "Failed to build connect URL" << true;
    }

    void refusesUnusableServerAddress()
    {
        QFETCH(QString, typed);
        QFETCH(QString, error);
        QFETCH(bool, stored);
        const QString before = Preferences::serverURLOverride();
        auth().beginBrowserSignIn(typed);
        QCOMPARE(auth().lastError(), error);
        QVERIFY(m_opened.isEmpty());
        QCOMPARE(Preferences::serverURLOverride(), stored ? typed : before);
    }

    void handlesCallbacks()
    {
        // Not a sign-in in progress: rejected.
        callback(QStringLiteral("tidewell://auth?token=t&state=abc"));
        QCOMPARE(auth().lastError(), QStringLiteral("Rejected unexpected sign-in callback"));

        const QString state = beginBrowserSignIn();
        QCOMPARE(state.size(), 48);
        QSignalSpy errors(&auth(), &AuthService::lastErrorChanged);
        // Other schemes and hosts are not ours: silently ignored.
        callback(u"https://auth?token=t&state=" + state);
        callback(u"tidewell://open?token=t&state=" + state);
        callback(u"tidewell:auth?token=t&state=" + state);
        QCOMPARE(errors.count(), 0);

        callback(u"tidewell://auth?state=" + state);
        QCOMPARE(auth().lastError(), QStringLiteral("Callback missing token"));
        callback(u"tidewell://auth?token=t&state=" + state + u"0");
        QCOMPARE(auth().lastError(), QStringLiteral("Rejected unexpected sign-in callback"));
        QCOMPARE(tokenTests(), 0);

        // The nonce survived both: the right callback signs in, then pulls.
        callback(u"tidewell://auth/anything?token=tok%2Fbrowser&state=" + state);
        QVERIFY(auth().isSignedIn());
        QCOMPARE(auth().lastError(), QString());
        QCOMPARE(m_keychain->stored, std::optional<QByteArray>("tok/browser"));
        QCOMPARE(tokenTests(), 2); // the token test and the pull
        QCOMPARE(m_server->requestsFor("GET", QStringLiteral("/api/v1/habits")).size(), 1);
        QCOMPARE(m_server->requestsFor("GET", QStringLiteral("/api/v1/pomodoro")).size(), 1);
        QVERIFY(auth().lastSyncedAt().isValid());

        // Each state admits one callback.
        auth().signOut();
        callback(u"tidewell://auth?token=again&state=" + state);
        QCOMPARE(auth().lastError(), QStringLiteral("Rejected unexpected sign-in callback"));
        QVERIFY(!auth().isSignedIn());
    }

    void callbackWithRejectedTokenSignsNothingIn()
    {
        m_server->on("GET", QStringLiteral("/api/v1/tasks"), Response{401, {}, {}, 0, false});
        const QString state = beginBrowserSignIn();
        callback(u"tidewell://auth?token=revoked&state=" + state);
        QVERIFY(!auth().isSignedIn());
        QCOMPARE(auth().lastError(), QStringLiteral("Token rejected by server"));
        QVERIFY(!m_keychain->stored);
        QCOMPARE(tokenTests(), 1); // no pull
    }

    void signOutForgetsEverything()
    {
        QVERIFY(signIn(QStringLiteral("tok")));
        auth().setLastSyncedAt(QDateTime::currentDateTimeUtc());
        const QString state = beginBrowserSignIn();
        QSignalSpy synced(&auth(), &AuthService::lastSyncedAtChanged);
        auth().signOut();
        QVERIFY(!auth().isSignedIn());
        QVERIFY(!auth().lastSyncedAt().isValid());
        QCOMPARE(synced.count(), 1);
        QVERIFY(!m_keychain->stored);
        callback(u"tidewell://auth?token=t&state=" + state);
        QCOMPARE(auth().lastError(), QStringLiteral("Rejected unexpected sign-in callback"));
    }

    void noncesAreHexOfTheRequestedLength()
    {
        QCOMPARE(AuthService::randomNonce(0), QString());
        const QString a = AuthService::randomNonce(24), b = AuthService::randomNonce(24);
        QVERIFY(QRegularExpression(QStringLiteral("^[0-9a-f]{48}$")).match(a).hasMatch());
        QVERIFY(a != b);
    }
};

QTEST_GUILESS_MAIN(TestAuthService)
#include "tst_authservice.moc"
