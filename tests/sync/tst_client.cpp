#include "APIClient.h"
#include "BundleInfo.h"
#include "SyncFixture.h"

#include <QRegularExpression>
#include <QSettings>

class TestClient final : public QObject, private SyncFixture
{
    Q_OBJECT

    QString getTasks()
    {
        const auto result = QCoro::waitFor(m_services->client().getTasks());
        return result.ok() ? u"ok"_s : result.error().errorDescription();
    }

    void verifyRejected(const QString& url)
    {
        callback(url);
        QCOMPARE(auth().lastError(), u"Rejected unexpected sign-in callback"_s);
    }

    QString beginBrowserSignIn()
    {
        auth().beginBrowserSignIn(m_server->url().toString());
        return QUrlQuery(m_opened.value(m_opened.size() - 1)).queryItemValue(u"state"_s);
    }

private slots:
    void initTestCase() { setUpOnce(); }

    void init()
    {
        setUp();
        startWithToken("tok-123");
        m_services->client().setTransferTimeout(std::chrono::seconds(60));
    }

    void cleanup() { m_server.reset(); }

    void serverAddress()
    {
        for (const char* blank : {"", " \t "}) {
            Preferences::setServerURLOverride(QString::fromLatin1(blank));
            QCOMPARE(APIClient::serverURLString(), u"http://localhost:3000"_s);
        }
        for (const char* bad :
             {"localhost:3000", "http://exa mple.com", "http://127.0.0.1:99999", ":::/"}) {
            Preferences::setServerURLOverride(QString::fromLatin1(bad));
            QCOMPARE(getTasks(), u"Network error: Invalid server address"_s);
        }
        // Base and endpoint are joined with one slash.
        m_server->setFallback(Response::json(200, j("{'data':[]}")));
        const std::pair<const char*, const char*> bases[] = {
            {"", "/api/v1/tasks"}, {"/", "/api/v1/tasks"}, {"/a/b//", "/a/b/api/v1/tasks"}};
        for (const auto& [base, requested] : bases) {
            m_server->clearRequests();
            Preferences::setServerURLOverride(m_server->url().toString() + QLatin1String(base));
            QCOMPARE(getTasks(), u"ok"_s);
            QCOMPARE(m_server->requests().size(), 1);
            QCOMPARE(m_server->requests().first().path, QLatin1String(requested));
        }
        const QString gone = m_server->url().toString();
        m_server.reset();
        Preferences::setServerURLOverride(gone);
        QCOMPARE(getTasks(), u"Network error: Connection refused"_s);
    }

    void sendsTokenAndJsonAndWantsAnAnswer()
    {
        QCOMPARE(getTasks(), u"ok"_s);
        QVERIFY(!QCoro::waitFor(m_services->client().putHabits({})));
        const auto get = m_server->requestsFor("GET", api("tasks"));
        const auto put = m_server->requestsFor("PUT", api("habits"));
        QCOMPARE(get.size(), 1);
        QCOMPARE(put.size(), 1);
        for (const auto& r : {get.first(), put.first()}) {
            QCOMPARE(r.header("Authorization"), "Bearer tok-123");
            QCOMPARE(r.header("Accept"), "application/json");
        }
        QCOMPARE(put.first().header("Content-Type"), "application/json");
        QCOMPARE(put.first().body, "[]");
        // A PUT is taken only with an acknowledgement, not an empty success.
        on("PUT", "pomodoro", reply(204));
        const auto error = QCoro::waitFor(m_services->client().putPomodoro({}));
        QVERIFY(error);
        QCOMPARE(error->kind(), APIError::Kind::Decoding);
    }

