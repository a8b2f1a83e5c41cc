#pragma once

#include "model/Site.h"
#include "transfer/TransporterFile.h"

#include <QByteArray>
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

    // What every run reads from its standard input as a curl configuration
    // ("-K -" in the argument lists): the login and the key's pass phrase,
    // which never stand on a command line, where every user of the machine
    // can read them.
    virtual QByteArray curlConfig() const { return {}; }
    // The secrets of the connection (password, pass phrase), to mask in any
    // text that leaves the engine.
    virtual QStringList secrets() const { return {}; }
};

} // namespace tw
