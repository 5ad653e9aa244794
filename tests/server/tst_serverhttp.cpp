#include "Clock.h"
#include "HttpRequestParser.h"
#include "HttpResponseWriter.h"
#include "SignInThrottle.h"
#include "SyncServer.h"
#include "TrustedProxies.h"

#include <QTest>

using namespace Qt::StringLiterals;

// The server's HTTP layer and the rules that need no database: the request
// parser against smuggling, the one response writer against header injection,
// forwarded headers from trusted proxies only, the sign-in throttle and the app
// URL schemes sign-in may call back.
class TestServerHttp final : public QObject
{
    Q_OBJECT

    static HttpRequestParser::Step parse(QByteArray raw, HttpRequestParser* parser,
                                         HttpCall* call = nullptr)
    {
        const HttpRequestParser::Step step = parser->next(raw);
        if (call && step == HttpRequestParser::Step::Request)
            *call = parser->takeCall();
        return step;
    }

    static int refusal(const QByteArray& raw)
    {
        HttpRequestParser parser({1024, 2048});
        return parse(raw, &parser) == HttpRequestParser::Step::Refuse ? parser.refusalStatus() : 0;
    }

private slots:
    // Requests split anywhere and pipelined come out whole and in order; whatever a
    // proxy in front could read differently is refused, and sizes are refused
    // before the body is kept.
    void parserTakesRequestsApartStrictly()
    {
        HttpRequestParser parser({1024, 2048});
        const QByteArray two =
            "PUT /api/v1/habits?x=%41&y HTTP/1.1\r\nHost: a\r\n"
            "Content-Length: 5\r\nConnection: keep-alive\r\n\r\nhello"
            "GET /en/app/sign%20in HTTP/1.1\r\nHost: a\r\nConnection: close\r\n\r\n";
        QByteArray buffer;
        QList<HttpCall> calls;
        for (const char c : two) { // a byte at a time: every split point
            buffer.append(c);
            HttpRequestParser::Step step;
            while ((step = parser.next(buffer)) == HttpRequestParser::Step::Request) {
                calls.append(parser.takeCall());
                if (calls.size() == 1)
                    QVERIFY(parser.keepAlive());
            }
            QCOMPARE(step, HttpRequestParser::Step::NeedMore);
        }
        QCOMPARE(calls.size(), 2);
        QCOMPARE(calls[0].method, "PUT"_ba);
        QCOMPARE(calls[0].path, u"/api/v1/habits"_s);
        QCOMPARE(calls[0].query.queryItemValue(u"x"_s, QUrl::FullyDecoded), u"A"_s);
        QCOMPARE(calls[0].body, "hello"_ba);
        QCOMPARE(calls[0].header("content-length"), "5"_ba);
        QCOMPARE(calls[1].path, u"/en/app/sign in"_s);
        QVERIFY(!parser.keepAlive());
        QVERIFY(buffer.isEmpty());

        HttpCall call;
        HttpRequestParser continued({1024, 2048});
        QCOMPARE(
            parse("PUT / HTTP/1.1\r\nHost: a\r\nExpect: 100-continue\r\nContent-Length: 3\r\n\r\n",
                  &continued),
            HttpRequestParser::Step::NeedMore);
        QVERIFY(continued.awaitsContinue());
        HttpRequestParser old({1024, 2048});
        QCOMPARE(parse("GET / HTTP/1.0\r\n\r\n", &old, &call), HttpRequestParser::Step::Request);
        QVERIFY(!old.keepAlive());

        // Smuggling and malformed requests.
        QCOMPARE(
            refusal("POST / HTTP/1.1\r\nHost: a\r\nTransfer-Encoding: chunked\r\n\r\n0\r\n\r\n"),
            411);
        QCOMPARE(
            refusal("POST / HTTP/1.1\r\nHost: a\r\nContent-Length: 3\r\nContent-Length: 4\r\n\r\n"),
            400);
        QCOMPARE(refusal("POST / HTTP/1.1\r\nHost: a\r\nContent-Length: +3\r\n\r\nabc"), 400);
        QCOMPARE(refusal("GET / HTTP/1.1\r\nHost : a\r\n\r\n"), 400);
        QCOMPARE(refusal("GET / HTTP/1.1\r\nHost: a\r\nX: 1\r\n folded\r\n\r\n"), 400);
        QCOMPARE(refusal("GET / HTTP/1.1\r\nHost: a\nX: 1\r\n\r\n"), 400);
        QCOMPARE(refusal("GET / HTTP/1.1\r\nHost: a\r\nX: a\0b\r\n\r\n"_ba), 400);
        QCOMPARE(refusal("GET / HTTP/1.1\r\nHost: a\r\nHost: b\r\n\r\n"), 400);
        QCOMPARE(refusal("GET / HTTP/1.1\r\n\r\n"), 400);
        QCOMPARE(refusal("GET /a b HTTP/1.1\r\nHost: a\r\n\r\n"), 400);
        QCOMPARE(refusal("GET http://evil/ HTTP/1.1\r\nHost: a\r\n\r\n"), 400);
        QCOMPARE(refusal("GET /\x01 HTTP/1.1\r\nHost: a\r\n\r\n"), 400);
        QCOMPARE(refusal("GET / HTTP/2.0\r\nHost: a\r\n\r\n"), 505);
        QCOMPARE(refusal("GET / HTTP/1.1\r\nHost: a\r\nExpect: magic\r\n\r\n"), 417);
        // Too large: the body's size is refused from its header alone.
        QCOMPARE(refusal("PUT / HTTP/1.1\r\nHost: a\r\nContent-Length: 2049\r\n\r\n"), 413);
        QCOMPARE(refusal("GET / HTTP/1.1\r\nX: " + QByteArray(1100, 'a')), 431);
        QCOMPARE(refusal("GET / HTTP/1.1\r\n" + QByteArray("X: 1\r\n").repeated(101) + "\r\n"),
                 431);
    }

