#pragma once

#include <QHash>
#include <QString>
#include <QStringList>

namespace tw {

// The files a person left out of deployments by unchecking them, per site:
// they wait, unchecked, in every later listing until a commit changes them
// (or the person checks them again), also when they no longer differ from
// the last deployed commit. Kept in the preferences ("waitingFiles"), by site
// id, with the change letter they had and the commit they were listed at.
class WaitingFiles {
public:
    struct Entry {
        QString letter; // "A", "M", "D", ...: what a deployment does with the file
        QString commit; // the commit the file was listed at when it was unchecked
        bool operator==(const Entry&) const = default;
    };
    using Entries = QHash<QString, Entry>; // by repository-relative path

    static Entries of(const QString& siteId);
    static void set(const QString& siteId, const Entries& entries);
};

} // namespace tw
