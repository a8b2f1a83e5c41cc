#pragma once

#include "model/Site.h"
#include "transfer/TransporterConnectionProtocol.h"

#include <QString>
#include <QStringList>

#include <optional>

namespace tw {

// SFTP: the curl arguments of every transfer to an SSH server. URLs are
// "sftp://" + host + path + the remote name (host and path normalised as for
// FTP). A remote path that starts in "~" (such as "~/htdocs") is relative to
// the login's home folder; any other is absolute. Every list ends with
// "--key" and the site's key file (when there is one). The login and the
// key's pass phrase (when there is one; an empty one counts as none, since
// curl refuses it) reach curl on its standard input ("-K" "-"), never on its
// command line. "-k": the server's host key is not checked.
//
// Deletes run as SFTP quote commands ("rm", "rmdir", lower case: curl knows
// no other). Below a "~" remote path they run on the login's folder: the URL
// keeps the remote path up to its "~" piece, the command path holds the rest
// and the remote name. Any other remote path is named whole and absolute in
// the command, as the uploads' URLs name it.
class TransporterSFTPConnection : public TransporterConnectionProtocol {
public:
    TransporterSFTPConnection(SitePtr site, const std::optional<QString>& password,
                              const std::optional<QString>& passphrase);

    QString type() const override;
    SitePtr getSite() const override { return m_site; }
    QStringList getArgumentForMultiFileUpload(const QList<TransporterFilePtr>& files) override;
    QStringList getArgumentForMultiFileDelete(const QList<TransporterFilePtr>& files) override;
    QStringList getArgument(const TransporterFilePtr& file, const QString& localBasePath) override;
    // The login and the key's pass phrase for curl's standard input.
    QByteArray curlConfig() const override;
    QStringList secrets() const override;

    const QString& host() const { return m_host; }
    const QString& path() const { return m_path; }
    const QString& username() const { return m_username; }
    const QString& password() const { return m_password; }
    const std::optional<QString>& passphrase() const { return m_passphrase; }
    const std::optional<QString>& localBasePath() const { return m_localBasePath; }
    const QString& port() const { return m_port; }
    const std::optional<QString>& privateSshKeyPath() const { return m_privateSshKeyPath; }

    // The item's remote path: below the remote folder (the sync root was
    // taken off when it was queued).
    QString remoteName(const TransporterFile& file) const;
    QString fileUrl(const TransporterFile& file) const;

    // Where a quote command runs and on what: the URL path (up to and with
    // the "~" piece of the remote path, or empty) and the command path.
    struct QuoteTarget {
        QString urlPath;
        QString commandPath;
    };
    QuoteTarget quoteTarget(const QString& remoteName) const;

private:
    QStringList keyArguments() const;
    // A path for an SFTP quote command: in double quotes, with the quotes and
    // backslashes it holds escaped as curl reads them (a name such as
    // quote"d.html would otherwise end the path early).
    static QString quoted(const QString& text) {
        QString escaped = text;
        escaped.replace(QLatin1Char('\\'), QStringLiteral("\\\\"));
        escaped.replace(QLatin1Char('"'), QStringLiteral("\\\""));
        return QLatin1Char('"') + escaped + QLatin1Char('"');
    }

    QString m_host;
    QString m_path;
    QString m_username;
    QString m_password;
    std::optional<QString> m_passphrase;
    std::optional<QString> m_localBasePath;
    QString m_port;
    std::optional<QString> m_privateSshKeyPath;
    SitePtr m_site;
};

} // namespace tw
