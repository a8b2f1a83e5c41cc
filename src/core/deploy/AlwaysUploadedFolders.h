#pragma once

#include "model/File.h"
#include "model/Site.h"

#include <QSet>
#include <QString>

namespace tw {

// The always-uploaded folders among a run's rows, walked when the run builds
// its queue (after the local pre-deploy script, so that what a build put
// there is sent): every file found in a checked folder row becomes a row of
// its own, checked, with the change letter "-". Names are taken as they are.
class AlwaysUploadedFolders {
public:
    // The change letter of an always-uploaded row.
    static QString letter() { return QStringLiteral("-"); }
    static bool isAlwaysUploaded(const File& row) { return row.gitStatus == letter(); }

    static FileList filesIn(const FileList& rows, const QString& localBase);
    // The site's always-uploaded entries as rows of the list, with the
    // change letter "-": copies, so that unchecking one leaves the site's own
    // list as it is. The paths in unchecked are listed unchecked.
    static FileList rowsOf(const Site& site, const QSet<QString>& unchecked);
};

} // namespace tw