    void mapsFailuresToErrors()
    {
        const std::pair<Response, const char*> answers[] = {
            {reply(401, "{\"error\":\"revoked\"}"), "Token rejected by server"},
            {reply(403, "forbidden here"), "HTTP 403: forbidden here"},
            {reply(500), "HTTP 500: "},
            {reply(500, "\xff\xfe"), "HTTP 500"},
            {reply(200, "<html>hi</html>"),
             "Decoding failed: invalid JSON at offset 1: illegal value"},
            {Response::json(200, j("{'data':[{'name':'A'}]}")),
             "Decoding failed: key \"tasks\" missing at data[0]"},
            {{200, {}, {}, 0, true}, "Network error: Connection closed"},
            {reply(200, QByteArray("{\"data\":[]}").leftJustified(APIClient::MaxReplySize, ' ')),
             "ok"},
            {reply(200, QByteArray(APIClient::MaxReplySize + 1, ' ')),
             "Network error: Reply larger than 32 MiB"},
            {reply(200, "{\"data\":[]}", 10'000),
             "Network error: the server did not answer in time"},
            {{200, QByteArray(100, ' '), {}, 0, false, 50},
             "Network error: the server took too long to answer"}};
        for (const auto& [response, text] : answers) {
            on("GET", "tasks", response);
            // The silent one gives up soon; the trickling one keeps silence away.
            m_services->client().setTransferTimeout(
                std::chrono::milliseconds(response.delayMs > 0 ? 200 : 60'000));
            m_services->client().setDeadline(
                std::chrono::milliseconds(response.trickleMs > 0 ? 600 : 120'000));
            QCOMPARE(getTasks(), QString::fromUtf8(text));
        }
        m_services->client().setDeadline(std::chrono::seconds(120));
        // An error page of any length is shown as one readable line.
        on("GET", "tasks", reply(500, QByteArray(5000, 'x') + "\n<html>"));
        QCOMPARE(getTasks(), u"HTTP 500: "_s + QString(200, u'x') + u'…');
    }

    void followsRedirectsOnlyWithinTheServer_data()
    {
        QTest::addColumn<QString>("from");
        QTest::addColumn<QString>("to");
        QTest::addColumn<bool>("follows");
        QTest::newRow("same server") << u"http://h:8080/a"_s << u"http://H:8080/b"_s << true;
        QTest::newRow("other port") << u"http://h:8080/a"_s << u"http://h:9090/a"_s << false;
        QTest::newRow("other host") << u"https://h/a"_s << u"https://evil/a"_s << false;
        QTest::newRow("upgrade") << u"http://h/a"_s << u"https://h/a"_s << true;
        QTest::newRow("upgrade, port kept")
            << u"http://h:8080/a"_s << u"https://h:8080/a"_s << true;
        QTest::newRow("downgrade") << u"https://h/a"_s << u"http://h/a"_s << false;
        QTest::newRow("upgrade elsewhere") << u"http://h/a"_s << u"https://h2/a"_s << false;
    }

    void followsRedirectsOnlyWithinTheServer()
    {
        QFETCH(QString, from);
        QFETCH(QString, to);
        QTEST(APIClient::mayFollow(QUrl(from), QUrl(to)), "follows");
        if (QTest::currentDataTag() != QByteArrayLiteral("same server"))
            return;
        FakeSyncServer other;
        other.serveEmptyAccount();
        on("GET", "habits",
           {302, {}, {{"Location", other.url().toEncoded() + "/api/v1/habits"}}, 0, false});
        const auto away = QCoro::waitFor(m_services->client().getHabits());
        QCOMPARE(away.error().errorDescription(),
                 u"Network error: Redirect to another host refused"_s);
        QVERIFY(other.requests().isEmpty()); // the token never left

        on("GET", "tasks", {302, {}, {{"Location", "/api/v1/tasks"}}, 0, false});
        QCOMPARE(getTasks(), u"Network error: Too many redirects"_s);
        QCOMPARE(count(*m_server, "GET", "tasks"), 1 + APIClient::MaxRedirects);

        on("GET", "tasks", {307, {}, {{"Location", "/moved/tasks"}}, 0, false});
        m_server->on("GET", u"/moved/tasks"_s, Response::json(200, "{\"data\":[]}"));
        QCOMPARE(getTasks(), u"ok"_s);
        const auto moved = m_server->requestsFor("GET", u"/moved/tasks"_s);
        QCOMPARE(moved.size(), 1);
        QCOMPARE(moved.first().header("Authorization"), "Bearer tok-123");
    }

    void needsAStoredToken()
    {
        // Each refusal follows an acceptance, so a state merely left over fails.
        const std::pair<std::optional<QByteArray>, bool> stored[] = {
            {"tok", true}, {std::nullopt, false}, {"tok", true},
            {"", false},   {"tok", true},         {"\xc3\x28", false}}; // not UTF-8
        for (const auto& [token, signedIn] : stored) {
            m_server->clearRequests();
            startWithToken(token);
            QCOMPARE(auth().isSignedIn(), signedIn);
            QVERIFY(m_server->requests().isEmpty()); // not re-validated
            QCOMPARE(getTasks(), signedIn ? u"ok"_s : u"Not signed in"_s);
            QCOMPARE(m_server->requests().size(), signedIn ? 1 : 0);
        }
    }

    void signsInWithPastedToken()
    {
        auth().signOut();
        QVERIFY(!QCoro::waitFor(auth().signIn(u" \t\n"_s)));
        QCOMPARE(auth().lastError(), u"Token is empty"_s);
        QVERIFY(m_server->requests().isEmpty());
        QCOMPARE(m_keychain->writes, 0);
        // Nothing that could not travel in a header is stored or sent.
        for (const QString& bad : {u"tok\x01x"_s, u"tok en"_s, u"tök"_s}) {
            QVERIFY(!QCoro::waitFor(auth().signIn(bad)));
            QCOMPARE(auth().lastError(), u"Token contains characters a token cannot have"_s);
        }
        QVERIFY(m_server->requests().isEmpty());
        QCOMPARE(m_keychain->writes, 0);

        QVERIFY(QCoro::waitFor(auth().signIn(u"  tok-1 \n"_s)));
        QVERIFY(auth().isSignedIn());
        QCOMPARE(m_keychain->stored, std::optional<QByteArray>("tok-1"));
        QCOMPARE(m_server->requests().last().header("Authorization"), "Bearer tok-1");

        // A keychain that cannot keep the token: signed in with the token in memory
        // until the app quits, and told so; the next start is signed out.
        auth().signOut();
        QTRY_VERIFY(!m_keychain->stored);
        QCOMPARE(Preferences::accountExists(), std::optional(false));
        m_keychain->refuseWrites = true;
        QVERIFY(QCoro::waitFor(auth().signIn(u"tok-2"_s)));
        QVERIFY(auth().isSignedIn());
        QVERIFY(auth().lastError().isEmpty());
        QCOMPARE(auth().keychainProblem(),
                 u"Signed in until Tidewell quits: the keyring could not keep the token (no "
                 "keyring is running), so you will need to sign in again after a restart."_s);
        QCOMPARE(Preferences::accountExists(), std::optional(true));
        m_server->setFallback(Response::json(200, j("{'data':[]}")));
        QCOMPARE(getTasks(), u"ok"_s);
        QCOMPARE(m_server->requests().last().header("Authorization"), "Bearer tok-2");
        start(); // a restart: the keyring never had it
        auth().reload();
        QTRY_VERIFY(!auth().isLoading());
        QVERIFY(!auth().isSignedIn());
    }

    // Until somebody signs in on this computer the keyring is never asked: a
    // desktop wallet would greet people who never sign in with a prompt.
    void noKeyringBeforeAnAccount()
    {
        Preferences::setAccountExists(false);
        m_keychain->stored = QByteArrayLiteral("stale");
        const int reads = m_keychain->reads;
        start();
        auth().reload();
        QVERIFY(!auth().isLoading());
        QVERIFY(!auth().isSignedIn());
        QCoro::waitFor(engine().pushHabits());
        QCOMPARE(m_keychain->reads, reads);

        // Settings from before the account was remembered ask once, and remember.
        QSettings(BundleInfo::current().identifier, BundleInfo::current().name)
            .remove(u"tw.accountExists"_s);
        start();
        auth().reload();
        QTRY_VERIFY(!auth().isLoading());
        QVERIFY(auth().isSignedIn());
        QCOMPARE(Preferences::accountExists(), std::optional(true));
        QCOMPARE(m_keychain->reads, reads + 1);
    }

    void waitsForTheKeychain()
    {
        // A keyring still locked at log-in answers nothing at first: the account
        // is loading, not signed out, and a change made meanwhile is pushed once
        // the token arrives.
        m_keychain->stored = QByteArrayLiteral("tok-late");
        m_keychain->silentReads = 2;
        start();
        auth().reload();
        QVERIFY(auth().isLoading());
        QVERIFY(!auth().isSignedIn());
        m_server->on("PUT", api("habits"), reply(204));
        bool pushed = false;
        QCoro::connect(engine().pushHabits(), this, [&pushed] { pushed = true; });
        QTRY_VERIFY_WITH_TIMEOUT(auth().isSignedIn(), 8000);
        QVERIFY(!auth().isLoading());
        QTRY_VERIFY(pushed);
        QCOMPARE(m_server->requestsFor("PUT", api("habits")).value(0).header("Authorization"),
                 "Bearer tok-late");
        QCOMPARE(m_keychain->reads, 4); // one at the start of the test, then three

        // A sign-out whose keychain removal fails says so; the next success clears it.
        m_keychain->refuseRemoves = true;
        auth().signOut();
        QVERIFY(!auth().isSignedIn());
        QTRY_COMPARE(auth().keychainProblem(), u"Signed out, but the token could not be removed "
                                               "from the keyring: the keyring did not answer"_s);
        m_keychain->refuseRemoves = false;
        QVERIFY(QCoro::waitFor(auth().signIn(u"tok-3"_s)));
        QCOMPARE(auth().keychainProblem(), QString());
    }

    void beginsBrowserSignIn()
    {
        const QString server = m_server->url().toString();
        const std::pair<QString, const char*> typed[] = {
            {u" \n"_s, "Invalid server URL"},
            {u"http://exa mple.com"_s, "Invalid server URL"},
            {u"localhost:3000"_s, "Failed to build connect URL"},
            {server + u"/app/base?x=1#top", ""},
            {u"  "_s + server + u"  ", ""}};
        QStringList states;
        for (const auto& [address, error] : typed) {
            const QString before = Preferences::serverURLOverride();
            m_opened.clear();
            auth().beginBrowserSignIn(address);
            QCOMPARE(auth().lastError(), QLatin1String(error));
            // Any address that parses is kept, even one the browser cannot be sent to.
            QCOMPARE(Preferences::serverURLOverride(),
                     error == "Invalid server URL"_L1 ? before : address.trimmed());
            QCOMPARE(m_opened.size(), *error ? 0 : 1);
            if (*error)
                continue;
            QCOMPARE(m_opened[0].toString(QUrl::RemoveQuery), QString(server + u"/en/app/connect"));
            const auto items = QUrlQuery(m_opened[0]).queryItems();
            QCOMPARE(items.size(), 2);
            QCOMPARE(items[0].first, u"state"_s);
            QVERIFY(QRegularExpression(u"^[0-9a-f]{48}$"_s).match(items[0].second).hasMatch());
            QVERIFY(!states.contains(items[0].second)); // a new sign-in, a new state
            states.append(items[0].second);
            QCOMPARE(items[1], qMakePair(u"scheme"_s, u"tidewell"_s));
        }
    }

    void handlesCallbacks()
    {
        auth().signOut();
        verifyRejected(u"tidewell://auth?token=t&state=abc"_s); // none under way
        const QString state = beginBrowserSignIn();
        QSignalSpy errors(&auth(), &AuthService::lastErrorChanged);
        // Other schemes and hosts are not ours: silently ignored.
        for (const char* other : {"https://auth", "tidewell://open", "tidewell:auth"})
            callback(QLatin1String(other) + u"?token=t&state=" + state);
        QCOMPARE(errors.count(), 0);
        callback(u"tidewell://auth?state=" + state);
        QCOMPARE(auth().lastError(), u"Callback missing token"_s);
        verifyRejected(u"tidewell://auth?token=t&state=" + state + u"0");
        QVERIFY(m_server->requests().isEmpty());

        callback(u"tidewell://auth/anything?token=tok%2Fbrowser&state=" + state);
        QVERIFY(auth().isSignedIn());
        QCOMPARE(auth().lastError(), QString());
        QCOMPARE(m_keychain->stored, std::optional<QByteArray>("tok/browser"));
        verifyOnePull(*m_server); // the sync engine pulls after a new sign-in

        // Signing out forgets the token, the last sync and a sign-in under way.
        const QString pending = beginBrowserSignIn();
        QSignalSpy synced(&engine(), &SyncEngine::lastSyncedAtChanged);
        auth().signOut();
        QCOMPARE(synced.count(), 1);
        QVERIFY(!engine().lastSyncedAt().isValid());
        QTRY_VERIFY(!m_keychain->stored);
        verifyRejected(u"tidewell://auth?token=again&state=" + pending);
        verifyRejected(u"tidewell://auth?token=again&state=" + state); // used up
        QVERIFY(!auth().isSignedIn());

        // A token the server refuses signs nothing in and pulls nothing.
        m_server->clearRequests();
        on("GET", "tasks", reply(401));
        callback(u"tidewell://auth?token=revoked&state=" + beginBrowserSignIn());
        QVERIFY(!auth().isSignedIn());
        QCOMPARE(auth().lastError(), u"Token rejected by server"_s);
        QTRY_VERIFY(!m_keychain->stored);
        QCOMPARE(m_server->requests().size(), 1); // the token test alone
    }
};

QTEST_GUILESS_MAIN(TestClient)
#include "tst_client.moc"
