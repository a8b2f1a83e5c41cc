#pragma once

#include "app/Error.h"
#include "model/Site.h"
#include "transfer/DeployerDelegate.h"
#include "transfer/Transporter.h"

#include <QString>

#include <memory>

namespace tw {

// Why a transfer engine could not be built for a site.
enum class DeployerError {
    noUsernameSet,     // "You must provide a username in the remote settings"
    passwordNotRead,   // the secret store failed to give the password
    passphraseNotRead, // the secret store failed to give the pass phrase
};

// Builds the transfer engine for a site: reads its password and pass phrase
// from the secret store (a store that holds none is fine: an SFTP site may log
// in with a key; a store that fails, being locked, silent or missing, fails
// the set-up, so that no login is tried without the password), picks the
// connection from the site's protocol text
// ("SFTP", "FTP with implicit SSL", "FTP with TLS/SSL"; anything else is
// plain FTP, which alone takes the site's passive-mode setting) and wraps it
// in a new Transporter.
//
//     Deployer deployer(site);
//     deployer.setDelegate(this);
//     deployer.setupTransporter();
//     if (auto transporter = deployer.getTransporter()) ...; // else the delegate was told why
class Deployer {
public:
    const QString SFTP = QStringLiteral("SFTP");
    const QString FTP = QStringLiteral("FTP");
    const QString FTPS = QStringLiteral("FTP with implicit SSL");
    const QString FTP_TLS = QStringLiteral("FTP with TLS/SSL");

    explicit Deployer(SitePtr site);

    // Not owned; may be none (then a failure goes unreported).
    DeployerDelegate* delegate() const { return m_delegate; }
    void setDelegate(DeployerDelegate* delegate) { m_delegate = delegate; }

    // A site without any user name is refused (an empty one passes), and so
    // is one whose secrets the store could not give; the transporter built
    // before, if any, then stays.
    void setupTransporter();
    // The engine of the last successful setupTransporter(), or none.
    std::shared_ptr<Transporter> getTransporter() const { return m_transporter; }

    // The error for the delegate, with its text for the person; why names
    // the store's failure.
    static Error error(DeployerError error, const QString& why = QString());

private:
    SitePtr m_site;
    DeployerDelegate* m_delegate = nullptr;
    std::shared_ptr<Transporter> m_transporter;
};

} // namespace tw
