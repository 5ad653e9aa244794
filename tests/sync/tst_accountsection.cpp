#include "AccountSection.h"
#include "Clock.h"
#include "SignInSheet.h"
#include "SyncFixture.h"

#include <QAbstractButton>
#include <QLabel>
#include <QLineEdit>
#include <QLocale>
#include <QPushButton>

class TestAccountSection final : public QObject, private SyncFixture
{
    Q_OBJECT

    std::unique_ptr<QWidget> m_window;
    AccountSection* m_section = nullptr;
    QDateTime m_now;

    template <typename T> T* child(const char* name) const
    {
        return m_section->findChild<T*>(QString::fromLatin1(name));
    }

private slots:
    void initTestCase()
    {
        setUpOnce();
        Clock::setSource([this] { return m_now; });
    }

    void cleanupTestCase() { Clock::setSource({}); }

    void init()
    {
        m_now = QDateTime(QDate(2024, 5, 6), QTime(14, 5));
        setUp();
        m_window = std::make_unique<QWidget>();
        m_window->resize(420, 520);
        m_section = new AccountSection(m_window.get());
        m_window->show();
        QVERIFY(QTest::qWaitForWindowExposed(m_window.get()));
        // The account row appears once the section has been on screen.
        QTRY_VERIFY(child<QPushButton>("signInButton")->isVisible());
    }

    void cleanup()
    {
        QTRY_VERIFY(!engine().isSyncing());
        m_window.reset();
        m_server.reset();
    }

    void showsTheSignInStateAndSyncs()
    {
        QVERIFY(!m_section->showsSignedIn());
        QVERIFY(child<QPushButton>("signInButton")->isVisible());

        startWithToken();
        QVERIFY(m_section->showsSignedIn());
        auto* lastSync = child<QLabel>("lastSyncLabel");
        auto* error = child<QLabel>("syncError");
        QCOMPARE(lastSync->text(), QStringLiteral("Not synced yet"));
        QVERIFY(!error->isVisible());
        QPushButton* sync = m_section->syncButton();
        QCOMPARE(sync->text(), QStringLiteral("Sync"));

        // A failed pull is shown and keeps the account. (The last GET fails, so that
        // none of this pull's requests is still under way below.)
        m_server->on("GET", QStringLiteral("/api/v1/pomodoro"),
                     Response{500, "nope", {}, 0, false});
        QTest::mouseClick(sync, Qt::LeftButton);
        QTRY_VERIFY(error->isVisible());
        QCOMPARE(error->text(), QStringLiteral("HTTP 500: nope"));
        QVERIFY(m_section->showsSignedIn());

        // A slow answer keeps the pull running; a click meanwhile starts no second one.
        m_server->on("GET", QStringLiteral("/api/v1/pomodoro"),
                     Response{200, R"({"data":null})", {}, 300, false});
        m_server->clearRequests();
        QTest::mouseClick(sync, Qt::LeftButton);
        QVERIFY(!sync->isEnabled());
        QTRY_COMPARE(count(*m_server, "GET", "/api/v1/pomodoro"), 1);
        QVERIFY(!sync->isEnabled()); // still waiting for the delayed answer
        QTest::mouseClick(sync, Qt::LeftButton);
        QTRY_VERIFY(sync->isEnabled());
        QCOMPARE(sync->text(), QStringLiteral("Sync"));
        QCOMPARE(m_server->requests().size(), 3);
        QVERIFY(!error->isVisible());
        QCOMPARE(lastSync->text(), QStringLiteral("Last sync ") +
                                       QLocale().toString(QTime(14, 5), QLocale::ShortFormat));

        // A rejected token signs out.
        m_server->on("GET", QStringLiteral("/api/v1/habits"), Response{401, {}, {}, 0, false});
        QTest::mouseClick(sync, Qt::LeftButton);
        QTRY_VERIFY(!m_section->showsSignedIn());
        QVERIFY(child<QPushButton>("signInButton")->isVisible());
        QCOMPARE(m_keychain->stored, std::nullopt);

        // Sign out forgets the token at once, without asking.
        startWithToken();
        QVERIFY(m_section->showsSignedIn());
        QTest::mouseClick(child<QPushButton>("signOutButton"), Qt::LeftButton);
        QVERIFY(!m_section->showsSignedIn());
        QVERIFY(!auth().isSignedIn());
        QCOMPARE(m_keychain->stored, std::nullopt);
    }

    void signInOpensOneFreshSheet()
    {
        auto* signIn = child<QPushButton>("signInButton");
        QTest::mouseClick(signIn, Qt::LeftButton);
        SignInSheet* sheet = m_section->signInSheet();
        QVERIFY(sheet);
        QTRY_VERIFY(sheet->isVisible());
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
