#include "TransporterFTPConnection.h"

#include "app/SecretMask.h"
#include "transfer/ConnectionAddress.h"
#include "transfer/CurlConfig.h"
#include "transfer/RemoteUrl.h"

#include <QSet>

#include <algorithm>
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
    SecretMask::add(m_password);
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
        arguments = {fileUrl(*file), QStringLiteral("-K"), QStringLiteral("-"), QStringLiteral("--list-only"),
                     QStringLiteral("--progress-bar")};
        break;
    case TransporterOperations::Delete:
        // DELE goes before the transfer; the URL names the deleted file, and
        // --silent keeps curl quiet about fetching what is no longer there.
        arguments = {QStringLiteral("-K"),
                     QStringLiteral("-"),
                     fileUrl(*file),
                     QStringLiteral("-Q"),
                     QStringLiteral("DELE ") + m_path + remoteName(*file),
                     QStringLiteral("--silent"),
                     QStringLiteral("--progress-bar")};
        break;
    case TransporterOperations::Read:
        arguments = {fileUrl(*file), QStringLiteral("-K"), QStringLiteral("-"),
                     QStringLiteral("--progress-bar")};
        break;
    default:
        if (file->filePath()) {
            arguments = {QStringLiteral("-T"),
                         *file->filePath(),
                         fileUrl(*file),
                         QStringLiteral("-K"),
                         QStringLiteral("-"),
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
    arguments << QStringLiteral("-K") << QStringLiteral("-") << QStringLiteral("--ftp-create-dirs")
              << QStringLiteral("--globoff") << QStringLiteral("-#") << QStringLiteral("-v");
    return arguments << tlsOptions();
}

// Every delete is one quote command, sent once: curl sends all the quote
// commands of a run before each of its transfers, so the run has a single
// transfer, a look at the remote folder that transfers nothing ("-I").
// (One URL per file made curl send every command before every file: 200
// deletions were some 40,000 commands.) Then the folders the deletions may
// have emptied, deepest first, with their parents inside the remote folder;
// "*" lets one that still holds files stay. The paths are relative to the
// login folder, as the uploads' are.
QStringList TransporterFTPConnection::getArgumentForMultiFileDelete(const QList<TransporterFilePtr>& files) {
    QStringList arguments;
    QSet<QString> folders;
    for (const TransporterFilePtr& file : files) {
        const QString name = remoteName(*file);
        arguments << QStringLiteral("-Q") << QStringLiteral("*DELE ") + m_path + name;
        QStringList pieces = name.split(QLatin1Char('/'));
        pieces.removeLast();
        while (!pieces.isEmpty()) {
            folders.insert(pieces.join(QLatin1Char('/')));
            pieces.removeLast();
        }
    }
    QStringList ordered(folders.cbegin(), folders.cend());
    std::sort(ordered.begin(), ordered.end(), [](const QString& a, const QString& b) {
        const qsizetype depthA = a.count(QLatin1Char('/'));
        const qsizetype depthB = b.count(QLatin1Char('/'));
        return depthA != depthB ? depthA > depthB : a < b;
    });
    for (const QString& folder : std::as_const(ordered))
        arguments << QStringLiteral("-Q") << QStringLiteral("*RMD ") + m_path + folder;
    arguments << QStringLiteral("-I") << urlPrefix() + m_host + RemoteUrl::encodePath(m_path);
    if (!m_passive)
        arguments << QStringLiteral("--ftp-port") << QStringLiteral("-");
    arguments << QStringLiteral("-K") << QStringLiteral("-") << QStringLiteral("--ftp-create-dirs")
              << QStringLiteral("--globoff") << QStringLiteral("-#") << QStringLiteral("-v");
    return arguments << tlsOptions();
}

QByteArray TransporterFTPConnection::curlConfig() const {
    return CurlConfig::line("user", m_username + QLatin1Char(':') + m_password);
}

QStringList TransporterFTPConnection::secrets() const {
    return {m_password};
}

} // namespace tw
