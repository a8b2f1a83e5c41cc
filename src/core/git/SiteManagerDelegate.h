#pragma once

#include "app/Error.h"

namespace tw {

// Told by a SiteManager when the site's repository folder can no longer be
// reached. The main window asks the person to choose the folder again; the
// site editor shows a warning.
class SiteManagerDelegate {
public:
    virtual ~SiteManagerDelegate() = default;

    // A bookmark of the folder could not be made or read.
    virtual void siteManagerDidFailWithError(const Error& error) = 0;
    // The stored bookmark no longer leads to the folder.
    virtual void fileBookmarkIsStale() = 0;

protected:
    SiteManagerDelegate() = default;
    SiteManagerDelegate(const SiteManagerDelegate&) = default;
    SiteManagerDelegate& operator=(const SiteManagerDelegate&) = default;
};

} // namespace tw
