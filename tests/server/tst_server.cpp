#include "Accounts.h"
#include "Clock.h"
#include "ResourceStore.h"
#include "ServerDatabase.h"
#include "SyncServer.h"
#include "TestDatabase.h"
#include "WireEnvelope.h"

#include <QFileInfo>
#include <QJsonDocument>
#include <QJsonObject>
#include <QLocale>
#include <QSignalSpy>
#include <QTcpSocket>
#include <QTest>

using namespace Qt::StringLiterals;

// The sync API, the accounts and the connection limits, on the engine this run
// names (the suite runs once on SQLite and once on PostgreSQL).
class TestServer final : public QObject
{
    Q_OBJECT

    std::unique_ptr<TestDatabase> m_db;
    std::unique_ptr<SyncServer> m_server;
    QString m_token;
    qint64 m_userId = 0;

    HttpAnswer call(const QByteArray& method, const QString& path, const QByteArray& body = {},
                    const QString& token = u"<own>"_s, const QByteArray& type = "application/json")
    {
        HttpCall c;
        c.method = method;
        c.path = path.section(u'?', 0, 0);
        c.query = QUrlQuery(path.section(u'?', 1));
        c.body = body;
        const QString bearer = token == u"<own>" ? m_token : token;
        if (!bearer.isNull())
            c.headers.append({"Authorization", "Bearer " + bearer.toUtf8()});
        if (!type.isEmpty())
            c.headers.append({"Content-Type", type});
        return m_server->handle(c);
    }

    static QList<WireHabit> habits()
    {
        return {
            {u"1F4A7"_s, u"Water"_s, u"#3B82F6"_s, 8, 3, u"2026-03-01T07:00:00Z"_s},
            {u"🧘"_s, u"Stretch \"daily\""_s, u"#10B981"_s, 120, 130, u"2026-03-02T07:00:00Z"_s}};
    }

    static QList<WireTaskList> lists()
    {
        WireTaskList inbox{u"Inbox & more"_s, 1, {}};
        inbox.tasks = {{u"Buy milk"_s, std::nullopt, true, {}}, {u"Call Ann"_s, 2, false, {}}};
        return {inbox, WireTaskList{u"Empty"_s, std::nullopt, {}}};
    }

    static PomodoroState timer()
    {
        PomodoroState s;
        for (const QString& key : PomodoroState::keys())
            s.setValue(key, u"0"_s);
        s.setInteger(u"pomodoroDuration"_s, 50);
        s.setBool(u"autoStart"_s, true);
        s.setValue(u"firstPomodoroCountDate"_s, u"2026-03-01T07:00:00Z"_s);
        return s;
    }

private slots:
    void init()
    {
        m_db = std::make_unique<TestDatabase>();
        QVERIFY2(!m_db->url().isEmpty(), qPrintable(m_db->problem()));
        SyncServer::Options options;
        options.database.url = m_db->url();
        options.port = 0;
        QString error;
        m_server = SyncServer::create(options, &error);
        QVERIFY2(m_server, qPrintable(error));
        Accounts& accounts = m_server->accounts();
        QVERIFY2(accounts.addUser(u"ann"_s, u"correct horse"_s, &error), qPrintable(error));
        m_userId = accounts.user(u"ann"_s)->id;
        m_token = accounts.createToken(m_userId, u"test"_s, &error).value_or(QString());
        QVERIFY(m_token.startsWith(u"tw_"));
    }

    void cleanup()
    {
        m_server.reset();
        m_db.reset();
    }

