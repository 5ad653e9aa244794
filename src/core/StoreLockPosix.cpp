#include "StoreLock.h"

#include <QFile>

#include <cerrno>
#include <cstring>
#include <fcntl.h>
#include <sys/file.h>
#include <unistd.h>

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
    return std::unique_ptr<StoreLock>(new StoreLock(fd));
}

StoreLock::StoreLock(int fd)
    : m_fd(fd)
{}

StoreLock::~StoreLock()
{
    ::close(m_fd);
}