    // Whatever a handler puts into a header, no CR, LF or other control character
    // reaches the wire: the answer becomes a 500.
    void writerRefusesHeaderInjection()
    {
        HttpAnswer good = HttpAnswer::json(200, "{}");
        good.addHeader("Location", "/en/app/tokens");
        const QByteArray wire = HttpResponseWriter::write(good, false, true);
        QVERIFY(wire.startsWith("HTTP/1.1 200 OK\r\n"));
        QVERIFY(wire.contains("\r\nLocation: /en/app/tokens\r\n"));
        QVERIFY(wire.endsWith("\r\n\r\n{}"));
        QVERIFY(!HttpResponseWriter::write(good, false, false).isEmpty());
        QVERIFY(HttpResponseWriter::write(good, false, false).contains("Connection: close\r\n"));
        QVERIFY(HttpResponseWriter::write(good, true, true).endsWith("\r\n\r\n"));

        for (const QByteArray& value : {"/en/app/tokens\r\nSet-Cookie: evil=1"_ba, "a\nb"_ba,
                                        "a\rb"_ba, "a\0b"_ba, "a\x7f"_ba}) {
            HttpAnswer bad = HttpAnswer::json(303, "{}");
            bad.addHeader("Location", value);
            const QByteArray out = HttpResponseWriter::write(bad, false, true);
            QVERIFY2(out.startsWith("HTTP/1.1 500 "), out.constData());
            QVERIFY(!out.contains("evil"));
            QVERIFY(!out.contains("Location"));
        }
        HttpAnswer badName = HttpAnswer::json(200, "{}");
        badName.addHeader("Set-Cookie: x=1\r\nY", "z");
        QVERIFY(HttpResponseWriter::write(badName, false, true).startsWith("HTTP/1.1 500 "));
        HttpAnswer badType{200, "text/html\r\nX: 1", "", {}, {}};
        QVERIFY(HttpResponseWriter::write(badType, false, true).startsWith("HTTP/1.1 500 "));
        QVERIFY(HttpResponseWriter::isSafeHeader("X-Tab", "a\tb"));
    }