    // What the app PUTs comes back from GET as the app decodes it; before the first
    // PUT a resource is empty.
    void resourcesRoundTrip()
    {
        QCOMPARE(call("GET", u"/api/v1/habits"_s).body, "{\"data\":[]}"_ba);
        QCOMPARE(call("GET", u"/api/v1/tasks"_s).body, "{\"data\":[]}"_ba);
        QCOMPARE(call("GET", u"/api/v1/pomodoro"_s).body, "{\"data\":null}"_ba);

        QCOMPARE(call("PUT", u"/api/v1/habits"_s, WireEnvelope::encode(habits())).status, 200);
        QCOMPARE(call("PUT", u"/api/v1/tasks"_s, WireEnvelope::encode(lists())).status, 200);
        const HttpAnswer put = call("PUT", u"/api/v1/pomodoro"_s, WireEnvelope::encode(timer()));
        QCOMPARE(put.status, 200);
        QString why;
        QVERIFY(WireEnvelope::decodeOk(put.body, &why));

        QCOMPARE(WireEnvelope::decodeHabits(call("GET", u"/api/v1/habits"_s).body, &why).value(),
                 habits());
        QCOMPARE(WireEnvelope::decodeTasks(call("GET", u"/api/v1/tasks"_s).body, &why).value(),
                 lists());
        std::optional<PomodoroState> state;
        QVERIFY(
            WireEnvelope::decodePomodoro(call("GET", u"/api/v1/pomodoro"_s).body, &state, &why));
        QCOMPARE(state, timer());

        // Another user's token sees nothing of it.
        QString error;
        QVERIFY(m_server->accounts().addUser(u"bo"_s, u"another pass"_s, &error));
        const auto other = m_server->accounts().createToken(m_server->accounts().user(u"bo"_s)->id,
                                                            u"x"_s, &error);
        QCOMPARE(call("GET", u"/api/v1/habits"_s, {}, *other).body, "{\"data\":[]}"_ba);
    }

    // Every resource has a version: GET tells it and answers 304 to a client that
    // has it; a PUT made on an older version is refused with the current one and
    // stores nothing. Without the headers nothing changes (the tests above).
    void versionsGuardWrites()
    {
        const auto put = [this](const QString& path, const QByteArray& body,
                                const QByteArray& ifMatch) {
            HttpCall c;
            c.method = "PUT";
            c.path = path;
            c.body = body;
            c.headers = {{"Authorization", "Bearer " + m_token.toUtf8()}, {"If-Match", ifMatch}};
            return m_server->handle(c);
        };
        const auto get = [this](const QString& path, const QByteArray& ifNoneMatch) {
            HttpCall c;
            c.method = "GET";
            c.path = path;
            c.headers = {{"Authorization", "Bearer " + m_token.toUtf8()},
                         {"If-None-Match", ifNoneMatch}};
            return m_server->handle(c);
        };
        const auto etag = [](const HttpAnswer& a) {
            for (const auto& [name, value] : a.headers) {
                if (name == "ETag")
                    return value;
            }
            return QByteArray();
        };
        const auto stored = [](const HttpAnswer& a) {
            for (const auto& [name, value] : a.headers) {
                if (name == "Last-Modified")
                    return QLocale::c().toDateTime(QString::fromLatin1(value),
                                                   u"ddd, dd MMM yyyy hh:mm:ss 'GMT'"_s);
            }
            return QDateTime();
        };
        const QString habitsPath = u"/api/v1/habits"_s;
        QCOMPARE(etag(call("GET", habitsPath)), "\"0\""_ba);
        QVERIFY(!stored(call("GET", habitsPath)).isValid());
        HttpAnswer a = call("PUT", habitsPath, WireEnvelope::encode(habits()));
        QCOMPARE(etag(a), "\"1\""_ba);
        // When the copy was stored, as an HTTP date.
        QDateTime when = stored(call("GET", habitsPath));
        when.setTimeSpec(Qt::UTC);
        QVERIFY(qAbs(when.secsTo(QDateTime::currentDateTimeUtc())) < 60);

        a = get(habitsPath, "\"1\"");
        QCOMPARE(a.status, 304);
        QVERIFY(a.body.isEmpty());
        QCOMPARE(etag(a), "\"1\""_ba);
        QCOMPARE(get(habitsPath, "W/\"1\", \"7\"").status, 304);
        QCOMPARE(get(habitsPath, "*").status, 304);
        QCOMPARE(get(habitsPath, "\"0\"").status, 200);

        // Made on version 0 while the server has 1: refused, nothing stored.
        QList<WireHabit> changed = habits();
        changed[0].currentValue = 7;
        a = put(habitsPath, WireEnvelope::encode(changed), "\"0\"");
        QCOMPARE(a.status, 412);
        QCOMPARE(etag(a), "\"1\""_ba);
        QString why;
        QCOMPARE(WireEnvelope::decodeHabits(call("GET", habitsPath).body, &why).value(), habits());
        for (const QByteArray& bad : {"1"_ba, "\"x\""_ba, "\"-1\""_ba, ""_ba})
            QCOMPARE(put(habitsPath, WireEnvelope::encode(changed), bad).status, 412);

        a = put(habitsPath, WireEnvelope::encode(changed), "\"1\"");
        QCOMPARE(a.status, 200);
        QCOMPARE(etag(a), "\"2\""_ba);
        QCOMPARE(put(habitsPath, WireEnvelope::encode(habits()), "*").status, 200);
        QCOMPARE(put(habitsPath, WireEnvelope::encode(habits()), "\"9\", \"3\"").status, 200);
        QCOMPARE(etag(call("GET", habitsPath)), "\"4\""_ba);

        // A resource never stored is at version 0, and "*" names no version of it.
        const QString tasksPath = u"/api/v1/tasks"_s;
        QCOMPARE(etag(put(tasksPath, WireEnvelope::encode(lists()), "\"3\"")), "\"0\""_ba);
        QCOMPARE(put(tasksPath, WireEnvelope::encode(lists()), "*").status, 412);
        QCOMPARE(call("GET", tasksPath).body, "{\"data\":[]}"_ba);
        QCOMPARE(put(tasksPath, WireEnvelope::encode(lists()), "\"0\"").status, 200);
        QCOMPARE(put(tasksPath, WireEnvelope::encode(lists()), "\"0\"").status, 412);
        QCOMPARE(m_server->resources().history(m_userId, ResourceStore::Kind::Tasks, &why).size(),
                 1);
    }

