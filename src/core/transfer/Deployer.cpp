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

Error Deployer::error(DeployerError error) {
    switch (error) {
    case DeployerError::noUsernameSet:
        break;
    }
    //: No user name
    const QString text =
        QCoreApplication::translate("Deployer", "You must provide a username in the remote settings");
    return Error{AppInfo::identifier() + QStringLiteral(".DeployerError"), static_cast<qint64>(error), text};
}

void Deployer::setupTransporter() {
    if (!m_site)
        return;
    const QString siteId = m_site->siteId();
    const QString password = TWPasswords::getPasswordForSite(siteId).value_or(QString());
    const std::optional<QString> passphrase = TWPasswords::getPassphraseForSite(siteId);

    if (!m_site->username) {
        if (m_delegate)
            m_delegate->setupTransporterDidFailWithError(error(DeployerError::noUsernameSet));
        return;
    }

    std::shared_ptr<TransporterConnectionProtocol> connection;
    const std::optional<QString>& protocol = m_site->protocol;
    if (protocol == SFTP) {
        connection = std::make_shared<TransporterSFTPConnection>(m_site, password, passphrase);
    } else if (protocol == FTPS) {
        connection = std::make_shared<TransporterFTPSConnection>(m_site, password);
    } else if (protocol == FTP_TLS) {
        connection = std::make_shared<TransporterFTPTLSConnection>(m_site, password);
    } else {
        auto ftp = std::make_shared<TransporterFTPConnection>(m_site, password);
        ftp->setPassive(m_site->passiveMode);
        connection = ftp;
    }
    m_transporter = std::make_shared<Transporter>(connection);
}

} // namespace tw
