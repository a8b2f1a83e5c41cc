#pragma once

#include "app/UserInteraction.h"
#include "deploy/EmptyTableView.h"
#include "deploy/ProgressView.h"

#include <QString>

namespace tw {

// Everything the deploy controller shows or asks, beyond alerts and panels.
// The desktop window, the command line and the tests implement it. All calls
// come on the main thread.
class DeployView : public UserInteraction {
public:
    // Performs "progressSegue": shows the progress display and answers it.
    // The view keeps the display alive for as long as the view lives.
    virtual ProgressView* showProgressView() = 0;
    // The placeholder over the file list.
    virtual EmptyTableView& emptyTableView() = 0;
    virtual void setDeployButtonEnabled(bool enabled) = 0;
    // The controller's file list was built anew (or is gone).
    virtual void filesDidChange() = 0;
    // The status text of one row changed (a transfer's progress).
    virtual void fileStatusDidChange(qsizetype row) = 0;
    // The current site was loaded again (after a change of "currentSiteIndex"
    // or of the stored list, or after a deployment saved it).
    virtual void siteDidChange() = 0;
    // Opens a folder in the file manager (the log folder after a script error).
    virtual void openFolder(const QString& path) = 0;
};

} // namespace tw
