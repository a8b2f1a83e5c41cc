#pragma once

#include "model/Site.h"

#include <QByteArray>

#include <optional>

namespace tw {

// The stored site list: one keyed archive of every site, in the person's
// order, under the preference "sites". A site's place in the list is its
// index; "currentSiteIndex" names the site the window shows.
class Sites {
public:
    QString sitesKey = QStringLiteral("sites");

    // The stored sites, or nothing when none are stored or the stored value
    // cannot be read as a list of sites.
    std::optional<SiteList> loadAll() const;
    qint64 total() const;
    // Archives the list, stores it and writes the preferences to disk.
    void storeWithSites(const SiteList& sites) const;
    void deleteAll() const;

    // Records a deployment in the stored site with this id: its last
    // deployed commit becomes the given one. The site is found by its id,
    // never by a position, so a list reordered or a site selected meanwhile
    // changes nothing. False when no stored site has the id.
    static bool saveDeployment(const QString& siteId, const CommitPtr& commit);

    static QByteArray archive(const SiteList& sites);
    static std::optional<SiteList> unarchive(const QByteArray& archived);
};

} // namespace tw
