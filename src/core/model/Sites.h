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

    static QByteArray archive(const SiteList& sites);
    static std::optional<SiteList> unarchive(const QByteArray& archived);
};

} // namespace tw
