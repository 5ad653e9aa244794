#include "FakeKeychain.h"
#include "KeychainStore.h"
#include "SecretServiceKeychain.h"

#include <QDBusConnection>
#include <QDBusMessage>
#include <QDBusVirtualObject>
#include <QElapsedTimer>
#include <QSemaphore>
#include <QTest>

namespace {
// A secret store that takes every call and never answers.
class SilentSecretService final : public QDBusVirtualObject
{
public:
    QString introspect(const QString&) const override { return {}; }
    bool handleMessage(const QDBusMessage& message, const QDBusConnection&) override
    {
        message.setDelayedReply(true);
        return true;
    }
};
} // namespace

class TestKeychainStore final : public QObject
{
    Q_OBJECT

    std::shared_ptr<FakeKeychain> m_keychain;

    static std::optional<QString> token(const char* text) { return QString::fromUtf8(text); }

    // Forgets the cache, as a new process would, keeping what the keychain holds.
    void restart() { KeychainStore::setBackend(m_keychain); }

private slots:
    void init()
    {
        m_keychain = std::make_shared<FakeKeychain>();
        restart();
    }

    void readsTheKeychainOnce()
    {
        m_keychain->stored = QByteArray("tok-é");
        QCOMPARE(KeychainStore::loadToken(), token("tok-é"));
        QCOMPARE(KeychainStore::loadToken(), token("tok-é"));
        QCOMPARE(m_keychain->reads, 1);

        // Its own writes need no read: a cleared token is gone, a refused save serves this run.
        KeychainStore::clearToken();
        QCOMPARE(KeychainStore::loadToken(), std::nullopt);
        QVERIFY(!m_keychain->stored);
        m_keychain->refuseWrites = true;
        KeychainStore::saveToken(QStringLiteral("tok"));
        QCOMPARE(KeychainStore::loadToken(), token("tok"));
        QCOMPARE(m_keychain->reads, 1);

        // After a restart the refused token is gone, and a missing item is remembered as missing.
        restart();
        QCOMPARE(KeychainStore::loadToken(), std::nullopt);
        m_keychain->stored = QByteArrayLiteral("appeared later");
        QCOMPARE(KeychainStore::loadToken(), std::nullopt);
        QCOMPARE(m_keychain->reads, 2);
    }

    void preloadsInTheBackground()
    {
        m_keychain->stored = QByteArrayLiteral("old");
        QSemaphore entered, release;
        m_keychain->duringRead = [&] {
            entered.release();
            release.acquire();
        };
        QObject context;
        int calls = 0;
        KeychainStore::preload(&context, [&] { ++calls; });
        entered.acquire(); // the read is under way on another thread
        // A token saved meanwhile outlives what the read found.
        KeychainStore::saveToken(QStringLiteral("new"));
        release.release();
        QTRY_COMPARE(calls, 1);
        QCOMPARE(KeychainStore::loadToken(), token("new"));

        // Once cached, the answer comes at once and the keychain is not asked again.
        KeychainStore::preload(&context, [&] { ++calls; });
        QCOMPARE(calls, 2);
        QCOMPARE(m_keychain->reads, 1);
        m_keychain->duringRead = nullptr;
    }

    void hungSecretServiceCountsAsFailure()
    {
        QDBusConnection bus = QDBusConnection::sessionBus();
        if (!bus.isConnected())
            QSKIP("no session bus (run the tests under dbus-run-session)");
        SilentSecretService silent;
        QVERIFY(bus.registerVirtualObject(QStringLiteral("/"), &silent, QDBusConnection::SubPath));
        if (!bus.registerService(QStringLiteral("org.freedesktop.secrets")))
            QSKIP("a secret service already runs on this bus");

        KeychainStore::setBackend(
            std::make_shared<SecretServiceKeychain>(std::chrono::milliseconds(700)));
        QTest::ignoreMessage(QtWarningMsg, "KeychainStore request failed: no answer from the "
                                           "secret store within 700 ms");
        QElapsedTimer clock;
        clock.start();
        QCOMPARE(KeychainStore::loadToken(), std::nullopt);
        QVERIFY2(clock.elapsed() < 5000, qPrintable(QString::number(clock.elapsed())));
        // The failed read is cached as no token: later calls do not wait again.
        clock.restart();
        QCOMPARE(KeychainStore::loadToken(), std::nullopt);
        QVERIFY(clock.elapsed() < 100);
        KeychainStore::setBackend(nullptr);
        bus.unregisterService(QStringLiteral("org.freedesktop.secrets"));
        bus.unregisterObject(QStringLiteral("/"), QDBusConnection::UnregisterTree);
    }
};

QTEST_GUILESS_MAIN(TestKeychainStore)
#include "tst_keychainstore.moc"
