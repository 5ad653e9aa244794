#include "WebPages.h"

#include "Accounts.h"
#include "Clock.h"
#include "HtmlPage.h"

#include <QFile>
#include <QRegularExpression>
#include <QUrlQuery>

#include <cstdio>

namespace {
const QString connectPath = QStringLiteral("/en/app/connect");
const QString signInPath = QStringLiteral("/en/app/signin");
const QString tokensPath = QStringLiteral("/en/app/tokens");
const QByteArray sessionCookie = "tw_session";
const QByteArray formCookie = "tw_form";

using Header = std::pair<QByteArray, QByteArray>;

// The fields of a form the browser posted (application/x-www-form-urlencoded).
QUrlQuery formOf(const HttpCall& call)
{
    QString text = QString::fromUtf8(call.body);
    text.replace(u'+', u' ');
    return QUrlQuery(text);
}

QString field(const QUrlQuery& form, const QString& name)
{
    return form.queryItemValue(name, QUrl::FullyDecoded);
}

HttpAnswer redirect(const QByteArray& location)
{
    HttpAnswer answer{303, "text/plain; charset=utf-8", "See " + location + '\n', {}, {}};
    answer.headers.append(Header("Location", location));
    return answer;
}

// Only our own pages may be where a sign-in leads: a path on this site, of
// printable characters a URL may hold, so that it can neither leave the site nor
// end the Location header it goes into.
QString safeNext(const QString& next)
{
    static const QRegularExpression path(QRegularExpression::anchoredPattern(
        QStringLiteral("/en/app/[A-Za-z0-9._~!$&'()*+,;=:@%/?-]*")));
    return path.match(next).hasMatch() && !next.contains(u"//") ? next : tokensPath;
}

// A user name as it may go into the log: printable, quoted, short.
QByteArray loggable(const QString& text)
{
    QByteArray out;
    for (const QChar c : text.left(64)) {
        if (c.unicode() >= 0x20 && c.unicode() < 0x7f && c != u'"' && c != u'\\')
            out += char(c.unicode());
        else
            out += "\\u" + QByteArray::number(c.unicode(), 16).rightJustified(4, '0');
    }
    return '"' + out + '"';
}

// A problem to show above a form, as HTML; nothing for none.
QString problemText(const QString& problem)
{
    return problem.isEmpty()
               ? QString()
               : HtmlPage::fill(QStringLiteral("error"), {{QStringLiteral("text"), problem}});
}

QString formatTime(const QDateTime& time)
{
    return time.isValid() ? time.toUTC().toString(QStringLiteral("yyyy-MM-dd HH:mm 'UTC'"))
                          : QStringLiteral("never");
}
} // namespace

WebPages::WebPages(Accounts& accounts, Sessions& sessions, const Clock& clock, Settings settings,
                   SignInThrottle& throttle)
    : m_accounts(accounts)
    , m_sessions(sessions)
    , m_clock(clock)
    , m_settings(std::move(settings))
    , m_browser(m_settings.publicOrigin)
    , m_throttle(throttle)
{}

bool WebPages::handles(const QString& path)
{
    return path == u"/" || path.startsWith(u"/en/app/") || path.startsWith(u"/static/");
}

QString WebPages::contentSecurityPolicy() const
{
    // Forms may lead back to the app's own scheme (the connect redirect).
    QString formTargets = QStringLiteral("'self'");
    for (const QString& scheme : m_settings.schemes)
        formTargets += u' ' + scheme + u':';
    return u"default-src 'none'; style-src 'self'; script-src 'self'; img-src 'self'; "
           u"connect-src 'self'; form-action " +
           formTargets + u"; base-uri 'none'; frame-ancestors 'none'";
}

HttpAnswer WebPages::page(int status, const QString& title, const QString& body,
                          const std::optional<Sessions::Session>& session) const
{
    HttpAnswer answer{status,
                      "text/html; charset=utf-8",
                      HtmlPage::render(title, body, session ? session->userName : QString(),
                                       session ? session->csrf : QString()),
                      {},
                      {}};
    answer.headers.append(Header("Content-Security-Policy", contentSecurityPolicy().toLatin1()));
    answer.headers.append(Header("X-Frame-Options", "DENY"));
    // Same-origin, not no-referrer: with no-referrer a browser posts our own forms
    // with "Origin: null", and the origin check could not tell them from a forgery.
    answer.headers.append(Header("Referrer-Policy", "same-origin"));
    return answer;
}

