#include "ServerFixture.h"
#include "WireEnvelope.h"

#include <QJsonDocument>
#include <QJsonObject>

using namespace Qt::StringLiterals;

// What the server promises a hostile client and an outage, on the engine this run
// names: no header can be injected through the sign-in form, a failing database
// is never taken for an unknown token or a wrong password, sessions end when they
// should, a token form makes one token, nobody can lock someone else out, an https
// public URL secures the cookies, and slow requests hold up nobody else.
class TestServerSecurity final : public QObject
{
    Q_OBJECT

    static const QHostAddress& home()
    {
        static const QHostAddress a(u"192.0.2.1"_s);
        return a;
    }

private slots:
    void signInNextCannotInjectHeaders()
    {
        ServerFixture f;
        QVERIFY2(f.server(), qPrintable(f.problem()));
        for (const QString& next :
             {u"/en/app/tokens\r\nSet-Cookie: evil=1"_s, u"/en/app/tokens\nSet-Cookie: evil=1"_s,
              u"/en/app/tokens\u2028x"_s, u"//evil.example/en/app/"_s,
              u"https://evil.example/en/app/tokens"_s, u"/en/app/\\evil"_s}) {
            const HttpAnswer answer = f.signIn(u"correct horse"_s, home(), {}, next);
            QCOMPARE(answer.status, 303);
            QCOMPARE(ServerFixture::header(answer, "Location"), "/en/app/tokens"_ba);
            for (const auto& [name, value] : answer.headers)
                QVERIFY2(!value.contains("evil"), value.constData());
        }
        // A link that plants a bad `next` in the form gets the safe one in it.
        const HttpAnswer page =
            f.call("GET", u"/en/app/signin?next=%2Fen%2Fapp%2Ftokens%0ASet-Cookie%3Aevil%3D1"_s);
        QCOMPARE(ServerFixture::hidden(page, u"next"_s), u"/en/app/tokens"_s);
        // A good one goes through.
        const HttpAnswer ok =
            f.signIn(u"correct horse"_s, home(), {}, u"/en/app/connect?state=ab&scheme=tidewell"_s);
        QCOMPARE(ServerFixture::header(ok, "Location"),
                 "/en/app/connect?state=ab&scheme=tidewell"_ba);

        // Full anchoring: a trailing newline is not part of a valid value.
        QVERIFY(Accounts::nameProblem(u"ann\n"_s));
        QVERIFY(!Accounts::nameProblem(u"ann"_s));
        const QString state = QString(48, u'a');
        QCOMPARE(
            f.call("GET", u"/en/app/connect?scheme=tidewell&state="_s + state + u"%0A"_s).status,
            400);
        QVERIFY(f.call("GET", u"/en/app/connect?scheme=tidewell&state="_s + state).status != 400);
    }

    // A look-up that fails is answered 503 with Retry-After, never 401 (the app
    // would sign out and delete its token) and never "wrong password" (which would
    // count against the user).
    void storageFailureIsNeverUnauthorized()
    {
        ServerFixture f;
        QVERIFY2(f.server(), qPrintable(f.problem()));
        ServerDatabase& db = f.server()->database();
        const QByteArray habits = WireEnvelope::encode(QList<WireHabit>{});
        QCOMPARE(f.authorised("PUT", u"/api/v1/habits"_s, habits).status, 200);

        QVERIFY(db.exec(u"ALTER TABLE tokens RENAME TO tokens_away"_s));
        for (const QByteArray& method : {"GET"_ba, "PUT"_ba}) {
            const HttpAnswer answer = f.authorised(method, u"/api/v1/habits"_s, habits);
            QCOMPARE(answer.status, 503);
            QCOMPARE(ServerFixture::header(answer, "Retry-After"), "5"_ba);
            QVERIFY(QJsonDocument::fromJson(answer.body).object().contains(u"error"));
        }
        QVERIFY(db.exec(u"ALTER TABLE tokens_away RENAME TO tokens"_s));
        QCOMPARE(f.authorised("GET", u"/api/v1/habits"_s).status, 200);

        QVERIFY(db.exec(u"ALTER TABLE users RENAME TO users_away"_s));
        for (int i = 0; i < 10; ++i) {
            const HttpAnswer answer = f.signIn(u"correct horse"_s, home());
            QCOMPARE(answer.status, 503);
            QVERIFY(!answer.body.contains("Wrong user name"));
        }
        QVERIFY(db.exec(u"ALTER TABLE users_away RENAME TO users"_s));
        // The outage counted nothing against the account.
        QCOMPARE(f.signIn(u"correct horse"_s, home()).status, 303);
    }

