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

    // The stored sites, or nothing when none are stored, read from the
    // preferences file as it is now (another process may have written it).
    // A stored list that cannot be read whole (a broken entry, a truncated
    // value) is never taken for "no sites": the sites that can be read are
    // answered, and the stored value as it was is kept in a dated backup
    // file beside the preferences (see takeLoadProblem), so a later save
    // loses nothing.
    //
    // The list holds no secret. Passwords an earlier version stored in it
    // move into the secret store here, and leave the list once the store
    // gives them back; while it cannot, they stay (and a log line says why).
    std::optional<SiteList> loadAll() const;
    qint64 total() const;
    // Archives the list, stores it and writes the preferences to disk. False,
    // with nothing written, when the stored list cannot be read whole and
    // its backup cannot be written either: a save would lose what could not
    // be read.
    bool storeWithSites(const SiteList& sites) const;
    void deleteAll() const;

    // Records a deployment in the stored site with this id: its last
    // deployed commit becomes the given one. The site is found by its id,
    // never by a position, so a list reordered or a site selected meanwhile
    // changes nothing. False when no stored site has the id or the list
    // could not be saved.
    static bool saveDeployment(const QString& siteId, const CommitPtr& commit);

    static QByteArray archive(const SiteList& sites);
    // Every site of the archive, or nothing when any part is unreadable.
    static std::optional<SiteList> unarchive(const QByteArray& archived);
    // The sites that can be read, in order; complete is false when an entry
    // or the rest of the value could not be read.
    struct Readable {
        SiteList sites;
        bool complete = true;
    };
    static Readable unarchiveReadable(const QByteArray& archived);

    // The sentence for the person when the stored list could not be read
    // whole and was kept aside, answered once per process (the first call
    // after a load that found the problem); nothing otherwise.
    static std::optional<QString> takeLoadProblem();
};

} // namespace tw