HttpAnswer WebPages::unavailablePage() const
{
    HttpAnswer answer = errorPage(503, QStringLiteral("Try again shortly"),
                                  QStringLiteral("The server cannot reach its database just now. "
                                                 "Nothing was changed; try again in a minute."));
    answer.addHeader("Retry-After", "5");
    return answer;
}

HttpAnswer WebPages::errorPage(int status, const QString& title, const QString& text,
                               const std::optional<Sessions::Session>& session) const
{
    return page(status, title,
                HtmlPage::fill(QStringLiteral("error"), {{QStringLiteral("text"), text}}), session);
}

HttpAnswer WebPages::handle(const HttpCall& call)
{
    if (call.path.startsWith(u"/static/")) {
        static const QStringList files{QStringLiteral("style.css"), QStringLiteral("copy.js")};
        const QString name = call.path.mid(8);
        if (call.method != "GET" || !files.contains(name))
            return HttpAnswer::error(404, QStringLiteral("not found"));
        QFile file(u":/web/" + name);
        file.open(QIODevice::ReadOnly);
        HttpAnswer answer{200,
                          name.endsWith(u".css") ? "text/css; charset=utf-8"
                                                 : "text/javascript; charset=utf-8",
                          file.readAll(),
                          {},
                          {}};
        return answer;
    }
    const bool post = call.method == "POST";
    if (!post && call.method != "GET" && call.method != "HEAD")
        return errorPage(405, QStringLiteral("Not allowed"),
                         QStringLiteral("This page takes GET and POST only."));
    if (post && m_browser.fromElsewhere(call))
        return errorPage(403, QStringLiteral("Not allowed"),
                         QStringLiteral("This form was sent from another site. Open the page on "
                                        "this server and try again."));
    const Lookup<Sessions::Session> found = m_sessions.find(m_browser.cookie(call, sessionCookie));
    if (found.unavailable)
        return unavailablePage();
    const std::optional<Sessions::Session>& session = found.value;
    if (call.path == u"/")
        return redirect(tokensPath.toLatin1());
    if (call.path == connectPath)
        return post ? connect(call, session) : connectPage(call, session);
    if (call.path == signInPath) {
        if (post)
            return signIn(call, session);
        return signInPage(
            call, safeNext(call.query.queryItemValue(QStringLiteral("next"), QUrl::FullyDecoded)));
    }
    if (call.path == tokensPath || call.path == tokensPath + u"/revoke")
        return tokens(call, session);
    if (call.path == u"/en/app/signout" && post) {
        // Whatever the form says, the session the browser forgets ends on the server
        // too: a copied cookie must not outlive the sign-out.
        if (session)
            m_sessions.end(session->cookie);
        HttpAnswer answer = redirect(signInPath.toLatin1());
        answer.headers.append(
            Header("Set-Cookie", m_browser.setCookie(call, sessionCookie, QString(), 0)));
        return answer;
    }
    return errorPage(404, QStringLiteral("Not found"), QStringLiteral("There is no such page."),
                     session);
}

QString WebPages::connectProblem(const QString& state, const QString& scheme) const
{
    static const QRegularExpression nonce(
        QRegularExpression::anchoredPattern(QStringLiteral("[0-9a-f]{48}")));
    if (!m_settings.schemes.contains(scheme))
        return u"The app asked to be called back on \u201c" + scheme.left(40) +
               u":\u201d, which this server does not allow.";
    if (!nonce.match(state).hasMatch())
        return QStringLiteral("This sign-in link is not valid. Start again from Tidewell with "
                              "\u201cConnect via browser\u201d.");
    return {};
}

HttpAnswer WebPages::connectPage(const HttpCall& call,
                                 const std::optional<Sessions::Session>& session)
{
    const QString state = call.query.queryItemValue(QStringLiteral("state"), QUrl::FullyDecoded);
    const QString scheme = call.query.queryItemValue(QStringLiteral("scheme"), QUrl::FullyDecoded);
    if (const QString problem = connectProblem(state, scheme); !problem.isEmpty())
        return errorPage(400, QStringLiteral("Cannot connect"), problem, session);
    QUrlQuery back;
    back.addQueryItem(QStringLiteral("state"), state);
    back.addQueryItem(QStringLiteral("scheme"), scheme);
    if (!session)
        return signInPage(call, connectPath + u'?' + back.toString(QUrl::FullyEncoded));

    const auto form = m_sessions.issueForm(*session, u"connect " + scheme + u' ' + state);
    if (!form)
        return errorPage(500, QStringLiteral("Cannot connect"),
                         QStringLiteral("The server could not prepare the form. Try again."),
                         session);
    const QString body =
        HtmlPage::fill(QStringLiteral("connect"), {{QStringLiteral("user"), session->userName},
                                                   {QStringLiteral("csrf"), session->csrf},
                                                   {QStringLiteral("form"), *form},
                                                   {QStringLiteral("state"), state},
                                                   {QStringLiteral("scheme"), scheme}});
    return page(200, QStringLiteral("Connect Tidewell"), body, session);
}

