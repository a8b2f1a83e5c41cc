#pragma once

#include "model/Site.h"
#include "transfer/TransporterFile.h"

#include <QList>
#include <QString>
#include <QStringList>

namespace tw {

// What every connection offers the transfer engine: the curl arguments of
// one run, for one item or for a batch. A connection only builds argument
// lists; the engine runs curl with them, each string one argument.
class TransporterConnectionProtocol {
public:
    virtual ~TransporterConnectionProtocol() = default;

    // The short protocol word ("ftp", "ftps", "ftps-ssl", "sftp").
    virtual QString type() const = 0;
    virtual SitePtr getSite() const = 0;
    // One curl run that uploads all the files (each has a filePath).
    virtual QStringList getArgumentForMultiFileUpload(const QList<TransporterFilePtr>& files) = 0;
    // One curl run that deletes all the files.
    virtual QStringList getArgumentForMultiFileDelete(const QList<TransporterFilePtr>& files) = 0;
    // One curl run for one item; remembers localBasePath first.
    virtual QStringList getArgument(const TransporterFilePtr& file, const QString& localBasePath) = 0;
};

} // namespace tw
