#pragma once

#include "model/Site.h"

#include <QString>

namespace tw {

// Where a site's files go, as every connection builds it from the site: the
// server part of the URLs and the remote folder, and a file's remote name.
struct ConnectionAddress {
    // The host without a trailing "/" (in brackets when it is an IPv6
    // address), then ":" and the port when the site has a port text (even an
    // empty one), then "/".
    QString host;
    // The remote path, with "/" appended unless it is empty.
    QString path;
    // The site's port text, kept as it is; empty without one.
    QString port;

    static ConnectionAddress of(const Site& site);
    // A repository path as a path below the remote folder: without the
    // site's sync root folder at its start (see SyncRoot).
    static QString withoutSyncRoot(const Site& site, const QString& text);
};

} // namespace tw
