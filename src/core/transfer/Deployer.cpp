#include "Deployer.h"

#include "app/AppInfo.h"
#include "keychain/TWPasswords.h"
#include "transfer/TransporterFTPConnection.h"
#include "transfer/TransporterFTPSConnection.h"
#include "transfer/TransporterFTPTLSConnection.h"
#include "transfer/TransporterSFTPConnection.h"

#include <QCoreApplication>

#include <utility>

namespace tw {

Deployer::Deployer(SitePtr site)
    : m_site(std::move(site)) {}

Error Deployer::error(DeployerError error, const QString& why) {
    QString text;
    switch (error) {
    case DeployerError::noUsernameSet:
        //: No user name
        text = QCoreApplication::translate("Deployer", "You must provide a username in the remote settings");
        break;
    case DeployerError::passwordNotRead:
        text = QCoreApplication::translate("Deployer",
                                           "The password could not be read from the secret store (%1), so "
                                           "no connection was made. Unlock or start the keyring, then try "
                                           "again.")
                   .arg(why);
        break;
    case DeployerError::passphraseNotRead:
        text = QCoreApplication::translate("Deployer",
                                           "The pass phrase of the SSH key could not be read from the secret "
                                           "store (%1), so no connection was made. Unlock or start the "
                                           "keyring, then try again.")
                   .arg(why);
        break;
    }
    return Error{AppInfo::identifier() + QStringLiteral(".DeployerError"), static_cast<qint64>(error), text};
}

void Deployer::setupTransporter() {
    if (!m_site)
        return;
    const QString siteId = m_site->siteId();
    const std::optional<QString>& protocol = m_site->protocol;
    // A store that failed for the password is not asked again for the pass
    // phrase (a silent one costs its time limit each time); only an SFTP
    // connection takes a pass phrase.
    const TWPasswords::Read password = TWPasswords::readPassword(siteId);
    TWPasswords::Read passphrase;
    if (!password.failure && protocol == SFTP)
        passphrase = TWPasswords::readPassphrase(siteId);

    if (!m_site->username) {
        if (m_delegate)
            m_delegate->setupTransporterDidFailWithError(error(DeployerError::noUsernameSet));
        return;
    }
    if (password.failure || passphrase.failure) {
        if (m_delegate)
            m_delegate->setupTransporterDidFailWithError(
                password.failure ? error(DeployerError::passwordNotRead, *password.failure)
                                 : error(DeployerError::passphraseNotRead, *passphrase.failure));
        return;
    }

    // No stored password counts as an empty one.
    const QString login = password.secret.value_or(QString());
    std::shared_ptr<TransporterConnectionProtocol> connection;
    if (protocol == SFTP) {
        connection = std::make_shared<TransporterSFTPConnection>(m_site, login, passphrase.secret);
    } else if (protocol == FTPS) {
        connection = std::make_shared<TransporterFTPSConnection>(m_site, login);
    } else if (protocol == FTP_TLS) {
        connection = std::make_shared<TransporterFTPTLSConnection>(m_site, login);
    } else {
        auto ftp = std::make_shared<TransporterFTPConnection>(m_site, login);
        ftp->setPassive(m_site->passiveMode);
        connection = ftp;
    }
    m_transporter = std::make_shared<Transporter>(connection);
}

} // namespace tw
