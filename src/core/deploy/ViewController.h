#pragma once

#include "app/Error.h"
#include "deploy/DeployOutcome.h"
#include "deploy/DeployReadiness.h"
#include "deploy/DeployView.h"
#include "deploy/DisplaySleepGuard.h"
#include "deploy/ProgressView.h"
#include "deploy/VDKQueue.h"
#include "deploy/VDKQueueDelegate.h"
#include "git/SiteManagerDelegate.h"
#include "model/File.h"
#include "model/Site.h"
#include "transfer/Deployer.h"
#include "transfer/Transporter.h"

#include <QDateTime>
#include <QHash>
#include <QObject>
#include <QPointer>
#include <QTimer>

#include <limits>
#include <memory>
#include <optional>

namespace tw {

class CheckSumManager;
class ScriptRunner;
class UserNotifier;

// The controller of the main window and the spine of the program: it holds
// the selected site, its deployable file list and, for one deployment, the
// transfer engine, and drives a deployment from the press of Deploy to its
// end: the check against the server's deployment record, the questions about
// a foreign branch or commit, the transfer queue with the mandatory files,
// the scripts at their stages, the transfers, the notification, the new
// record on the server and the saved site.
//
// Everything it shows or asks goes through its DeployView, so the desktop
// window, the command line and the tests drive the same decisions. It lives
// on the main thread; every completion hops back to it with a queued call
// before it touches state or asks anything.
class ViewController : public QObject,
                       public TransporterDelegate,
                       public DeployerDelegate,
                       public SiteManagerDelegate,
                       public VDKQueueDelegate,
                       public ProgressViewDelegate {
    Q_OBJECT

public:
    static constexpr qsizetype NotFound = std::numeric_limits<qsizetype>::max();

    explicit ViewController(DeployView& view, QObject* parent = nullptr);
    ~ViewController() override;

    // State (read by the views; changed only here).
    SitePtr currentSite;
    std::optional<FileList> files; // absent when nothing can be listed
    std::shared_ptr<Transporter> transporter;
    ProgressView* progressVC = nullptr;
    EmptyTableView* emptyTableViewContoller = nullptr;
    std::unique_ptr<tw::VDKQueue> fileWatcherQueue;
    bool isDeploying = false;
    quint64 uploadIndex = 0;
    quint64 totalFiles = 0;
    quint64 remainingFiles = 0;
    bool appInForeground = false;

    // Loading and listing.
    void viewDidLoad();
    void setupFileList();
    void setupFileList(const std::optional<QString>& sha1);
    SitePtr loadCurrentSite() const;
    bool checkCheckedOutBranch();
    // The branch checked out in the site's repository (a detached head
    // answers the commit id), or nothing.
    std::optional<QString> checkOutedBranch() const;
    void switchBranchBtn();

    // Whether Deploy would start a run now, and if not, why. The Deploy
    // button, the command line and automatic deployment all ask this.
    DeployReadiness readiness() const;

    // Deploying.
    void deployButton();
    bool hasFilesToUpload() const;
    void prepareDeployFiles();
    void preflightCheck();
    void alertWrongBranch(const QString& branch);
    void alertOtherCommitDetected(const QString& sha1, const std::optional<QDateTime>& date);
    qsizetype indexOfSha1Commit(const std::optional<QString>& sha1) const;
    void forceDeploy();
    void alertError(const Error& error);
    void alertErrorScript(const Error& error);
    void showLogDirectory();
    void noSitesDefinedNotification();
    void addTimeObserverToPlayer();
    void removeTimeObserverFromPlayer();

    // The run.
    void deployFiles();
    void prepareFiles();
    void addMandatoryFiles(FileList& list);
    void preDeployLocalScriptResult(const QString& result, const std::optional<Error>& error);
    // The row of the file list a transfer belongs to, or null.
    FilePtr getCurrentFile(const TransporterFilePtr& file) const;
    void deployFinished();
    void postUpload();
    void showNotification();
    void uploadCheckSumAndCleanup();
    void abortDeploy() override;
    void abortUploadWithMessage(const QString& message);
    void resetFilesStatus();
    void setFileStatusTo100Percent();
    bool isUploadSuccess() const;
    bool isUploadComplete() const;
    // Sets the check mark of the given rows (the check box above the list).
    void updateCheckboxes(bool checked, const QList<qsizetype>& selectedRows);

    // Automatic deployment.
    void autoDeploy();

    // The application was hidden or shown again during a deployment.
    void applicationWillHide();
    void applicationDidUnhide();

    // The process-wide uploading flag (preference "isUploading").
    static void setUploadingStatus(bool uploading);
    static bool isUploading();

    // TransporterDelegate
    void didCompletePercent(const TransporterFilePtr& file, double percent) override;
    void didComplete(const TransporterFilePtr& file) override;
    void didCompleteListing(const TransporterFilePtr& file, const QStringList& files) override;
    void didCompleteReadingFile(const TransporterFilePtr& file, const QString& content) override;
    void didCompleteAllRequests(const QString& tag) override;
    void didCompleteAllWithErrors(const QString& tag) override;
    void didFail(const TransporterFilePtr& file, const QString& error) override;

    // DeployerDelegate
    void setupTransporterDidFailWithError(const Error& error) override;

    // SiteManagerDelegate
    void siteManagerDidFailWithError(const Error& error) override;
    void fileBookmarkIsStale() override;

    // VDKQueueDelegate
    void VDKQueue(tw::VDKQueue* queue, const QString& notificationName, const QString& path) override;

    // The pause between the end of the transfers and the post-deploy stage.
    static constexpr int postDeployDelayMilliseconds = 500;

signals:
    // A deployment attempt ended (see DeployOutcome); the message is what
    // the person was told.
    void deploymentEnded(tw::DeployOutcome outcome, const QString& message);
    // The server's deployment record of a successful deployment was sent
    // (or could not be); nothing of the deployment runs any more.
    void recordUploadFinished();
    // readiness() answers something else now.
    void readinessChanged(tw::DeployReadiness readiness);

private:
    // What the last listing found in the site's folder.
    enum class ListingState { None, NoFolder, NotARepository, OtherBranch, Listed };
    void updateReadiness();
    void askQuestion(const AlertRequest& alert, std::function<void(int)> answered);
    void later(std::function<void()> work);
    void showProgress();
    // Closes the progress display; the attempt is no longer deploying.
    void closeProgress();
    // The "Force deploy" / "Cancel" questions.
    void askToForceDeploy(const AlertRequest& alert);
    void showError(const Error& error, DeployOutcome outcome);
    void end(DeployOutcome outcome, const QString& message);
    void rebuildRowIndex();
    qsizetype rowOf(const FilePtr& file) const;
    void reloadSiteAndFiles();
    void preferenceChanged(const QString& key);
    void saveCurrentSite();
    void watchRecordUpload();
    std::optional<QString> localBasePath() const;

    DeployView& m_view;
    DisplaySleepGuard m_displaySleepGuard;
    std::unique_ptr<UserNotifier> m_notifier;
    std::unique_ptr<CheckSumManager> m_checkSumManager;
    std::unique_ptr<ScriptRunner> m_scriptRunner;
    std::unique_ptr<ScriptRunner> m_remoteScriptRunner;
    QTimer m_postDeployTimer;
    QHash<QString, qsizetype> m_rowIndex; // path -> first row
    bool m_savingSite = false;
    bool m_loaded = false;
    ListingState m_listing = ListingState::None;
    bool m_questionPending = false;
    bool m_recordPending = false;     // the record of a successful run is still being written
    bool m_autoDeployWaiting = false; // HEAD moved while a run or a question was under way
    DeployReadiness m_readiness = DeployReadiness::NoSite;
};

} // namespace tw
