#pragma once

#include "FtpServer.h"
#include "GitRepository.h"
#include "model/Site.h"

#include <QString>

namespace tw::test {

// A site that deploys the repository to a folder of the FTP server, with
// the server's password in the secret store (the test needs a keyring) and
// branch "main".
SitePtr ftpSite(const GitRepository& repo, const FtpServer& server,
                const QString& remotePath = QStringLiteral("www/"));
// Stores the sites as the whole list, the first one current.
void storeSites(const SiteList& sites);

} // namespace tw::test
