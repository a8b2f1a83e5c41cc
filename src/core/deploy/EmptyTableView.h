#pragma once

#include <QString>

namespace tw {

// What stands in the place of the file list when there is nothing to list:
// an image, a text and one of two buttons (check out the deploy branch, add
// a site). Each operation first hides everything, then shows its parts.
class EmptyTableView {
public:
    virtual ~EmptyTableView() = default;
    virtual void hideAll() = 0;
    // Image "RocketLaunch" and the add-site button; the text "No sites
    // defined." is set but deliberately stays hidden.
    virtual void noSitesDefined() = 0;
    // Image "ui-cross-2" and the text.
    virtual void notValidGitRepoWith(const QString& text) = 0;
    // Image "git", the text and the button "Check out branch '<branch>'".
    virtual void wrongBranchIsSelectedWith(const QString& text, const QString& correctBranch) = 0;
    // true: everything hidden (the list shows); false: image "cloud_tick" and
    // "All files deployed. Good work!".
    virtual void hasFilesToDeployWithStatus(bool hasFiles) = 0;
};

} // namespace tw
