#pragma once

#include "HttpAnswer.h"
#include "HttpCall.h"
#include "ServerDatabase.h"
#include "WebPages.h"

#include <QDeadlineTimer>

#include <memory>

class Accounts;
class ApiHandler;
class ChangeFeed;
class Clock;
class OutageLog;
class ResourceStore;
class Sessions;
class SignInThrottle;
class TrustedProxies;

// Everything one thread needs to answer requests: a database connection of its
// own and the accounts, resources, sessions and pages over it. What the threads
// share (the clock, the sign-in throttle, the outage log) is handed in.
class RequestHandler
{
public:
    struct Shared
    {
        const Clock& clock;
        SignInThrottle& throttle;
        const TrustedProxies& proxies;
        OutageLog& outages;
        ChangeFeed& feed;
        WebPages::Settings web;
        bool strictTransport = false; // send HSTS: the server is reached over HTTPS
    };

    RequestHandler(std::unique_ptr<ServerDatabase> db, const Shared& shared);
    ~RequestHandler();

    // Routes one request; the database gives up at `deadline`.
    HttpAnswer handle(HttpCall call, QDeadlineTimer deadline = QDeadlineTimer::Forever);

    ServerDatabase& database() { return *m_db; }
    Accounts& accounts() { return *m_accounts; }
    ResourceStore& resources() { return *m_resources; }

private:
    HttpAnswer route(const HttpCall& call);

    const Shared& m_shared;
    std::unique_ptr<ServerDatabase> m_db;
    std::unique_ptr<Accounts> m_accounts;
    std::unique_ptr<ResourceStore> m_resources;
    std::unique_ptr<ApiHandler> m_api;
    std::unique_ptr<Sessions> m_sessions;
    std::unique_ptr<WebPages> m_web;
};
