#include "ViewController.h"

#include "app/Logger.h"
#include "app/Preferences.h"
#include "app/SystemLog.h"
#include "deploy/NotificationHub.h"
#include "deploy/ScriptRunner.h"
#include "deploy/Statistics.h"
#include "deploy/UserNotifier.h"
#include "git/SiteManager.h"
#include "model/SecurityBookmarkManager.h"
#include "model/Sites.h"
#include "transfer/CheckSumManager.h"

#include <QDir>
#include <QDirIterator>
#include <QFile>
#include <QFileInfo>

namespace tw {

namespace {

const QString kCurrentSiteIndex = QStringLiteral("currentSiteIndex");
const QString kSites = QStringLiteral("sites");
const QString kDeployTag = QStringLiteral("deploy");

bool nonEmpty(const std::optional<QString>& text) {
    return text && !text->isEmpty();
}

// A path of a mandatory folder's file goes through the formatter with the
// file's name as its only argument: "%@" takes the name and "%%" is a
// percent sign; anything else stays as it is.
QString formatWithName(const QString& format, const QString& fileName) {
    QString result;
    result.reserve(format.size());
    bool argumentUsed = false;
    for (qsizetype i = 0; i < format.size(); ++i) {
        if (format.at(i) == u'%' && i + 1 < format.size()) {
            const QChar next = format.at(i + 1);
            if (next == u'%') {
                result += QLatin1Char('%');
                ++i;
                continue;
            }
            if (next == u'@' && !argumentUsed) {
                result += fileName;
                argumentUsed = true;
                ++i;
                continue;
            }
        }
        result += format.at(i);
    }
    return result;
}

AlertRequest warning(const QString& message, const QString& informative, const QStringList& buttons) {
    AlertRequest alert;
    alert.style = AlertStyle::Warning;
    alert.message = message;
    alert.informativeText = informative;
    alert.buttons = buttons;
    return alert;
}

} // namespace

ViewController::ViewController(DeployView& view, QObject* parent)
    : QObject(parent)
    , m_view(view)
    , m_notifier(std::make_unique<UserNotifier>()) {
    m_postDeployTimer.setSingleShot(true);
    m_postDeployTimer.setInterval(postDeployDelayMilliseconds);
    connect(&m_postDeployTimer, &QTimer::timeout, this, &ViewController::deployFinished);
}

ViewController::~ViewController() {
    if (fileWatcherQueue)
        fileWatcherQueue->removeAllPaths();
    if (transporter)
        transporter->setDelegate(nullptr);
}

void ViewController::later(std::function<void()> work) {
    QMetaObject::invokeMethod(this, std::move(work), Qt::QueuedConnection);
}

void ViewController::end(DeployOutcome outcome, const QString& message) {
    emit deploymentEnded(outcome, message);
    updateReadiness();
}

// ---------------------------------------------------------------------------
// Loading and listing

void ViewController::viewDidLoad() {
    emptyTableViewContoller = &m_view.emptyTableView();
    emptyTableViewContoller->hideAll();
    const auto sites = Sites().loadAll();
    if (!sites || sites->isEmpty())
        emptyTableViewContoller->noSitesDefined();
    appInForeground = true;

    fileWatcherQueue = std::make_unique<tw::VDKQueue>();
    fileWatcherQueue->setDelegate(this);
    fileWatcherQueue->setAlwaysPostNotifications(true);

    currentSite = loadCurrentSite();
    m_view.siteDidChange();
    setupFileList(currentSite && currentSite->lastCommitDeployed ? currentSite->lastCommitDeployed->sha1
                                                                 : std::nullopt);
    isDeploying = false;

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
    if (key == kCurrentSiteIndex) {
        reloadSiteAndFiles();
    } else if (key == kSites && !m_savingSite && !isDeploying) {
        // The list was changed elsewhere (the editor, an import): the current
        // site is read again. Our own save after a deployment is not a change.
        reloadSiteAndFiles();
    }
}

void ViewController::reloadSiteAndFiles() {
    if (isDeploying)
        return;
    currentSite = loadCurrentSite();
    const auto sites = Sites().loadAll();
    if (!sites || sites->isEmpty())
        emptyTableViewContoller->noSitesDefined();
    else
        emptyTableViewContoller->hideAll();
    m_view.siteDidChange();
    setupFileList();
}

void ViewController::setupFileList() {
    setupFileList(currentSite && currentSite->lastCommitDeployed ? currentSite->lastCommitDeployed->sha1
                                                                 : std::nullopt);
}

void ViewController::setupFileList(const std::optional<QString>& sha1) {
    if (fileWatcherQueue)
        fileWatcherQueue->removeAllPaths();

    auto finish = [this] {
        rebuildRowIndex();
        m_view.filesDidChange();
        updateReadiness();
    };

    m_listing = ListingState::NoFolder;
    if (!currentSite || !currentSite->localPath) {
        files.reset();
        finish();
        return;
    }
    SiteManager manager(currentSite);
    manager.delegate = this;
    if (!manager.localPathExists()) {
        emptyTableViewContoller->notValidGitRepoWith(QStringLiteral("No valid git repository"));
        files.reset();
        finish();
        return;
    }

    const auto folder = manager.resolveBookmark();
    const auto commits = manager.getCommits();
    currentSite->commits = commits ? std::make_shared<CommitList>(*commits) : nullptr;
    if (folder && fileWatcherQueue)
        fileWatcherQueue->addPath(*folder + QStringLiteral("/.git/logs/HEAD"));

    if (checkCheckedOutBranch()) {
        files.reset();
        // A site whose last deployed commit has an id lists what changed
        // since; one that was never deployed lists every committed file. An
        // imported site carries an empty commit: it was never deployed here.
        std::optional<FileList> listed;
        if (currentSite->lastCommitDeployed && currentSite->lastCommitDeployed->sha1)
            listed = manager.loadFilesFromCommit(sha1.value_or(QString()));
        else
            listed = manager.getAllFiles();
        files = listed.value_or(FileList());
        emptyTableViewContoller->hasFilesToDeployWithStatus(!files->isEmpty());
    }
    if (folder)
        manager.stopAccessingSecurityScopedResource(*folder);
    finish();
}

SitePtr ViewController::loadCurrentSite() const {
    return SiteManager(currentSite).loadCurrentSite();
}

bool ViewController::checkCheckedOutBranch() {
    SiteManager manager(currentSite);
    if (!manager.isGitDirectory()) {
        m_listing = ListingState::NotARepository;
        emptyTableViewContoller->notValidGitRepoWith(QStringLiteral("Not a valid Git repository '%1'. \n")
                                                         .arg(currentSite->localPath.value_or(QString())));
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
            emptyTableViewContoller->wrongBranchIsSelectedWith(QStringLiteral("A non-deployment branch"),
                                                               branch);
        });
    }
    return false;
}

