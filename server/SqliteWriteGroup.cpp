#include "SqliteWriteGroup.h"

#include <QHash>

#include <sqlite3.h>

#include <chrono>

namespace {
// Frames in the log after which it is copied back into the database file, and
// after which it is also started afresh.
constexpr int checkpointPages = 1000;
constexpr int restartPages = 4 * checkpointPages;
} // namespace

SqliteWriteGroup::SqliteWriteGroup(QString path)
    : m_path(std::move(path))
{
    if (!m_path.isEmpty())
        m_checkpointer = std::thread([this] { checkpoints(); });
}

SqliteWriteGroup::~SqliteWriteGroup()
{
    if (!m_checkpointer.joinable())
        return;
    {
        const std::lock_guard<std::mutex> hold(m_checkpointMutex);
        m_stopping = true;
    }
    m_checkpointWake.notify_one();
    m_checkpointer.join();
}

void SqliteWriteGroup::noteLogPages(int pages)
{
    if (pages < checkpointPages || m_path.isEmpty())
        return;
    {
        const std::lock_guard<std::mutex> hold(m_checkpointMutex);
        m_checkpointDue = true;
    }
    m_checkpointWake.notify_one();
}

void SqliteWriteGroup::checkpoints()
{
    sqlite3* db = nullptr;
    for (;;) {
        {
            std::unique_lock<std::mutex> hold(m_checkpointMutex);
            m_checkpointWake.wait(hold, [this] { return m_checkpointDue || m_stopping; });
            if (m_stopping)
                break;
            m_checkpointDue = false;
        }
        // A fresh connection learns that the file is in WAL mode only once it reads
        // it; until then a checkpoint does nothing.
        if (!db &&
            (sqlite3_open_v2(m_path.toUtf8().constData(), &db,
                             SQLITE_OPEN_READWRITE | SQLITE_OPEN_NOMUTEX, nullptr) != SQLITE_OK ||
             sqlite3_exec(db, "PRAGMA journal_mode = WAL", nullptr, nullptr, nullptr) !=
                 SQLITE_OK)) {
            sqlite3_close(db);
            db = nullptr;
            continue;
        }
        // Passive: never waits for a reader or a writer; what it cannot copy now
        // the next one will.
        int logFrames = 0, copied = 0;
        sqlite3_wal_checkpoint_v2(db, nullptr, SQLITE_CHECKPOINT_PASSIVE, &logFrames, &copied);
        // Under steady load some reader always holds an old snapshot, so the log is
        // never started afresh and grows without end (and every read searches it).
        // Once it is long, writers wait a moment while it is copied and restarted.
        if (logFrames >= restartPages && writeLock.try_lock_for(std::chrono::seconds(1))) {
            sqlite3_busy_timeout(db, 1000);
            sqlite3_wal_checkpoint_v2(db, nullptr, SQLITE_CHECKPOINT_TRUNCATE, nullptr, nullptr);
            writeLock.unlock();
        }
    }
    sqlite3_close(db);
}

std::shared_ptr<SqliteWriteGroup> SqliteWriteGroup::of(const QString& path)
{
    if (path.isEmpty())
        return std::make_shared<SqliteWriteGroup>(QString());
    // A weak map, so that a file nobody uses any more does not keep its group.
    static std::mutex guard;
    static QHash<QString, std::weak_ptr<SqliteWriteGroup>> groups;
    const std::lock_guard<std::mutex> hold(guard);
    std::shared_ptr<SqliteWriteGroup> group = groups.value(path).lock();
    if (!group) {
        group = std::make_shared<SqliteWriteGroup>(path);
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
