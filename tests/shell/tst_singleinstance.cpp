#include "SingleInstance.h"

#include <QLocalServer>
#include <QLocalSocket>
#include <QSignalSpy>
#include <QTemporaryDir>
#include <QTest>

#include <future>

class TestSingleInstance final : public QObject
{
    Q_OBJECT

    QTemporaryDir m_dir;

    // Sends from another thread so this one can serve the request.
    static bool sendAsync(const QString& path, const QUrl& url)
    {
        auto future = std::async(std::launch::async, [path, url] {
            return SingleInstance::sendToRunning(path, url, 3000);
        });
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
        bool activate = false;
        QUrl url;
        QTEST(SingleInstance::parseMessage(message, &activate, &url), "valid");
        if (SingleInstance::parseMessage(message, &activate, &url))
            QTEST(activate, "activate");
    }

    void handsRequestsToTheRunningInstance()
    {
        const QString path = m_dir.filePath(QStringLiteral("a.socket"));
        QVERIFY(!SingleInstance::sendToRunning(path, {}, 200)); // nobody there yet

        SingleInstance server(path);
        QString error;
        QVERIFY2(server.listen(&error), qPrintable(error));
        QSignalSpy activated(&server, &SingleInstance::activateRequested);
        QSignalSpy urls(&server, &SingleInstance::urlReceived);

        QVERIFY(sendAsync(path, {}));
        QTRY_COMPARE(activated.count(), 1);
        const QUrl callback(QStringLiteral("tidewell://auth?token=abc&state=1f"));
        QVERIFY(sendAsync(path, callback));
        QTRY_COMPARE(urls.count(), 1);
        QCOMPARE(urls[0][0].toUrl(), callback);

        // A second server must not take over a live socket.
        SingleInstance rival(path);
        QVERIFY(!rival.listen(&error));
        QVERIFY(sendAsync(path, {}));
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
        QVERIFY(sendAsync(path, {}));
        QTRY_COMPARE(activated.count(), 1);
    }

    void dropsOversizedAndMalformedMessages()
    {
        const QString path = m_dir.filePath(QStringLiteral("b.socket"));
        SingleInstance server(path);
        QString error;
        QVERIFY(server.listen(&error));
        QSignalSpy activated(&server, &SingleInstance::activateRequested);

        QLocalSocket flood;
        flood.connectToServer(path);
        QVERIFY(flood.waitForConnected(1000));
        flood.write(QByteArray(SingleInstance::MaxMessageBytes + 10, 'x'));
        QTRY_VERIFY(flood.state() == QLocalSocket::UnconnectedState);

        QLocalSocket bad;
        bad.connectToServer(path);
        QVERIFY(bad.waitForConnected(1000));
        bad.write("{\"command\":\"activate\",\"x\":1}\n");
        QTRY_VERIFY(bad.state() == QLocalSocket::UnconnectedState);
        QCOMPARE(bad.readAll(), QByteArray());
        QCOMPARE(activated.count(), 0);
    }
};

QTEST_GUILESS_MAIN(TestSingleInstance)
#include "tst_singleinstance.moc"
