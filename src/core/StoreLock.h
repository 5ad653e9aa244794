#pragma once

#include <QString>

#include <memory>

// An advisory lock on a file beside the store, held for as long as the process
// runs: whatever happens to the single-instance socket, two processes never write
// one store. One implementation per platform.
class StoreLock
{
public:
    // The lock for the store at `storePath`, or null: `heldElsewhere` when another
    // process holds it, otherwise the lock file could not be made (`error` says why).
    static std::unique_ptr<StoreLock> acquire(const QString& storePath, bool* heldElsewhere,
                                              QString* error);
    ~StoreLock();

    StoreLock(const StoreLock&) = delete;
    StoreLock& operator=(const StoreLock&) = delete;

private:
    struct Held; // what the platform holds the lock by
    explicit StoreLock(std::unique_ptr<Held> held);
    std::unique_ptr<Held> m_held;
};
