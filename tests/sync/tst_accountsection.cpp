#include "AccountSection.h"
#include "AuthService.h"
#include "Clock.h"
#include "DataStore.h"
#include "FakeKeychain.h"
#include "FakeSyncServer.h"
#include "KeychainStore.h"
#include "Preferences.h"
#include "SignInSheet.h"
#include "SyncEngine.h"

#include <QAbstractButton>
#include <QLabel>
#include <QLineEdit>
#include <QLocale>
#include <QPushButton>
#include <QStandardPaths>
#include <QTest>

using Response = FakeSyncServer::Response;

class TestAccountSection final : public QObject
{
    Q_OBJECT

    std::unique_ptr<FakeSyncServer> m_server;
    std::shared_ptr<FakeKeychain> m_keychain;
    std::unique_ptr<QWidget> m_window;
    AccountSection* m_section = nullptr;
    QDateTime m_now;

    static AuthService& auth() { return AuthService::shared(); }
    static SyncEngine& engine() { return SyncEngine::shared(); }

    template <typename T> T* child(const char* name) const
    {
        return m_section->findChild<T*>(QString::fromLatin1(name));
    }

    int gets(const char* path) const
    {
        return int(m_server->requestsFor("GET", QString::fromLatin1(path)).size());
    }

    // As at start-up with a token already in the keychain.
    void startSignedIn()
    {
        m_keychain->stored = QByteArray("tok");
        KeychainStore::setBackend(m_keychain); // it caches what it read
        auth().reload();
        QVERIFY(auth().isSignedIn());
    }

private slots:
    void initTestCase()
    {
        QStandardPaths::setTestModeEnabled(true);
        QString error;
        DataStore::setShared(DataStore::open(QStringLiteral(":memory:"), &error));
        KeychainStore::setBackend(std::make_shared<FakeKeychain>());
        auth().setBrowserOpener([](const QUrl&) { return true; });
        Clock::setSource([this] { return m_now; });
    }

    void cleanupTestCase() { Clock::setSource({}); }

    void init()
    {
        m_now = QDateTime(QDate(2024, 5, 6), QTime(14, 5));
        m_server = std::make_unique<FakeSyncServer>();
        m_server->serveEmptyAccount();
        Preferences::setServerURLOverride(m_server->url().toString());
        m_keychain = std::make_shared<FakeKeychain>();
        KeychainStore::setBackend(m_keychain);
        auth().signOut();
        m_window = std::make_unique<QWidget>();
        m_window->resize(420, 520);
        m_section = new AccountSection(m_window.get());
        m_window->show();
        QVERIFY(QTest::qWaitForWindowExposed(m_window.get()));
    }

    void cleanup()
    {
        QTRY_VERIFY(!engine().isSyncing());
        m_window.reset();
        m_server.reset();
    }

    void showsTheSignInState()
    {
        QVERIFY(!m_section->showsSignedIn());
        QVERIFY(child<QPushButton>("signInButton")->isVisible());

        startSignedIn();
        QVERIFY(m_section->showsSignedIn());
        auto* lastSync = child<QLabel>("lastSyncLabel");
        QCOMPARE(lastSync->text(), QStringLiteral("Not synced yet"));
        QVERIFY(!child<QLabel>("syncError")->isVisible());

        QTest::mouseClick(m_section->syncButton(), Qt::LeftButton);
        QTRY_VERIFY(auth().lastSyncedAt().isValid());
        QCOMPARE(lastSync->text(), QStringLiteral("Last sync ") +
                                       QLocale().toString(QTime(14, 5), QLocale::ShortFormat));

        // Sign out forgets the token at once, without asking.
        QTest::mouseClick(child<QPushButton>("signOutButton"), Qt::LeftButton);
        QVERIFY(!m_section->showsSignedIn());
        QVERIFY(!auth().isSignedIn());
        QCOMPARE(m_keychain->stored, std::nullopt);
    }

