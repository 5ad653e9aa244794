#include "AccountSection.h"
#include "SignInSheet.h"
#include "SyncFixture.h"

#include <QAbstractButton>
#include <QCheckBox>
#include <QLabel>
#include <QLineEdit>
#include <QLocale>
#include <QPointer>
#include <QPushButton>
#include <QToolButton>

class TestAccountUi final : public QObject, private SyncFixture
{
    Q_OBJECT

    std::unique_ptr<FakeSyncServer> m_other; // a server typed into the sheet
    std::unique_ptr<QWidget> m_window;
    AccountSection* m_section = nullptr;
    QPointer<SignInSheet> m_sheet;

    template <typename T = QPushButton> static T* child(QWidget* root, const char* name)
    {
        return root->findChild<T*>(QLatin1String(name));
    }
    QLabel* sheetError() const { return child<QLabel>(m_sheet, "signInError"); }

    // The sheet as the section opens it, with the "Advanced" group open.
    void openSheet()
    {
        QTest::mouseClick(child(m_section, "signInButton"), Qt::LeftButton);
        m_sheet = m_section->signInSheet();
        QVERIFY(m_sheet && QTest::qWaitForWindowExposed(m_sheet));
        QTest::mouseClick(child<QToolButton>(m_sheet, "advancedToggle"), Qt::LeftButton);
        QVERIFY(m_sheet->tokenField()->isVisible());
    }

    // A new window with the section, over the services as they are now.
    void showSection()
    {
        m_window = std::make_unique<QWidget>();
        m_section = new AccountSection(m_services->auth(), m_services->sync(), m_services->client(),
                                       m_window.get());
        m_window->show();
        QVERIFY(QTest::qWaitForWindowExposed(m_window.get()));
    }

private slots:
    void initTestCase() { setUpOnce(); }

    void init()
    {
        setUp();
        m_other = std::make_unique<FakeSyncServer>();
        m_other->serveEmptyAccount();
        showSection();
        // The account row appears once the section has been on screen.
        QTRY_VERIFY(child(m_section, "signInButton")->isVisible());
        QVERIFY(!m_section->showsSignedIn());
    }

    void cleanup()
    {
        QTRY_VERIFY(!engine().isSyncing());
        m_window.reset(); // takes the sheet with it
        m_server.reset();
        m_other.reset();
    }

    void signIn_data()
    {
        QTest::addColumn<QString>("server"); // the field's text; "<other>": the second server
        QTest::addColumn<QString>("via");
        // "browser close": the sheet is closed before the callback.
        const std::pair<const char*, const char*> rows[] = {{"  \t", "token button"},
                                                            {" <other> ", "token Return"},
                                                            {"<other>/  ", "browser Return"},
                                                            {"<other>", "browser close"}};
        for (const auto& [server, via] : rows)
            QTest::newRow(via) << QString::fromLatin1(server) << QString::fromLatin1(via);
    }

    void signIn()
    {
        QFETCH(QString, server);
        QFETCH(QString, via);
        const bool toOther = server.contains(u"<other>");
        const QString stored = m_server->url().toString();
        openSheet();
        QCOMPARE(m_sheet->serverField()->text(), stored); // starts from the current server
        server.replace(u"<other>"_s, m_other->url().toString());
        m_sheet->serverField()->setText(server);
        auto* browser = m_sheet->browserButton();
        auto* submit = m_sheet->tokenButton();
        // The browser needs an address; the token alone does not.
        QCOMPARE(browser->isEnabled(), !server.trimmed().isEmpty());
        QVERIFY(!submit->isEnabled());
        QCOMPARE(m_sheet->tokenField()->echoMode(), QLineEdit::Password);
        if (via.startsWith(u"token")) {
            m_sheet->tokenField()->insert(u" \t tok-1  \n"_s);
            QVERIFY(submit->isEnabled());
            if (via.endsWith(u"Return"))
                QTest::keyClick(m_sheet->tokenField(), Qt::Key_Return);
            else
                QTest::mouseClick(submit, Qt::LeftButton);
            QVERIFY(m_opened.isEmpty()); // Return in the token field is not the browser button's
        } else {
            if (via.endsWith(u"Return"))
                QTest::keyClick(m_sheet, Qt::Key_Return);
            else
                QTest::mouseClick(browser, Qt::LeftButton);
            QCOMPARE(m_opened.size(), 1);
            QCOMPARE(browser->text(), u"Waiting for browser…"_s);
            // A stray callback is refused and shown; the right one is still awaited.
            callback(u"tidewell://auth?token=t&state=0"_s);
            QCOMPARE(sheetError()->text(), u"Rejected unexpected sign-in callback"_s);
            QVERIFY(sheetError()->isVisible());
            QCOMPARE(browser->text(), u"Connect via browser"_s);
            if (via.endsWith(u"close")) {
                QTest::mouseClick(child(m_sheet, "closeButton"), Qt::LeftButton);
                QTRY_VERIFY(!m_sheet || !m_sheet->isVisible());
            }
            callback(u"tidewell://auth?token=tok-1&state=" +
                     QUrlQuery(m_opened[0]).queryItemValue(u"state"_s));
        }
        QTRY_VERIFY(m_section->showsSignedIn());
        QTRY_VERIFY(!m_sheet || !m_sheet->isVisible());
        verifyOnePull(toOther ? *m_other : *m_server);
        QVERIFY((toOther ? *m_server : *m_other).requests().isEmpty());
        QCOMPARE(Preferences::serverURLOverride(), toOther ? server.trimmed() : stored);
    }

