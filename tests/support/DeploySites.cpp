#include "DeploySites.h"

#include "app/Preferences.h"
#include "keychain/TWPasswords.h"
#include "model/Sites.h"

namespace tw::test {

SitePtr ftpSite(const GitRepository& repo, const FtpServer& server, const QString& remotePath) {
    SitePtr site = Site::newSite();
    site->name = QStringLiteral("Blog");
    site->localPath = repo.path();
    site->host = FtpServer::host();
    site->port = QString::number(server.port());
    site->username = FtpServer::userName();
    site->remotePath = remotePath;
    site->deployBranch = QStringLiteral("main");
    TWPasswords::setPassword(FtpServer::password(), site->siteId());
    return site;
}

void storeSites(const SiteList& sites) {
    Sites().storeWithSites(sites);
    Preferences::instance().setInteger(QStringLiteral("currentSiteIndex"), 0);
}

} // namespace tw::test
