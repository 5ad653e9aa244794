#include "SingleInstance.h"

#include <QLocalServer>
#include <QLocalSocket>
#include <QSignalSpy>
#include <QTemporaryDir>
#include <QTest>

#include <QElapsedTimer>

#include <algorithm>

#include <future>
#include <sys/resource.h>

using namespace Qt::StringLiterals;

class TestSingleInstance final : public QObject
{
    Q_OBJECT

    QTemporaryDir m_dir;

    using Outcome = SingleInstance::Outcome;

    // Sends from another thread so this one can serve the request.
    static Outcome sendAsync(const QString& path, const SingleInstance::Request& request,
                             QString* reason = nullptr)
    {
        auto future = std::async(std::launch::async, [path, request, reason] {
            return SingleInstance::sendToRunning(path, request, 3000, reason);
        });
        // Serves events until the sender is done (it gives up after 3 s by itself); a
        // poll, as QTRY cannot run in a function that returns a value.
        while (future.wait_for(std::chrono::milliseconds(0)) != std::future_status::ready)
            QTest::qWait(5);
        return future.get();
    }

private slots:
    void parsesOnlyTheTwoForms_data()
    {
        QTest::addColumn<QByteArray>("message");
        QTest::addColumn<bool>("valid");
        QTest::addColumn<bool>("activate");
        QTest::newRow("activate") << QByteArray("{\"command\":\"activate\"}") << true << true;
        QTest::newRow("open")
            << QByteArray("{\"command\":\"open\",\"url\":\"tidewell://auth?token=x&state=y\"}")
            << true << false;
        QTest::newRow("extra key")
            << QByteArray("{\"command\":\"activate\",\"x\":1}") << false << false;
        QTest::newRow("open without url") << QByteArray("{\"command\":\"open\"}") << false << false;
        QTest::newRow("url not text")
            << QByteArray("{\"command\":\"open\",\"url\":5}") << false << false;
        QTest::newRow("relative url")
            << QByteArray("{\"command\":\"open\",\"url\":\"auth?x\"}") << false << false;
        QTest::newRow("with activation token")
            << QByteArray("{\"command\":\"activate\",\"activation\":\"_TIME42\"}") << true << true;
        QTest::newRow("activation not text")
            << QByteArray("{\"command\":\"activate\",\"activation\":1}") << false << false;
        QTest::newRow("unknown command") << QByteArray("{\"command\":\"quit\"}") << false << false;
        QTest::newRow("array") << QByteArray("[\"activate\"]") << false << false;
        QTest::newRow("garbage") << QByteArray("\x01\x02 not json") << false << false;
        QTest::newRow("too large") << QByteArray("{\"command\":\"open\",\"url\":\"tidewell://a?") +
                                          QByteArray(70 * 1024, 'a') + QByteArray("\"}")
                                   << false << false;
    }

    void parsesOnlyTheTwoForms()
    {
        QFETCH(QByteArray, message);
        InstanceMessage request;
        QTEST(InstanceMessage::parse(message, &request), "valid");
        if (InstanceMessage::parse(message, &request))
            QTEST(request.url.isEmpty(), "activate");
    }

