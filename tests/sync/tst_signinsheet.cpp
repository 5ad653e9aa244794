#include "SignInSheet.h"
#include "SyncFixture.h"

#include <QLabel>
#include <QLineEdit>
#include <QPointer>
#include <QPushButton>
#include <QToolButton>
#include <QUrlQuery>

class TestSignInSheet final : public QObject, private SyncFixture
{
    Q_OBJECT

    std::unique_ptr<FakeSyncServer> m_other; // a server typed into the sheet
    std::unique_ptr<QWidget> m_host;
    QPointer<SignInSheet> m_sheet;

    QLabel* errorLabel() const
    {
        return m_sheet->findChild<QLabel*>(QStringLiteral("signInError"));
    }

    // A fresh sheet over the host window, with the "Advanced" group open.
    void openSheet()
    {
        m_sheet = new SignInSheet(m_host.get());
        m_sheet->open();
        QVERIFY(QTest::qWaitForWindowExposed(m_sheet));
        QTest::mouseClick(m_sheet->findChild<QToolButton*>(QStringLiteral("advancedToggle")),
                          Qt::LeftButton);
        QVERIFY(m_sheet->tokenField()->isVisible());
    }

private slots:
    void initTestCase() { setUpOnce(); }

    void init()
    {
        setUp();
        m_other = std::make_unique<FakeSyncServer>();
        m_other->serveEmptyAccount();
        m_host = std::make_unique<QWidget>();
        m_host->resize(420, 520);
        m_host->show();
        QVERIFY(QTest::qWaitForWindowExposed(m_host.get()));
    }

    void cleanup()
    {
        QTRY_VERIFY(!engine().isSyncing());
        m_host.reset(); // takes the sheet with it
        m_server.reset();
        m_other.reset();
    }

    void pastedToken_data()
    {
        QTest::addColumn<QString>("server");   // the field's text; "<other>": the second server
        QTest::addColumn<bool>("pressReturn"); // else the "Sign in" button
        QTest::addColumn<QString>("pasted");
        QTest::addColumn<bool>("accepted");
        QTest::newRow("as opened, Return") << "<stored>" << true << " \t tok-1  \n" << true;
        QTest::newRow("blank server field") << "  \t" << false << "  tok-1\t" << true;
        QTest::newRow("another server") << " <other> " << false << "tok-1" << true;
        QTest::newRow("rejected") << "<stored>" << false << "bad" << false;
    }

    void pastedToken()
    {
        QFETCH(QString, server);
        QFETCH(bool, pressReturn);
        QFETCH(QString, pasted);
        QFETCH(bool, accepted);
        const bool toOther = server.contains(u"<other>");
        FakeSyncServer& target = toOther ? *m_other : *m_server;
        if (!accepted)
            target.on("GET", QStringLiteral("/api/v1/tasks"), Response{401, {}, {}, 0, false});
        const QString stored = m_server->url().toString();
        openSheet();
        QCOMPARE(m_sheet->serverField()->text(), stored); // starts from the current server
        m_sheet->serverField()->setText(
            server.replace(QStringLiteral("<stored>"), stored)
                .replace(QStringLiteral("<other>"), m_other->url().toString()));
        // The browser needs an address; the token alone does not.
        QCOMPARE(m_sheet->browserButton()->isEnabled(), !server.trimmed().isEmpty());
        auto* token = m_sheet->tokenField();
        auto* submit = m_sheet->tokenButton();
        QCOMPARE(token->echoMode(), QLineEdit::Password);
        QVERIFY(!submit->isEnabled());
        token->insert(pasted);
        QVERIFY(submit->isEnabled());
        if (pressReturn)
            QTest::keyClick(token, Qt::Key_Return);
        else
            QTest::mouseClick(submit, Qt::LeftButton);
        // Return in the token field is not the browser button's Return.
        QVERIFY(m_opened.isEmpty());

        if (accepted) {
            QTRY_VERIFY(auth().isSignedIn());
            QTRY_VERIFY(!m_sheet || !m_sheet->isVisible());
            QCOMPARE(m_keychain->stored, std::optional<QByteArray>("tok-1"));
            verifyOnePull(target);
            for (const auto& request : target.requests())
                QCOMPARE(request.header("Authorization"), QByteArray("Bearer tok-1"));
            QVERIFY((toOther ? *m_server : *m_other).requests().isEmpty());
            QCOMPARE(Preferences::serverURLOverride(),
                     toOther ? m_other->url().toString() : stored);
            return;
        }
        const QString error = QStringLiteral("Token rejected by server");
        QTRY_COMPARE(m_sheet->error(), error);
        QVERIFY(m_sheet->isVisible());
        QVERIFY(errorLabel()->isVisible());
        QCOMPARE(errorLabel()->text(), error);
        QVERIFY(submit->isEnabled());                           // ready for a corrected token
        QCOMPARE(count(*m_server, "GET", "/api/v1/habits"), 0); // no pull

        // The same failure again is still reported, and a new attempt clears it first.
        QTest::mouseClick(submit, Qt::LeftButton);
        QVERIFY(!errorLabel()->isVisible());
        QTRY_COMPARE(m_sheet->error(), error);
        QVERIFY(errorLabel()->isVisible());
    }

