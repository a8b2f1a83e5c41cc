#pragma once

#include "model/Site.h"

#include <QString>

namespace tw {

// The site the controller works on, read from the stored site list.
class StoredSite {
public:
    // The current site ("currentSiteIndex"), or null. A site stored by an
    // older release may have no id; one made up on every load would find
    // nothing to save a deployed commit to, so every stored site without one
    // is given one, stored at once, first.
    static SitePtr current();
    // The stored site with this id, whatever is current, or null.
    static SitePtr withId(const QString& siteId);
};

} // namespace tw
