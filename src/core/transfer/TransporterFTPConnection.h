#pragma once

#include "model/Site.h"
#include "transfer/TransporterConnectionProtocol.h"

#include <QString>
#include <QStringList>

#include <optional>

namespace tw {

// Plain FTP: the curl arguments of every transfer to an FTP server. Also the
// base of the two FTP-over-TLS connections, which add their options at the
// end of every list.
//
// URLs are "ftp://" + host + path + the remote name, where host carries the
// port and ends with "/", path is the site's remote folder ending with "/"
// (unless empty) and the remote name is the item's remote path with the
// site's sync root taken out. User and password reach curl on its standard
// input ("-K" "-", see curlConfig), never on its command line.
class TransporterFTPConnection : public TransporterConnectionProtocol {
public:
    TransporterFTPConnection(SitePtr site, const std::optional<QString>& password);

    QString type() const override;
    SitePtr getSite() const override { return m_site; }
    QStringList getArgumentForMultiFileUpload(const QList<TransporterFilePtr>& files) override;
    QStringList getArgumentForMultiFileDelete(const QList<TransporterFilePtr>& files) override;
    QStringList getArgument(const TransporterFilePtr& file, const QString& localBasePath) override;
    // "user = name:password" for curl's standard input.
    QByteArray curlConfig() const override;
    QStringList secrets() const override;

    virtual QString urlPrefix() const;

    const QString& host() const { return m_host; }
    const QString& path() const { return m_path; }
    const QString& username() const { return m_username; }
    const QString& password() const { return m_password; }
    const QString& port() const { return m_port; }
    // Passive FTP (the default); active mode adds "--ftp-port" "-".
    bool passive() const { return m_passive; }
    void setPassive(bool passive) { m_passive = passive; }
    const std::optional<QString>& localBasePath() const { return m_localBasePath; }

    // The item's remote path: below the remote folder (the sync root was
    // taken off when it was queued).
    QString remoteName(const TransporterFile& file) const;
    // urlPrefix + host + path + the remote name, the path part URL-encoded.
    QString fileUrl(const TransporterFile& file) const;

protected:
    // Options that go at the very end of every argument list: none for
    // plain FTP, curl's TLS options for FTP over TLS.
    virtual QStringList tlsOptions() const { return {}; }

private:
    QString m_host;
    QString m_path;
    QString m_username;
    QString m_password;
    QString m_port;
    bool m_passive = true;
    SitePtr m_site;
    std::optional<QString> m_localBasePath;
};

} // namespace tw