    // A client waiting on /api/v1/changes is told of its user's next PUT at once,
    // with the versions; not of another user's; after the patience it gets 304;
    // a client whose versions are not the server's is told at once. Over a real
    // connection, as the listener holds the answer without a thread.
    void changesWakeWaitingClients()
    {
        m_server.reset();
        SyncServer::Options options;
        options.database.url = m_db->url();
        options.port = 0;
        options.changesPatience = std::chrono::milliseconds(400);
        QString error;
        m_server = SyncServer::create(options, &error);
        QVERIFY(m_server && m_server->listen(&error));
        m_token = m_server->accounts().createToken(m_userId, u"feed"_s, &error).value_or(QString());
        QVERIFY(m_server->accounts().addUser(u"bo"_s, u"another pass"_s, &error));
        const QString other = *m_server->accounts().createToken(
            m_server->accounts().user(u"bo"_s)->id, u"x"_s, &error);

        const auto ask = [this](const QByteArray& versions, const QString& token) {
            auto socket = std::make_shared<QTcpSocket>();
            socket->connectToHost(QHostAddress::LocalHost, m_server->port());
            socket->write("GET /api/v1/changes?" + versions + " HTTP/1.1\r\nHost: x\r\n" +
                          "Authorization: Bearer " + token.toUtf8() + "\r\n\r\n");
            return socket;
        };
        const auto bodyOf = [](const QByteArray& reply) {
            return reply.mid(reply.indexOf("\r\n\r\n") + 4);
        };

        QCOMPARE(call("GET", u"/api/v1/changes"_s).status, 400);
        QCOMPARE(
            call("GET", u"/api/v1/changes?habits=0&tasks=0&pomodoro=0"_s, {}, u"tw_x"_s).status,
            401);

        auto waiting = ask("habits=0&tasks=0&pomodoro=0", m_token);
        auto stranger = ask("habits=0&tasks=0&pomodoro=0", other);
        QTRY_COMPARE(m_server->waitingForChanges(), 2);
        QCOMPARE(call("PUT", u"/api/v1/tasks"_s, WireEnvelope::encode(lists())).status, 200);
        QTRY_VERIFY_WITH_TIMEOUT(waiting->bytesAvailable() > 0, 2000);
        const QByteArray told = waiting->readAll();
        QVERIFY2(told.startsWith("HTTP/1.1 200"), told.constData());
        QCOMPARE(bodyOf(told), "{\"habits\":0,\"pomodoro\":0,\"tasks\":1}"_ba);
        QTRY_VERIFY_WITH_TIMEOUT(stranger->bytesAvailable() > 0, 2000);
        QVERIFY(stranger->readAll().startsWith("HTTP/1.1 304"));

        // A client that goes away while it waits is forgotten at once (its
        // answer, when it comes, goes nowhere).
        auto gone = ask("habits=0&tasks=1&pomodoro=0", m_token);
        QTRY_COMPARE(m_server->waitingForChanges(), 1);
        QCOMPARE(m_server->openConnections(), 3);
        gone->abort();
        QTRY_COMPARE(m_server->openConnections(), 2);
        QTRY_COMPARE(m_server->waitingForChanges(), 0); // its patience ran out

        // Behind, or ahead of a server that was reset: answered at once.
        HttpAnswer now = call("GET", u"/api/v1/changes?habits=0&tasks=0&pomodoro=0"_s);
        QCOMPARE(now.status, 200);
        QVERIFY(!now.later);
        now = call("GET", u"/api/v1/changes?habits=5&tasks=1&pomodoro=0"_s);
        QCOMPARE(bodyOf("\r\n\r\n" + now.body), "{\"habits\":0,\"pomodoro\":0,\"tasks\":1}"_ba);

        // Stopping answers whoever waits rather than holding the stop.
        auto last = ask("habits=0&tasks=1&pomodoro=0", m_token);
        QTRY_COMPARE(m_server->waitingForChanges(), 1);
        QSignalSpy stopped(m_server.get(), &SyncServer::stopped);
        m_server->shutdown();
        QTRY_VERIFY_WITH_TIMEOUT(last->bytesAvailable() > 0, 1000);
        QVERIFY(last->readAll().startsWith("HTTP/1.1 304"));
        QTRY_COMPARE_WITH_TIMEOUT(stopped.size(), 1, 3000);
    }

