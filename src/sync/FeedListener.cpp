#include "FeedListener.h"

#include "APIClient.h"
#include "APIError.h"
#include "AuthService.h"
#include "Clock.h"
#include "Pause.h"
#include "SyncBaseStore.h"
#include "SyncCopies.h"
#include "SyncStatus.h"
#include "VersionedSync.h"

#include <QScopeGuard>
#include <QTimer>

namespace {
// Start-up is not slowed by the network: the feed is joined a little later.
constexpr std::chrono::seconds feedAfterStart{3};
} // namespace

FeedListener::FeedListener(APIClient& client, SyncBaseStore& bases, AuthService& auth,
                           SyncStatus& status, VersionedSync& versioned, const Clock& clock)
    : m_client(client)
    , m_bases(bases)
    , m_auth(auth)
    , m_status(status)
    , m_versioned(versioned)
    , m_clock(clock)
{}

void FeedListener::listen()
{
    QCoro::connect(run(), this, [] {});
}

void FeedListener::listenSoon()
{
    if (!m_status.keepsInStep() || m_listening)
        return;
    QTimer::singleShot(feedAfterStart, this, [this] { listen(); });
}

void FeedListener::stop()
{
    delete m_scope;
}

QCoro::Task<> FeedListener::run()
{
    if (m_listening)
        co_return;
    const QPointer<FeedListener> self(this);
    m_listening = true;
    const auto end = qScopeGuard([self] {
        if (self)
            self->m_listening = false;
    });
    int failures = 0;
    while (self && m_status.keepsInStep() && m_status.hasVersions() && m_auth.isSignedIn()) {
        const QString server = APIClient::serverURLString();
        APIClient::Versions known;
        for (const QString& resource : SyncCopies::resources) {
            const auto base = m_bases.load(resource, server);
            known.insert(resource, base ? base->version : 0);
        }
        auto* scope = new QObject(this);
        m_scope = scope;
        const auto answer = co_await m_client.changes(known, scope);
        if (!self)
            co_return;
        const bool stopped = !m_scope;
        delete m_scope;
        if (stopped)
            co_return;
        if (!answer) {
            if (answer.error().kind() == APIError::Kind::Unauthorized) {
                m_status.failed(answer.error(), {});
                co_return;
            }
            // The server is away: ask again later, as failed pushes do.
            const auto wait = m_versioned.backoff(failures++);
            co_await Pause(wait);
            continue;
        }
        failures = 0;
        if (!answer.value())
            continue;
        for (const QString& resource : SyncCopies::resources) {
            if (answer.value()->value(resource, -1) == known.value(resource))
                continue;
            co_await m_versioned.sync(resource, std::nullopt, true);
            if (!self)
                co_return;
        }
        if (m_status.lastError().isEmpty())
            m_status.setLastSyncedAt(m_clock.now());
    }
}
