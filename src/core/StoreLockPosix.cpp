#include "StoreLock.h"

#include <QFile>

#include <cerrno>
#include <cstring>
#include <fcntl.h>
#include <sys/file.h>
#include <unistd.h>

struct StoreLock::Held
{
    explicit Held(int descriptor)
        : fd(descriptor)
    {}
    ~Held() { ::close(fd); }
    Held(const Held&) = delete;
    Held& operator=(const Held&) = delete;
    int fd;
};

std::unique_ptr<StoreLock> StoreLock::acquire(const QString& storePath, bool* heldElsewhere,
                                              QString* error)
{
    *heldElsewhere = false;
    const QByteArray path = QFile::encodeName(storePath + QStringLiteral(".lock"));
    const int fd = ::open(path.constData(), O_RDWR | O_CREAT | O_CLOEXEC, 0600);
    if (fd < 0) {
        *error = QString::fromLocal8Bit(std::strerror(errno));
        return nullptr;
    }
    // The kernel lets go of it when the process ends, however it ends.
    if (::flock(fd, LOCK_EX | LOCK_NB) != 0) {
        *heldElsewhere = errno == EWOULDBLOCK;
        *error = *heldElsewhere ? QStringLiteral("another Tidewell uses this store")
                                : QString::fromLocal8Bit(std::strerror(errno));
        ::close(fd);
        return nullptr;
    }
    return std::unique_ptr<StoreLock>(new StoreLock(std::make_unique<Held>(fd)));
}

StoreLock::StoreLock(std::unique_ptr<Held> held)
    : m_held(std::move(held))
{}

StoreLock::~StoreLock() = default;