    void handsRequestsToTheRunningInstance()
    {
        const QString path = m_dir.filePath(QStringLiteral("a.socket"));
        QCOMPARE(SingleInstance::sendToRunning(path, {}, 200), Outcome::NoAnswer); // nobody yet

        SingleInstance server(path);
        QString error;
        QVERIFY2(server.listen(&error), qPrintable(error));
        QSignalSpy activated(&server, &SingleInstance::activateRequested);
        QSignalSpy urls(&server, &SingleInstance::urlReceived);

        QCOMPARE(sendAsync(path, {{}, QStringLiteral("_TIME42")}), Outcome::Delivered);
        QTRY_COMPARE(activated.count(), 1);
        QCOMPARE(activated[0][0].toString(), QStringLiteral("_TIME42"));
        const QString callback(QStringLiteral("tidewell://auth?token=abc&state=1f"));
        QCOMPARE(sendAsync(path, {callback, {}}), Outcome::Delivered);
        QTRY_COMPARE(urls.count(), 1);
        QCOMPARE(urls[0][0].toUrl(), QUrl(callback));
        // One that does not parse still arrives, for sign-in to call it malformed.
        QCOMPARE(sendAsync(path, {QStringLiteral("tidewell://auth?token=a b&state=1f"), {}}),
                 Outcome::Delivered);
        QTRY_COMPARE(urls.count(), 2);
        QVERIFY(!urls[1][0].toUrl().isValid());

        // Too large to take: refused at once, without a word to the instance.
        QString reason;
        QElapsedTimer clock;
        clock.start();
        QCOMPARE(
            SingleInstance::sendToRunning(
                path, {u"tidewell://auth?token="_s + QString(100'000, u'a'), {}}, 3000, &reason),
            Outcome::Refused);
        QVERIFY(clock.elapsed() < 500);
        QVERIFY2(reason.contains(u"too large"), qPrintable(reason));

        // A second server must not take over a live socket.
        SingleInstance rival(path);
        QVERIFY(!rival.listen(&error));
        QCOMPARE(sendAsync(path, {}), Outcome::Delivered);
        QTRY_COMPARE(activated.count(), 2);

        // A message may arrive in pieces.
        QLocalSocket slow;
        slow.connectToServer(path);
        QVERIFY(slow.waitForConnected(1000));
        slow.write(R"({"command":)");
        QVERIFY(slow.waitForBytesWritten(1000));
        QCoreApplication::processEvents();
        slow.write("\"activate\"}\n");
        QTRY_COMPARE(activated.count(), 3);
    }

    void replacesAStaleSocket()
    {
        const QString path = m_dir.filePath(QStringLiteral("stale.socket"));
        {
            // A socket file with nobody behind it, as a crash leaves it.
            QLocalServer crashed;
            crashed.setSocketOptions(QLocalServer::UserAccessOption);
            QVERIFY(crashed.listen(path));
            crashed.close();
        }
        QFile stale(path);
        if (!stale.exists()) {
            QVERIFY(stale.open(QIODevice::WriteOnly));
            stale.close();
        }
        SingleInstance server(path);
        QString error;
        QVERIFY2(server.listen(&error), qPrintable(error));
        QSignalSpy activated(&server, &SingleInstance::activateRequested);
        QCOMPARE(sendAsync(path, {}), Outcome::Delivered);
        QTRY_COMPARE(activated.count(), 1);
    }

    // No peer can hold the instance: what it will not take is refused with an
    // answer, idle peers are dropped, there are never more than a few at once, and
    // running out of descriptors neither spins nor stops later launches.
    void peersCannotHoldTheInstance()
    {
        const QString path = m_dir.filePath(QStringLiteral("b.socket"));
        SingleInstance server(path);
        QString error;
        QVERIFY(server.listen(&error));
        QSignalSpy activated(&server, &SingleInstance::activateRequested);
        const auto open = [&path] {
            auto socket = std::make_unique<QLocalSocket>();
            socket->connectToServer(path);
            return socket;
        };

        auto flood = open();
        QVERIFY(flood->waitForConnected(1000));
        flood->write(QByteArray(InstanceMessage::MaxBytes + 10, 'x'));
        QTRY_VERIFY(flood->state() == QLocalSocket::UnconnectedState);
        QVERIFY(flood->readAll().startsWith("refused "));
        auto bad = open();
        QVERIFY(bad->waitForConnected(1000));
        bad->write("{\"command\":\"activate\",\"x\":1}\n");
        QTRY_VERIFY(bad->state() == QLocalSocket::UnconnectedState);
        QVERIFY(bad->readAll().startsWith("refused "));
        QCOMPARE(activated.count(), 0);

        std::vector<std::unique_ptr<QLocalSocket>> idle;
        for (int i = 0; i < SingleInstance::MaxPeers + 3; ++i)
            idle.push_back(open());
        // Once the three over the cap have been turned away, the instance is full.
        const auto turnedAway = [&idle] {
            return std::count_if(idle.begin(), idle.end(), [](const auto& s) {
                return s->state() == QLocalSocket::UnconnectedState;
            });
        };
        QTRY_COMPARE(turnedAway(), 3);
        QCOMPARE(sendAsync(path, {}), Outcome::Refused); // busy
        QElapsedTimer clock;
        clock.start();
        QTRY_VERIFY_WITH_TIMEOUT(
            std::all_of(idle.begin(), idle.end(),
                        [](const auto& s) { return s->state() == QLocalSocket::UnconnectedState; }),
            SingleInstance::PeerTimeoutMs + 2000);
        QVERIFY(clock.elapsed() >= SingleInstance::PeerTimeoutMs - 500);
        QCOMPARE(sendAsync(path, {}), Outcome::Delivered);

        // Out of descriptors: peers are turned away and the loop stays idle.
        rlimit saved{};
        QCOMPARE(::getrlimit(RLIMIT_NOFILE, &saved), 0);
        rlimit tight = saved;
        tight.rlim_cur = 64;
        QCOMPARE(::setrlimit(RLIMIT_NOFILE, &tight), 0);
        std::vector<std::unique_ptr<QLocalSocket>> many;
        for (int i = 0; i < 80; ++i)
            many.push_back(open());
        rusage before{}, after{};
        ::getrusage(RUSAGE_SELF, &before);
        QTest::qWait(1000); // the CPU the server spends while they wait
        ::getrusage(RUSAGE_SELF, &after);
        const auto cpuMs = [](const rusage& u) {
            return (u.ru_utime.tv_sec + u.ru_stime.tv_sec) * 1000 +
                   (u.ru_utime.tv_usec + u.ru_stime.tv_usec) / 1000;
        };
        QVERIFY2(cpuMs(after) - cpuMs(before) < 300,
                 qPrintable(QString::number(cpuMs(after) - cpuMs(before))));
        many.clear();
        QCOMPARE(::setrlimit(RLIMIT_NOFILE, &saved), 0);
        QTRY_COMPARE_WITH_TIMEOUT(sendAsync(path, {}), Outcome::Delivered,
                                  SingleInstance::PeerTimeoutMs + 2000);
    }
};

QTEST_GUILESS_MAIN(TestSingleInstance)
#include "tst_singleinstance.moc"
