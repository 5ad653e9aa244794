#include "AuthService.h"
#include "DataStore.h"
#include "FakeKeychain.h"
#include "FakeSyncServer.h"
#include "KeychainStore.h"
#include "Preferences.h"
#include "SignInSheet.h"
#include "SyncEngine.h"

#include <QLabel>
#include <QLineEdit>
#include <QPointer>
#include <QPushButton>
#include <QRegularExpression>
#include <QStandardPaths>
#include <QTest>
#include <QToolButton>
#include <QUrlQuery>

using Response = FakeSyncServer::Response;

class TestSignInSheet final : public QObject
{
    Q_OBJECT

    std::unique_ptr<FakeSyncServer> m_server; // the stored override points here
    std::unique_ptr<FakeSyncServer> m_other;  // a server typed into the sheet
    std::shared_ptr<FakeKeychain> m_keychain;
    std::unique_ptr<QWidget> m_host;
    QPointer<SignInSheet> m_sheet;
    QList<QUrl> m_opened;

    static AuthService& auth() { return AuthService::shared(); }

    template <typename T> T* child(const char* name) const
    {
        return m_sheet ? m_sheet->findChild<T*>(QString::fromLatin1(name)) : nullptr;
    }

    // A fresh sheet over the host window, with the "Advanced" group open.
    void openSheet()
    {
        m_sheet = new SignInSheet(m_host.get());
        m_sheet->open();
        QVERIFY(QTest::qWaitForWindowExposed(m_sheet));
        QTest::mouseClick(child<QToolButton>("advancedToggle"), Qt::LeftButton);
        QVERIFY(child<QLineEdit>("tokenField")->isVisible());
    }

    static int count(const FakeSyncServer& server, const char* method, const char* path)
    {
        return int(server.requestsFor(method, QString::fromLatin1(path)).size());
    }

    // Waits for the pull to finish and checks it was exactly one (the token test,
    // when there was one, adds a GET of the tasks).
    static void verifyOnePull(const FakeSyncServer& server, int tokenTests)
    {
        QTRY_COMPARE(count(server, "GET", "/api/v1/pomodoro"), 1);
        QTRY_VERIFY(!SyncEngine::shared().isSyncing());
        QCOMPARE(count(server, "GET", "/api/v1/habits"), 1);
        QCOMPARE(count(server, "GET", "/api/v1/tasks"), 1 + tokenTests);
        QVERIFY(auth().lastSyncedAt().isValid());
    }

private slots:
    void initTestCase()
    {
        QStandardPaths::setTestModeEnabled(true);
        QString error;
        DataStore::setShared(DataStore::open(QStringLiteral(":memory:"), &error));
        KeychainStore::setBackend(std::make_shared<FakeKeychain>());
        auth().setBrowserOpener([this](const QUrl& url) {
            m_opened.append(url);
            return true;
        });
    }

    void init()
    {
        m_server = std::make_unique<FakeSyncServer>();
        m_server->serveEmptyAccount();
        m_other = std::make_unique<FakeSyncServer>();
        m_other->serveEmptyAccount();
        Preferences::setServerURLOverride(m_server->url().toString());
        m_keychain = std::make_shared<FakeKeychain>();
        KeychainStore::setBackend(m_keychain);
        auth().signOut();
        m_opened.clear();
        m_host = std::make_unique<QWidget>();
        m_host->resize(420, 520);
        m_host->show();
        QVERIFY(QTest::qWaitForWindowExposed(m_host.get()));
    }

    void cleanup()
    {
        QTRY_VERIFY(!SyncEngine::shared().isSyncing());
        m_host.reset(); // takes the sheet with it
        m_server.reset();
        m_other.reset();
    }

    void pastedToken_data()
    {
        QTest::addColumn<QString>("pasted");
        QTest::addColumn<bool>("pressReturn"); // else the "Sign in" button
        QTest::addColumn<int>("status");
        QTest::addColumn<QString>("error"); // empty: accepted
        QTest::newRow("blanks, button") << " \t tok-1  \n" << false << 200 << "";
        QTest::newRow("blanks, Return") << "  tok-1\t" << true << 200 << "";
        QTest::newRow("rejected") << "bad" << false << 401 << "Token rejected by server";
        QTest::newRow("rejected, Return") << "bad" << true << 401 << "Token rejected by server";
    }

    void pastedToken()
    {
        QFETCH(QString, pasted);
        QFETCH(bool, pressReturn);
        QFETCH(int, status);
        QFETCH(QString, error);
        if (status != 200)
            m_server->on("GET", QStringLiteral("/api/v1/tasks"),
                         Response{status, {}, {}, 0, false});
        openSheet();
        auto* token = child<QLineEdit>("tokenField");
        auto* submit = child<QPushButton>("tokenSignInButton");
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

        if (error.isEmpty()) {
            QTRY_VERIFY(auth().isSignedIn());
            QTRY_VERIFY(!m_sheet || !m_sheet->isVisible());
            QCOMPARE(m_keychain->stored, std::optional<QByteArray>("tok-1"));
            verifyOnePull(*m_server, 1);
            for (const auto& request : m_server->requests())
                QCOMPARE(request.header("Authorization"), QByteArray("Bearer tok-1"));
            return;
        }
        QTRY_COMPARE(m_sheet->error(), error);
        QVERIFY(!m_sheet->isSubmitting());
        QVERIFY(m_sheet->isVisible());
        auto* shown = child<QLabel>("signInError");
        QVERIFY(shown->isVisible());
        QCOMPARE(shown->text(), error);
        QVERIFY(submit->isEnabled()); // ready for a corrected token
        QVERIFY(!auth().isSignedIn());
        QCOMPARE(count(*m_server, "GET", "/api/v1/habits"), 0);

        // The same failure again is still reported, and a new attempt clears it first.
        QTest::mouseClick(submit, Qt::LeftButton);
        QCOMPARE(shown->isVisible(), false);
        QTRY_COMPARE(m_sheet->error(), error);
        QVERIFY(shown->isVisible());
    }