    // Forwarded headers name the client only when a trusted proxy sent them.
    void forwardedHeadersFromTrustedProxiesOnly()
    {
        QString error;
        QVERIFY(!TrustedProxies::parse({u"10.0.0.0/99"_s}, &error));
        QVERIFY(!TrustedProxies::parse({u"proxy.example"_s}, &error));
        const auto proxies = TrustedProxies::parse({u"127.0.0.1"_s, u"10.0.0.0/8"_s}, &error);
        QVERIFY2(proxies, qPrintable(error));

        const auto resolved = [&](const QString& peer, QList<std::pair<QByteArray, QByteArray>> h) {
            HttpCall call;
            call.peer = QHostAddress(peer);
            call.headers = std::move(h);
            proxies->resolve(call);
            return std::pair(call.client.toString(), call.secure);
        };
        const std::pair<QString, bool> direct{u"198.51.100.1"_s, false};
        QCOMPARE(resolved(u"198.51.100.1"_s,
                          {{"X-Forwarded-For", "203.0.113.7"}, {"X-Forwarded-Proto", "https"}}),
                 direct);
        QCOMPARE(resolved(u"127.0.0.1"_s,
                          {{"X-Forwarded-For", "203.0.113.7"}, {"X-Forwarded-Proto", "https"}}),
                 std::pair(u"203.0.113.7"_s, true));
        // A client's own X-Forwarded-For is not believed past the hop a proxy added.
        QCOMPARE(resolved(u"127.0.0.1"_s, {{"X-Forwarded-For", "6.6.6.6, 203.0.113.7, 10.1.2.3"}}),
                 std::pair(u"203.0.113.7"_s, false));
        QCOMPARE(resolved(u"127.0.0.1"_s,
                          {{"X-Forwarded-For", "6.6.6.6"}, {"X-Forwarded-For", "203.0.113.7"}}),
                 std::pair(u"203.0.113.7"_s, false));
        QCOMPARE(resolved(u"127.0.0.1"_s, {{"X-Forwarded-For", "6.6.6.6, garbage"}}),
                 std::pair(u"127.0.0.1"_s, false));
        QCOMPARE(resolved(u"::ffff:127.0.0.1"_s,
                          {{"Forwarded",
                            "for=192.0.2.60;proto=http, for=\"[2001:db8::1]:443\";proto=https"}}),
                 std::pair(u"2001:db8::1"_s, true));
        QCOMPARE(resolved(u"127.0.0.1"_s, {}), std::pair(u"127.0.0.1"_s, false));

        const auto none = TrustedProxies::parse({}, &error);
        HttpCall call;
        call.peer = QHostAddress(u"::ffff:192.0.2.9"_s);
        call.headers = {{"X-Forwarded-For", "203.0.113.7"}};
        none->resolve(call);
        QCOMPARE(call.client, QHostAddress(u"192.0.2.9"_s));
    }

