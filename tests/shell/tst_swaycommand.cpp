#include "SwayCommand.h"

#include <QLocalServer>
#include <QLocalSocket>
#include <QTemporaryDir>
#include <QTest>

// What a floating panel tells sway reaches sway's socket as one well-formed
// RUN_COMMAND message, and nothing is sent where no sway runs.
class TestSwayCommand final : public QObject
{
    Q_OBJECT

private slots:
    void reachesSwayAsOneCommand()
    {
        QTemporaryDir dir;
        QLocalServer sway;
        QVERIFY(sway.listen(dir.filePath(QStringLiteral("sway-ipc.sock"))));
        // Sway does not know the window yet the first time, and takes it then; the
        // command is sent once more to be sure.
        QByteArray received;
        int connections = 0;
        connect(&sway, &QLocalServer::newConnection, this, [&] {
            QLocalSocket* client = sway.nextPendingConnection();
            const bool known = ++connections > 1;
            connect(client, &QLocalSocket::readyRead, this, [&, client, known] {
                received = client->readAll();
                client->write(SwayCommand::encode(
                    known ? R"([{"success":true},{"success":true}])"
                          : R"([{"success":false,"error":"No matching node."}])"));
            });
        });

        const QByteArray command = SwayCommand::placeSticky(4194325, 40, -8);
        QCOMPARE(command, QByteArray("[id=4194325] sticky enable, move absolute position 40 -8"));
        QCOMPARE(SwayCommand::floatAt(7, QRect(10, 20, 440, 600)),
                 QByteArray("[id=7] floating enable, resize set 440 600, move absolute position "
                            "10 20"));
        QVERIFY(SwayCommand::send(command, sway.fullServerName()));
        QTRY_COMPARE(connections, 2);
        QTRY_COMPARE(received.size(), 14 + command.size());
        QCOMPARE(received.left(6), QByteArray("i3-ipc"));
        quint32 header[2];
        memcpy(header, received.constData() + 6, sizeof header);
        QCOMPARE(header[0], quint32(command.size()));
        QCOMPARE(header[1], 0u); // RUN_COMMAND
        QCOMPARE(received.mid(14), command);

        // Once more to confirm, then no more.
        QTRY_COMPARE(connections, 3);
        QTest::qWait(400); // time for a fourth that must not come
        QCOMPARE(connections, 3);
        QVERIFY(!SwayCommand::succeeded(R"([{"success":true},{"success":false}])"));
        QVERIFY(!SwayCommand::succeeded("not json"));

        const QByteArray workspaces =
            R"([{"name":"1","focused":false,"rect":{"x":0,"y":0,"width":9,"height":9}},
            {"name":"2","focused":true,"rect":{"x":0,"y":30,"width":1024,"height":738}}])";
        QCOMPARE(SwayCommand::focusedWorkspace(workspaces), QRect(0, 30, 1024, 738));
        QVERIFY(SwayCommand::focusedWorkspace("[]").isNull());

        QVERIFY(!SwayCommand::send(command, QString()));
        // A socket nobody listens on fails quietly.
        QVERIFY(SwayCommand::send(command, dir.filePath(QStringLiteral("gone.sock"))));
        QCoreApplication::processEvents();
        QCoreApplication::sendPostedEvents(nullptr, QEvent::DeferredDelete);
    }
};

QTEST_MAIN(TestSwayCommand)
#include "tst_swaycommand.moc"
