#pragma once

#include <QString>

#include <optional>

namespace tw {

// Keeps the display awake while a deployment runs, through the desktop's
// screen saver service (org.freedesktop.ScreenSaver on the session bus). The
// desktop drops the inhibition by itself when the program ends.
//
// A desktop without that service, or any other D-Bus failure, is written to
// the system log and otherwise ignored: the deployment goes on. Every call
// waits at most callTimeoutMilliseconds for an answer.
class DisplaySleepGuard {
public:
    DisplaySleepGuard() = default;
    // Releases the inhibition when it is still held.
    ~DisplaySleepGuard();

    DisplaySleepGuard(const DisplaySleepGuard&) = delete;
    DisplaySleepGuard& operator=(const DisplaySleepGuard&) = delete;

    // Asks the desktop not to sleep the display, with the reason "Tarnwell is
    // deploying". An inhibition already held is released first.
    void take();
    // Ends the inhibition; nothing when none is held.
    void release();
    bool isHeld() const { return m_cookie.has_value(); }

    static constexpr int callTimeoutMilliseconds = 1000;

private:
    std::optional<quint32> m_cookie;
};

} // namespace tw
