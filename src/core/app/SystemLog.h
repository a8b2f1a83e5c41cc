#pragma once

#include <QString>

#include <functional>

namespace tw {

// The system log (syslog, so the journal on a desktop). Lines such as the git
// runner's "TARNWELL - command: ..." go here, not to the daily log file.
// With the environment variable TARNWELL_VERBOSE set (or setEchoToStandardError)
// every line is also printed on standard error.
class SystemLog {
public:
    static void write(const QString& line);

    static void setEchoToStandardError(bool echo);

    // Tests observe the lines written; pass an empty function to stop.
    using Observer = std::function<void(const QString&)>;
    static void setObserver(Observer observer);

    // Longest text handed to syslog; longer lines are cut and marked.
    static constexpr qsizetype maximumLength = 16 * 1024;
};

} // namespace tw
