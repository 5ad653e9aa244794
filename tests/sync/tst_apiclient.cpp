#include "APIClient.h"
#include "FakeKeychain.h"
#include "FakeSyncServer.h"
#include "KeychainStore.h"
#include "Preferences.h"

#include <QStandardPaths>
#include <QTest>

using Response = FakeSyncServer::Response;
Q_DECLARE_METATYPE(Response)

class TestAPIClient final : public QObject
{
    Q_OBJECT

    std::unique_ptr<FakeSyncServer> m_server;
    std::shared_ptr<FakeKeychain> m_keychain;

    static QByteArray j(const char* text)
    {
        QByteArray json(text);
        json.replace('\'', '"');
        return json;
    }

    static APIResult<QList<WireTaskList>> getTasks()
    {
        return QCoro::waitFor(APIClient::shared().getTasks());
    }

private slots:
    void initTestCase() { QStandardPaths::setTestModeEnabled(true); }

    void init()
    {
        m_server = std::make_unique<FakeSyncServer>();
        m_keychain = std::make_shared<FakeKeychain>();
        m_keychain->stored = QByteArrayLiteral("tok-123");
        KeychainStore::setBackend(m_keychain);
        Preferences::setServerURLOverride(m_server->url().toString());
        APIClient::shared().setTransferTimeout(std::chrono::seconds(60));
    }

    void cleanup() { m_server.reset(); }

    void resolvesServerAddress_data()
    {
        QTest::addColumn<QString>("stored");
        QTest::addColumn<QString>("expected");
        QTest::newRow("unset") << "" << APIClient::defaultServerURL();
        QTest::newRow("blanks only") << " \t " << APIClient::defaultServerURL();
        QTest::newRow("kept as stored") << " https://sync.example.org/ "
                                        << " https://sync.example.org/ ";
    }

    void resolvesServerAddress()
    {
        QFETCH(QString, stored);
        QFETCH(QString, expected);
        Preferences::setServerURLOverride(stored);
        QCOMPARE(APIClient::serverURLString(), expected);
        QCOMPARE(APIClient::defaultServerURL(), QStringLiteral("http://localhost:3000"));
    }

