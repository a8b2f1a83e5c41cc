#pragma once

#include <QObject>

class QSocketNotifier;

namespace tw::cli {

// Turns Ctrl-C (SIGINT) and SIGTERM into a signal on the event loop. The
// handler itself only notes the interrupt and writes one byte into a pipe
// that the event loop watches. System calls are not restarted after the
// signal, so a prompt that waits for the person's answer returns at once.
class InterruptWatcher : public QObject {
    Q_OBJECT

public:
    static InterruptWatcher& instance();

    // Installs the handlers (once).
    void install();
    // An interrupt arrived since the start (or since clear()).
    static bool wasInterrupted();
    static void clear();

signals:
    void interrupted();

private:
    InterruptWatcher() = default;
    void readPipe();

    QSocketNotifier* m_notifier = nullptr;
};

} // namespace tw::cli
