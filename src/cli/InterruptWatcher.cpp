#include "InterruptWatcher.h"

#include <QSocketNotifier>

#include <atomic>
#include <csignal>
#include <fcntl.h>
#include <unistd.h>

namespace tw::cli {

namespace {

std::atomic<bool> interruptedFlag{false};
int pipeFds[2] = {-1, -1};

extern "C" void onInterrupt(int) {
    interruptedFlag.store(true);
    if (pipeFds[1] >= 0) {
        const char byte = 1;
        [[maybe_unused]] const ssize_t written = ::write(pipeFds[1], &byte, 1);
    }
}

} // namespace

InterruptWatcher& InterruptWatcher::instance() {
    static InterruptWatcher* watcher = new InterruptWatcher;
    return *watcher;
}

void InterruptWatcher::install() {
    if (m_notifier)
        return;
    if (::pipe2(pipeFds, O_CLOEXEC | O_NONBLOCK) != 0)
        return;
    m_notifier = new QSocketNotifier(pipeFds[0], QSocketNotifier::Read, this);
    connect(m_notifier, &QSocketNotifier::activated, this, &InterruptWatcher::readPipe);

    struct sigaction action = {};
    action.sa_handler = onInterrupt;
    sigemptyset(&action.sa_mask);
    action.sa_flags = 0; // no SA_RESTART: a waiting read returns with EINTR
    ::sigaction(SIGINT, &action, nullptr);
    ::sigaction(SIGTERM, &action, nullptr);
}

bool InterruptWatcher::wasInterrupted() {
    return interruptedFlag.load();
}

void InterruptWatcher::clear() {
    interruptedFlag.store(false);
}

void InterruptWatcher::readPipe() {
    char buffer[64];
    bool any = false;
    while (::read(pipeFds[0], buffer, sizeof buffer) > 0)
        any = true;
    if (any)
        emit interrupted();
}

} // namespace tw::cli
