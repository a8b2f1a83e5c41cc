#pragma once

#include "FtpServer.h"
#include "SshServer.h"
#include "transfer/Transporter.h"
#include "transfer/TransporterFTPConnection.h"
#include "transfer/TransporterFTPSConnection.h"
#include "transfer/TransporterFTPTLSConnection.h"
#include "transfer/TransporterSFTPConnection.h"

#include <QFile>

#include <memory>

namespace tw::test {

enum class Transport { Passive, Active, Tls, ImplicitChoice, Sftp };

// A transporter to remotePath on the loopback server of a transport: below
// the FTP user's home, or below the SFTP session's folder. An empty
// password (or pass phrase) is the right one.
inline std::shared_ptr<Transporter> serverTransporter(Transport transport, const FtpServer& ftp,
                                                      const SshServer& ssh, const QString& remotePath,
                                                      const QString& password = QString()) {
    auto site = std::make_shared<Site>();
    site->host = QStringLiteral("127.0.0.1");
    if (transport == Transport::Sftp) {
        site->port = QString::number(ssh.port());
        site->username = SshServer::userName();
        site->remotePath = QStringLiteral("~/") + remotePath;
        site->sshKeyPath = ssh.encryptedKeyPath();
        return std::make_shared<Transporter>(std::make_shared<TransporterSFTPConnection>(
            site, QString(), password.isEmpty() ? SshServer::passphrase() : password));
    }
    site->port = QString::number(ftp.port());
    site->username = FtpServer::userName();
    site->remotePath = remotePath;
    const QString ftpPassword = password.isEmpty() ? FtpServer::password() : password;
    if (transport == Transport::Tls)
        return std::make_shared<Transporter>(
            std::make_shared<TransporterFTPTLSConnection>(site, ftpPassword));
    if (transport == Transport::ImplicitChoice)
        return std::make_shared<Transporter>(std::make_shared<TransporterFTPSConnection>(site, ftpPassword));
    auto connection = std::make_shared<TransporterFTPConnection>(site, ftpPassword);
    connection->setPassive(transport == Transport::Passive);
    return std::make_shared<Transporter>(connection);
}

inline QByteArray contentOf(const QString& path) {
    QFile file(path);
    return file.open(QIODevice::ReadOnly) ? file.readAll() : QByteArray("<missing>");
}

} // namespace tw::test
