#include "NotificationService.h"

#include "Clock.h"
#include "NotificationBackend.h"
#include "Pause.h"

#include <QMutexLocker>
#include <QPointer>
#include <QTimer>
#include <QUuid>

namespace {
// Waits are cut into steps so a machine waking from suspend delivers on time by the
// wall clock (a monotonic timer stops while suspended).
constexpr qint64 maxStepMs = 60'000;
} // namespace

NotificationService::NotificationService(const Clock& clock,
                                         std::unique_ptr<NotificationBackend> backend,
                                         QObject* parent)
    : QObject(parent)
    , m_clock(clock)
    , m_backend(std::move(backend))
{}

NotificationService::~NotificationService() = default;

QCoro::Task<std::optional<QString>>
NotificationService::schedule(const QString& title, const QString& body, const QDateTime& fireAt)
{
    if (m_clock.now().msecsTo(fireAt) <= 0)
        co_return std::nullopt;
    const QString id = QUuid::createUuid().toString(QUuid::WithoutBraces);
    auto* timer = new QTimer(this);
    timer->setSingleShot(true);
    timer->setTimerType(Qt::PreciseTimer);
    connect(timer, &QTimer::timeout, this, [this, id] { deliverIfDue(id); });
    {
        QMutexLocker locker(&m_lock);
        m_pending.insert(id, {timer, title, body, fireAt});
    }
    timer->start(int(std::min(m_clock.now().msecsTo(fireAt), maxStepMs)));
    co_return id;
}

void NotificationService::deliverIfDue(const QString& id)
{
    Pending due;
    {
        QMutexLocker locker(&m_lock);
        const auto found = m_pending.constFind(id);
        if (found == m_pending.cend())
            return;
        const qint64 left = m_clock.now().msecsTo(found->fireAt);
        if (left > 0) {
            found->timer->start(int(std::min(left, maxStepMs)));
            return;
        }
        due = m_pending.take(id);
    }
    due.timer->stop();
    due.timer->deleteLater();
    deliver(id, due.title, due.body);
}

void NotificationService::deliverDue()
{
    const QList<QString> ids = pendingIDs().values();
    for (const QString& id : ids)
        deliverIfDue(id);
}

void NotificationService::deliver(const QString& id, const QString& title, const QString& body)
{
    QCoro::connect(m_backend->notify(title, body), this, [this, id](const QString& error) {
        if (!error.isEmpty())
            qWarning("NotificationService schedule failed: %s", qPrintable(error));
        emit delivered(id);
    });
}

void NotificationService::cancel(const QString& id)
{
    deliverIfDue(id);
    Pending withdrawn;
    {
        QMutexLocker locker(&m_lock);
        withdrawn = m_pending.take(id);
    }
    if (withdrawn.timer) {
        withdrawn.timer->stop();
        withdrawn.timer->deleteLater();
    }
}

void NotificationService::cancelAll()
{
    QHash<QString, Pending> pending;
    {
        QMutexLocker locker(&m_lock);
        pending.swap(m_pending);
    }
    for (const Pending& request : std::as_const(pending)) {
        request.timer->stop();
        request.timer->deleteLater();
    }
}

QCoro::Task<QString> NotificationService::fireTest()
{
    const QPointer<NotificationService> self(this);
    co_await Pause(std::chrono::milliseconds(500));
    if (!self)
        co_return QString();
    co_return co_await m_backend->notify(QStringLiteral("Tidewell"),
                                         QStringLiteral("Notifications are working."));
}

QCoro::Task<> NotificationService::checkAuthorization()
{
    const QString error = co_await m_backend->checkServer();
    if (!error.isEmpty())
        qWarning("NotificationService auth error: %s", qPrintable(error));
}

QSet<QString> NotificationService::pendingIDs() const
{
    QMutexLocker locker(&m_lock);
    const QList<QString> keys = m_pending.keys();
    return QSet<QString>(keys.begin(), keys.end());
}