    void joinsBaseAndEndpointWithOneSlash_data()
    {
        QTest::addColumn<QString>("basePath");
        QTest::addColumn<QString>("requested");
        QTest::newRow("no path") << ""
                                 << "/api/v1/tasks";
        QTest::newRow("root") << "/"
                              << "/api/v1/tasks";
        QTest::newRow("base path") << "/tidewell"
                                   << "/tidewell/api/v1/tasks";
        QTest::newRow("base path and slash") << "/tidewell/"
                                             << "/tidewell/api/v1/tasks";
        QTest::newRow("deeper") << "/a/b"
                                << "/a/b/api/v1/tasks";
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

    void sendsTokenAndJsonHeaders()
    {
        m_server->serveEmptyAccount();
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
        QVERIFY(!get.first().hasHeader("Content-Type"));
        QVERIFY(get.first().body.isEmpty());
        QCOMPARE(put.first().header("Content-Type"), QByteArrayLiteral("application/json"));
        QCOMPARE(put.first().body, QByteArrayLiteral("[]"));
    }

    void mapsRepliesToErrors_data()
    {
        QTest::addColumn<Response>("response");
        QTest::addColumn<int>("kind");
        QTest::addColumn<QString>("text");
        const int http = int(APIError::Kind::Http), decoding = int(APIError::Kind::Decoding),
                  transport = int(APIError::Kind::Transport);
        QTest::newRow("401 with a body")
            << Response::json(401, "{\"error\":\"revoked\"}") << int(APIError::Kind::Unauthorized)
            << "Token rejected by server";
        QTest::newRow("403 with a body")
            << Response{403, "forbidden here", {}, 0, false} << http << "HTTP 403: forbidden here";
        QTest::newRow("500 empty") << Response{500, {}, {}, 0, false} << http << "HTTP 500: ";
        QTest::newRow("500 not UTF-8")
            << Response{500, "\xff\xfe", {}, 0, false} << http << "HTTP 500";
        QTest::newRow("200 not JSON") << Response{200, "<html>hi</html>", {}, 0, false} << decoding
                                      << "Decoding failed: invalid JSON at offset 1: illegal value";
        QTest::newRow("200 missing key")
            << Response::json(200, j("{'data':[{'name':'A'}]}")) << decoding
            << "Decoding failed: key \"tasks\" missing at data[0]";
        QTest::newRow("dropped") << Response{200, {}, {}, 0, true} << transport
                                 << "Network error: Connection closed";
        QTest::newRow("too large")
            << Response{200, QByteArray(APIClient::MaxReplySize + 1, ' '), {}, 0, false}
            << transport << "Network error: Reply larger than 32 MiB";
    }

    void mapsRepliesToErrors()
    {
        QFETCH(Response, response);
        QFETCH(int, kind);
        QFETCH(QString, text);
        m_server->on("GET", QStringLiteral("/api/v1/tasks"), response);
        const auto result = getTasks();
        QVERIFY(!result.ok());
        QCOMPARE(int(result.error().kind()), kind);
        QCOMPARE(result.error().errorDescription(), text);
    }

    void rejectsNoContentReplyToPut()
    {
        m_server->on("PUT", QStringLiteral("/api/v1/pomodoro"), Response{204, {}, {}, 0, false});
        const auto error = QCoro::waitFor(APIClient::shared().putPomodoro({}));
        QVERIFY(error);
        QCOMPARE(error->kind(), APIError::Kind::Decoding);
        QVERIFY(error->errorDescription().startsWith(u"Decoding failed: "));
    }

    void failsBeforeSendingWithoutTokenOrUsableServer_data()
    {
        QTest::addColumn<QByteArray>("token"); // null: none stored
        QTest::addColumn<QString>("server");   // empty: the fake server
        QTest::addColumn<QString>("text");
        QTest::newRow("no token") << QByteArray() << ""
                                  << "Not signed in";
        QTest::newRow("empty token") << QByteArray("") << ""
                                     << "Not signed in";
        QTest::newRow("no scheme") << QByteArray("t") << "localhost:3000"
                                   << "Network error: Invalid server address";
        QTest::newRow("blank inside") << QByteArray("t") << "http://exa mple.com"
                                      << "Network error: Invalid server address";
        QTest::newRow("bad port") << QByteArray("t") << "http://127.0.0.1:99999"
                                  << "Network error: Invalid server address";
        QTest::newRow("just punctuation") << QByteArray("t") << ":::/"
                                          << "Network error: Invalid server address";
    }

    void failsBeforeSendingWithoutTokenOrUsableServer()
    {
        QFETCH(QByteArray, token);
        QFETCH(QString, server);
        QFETCH(QString, text);
        m_keychain->stored = token.isNull() ? std::nullopt : std::optional<QByteArray>(token);
        KeychainStore::setBackend(m_keychain);
        if (!server.isEmpty())
            Preferences::setServerURLOverride(server);
        m_server->serveEmptyAccount();
        const auto result = getTasks();
        QVERIFY(!result.ok());
        QCOMPARE(result.error().errorDescription(), text);
        QVERIFY(m_server->requests().isEmpty());
    }

    void reportsRefusedConnection()
    {
        const QString address = m_server->url().toString();
        m_server.reset(); // nothing listens on that port any more
        Preferences::setServerURLOverride(address);
        const auto result = getTasks();
        QVERIFY(!result.ok());
        QCOMPARE(result.error().kind(), APIError::Kind::Transport);
        QCOMPARE(result.error().errorDescription(),
                 QStringLiteral("Network error: Connection refused"));
    }

    void timesOutSilentServer()
    {
        APIClient::shared().setTransferTimeout(std::chrono::milliseconds(200));
        m_server->on("GET", QStringLiteral("/api/v1/tasks"),
                     Response{200, "{\"data\":[]}", {}, 10'000, false});
        const auto result = getTasks();
        QVERIFY(!result.ok());
        QCOMPARE(result.error().kind(), APIError::Kind::Transport);
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
        QCOMPARE(away.error().kind(), APIError::Kind::Transport);
        for (const auto& r : other.requests())
            QVERIFY(!r.hasHeader("Authorization"));

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