    void refusalsStoreNothing_data()
    {
        QTest::addColumn<QByteArray>("method");
        QTest::addColumn<QString>("path");
        QTest::addColumn<QByteArray>("body");
        QTest::addColumn<QString>("token"); // null: no Authorization header
        QTest::addColumn<QByteArray>("type");
        QTest::addColumn<int>("status");
        const QByteArray good = WireEnvelope::encode(QList<WireHabit>{});
        const auto row = [](const char* name, const QByteArray& method, const QString& path,
                            const QByteArray& body, const QString& token, const QByteArray& type,
                            int status) {
            QTest::newRow(name) << method << path << body << token << type << status;
        };
        const QString own = u"<own>"_s;
        row("no token", "PUT", u"/api/v1/habits"_s, good, QString(), "application/json", 401);
        row("unknown token", "PUT", u"/api/v1/habits"_s, good, u"tw_nope"_s, "application/json",
            401);
        row("not JSON", "PUT", u"/api/v1/habits"_s, "[{", own, "application/json", 400);
        row("object, not array", "PUT", u"/api/v1/habits"_s, "{}", own, "application/json", 400);
        row("missing key", "PUT", u"/api/v1/habits"_s, R"([{"icon":"x","name":"y"}])", own,
            "application/json", 400);
        row("number as timer value", "PUT", u"/api/v1/pomodoro"_s, R"({"pomodoroDuration":25})",
            own, "application/json", 400);
        row("absurdly deep", "PUT", u"/api/v1/tasks"_s,
            QByteArray(5000, '[') + QByteArray(5000, ']'), own, "application/json", 400);
        row("form post", "PUT", u"/api/v1/habits"_s, good, own, "application/x-www-form-urlencoded",
            415);
        row("delete", "DELETE", u"/api/v1/habits"_s, {}, own, {}, 405);
        row("unknown resource", "GET", u"/api/v1/secrets"_s, {}, own, {}, 404);
        row("unknown path", "GET", u"/admin"_s, {}, own, {}, 404);
    }

    void refusalsStoreNothing()
    {
        QFETCH(QByteArray, method);
        QFETCH(QString, path);
        QFETCH(QByteArray, body);
        QFETCH(QString, token);
        QFETCH(QByteArray, type);
        QFETCH(int, status);
        QCOMPARE(call("PUT", u"/api/v1/habits"_s, WireEnvelope::encode(habits())).status, 200);
        QCOMPARE(call("PUT", u"/api/v1/tasks"_s, WireEnvelope::encode(lists())).status, 200);
        const QByteArray habitsBefore = call("GET", u"/api/v1/habits"_s).body;
        const QByteArray tasksBefore = call("GET", u"/api/v1/tasks"_s).body;

        const HttpAnswer answer = call(method, path, body, token, type);
        QCOMPARE(answer.status, status);
        QVERIFY2(QJsonDocument::fromJson(answer.body).object().contains(u"error"),
                 answer.body.constData());
        if (status == 401)
            QVERIFY(answer.headers.contains(
                std::pair<QByteArray, QByteArray>("WWW-Authenticate", "Bearer")));
        QCOMPARE(call("GET", u"/api/v1/habits"_s).body, habitsBefore);
        QCOMPARE(call("GET", u"/api/v1/tasks"_s).body, tasksBefore);
        QCOMPARE(call("GET", u"/api/v1/pomodoro"_s).body, "{\"data\":null}"_ba);
    }

