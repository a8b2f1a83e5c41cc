#pragma once

#include "model/Site.h"

#include <QStringList>

namespace tw {

// What the person should know about a site's file list beside its rows, one
// sentence each: a last deployed commit that is gone from the repository
// (every file is listed), and the files with uncommitted edits (deployed as
// committed). Always-uploaded and ignored paths are no news: they are sent
// from the folder, or never.
class ListingNotes {
public:
    static QStringList forSite(const SitePtr& site, bool lastDeployedMissing);
};

} // namespace tw
