#include "ChangeFeed.h"

#include <QJsonDocument>
#include <QJsonObject>
#include <QTimer>

ChangeFeed::ChangeFeed(std::chrono::milliseconds patience, QObject* parent)
    : QObject(parent)
    , m_patience(patience)
    , m_timer(new QTimer(this))
{
    m_timer->setSingleShot(true);
    connect(m_timer, &QTimer::timeout, this, &ChangeFeed::expire);
    m_age.start();
}

void ChangeFeed::changed(qint64 userId, int kind, qint64 version)
{
    QMetaObject::invokeMethod(this, [=, this] { onChanged(userId, kind, version); });
}

void ChangeFeed::wait(qint64 userId, const Versions& known, Reply reply)
{
    QMetaObject::invokeMethod(this, [this, userId, known, reply = std::move(reply)]() mutable {
        onWait(userId, known, std::move(reply));
    });
}

HttpAnswer ChangeFeed::moved(const Versions& versions)
{
    const QJsonObject body{{QStringLiteral("habits"), versions[0]},
                           {QStringLiteral("tasks"), versions[1]},
                           {QStringLiteral("pomodoro"), versions[2]}};
    return HttpAnswer::json(200, QJsonDocument(body).toJson(QJsonDocument::Compact));
}

HttpAnswer ChangeFeed::unmoved()
{
    return HttpAnswer{304, {}, {}, {}, {}};
}

void ChangeFeed::onChanged(qint64 userId, int kind, qint64 version)
{
    Versions& latest = m_latest[userId];
    latest[kind] = std::max(latest[kind], version);
    const QList<quint64> ids = m_byUser.values(userId);
    for (quint64 id : ids) {
        Waiter& waiter = m_waiters[id];
        if (waiter.known[kind] >= version)
            continue;
        Versions now = waiter.known;
        for (int k = 0; k < 3; ++k)
            now[k] = std::max(now[k], latest[k]);
        answer(id, moved(now));
    }
}

void ChangeFeed::onWait(qint64 userId, const Versions& known, Reply reply)
{
    if (m_released) {
        reply(unmoved());
        return;
    }
    const auto latest = m_latest.constFind(userId);
    if (latest != m_latest.cend()) {
        Versions now = known;
        bool newer = false;
        for (int k = 0; k < 3; ++k) {
            newer = newer || (*latest)[k] > known[k];
            now[k] = std::max(now[k], (*latest)[k]);
        }
        if (newer) {
            reply(moved(now));
            return;
        }
    }
    const quint64 id = m_nextId++;
    m_waiters.insert(id, Waiter{userId, known, std::move(reply)});
    m_byUser.insert(userId, id);
    m_due.emplace_back(m_age.elapsed() + m_patience.count(), id);
    if (!m_timer->isActive())
        m_timer->start(m_patience);
}

void ChangeFeed::answer(quint64 id, const HttpAnswer& answer)
{
    const auto found = m_waiters.find(id);
    if (found == m_waiters.end())
        return;
    const Reply reply = std::move(found->reply);
    m_byUser.remove(found->userId, id);
    m_waiters.erase(found);
    reply(answer);
}

void ChangeFeed::expire()
{
    // Answered waiters leave their place in the queue behind; they are skipped here.
    const qint64 now = m_age.elapsed();
    while (!m_due.empty() && m_due.front().first <= now) {
        answer(m_due.front().second, unmoved());
        m_due.pop_front();
    }
    while (!m_due.empty() && !m_waiters.contains(m_due.front().second))
        m_due.pop_front();
    if (!m_due.empty())
        m_timer->start(std::chrono::milliseconds(m_due.front().first - now));
}

void ChangeFeed::release()
{
    const QList<quint64> ids = m_waiters.keys();
    for (quint64 id : ids)
        answer(id, unmoved());
    m_due.clear();
    m_timer->stop();
    m_released = true;
}