    void browserSignIn_data()
    {
        QTest::addColumn<QString>("suffix"); // typed after the second server's address
        QTest::addColumn<bool>("pressReturn");
        QTest::addColumn<bool>("closeFirst"); // close the sheet before the callback
        QTest::newRow("button") << "" << false << false;
        QTest::newRow("Return, slash and blanks") << "/  " << true << false;
        QTest::newRow("closed before callback") << "" << false << true;
    }

    void browserSignIn()
    {
        QFETCH(QString, suffix);
        QFETCH(bool, pressReturn);
        QFETCH(bool, closeFirst);
        openSheet();
        auto* button = m_sheet->browserButton();
        QCOMPARE(button->text(), QStringLiteral("Connect via browser"));
        m_sheet->serverField()->setText(m_other->url().toString() + suffix);
        if (pressReturn)
            QTest::keyClick(m_sheet, Qt::Key_Return);
        else
            QTest::mouseClick(button, Qt::LeftButton);

        QCOMPARE(m_opened.size(), 1);
        QCOMPARE(m_opened.first().toString(QUrl::RemoveQuery),
                 m_other->url().toString() + u"/en/app/connect");
        const QString state = QUrlQuery(m_opened.first()).queryItemValue(QStringLiteral("state"));
        QCOMPARE(button->text(), QStringLiteral("Waiting for browser…"));
        QCOMPARE(m_sheet->error(), QString());

        // A stray callback is refused and shown; the right one is still awaited.
        QCoro::waitFor(
            auth().consumeCallback(QUrl(QStringLiteral("tidewell://auth?token=t&state=0"))));
        QCOMPARE(m_sheet->error(), QStringLiteral("Rejected unexpected sign-in callback"));
        QVERIFY(errorLabel()->isVisible());
        QCOMPARE(button->text(), QStringLiteral("Connect via browser"));
        QVERIFY(!auth().isSignedIn());

        if (closeFirst) {
            QTest::mouseClick(m_sheet->findChild<QPushButton*>(QStringLiteral("closeButton")),
                              Qt::LeftButton);
            QTRY_VERIFY(!m_sheet || !m_sheet->isVisible());
        }
        QCoro::waitFor(auth().consumeCallback(
            QUrl(QStringLiteral("tidewell://auth?token=tok-2&state=") + state)));
        QVERIFY(auth().isSignedIn());
        QTRY_VERIFY(!m_sheet || !m_sheet->isVisible());
        verifyOnePull(*m_other);
        QVERIFY(m_server->requests().isEmpty());
    }

    void badAddressIsShownEveryTime()
    {
        openSheet();
        auto* button = m_sheet->browserButton();
        m_sheet->serverField()->setText(QStringLiteral("http://[bad"));
        // The second failure repeats the first text and must still be shown.
        for (int attempt = 0; attempt < 2; ++attempt) {
            QTest::mouseClick(button, Qt::LeftButton);
            QCOMPARE(m_sheet->error(), QStringLiteral("Invalid server URL"));
            QVERIFY(errorLabel()->isVisible());
            QVERIFY(!m_sheet->isWaitingForBrowser());
            QCOMPARE(button->text(), QStringLiteral("Connect via browser"));
        }
        QVERIFY(m_opened.isEmpty());
        QVERIFY(m_server->requests().isEmpty());
    }
};

QTEST_MAIN(TestSignInSheet)
#include "tst_signinsheet.moc"
