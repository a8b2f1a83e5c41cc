#include "FtpServer.h"

#include <QDir>
#include <QFile>
#include <QFileInfo>

#include <sys/stat.h>
#include <unistd.h>

namespace tw::test {

namespace {

constexpr uid_t ftpUserId = 2000;
constexpr gid_t ftpGroupId = 2000;
constexpr int passivePortCount = 50;

bool giveToUser(const QString& path) {
    return ::chown(QFile::encodeName(path).constData(), ftpUserId, ftpGroupId) == 0;
}

bool writeWhole(const QString& path, const QByteArray& content, QFileDevice::Permissions permissions) {
    QFile file(path);
    if (!file.open(QIODevice::WriteOnly | QIODevice::Truncate) || file.write(content) != content.size())
        return false;
    file.close();
    return file.setPermissions(permissions);
}

} // namespace

FtpServer::FtpServer(Tls tls)
    : LoopbackServer(QStringLiteral("pure-ftpd"), QStringLiteral("server.log"))
    , m_tls(tls) {
    // (Debian's pure-ftpd refuses every login unless it runs as root.)
    if (!canStart() || !prepare(&m_error))
        return;
    const QString folder = m_folder.path();
    const int firstPassive = ServerProcess::freePortRange(passivePortCount);
    const QString passiveRange =
        QStringLiteral("%1:%2").arg(firstPassive).arg(firstPassive + passivePortCount - 1);
    const QString tlsMode = m_tls == Tls::Required  ? QStringLiteral("2")
                            : m_tls == Tls::Refused ? QStringLiteral("0")
                                                    : QStringLiteral("1");
    start(
        QStringLiteral("/usr/sbin/pure-ftpd"),
        [&](quint16 port) {
            return QStringList{
                QStringLiteral("-S"), QStringLiteral("127.0.0.1,%1").arg(port),
                QStringLiteral("-l"), QStringLiteral("puredb:") + folder + QStringLiteral("/users.pdb"),
                QStringLiteral("-E"), // no anonymous sessions
                QStringLiteral("-H"), // no name look-ups
                QStringLiteral("-A"), // every user chrooted
                QStringLiteral("-u"), QStringLiteral("1000"),
                QStringLiteral("-p"), passiveRange,
                QStringLiteral("-Y"), tlsMode,
                QStringLiteral("-2"), folder + QStringLiteral("/server.pem"),
                QStringLiteral("-g"), folder + QStringLiteral("/pure-ftpd.pid"),
                QStringLiteral("-O"), QStringLiteral("clf:") + transferLogPath()};
        },
        logPath());
}

bool FtpServer::prepare(QString* error) {
    const QString folder = m_folder.path();
    const QString home = homeFolder();
    if (!QDir().mkdir(home) || !giveToUser(home)) {
        *error = QStringLiteral("cannot create the FTP home ") + home;
        return false;
    }
    QFile::setPermissions(home, QFileDevice::ReadOwner | QFileDevice::WriteOwner | QFileDevice::ExeOwner |
                                    QFileDevice::ReadGroup | QFileDevice::ExeGroup | QFileDevice::ReadOther |
                                    QFileDevice::ExeOther);

    // A virtual user from a passwd line. The SHA-512 crypt hash keeps logins
    // fast (pure-pw's own argon2 hash costs seconds per login); the "/./"
    // chroots the user to its home.
    const QString openssl = QStringLiteral("/usr/bin/openssl");
    const auto hash =
        ServerProcess::runTool(openssl, {QStringLiteral("passwd"), QStringLiteral("-6"), password()}, error);
    if (!hash)
        return false;
    const QByteArray passwdLine = userName().toUtf8() + ':' + hash->trimmed() + ':' +
                                  QByteArray::number(ftpUserId) + ':' + QByteArray::number(ftpGroupId) +
                                  "::" + QFile::encodeName(home) + "/./::::::::::::\n";
    const QString passwdFile = folder + QStringLiteral("/users.passwd");
    if (!writeWhole(passwdFile, passwdLine, QFileDevice::ReadOwner | QFileDevice::WriteOwner)) {
        *error = QStringLiteral("cannot write ") + passwdFile;
        return false;
    }
    if (!ServerProcess::runTool(
            QStringLiteral("/usr/bin/pure-pw"),
            {QStringLiteral("mkdb"), folder + QStringLiteral("/users.pdb"), QStringLiteral("-f"), passwdFile},
            error))
        return false;

    return makeCertificate(folder + QStringLiteral("/server.pem"), error);
}

std::optional<QString> FtpServer::makeFolders(const QString& relativeFolder) const {
    if (m_skipReason || !m_folder.isValid())
        return std::nullopt;
    QString path = homeFolder();
    const QStringList parts = relativeFolder.split(QLatin1Char('/'), Qt::SkipEmptyParts);
    for (const QString& part : parts) {
        if (part == QStringLiteral("..") || part == QStringLiteral("."))
            return std::nullopt;
        path += QLatin1Char('/') + part;
        if (QFileInfo(path).isDir())
            continue;
        if (!QDir().mkdir(path) || !giveToUser(path))
            return std::nullopt;
    }
    return path;
}

bool FtpServer::writeFile(const QString& relativePath, const QByteArray& content) const {
    const QString folder = relativePath.section(QLatin1Char('/'), 0, -2);
    const QString name = relativePath.section(QLatin1Char('/'), -1);
    const auto folderPath = makeFolders(folder);
    if (!folderPath || name.isEmpty())
        return false;
    const QString path = *folderPath + QLatin1Char('/') + name;
    return writeWhole(path, content,
                      QFileDevice::ReadOwner | QFileDevice::WriteOwner | QFileDevice::ReadGroup |
                          QFileDevice::ReadOther) &&
           giveToUser(path);
}

bool FtpServer::emptyFolder(const QString& relativeFolder) const {
    if (!QDir(homeFolder() + QLatin1Char('/') + relativeFolder).removeRecursively())
        return false;
    return makeFolders(relativeFolder).has_value();
}

bool FtpServer::makeUnwritable(const QString& relativeFolder) const {
    const auto path = makeFolders(relativeFolder);
    if (!path || *path == homeFolder())
        return false;
    // Owned by root and not writable: the user (uid 2000) may list it only.
    return ::chown(QFile::encodeName(*path).constData(), 0, 0) == 0 &&
           QFile::setPermissions(*path, QFileDevice::ReadOwner | QFileDevice::ExeOwner |
                                            QFileDevice::ReadGroup | QFileDevice::ExeGroup |
                                            QFileDevice::ReadOther | QFileDevice::ExeOther);
}

} // namespace tw::test
