#include "AudioService.h"
#include "Clock.h"
#include "ClockJumps.h"
#include "KeychainStore.h"
#include "LaunchAtLogin.h"
#include "ModuleLoader.h"
#include "NotificationBackend.h"
#include "NotificationService.h"
#include "SettingsView.h"
#include "SingleInstance.h"
#include "SleepInhibitor.h"
#include "StoreLock.h"
#include "Switch.h"
#include "WindowStickiness.h"

#include <QApplication>
#include <QCoro/QCoroTask>
#include <QDateTime>
#include <QFile>
#include <QProcess>
#include <QSignalSpy>
#include <QTemporaryDir>
#include <QTest>

#include <cstdio>
#include <future>

using namespace Qt::StringLiterals;

// The fallbacks a build without platform facilities runs on: each keeps its
// interface's promises and says that it cannot, rather than pretending.
class TestPlatformNone final : public QObject
{
    Q_OBJECT

    QTemporaryDir m_dir;

private slots:
    void servicesSayTheyCannot()
    {
        const std::unique_ptr<NotificationBackend> notices = NotificationBackend::create();
        QVERIFY(!QCoro::waitFor(notices->notify(u"Title"_s, u"Body"_s)).isEmpty());
        QVERIFY(!QCoro::waitFor(notices->checkServer()).isEmpty());

        // The answer comes from the event loop, never from within the call.
        const std::unique_ptr<SleepInhibitor> inhibitor = SleepInhibitor::create();
        int answers = 0;
        std::optional<quint32> cookie = 1;
        inhibitor->inhibit(u"Focus"_s, [&](std::optional<quint32> c) {
            ++answers;
            cookie = c;
        });
        QCOMPARE(answers, 0);
        QTRY_COMPARE(answers, 1);
        QCOMPARE(cookie, std::nullopt);

        // The app parents and connects what create() gives.
        QVERIFY(ClockJumps::create());

        // No keyring: nothing is there, nothing is kept, and the sign-in hears why.
        KeychainStore keychain(KeychainBackend::system(ModuleLoader()));
        const KeychainStore::Lookup found = QCoro::waitFor(keychain.fetchToken());
        QVERIFY(found.answered);
        QVERIFY(found.keyringMissing);
        QCOMPARE(found.token, std::nullopt);
        const KeychainReply saved = QCoro::waitFor(keychain.saveToken(u"token"_s));
        QCOMPARE(saved.outcome, KeychainReply::Outcome::Failed);
        QVERIFY(!saved.why.isEmpty());
        QVERIFY(QCoro::waitFor(keychain.clearToken()).outcome != KeychainReply::Outcome::Failed);

        QVERIFY(!LaunchAtLogin::isSupported());
        QString error;
        QVERIFY(!LaunchAtLogin::setEnabled(true, &error));
        QVERIFY(!error.isEmpty());
        QVERIFY(!LaunchAtLogin::isEnabled());
        QVERIFY(LaunchAtLogin::setEnabled(false, &error));
        const Clock clock;
        const ModuleLoader modules;
        AudioService audio(modules);
        NotificationService notifications(clock, NotificationBackend::create());
        QVERIFY(!SettingsView(audio, notifications).launchAtLoginSwitch()->isEnabled());

        QVERIFY(!WindowStickiness::canBlend());
    }

    // Nothing vouches for a peer, so a later launch is turned away unheard.
    void laterLaunchesAreNotServed()
    {
        const QString path = m_dir.filePath(u"instance.socket"_s);
        SingleInstance server(path);
        QString error;
        QVERIFY2(server.listen(&error), qPrintable(error));
        QSignalSpy activated(&server, &SingleInstance::activateRequested);
        auto sent = std::async(std::launch::async,
                               [path] { return SingleInstance::sendToRunning(path, {}, 3000); });
        QTRY_VERIFY_WITH_TIMEOUT(
            sent.wait_for(std::chrono::milliseconds(0)) == std::future_status::ready, 5000);
        QCOMPARE(sent.get(), SingleInstance::Outcome::NoAnswer);
        QCOMPARE(activated.count(), 0);
    }

    void storeLockIsExclusiveUntilItsProcessEnds()
    {
        const QString store = m_dir.filePath(u"lock.store"_s);
        bool held = false;
        QString error;
        std::unique_ptr<StoreLock> lock = StoreLock::acquire(store, &held, &error);
        QVERIFY2(lock, qPrintable(error));
        QVERIFY(!held);

        // However long it has been held.
        const QDateTime hourAgo = QDateTime::currentDateTime().addSecs(-3600);
        QFile file(store + u".lock"_s);
        QVERIFY(file.open(QIODevice::ReadWrite));
        QVERIFY(file.setFileTime(hourAgo, QFileDevice::FileModificationTime));
        file.close();
        QVERIFY(!StoreLock::acquire(store, &held, &error));
        QVERIFY(held);
        QVERIFY(!error.isEmpty());

        lock.reset();
        lock = StoreLock::acquire(store, &held, &error);
        QVERIFY2(lock, qPrintable(error));
        lock.reset();

        // A process that dies holding it leaves nothing in the way.
        QProcess holder;
        holder.start(QCoreApplication::applicationFilePath(), {u"--hold"_s, store});
        QVERIFY(holder.waitForReadyRead(10000));
        QCOMPARE(holder.readAll().trimmed(), "held");
        QVERIFY(!StoreLock::acquire(store, &held, &error));
        QVERIFY(held);
        holder.kill();
        QVERIFY(holder.waitForFinished(5000));
        lock = StoreLock::acquire(store, &held, &error);
        QVERIFY2(lock, qPrintable(error));

        // A folder that cannot take the lock file is no other process.
        lock = StoreLock::acquire(m_dir.filePath(u"missing/lock.store"_s), &held, &error);
        QVERIFY(!lock);
        QVERIFY(!held);
        QVERIFY(!error.isEmpty());
    }
};

int main(int argc, char** argv)
{
    QApplication app(argc, argv);
    if (argc == 3 && qstrcmp(argv[1], "--hold") == 0) {
        bool held = false;
        QString error;
        const std::unique_ptr<StoreLock> lock =
            StoreLock::acquire(QString::fromLocal8Bit(argv[2]), &held, &error);
        std::puts(lock ? "held" : "refused");
        std::fflush(stdout);
        return lock ? app.exec() : 1;
    }
    TestPlatformNone test;
    return QTest::qExec(&test, argc, argv);
}

#include "tst_platformnone.moc"
