#pragma once

#include "FtpServer.h"
#include "GitRepository.h"
#include "ScriptedDeployView.h"
#include "SshServer.h"
#include "deploy/ViewController.h"
#include "model/Site.h"
#include "transfer/Deployer.h"

#include <QSignalSpy>
#include <QString>

namespace tw::test {

// A site that deploys the repository to a folder of the FTP server, with
// the server's password in the secret store (the test needs a keyring) and
// branch "main".
SitePtr ftpSite(const GitRepository& repo, const FtpServer& server,
                const QString& remotePath = QStringLiteral("www/"));
// The same over SFTP, logging in with the server's encrypted key, its pass
// phrase in the secret store.
SitePtr sftpSite(const GitRepository& repo, const SshServer& server,
                 const QString& remotePath = QStringLiteral("~/www/"));
// Stores the sites as the whole list, the first one current.
void storeSites(const SiteList& sites);

// Remembers the failures a Deployer reports while it sets up its engine.
struct RecordingDeployerDelegate : DeployerDelegate {
    QList<Error> errors;
    void setupTransporterDidFailWithError(const Error& error) override { errors.append(error); }
};

// How one deployment attempt ended.
struct DeployAttempt {
    DeployOutcome outcome = DeployOutcome::Failed;
    QString message;
    RunSummary summary;
    bool deployed() const { return outcome == DeployOutcome::Deployed; }
    // Nothing when the attempt deployed; else its outcome and message, for
    // QCOMPARE against an empty text.
    QString problem() const;
};

// The window's controller over a scripted view, loaded with the stored
// sites (the ones given, stored first, when there are), bound to one of them
// by its id when given, and every end of a deployment it announces.
struct DeployWindow {
    explicit DeployWindow(const SiteList& sites = SiteList(), const QString& pinnedSiteId = QString());
    // Presses Deploy and waits for the end (after a success, the record is
    // on the server then).
    DeployAttempt deploy();
    // The count-th end since the window opened, once it has come (60 s at
    // most).
    DeployAttempt waitForEnd(qsizetype count = 1);
    // What the repository watcher reports when a commit moved HEAD.
    void commitWritten(const GitRepository& repo);

    ScriptedDeployView view;
    ViewController controller;
    QSignalSpy ended;
};

} // namespace tw::test
