#pragma once

#include "model/Site.h"

#include <QJsonObject>
#include <QString>
#include <QStringList>

#include <optional>

namespace tw {

// A site kept in a file of the repository it deploys, for deployments from
// CI: one site object of the export format (the same keys), with no secret
// in it. The secrets come from elsewhere (the CI's secret variables).
//
// Paths in the file are relative to the file's folder: "localPath" "."
// names that folder. "lastCommitDeployed" is not taken from the file: a
// CI run takes the last deployed commit from the server's record.
class SiteFile {
public:
    // The default name, at the top of the repository.
    static QString defaultName() { return QStringLiteral("tarnwell-site.json"); }

    // The site in the file, or nothing with *error set: the file cannot be
    // read, is no JSON, holds no site object (an object, or a list of exactly
    // one), or holds a password (passwords never belong in a repository).
    static SitePtr read(const QString& path, QString* error);

    // The object written for a site into a file at filePath of the site's
    // repository: the export object without password and last deployed
    // commit, the key file left out (CI hands the key over on its own),
    // "localPath" relative to the file's folder, and the file itself and the
    // CI job files among the ignored files (so the site file is never
    // deployed). alsoIgnored: further repository-relative paths to ignore.
    static QJsonObject forRepository(Site& site, const QString& filePath, const QStringList& alsoIgnored);
};

} // namespace tw
