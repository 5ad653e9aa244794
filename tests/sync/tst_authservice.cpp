#include "SyncFixture.h"

#include <QRegularExpression>
#include <QSignalSpy>
#include <QUrlQuery>

class TestAuthService final : public QObject, private SyncFixture
{
    Q_OBJECT

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

private slots:
    void initTestCase() { setUpOnce(); }
    void init() { setUp(); }
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
        startWithToken(stored.isNull() ? std::nullopt : std::optional<QByteArray>(stored));
        QCOMPARE(auth().isSignedIn(), signedIn);
        QVERIFY(m_server->requests().isEmpty()); // not re-validated
    }

    void signsInWithPastedToken_data()
    {
        QTest::addColumn<QString>("typed");
        QTest::addColumn<int>("status");
        QTest::addColumn<QString>("error"); // empty: accepted
        QTest::newRow("blanks and newline") << "  tok-1 \n" << 200 << "";
        QTest::newRow("only blanks") << " \t\n" << 200 << "Token is empty";
        QTest::newRow("rejected") << "bad" << 401 << "Token rejected by server";
        QTest::newRow("server error") << "tok" << 500 << "HTTP 500: nope";
    }

    void signsInWithPastedToken()
    {
        QFETCH(QString, typed);
        QFETCH(int, status);
        QFETCH(QString, error);
        const bool accepted = error.isEmpty();
        if (status != 200)
            m_server->on("GET", QStringLiteral("/api/v1/tasks"), {status, "nope", {}, 0, false});
        QCOMPARE(signIn(typed), accepted);
        QCOMPARE(auth().isSignedIn(), accepted);
        QCOMPARE(auth().lastError(), error);
        QCOMPARE(m_keychain->stored, accepted ? std::optional<QByteArray>("tok-1") : std::nullopt);
        if (typed.trimmed().isEmpty()) {
            QVERIFY(m_server->requests().isEmpty());
            QCOMPARE(m_keychain->writes, 0);
        } else {
            QCOMPARE(m_server->requests().first().header("Authorization"),
                     "Bearer " + typed.trimmed().toUtf8());
        }
    }

    void beginsBrowserSignIn_data()
    {
        QTest::addColumn<QString>("typed"); // "<server>" stands for the fake server
        QTest::addColumn<bool>("stored");
        QTest::addColumn<QString>("error"); // empty: the browser opens
        QTest::newRow("bare") << "<server>" << true << QString();
        QTest::newRow("path query fragment") << "<server>/app/base?x=1#top" << true << QString();
        QTest::newRow("blanks around") << "  <server>  " << true << QString();
        QTest::newRow("empty") << " \n" << false << "Invalid server URL";
        QTest::newRow("blank inside") << "http://exa mple.com" << false << "Invalid server URL";
        QTest::newRow("no host") << "localhost:3000" << true << "Failed to build connect URL";
    }

    void beginsBrowserSignIn()
    {
        QFETCH(QString, typed);
        QFETCH(bool, stored);
        QFETCH(QString, error);
        typed.replace(QStringLiteral("<server>"), m_server->url().toString());
        const QString before = Preferences::serverURLOverride();
        auth().beginBrowserSignIn(typed);
        QCOMPARE(auth().lastError(), error);
        QCOMPARE(Preferences::serverURLOverride(), stored ? typed.trimmed() : before);
        QCOMPARE(m_opened.size(), error.isEmpty() ? 1 : 0);
        if (!error.isEmpty())
            return;
        const QUrl url = m_opened.first();
        QCOMPARE(url.toString(QUrl::RemoveQuery), m_server->url().toString() + u"/en/app/connect");
        const auto items = QUrlQuery(url).queryItems();
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

    void handlesCallbacks()
    {
        // Not a sign-in in progress: rejected.
        callback(QStringLiteral("tidewell://auth?token=t&state=abc"));
        QCOMPARE(auth().lastError(), QStringLiteral("Rejected unexpected sign-in callback"));

        const QString state = beginBrowserSignIn();
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
        QVERIFY(m_server->requests().isEmpty());

        // The state survived both: the right callback signs in, then pulls.
        callback(u"tidewell://auth/anything?token=tok%2Fbrowser&state=" + state);
        QVERIFY(auth().isSignedIn());
        QCOMPARE(auth().lastError(), QString());
        QCOMPARE(m_keychain->stored, std::optional<QByteArray>("tok/browser"));
        verifyOnePull(*m_server);

        // Signing out forgets the token, the last sync and a sign-in under way.
        const QString pending = beginBrowserSignIn();
        QSignalSpy synced(&auth(), &AuthService::lastSyncedAtChanged);
        auth().signOut();
        QVERIFY(!auth().isSignedIn());
        QVERIFY(!auth().lastSyncedAt().isValid());
        QCOMPARE(synced.count(), 1);
        QVERIFY(!m_keychain->stored);
        callback(u"tidewell://auth?token=again&state=" + pending);
        QCOMPARE(auth().lastError(), QStringLiteral("Rejected unexpected sign-in callback"));
        // Nor does a used state admit a second callback.
        callback(u"tidewell://auth?token=again&state=" + state);
        QCOMPARE(auth().lastError(), QStringLiteral("Rejected unexpected sign-in callback"));
        QVERIFY(!auth().isSignedIn());

        // A token the server refuses signs nothing in and pulls nothing.
        m_server->clearRequests();
        m_server->on("GET", QStringLiteral("/api/v1/tasks"), Response{401, {}, {}, 0, false});
        callback(u"tidewell://auth?token=revoked&state=" + beginBrowserSignIn());
        QVERIFY(!auth().isSignedIn());
        QCOMPARE(auth().lastError(), QStringLiteral("Token rejected by server"));
        QVERIFY(!m_keychain->stored);
        QCOMPARE(m_server->requests().size(), 1); // the token test alone
    }
};

QTEST_GUILESS_MAIN(TestAuthService)
#include "tst_authservice.moc"
