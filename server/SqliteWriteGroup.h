#pragma once

#include <QString>

#include <condition_variable>
#include <deque>
#include <functional>
#include <memory>
#include <mutex>
#include <thread>

class ServerDatabase;

// What the connections of one process to one SQLite file share for writing: the
// lock writers take turns on, and the queue of transactions waiting to be
// committed together. Every commit costs an fsync; transactions that arrive while
// one is being written are run by one connection, each in a savepoint of its own,
// and made durable by one commit (group commit), so that many writers cost little
// more than one. The log is copied back into the file by a thread of the group's
// own, so that no request waits for a checkpoint either.
class SqliteWriteGroup
{
public:
    explicit SqliteWriteGroup(QString path);
    ~SqliteWriteGroup();
    SqliteWriteGroup(const SqliteWriteGroup&) = delete;
    SqliteWriteGroup& operator=(const SqliteWriteGroup&) = delete;

    using Work = std::function<bool(ServerDatabase& db, QString* error)>;

    struct Pending
    {
        const Work* work = nullptr;
        bool done = false;
        bool lead = false; // told to lead the next group
        bool ok = false;
        QString error;
    };

    // The group of the file at `path` (empty: a private in-memory database).
    static std::shared_ptr<SqliteWriteGroup> of(const QString& path);

    std::timed_mutex writeLock;

    // Queues `pending`; true when the caller is to lead (run the queue), false when
    // it is to wait for a leader to run it.
    bool join(Pending* pending);
    // Waits until `pending` is done or is to lead.
    void wait(Pending* pending);
    // Takes what is queued, for the leader to run.
    std::deque<Pending*> takeQueued();
    // Marks `batch` done, wakes its writers, and hands the lead to the next one
    // waiting, if any.
    void finish(const std::deque<Pending*>& batch);
    // The log has grown by `pages` since it was last copied back; past a threshold
    // the checkpoint thread is woken.
    void noteLogPages(int pages);

private:
    void checkpoints();

    const QString m_path;
    std::thread m_checkpointer;
    std::mutex m_checkpointMutex;
    std::condition_variable m_checkpointWake;
    bool m_checkpointDue = false;
    bool m_stopping = false;

    std::mutex m_mutex;
    std::condition_variable m_wake;
    std::deque<Pending*> m_queue;
    bool m_leading = false;
};
