#include "TransporterSFTPConnection.h"

#include "app/SecretMask.h"
#include "transfer/ConnectionAddress.h"
#include "transfer/CurlConfig.h"
#include "transfer/RemoteUrl.h"

#include <QSet>

#include <algorithm>
#include <utility>

namespace tw {

TransporterSFTPConnection::TransporterSFTPConnection(SitePtr site, const std::optional<QString>& password,
                                                     const std::optional<QString>& passphrase)
    : m_site(std::move(site)) {
    Q_ASSERT(m_site);
    if (!m_site)
        m_site = std::make_shared<Site>();
    m_username = m_site->username.value_or(QString());
    if (password)
        m_password = *password;
    if (passphrase && !passphrase->isEmpty())
        m_passphrase = passphrase;
    SecretMask::add(m_password);
    SecretMask::add(m_passphrase.value_or(QString()));
    const ConnectionAddress address = ConnectionAddress::of(*m_site);
    m_host = address.host;
    m_path = address.path;
    m_port = address.port;
    m_privateSshKeyPath = m_site->sshKeyPath;
}

QString TransporterSFTPConnection::type() const {
    return QStringLiteral("sftp");
}

// The transporter took the sync root off when the item was queued.
QString TransporterSFTPConnection::remoteName(const TransporterFile& file) const {
    return file.remotePath();
}

QString TransporterSFTPConnection::fileUrl(const TransporterFile& file) const {
    return QStringLiteral("sftp://") + m_host + RemoteUrl::encodePath(m_path + remoteName(file));
}

TransporterSFTPConnection::QuoteTarget
TransporterSFTPConnection::quoteTarget(const QString& remoteName) const {
    QString base = m_path;
    if (base.endsWith(QLatin1Char('/')))
        base.chop(1);
    const QStringList pieces = base.split(QLatin1Char('/'));
    const qsizetype home = pieces.indexOf(QStringLiteral("~"));
    if (home >= 0 && pieces.size() < 2)
        return {QString(), remoteName}; // "~" alone: the login's folder itself
    if (home < 0) {
        // The uploads' URLs name an absolute path (sftp://host/www/x is
        // /www/x): the commands name the same one, never a path relative to
        // the login's folder, where a file of the same name may live.
        QString absolute = m_path;
        while (absolute.startsWith(QLatin1Char('/')))
            absolute.remove(0, 1);
        return {QString(), QLatin1Char('/') + absolute + remoteName};
    }
    // A remote path that ends in "~" has nothing after it: the command path
    // is the remote name alone.
    QStringList command = pieces.mid(home + 1);
    command.append(remoteName);
    return {pieces.mid(0, home + 1).join(QLatin1Char('/')) + QLatin1Char('/'),
            command.join(QLatin1Char('/'))};
}

QStringList TransporterSFTPConnection::keyArguments() const {
    QStringList arguments;
    if (m_privateSshKeyPath && !m_privateSshKeyPath->isEmpty())
        arguments << QStringLiteral("--key") << *m_privateSshKeyPath;
    return arguments;
}

QByteArray TransporterSFTPConnection::curlConfig() const {
    QByteArray config = CurlConfig::line("user", m_username + QLatin1Char(':') + m_password);
    if (m_passphrase)
        config += CurlConfig::line("pass", *m_passphrase);
    return config;
}

QStringList TransporterSFTPConnection::secrets() const {
    return {m_password, m_passphrase.value_or(QString())};
}

QStringList TransporterSFTPConnection::getArgument(const TransporterFilePtr& file,
                                                   const QString& localBasePath) {
    m_localBasePath = localBasePath;
    QStringList arguments;
    switch (file->operation()) {
    case TransporterOperations::List:
        arguments = {fileUrl(*file),
                     QStringLiteral("-K"),
                     QStringLiteral("-"),
                     QStringLiteral("--list-only"),
                     QStringLiteral("--progress-bar"),
                     QStringLiteral("-k")};
        break;
    case TransporterOperations::Read:
        arguments = {fileUrl(*file), QStringLiteral("-K"), QStringLiteral("-"),
                     QStringLiteral("--progress-bar"), QStringLiteral("-k")};
        break;
    case TransporterOperations::Delete: {
        const QuoteTarget target = quoteTarget(remoteName(*file));
        arguments = {QStringLiteral("-K"),
                     QStringLiteral("-"),
                     QStringLiteral("sftp://") + m_host + RemoteUrl::encodePath(target.urlPath),
                     QStringLiteral("-Q"),
                     QStringLiteral("rm ") + quoted(target.commandPath),
                     QStringLiteral("--progress-bar"),
                     QStringLiteral("-k"),
                     QStringLiteral("--silent")};
        break;
    }
    default:
        if (!file->filePath())
            return {};
        arguments = {QStringLiteral("-T"),
                     *file->filePath(),
                     fileUrl(*file),
                     QStringLiteral("-K"),
                     QStringLiteral("-"),
                     QStringLiteral("--progress-bar"),
                     QStringLiteral("--ftp-create-dirs"),
                     QStringLiteral("-k"),
                     QStringLiteral("--globoff")};
        break;
    }
    return arguments + keyArguments();
}

QStringList TransporterSFTPConnection::getArgumentForMultiFileUpload(const QList<TransporterFilePtr>& files) {
    QStringList arguments;
    arguments.reserve(files.size() * 3 + 12);
    for (const TransporterFilePtr& file : files) {
        Q_ASSERT(file->filePath());
        if (!file->filePath())
            continue;
        arguments << QStringLiteral("-T") << *file->filePath() << fileUrl(*file);
    }
    arguments << QStringLiteral("-K") << QStringLiteral("-") << QStringLiteral("--progress-bar")
              << QStringLiteral("--ftp-create-dirs") << QStringLiteral("--globoff") << QStringLiteral("-v")
              << QStringLiteral("-k");
    return arguments + keyArguments();
}

// One transfer carries all the commands: curl sends every "-Q" of a run, in
// order, after the login and before the transfer of the URL, wherever they
// stand on the command line. So the files' "rm" come first and their folders'
// "rmdir" after them (a folder that still holds files survives, "*" makes
// curl go on), then the one URL: the folder the commands run in (up to the
// remote path's "~", else the server's root), which sshd lists as a cheap
// transfer whose output nobody reads. The options for the whole run follow
// as in the other batch lists, the key arguments last.
QStringList TransporterSFTPConnection::getArgumentForMultiFileDelete(const QList<TransporterFilePtr>& files) {
    QStringList arguments;
    QSet<QString> folders; // below the remote folder
    for (const TransporterFilePtr& file : files) {
        const QString name = remoteName(*file);
        arguments << QStringLiteral("-Q") << QStringLiteral("*rm ") + quoted(quoteTarget(name).commandPath);
        QStringList pieces = name.split(QLatin1Char('/'));
        pieces.removeLast();
        while (!pieces.isEmpty()) {
            folders.insert(pieces.join(QLatin1Char('/')));
            pieces.removeLast();
        }
    }
    // The folders the deletions may have emptied, deepest first, then their
    // parents inside the remote folder; one that still holds files stays.
    QStringList ordered(folders.cbegin(), folders.cend());
    std::sort(ordered.begin(), ordered.end(), [](const QString& a, const QString& b) {
        const qsizetype depthA = a.count(QLatin1Char('/'));
        const qsizetype depthB = b.count(QLatin1Char('/'));
        return depthA != depthB ? depthA > depthB : a < b;
    });
    for (const QString& folder : std::as_const(ordered))
        arguments << QStringLiteral("-Q")
                  << QStringLiteral("*rmdir ") + quoted(quoteTarget(folder).commandPath);
    arguments << QStringLiteral("sftp://") + m_host + RemoteUrl::encodePath(quoteTarget(QString()).urlPath)
              << QStringLiteral("-K") << QStringLiteral("-") << QStringLiteral("--globoff")
              << QStringLiteral("-#") << QStringLiteral("-k") << QStringLiteral("-v");
    return arguments + keyArguments();
}

} // namespace tw
