#include "StoreLock.h"

#include <QLockFile>

// No advisory locks to lean on: a lock file that records its process. One whose
// process is gone counts as stale and is taken over.
struct StoreLock::Held
{
    explicit Held(const QString& path)
        : file(path)
    {}
    QLockFile file;
};

std::unique_ptr<StoreLock> StoreLock::acquire(const QString& storePath, bool* heldElsewhere,
                                              QString* error)
{
    auto held = std::make_unique<Held>(storePath + QStringLiteral(".lock"));
    // Held for the whole run, so its age says nothing.
    held->file.setStaleLockTime(0);
    const bool locked = held->file.tryLock(0);
    *heldElsewhere = !locked && held->file.error() == QLockFile::LockFailedError;
    if (!locked) {
        *error = *heldElsewhere
                     ? QStringLiteral("another Tidewell uses this store")
                     : QStringLiteral("cannot create the lock file %1.lock").arg(storePath);
        return nullptr;
    }
    return std::unique_ptr<StoreLock>(new StoreLock(std::move(held)));
}

StoreLock::StoreLock(std::unique_ptr<Held> held)
    : m_held(std::move(held))
{}

StoreLock::~StoreLock() = default;
