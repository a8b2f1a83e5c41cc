#include "TransporterFTPConnection.h"

#include "transfer/ConnectionAddress.h"
#include "transfer/RemoteUrl.h"

#include <QSet>

#include <utility>

namespace tw {

TransporterFTPConnection::TransporterFTPConnection(SitePtr site, const std::optional<QString>& password)
    : m_site(std::move(site)) {
    Q_ASSERT(m_site);
    if (!m_site)
        m_site = std::make_shared<Site>();
    // A missing user name, host or remote path counts as empty: curl then
    // says what is wrong with the URL or the login.
    m_username = m_site->username.value_or(QString());
    if (password)
        m_password = *password;
    const ConnectionAddress address = ConnectionAddress::of(*m_site);
    m_host = address.host;
    m_path = address.path;
    m_port = address.port;
}

QString TransporterFTPConnection::type() const {
    return QStringLiteral("ftp");
}

QString TransporterFTPConnection::urlPrefix() const {
    return QStringLiteral("ftp://");
}

// The transporter took the sync root off when the item was queued: taking
// it off again would cut a folder of the same name below it.
QString TransporterFTPConnection::remoteName(const TransporterFile& file) const {
    return file.remotePath();
}

QString TransporterFTPConnection::fileUrl(const TransporterFile& file) const {
    return urlPrefix() + m_host + RemoteUrl::encodePath(m_path + remoteName(file));
}

QStringList TransporterFTPConnection::getArgument(const TransporterFilePtr& file,
                                                  const QString& localBasePath) {
    m_localBasePath = localBasePath;
    QStringList arguments;
    switch (file->operation()) {
    case TransporterOperations::List:
        arguments = {fileUrl(*file), QStringLiteral("--user"), credentials(), QStringLiteral("--list-only"),
                     QStringLiteral("--progress-bar")};
        break;
    case TransporterOperations::Delete:
        // DELE goes before the transfer; the URL names the deleted file, and
        // --silent keeps curl quiet about fetching what is no longer there.
        arguments = {QStringLiteral("--user"),
                     credentials(),
                     fileUrl(*file),
                     QStringLiteral("-Q"),
                     QStringLiteral("DELE ") + m_path + remoteName(*file),
                     QStringLiteral("--silent"),
                     QStringLiteral("--progress-bar")};
        break;
    case TransporterOperations::Read:
        arguments = {fileUrl(*file), QStringLiteral("--user"), credentials(),
                     QStringLiteral("--progress-bar")};
        break;
    default:
        if (file->filePath()) {
            arguments = {QStringLiteral("-T"),
                         *file->filePath(),
                         fileUrl(*file),
                         QStringLiteral("--user"),
                         credentials(),
                         QStringLiteral("--progress-bar"),
                         QStringLiteral("--ftp-create-dirs"),
                         QStringLiteral("--globoff"),
                         QStringLiteral("--ftp-method"),
                         QStringLiteral("nocwd")};
        }
        break;
    }
    if (!m_passive)
        arguments << QStringLiteral("--ftp-port") << QStringLiteral("-");
    return arguments << tlsOptions();
}

QStringList TransporterFTPConnection::getArgumentForMultiFileUpload(const QList<TransporterFilePtr>& files) {
    QStringList arguments;
    arguments.reserve(files.size() * 3 + 10);
    for (const TransporterFilePtr& file : files) {
        // The transporter batches uploads only, and every upload has its file.
        Q_ASSERT(file->filePath());
        if (!file->filePath())
            continue;
        arguments << QStringLiteral("-T") << *file->filePath() << fileUrl(*file);
    }
    if (!m_passive)
        arguments << QStringLiteral("--ftp-port") << QStringLiteral("-");
    arguments << QStringLiteral("--user") << credentials() << QStringLiteral("--ftp-create-dirs")
              << QStringLiteral("--globoff") << QStringLiteral("-#") << QStringLiteral("-v");
    return arguments << tlsOptions();
}

QStringList TransporterFTPConnection::getArgumentForMultiFileDelete(const QList<TransporterFilePtr>& files) {
    QStringList arguments;
    QStringList folders; // in the order first seen; each once
    QSet<QString> seen;
    for (const TransporterFilePtr& file : files) {
        const QString name = remoteName(*file);
        arguments << QStringLiteral("-Q") << QStringLiteral("*DELE ") + m_path + name << fileUrl(*file);
        QStringList pieces = name.split(QLatin1Char('/'));
        pieces.removeLast();
        const QString folder = pieces.join(QLatin1Char('/'));
        if (!seen.contains(folder)) {
            seen.insert(folder);
            folders.append(folder);
        }
    }
    // Only the deleted files' own folders are tried, never their parents;
    // "*" lets a folder that still holds files survive its RMD.
    for (const QString& folder : folders) {
        QStringList pieces = folder.split(QLatin1Char('/'));
        pieces.resize(std::max<qsizetype>(0, pieces.size() - 2));
        const QString grandParent = pieces.join(QLatin1Char('/'));
        arguments << QStringLiteral("-Q") << QStringLiteral("*RMD /") + m_path + folder
                  << urlPrefix() + m_host + RemoteUrl::encodePath(m_path + grandParent);
    }
    if (!m_passive)
        arguments << QStringLiteral("--ftp-port") << QStringLiteral("-");
    arguments << QStringLiteral("--user") << credentials() << QStringLiteral("--ftp-create-dirs")
              << QStringLiteral("--globoff") << QStringLiteral("-#") << QStringLiteral("-v");
    return arguments << tlsOptions();
}

} // namespace tw
