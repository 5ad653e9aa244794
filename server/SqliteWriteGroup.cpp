#include "SqliteWriteGroup.h"

#include <QHash>

std::shared_ptr<SqliteWriteGroup> SqliteWriteGroup::of(const QString& path)
{
    if (path.isEmpty())
        return std::make_shared<SqliteWriteGroup>();
    // A weak map, so that a file nobody uses any more does not keep its group.
    static std::mutex guard;
    static QHash<QString, std::weak_ptr<SqliteWriteGroup>> groups;
    const std::lock_guard<std::mutex> hold(guard);
    std::shared_ptr<SqliteWriteGroup> group = groups.value(path).lock();
    if (!group) {
        group = std::make_shared<SqliteWriteGroup>();
        groups.insert(path, group);
    }
    return group;
}

bool SqliteWriteGroup::join(Pending* pending)
{
    const std::lock_guard<std::mutex> hold(m_mutex);
    m_queue.push_back(pending);
    if (m_leading)
        return false;
    m_leading = true;
    return true;
}

void SqliteWriteGroup::wait(Pending* pending)
{
    std::unique_lock<std::mutex> hold(m_mutex);
    m_wake.wait(hold, [pending] { return pending->done || pending->lead; });
}

std::deque<SqliteWriteGroup::Pending*> SqliteWriteGroup::takeQueued()
{
    const std::lock_guard<std::mutex> hold(m_mutex);
    return std::exchange(m_queue, {});
}

void SqliteWriteGroup::finish(const std::deque<Pending*>& batch)
{
    {
        const std::lock_guard<std::mutex> hold(m_mutex);
        for (Pending* p : batch)
            p->done = true;
        // The leader's own request is answered now; whoever waits longest leads
        // the next group.
        if (m_queue.empty())
            m_leading = false;
        else
            m_queue.front()->lead = true;
    }
    m_wake.notify_all();
}