HttpAnswer WebPages::connect(const HttpCall& call, const std::optional<Sessions::Session>& session)
{
    const QUrlQuery form = formOf(call);
    const QString state = field(form, QStringLiteral("state"));
    const QString scheme = field(form, QStringLiteral("scheme"));
    if (const QString problem = connectProblem(state, scheme); !problem.isEmpty())
        return errorPage(400, QStringLiteral("Cannot connect"), problem, session);
    // A form of another session, a forged one, and one sent twice all end here, and
    // none of them makes a token.
    if (!session || field(form, QStringLiteral("csrf")) != session->csrf ||
        !m_sessions.useForm(*session, field(form, QStringLiteral("form")),
                            u"connect " + scheme + u' ' + state))
        return errorPage(400, QStringLiteral("Cannot connect"),
                         QStringLiteral("This form was already used or has expired. Start again "
                                        "from Tidewell with \u201cConnect via browser\u201d."),
                         session);
    QUrlQuery back;
    if (field(form, QStringLiteral("action")) == u"connect") {
        QString error;
        const auto token = m_accounts.createToken(
            session->userId,
            m_clock.now().toUTC().date().toString(Qt::ISODate) + QStringLiteral(" desktop app"),
            &error);
        if (!token)
            return errorPage(500, QStringLiteral("Cannot connect"),
                             QStringLiteral("The server could not make a token. Try again."),
                             session);
        back.addQueryItem(QStringLiteral("token"), *token);
    }
    back.addQueryItem(QStringLiteral("state"), state);
    return redirect((scheme + u"://auth?" + back.toString(QUrl::FullyEncoded)).toLatin1());
}

HttpAnswer WebPages::signInPage(const HttpCall& call, const QString& next, const QString& problem,
                                int status)
{
    // The form's value goes into a cookie as well; a sign-in posted from another
    // site carries the one without the other.
    const QString nonce = Accounts::randomSecret(18);
    const QString body =
        HtmlPage::fill(QStringLiteral("signin"), {{QStringLiteral("problem"), problemText(problem)},
                                                  {QStringLiteral("form"), nonce},
                                                  {QStringLiteral("next"), next}});
    HttpAnswer answer = page(status, QStringLiteral("Sign in"), body);
    answer.headers.append(Header("Set-Cookie", m_browser.setCookie(call, formCookie, nonce, 1800)));
    return answer;
}

HttpAnswer WebPages::signIn(const HttpCall& call, const std::optional<Sessions::Session>& previous)
{
    const QUrlQuery form = formOf(call);
    const QString next = safeNext(field(form, QStringLiteral("next")));
    const QString name = field(form, QStringLiteral("name")).trimmed();
    const QString nonce = field(form, QStringLiteral("form"));
    if (nonce.isEmpty() || nonce != m_browser.cookie(call, formCookie))
        return signInPage(call, next, QStringLiteral("The sign-in form expired. Please try again."),
                          400);
    if (const qint64 wait = m_throttle.waitSeconds(name, call.client); wait > 0) {
        HttpAnswer answer = signInPage(
            call, next,
            wait < 60
                ? QStringLiteral("Too many failed sign-ins. Try again in %1 second(s).").arg(wait)
                : QStringLiteral("Too many failed sign-ins. Try again in %1 minute(s).")
                      .arg((wait + 59) / 60),
            429);
        answer.addHeader("Retry-After", QByteArray::number(wait));
        return answer;
    }
    const Lookup<Accounts::User> user =
        m_accounts.checkPassword(name, field(form, QStringLiteral("password")));
    // An outage is not a wrong password: nothing is counted against the user.
    if (user.unavailable)
        return unavailablePage();
    if (!user) {
        m_throttle.failed(name, call.client);
        // For fail2ban and the like: who, from where; never the password.
        std::fprintf(stderr, "tidewell-server: failed sign-in for user %s from %s\n",
                     loggable(name).constData(), qPrintable(call.client.toString()));
        return signInPage(call, next, QStringLiteral("Wrong user name or password."), 401);
    }
    m_throttle.succeeded(name, call.client);
    // A new sign-in replaces the browser's session: one planted before it ends here.
    if (previous)
        m_sessions.end(previous->cookie);
    QString error;
    const auto session = m_sessions.start(user->id, &error);
    if (!session)
        return signInPage(call, next,
                          QStringLiteral("The server could not sign you in. Try again."), 500);
    HttpAnswer answer = redirect(next.toLatin1());
    answer.headers.append(
        Header("Set-Cookie", m_browser.setCookie(call, sessionCookie, session->cookie,
                                                 Sessions::LifetimeMs / 1000)));
    answer.headers.append(
        Header("Set-Cookie", m_browser.setCookie(call, formCookie, QString(), 0)));
    return answer;
}

