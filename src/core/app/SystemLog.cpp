#include "SystemLog.h"

#include "AppInfo.h"
#include "SecretMask.h"

#include <QMutex>

#include <cstdio>
#include <syslog.h>

namespace tw {

namespace {

struct State {
    QMutex mutex;
    bool opened = false;
    int echo = -1; // -1: not decided yet, read TARNWELL_VERBOSE
    SystemLog::Observer observer;
};

State& state() {
    static State s;
    return s;
}

} // namespace

void SystemLog::write(const QString& text) {
    const QString line = SecretMask::apply(text);
    State& s = state();
    QMutexLocker lock(&s.mutex);
    if (!s.opened) {
        openlog("tarnwell", LOG_PID, LOG_USER);
        s.opened = true;
    }
    if (s.echo < 0)
        s.echo = qEnvironmentVariableIsSet("TARNWELL_VERBOSE") ? 1 : 0;

    QByteArray bytes;
    if (line.size() > maximumLength) {
        bytes = line.left(maximumLength).toUtf8() + " ... (" +
                QByteArray::number(line.size() - maximumLength) + " more characters)";
    } else {
        bytes = line.toUtf8();
    }
    syslog(LOG_INFO, "%s", bytes.constData());
    if (s.echo == 1) {
        std::fprintf(stderr, "%s\n", bytes.constData());
        std::fflush(stderr);
    }
    if (s.observer) {
        auto observer = s.observer;
        lock.unlock();
        observer(line);
    }
}

void SystemLog::setEchoToStandardError(bool echo) {
    QMutexLocker lock(&state().mutex);
    state().echo = echo ? 1 : 0;
}

void SystemLog::setObserver(Observer observer) {
    QMutexLocker lock(&state().mutex);
    state().observer = std::move(observer);
}

} // namespace tw
