#pragma once

#include "BrowserPolicy.h"
#include "HttpAnswer.h"
#include "HttpCall.h"
#include "Sessions.h"
#include "SignInThrottle.h"

#include <QStringList>

class Accounts;
class Clock;

// The pages a person uses in a browser: signing in, connecting the desktop app
// (which then receives a token on its own URL scheme), and managing API tokens.
// Server-rendered HTML that works without JavaScript; every form carries the
// session's CSRF token, and connecting an app is a one-time form.
class WebPages
{
public:
    struct Settings
    {
        QStringList schemes; // app URL schemes a sign-in may call back
        // "https://sync.example.org" when the operator named the public URL: the only
        // origin forms are taken from, and with https every cookie is Secure.
        QString publicOrigin;
    };

    WebPages(Accounts& accounts, Sessions& sessions, const Clock& clock, Settings settings,
             SignInThrottle& throttle);

    static bool handles(const QString& path);
    HttpAnswer handle(const HttpCall& call);
    // 503: the database cannot answer now; nothing was changed.
    HttpAnswer unavailablePage() const;

private:
    HttpAnswer connectPage(const HttpCall& call, const std::optional<Sessions::Session>& session);
    HttpAnswer connect(const HttpCall& call, const std::optional<Sessions::Session>& session);
    HttpAnswer signInPage(const HttpCall& call, const QString& next, const QString& problem = {},
                          int status = 200);
    HttpAnswer signIn(const HttpCall& call, const std::optional<Sessions::Session>& previous);
    HttpAnswer tokensPage(const Sessions::Session& session, const QString& fresh = {},
                          const QString& problem = {});
    HttpAnswer tokens(const HttpCall& call, const std::optional<Sessions::Session>& session);
    // Why the connect request's state and scheme cannot be served; empty when they can.
    QString connectProblem(const QString& state, const QString& scheme) const;
    QString contentSecurityPolicy() const;
    HttpAnswer page(int status, const QString& title, const QString& body,
                    const std::optional<Sessions::Session>& session = {}) const;
    HttpAnswer errorPage(int status, const QString& title, const QString& text,
                         const std::optional<Sessions::Session>& session = {}) const;

    Accounts& m_accounts;
    Sessions& m_sessions;
    const Clock& m_clock;
    Settings m_settings;
    BrowserPolicy m_browser;
    SignInThrottle& m_throttle;
};
