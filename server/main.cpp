#include "ServerCommand.h"

#include <QCoreApplication>

#include <malloc.h>
#include <sys/resource.h>

int main(int argc, char* argv[])
{
    // Request threads free what the accepting thread allocated. With glibc's
    // defaults each thread's heap is trimmed back to the kernel after almost every
    // request (an madvise and a TLB flush on every core); keep a little free memory
    // instead, and give large blocks (request bodies) back at once.
    mallopt(M_TRIM_THRESHOLD, 1 << 20);
    mallopt(M_MMAP_THRESHOLD, 256 << 10);
    // The plain Unix event loop: the GLib one costs memory and time and brings
    // nothing a server needs.
    if (qEnvironmentVariableIsEmpty("QT_NO_GLIB"))
        qputenv("QT_NO_GLIB", "1");
    // Every app on the change feed holds a connection: take all the descriptors the
    // system allows (a service manager's soft limit is often 1024).
    if (rlimit files{}; getrlimit(RLIMIT_NOFILE, &files) == 0 && files.rlim_cur < files.rlim_max) {
        files.rlim_cur = files.rlim_max;
        setrlimit(RLIMIT_NOFILE, &files);
    }
    QCoreApplication app(argc, argv);
    QCoreApplication::setApplicationName(QStringLiteral("tidewell-server"));
    QCoreApplication::setApplicationVersion(QStringLiteral(TIDEWELL_VERSION));
    QStringList arguments = QCoreApplication::arguments();
    arguments.removeFirst();
    return ServerCommand::run(arguments);
}
