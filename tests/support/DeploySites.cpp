#include "DeploySites.h"

#include "app/Preferences.h"
#include "keychain/TWPasswords.h"
#include "model/Sites.h"

#include <QTest>

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

SitePtr sftpSite(const GitRepository& repo, const SshServer& server, const QString& remotePath) {
    SitePtr site = Site::newSite();
    site->name = QStringLiteral("Secure");
    site->protocol = QStringLiteral("SFTP");
    site->localPath = repo.path();
    site->host = SshServer::host();
    site->port = QString::number(server.port());
    site->username = SshServer::userName();
    site->sshKeyPath = server.encryptedKeyPath();
    site->remotePath = remotePath;
    site->deployBranch = QStringLiteral("main");
    TWPasswords::setPassphrase(SshServer::passphrase(), site->siteId());
    return site;
}

void storeSites(const SiteList& sites) {
    Sites().storeWithSites(sites);
    Preferences::instance().setInteger(QStringLiteral("currentSiteIndex"), 0);
}

namespace {

// The types of the ends' arguments, known before the spy looks at them.
ViewController& withTypesKnown(ViewController& controller) {
    qRegisterMetaType<DeployOutcome>();
    qRegisterMetaType<RunSummary>();
    return controller;
}

} // namespace

QString DeployAttempt::problem() const {
    return deployed() ? QString() : QStringLiteral("outcome %1: %2").arg(int(outcome)).arg(message);
}

DeployWindow::DeployWindow(const SiteList& sites, const QString& pinnedSiteId)
    : controller(view)
    , ended(&withTypesKnown(controller), &ViewController::deploymentEnded) {
    if (!sites.isEmpty())
        storeSites(sites);
    if (!pinnedSiteId.isEmpty())
        controller.pinSite(pinnedSiteId);
    controller.viewDidLoad();
}

DeployAttempt DeployWindow::deploy() {
    const qsizetype count = ended.count() + 1;
    controller.deployButton();
    return waitForEnd(count);
}

DeployAttempt DeployWindow::waitForEnd(qsizetype count) {
    if (!QTest::qWaitFor([&] { return ended.count() >= count; }, 60000))
        return {DeployOutcome::Failed, QStringLiteral("no end within 60 s"), {}};
    const QList<QVariant> end = ended.at(count - 1);
    return {end.at(0).value<DeployOutcome>(), end.at(1).toString(), end.at(2).value<RunSummary>()};
}

void DeployWindow::commitWritten(const GitRepository& repo) {
    controller.VDKQueue(controller.fileWatcherQueue.get(),
                        QStringLiteral("VDKQueueFileWrittenToNotification"),
                        repo.path() + QStringLiteral("/.git/logs/HEAD"));
}

} // namespace tw::test
