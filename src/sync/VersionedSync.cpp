#include "VersionedSync.h"

#include "APIError.h"
#include "AuthService.h"
#include "Clock.h"
#include "SyncBaseStore.h"
#include "SyncStatus.h"

#include <QPointer>
#include <QTimer>

#include <utility>

namespace {
// Tries of one push against a server others keep changing.
constexpr int maxAttempts = 5;

bool isStale(const APIError& error)
{
    return error.kind() == APIError::Kind::Http && error.status() == 412;
}
} // namespace

VersionedSync::VersionedSync(APIClient& client, SyncBaseStore& bases, AuthService& auth,
                             SyncCopies& copies, SyncStatus& status, const Clock& clock,
                             PlainPush plainPush)
    : m_client(client)
    , m_bases(bases)
    , m_auth(auth)
    , m_copies(copies)
    , m_status(status)
    , m_clock(clock)
    , m_plainPush(std::move(plainPush))
{}

void VersionedSync::setRetryDelays(std::chrono::milliseconds first,
                                   std::chrono::milliseconds longest)
{
    m_firstRetry = first;
    m_longestRetry = longest;
}

std::chrono::milliseconds VersionedSync::backoff(int failures) const
{
    const std::chrono::milliseconds delay = m_firstRetry * (qint64(1) << std::min(failures, 16));
    return std::min(m_longestRetry, delay);
}

void VersionedSync::keep(const QString& resource, const SyncBase& base)
{
    QString why;
    if (!m_bases.save(resource, base, &why))
        qWarning("SyncEngine: could not keep the %s merge base (%s)", qPrintable(resource),
                 qPrintable(why));
}

VersionedSync::Outcome VersionedSync::failedRequest(const APIError& error, const QString& resource,
                                                    const QString& prefix)
{
    m_status.failed(error, prefix);
    if (error.kind() == APIError::Kind::Transport ||
        (error.kind() == APIError::Kind::Http && error.status() >= 500))
        retryLater(resource);
    return Outcome::Failed;
}

void VersionedSync::retryLater(const QString& resource)
{
    if (m_retryPending.contains(resource))
        return;
    const int failures = m_failures.value(resource);
    m_failures.insert(resource, failures + 1);
    const auto delay = backoff(failures);
    m_retryPending.insert(resource);
    QTimer::singleShot(delay, this, [this, resource] {
        m_retryPending.remove(resource);
        if (m_auth.isSignedIn() && m_status.hasVersions())
            QCoro::connect(sync(resource, std::nullopt, false), this, [] {});
    });
}

bool VersionedSync::applyCopy(const QString& resource, const QByteArray& body)
{
    if (!m_copies.readable()) {
        m_status.setLastError(QStringLiteral("Pull failed: ") + SyncCopies::unreadable);
        return false;
    }
    m_status.setApplyingRemote(true);
    QString why;
    const bool saved = m_copies.apply(resource, body, &why);
    m_status.setApplyingRemote(false);
    if (!saved)
        m_status.setLastError(why);
    return saved;
}

QCoro::Task<> VersionedSync::sync(QString resource, std::optional<APIClient::Tagged> fetched,
                                  bool pull)
{
    if (m_running.contains(resource)) {
        // The run under way reads the local copy afresh on its next try; a
        // change it did not see is sent by the run after it.
        m_again.insert(resource);
        co_return;
    }
    const QPointer<VersionedSync> self(this);
    m_running.insert(resource);
    Outcome outcome = co_await syncVersioned(resource, std::move(fetched), pull);
    while (self && outcome != Outcome::Plain && m_again.remove(resource))
        outcome = co_await syncVersioned(resource, std::nullopt, false);
    if (!self)
        co_return;
    m_running.remove(resource);
    if (outcome == Outcome::Plain) {
        // The server stopped keeping versions: back to plain pushes.
        m_again.remove(resource);
        m_status.setHasVersions(false);
        if (!pull)
            co_await m_plainPush(resource);
    }
}

