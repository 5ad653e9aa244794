#include "APIClient.h"
#include "SyncFixture.h"

class TestAPIClient final : public QObject, private SyncFixture
{
    Q_OBJECT

    static APIResult<QList<WireTaskList>> getTasks()
    {
        return QCoro::waitFor(APIClient::shared().getTasks());
    }

private slots:
    void initTestCase() { setUpOnce(); }

    void init()
    {
        setUp();
        startWithToken("tok-123");
        APIClient::shared().setTransferTimeout(std::chrono::seconds(60));
    }

    void cleanup() { m_server.reset(); }

    void blankServerAddressMeansTheDefault()
    {
        for (const char* blank : {"", " \t "}) {
            Preferences::setServerURLOverride(QString::fromLatin1(blank));
            QCOMPARE(APIClient::serverURLString(), QStringLiteral("http://localhost:3000"));
        }
    }

    void joinsBaseAndEndpointWithOneSlash_data()
    {
        QTest::addColumn<QString>("basePath");
        QTest::addColumn<QString>("requested");
        QTest::newRow("no path") << QString() << "/api/v1/tasks";
        QTest::newRow("root") << QStringLiteral("/") << "/api/v1/tasks";
        QTest::newRow("base path") << QStringLiteral("/tidewell") << "/tidewell/api/v1/tasks";
        QTest::newRow("base path and slashes") << QStringLiteral("/a/b//") << "/a/b/api/v1/tasks";
    }

    void joinsBaseAndEndpointWithOneSlash()
    {
        QFETCH(QString, basePath);
        QFETCH(QString, requested);
        m_server->setFallback(Response::json(200, j("{'data':[]}")));
        Preferences::setServerURLOverride(m_server->url().toString() + basePath);
        QVERIFY(getTasks().ok());
        QCOMPARE(m_server->requests().size(), 1);
        QCOMPARE(m_server->requests().first().path, requested);
    }

    void sendsTokenAndJsonAndWantsAnAnswer()
    {
        QVERIFY(getTasks().ok());
        QVERIFY(!QCoro::waitFor(APIClient::shared().putHabits({})));
        const auto get = m_server->requestsFor("GET", QStringLiteral("/api/v1/tasks"));
        const auto put = m_server->requestsFor("PUT", QStringLiteral("/api/v1/habits"));
        QCOMPARE(get.size(), 1);
        QCOMPARE(put.size(), 1);
        for (const auto& r : {get.first(), put.first()}) {
            QCOMPARE(r.header("Authorization"), QByteArrayLiteral("Bearer tok-123"));
            QCOMPARE(r.header("Accept"), QByteArrayLiteral("application/json"));
        }
        QCOMPARE(put.first().header("Content-Type"), QByteArrayLiteral("application/json"));
        QCOMPARE(put.first().body, QByteArrayLiteral("[]"));

        // A PUT is taken only with an acknowledgement, not an empty success.
        m_server->on("PUT", QStringLiteral("/api/v1/pomodoro"), Response{204, {}, {}, 0, false});
        const auto error = QCoro::waitFor(APIClient::shared().putPomodoro({}));
        QVERIFY(error);
        QCOMPARE(error->kind(), APIError::Kind::Decoding);
    }

    void mapsFailuresToErrors_data()
    {
        QTest::addColumn<QByteArray>("token"); // null: none stored
        QTest::addColumn<QString>("server");   // empty: the fake server; "gone": its closed port
        QTest::addColumn<Response>("response");
        QTest::addColumn<QString>("text");
        const auto reply = [](const char* name, const Response& response, const char* text) {
            QTest::newRow(name) << QByteArray("t") << QString() << response << QString(text);
        };
        const auto unsent = [](const char* name, const QByteArray& token, const char* server,
                               const char* text) {
            QTest::newRow(name) << token << QString(server) << Response() << QString(text);
        };
        reply("401 with a body", {401, "{\"error\":\"revoked\"}", {}, 0, false},
              "Token rejected by server");
        reply("403 with a body", {403, "forbidden here", {}, 0, false}, "HTTP 403: forbidden here");
        reply("500 empty", {500, {}, {}, 0, false}, "HTTP 500: ");
        reply("500 not UTF-8", {500, "\xff\xfe", {}, 0, false}, "HTTP 500");
        reply("200 not JSON", {200, "<html>hi</html>", {}, 0, false},
              "Decoding failed: invalid JSON at offset 1: illegal value");
        reply("200 missing key", Response::json(200, j("{'data':[{'name':'A'}]}")),
              "Decoding failed: key \"tasks\" missing at data[0]");
        reply("dropped", {200, {}, {}, 0, true}, "Network error: Connection closed");
        reply("too large", {200, QByteArray(APIClient::MaxReplySize + 1, ' '), {}, 0, false},
              "Network error: Reply larger than 32 MiB");
        reply("redirect loop", {302, {}, {{"Location", "/api/v1/tasks"}}, 0, false},
              "Network error: Too many redirects");
        reply("silent", {200, "{\"data\":[]}", {}, 10'000, false},
              "Network error: Operation canceled");
        unsent("no token", QByteArray(), "", "Not signed in");
        unsent("empty token", "", "", "Not signed in");
        for (const char* server :
             {"localhost:3000", "http://exa mple.com", "http://127.0.0.1:99999", ":::/"})
            unsent(server, "t", server, "Network error: Invalid server address");
        unsent("refused", "t", "gone", "Network error: Connection refused");
    }

    void mapsFailuresToErrors()
    {
        QFETCH(QByteArray, token);
        QFETCH(QString, server);
        QFETCH(Response, response);
        QFETCH(QString, text);
        startWithToken(token.isNull() ? std::nullopt : std::optional<QByteArray>(token));
        m_server->on("GET", QStringLiteral("/api/v1/tasks"), response);
        if (response.delayMs > 0)
            APIClient::shared().setTransferTimeout(std::chrono::milliseconds(200));
        if (server == u"gone") {
            server = m_server->url().toString();
            m_server.reset(); // nothing listens on that port any more
        }
        if (!server.isEmpty())
            Preferences::setServerURLOverride(server);
        const auto result = getTasks();
        QVERIFY(!result.ok());
        QCOMPARE(result.error().errorDescription(), text);
        if (token.isEmpty())
            QVERIFY(m_server->requests().isEmpty());
    }

    void followsRedirectsOnlyWithinTheServer()
    {
        FakeSyncServer other;
        other.serveEmptyAccount();
        m_server->on(
            "GET", QStringLiteral("/api/v1/habits"),
            Response{
                302, {}, {{"Location", other.url().toEncoded() + "/api/v1/habits"}}, 0, false});
        const auto away = QCoro::waitFor(APIClient::shared().getHabits());
        QVERIFY(!away.ok());
        QCOMPARE(away.error().errorDescription(),
                 QStringLiteral("Network error: Redirect to another host refused"));
        QVERIFY(other.requests().isEmpty()); // the token never left

        m_server->on("GET", QStringLiteral("/api/v1/tasks"),
                     Response{307, {}, {{"Location", "/moved/tasks"}}, 0, false});
        m_server->on("GET", QStringLiteral("/moved/tasks"), Response::json(200, "{\"data\":[]}"));
        QVERIFY(getTasks().ok());
        const auto moved = m_server->requestsFor("GET", QStringLiteral("/moved/tasks"));
        QCOMPARE(moved.size(), 1);
        QCOMPARE(moved.first().header("Authorization"), QByteArrayLiteral("Bearer tok-123"));
    }
};

QTEST_GUILESS_MAIN(TestAPIClient)
#include "tst_apiclient.moc"
