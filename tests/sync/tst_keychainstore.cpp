#include "FakeKeychain.h"
#include "KeychainStore.h"

#include <QSemaphore>
#include <QTest>

using namespace Qt::StringLiterals;

class TestKeychainStore final : public QObject
{
    Q_OBJECT

    std::shared_ptr<FakeKeychain> m_keychain;
    std::unique_ptr<KeychainStore> m_store;

    static std::optional<QString> token(const char* text) { return QString::fromUtf8(text); }
    KeychainStore& store() { return *m_store; }
    KeychainStore::Lookup fetch() { return QCoro::waitFor(store().fetchToken()); }

    // A new store over the same keychain, as a new process would make.
    void restart() { m_store = std::make_unique<KeychainStore>(m_keychain); }

private slots:
    void init()
    {
        m_keychain = std::make_shared<FakeKeychain>();
        restart();
    }

    void readsTheKeychainOnce()
    {
        m_keychain->stored = QByteArray("tok-é");
        QCOMPARE(store().cachedToken(), std::nullopt); // nothing asked yet
        QCOMPARE(fetch().token, token("tok-é"));
        QCOMPARE(fetch().token, token("tok-é"));
        QCOMPARE(store().cachedToken(), token("tok-é"));
        QCOMPARE(m_keychain->reads, 1);

        // Its own writes need no read: a cleared token is gone, a refused save
        // serves this run (the sign-in service decides what to do about it).
        QCOMPARE(QCoro::waitFor(store().clearToken()).outcome, KeychainReply::Outcome::Done);
        QCOMPARE(fetch().token, std::nullopt);
        QVERIFY(!m_keychain->stored);
        m_keychain->refuseWrites = true;
        const KeychainReply refused = QCoro::waitFor(store().saveToken(u"tok"_s));
        QCOMPARE(refused.outcome, KeychainReply::Outcome::Failed);
        QCOMPARE(refused.why, u"no keyring is running"_s);
        QCOMPARE(fetch().token, token("tok"));
        QCOMPARE(m_keychain->reads, 1);

        // After a restart the refused token is gone, and a missing item is remembered as missing.
        restart();
        QCOMPARE(fetch().token, std::nullopt);
        m_keychain->stored = QByteArrayLiteral("appeared later");
        QCOMPARE(fetch().token, std::nullopt);
        QCOMPARE(m_keychain->reads, 2);

        // A read that got no answer is not an answer: the next fetch asks again.
        restart();
        m_keychain->silentReads = 2;
        QVERIFY(!fetch().answered);
        QVERIFY(!fetch().answered);
        QCOMPARE(store().cachedToken(), std::nullopt);
        const KeychainStore::Lookup found = fetch();
        QVERIFY(found.answered);
        QCOMPARE(found.token, token("appeared later"));
        QCOMPARE(m_keychain->reads, 5);
    }

    void aKeyringThatStartsLaterIsAskedAgain()
    {
        m_keychain->stored = QByteArrayLiteral("tok");
        m_keychain->notRunning = true;
        const KeychainStore::Lookup none = fetch();
        QVERIFY(none.answered && none.keyringMissing);
        QCOMPARE(none.token, std::nullopt);
        QCOMPARE(fetch().token, std::nullopt);
        QCOMPARE(m_keychain->reads, 2); // no keyring is not remembered as no token

        bool started = false;
        store().whenKeyringStarts(this, [&] { started = true; });
        QTRY_VERIFY(m_keychain->onStart);
        m_keychain->notRunning = false;
        m_keychain->onStart();
        QTRY_VERIFY(started);
        QCOMPARE(fetch().token, token("tok"));
    }

    void neverWaitsForTheKeychain()
    {
        m_keychain->stored = QByteArrayLiteral("old");
        QSemaphore entered, release;
        m_keychain->duringRead = [&] {
            entered.release();
            release.acquire();
        };
        auto reading = store().fetchToken();
        // The read is under way and holds the keychain thread: a call that waited
        // for the keychain would never come back from here.
        entered.acquire();
        // Saving and clearing change what requests see at once, before the keychain does.
        auto saving = store().saveToken(u"new"_s);
        QCOMPARE(store().cachedToken(), token("new"));
        QVERIFY(!saving.isReady());
        release.release();
        // A token saved meanwhile outlives what the read found.
        QCOMPARE(QCoro::waitFor(std::move(reading)).token, token("new"));
        QCOMPARE(QCoro::waitFor(std::move(saving)).outcome, KeychainReply::Outcome::Done);
        QCOMPARE(m_keychain->stored, QByteArray("new"));
        m_keychain->duringRead = nullptr;
    }
};

QTEST_GUILESS_MAIN(TestKeychainStore)
#include "tst_keychainstore.moc"
