#include "KeychainStore.h"
#include "ModuleLoader.h"

#include <QDBusConnection>
#include <QDBusConnectionInterface>
#include <QFile>
#include <QProcess>
#include <QStandardPaths>
#include <QTemporaryDir>
#include <QTest>

#include <cstdio>

using namespace Qt::StringLiterals;

// The token through a real Secret Service (gnome-keyring on the test's private
// bus), read back by a second process.
class TestSecretService final : public QObject
{
    Q_OBJECT

    QTemporaryDir m_home;
    QProcess m_daemon;

    static QString probe(const char* action, const QProcessEnvironment& env = {})
    {
        QProcess child;
        if (!env.isEmpty())
            child.setProcessEnvironment(env);
        child.start(QCoreApplication::applicationFilePath(), {u"--probe"_s, QLatin1String(action)});
        if (!child.waitForFinished(20000))
            return u"<probe hung>"_s;
        return QString::fromUtf8(child.readAllStandardOutput()).trimmed();
    }

private slots:
    void initTestCase()
    {
        const QString daemon = QStandardPaths::findExecutable(u"gnome-keyring-daemon"_s);
        const QDBusConnectionInterface* bus = QDBusConnection::sessionBus().interface();
        // Never a real keyring: only a private bus (dbus-run-session) without a secret service.
        if (daemon.isEmpty() || !bus || bus->isServiceRegistered(u"org.freedesktop.secrets"_s))
            QSKIP("needs gnome-keyring-daemon and a session bus without a secret service");

        QProcessEnvironment env = QProcessEnvironment::systemEnvironment();
        env.insert(u"HOME"_s, m_home.path());
        env.insert(u"XDG_DATA_HOME"_s, m_home.filePath(u"data"_s));
        env.insert(u"XDG_RUNTIME_DIR"_s, m_home.path());
        m_daemon.setProcessEnvironment(env);
        m_daemon.start(daemon, {u"--foreground"_s, u"--unlock"_s, u"--components=secrets"_s});
        m_daemon.write("throwaway-password");
        m_daemon.closeWriteChannel();
        QTRY_VERIFY_WITH_TIMEOUT(bus->isServiceRegistered(u"org.freedesktop.secrets"_s) ||
                                     m_daemon.state() == QProcess::NotRunning,
                                 10000);
        if (m_daemon.state() == QProcess::NotRunning)
            QSKIP(qPrintable(u"gnome-keyring-daemon did not start: "_s + m_daemon.errorString() +
                             QString::fromLocal8Bit(m_daemon.readAllStandardError())));
    }

    void cleanupTestCase()
    {
        m_daemon.terminate();
        m_daemon.waitForFinished(5000);
    }

    void savesReloadsAndClearsAcrossProcesses()
    {
        auto store = std::make_unique<KeychainStore>(
            KeychainBackend::system(ModuleLoader(QStringLiteral(TIDEWELL_TEST_MODULE_DIR))));
        QCOMPARE(QCoro::waitFor(store->saveToken(u"tok-é-123"_s)).outcome,
                 KeychainReply::Outcome::Done);
        QCOMPARE(probe("load"), u"tok-é-123 +libsecret"_s);
        // Without an item the secret-store library is never loaded.
        QCOMPARE(QCoro::waitFor(store->clearToken()).outcome, KeychainReply::Outcome::Done);
        QCOMPARE(probe("load"), u"<none>"_s);
        // Written by another process, read by this one after a "restart".
        QCOMPARE(probe("save"), u"saved"_s);
        store = std::make_unique<KeychainStore>(
            KeychainBackend::system(ModuleLoader(QStringLiteral(TIDEWELL_TEST_MODULE_DIR))));
        QCOMPARE(QCoro::waitFor(store->fetchToken()).token,
                 std::optional<QString>(u"from-child"_s));
        QCOMPARE(QCoro::waitFor(store->clearToken()).outcome, KeychainReply::Outcome::Done);
    }

    // A bus with no secret service and nothing that could start one: a save says
    // so instead of pretending, and a read finds no token without waiting.
    void noKeyringAtAll()
    {
        QTemporaryDir dir;
        QFile config(dir.filePath(u"bare.conf"_s));
        QVERIFY(config.open(QIODevice::WriteOnly));
        config.write("<busconfig><type>session</type><listen>unix:tmpdir=/tmp</listen>"
                     "<auth>EXTERNAL</auth><policy context=\"default\">"
                     "<allow send_destination=\"*\" eavesdrop=\"true\"/><allow eavesdrop=\"true\"/>"
                     "<allow own=\"*\"/>"
                     "</policy></busconfig>");
        config.close();
        QProcess bus;
        bus.start(u"dbus-daemon"_s,
                  {u"--config-file="_s + config.fileName(), u"--print-address"_s, u"--nofork"_s});
        QVERIFY(bus.waitForReadyRead(10000));
        const QString address = QString::fromUtf8(bus.readLine()).trimmed();
        QProcessEnvironment env = QProcessEnvironment::systemEnvironment();
        env.insert(u"DBUS_SESSION_BUS_ADDRESS"_s, address);
        QCOMPARE(probe("save", env), u"failed: no keyring is running"_s);
        QCOMPARE(probe("load", env), u"<none>"_s);
        bus.terminate();
        bus.waitForFinished(5000);
    }
};

int main(int argc, char** argv)
{
    QCoreApplication app(argc, argv);
    if (argc != 3 || qstrcmp(argv[1], "--probe") != 0) {
        TestSecretService test;
        return QTest::qExec(&test, argc, argv);
    }
    KeychainStore store(
        KeychainBackend::system(ModuleLoader(QStringLiteral(TIDEWELL_TEST_MODULE_DIR))));
    if (qstrcmp(argv[2], "save") == 0) {
        const KeychainReply saved = QCoro::waitFor(store.saveToken(u"from-child"_s));
        if (saved.outcome == KeychainReply::Outcome::Done)
            std::puts("saved");
        else
            std::printf("failed: %s\n", saved.why.toUtf8().constData());
        return 0;
    }
    const auto token = QCoro::waitFor(store.fetchToken()).token;
    QFile maps(u"/proc/self/maps"_s);
    const bool loaded = maps.open(QIODevice::ReadOnly) && maps.readAll().contains("libsecret");
    std::printf("%s%s\n", token ? token->toUtf8().constData() : "<none>",
                loaded ? " +libsecret" : "");
    return 0;
}

#include "tst_secretservice.moc"