    void sessionsEndAndTokenFormsAreOneTime()
    {
        ServerFixture f;
        QVERIFY2(f.server(), qPrintable(f.problem()));
        const auto withSession = [&](const QByteArray& cookie, const QByteArray& method,
                                     const QString& path, const QByteArray& body = {}) {
            return f.call(method, path, body,
                          {{"Cookie", "tw_session=" + cookie},
                           {"Content-Type", "application/x-www-form-urlencoded"}});
        };
        const auto signedIn = [&](const QByteArray& cookie) {
            return withSession(cookie, "GET", u"/en/app/tokens"_s).status == 200;
        };

        // Sign-out ends the session on the server, whatever its form carried.
        const QByteArray first =
            ServerFixture::cookieSet(f.signIn(u"correct horse"_s, home()), "tw_session");
        QVERIFY(signedIn(first));
        withSession(first, "POST", u"/en/app/signout"_s, "csrf=forged");
        QVERIFY(!signedIn(first));

        // A new sign-in ends the session the browser had.
        const QByteArray second =
            ServerFixture::cookieSet(f.signIn(u"correct horse"_s, home()), "tw_session");
        const QByteArray third =
            ServerFixture::cookieSet(f.signIn(u"correct horse"_s, home(), second), "tw_session");
        QVERIFY(!signedIn(second));
        QVERIFY(signedIn(third));

        // The token form makes one token, however often it is sent.
        const HttpAnswer page = withSession(third, "GET", u"/en/app/tokens"_s);
        const QByteArray form = "csrf=" + ServerFixture::hidden(page, u"csrf"_s).toLatin1() +
                                "&form=" + ServerFixture::hidden(page, u"form"_s).toLatin1() +
                                "&label=laptop";
        const qsizetype before = f.server()->accounts().tokens(f.userId).size();
        const HttpAnswer made = withSession(third, "POST", u"/en/app/tokens"_s, form);
        QVERIFY(made.body.contains("Your new token"));
        const HttpAnswer again = withSession(third, "POST", u"/en/app/tokens"_s, form);
        QVERIFY(!again.body.contains("Your new token"));
        QVERIFY(again.body.contains("already used"));
        QCOMPARE(f.server()->accounts().tokens(f.userId).size(), before + 1);
    }

    // Failures from one client hold back that client only: behind one proxy
    // address or not, nobody can lock the account for everyone.
    void rightPasswordFromElsewhereIsNeverHeldBack()
    {
        ServerFixture f;
        QVERIFY2(f.server(), qPrintable(f.problem()));
        const QHostAddress attacker(u"198.51.100.66"_s);
        int refused = 0;
        for (int i = 0; i < 8; ++i)
            refused += f.signIn(u"wrong password"_s, attacker).status == 429;
        QVERIFY(refused > 0);
        const HttpAnswer held = f.signIn(u"correct horse"_s, attacker);
        QCOMPARE(held.status, 429);
        QVERIFY(!ServerFixture::header(held, "Retry-After").isEmpty());
        QCOMPARE(f.signIn(u"correct horse"_s, home()).status, 303);
        QCOMPARE(f.signIn(u"correct horse"_s, QHostAddress(u"2001:db8::7"_s)).status, 303);
    }