    // A failure that repeats the last one's text is still shown.
    void failuresAreShownEveryTime()
    {
        on("GET", "tasks", reply(401));
        openSheet();
        m_sheet->tokenField()->insert(u"bad"_s);
        for (int attempt = 0; attempt < 2; ++attempt) {
            QTest::mouseClick(m_sheet->tokenButton(), Qt::LeftButton);
            QVERIFY(!sheetError()->isVisible()); // cleared by the new attempt
            QTRY_COMPARE(sheetError()->text(), u"Token rejected by server"_s);
            QVERIFY(sheetError()->isVisible());
            QVERIFY(m_sheet->tokenButton()->isEnabled()); // ready for a corrected token
        }
        QVERIFY(m_sheet->isVisible());
        QCOMPARE(count(*m_server, "GET", "habits"), 0); // no pull

        // Return in a blank token field says so; it is not the browser button's Return.
        for (const QString& blank : {QString(), u" \t "_s}) {
            m_sheet->tokenField()->setText(blank);
            QTest::keyClick(m_sheet->tokenField(), Qt::Key_Return);
            QTRY_COMPARE(sheetError()->text(), u"Token is empty"_s);
            QVERIFY(m_opened.isEmpty());
            sheetError()->clear();
        }

        m_sheet->serverField()->setText(u"http://[bad"_s);
        for (int attempt = 0; attempt < 2; ++attempt) {
            QTest::mouseClick(m_sheet->browserButton(), Qt::LeftButton);
            QCOMPARE(sheetError()->text(), u"Invalid server URL"_s);
            QVERIFY(sheetError()->isVisible());
            QCOMPARE(m_sheet->browserButton()->text(), u"Connect via browser"_s);
        }
        QVERIFY(m_opened.isEmpty());
        m_sheet->serverField()->setText(m_other->url().toString());
        QTest::mouseClick(m_sheet->browserButton(), Qt::LeftButton);
        QCOMPARE(m_opened.size(), 1);
        QVERIFY(!sheetError()->isVisible());
    }

    void signInOpensOneFreshSheet()
    {
        openSheet();
        for (QWidget* root : {static_cast<QWidget*>(m_section), static_cast<QWidget*>(m_sheet)}) {
            for (const auto* control : root->findChildren<QAbstractButton*>())
                QVERIFY2(!control->accessibleName().isEmpty(), qPrintable(control->objectName()));
            for (const auto* control : root->findChildren<QLineEdit*>())
                QVERIFY2(!control->accessibleName().isEmpty(), qPrintable(control->objectName()));
        }
        m_sheet->tokenField()->setText(u"half-typed"_s);
        QTest::mouseClick(child(m_section, "signInButton"), Qt::LeftButton);
        QCOMPARE(m_window->findChildren<SignInSheet*>().size(), 1);
        m_sheet->reject();
        QTRY_VERIFY(!m_section->signInSheet());
        openSheet();
        QCOMPARE(m_sheet->tokenField()->text(), QString());
    }

    void sectionShowsTheAccountAndSyncs()
    {
        m_window.reset();
        startWithToken();
        showSection();
        QTRY_VERIFY(m_section->showsSignedIn());
        auto* lastSync = child<QLabel>(m_section, "lastSyncLabel");
        auto* error = child<QLabel>(m_section, "syncError");
        QPushButton* sync = m_section->syncButton();
        QCOMPARE(lastSync->text(), u"Not synced yet"_s);
        QVERIFY(!error->isVisible());
        QCOMPARE(sync->text(), u"Sync"_s);

        // A failed pull is shown and keeps the account; the last GET fails, so none lingers.
        on("GET", "pomodoro", reply(500, "nope"));
        QTest::mouseClick(sync, Qt::LeftButton);
        QTRY_VERIFY(error->isVisible());
        QCOMPARE(error->text(), u"HTTP 500: nope"_s);
        QVERIFY(m_section->showsSignedIn());

        // A slow answer keeps the pull running; a click meanwhile starts no second one.
        on("GET", "pomodoro", reply(200, "{\"data\":null}", 300));
        m_server->clearRequests();
        QTest::mouseClick(sync, Qt::LeftButton);
        QVERIFY(!sync->isEnabled());
        QTRY_COMPARE(count(*m_server, "GET", "pomodoro"), 1);
        QVERIFY(!sync->isEnabled()); // still waiting for the delayed answer
        QTest::mouseClick(sync, Qt::LeftButton);
        QTRY_VERIFY(sync->isEnabled());
        QCOMPARE(sync->text(), u"Sync"_s);
        QCOMPARE(m_server->requests().size(), 3);
        QVERIFY(!error->isVisible());
        QCOMPARE(lastSync->text(),
                 u"Last sync "_s + QLocale().toString(now().time(), QLocale::ShortFormat));
        // A server without versions cannot keep two computers in step: no such setting.
        auto* inStep = child<QCheckBox>(m_section, "keepInStepToggle");
        QVERIFY(!inStep->isVisible());
        QVERIFY(!engine().serverHasVersions());

        // Sign out forgets the token at once, without asking.
        QTest::mouseClick(child(m_section, "signOutButton"), Qt::LeftButton);
        QVERIFY(!m_section->showsSignedIn());
        QVERIFY(child(m_section, "signInButton")->isVisible());
        QTRY_COMPARE(m_keychain->stored, std::nullopt);
    }
};

QTEST_MAIN(TestAccountUi)
#include "tst_accountui.moc"
