#include "ViewController.h"

#include "app/Logger.h"
#include "app/Preferences.h"
#include "deploy/AlwaysUploadedFolders.h"
#include "deploy/DeployRun.h"
#include "deploy/HeadSettle.h"
#include "deploy/ListingNotes.h"
#include "deploy/NotificationHub.h"
#include "deploy/StoredSite.h"
#include "deploy/UploadingFlag.h"
#include "deploy/UserNotifier.h"
#include "deploy/WaitingFiles.h"
#include "git/SiteManager.h"
#include "git/TWGit.h"
#include "model/SecurityBookmarkManager.h"
#include "model/Sites.h"

#include <QCoreApplication>
#include <QDir>
#include <QFile>

namespace tw {

namespace {

const QString kCurrentSiteIndex = QStringLiteral("currentSiteIndex");
const QString kSites = QStringLiteral("sites");

bool nonEmpty(const std::optional<QString>& text) {
    return text && !text->isEmpty();
}

} // namespace

ViewController::ViewController(DeployView& view, QObject* parent)
    : QObject(parent)
    , m_view(view)
    , m_notifier(std::make_unique<UserNotifier>()) {}

ViewController::~ViewController() {
    if (fileWatcherQueue)
        fileWatcherQueue->removeAllPaths();
    // A run still under way stops with its processes.
    delete m_run.data();
}

void ViewController::later(std::function<void()> work) {
    QMetaObject::invokeMethod(this, std::move(work), Qt::QueuedConnection);
}

void ViewController::end(DeployOutcome outcome, const QString& message) {
    emit deploymentEnded(outcome, message, m_lastSummary);
    updateReadiness();
}

void ViewController::pinSite(const QString& siteId) {
    m_pinnedSiteId = siteId;
}

// ---------------------------------------------------------------------------
// Loading and listing

void ViewController::viewDidLoad() {
    emptyTableView = &m_view.emptyTableView();
    emptyTableView->hideAll();
    const auto sites = Sites().loadAll();
    if (!sites || sites->isEmpty())
        emptyTableView->noSitesDefined();
    if (const auto problem = Sites::takeLoadProblem()) {
        AlertRequest alert;
        alert.message = QStringLiteral("Some sites could not be read");
        alert.informativeText = *problem;
        m_view.runModal(alert);
    }
    appInForeground = true;

    fileWatcherQueue = std::make_unique<tw::VDKQueue>();
    fileWatcherQueue->setDelegate(this);
    fileWatcherQueue->setAlwaysPostNotifications(true);
    if (!m_headSettle) {
        m_headSettle = std::make_unique<HeadSettle>([this]() -> std::optional<QString> {
            if (currentSite && currentSite->localPath &&
                TWGit::isUpdatingRefs(*currentSite->localPath, checkOutedBranch().value_or(QString())))
                return currentSite->localPath;
            return std::nullopt;
        });
        connect(m_headSettle.get(), &HeadSettle::settled, this, &ViewController::headMoved);
    }

    currentSite = loadCurrentSite();
    m_view.siteDidChange();
    setupFileList();

    if (!m_loaded) {
        m_loaded = true;
        connect(&Preferences::instance(), &Preferences::valueChanged, this,
                &ViewController::preferenceChanged);
        connect(&NotificationHub::instance(), &NotificationHub::reloadFiles, this,
                &ViewController::reloadSiteAndFiles);
        connect(&NotificationHub::instance(), &NotificationHub::noSites, this,
                &ViewController::noSitesDefinedNotification);
    }
}

void ViewController::preferenceChanged(const QString& key) {
    // A run works on its own copy of the site; the list follows the stored
    // sites once it has ended.
    if (key == kCurrentSiteIndex && !m_pinnedSiteId)
        reloadSiteAndFiles();
    else if (key == kSites)
        reloadSiteAndFiles();
}

void ViewController::reloadSiteAndFiles() {
    currentSite = loadCurrentSite();
    const auto sites = Sites().loadAll();
    if (!sites || sites->isEmpty())
        emptyTableView->noSitesDefined();
    else
        emptyTableView->hideAll();
    m_view.siteDidChange();
    setupFileList();
}

SitePtr ViewController::loadCurrentSite() {
    return m_pinnedSiteId ? StoredSite::withId(*m_pinnedSiteId) : StoredSite::current();
}

void ViewController::setupFileList() {
    if (fileWatcherQueue)
        fileWatcherQueue->removeAllPaths();
    ++m_filesGeneration;
    m_listing = ListingState::NoFolder;
    m_listedCommit.reset();
    m_listedCommitId.clear();
    m_listedCommits.clear();
    m_lastDeployedMissing = false;

    auto finish = [this] {
        m_view.filesDidChange();
        updateReadiness();
    };
    if (!currentSite || !currentSite->localPath) {
        files.reset();
        finish();
        return;
    }
    SiteManager manager(currentSite);
    manager.delegate = this;
    if (!manager.localPathExists()) {
        emptyTableView->notValidGitRepoWith(QStringLiteral("No valid git repository"));
        files.reset();
        finish();
        return;
    }

    const auto folder = manager.resolveBookmark();
    // HEAD is resolved once: the commit listed, its files and the content
    // exported all come from this id, even when a commit lands meanwhile.
    m_listedCommitId = manager.headCommit().value_or(QString());
    const auto commits = m_listedCommitId.isEmpty() ? std::nullopt : manager.getCommits(m_listedCommitId);
    m_listedCommits = commits.value_or(CommitList());
    currentSite->commits = commits ? std::make_shared<CommitList>(*commits) : nullptr;
    if (!m_listedCommits.isEmpty())
        m_listedCommit = std::make_shared<Commit>(*m_listedCommits.first());
    if (folder && fileWatcherQueue)
        fileWatcherQueue->addPath(*folder + QStringLiteral("/.git/logs/HEAD"));

    if (checkCheckedOutBranch()) {
        files = listChangedFiles(manager).value_or(FileList());
        addWaitingAndMandatoryRows(*files);
        emptyTableView->hasFilesToDeployWithStatus(!files->isEmpty());
    }
    if (folder)
        manager.stopAccessingSecurityScopedResource(*folder);
    finish();
}

std::optional<FileList> ViewController::listChangedFiles(const SiteManager& manager) {
    // A site whose last deployed commit has an id lists what changed since;
    // one that was never deployed lists every committed file. An imported
    // site carries an empty commit: it was never deployed here.
    if (m_listedCommitId.isEmpty())
        return std::nullopt; // no commit (yet): nothing to list
    const CommitPtr& last = currentSite->lastCommitDeployed;
    if (last && last->sha1 && !last->sha1->isEmpty()) {
        if (manager.commitExists(*last->sha1))
            return manager.loadFilesFromCommit(*last->sha1, m_listedCommitId);
        // Gone after a rebase or a forced push: nothing can be compared with
        // it, so every file is listed for a full deployment (and the window
        // and the command line say why).
        m_lastDeployedMissing = true;
    }
    return manager.getAllFiles(m_listedCommitId);
}

QStringList ViewController::listingNotes() const {
    if (!currentSite || !files)
        return {};
    return ListingNotes::forSite(currentSite, m_lastDeployedMissing);
}

// The files that wait (unchecked earlier, not deployed since) and the site's
// always-uploaded entries join the changed files. A waiting file that a
// commit changed since it was unchecked is listed as changed, checked again.
void ViewController::addWaitingAndMandatoryRows(FileList& list) {
    WaitingFiles::mergeInto(list, currentSite,
                            m_listedCommit ? m_listedCommit->sha1.value_or(QString()) : QString());
    list.append(AlwaysUploadedFolders::rowsOf(*currentSite, m_uncheckedMandatory));
}

qsizetype ViewController::waitingCount() const {
    qsizetype count = 0;
    if (files) {
        for (const FilePtr& file : *files) {
            if (!file->willUpload && !AlwaysUploadedFolders::isAlwaysUploaded(*file))
                ++count;
        }
    }
    return count;
}

bool ViewController::checkCheckedOutBranch() {
    SiteManager manager(currentSite);
    if (!manager.isGitDirectory()) {
        m_listing = ListingState::NotARepository;
        emptyTableView->notValidGitRepoWith(QStringLiteral("Not a valid Git repository '%1'. \n")
                                                .arg(currentSite->localPath.value_or(QString())));
        files.reset();
        return false;
    }
    if (checkOutedBranch() == currentSite->deployBranch) {
        m_listing = ListingState::Listed;
        return true;
    }
    m_listing = ListingState::OtherBranch;
    files.reset();
    if (!manager.isRepoDirty()) {
        const QString branch = currentSite->deployBranch.value_or(QString());
        // Formatted, and deliberately shown nowhere.
        [[maybe_unused]] const QString hint = QStringLiteral("To deploy check out branch '%1'.").arg(branch);
        later([this, branch] {
            emptyTableView->wrongBranchIsSelectedWith(QStringLiteral("A non-deployment branch"), branch);
        });
    }
    return false;
}

// Asked of git, which knows worktrees and packed refs: a detached HEAD has
// no branch, and never reads as one named after git's own words for it.
std::optional<QString> ViewController::checkOutedBranch() const {
    if (!currentSite || !currentSite->localPath)
        return std::nullopt;
    return SiteManager(currentSite).currentBranch();
}

void ViewController::switchBranchBtn() {
    if (!currentSite)
        return;
    SiteManager(currentSite).checkoutBranch(currentSite->deployBranch.value_or(QString()));
}

// ---------------------------------------------------------------------------
// Whether a run can start

DeployReadiness ViewController::readiness() const {
    if (!currentSite)
        return DeployReadiness::NoSite;
    if (m_run) {
        return m_run->isAsking() ? DeployReadiness::QuestionPending : DeployReadiness::Deploying;
    }
    switch (m_listing) {
    case ListingState::None:
    case ListingState::NoFolder:
        return DeployReadiness::NoFolder;
    case ListingState::NotARepository:
        return DeployReadiness::NotARepository;
    case ListingState::OtherBranch:
        return DeployReadiness::OtherBranch;
    case ListingState::Listed:
        break;
    }
    if (!nonEmpty(currentSite->host))
        return DeployReadiness::NoHost;
    if (!hasFilesToUpload())
        return DeployReadiness::NothingToDeploy;
    return DeployReadiness::Ready;
}

DeployRun* ViewController::run() const {
    return m_run.data();
}

bool ViewController::isDeploying() const {
    return m_run != nullptr;
}

bool ViewController::isIdle() const {
    if (!m_run)
        return true;
    const auto& transporter = m_run->transporter();
    return m_run->hasEnded() &&
           (!transporter || (transporter->runningProcessCount() == 0 && transporter->queueMultiCount() == 0));
}

void ViewController::updateReadiness() {
    const DeployReadiness now = readiness();
    m_view.setDeployButtonEnabled(now == DeployReadiness::Ready);
    if (now == m_readiness)
        return;
    m_readiness = now;
    emit readinessChanged(now);
}

// ---------------------------------------------------------------------------
// Deploying

void ViewController::deployButton() {
    const DeployReadiness readiness = this->readiness();
    switch (readiness) {
    case DeployReadiness::Ready:
        prepareDeployFiles();
        return;
    case DeployReadiness::NothingToDeploy: {
        AlertRequest alert;
        alert.message = QStringLiteral("Nothing to deploy");
        m_view.runModal(alert);
        m_lastSummary = RunSummary();
        end(DeployOutcome::NothingToDeploy, alert.message);
        return;
    }
    case DeployReadiness::Deploying:
    case DeployReadiness::QuestionPending:
        // One attempt at a time: the running one (or its open question)
        // decides; a second press does nothing.
        return;
    default: {
        // Another branch checked out, no folder, no server: a run would
        // deploy something other than the site's branch, or nothing at all.
        AlertRequest alert;
        alert.message = QStringLiteral("Cannot deploy");
        alert.informativeText = describe(readiness);
        m_view.runModal(alert);
        m_lastSummary = RunSummary();
        end(DeployOutcome::Refused, alert.informativeText);
        return;
    }
    }
}

bool ViewController::hasFilesToUpload() const {
    if (files) {
        for (const FilePtr& file : *files) {
            if (file->willUpload)
                return true;
        }
    }
    return false;
}

void ViewController::prepareDeployFiles() {
    if (!currentSite || m_run)
        return;
    DeployRun::Plan plan;
    plan.site = currentSite->copy();
    // The copy shares the commit; the run may change its own.
    if (currentSite->lastCommitDeployed)
        plan.site->lastCommitDeployed = std::make_shared<Commit>(*currentSite->lastCommitDeployed);
    if (files) {
        plan.rows.reserve(files->size());
        for (const FilePtr& file : std::as_const(*files))
            plan.rows.append(file->copy());
    }
    plan.commit = m_listedCommit ? std::make_shared<Commit>(*m_listedCommit) : nullptr;
    plan.commitId = m_listedCommitId;
    plan.commits = m_listedCommits;
    m_runGeneration = m_filesGeneration;
    m_uncheckedMandatory.clear();

    auto* run = new DeployRun(m_view, std::move(plan), this);
    m_run = run;
    connect(run, &DeployRun::rowStatusChanged, this, &ViewController::rowStatusChanged);
    connect(run, &DeployRun::progressChanged, this, &ViewController::progressChanged);
    connect(run, &DeployRun::askingChanged, this, [this] { updateReadiness(); });
    connect(run, &DeployRun::ended, this, &ViewController::runEnded);
    updateReadiness();
    run->start();
}

void ViewController::rowStatusChanged(qsizetype row) {
    if (!m_run || !files || m_runGeneration != m_filesGeneration)
        return;
    const FileList& rows = m_run->rows();
    if (row < 0) {
        for (qsizetype i = 0; i < files->size() && i < rows.size(); ++i)
            files->at(i)->status = rows.at(i)->status;
        m_view.filesDidChange();
        return;
    }
    if (row >= files->size() || row >= rows.size())
        return;
    files->at(row)->status = rows.at(row)->status;
    m_view.fileStatusDidChange(row);
}

void ViewController::runEnded(DeployOutcome outcome, const QString& message) {
    DeployRun* run = m_run.data();
    if (!run)
        return;
    m_lastSummary = run->summary();
    run->deleteLater(); // its record is written (or not) and its processes stop
    m_run.clear();
    if (outcome == DeployOutcome::Deployed) {
        showNotification(m_lastSummary);
        // The stored site names the deployed commit now: list what changed
        // since, with the files that still wait.
        const SitePtr reloaded = loadCurrentSite();
        if (reloaded && currentSite && reloaded->siteId() == currentSite->siteId())
            currentSite = reloaded;
        m_view.siteDidChange();
        setupFileList();
    }
    end(outcome, message);
    const std::optional<QString> waiting = std::exchange(m_autoDeployWaitingSite, std::nullopt);
    if (waiting && currentSite && currentSite->siteId() == *waiting) {
        // A commit came while the run was under way: it is deployed now,
        // from a fresh listing.
        later([this, site = *waiting] {
            if (!currentSite || currentSite->siteId() != site)
                return;
            setupFileList();
            autoDeploy();
        });
    }
}

void ViewController::showNotification(const RunSummary& summary) {
    const QString text = summary.waiting == 0
                             ? QStringLiteral("All files deployed")
                             : QCoreApplication::translate(
                                   "ViewController", "Deployed; %n file(s) wait for a later deployment.",
                                   nullptr, static_cast<int>(summary.waiting));
    m_notifier->showNotification(QStringLiteral("Success!"), text);
}

void ViewController::abortDeploy() {
    if (m_run)
        m_run->abortDeploy();
}

void ViewController::showLogDirectory() {
    const QString folder = Logger::sharedInstance().logDirectory();
    QDir().mkpath(folder);
    later([this, folder] { m_view.openFolder(folder); });
}

void ViewController::siteManagerDidFailWithError(const Error& error) {
    AlertRequest alert;
    alert.style = AlertStyle::Warning;
    alert.message = QStringLiteral("An error occured!");
    alert.informativeText = error.localizedDescription;
    alert.buttons = {QStringLiteral("Abort")};
    m_view.beginSheet(alert, [](int) {});
}

void ViewController::noSitesDefinedNotification() {
    if (emptyTableView)
        emptyTableView->noSitesDefined();
}

void ViewController::fileBookmarkIsStale() {
    if (!currentSite)
        return;
    OpenPanelRequest panel;
    panel.canChooseFiles = false;
    panel.canChooseDirectories = true;
    panel.allowsMultipleSelection = false;
    panel.directory = currentSite->localPath.value_or(QString());
    panel.message = QStringLiteral("Please verify base folder for the project. This is needed for security.");
    const auto chosen = m_view.runOpenPanel(panel);
    if (!chosen)
        return;
    if (const auto bookmark = SecurityBookmarkManager::bookmarkFor(*chosen))
        currentSite->bookmarkData = bookmark;
    QString path = *chosen;
    path.remove(QStringLiteral("file://"));
    currentSite->localPath = path;
    later([this] { setupFileList(); });
}

void ViewController::updateCheckboxes(bool checked, const QList<qsizetype>& selectedRows) {
    if (!files || !currentSite)
        return;
    FileList changed;
    for (const qsizetype row : selectedRows) {
        if (row < 0 || row >= files->size())
            continue;
        const FilePtr& file = files->at(row);
        file->willUpload = checked;
        const QString path = file->pathWithFilename.value_or(QString());
        if (!AlwaysUploadedFolders::isAlwaysUploaded(*file))
            changed.append(file);
        else if (checked)
            m_uncheckedMandatory.remove(path);
        else
            m_uncheckedMandatory.insert(path);
    }
    WaitingFiles::remember(currentSite->siteId(), changed,
                           m_listedCommit ? m_listedCommit->sha1.value_or(QString()) : QString());
    m_view.filesDidChange();
    updateReadiness();
}

// ---------------------------------------------------------------------------
// Automatic deployment

void ViewController::VDKQueue(tw::VDKQueue* queue, const QString& notificationName, const QString& path) {
    if (notificationName != u"VDKQueueFileWrittenToNotification")
        return;
    queue->removePath(path);
    queue->addPath(path);
    queue->setDelegate(this);
    // git appends to HEAD's reflog before it moves the branch, and one commit
    // writes it more than once: wait until the writes have settled and no
    // ref is locked, so the listing sees the new commit.
    if (m_headSettle)
        m_headSettle->reflogWritten();
}

void ViewController::headMoved() {
    if (m_run) {
        // Not dropped: once the run is over (its record written), the files
        // are listed again and an automatic deployment of this site is tried
        // then.
        waitForTheRun();
        return;
    }
    setupFileList();
    autoDeploy();
}

// The commit belongs to the current site's repository: only that site is
// deployed for it once the run has ended, whatever is selected by then.
void ViewController::waitForTheRun() {
    if (currentSite)
        m_autoDeployWaitingSite = currentSite->siteId();
}

void ViewController::autoDeploy() {
    if (Preferences::instance().boolValue(QStringLiteral("editing")))
        return;
    if (!currentSite || !currentSite->autoDeploy)
        return;
    if (currentSite->deployBranch != checkOutedBranch())
        return;
    if (m_run) {
        waitForTheRun();
        return;
    }
    if (readiness() != DeployReadiness::Ready)
        return;
    prepareDeployFiles();
}

void ViewController::applicationWillHide() {
    if (m_run)
        NotificationHub::instance().postUploadComplete();
}

void ViewController::applicationDidUnhide() {
    if (m_run && !m_run->isAsking())
        m_run->reshowProgress();
}

void ViewController::setUploadingStatus(bool uploading) {
    UploadingFlag::set(uploading);
}

bool ViewController::isUploading() {
    return UploadingFlag::isSet();
}

} // namespace tw
