#pragma once

#include "app/Error.h"
#include "deploy/DeployOutcome.h"
#include "deploy/DeployReadiness.h"
#include "deploy/DeployView.h"
#include "deploy/RunSummary.h"
#include "deploy/VDKQueue.h"
#include "deploy/VDKQueueDelegate.h"
#include "git/SiteManagerDelegate.h"
#include "model/File.h"
#include "model/Site.h"

#include <QHash>
#include <QObject>
#include <QPointer>
#include <QSet>
#include <QTimer>

#include <memory>
#include <optional>

namespace tw {

class DeployRun;
class HeadSettle;
class SiteManager;
class UserNotifier;

// The controller of the main window: it holds the selected site and its
// deployable file list, watches the repository, answers whether a run can
// start, and starts one DeployRun per press of Deploy (or per automatic
// deployment). The run does the deployment; the controller shows its rows'
// statuses in the list, and when it has ended lists the files again.
//
// Everything it shows or asks goes through its DeployView, so the desktop
// window, the command line and the tests drive the same decisions. It lives
// on the main thread.
//
// The site is the stored list's current site ("currentSiteIndex"), or, once
// pinSite() was called, the stored site with that id whatever is current (the
// command line works on the site it names and never changes the current one).
class ViewController : public QObject, public SiteManagerDelegate, public VDKQueueDelegate {
    Q_OBJECT

public:
    explicit ViewController(DeployView& view, QObject* parent = nullptr);
    ~ViewController() override;

    // State (read by the views; changed only here).
    SitePtr currentSite;
    std::optional<FileList> files; // absent when nothing can be listed
    EmptyTableView* emptyTableView = nullptr;
    std::unique_ptr<tw::VDKQueue> fileWatcherQueue;
    bool appInForeground = false;

    // Works on the stored site with this id from now on, instead of the
    // current one. Call before viewDidLoad.
    void pinSite(const QString& siteId);

    // Loading and listing.
    void viewDidLoad();
    void setupFileList();
    // Gives every stored site without an id one first (see StoredSite).
    SitePtr loadCurrentSite();
    bool checkCheckedOutBranch();
    // The branch checked out in the site's repository, or nothing (also for
    // a detached HEAD).
    std::optional<QString> checkOutedBranch() const;
    void switchBranchBtn();
    // The commit the listed files lead to (HEAD when they were listed).
    CommitPtr listedCommit() const { return m_listedCommit; }
    // Its full id, resolved once per listing: the log line, the file list
    // and the exported content all come from it.
    QString listedCommitId() const { return m_listedCommitId; }
    // The site's last deployed commit is no longer in the repository (after
    // a rebase or a forced push): every file is listed, for a full deployment.
    bool lastDeployedCommitMissing() const { return m_lastDeployedMissing; }
    // What the person should know about the list beside its rows: a last
    // deployed commit that is gone (every file is listed), and the files
    // with uncommitted edits (they are deployed as committed). One sentence
    // each; empty when there is nothing to say.
    QStringList listingNotes() const;
    // The listed files that wait, unchecked, for a later deployment.
    qsizetype waitingCount() const;

    // Whether Deploy would start a run now, and if not, why. The Deploy
    // button, the command line and automatic deployment all ask this.
    DeployReadiness readiness() const;
    // A run is under way (from the press of Deploy until its record is
    // written, a question stopped it, or it failed).
    bool isDeploying() const;
    // No run, and no process of one, is left.
    bool isIdle() const;
    // The run under way, or none.
    DeployRun* run() const;
    // What the last run did (empty before the first).
    const RunSummary& lastRunSummary() const { return m_lastSummary; }

    // Deploying.
    void deployButton();
    bool hasFilesToUpload() const;
    void prepareDeployFiles();
    void abortDeploy();
    void showLogDirectory();
    void noSitesDefinedNotification();
    // Sets the check mark of the given rows (the check box above the list).
    // An unchecked file waits for a later deployment until a commit changes
    // it; an unchecked always-uploaded entry is left out of the next run only.
    void updateCheckboxes(bool checked, const QList<qsizetype>& selectedRows);

    // Automatic deployment.
    void autoDeploy();

    // The application was hidden or shown again during a deployment.
    void applicationWillHide();
    void applicationDidUnhide();

    // The process-wide uploading flag (preference "isUploading").
    static void setUploadingStatus(bool uploading);
    static bool isUploading();

    // SiteManagerDelegate
    void siteManagerDidFailWithError(const Error& error) override;
    void fileBookmarkIsStale() override;

    // VDKQueueDelegate
    void VDKQueue(tw::VDKQueue* queue, const QString& notificationName, const QString& path) override;

signals:
    // A deployment attempt ended (see DeployOutcome): the message is what the
    // person was told, the summary what the run did. Nothing of the run runs
    // any more; its record on the server is written when the outcome says so.
    void deploymentEnded(tw::DeployOutcome outcome, const QString& message, const tw::RunSummary& summary);
    // Files sent so far and the number to send, while a run transfers.
    void progressChanged(qsizetype done, qsizetype total);
    // readiness() answers something else now.
    void readinessChanged(tw::DeployReadiness readiness);

private:
    // What the last listing found in the site's folder.
    enum class ListingState { None, NoFolder, NotARepository, OtherBranch, Listed };

    void later(std::function<void()> work);
    void end(DeployOutcome outcome, const QString& message);
    void updateReadiness();
    void reloadSiteAndFiles();
    void preferenceChanged(const QString& key);
    std::optional<FileList> listChangedFiles(const SiteManager& manager);
    void addWaitingAndMandatoryRows(FileList& list);
    void runEnded(DeployOutcome outcome, const QString& message);
    void rowStatusChanged(qsizetype row);
    void showNotification(const RunSummary& summary);
    void headMoved();
    void waitForTheRun();

    DeployView& m_view;
    std::unique_ptr<UserNotifier> m_notifier;
    std::optional<QString> m_pinnedSiteId;
    QPointer<DeployRun> m_run;
    quint64 m_filesGeneration = 0; // changes whenever files is built anew
    quint64 m_runGeneration = 0;   // the generation the run's rows were copied from
    CommitPtr m_listedCommit;
    QString m_listedCommitId; // its full id
    CommitList m_listedCommits;
    bool m_lastDeployedMissing = false;
    QSet<QString> m_uncheckedMandatory; // left out of the next run only
    RunSummary m_lastSummary;
    bool m_loaded = false;
    ListingState m_listing = ListingState::None;
    // The site whose HEAD moved while a run was under way.
    std::optional<QString> m_autoDeployWaitingSite;
    std::unique_ptr<HeadSettle> m_headSettle; // HEAD's reflog changed; git may not be done
    DeployReadiness m_readiness = DeployReadiness::NoSite;
};

} // namespace tw
