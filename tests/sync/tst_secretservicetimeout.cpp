#include "KeychainStore.h"
#include "SecretServiceKeychain.h"

#include <QDBusConnection>
#include <QDBusMessage>
#include <QDBusVirtualObject>
#include <QScopeGuard>
#include <QTest>

using namespace Qt::StringLiterals;

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

// The Secret Service backend against a store that hangs: every call ends at its limit.
class TestSecretServiceTimeout final : public QObject
{
    Q_OBJECT

private slots:
    void hungSecretServiceIsNoAnswer()
    {
        // A connection of its own, so that the keychain's calls travel over the bus.
        QDBusConnection bus =
            QDBusConnection::connectToBus(QDBusConnection::SessionBus, u"silent"_s);
        const auto disconnect =
            qScopeGuard([] { QDBusConnection::disconnectFromBus(u"silent"_s); });
        if (!bus.isConnected())
            QSKIP("no session bus (run the tests under dbus-run-session)");
        SilentSecretService silent;
        QVERIFY(bus.registerVirtualObject(u"/"_s, &silent, QDBusConnection::SubPath));
        if (!bus.registerService(u"org.freedesktop.secrets"_s))
            QSKIP("a secret service already runs on this bus");

        KeychainStore store(
            std::make_shared<SecretServiceKeychain>(std::chrono::milliseconds(700)));
        // Each call gives up after the limit; no answer is not cached as no token.
        QVERIFY(!QCoro::waitFor(store.fetchToken()).answered);
        QVERIFY(!QCoro::waitFor(store.fetchToken()).answered);
        QCOMPARE(store.cachedToken(), std::nullopt);
        const KeychainReply removed = QCoro::waitFor(store.clearToken());
        QCOMPARE(removed.outcome, KeychainReply::Outcome::NoAnswer);
        QCOMPARE(removed.why, u"the keyring did not answer"_s);
        bus.unregisterService(u"org.freedesktop.secrets"_s);
        bus.unregisterObject(u"/"_s, QDBusConnection::UnregisterTree);
    }
};

QTEST_GUILESS_MAIN(TestSecretServiceTimeout)
#include "tst_secretservicetimeout.moc"
