#pragma once

#include "model/Site.h"

#include <optional>

namespace tw {

// The site list's own operations, as the sidebar of the window and the
// command line offer them: add, duplicate, remove and move, each stored at
// once. "currentSiteIndex" keeps naming the same site across the change (or
// the nearest one left when the current site goes).
class SiteListActions {
public:
    // Appends a new site, stamped with updatedNow; answers its index.
    static qsizetype add(const SitePtr& site);
    // Replaces the site at index (an edit).
    static bool replace(qsizetype index, const SitePtr& site);
    // A copy after the original, with an id of its own and the same password
    // and pass phrase stored for it; answers its index.
    static std::optional<qsizetype> duplicate(qsizetype index);
    // Removes the site and its secrets.
    static bool remove(qsizetype index);
    static bool move(qsizetype from, qsizetype to);

    // A site named by its index (as text) or by its name; the current site
    // when the text is empty.
    static std::optional<qsizetype> find(const QString& nameOrIndex);
    static qsizetype currentIndex();
    static void setCurrentIndex(qsizetype index);
};

} // namespace tw
