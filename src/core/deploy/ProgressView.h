#pragma once

#include <QString>

namespace tw {

// Receives the abort button of the progress display.
class ProgressViewDelegate {
public:
    virtual ~ProgressViewDelegate() = default;
    virtual void abortDeploy() = 0;
};

// The progress display of a running deployment (a sheet over the window, or
// lines on a terminal). It also observes the NotificationHub on its own.
class ProgressView {
public:
    virtual ~ProgressView() = default;
    // The stage text ("Preflight checks…", "Uploading files…", ...).
    virtual void setTextLabel(const QString& text) = 0;
    // Switches to the indeterminate bar, whatever the argument says.
    virtual void setIsIndeterminate(bool indeterminate) = 0;
    // Shows the bar full, clears the current file and closes the display.
    virtual void deployFinished() = 0;
    // Not owned; cleared or outlived by the controller.
    virtual void setDelegate(ProgressViewDelegate* delegate) = 0;
};

} // namespace tw