    void keepsTwentyVersionsAndRestores()
    {
        ResourceStore& store = m_server->resources();
        const auto bodyFor = [](int i) {
            QList<WireHabit> h = habits();
            h[0].currentValue = i;
            return WireEnvelope::encode(h);
        };
        for (int i = 1; i <= 25; ++i)
            QCOMPARE(call("PUT", u"/api/v1/habits"_s, bodyFor(i)).status, 200);
        QString error;
        QList<ResourceStore::Version> versions =
            store.history(m_userId, ResourceStore::Kind::Habits, &error);
        QCOMPARE(versions.size(), ResourceStore::KeptVersions + 1);
        QCOMPARE(versions.first().number, 25);
        QVERIFY(versions.first().current);
        QCOMPARE(versions.last().number, 5);

        QVERIFY(!store.restore(m_userId, ResourceStore::Kind::Habits, 4, &error));
        QVERIFY(store.restore(m_userId, ResourceStore::Kind::Habits, 10, &error));
        QCOMPARE(call("GET", u"/api/v1/habits"_s).body, "{\"data\":" + bodyFor(10) + '}');
        versions = store.history(m_userId, ResourceStore::Kind::Habits, &error);
        QCOMPARE(versions.first().number, 26);
        QCOMPARE(versions.size(), ResourceStore::KeptVersions + 1);
    }

    // The write-ahead log is copied back and started afresh as it grows: it must not
    // grow with every PUT the server ever took.
    void logStaysBounded()
    {
        if (qEnvironmentVariable("TIDEWELL_TEST_ENGINE") == u"postgresql")
            QSKIP("SQLite's log only");
        const QString wal = m_db->url().mid(7) + u"-wal";
        QList<WireHabit> h = habits();
        for (int i = 0; i < 1500; ++i) {
            h[0].currentValue = i;
            QCOMPARE(call("PUT", u"/api/v1/habits"_s, WireEnvelope::encode(h)).status, 200);
        }
        // 1,500 PUTs write some 12,000 pages; the log is restarted past 4,000.
        QTRY_VERIFY2(QFileInfo(wal).size() < 4000 * 4200,
                     qPrintable(QString::number(QFileInfo(wal).size())));
    }

    // Passwords and tokens are kept only as hashes; a revoked token and a removed
    // user are refused at once, and removing a user removes their data.
    void accountsAndTokens()
    {
        Accounts& accounts = m_server->accounts();
        QString error;
        QCOMPARE(accounts.checkPassword(u"ann"_s, u"correct horse"_s)->id, m_userId);
        QVERIFY(!accounts.checkPassword(u"ann"_s, u"Correct horse"_s));
        QVERIFY(!accounts.checkPassword(u"nobody"_s, u"correct horse"_s));
        QVERIFY(!accounts.addUser(u"ann"_s, u"whatever pass"_s, &error));
        QCOMPARE(error, u"there is already a user named ann"_s);
        QVERIFY(!accounts.addUser(u"a b"_s, u"whatever pass"_s, &error));
        QVERIFY(!accounts.addUser(u"cy"_s, u"short"_s, &error));
        QVERIFY(accounts.setPassword(u"ann"_s, u"battery staple"_s, &error));
        QVERIFY(accounts.checkPassword(u"ann"_s, u"battery staple"_s));

        const QString second = *accounts.createToken(m_userId, u"laptop"_s, &error);
        const auto stored = m_server->database().exec(
            u"SELECT token_hash, label FROM tokens UNION ALL SELECT password_hash, name FROM users"_s);
        QVERIFY(stored);
        for (const QVariantList& row : stored->rows) {
            QVERIFY(!row[0].toString().contains(m_token.mid(3)));
            QVERIFY(!row[0].toString().contains(u"battery"));
        }
        const QList<Accounts::Token> tokens = accounts.tokens(m_userId);
        QCOMPARE(tokens.size(), 2);
        QCOMPARE(tokens.at(1).label, u"laptop"_s);
        QVERIFY(!tokens.at(1).lastUsedAt.isValid());
        QCOMPARE(call("GET", u"/api/v1/habits"_s, {}, second).status, 200);
        QVERIFY(accounts.tokens(m_userId).at(1).lastUsedAt.isValid());

        QVERIFY(!accounts.revokeToken(tokens.at(1).id, m_userId + 1, &error)); // not theirs
        QVERIFY(accounts.revokeToken(tokens.at(1).id, m_userId, &error));
        QCOMPARE(call("GET", u"/api/v1/habits"_s, {}, second).status, 401);
        QCOMPARE(call("GET", u"/api/v1/habits"_s).status, 200);

        QCOMPARE(call("PUT", u"/api/v1/habits"_s, WireEnvelope::encode(habits())).status, 200);
        QVERIFY(accounts.removeUser(u"ann"_s, &error));
        QCOMPARE(call("GET", u"/api/v1/habits"_s).status, 401);
        const auto left = m_server->database().exec(u"SELECT COUNT(*) FROM resources"_s);
        QVERIFY(left);
        QCOMPARE(left->rows.value(0).value(0).toInt(), 0);
    }

