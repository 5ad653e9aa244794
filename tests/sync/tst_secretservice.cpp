#include "KeychainStore.h"

#include <QDBusConnection>
#include <QDBusConnectionInterface>
#include <QFile>
#include <QProcess>
#include <QStandardPaths>
#include <QTemporaryDir>
#include <QTest>

#include <cstdio>

// The token through a real Secret Service (gnome-keyring on the test's private
// bus), read back by a second process.
class TestSecretService final : public QObject
{
    Q_OBJECT

    QTemporaryDir m_home;
    QProcess m_daemon;

    static QString probe(const QString& action)
    {
        QProcess child;
        child.start(QCoreApplication::applicationFilePath(), {QStringLiteral("--probe"), action});
        if (!child.waitForFinished(20000))
            return QStringLiteral("<probe hung>");
        return QString::fromUtf8(child.readAllStandardOutput()).trimmed();
    }

private slots:
    void initTestCase()
    {
        const QString daemon =
            QStandardPaths::findExecutable(QStringLiteral("gnome-keyring-daemon"));
        if (daemon.isEmpty())
            QSKIP("gnome-keyring-daemon is not installed (Debian package gnome-keyring)");
        QDBusConnection bus = QDBusConnection::sessionBus();
        if (!bus.isConnected())
            QSKIP("no session bus: run under dbus-run-session");
        if (bus.interface()->isServiceRegistered(QStringLiteral("org.freedesktop.secrets")))
            QSKIP("a secret service already runs on this bus; refusing to touch a real keyring");

        QProcessEnvironment env = QProcessEnvironment::systemEnvironment();
        env.insert(QStringLiteral("HOME"), m_home.path());
        env.insert(QStringLiteral("XDG_DATA_HOME"), m_home.filePath(QStringLiteral("data")));
        env.insert(QStringLiteral("XDG_RUNTIME_DIR"), m_home.path());
        m_daemon.setProcessEnvironment(env);
        m_daemon.start(daemon, {QStringLiteral("--foreground"), QStringLiteral("--unlock"),
                                QStringLiteral("--components=secrets")});
        if (!m_daemon.waitForStarted(5000))
            QSKIP("gnome-keyring-daemon did not start");
        m_daemon.write("throwaway-password");
        m_daemon.closeWriteChannel();
        QTRY_VERIFY_WITH_TIMEOUT(
            bus.interface()->isServiceRegistered(QStringLiteral("org.freedesktop.secrets")) ||
                m_daemon.state() == QProcess::NotRunning,
            10000);
        if (m_daemon.state() == QProcess::NotRunning)
            QSKIP(qPrintable(u"gnome-keyring-daemon exited: " +
                             QString::fromLocal8Bit(m_daemon.readAllStandardError())));
    }

    void cleanupTestCase()
    {
        if (m_daemon.state() != QProcess::NotRunning) {
            m_daemon.terminate();
            m_daemon.waitForFinished(5000);
        }
    }

    void savesReloadsAndClearsAcrossProcesses()
    {
        KeychainStore::saveToken(QStringLiteral("tok-é-123"));
        QCOMPARE(probe(QStringLiteral("load")), QStringLiteral("tok-é-123 +libsecret"));
        // Without an item the secret-store library is never loaded.
        KeychainStore::clearToken();
        QCOMPARE(probe(QStringLiteral("load")), QStringLiteral("<none>"));
        // Written by another process, read by this one after a "restart".
        QCOMPARE(probe(QStringLiteral("save")), QStringLiteral("saved"));
        KeychainStore::setBackend(nullptr);
        QCOMPARE(KeychainStore::loadToken(), std::optional<QString>(QStringLiteral("from-child")));
        KeychainStore::clearToken();
    }
};

int main(int argc, char** argv)
{
    if (argc == 3 && qstrcmp(argv[1], "--probe") == 0) {
        QCoreApplication app(argc, argv);
        if (qstrcmp(argv[2], "save") == 0) {
            KeychainStore::saveToken(QStringLiteral("from-child"));
            std::puts("saved");
        } else {
            const auto token = KeychainStore::loadToken();
            QFile maps(QStringLiteral("/proc/self/maps"));
            const bool loaded =
                maps.open(QIODevice::ReadOnly) && maps.readAll().contains("libsecret");
            std::printf("%s%s\n", token ? token->toUtf8().constData() : "<none>",
                        loaded ? " +libsecret" : "");
        }
        return 0;
    }
    QCoreApplication app(argc, argv);
    TestSecretService test;
    return QTest::qExec(&test, argc, argv);
}

#include "tst_secretservice.moc"