QCoro::Task<VersionedSync::Outcome>
VersionedSync::syncVersioned(QString resource, std::optional<APIClient::Tagged> fetched, bool pull)
{
    const QPointer<VersionedSync> self(this);
    const QString prefix = QStringLiteral("Push (%1) failed: ").arg(resource);
    const QString server = APIClient::serverURLString();
    for (int attempt = 0; attempt < maxAttempts; ++attempt) {
        const QDate today = m_clock.now().toLocalTime().date();
        const Attempt at{resource, server, prefix, today, m_bases.load(resource, server)};
        const auto& base = at.base;
        const auto local = m_copies.localCopy(resource);
        if (!local) {
            m_status.setLastError(prefix + SyncCopies::unreadable);
            co_return Outcome::Failed;
        }
        // A copy fetched before this computer's last push landed is older than
        // the base: it is fetched again.
        if (fetched && base && APIClient::versionOf(fetched->etag).value_or(0) < base->version)
            fetched.reset();
        APIClient::Tagged theirs;
        bool fetch = false;
        if (fetched) {
            theirs = *std::exchange(fetched, std::nullopt);
        } else if (pull && attempt == 0) {
            fetch = true;
        } else if (base && local->body == base->body) {
            co_return Outcome::Done;
        } else {
            const auto pushed = co_await pushLocal(at, *local);
            if (pushed)
                co_return *pushed;
            fetch = true;
        }
        if (fetch) {
            const auto got = co_await m_client.fetch(resource);
            if (!self)
                co_return Outcome::Failed;
            if (!got)
                co_return failedRequest(got.error(), resource, prefix);
            theirs = got.value();
        }
        if (const auto outcome = takeServerCopy(at, theirs))
            co_return *outcome;
        pull = false;
    }
    m_status.setLastError(prefix +
                          QStringLiteral("the server's copy kept changing; will try again"));
    retryLater(resource);
    co_return Outcome::Failed;
}

QCoro::Task<std::optional<VersionedSync::Outcome>>
VersionedSync::pushLocal(Attempt attempt, SyncCopies::LocalCopy local)
{
    const QPointer<VersionedSync> self(this);
    const QString& resource = attempt.resource;
    const QString& prefix = attempt.prefix;
    // Without a base this computer's copy replaces the server's, as a plain push
    // does; the version it makes becomes the base.
    const auto put = co_await m_client.store(
        resource, local.body, attempt.base ? std::optional(attempt.base->version) : std::nullopt);
    if (!self)
        co_return Outcome::Failed;
    if (put) {
        const auto version = APIClient::versionOf(put.value().etag);
        if (!version)
            co_return Outcome::Plain;
        keep(resource, {attempt.server, *version, local.body, local.ids, attempt.today});
        m_failures.remove(resource);
        if (m_status.lastError().startsWith(prefix))
            m_status.setLastError({});
        co_return Outcome::Done;
    }
    if (!isStale(put.error()))
        co_return failedRequest(put.error(), resource, prefix);
    co_return std::nullopt;
}

std::optional<VersionedSync::Outcome> VersionedSync::takeServerCopy(const Attempt& attempt,
                                                                    const APIClient::Tagged& theirs)
{
    const auto& [resource, server, prefix, today, base] = attempt;
    const auto version = APIClient::versionOf(theirs.etag);
    if (!version)
        return Outcome::Plain;
    QString why;
    const auto copy = m_copies.canonical(resource, theirs.body, &why);
    if (!copy) {
        m_status.failed(APIError::decoding(why), {});
        return Outcome::Failed;
    }
    // Read again: the user may have changed more while the server answered, and
    // the merge is applied over what is there now.
    const auto current = m_copies.localCopy(resource);
    if (!current) {
        m_status.setLastError(prefix + SyncCopies::unreadable);
        return Outcome::Failed;
    }
    // A copy equal to this computer's is still merged: the same count on both
    // sides is two sets of raises.
    if (!base || current->body == base->body) {
        // Nothing of this computer's to keep: the server's copy is taken.
        if (*copy != current->body && !applyCopy(resource, *copy))
            return Outcome::Failed;
        const auto now = m_copies.localCopy(resource);
        keep(resource, {server, *version, *copy, now ? now->ids : current->ids, today});
        return Outcome::Done;
    }
    QByteArray ids = base->ids;
    if (*copy != base->body) {
        SyncMerge::Origins origins;
        const auto result =
            m_copies.merged(resource, *base, *current, *copy, theirs.storedAt, &origins);
        if (!result) {
            m_status.setLastError(prefix + QStringLiteral("could not merge the server's copy"));
            return Outcome::Failed;
        }
        if (*result != current->body && !applyCopy(resource, *result))
            return Outcome::Failed;
        // This computer's records as the server's copy holds them, for the
        // renames of the next merge.
        ids = m_copies.serverIds(resource, origins, *copy);
    }
    // The server's copy is the new base; the next try pushes the merge on it.
    keep(resource, {server, *version, *copy, ids, today});
    return std::nullopt;
}