    void publicUrlSecuresCookiesAndForms()
    {
        ServerFixture plain;
        QVERIFY2(plain.server(), qPrintable(plain.problem()));
        const HttpAnswer open = plain.call("GET", u"/en/app/signin"_s);
        const QByteArray openCookie = ServerFixture::headers(open, "Set-Cookie").value(0);
        QVERIFY2(openCookie.startsWith("tw_form=") && !openCookie.contains("Secure"),
                 openCookie.constData());
        QVERIFY(ServerFixture::header(open, "Strict-Transport-Security").isNull());

        SyncServer::Options options;
        options.publicUrl = u"https://sync.example.org"_s;
        ServerFixture f(options);
        QVERIFY2(f.server(), qPrintable(f.problem()));
        const HttpAnswer page = f.call("GET", u"/en/app/signin"_s);
        const QByteArray cookie = ServerFixture::headers(page, "Set-Cookie").value(0);
        QVERIFY2(cookie.startsWith("__Host-tw_form=") && cookie.contains("; Path=/;") &&
                     cookie.contains("; Secure"),
                 cookie.constData());
        QCOMPARE(ServerFixture::header(page, "Strict-Transport-Security"), "max-age=31536000"_ba);
        QVERIFY(!ServerFixture::header(f.authorised("GET", u"/api/v1/habits"_s),
                                       "Strict-Transport-Security")
                     .isNull());

        const QByteArray nonce = ServerFixture::cookieSet(page, "__Host-tw_form");
        const QByteArray body =
            "form=" + nonce + "&next=%2Fen%2Fapp%2Ftokens&name=ann&password=" + "correct+horse";
        const auto post = [&](const QByteArray& origin) {
            QList<std::pair<QByteArray, QByteArray>> headers{
                {"Content-Type", "application/x-www-form-urlencoded"},
                {"Cookie", "__Host-tw_form=" + nonce}};
            if (!origin.isNull())
                headers.append({"Origin", origin});
            return f.call("POST", u"/en/app/signin"_s, body, headers);
        };
        QCOMPARE(post("https://evil.example").status, 403);
        QCOMPARE(post("null").status, 403);
        QCOMPARE(post("http://sync.example.org").status, 403);
        const HttpAnswer in = post("https://sync.example.org");
        QCOMPARE(in.status, 303);
        QVERIFY(ServerFixture::headers(in, "Set-Cookie").value(0).startsWith("__Host-tw_session="));
    }

    // Password checks have threads of their own and a body still arriving holds
    // only its connection: an app's request is answered while both go on.
    void slowRequestsDoNotHoldUpOthers()
    {
        ServerFixture f;
        QVERIFY2(f.server(), qPrintable(f.problem()));
        QString error;
        QVERIFY2(f.server()->listen(&error), qPrintable(error));
        QTcpSocket upload;
        upload.connectToHost(QHostAddress::LocalHost, f.server()->port());
        upload.write("PUT /api/v1/habits HTTP/1.1\r\nHost: x\r\nContent-Length: 1000\r\n\r\n[");
        QList<std::shared_ptr<QTcpSocket>> signIns;
        for (int i = 0; i < 4; ++i) {
            auto socket = std::make_shared<QTcpSocket>();
            socket->connectToHost(QHostAddress::LocalHost, f.server()->port());
            socket->write("POST /en/app/signin HTTP/1.1\r\nHost: x\r\nCookie: tw_form=n\r\n"
                          "Content-Type: application/x-www-form-urlencoded\r\n"
                          "Content-Length: 55\r\n\r\nform=n&next=%2Fen%2Fapp%2Ftokens&name=ann"
                          "&password=wrong");
            signIns.append(socket);
        }
        // Under way: every password check has been handed to its threads.
        QTRY_VERIFY(std::all_of(signIns.cbegin(), signIns.cend(),
                                [](const auto& s) { return s->bytesToWrite() == 0; }));
        const QByteArray get = f.exchange("GET /api/v1/habits HTTP/1.1\r\nHost: x\r\n"
                                          "Authorization: Bearer " +
                                          f.token.toLatin1() + "\r\n\r\n");
        QVERIFY2(get.startsWith("HTTP/1.1 200 "), get.constData());
        int answered = 0;
        for (const auto& socket : signIns)
            answered += socket->bytesAvailable() > 0;
        QVERIFY2(answered < 4, "the app's request waited for every password check");
        QVERIFY(upload.state() == QAbstractSocket::ConnectedState);
        for (const auto& socket : signIns) {
            QTRY_VERIFY_WITH_TIMEOUT(socket->bytesAvailable() > 0, 10'000);
            QVERIFY(socket->readAll().startsWith("HTTP/1.1 401 "));
        }
    }
};

QTEST_GUILESS_MAIN(TestServerSecurity)
#include "tst_serversecurity.moc"
