#include "UnixSignalWatcher.h"

#include <QSocketNotifier>

#include <csignal>
#include <sys/socket.h>
#include <unistd.h>

namespace {
int pipeFds[2] = {-1, -1};

void onSignal(int)
{
    const char byte = 1;
    // Only async-signal-safe work here; the main loop does the rest.
    [[maybe_unused]] const ssize_t n = ::write(pipeFds[0], &byte, 1);
}
} // namespace

UnixSignalWatcher::UnixSignalWatcher(QObject* parent)
    : QObject(parent)
{
    if (::socketpair(AF_UNIX, SOCK_STREAM, 0, pipeFds) != 0)
        return;
    m_notifier = new QSocketNotifier(pipeFds[1], QSocketNotifier::Read, this);
    connect(m_notifier, &QSocketNotifier::activated, this, [this] {
        char byte = 0;
        [[maybe_unused]] const ssize_t n = ::read(pipeFds[1], &byte, 1);
        emit terminationRequested();
    });
    struct sigaction action = {};
    action.sa_handler = onSignal;
    sigemptyset(&action.sa_mask);
    action.sa_flags = SA_RESTART;
    sigaction(SIGTERM, &action, nullptr);
    sigaction(SIGINT, &action, nullptr);
}

UnixSignalWatcher::~UnixSignalWatcher()
{
    signal(SIGTERM, SIG_DFL);
    signal(SIGINT, SIG_DFL);
}