std::optional<QString> ViewController::checkOutedBranch() const {
    if (!currentSite || !currentSite->localPath)
        return std::nullopt;
    QFile head(*currentSite->localPath + QStringLiteral("/.git/HEAD"));
    if (!head.open(QIODevice::ReadOnly))
        return std::nullopt;
    QString text = QString::fromUtf8(head.readAll());
    text.remove(QStringLiteral("ref: refs/heads/"));
    if (text.isEmpty())
        return std::nullopt;
    while (!text.isEmpty() && (text.front() == u'\n' || text.front() == u'\r'))
        text.remove(0, 1);
    while (!text.isEmpty() && (text.back() == u'\n' || text.back() == u'\r'))
        text.chop(1);
    return text;
}

void ViewController::switchBranchBtn() {
    if (!currentSite)
        return;
    SiteManager(currentSite).checkoutBranch(currentSite->deployBranch.value_or(QString()));
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
        end(DeployOutcome::Refused, alert.informativeText);
        return;
    }
    }
}

DeployReadiness ViewController::readiness() const {
    if (!currentSite)
        return DeployReadiness::NoSite;
    if (isDeploying || m_recordPending)
        return DeployReadiness::Deploying;
    if (m_questionPending)
        return DeployReadiness::QuestionPending;
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

void ViewController::updateReadiness() {
    const DeployReadiness now = readiness();
    m_view.setDeployButtonEnabled(now == DeployReadiness::Ready);
    if (now == m_readiness)
        return;
    m_readiness = now;
    emit readinessChanged(now);
    if (m_autoDeployWaiting && now != DeployReadiness::Deploying && now != DeployReadiness::QuestionPending) {
        // A commit came while the last run (or its question) was under way:
        // it is deployed now, from a fresh listing.
        m_autoDeployWaiting = false;
        later([this] {
            setupFileList();
            autoDeploy();
        });
    }
}

void ViewController::askQuestion(const AlertRequest& alert, std::function<void(int)> answered) {
    m_questionPending = true;
    updateReadiness();
    m_view.beginSheet(alert, [this, answered = std::move(answered)](int button) {
        m_questionPending = false;
        answered(button);
        updateReadiness();
    });
}

bool ViewController::hasFilesToUpload() const {
    if (files) {
        for (const FilePtr& file : *files) {
            if (file->willUpload)
                return true;
        }
    }
    return currentSite && currentSite->mandatoryFiles && !currentSite->mandatoryFiles->isEmpty();
}

void ViewController::prepareDeployFiles() {
    if (!currentSite)
        return;
    setUploadingStatus(true);
    isDeploying = true;
    uploadIndex = 0;
    updateReadiness();

    Deployer deployer(currentSite);
    deployer.setDelegate(this);
    deployer.setupTransporter();
    transporter = deployer.getTransporter();
    if (!transporter) {
        // The deployer has said why; the uploading flag deliberately stays on.
        return;
    }
    transporter->putTimestamp();
    transporter->setDelegate(this);
    transporter->setMaxSimultaneousConnectinos(
        Preferences::instance().integerValue(QStringLiteral("maxConnections")));

    later([this] {
        showProgress();
        if (progressVC)
            progressVC->setTextLabel(QStringLiteral("Preflight checks\u2026"));
    });
    preflightCheck();
}

void ViewController::preflightCheck() {
    m_checkSumManager = std::make_unique<CheckSumManager>(transporter);
    m_checkSumManager->check([this](const std::optional<QString>& sha1, const std::optional<QDateTime>& date,
                                    const std::optional<QString>& branch, const std::optional<Error>& error) {
        later([this, sha1, date, branch, error] {
            if (!isDeploying)
                return;
            if (error) {
                // curl's "(78)": the server has no record yet, a first deployment.
                if (error->localizedDescription.startsWith(QStringLiteral("(78)"))) {
                    resetFilesStatus();
                    deployFiles();
                } else {
                    alertError(*error);
                }
                return;
            }
            const std::optional<QString> local =
                currentSite->lastCommitDeployed ? currentSite->lastCommitDeployed->sha1 : std::nullopt;
            if (sha1 && sha1 != local) {
                if (branch == currentSite->deployBranch) {
                    const QString serverSha1 = *sha1;
                    later([this, serverSha1, date] { alertOtherCommitDetected(serverSha1, date); });
                } else {
                    const QString serverBranch = branch.value_or(QString());
                    later([this, serverBranch] { alertWrongBranch(serverBranch); });
                }
                return;
            }
            resetFilesStatus();
            deployFiles();
        });
    });
}

void ViewController::showProgress() {
    progressVC = m_view.performProgressSegue();
    if (progressVC)
        progressVC->setDelegate(this);
}

void ViewController::closeProgress() {
    if (progressVC)
        progressVC->deployFinished();
    isDeploying = false;
    updateReadiness();
}

void ViewController::askToForceDeploy(const AlertRequest& alert) {
    askQuestion(alert, [this, message = alert.message](int button) {
        if (button == 0) {
            forceDeploy();
        } else {
            isDeploying = false;
            end(DeployOutcome::Cancelled, message);
        }
    });
}

void ViewController::alertWrongBranch(const QString& branch) {
    closeProgress();
    const AlertRequest alert =
        warning(QStringLiteral("Target site was last deployed with a different branch"),
                QStringLiteral(
                    "Last target site deployment was done using branch \"%1\". Change your settings before "
                    "deploying or force deployment with your current branch %2 (not recommended).")
                    .arg(branch, currentSite->deployBranch.value_or(QString())),
                {QStringLiteral("Force deploy"), QStringLiteral("Cancel")});
    askToForceDeploy(alert);
}

void ViewController::alertOtherCommitDetected(const QString& sha1, const std::optional<QDateTime>&) {
    closeProgress();

    const qsizetype localIndex = indexOfSha1Commit(
        currentSite->lastCommitDeployed ? currentSite->lastCommitDeployed->sha1 : std::nullopt);
    const qsizetype serverIndex = indexOfSha1Commit(sha1);

    if (serverIndex == NotFound) {
        const AlertRequest alert = warning(
            QStringLiteral("Last deployed commit on target site is unknown. Are you sure to continue?"),
            QStringLiteral("Be sure you have pulled all resources if you have any remote repositories."),
            {QStringLiteral("Force deploy"), QStringLiteral("Cancel")});
        askToForceDeploy(alert);
        return;
    }
    if (serverIndex == localIndex) {
        // The server is where we are: nothing to ask, and the attempt ends.
        end(DeployOutcome::Cancelled, QStringLiteral("The target site already has this commit."));
        return;
    }

    const QStringList buttons{QStringLiteral("Cancel"), QStringLiteral("Yes"),
                              QStringLiteral("No, use mine")};
    const AlertRequest alert =
        serverIndex < localIndex
            ? warning(
                  QStringLiteral("Last deployed commit on target site is later. Are you sure to continue?"),
                  QStringLiteral(
                      "The last deployed commit on the target site is %1. Would you like to deploy "
                      "from this commit instead?")
                      .arg(sha1),
                  buttons)
            : warning(QStringLiteral("Last commit on target site is earlier"),
                      QStringLiteral(
                          "The last deployed commit target site is a earlier commit (%1). Would you like "
                          "to deploy from this commit instead?")
                          .arg(sha1),
                      buttons);
    askQuestion(alert, [this, alert, sha1](int button) {
        if (button == 1) {
            // The rows listed stay as they are; the cleanup replaces the
            // commit again after a successful run.
            if (currentSite->lastCommitDeployed)
                currentSite->lastCommitDeployed->sha1 = sha1;
            forceDeploy();
        } else if (button == 2) {
            forceDeploy();
        } else {
            isDeploying = false;
            end(DeployOutcome::Cancelled, alert.message);
        }
    });
}

qsizetype ViewController::indexOfSha1Commit(const std::optional<QString>& sha1) const {
    if (!currentSite || !currentSite->commits)
        return NotFound;
    const CommitList& commits = *currentSite->commits;
    for (qsizetype i = 0; i < commits.size(); ++i) {
        if (commits.at(i)->sha1 == sha1)
            return i;
    }
    return NotFound;
}

void ViewController::forceDeploy() {
    isDeploying = true;
    later([this] {
        showProgress();
        resetFilesStatus();
        deployFiles();
    });
}

void ViewController::alertError(const Error& error) {
    showError(error, DeployOutcome::Failed);
}

void ViewController::showError(const Error& error, DeployOutcome outcome) {
    closeProgress();
    AlertRequest alert;
    alert.style = AlertStyle::Warning;
    alert.message = QStringLiteral("An error occured!");
    alert.informativeText = error.localizedDescription;
    alert.buttons = {QStringLiteral("Abort")};
    m_view.beginSheet(alert, [](int) {});
    end(outcome, error.localizedDescription);
}

void ViewController::alertErrorScript(const Error& error) {
    closeProgress();
    const AlertRequest alert = warning(QStringLiteral("An error occured when running script"),
                                       QStringLiteral("Check the log file for syntax errors and such."),
                                       {QStringLiteral("Abort"), QStringLiteral("Show log\u2026")});
    m_view.beginSheet(alert, [this](int button) {
        if (button != 0)
            showLogDirectory();
    });
    end(DeployOutcome::ScriptFailed, error.localizedDescription);
}

void ViewController::showLogDirectory() {
    const QString folder = Logger::sharedInstance().logDirectory();
    QDir().mkpath(folder);
    later([this, folder] { m_view.openFolder(folder); });
}

void ViewController::setupTransporterDidFailWithError(const Error& error) {
    showError(error, DeployOutcome::SetupFailed);
}

void ViewController::siteManagerDidFailWithError(const Error& error) {
    alertError(error);
}

void ViewController::noSitesDefinedNotification() {
    if (emptyTableViewContoller)
        emptyTableViewContoller->noSitesDefined();
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

void ViewController::addTimeObserverToPlayer() {
    m_displaySleepGuard.take();
}

void ViewController::removeTimeObserverFromPlayer() {
    m_displaySleepGuard.release();
}

// ---------------------------------------------------------------------------
// The run

std::optional<QString> ViewController::localBasePath() const {
    return SiteManager(currentSite).resolveBookmark();
}

void ViewController::deployFiles() {
    prepareFiles();
    m_scriptRunner = std::make_unique<ScriptRunner>();
    m_scriptRunner->setBasePath(currentSite->localPath.value_or(QString()));
    if (nonEmpty(currentSite->preDeployScriptLocal)) {
        later([this] {
            if (progressVC)
                progressVC->setTextLabel(QStringLiteral("Running local scripts\u2026"));
        });
    }
    std::optional<Error> error;
    m_scriptRunner->run(currentSite->preDeployScriptLocal.value_or(QString()), &error,
                        [this](const QString& result, const std::optional<Error>& scriptError) {
                            preDeployLocalScriptResult(result, scriptError);
                        });
    if (error) {
        const Error failure = *error;
        later([this, failure] { alertError(failure); });
    }
}

void ViewController::prepareFiles() {
    const std::optional<QString> base = localBasePath();
    addTimeObserverToPlayer();
    if (files)
        addMandatoryFiles(*files);
    rebuildRowIndex();
    m_view.filesDidChange();
    later([this] {
        if (progressVC)
            progressVC->setTextLabel(QStringLiteral("Deploying files\u2026"));
    });
    transporter->setDelegate(this);
    transporter->clearQueue();

    const quint64 rows = files ? static_cast<quint64>(files->size()) : 0;
    totalFiles = rows;
    remainingFiles = rows;
    if (files) {
        const QString folder = currentSite->localPath.value_or(QString());
        for (qsizetype i = static_cast<qsizetype>(uploadIndex); i < files->size(); ++i) {
            const FilePtr& file = files->at(i);
            if (!file->willUpload)
                continue;
            if (!QFileInfo::exists(folder)) {
                // The folder vanished: the queue keeps what it has, untagged.
                return;
            }
            const QString path = file->pathWithFilename.value_or(QString());
            if (file->gitStatus == u"D")
                transporter->deleteFile(path);
            else
                transporter->uploadFile(base.value_or(QString()) + QLatin1Char('/') + path, path);
        }
    }
    transporter->setTag(kDeployTag);
}

void ViewController::addMandatoryFiles(FileList& list) {
    if (!currentSite->mandatoryFiles)
        return;
    const QString folder = currentSite->localPath.value_or(QString());
    const QString prefix = folder + QLatin1Char('/');
    for (const FilePtr& mandatory : *currentSite->mandatoryFiles) {
        if (mandatory->isDirectory(folder)) {
            QDirIterator walk(folder + QLatin1Char('/') + mandatory->pathWithFilename.value_or(QString()),
                              QDir::Files | QDir::Dirs | QDir::Hidden | QDir::System | QDir::NoDotAndDotDot,
                              QDirIterator::Subdirectories);
            while (walk.hasNext()) {
                walk.next();
                const QFileInfo entry = walk.fileInfo();
                if (entry.isDir())
                    continue;
                QString relative = entry.filePath();
                relative.remove(prefix);
                const FilePtr file = File::initWithPath(formatWithName(relative, entry.fileName()));
                file->gitStatus = QStringLiteral("-");
                list.append(file);
            }
        } else {
            mandatory->status = QString();
            mandatory->gitStatus = QStringLiteral("-");
            list.append(mandatory);
        }
    }
}

void ViewController::preDeployLocalScriptResult(const QString&, const std::optional<Error>& error) {
    if (error) {
        const Error failure = *error;
        later([this, failure] { alertErrorScript(failure); });
        return;
    }
    if (currentSite->protocol == u"SFTP") {
        if (nonEmpty(currentSite->remotePreConnectionString) &&
            nonEmpty(currentSite->preDeployScriptRemote)) {
            later([this] {
                if (progressVC)
                    progressVC->setTextLabel(QStringLiteral("Running remote scripts\u2026"));
            });
        }
        m_remoteScriptRunner = std::make_unique<ScriptRunner>();
        std::optional<Error> startError;
        m_remoteScriptRunner->runExternal(currentSite->remotePreConnectionString.value_or(QString()),
                                          currentSite->preDeployScriptRemote.value_or(QString()), &startError,
                                          [this](const QString&, const std::optional<Error>& scriptError) {
                                              later([this, scriptError] {
                                                  if (scriptError) {
                                                      alertErrorScript(*scriptError);
                                                      return;
                                                  }
                                                  if (progressVC)
                                                      progressVC->setTextLabel(
                                                          QStringLiteral("Uploading files\u2026"));
                                                  transporter->runMulti();
                                              });
                                          });
        if (startError) {
            const Error failure = *startError;
            later([this, failure] { alertErrorScript(failure); });
        }
        return;
    }
    later([this] {
        if (progressVC)
            progressVC->setTextLabel(QStringLiteral("Uploading files\u2026"));
        transporter->runMulti();
    });
}

void ViewController::rebuildRowIndex() {
    m_rowIndex.clear();
    if (!files)
        return;
    m_rowIndex.reserve(files->size());
    for (qsizetype i = 0; i < files->size(); ++i) {
        const FilePtr& file = files->at(i);
        if (file->pathWithFilename && !m_rowIndex.contains(*file->pathWithFilename))
            m_rowIndex.insert(*file->pathWithFilename, i);
    }
}

qsizetype ViewController::rowOf(const FilePtr& file) const {
    if (!file || !file->pathWithFilename)
        return -1;
    const qsizetype row = m_rowIndex.value(*file->pathWithFilename, -1);
    if (row >= 0 && files && row < files->size() && files->at(row) == file)
        return row;
    return -1;
}

FilePtr ViewController::getCurrentFile(const TransporterFilePtr& file) const {
    if (!file || !files || !currentSite)
        return nullptr;
    QString path = file->remotePath();
    if (currentSite->syncRootPath)
        path = *currentSite->syncRootPath + path;
    const qsizetype row = m_rowIndex.value(path, -1);
    if (row < 0 || row >= files->size())
        return nullptr;
    return files->at(row);
}

void ViewController::didCompletePercent(const TransporterFilePtr& file, double percent) {
    const FilePtr row = getCurrentFile(file);
    if (!row)
        return;
    row->status = QString::asprintf("%.1f %%", percent);
    m_view.fileStatusDidChange(rowOf(row));
    NotificationHub::instance().postCurrentFile(row->pathWithFilename.value_or(QString()));
}

void ViewController::didComplete(const TransporterFilePtr& file) {
    const FilePtr row = getCurrentFile(file);
    if (row) {
        row->status = QStringLiteral("100%");
        m_view.fileStatusDidChange(rowOf(row));
    }
    if (remainingFiles != 0) {
        --remainingFiles;
        // The whole run's count for every file, deliberately.
        Statistics().addUploadedFiles(static_cast<qint64>(totalFiles));
        NotificationHub::instance().postRemainingStatus(remainingFiles, totalFiles);
    }
}

void ViewController::didCompleteListing(const TransporterFilePtr&, const QStringList&) {}

void ViewController::didCompleteReadingFile(const TransporterFilePtr&, const QString&) {}

void ViewController::didFail(const TransporterFilePtr& file, const QString&) {
    const FilePtr row = getCurrentFile(file);
    if (row) {
        row->status = QStringLiteral("ERROR");
        m_view.fileStatusDidChange(rowOf(row));
    }
    const Error error = Error::application(200, transporter->errorString().value_or(QString()));
    later([this, error] { alertError(error); });
}

void ViewController::didCompleteAllWithErrors(const QString&) {
    SecurityBookmarkManager().startAccessing();
    removeTimeObserverFromPlayer();
    isDeploying = false;
    const Error error = Error::application(200, transporter->errorString().value_or(QString()));
    later([this, error] { alertError(error); });
}

void ViewController::didCompleteAllRequests(const QString& tag) {
    SecurityBookmarkManager().startAccessing();
    if (tag != kDeployTag)
        return;
    setFileStatusTo100Percent();
    m_postDeployTimer.start();
}

void ViewController::deployFinished() {
    m_scriptRunner = std::make_unique<ScriptRunner>();
    m_scriptRunner->setBasePath(currentSite->localPath.value_or(QString()));
    if (nonEmpty(currentSite->postDeployScriptLocal) && progressVC) {
        progressVC->setIsIndeterminate(true);
        progressVC->setTextLabel(QStringLiteral("Running local post-scripts\u2026"));
    }
    std::optional<Error> error;
    m_scriptRunner->run(
        currentSite->postDeployScriptLocal.value_or(QString()), &error,
        [this](const QString&, const std::optional<Error>& scriptError) {
            later([this, scriptError] {
                if (scriptError) {
                    alertErrorScript(*scriptError);
                    return;
                }
                if (currentSite->protocol != u"SFTP") {
                    postUpload();
                    return;
                }
                if (nonEmpty(currentSite->remotePostConnectionString) &&
                    nonEmpty(currentSite->postDeployScriptRemote) && progressVC) {
                    progressVC->setIsIndeterminate(true);
                    progressVC->setTextLabel(QStringLiteral("Running remote post-scripts\u2026"));
                }
                std::optional<Error> startError;
                m_scriptRunner->runExternal(currentSite->remotePostConnectionString.value_or(QString()),
                                            currentSite->postDeployScriptRemote.value_or(QString()),
                                            &startError,
                                            [this](const QString&, const std::optional<Error>& remoteError) {
                                                later([this, remoteError] {
                                                    if (remoteError)
                                                        alertErrorScript(*remoteError);
                                                    else
                                                        postUpload();
                                                });
                                            });
                if (startError)
                    alertErrorScript(*startError);
            });
        });
    if (error) {
        const Error failure = *error;
        later([this, failure] { alertErrorScript(failure); });
    }
}

void ViewController::postUpload() {
    later([this] {
        showNotification();
        removeTimeObserverFromPlayer();
        uploadCheckSumAndCleanup();
    });
}

void ViewController::showNotification() {
    m_notifier->showNotification(QStringLiteral("Success!"), QStringLiteral("All files deployed"));
}

void ViewController::uploadCheckSumAndCleanup() {
    NotificationHub::instance().postUploadComplete();
    isDeploying = false;

    if (!currentSite->commits || currentSite->commits->isEmpty()) {
        // Without a commit there is nothing to record as deployed.
        SystemLog::write(QStringLiteral("TARNWELL - the repository has no commit to record as deployed"));
        end(DeployOutcome::Failed, QStringLiteral("The repository has no commit to record as deployed."));
        return;
    }
    currentSite->lastCommitDeployed = currentSite->commits->first();
    currentSite->lastCommitDeployed->deployedWhen = QDateTime::currentDateTime();

    m_checkSumManager = std::make_unique<CheckSumManager>(transporter);
    watchRecordUpload();
    const auto uploadError = m_checkSumManager->upload(
        currentSite->lastCommitDeployed->sha1.value_or(QString()),
        *currentSite->lastCommitDeployed->deployedWhen, currentSite->deployBranch.value_or(QString()));
    if (uploadError) {
        m_recordPending = false;
        emit recordUploadFinished();
    }

    saveCurrentSite();
    setupFileList();
    setUploadingStatus(false);
    end(DeployOutcome::Deployed, QStringLiteral("All files deployed"));
}

void ViewController::watchRecordUpload() {
    // Until the record is on the server no new run starts: it would read the
    // old record (or kill this upload) and ask about a commit for nothing.
    m_recordPending = true;
    connect(
        transporter.get(), &Transporter::becameIdle, this,
        [this] {
            m_recordPending = false;
            emit recordUploadFinished();
            updateReadiness();
        },
        Qt::SingleShotConnection);
}

void ViewController::saveCurrentSite() {
    const auto data = Preferences::instance().dataValue(kSites);
    auto sites = data ? Sites::unarchive(*data) : std::nullopt;
    const qint64 index = Preferences::instance().integerValue(kCurrentSiteIndex);
    if (!sites || index < 0 || index >= sites->size()) {
        SystemLog::write(QStringLiteral("TARNWELL - the deployed site is no longer in the stored list"));
        return;
    }
    (*sites)[index] = currentSite;
    m_savingSite = true;
    Preferences::instance().setValue(kSites, Sites::archive(*sites));
    Preferences::instance().synchronize();
    m_savingSite = false;
}

void ViewController::abortDeploy() {
    removeTimeObserverFromPlayer();
    isDeploying = false;
    // Nothing of the run goes on: no script completion, no pending stage.
    m_postDeployTimer.stop();
    m_scriptRunner.reset();
    m_remoteScriptRunner.reset();
    if (transporter)
        transporter->terminateAllTasks();
    NotificationHub::instance().postUploadComplete();
    end(DeployOutcome::Aborted, QStringLiteral("Deployment aborted"));
}

void ViewController::abortUploadWithMessage(const QString& message) {
    if (transporter)
        transporter->terminateAllTasks();
    setUploadingStatus(false);
    isDeploying = true; // deliberately true
    AlertRequest alert;
    alert.message = message;
    m_view.runModal(alert);
}

void ViewController::resetFilesStatus() {
    if (!files)
        return;
    for (const FilePtr& file : *files)
        file->status.reset();
    m_view.filesDidChange();
}

void ViewController::setFileStatusTo100Percent() {
    if (!files)
        return;
    for (const FilePtr& file : *files) {
        if (file->willUpload)
            file->status = QStringLiteral("100%");
    }
    m_view.filesDidChange();
}

bool ViewController::isUploadSuccess() const {
    if (!files)
        return true;
    for (const FilePtr& file : *files) {
        if (file->status != u"Complete")
            return false;
    }
    return true;
}

bool ViewController::isUploadComplete() const {
    if (!files)
        return true;
    for (const FilePtr& file : *files) {
        if (file->willUpload && !file->status)
            return false;
    }
    return true;
}

void ViewController::updateCheckboxes(bool checked, const QList<qsizetype>& selectedRows) {
    if (!files)
        return;
    for (const qsizetype row : selectedRows) {
        if (row >= 0 && row < files->size())
            files->at(row)->willUpload = checked;
    }
    m_view.filesDidChange();
    updateReadiness();
}

// ---------------------------------------------------------------------------
// Automatic deployment

void ViewController::VDKQueue(tw::VDKQueue* queue, const QString& notificationName, const QString& path) {
    if (notificationName != u"VDKQueueFileWrittenToNotification")
        return;
    if (isDeploying || m_recordPending || m_questionPending) {
        // Not dropped: once the run (or the question) is over, the files are
        // listed again and an automatic deployment is tried then.
        m_autoDeployWaiting = true;
        return;
    }
    queue->removePath(path);
    queue->addPath(path);
    queue->setDelegate(this);
    setupFileList();
    autoDeploy();
}

void ViewController::autoDeploy() {
    if (Preferences::instance().boolValue(QStringLiteral("editing")))
        return;
    if (!currentSite || !currentSite->autoDeploy)
        return;
    if (currentSite->deployBranch != checkOutedBranch())
        return;
    const DeployReadiness readiness = this->readiness();
    if (readiness == DeployReadiness::Deploying || readiness == DeployReadiness::QuestionPending) {
        m_autoDeployWaiting = true;
        return;
    }
    if (readiness != DeployReadiness::Ready)
        return;
    prepareDeployFiles();
}

void ViewController::applicationWillHide() {
    if (isDeploying)
        NotificationHub::instance().postUploadComplete();
}

void ViewController::applicationDidUnhide() {
    if (isDeploying)
        showProgress();
}

void ViewController::setUploadingStatus(bool uploading) {
    Preferences::instance().setBool(QStringLiteral("isUploading"), uploading);
    Preferences::instance().synchronize();
}

bool ViewController::isUploading() {
    return Preferences::instance().boolValue(QStringLiteral("isUploading"));
}

} // namespace tw