    void syncErrors_data()
    {
        QTest::addColumn<int>("status");
        QTest::addColumn<bool>("staysSignedIn");
        QTest::addColumn<bool>("errorShown");
        QTest::newRow("401 signs out") << 401 << false << false;
        QTest::newRow("500 is reported") << 500 << true << true;
    }

    void syncErrors()
    {
        QFETCH(int, status);
        QFETCH(bool, staysSignedIn);
        QFETCH(bool, errorShown);
        startSignedIn();
        m_server->on("GET", QStringLiteral("/api/v1/habits"),
                     Response{status, "nope", {}, 0, false});
        QTest::mouseClick(m_section->syncButton(), Qt::LeftButton);
        QTRY_VERIFY(!engine().isSyncing());
        QCOMPARE(m_section->showsSignedIn(), staysSignedIn);
        QCOMPARE(child<QPushButton>("signInButton")->isVisible(), !staysSignedIn);
        auto* error = child<QLabel>("syncError");
        QCOMPARE(error->isVisible(), errorShown);
        if (errorShown)
            QCOMPARE(error->text(), engine().lastError());
        QVERIFY(!engine().lastError().isEmpty());
    }

    void syncButtonIsDisabledWhilePulling()
    {
        startSignedIn();
        m_server->on("GET", QStringLiteral("/api/v1/pomodoro"),
                     Response{200, R"({"data":null})", {}, 300, false});
        QPushButton* sync = m_section->syncButton();
        QCOMPARE(sync->text(), QStringLiteral("Sync"));
        QTest::mouseClick(sync, Qt::LeftButton);
        QVERIFY(engine().isSyncing());
        QVERIFY(!sync->isEnabled());
        QTRY_COMPARE(gets("/api/v1/pomodoro"), 1);
        QVERIFY(!sync->isEnabled()); // still waiting for the delayed answer
        QTest::mouseClick(sync, Qt::LeftButton);

        QTRY_VERIFY(sync->isEnabled());
        QCOMPARE(sync->text(), QStringLiteral("Sync"));
        QCOMPARE(gets("/api/v1/tasks"), 1);
        QCOMPARE(gets("/api/v1/habits"), 1);
        QCOMPARE(gets("/api/v1/pomodoro"), 1);
        QVERIFY(auth().lastSyncedAt().isValid());
    }

    void signInOpensOneFreshSheet()
    {
        auto* signIn = child<QPushButton>("signInButton");
        QTest::mouseClick(signIn, Qt::LeftButton);
        SignInSheet* sheet = m_section->signInSheet();
        QVERIFY(sheet);
        QTRY_VERIFY(sheet->isVisible());
        QCOMPARE(sheet->serverField()->text(), m_server->url().toString());
        QCOMPARE(sheet->tokenField()->text(), QString());
        for (const QWidget* root :
             {static_cast<QWidget*>(m_section), static_cast<QWidget*>(sheet)}) {
            for (const auto* control : root->findChildren<QAbstractButton*>())
                QVERIFY2(!control->accessibleName().isEmpty(), qPrintable(control->objectName()));
            for (const auto* control : root->findChildren<QLineEdit*>())
                QVERIFY2(!control->accessibleName().isEmpty(), qPrintable(control->objectName()));
        }
        sheet->tokenField()->setText(QStringLiteral("half-typed"));
        QTest::mouseClick(signIn, Qt::LeftButton);
        QCOMPARE(m_window->findChildren<SignInSheet*>().size(), 1);

        sheet->reject();
        QTRY_VERIFY(!m_section->signInSheet());
        QTest::mouseClick(signIn, Qt::LeftButton);
        QTRY_VERIFY(m_section->signInSheet());
        QCOMPARE(m_section->signInSheet()->tokenField()->text(), QString());
    }
};

QTEST_MAIN(TestAccountSection)
#include "tst_accountsection.moc"
