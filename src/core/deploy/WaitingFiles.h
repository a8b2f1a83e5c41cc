#pragma once

#include "model/File.h"
#include "model/Site.h"

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

    // Notes the check marks of the rows as the person set them: an unchecked
    // row waits from the listed commit on, a checked one waits no more.
    static void remember(const QString& siteId, const FileList& rows, const QString& listedCommit);
    // Applies the site's waiting files to a listing at the listed commit:
    // the ones a commit changed since they were unchecked wait no more (they
    // are listed as changed, checked); the others are unchecked in the list,
    // or added to it, unchecked, with their letter.
    static void mergeInto(FileList& list, const SitePtr& site, const QString& listedCommit);
};

} // namespace tw
