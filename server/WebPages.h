#pragma once

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
    WebPages(Accounts& accounts, Sessions& sessions, const Clock& clock, QStringList schemes);

    static bool handles(const QString& path);
    HttpAnswer handle(const HttpCall& call);

private:
    HttpAnswer connectPage(const HttpCall& call, const std::optional<Sessions::Session>& session);
    HttpAnswer connect(const HttpCall& call, const std::optional<Sessions::Session>& session);
    HttpAnswer signInPage(const HttpCall& call, const QString& next, const QString& problem = {},
                          int status = 200);
    HttpAnswer signIn(const HttpCall& call);
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
    QStringList m_schemes;
    SignInThrottle m_throttle;
};
