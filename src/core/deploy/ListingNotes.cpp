#include "ListingNotes.h"

#include "git/SiteManager.h"

#include <algorithm>

namespace tw {

QStringList ListingNotes::forSite(const SitePtr& site, bool lastDeployedMissing) {
    QStringList notes;
    if (lastDeployedMissing && site->lastCommitDeployed)
        notes.append(
            QStringLiteral("The last deployed commit %1 is no longer in the repository (after a rebase "
                           "or a forced push?): every file is listed, for a full deployment.")
                .arg(site->lastCommitDeployed->sha1.value_or(QString())));
    QStringList excused;
    for (const SharedFileList& list : {site->mandatoryFiles, site->ignoredFiles}) {
        if (!list)
            continue;
        for (const FilePtr& file : *list) {
            if (file && file->pathWithFilename && !file->pathWithFilename->isEmpty())
                excused.append(*file->pathWithFilename);
        }
    }
    QStringList uncommitted;
    for (const QString& path : SiteManager(site).uncommittedPaths()) {
        const bool isExcused = std::any_of(excused.cbegin(), excused.cend(), [&](QString entry) {
            if (entry.endsWith(QLatin1Char('/')))
                entry.chop(1);
            return path == entry || path.startsWith(entry + QLatin1Char('/')) ||
                   (path.endsWith(QLatin1Char('/')) && entry.startsWith(path));
        });
        if (!isExcused)
            uncommitted.append(path);
    }
    if (!uncommitted.isEmpty()) {
        const QString which =
            uncommitted.size() == 1
                ? uncommitted.first()
                : QStringLiteral("%1 files, such as %2").arg(uncommitted.size()).arg(uncommitted.first());
        notes.append(
            QStringLiteral("Uncommitted changes (%1) are not deployed: commit them first.").arg(which));
    }
    return notes;
}

} // namespace tw
