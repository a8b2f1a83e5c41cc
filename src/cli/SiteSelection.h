#pragma once

#include "model/Site.h"

#include <QString>

#include <optional>

namespace tw::cli {

// The site a command works on, named by its name or index on the command
// line, or the current site when none is named. A command that names a site
// works on that site alone: the stored current site ("currentSiteIndex",
// the window's selection) never changes for it.
class SiteSelection {
public:
    // Finds the site. When there is none, says why on standard error (no
    // sites, no such name or index, no current site) and answers nothing.
    static std::optional<qsizetype> resolve(const QString& nameOrIndex);
    // The stored site at the index (null when there is none). A stored site
    // without an id (written by an old release) gets one, stored at once:
    // the commands find their site by its id.
    static SitePtr siteAt(qsizetype index);
    // "0 “Blog”": how the command line names a site in its messages.
    static QString describe(qsizetype index, const SitePtr& site);
};

} // namespace tw::cli