HttpAnswer WebPages::tokens(const HttpCall& call, const std::optional<Sessions::Session>& session)
{
    if (!session) {
        QUrlQuery next;
        next.addQueryItem(QStringLiteral("next"), tokensPath);
        return redirect((signInPath + u'?' + next.toString(QUrl::FullyEncoded)).toLatin1());
    }
    if (call.method != "POST")
        return call.path == tokensPath
                   ? tokensPage(*session)
                   : errorPage(405, QStringLiteral("Not allowed"),
                               QStringLiteral("Revoking takes a form."), session);
    const QUrlQuery form = formOf(call);
    if (field(form, QStringLiteral("csrf")) != session->csrf)
        return errorPage(400, QStringLiteral("Tokens"),
                         QStringLiteral("This form has expired. Reload the page and try again."),
                         session);
    QString error;
    if (call.path.endsWith(u"/revoke")) {
        bool ok = false;
        const qint64 id = field(form, QStringLiteral("id")).toLongLong(&ok);
        if (!ok || !m_accounts.revokeToken(id, session->userId, &error))
            return tokensPage(*session, {},
                              QStringLiteral("That token does not exist (any more)."));
        return redirect(tokensPath.toLatin1());
    }
    // One token per form: reloading the page that showed it posts the form again.
    if (!m_sessions.useForm(*session, field(form, QStringLiteral("form")), QStringLiteral("token")))
        return tokensPage(*session, {},
                          QStringLiteral("This form was already used or has expired. Nothing was "
                                         "made; create a new token below."));
    QString label = field(form, QStringLiteral("label")).trimmed().left(100);
    if (label.isEmpty())
        label = m_clock.now().toUTC().date().toString(Qt::ISODate) + QStringLiteral(" web");
    const auto token = m_accounts.createToken(session->userId, label, &error);
    if (!token)
        return tokensPage(*session, {}, QStringLiteral("The server could not make a token."));
    return tokensPage(*session, *token);
}

HttpAnswer WebPages::tokensPage(const Sessions::Session& session, const QString& fresh,
                                const QString& problem)
{
    const QList<Accounts::Token> tokens = m_accounts.tokens(session.userId);
    QString rows;
    for (const Accounts::Token& t : tokens)
        rows += HtmlPage::fill(QStringLiteral("token-row"),
                               {{QStringLiteral("label"), t.label},
                                {QStringLiteral("created"), formatTime(t.createdAt)},
                                {QStringLiteral("used"), formatTime(t.lastUsedAt)},
                                {QStringLiteral("csrf"), session.csrf},
                                {QStringLiteral("id"), QString::number(t.id)}});
    const QString list = tokens.isEmpty() ? HtmlPage::fill(QStringLiteral("no-tokens"))
                                          : HtmlPage::fill(QStringLiteral("token-table"),
                                                           {{QStringLiteral("rows"), rows}});
    const QString shown = fresh.isEmpty() ? QString()
                                          : HtmlPage::fill(QStringLiteral("new-token"),
                                                           {{QStringLiteral("token"), fresh}});
    const QString body = HtmlPage::fill(
        QStringLiteral("tokens"),
        {{QStringLiteral("problem"), problemText(problem)},
         {QStringLiteral("fresh"), shown},
         {QStringLiteral("list"), list},
         {QStringLiteral("csrf"), session.csrf},
         {QStringLiteral("form"),
          m_sessions.issueForm(session, QStringLiteral("token")).value_or(QString())}});
    return page(200, QStringLiteral("API tokens"), body, session);
}