    // A client cannot hold the server: oversized requests are refused before they
    // are read, slow and idle ones are cut off, and connections are capped.
    void connectionLimits()
    {
        m_server.reset();
        SyncServer::Options options;
        options.database.url = m_db->url();
        options.port = 0;
        options.limits = {3, 600, 300, 1024, 2048};
        QString error;
        m_server = SyncServer::create(options, &error);
        QVERIFY(m_server && m_server->listen(&error));
        const auto open = [this] {
            auto socket = std::make_unique<QTcpSocket>();
            socket->connectToHost(QHostAddress::LocalHost, m_server->port());
            return socket;
        };
        const auto answerOf = [](QTcpSocket& socket) {
            (void)QTest::qWaitFor(
                [&] {
                    return socket.bytesAvailable() > 0 ||
                           socket.state() == QAbstractSocket::UnconnectedState;
                },
                5000);
            return socket.readAll();
        };

        auto keepAlive = open();
        keepAlive->write("GET /healthz HTTP/1.1\r\nHost: x\r\n\r\n");
        QVERIFY(answerOf(*keepAlive).startsWith("HTTP/1.1 200"));
        keepAlive->write("GET /healthz HTTP/1.1\r\nHost: x\r\n\r\n");
        QVERIFY(answerOf(*keepAlive).startsWith("HTTP/1.1 200"));

        auto big = open();
        big->write("PUT /api/v1/habits HTTP/1.1\r\nHost: x\r\nContent-Length: 5000\r\n\r\n[");
        QVERIFY(answerOf(*big).startsWith("HTTP/1.1 413"));
        auto header = open();
        header->write("GET /healthz HTTP/1.1\r\nX-Pad: " + QByteArray(2000, 'a'));
        QVERIFY(answerOf(*header).startsWith("HTTP/1.1 431"));
        auto slow = open();
        slow->write("GET /healthz HTTP/1.1\r\nHo");
        QVERIFY(answerOf(*slow).startsWith("HTTP/1.1 408"));
        QTRY_COMPARE(slow->state(), QAbstractSocket::UnconnectedState);
        // The idle keep-alive connection is closed.
        QTRY_COMPARE_WITH_TIMEOUT(keepAlive->state(), QAbstractSocket::UnconnectedState, 3000);

        QList<std::shared_ptr<QTcpSocket>> held;
        for (int i = 0; i < 3; ++i) {
            held.append(open());
            QTRY_COMPARE(held.last()->state(), QAbstractSocket::ConnectedState);
        }
        auto fourth = open();
        QVERIFY(answerOf(*fourth).startsWith("HTTP/1.1 503"));

        // One address may hold only its share, though the server has room.
        held.clear();
        m_server.reset();
        options.limits = {10, 5000, 5000, 1024, 2048, 2};
        m_server = SyncServer::create(options, &error);
        QVERIFY(m_server && m_server->listen(&error));
        for (int i = 0; i < 2; ++i) {
            held.append(open());
            QTRY_COMPARE(held.last()->state(), QAbstractSocket::ConnectedState);
        }
        auto third = open();
        QVERIFY(answerOf(*third).startsWith("HTTP/1.1 503"));
    }
};

QTEST_GUILESS_MAIN(TestServer)
#include "tst_server.moc"
