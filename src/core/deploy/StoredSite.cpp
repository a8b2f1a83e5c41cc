#include "StoredSite.h"

#include "app/Logger.h"
#include "git/SiteManager.h"
#include "model/Sites.h"

namespace tw {

SitePtr StoredSite::current() {
    SitePtr site = SiteManager(nullptr).loadCurrentSite();
    if (!site || site->hasSiteId())
        return site;
    auto sites = Sites().loadAll();
    if (!sites)
        return nullptr;
    for (const SitePtr& stored : std::as_const(*sites)) {
        if (stored && !stored->hasSiteId())
            stored->generateSiteId();
    }
    Logger::sharedInstance().log(QStringLiteral("Sites without an id were given one"));
    Sites().storeWithSites(*sites);
    return SiteManager(nullptr).loadCurrentSite();
}

SitePtr StoredSite::withId(const QString& siteId) {
    const auto sites = Sites().loadAll();
    if (!sites)
        return nullptr;
    for (const SitePtr& site : *sites) {
        if (site && site->siteId() == siteId)
            return site;
    }
    return nullptr;
}

} // namespace tw