    void serverFieldChoosesTheServer_data()
    {
        QTest::addColumn<QString>("field"); // "<other>" stands for the second server
        QTest::addColumn<bool>("toOther");
        QTest::newRow("empty") << "" << false;
        QTest::newRow("only blanks") << "  \t" << false;
        QTest::newRow("another server") << " <other> " << true;
    }

    void serverFieldChoosesTheServer()
    {
        QFETCH(QString, field);
        QFETCH(bool, toOther);
        const QString stored = m_server->url().toString();
        const QString other = m_other->url().toString();
        openSheet();
        auto* server = child<QLineEdit>("serverField");
        QCOMPARE(server->text(), stored); // starts from the current server
        server->setText(QString(field).replace(QStringLiteral("<other>"), other));
        child<QLineEdit>("tokenField")->insert(QStringLiteral("tok"));
        QTest::mouseClick(child<QPushButton>("tokenSignInButton"), Qt::LeftButton);

        QTRY_VERIFY(auth().isSignedIn());
        verifyOnePull(toOther ? *m_other : *m_server, 1);
        QVERIFY((toOther ? *m_server : *m_other).requests().isEmpty());
        QCOMPARE(Preferences::serverURLOverride(), toOther ? other : stored);
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
        auto* button = child<QPushButton>("browserButton");
        QCOMPARE(button->text(), QStringLiteral("Connect via browser"));
        child<QLineEdit>("serverField")->setText(m_other->url().toString() + suffix);
        if (pressReturn)
            QTest::keyClick(m_sheet, Qt::Key_Return);
        else
            QTest::mouseClick(button, Qt::LeftButton);

        QCOMPARE(m_opened.size(), 1);
        const QUrl opened = m_opened.first();
        QCOMPARE(opened.scheme(), m_other->url().scheme());
        QCOMPARE(opened.host(), m_other->url().host());
        QCOMPARE(opened.port(), m_other->url().port());
        QCOMPARE(opened.path(), QStringLiteral("/en/app/connect"));
        static const QRegularExpression query(
            QStringLiteral("^state=([0-9a-f]{48})&scheme=tidewell$"));
        const auto match = query.match(opened.query());
        QVERIFY2(match.hasMatch(), qPrintable(opened.toString()));
        QCOMPARE(button->text(), QStringLiteral("Waiting for browser…"));
        QCOMPARE(m_sheet->error(), QString());
        QVERIFY(m_server->requests().isEmpty());

        if (closeFirst) {
            QTest::mouseClick(child<QPushButton>("closeButton"), Qt::LeftButton);
            QTRY_VERIFY(!m_sheet || !m_sheet->isVisible());
        }
        QCoro::waitFor(auth().consumeCallback(
            QUrl(QStringLiteral("tidewell://auth?token=tok-2&state=") + match.captured(1))));
        QVERIFY(auth().isSignedIn());
        QTRY_VERIFY(!m_sheet || !m_sheet->isVisible());
        verifyOnePull(*m_other, 1);
        QVERIFY(m_server->requests().isEmpty());
    }

    void browserSignInFailures_data()
    {
        QTest::addColumn<QString>("field");
        QTest::addColumn<QString>("callbackState"); // empty: no callback
        QTest::addColumn<QString>("error");
        QTest::newRow("bad address") << "http://[bad"
                                     << ""
                                     << "Invalid server URL";
        QTest::newRow("foreign state") << "<server>"
                                       << "0123"
                                       << "Rejected unexpected sign-in callback";
    }

    void browserSignInFailures()
    {
        QFETCH(QString, field);
        QFETCH(QString, callbackState);
        QFETCH(QString, error);
        openSheet();
        auto* button = child<QPushButton>("browserButton");
        child<QLineEdit>("serverField")
            ->setText(
                QString(field).replace(QStringLiteral("<server>"), m_server->url().toString()));
        // Twice: the second failure repeats the first text and must still be shown.
        for (int attempt = 0; attempt < 2; ++attempt) {
            QTest::mouseClick(button, Qt::LeftButton);
            if (!callbackState.isEmpty())
                QCoro::waitFor(auth().consumeCallback(
                    QUrl(QStringLiteral("tidewell://auth?token=t&state=") + callbackState)));
            QCOMPARE(m_sheet->error(), error);
            QVERIFY(!m_sheet->isWaitingForBrowser());
            QCOMPARE(button->text(), QStringLiteral("Connect via browser"));
            QVERIFY(child<QLabel>("signInError")->isVisible());
            QVERIFY(m_sheet->isVisible());
        }
        QVERIFY(!auth().isSignedIn());
        QVERIFY(m_server->requests().isEmpty());
    }

    void browserButtonNeedsAnAddress_data()
    {
        QTest::addColumn<QString>("field");
        QTest::addColumn<bool>("enabled");
        QTest::newRow("empty") << "" << false;
        QTest::newRow("spaces and tabs") << " \t " << false;
        QTest::newRow("address") << " http://a.example " << true;
    }

    void browserButtonNeedsAnAddress()
    {
        QFETCH(QString, field);
        QFETCH(bool, enabled);
        openSheet();
        child<QLineEdit>("serverField")->setText(field);
        auto* button = child<QPushButton>("browserButton");
        QCOMPARE(button->isEnabled(), enabled);
        QTest::keyClick(m_sheet, Qt::Key_Return);
        QCOMPARE(m_opened.size(), enabled ? 1 : 0);
    }
};

QTEST_MAIN(TestSignInSheet)
#include "tst_signinsheet.moc"