    // Failures count per account and client, with waits that grow; the right
    // password from elsewhere is never held back, and a full table loses only its
    // oldest entries.
    void throttlePerAccountAndClient()
    {
        QDateTime now = QDateTime::fromMSecsSinceEpoch(1'800'000'000'000);
        const Clock clock([&] { return now; });
        SignInThrottle throttle(clock, 3);
        const QHostAddress a(u"192.0.2.1"_s), b(u"192.0.2.2"_s);
        for (int i = 0; i < SignInThrottle::FreeFailures; ++i) {
            QCOMPARE(throttle.waitSeconds(u"ann"_s, a), 0);
            throttle.failed(u"Ann"_s, a);
        }
        QCOMPARE(throttle.waitSeconds(u"ann"_s, a), 0);
        throttle.failed(u"ann"_s, a);
        QCOMPARE(throttle.waitSeconds(u"ANN"_s, a), 1);
        QCOMPARE(throttle.waitSeconds(u"ann"_s, b), 0); // another client: not held back
        QCOMPARE(throttle.waitSeconds(u"bo"_s, a), 0);  // another account
        now = now.addSecs(1);
        throttle.failed(u"ann"_s, a);
        QCOMPARE(throttle.waitSeconds(u"ann"_s, a), 2);
        now = now.addSecs(2);
        throttle.failed(u"ann"_s, a);
        QCOMPARE(throttle.waitSeconds(u"ann"_s, a), 4);
        for (int i = 0; i < 30; ++i)
            throttle.failed(u"ann"_s, a);
        QCOMPARE(throttle.waitSeconds(u"ann"_s, a), SignInThrottle::MaxWaitMs / 1000);
        throttle.succeeded(u"ann"_s, b); // someone else's success changes nothing here
        QVERIFY(throttle.waitSeconds(u"ann"_s, a) > 0);
        throttle.succeeded(u"ann"_s, a);
        QCOMPARE(throttle.waitSeconds(u"ann"_s, a), 0);

        // One IPv6 host is its /64.
        const QHostAddress v6(u"2001:db8:1:2::5"_s), sameNet(u"2001:db8:1:2:ffff::9"_s),
            otherNet(u"2001:db8:1:3::5"_s);
        QCOMPARE(SignInThrottle::bucketOf(v6), SignInThrottle::bucketOf(sameNet));
        QVERIFY(SignInThrottle::bucketOf(v6) != SignInThrottle::bucketOf(otherNet));
        QCOMPARE(SignInThrottle::bucketOf(QHostAddress(u"::ffff:192.0.2.1"_s)), u"192.0.2.1"_s);
        for (int i = 0; i <= SignInThrottle::FreeFailures; ++i)
            throttle.failed(u"cy"_s, v6);
        QVERIFY(throttle.waitSeconds(u"cy"_s, sameNet) > 0);
        QCOMPARE(throttle.waitSeconds(u"cy"_s, otherNet), 0);

        // A full table loses its entry untouched longest, not everything.
        SignInThrottle small(clock, 3);
        for (int i = 0; i <= SignInThrottle::FreeFailures; ++i)
            small.failed(u"x"_s, a);
        small.failed(u"y"_s, a);
        small.failed(u"z"_s, a);
        small.failed(u"x"_s, a); // touched again: now the newest
        small.failed(u"w"_s, a); // y goes
        small.failed(u"v"_s, a); // z goes
        QCOMPARE(small.size(), 3);
        QVERIFY(small.waitSeconds(u"x"_s, a) > 0);
        small.failed(u"u"_s, a); // now x
        QCOMPARE(small.waitSeconds(u"x"_s, a), 0);

        // A client that stays away long enough starts afresh.
        for (int i = 0; i <= SignInThrottle::FreeFailures; ++i)
            throttle.failed(u"dee"_s, b);
        now = now.addMSecs(SignInThrottle::ForgetAfterMs);
        throttle.failed(u"dee"_s, b);
        QCOMPARE(throttle.waitSeconds(u"dee"_s, b), 0);
    }

    // Sign-in must not hand a token to a scheme a browser opens itself.
    void schemesThatOpenInTheBrowserAreRefused()
    {
        for (const QString& scheme : {u"http"_s, u"https"_s, u"javascript"_s, u"data"_s, u"file"_s,
                                      u"Tidewell"_s, u"tide well"_s, u""_s, u"tidewell\n"_s})
            QVERIFY2(SyncServer::schemeProblem(scheme), qPrintable(scheme));
        for (const QString& scheme : {u"tidewell"_s, u"com.example.app"_s, u"tw-dev+2"_s})
            QVERIFY2(!SyncServer::schemeProblem(scheme), qPrintable(scheme));
        SyncServer::Options options;
        options.database.url = u"sqlite::memory:"_s;
        options.schemes = {u"tidewell"_s, u"javascript"_s};
        QString error;
        QVERIFY(!SyncServer::create(options, &error));
        QVERIFY2(error.contains(u"javascript"), qPrintable(error));
        options.schemes = {u"tidewell"_s};
        options.publicUrl = u"https://sync.example.org/tidewell"_s;
        QVERIFY(!SyncServer::create(options, &error));
        QVERIFY2(error.contains(u"root"), qPrintable(error));
        options.publicUrl = u"ftp://sync.example.org"_s;
        QVERIFY(!SyncServer::create(options, &error));
        options.publicUrl = u"https://sync.example.org/"_s;
        QVERIFY2(SyncServer::create(options, &error), qPrintable(error));
    }
};

QTEST_GUILESS_MAIN(TestServerHttp)
#include "tst_serverhttp.moc"
