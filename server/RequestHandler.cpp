#include "RequestHandler.h"

#include "Accounts.h"
#include "ApiHandler.h"
#include "OutageLog.h"
#include "ResourceStore.h"
#include "Sessions.h"
#include "TrustedProxies.h"

RequestHandler::RequestHandler(std::unique_ptr<ServerDatabase> db, const Shared& shared)
    : m_shared(shared)
    , m_db(std::move(db))
    , m_accounts(std::make_unique<Accounts>(*m_db, shared.clock))
    , m_resources(std::make_unique<ResourceStore>(*m_db, shared.clock))
    , m_api(std::make_unique<ApiHandler>(*m_db, *m_accounts, *m_resources, shared.feed))
    , m_sessions(std::make_unique<Sessions>(*m_db, shared.clock))
    , m_web(std::make_unique<WebPages>(*m_accounts, *m_sessions, shared.clock, shared.web,
                                       shared.throttle))
{}

RequestHandler::~RequestHandler() = default;

HttpAnswer RequestHandler::route(const HttpCall& call)
{
    if (ApiHandler::handles(call.path))
        return m_api->handle(call);
    if (WebPages::handles(call.path))
        return m_web->handle(call);
    return HttpAnswer::error(404, QStringLiteral("not found"));
}

HttpAnswer RequestHandler::handle(HttpCall call, QDeadlineTimer deadline)
{
    if (call.client.isNull())
        m_shared.proxies.resolve(call);
    m_db->setDeadline(deadline);
    const int failuresBefore = m_db->storageFailures();
    HttpAnswer answer = route(call);
    if (m_db->storageFailures() != failuresBefore) {
        m_shared.outages.failed(m_db->lastFailure());
        // Whatever a handler made of a failed look-up, it was not the answer.
        if (answer.status >= 400 && answer.status != 503)
            answer = ApiHandler::handles(call.path)
                         ? HttpAnswer::unavailable(
                               QStringLiteral("the database is not available; try again shortly"))
                         : m_web->unavailablePage();
    } else {
        m_shared.outages.answered();
    }
    m_db->setDeadline(QDeadlineTimer::Forever);

    // Nothing of ours is meant to be framed, sniffed or cached.
    answer.addHeader("X-Content-Type-Options", "nosniff");
    answer.addHeader("Cache-Control", "no-store");
    if (m_shared.strictTransport)
        answer.addHeader("Strict-Transport-Security", "max-age=31536000");
    return answer;
}
