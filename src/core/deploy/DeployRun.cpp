#include "DeployRun.h"

#include "app/Logger.h"
#include "app/Preferences.h"
#include "deploy/AlwaysUploadedFolders.h"
#include "deploy/DeployQueue.h"
#include "deploy/NotificationHub.h"
#include "deploy/ScriptRunner.h"
#include "deploy/Statistics.h"
#include "deploy/UploadingFlag.h"
#include "git/SiteManager.h"
#include "model/SecurityBookmarkManager.h"
#include "model/Sites.h"
#include "transfer/CheckSumManager.h"
#include "transfer/Deployer.h"

#include <QDir>
#include <QFileInfo>
#include <QPointer>

namespace tw {

namespace {

const QString kDeployTag = QStringLiteral("deploy");

bool nonEmpty(const std::optional<QString>& text) {
    return text && !text->isEmpty();
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

DeployRun::DeployRun(DeployView& view, Plan plan, QObject* parent)
    : QObject(parent)
    , m_view(view)
    , m_plan(std::move(plan)) {
    m_postDeployTimer.setSingleShot(true);
    m_postDeployTimer.setInterval(postDeployDelayMilliseconds);
    connect(&m_postDeployTimer, &QTimer::timeout, this, &DeployRun::deployFinished);
    m_summary.commit = m_plan.commit ? m_plan.commit->sha1.value_or(QString()) : QString();
}

DeployRun::~DeployRun() {
    if (m_progress)
        m_progress->setDelegate(nullptr);
    if (m_transporter && m_transporter->delegate() == this)
        m_transporter->setDelegate(nullptr);
    // The script runners, the record's manager and the transporter go with
    // the run: a script still running is killed, a curl still running too.
    m_scriptRunner.reset();
    m_checkSumManager.reset();
}

void DeployRun::later(std::function<void()> work) {
    // Queued on this run: a run that is gone, or has ended, runs no more steps.
    QMetaObject::invokeMethod(
        this,
        [this, work = std::move(work)] {
            if (!m_ended)
                work();
        },
        Qt::QueuedConnection);
}

void DeployRun::showProgress() {
    m_progress = m_view.showProgressView();
    m_progressClosed = false;
    if (m_progress)
        m_progress->setDelegate(this);
}

void DeployRun::closeProgress() {
    if (m_progress && !m_progressClosed)
        m_progress->deployFinished();
    m_progressClosed = true;
}

void DeployRun::setStageText(const QString& text) {
    later([this, text] {
        if (m_progress)
            m_progress->setTextLabel(text);
    });
}

// ---------------------------------------------------------------------------
// Preflight

void DeployRun::start() {
    UploadingFlag::set(true);
    Deployer deployer(m_plan.site);
    deployer.setDelegate(this);
    deployer.setupTransporter();
    m_transporter = deployer.getTransporter();
    if (!m_transporter) {
        // The deployer has said why (and the run has ended); the uploading
        // flag deliberately stays on.
        return;
    }
    m_transporter->putTimestamp();
    m_transporter->setDelegate(this);
    m_transporter->setMaxSimultaneousConnectinos(
        Preferences::instance().integerValue(QStringLiteral("maxConnections")));

    later([this] {
        showProgress();
        if (m_progress)
            m_progress->setTextLabel(QStringLiteral("Preflight checks\u2026"));
    });
    preflightCheck();
}

void DeployRun::setupTransporterDidFailWithError(const Error& error) {
    alertError(error, DeployOutcome::SetupFailed);
}

void DeployRun::preflightCheck() {
    m_checkSumManager = std::make_unique<CheckSumManager>(m_transporter);
    m_checkSumManager->check([this](const std::optional<QString>& commit, const std::optional<QDateTime>&,
                                    const std::optional<QString>& branch, const std::optional<Error>& error) {
        ServerRecord record = ServerRecord::missing();
        if (error)
            record = ServerRecord::fromReadError(*error);
        else if (commit)
            record = ServerRecord::found(*commit, branch);
        later([this, record] {
            QStringList commits;
            commits.reserve(m_plan.commits.size());
            for (const CommitPtr& listed : std::as_const(m_plan.commits))
                commits.append(listed->sha1.value_or(QString()));
            const CommitPtr& local = m_plan.site->lastCommitDeployed;
            decide(PreflightDecision::decide(record, local ? local->sha1 : std::nullopt,
                                             m_plan.site->deployBranch.value_or(QString()), commits));
        });
    });
}

void DeployRun::decide(const PreflightDecision& decision) {
    switch (decision.action) {
    case PreflightDecision::Action::Deploy:
        resetFilesStatus();
        deployFiles();
        return;
    case PreflightDecision::Action::Fail:
        alertError(decision.error);
        return;
    case PreflightDecision::Action::AlreadyThere:
        finish(DeployOutcome::Cancelled, QStringLiteral("The target site already has this commit."));
        return;
    case PreflightDecision::Action::Ask:
        closeProgress();
        ask(decision);
        return;
    }
}

void DeployRun::ask(const PreflightDecision& decision) {
    m_asking = true;
    emit askingChanged(true);
    QPointer<DeployRun> self(this);
    m_view.beginSheet(decision.alert, [self, decision](int button) {
        if (!self || self->m_ended)
            return;
        self->m_asking = false;
        emit self->askingChanged(false);
        switch (PreflightDecision::answer(decision.question, button)) {
        case PreflightDecision::Answer::UseServerCommit:
            // The rows listed stay as they are; the run records its own
            // commit when it has deployed them.
            if (self->m_plan.site->lastCommitDeployed)
                self->m_plan.site->lastCommitDeployed->sha1 = decision.serverCommit;
            self->forceDeploy();
            break;
        case PreflightDecision::Answer::ForceDeploy:
            self->forceDeploy();
            break;
        case PreflightDecision::Answer::Cancel:
            self->finish(DeployOutcome::Cancelled, decision.alert.message);
            break;
        }
    });
}

void DeployRun::forceDeploy() {
    later([this] {
        showProgress();
        resetFilesStatus();
        deployFiles();
    });
}

// ---------------------------------------------------------------------------
// Scripts and the queue

void DeployRun::deployFiles() {
    m_displaySleepGuard.take();
    m_localBase = SiteManager(m_plan.site).resolveBookmark().value_or(QString());
    m_scriptRunner = std::make_unique<ScriptRunner>();
    m_scriptRunner->setBasePath(m_plan.site->localPath.value_or(QString()));
    if (nonEmpty(m_plan.site->preDeployScriptLocal))
        setStageText(QStringLiteral("Running local scripts\u2026"));
    std::optional<Error> error;
    m_scriptRunner->run(
        m_plan.site->preDeployScriptLocal.value_or(QString()), &error,
        [this](const QString& output, const std::optional<Error>& scriptError) {
            later([this, output, scriptError] { preDeployLocalScriptResult(scriptError, output); });
        });
    if (error) {
        const Error failure = *error;
        later([this, failure] { alertError(failure); });
    }
}

void DeployRun::preDeployLocalScriptResult(const std::optional<Error>& error, const QString& output) {
    if (error) {
        alertErrorScript(*error, output);
        return;
    }
    // The queue is built after the local pre-deploy script: what it builds is deployed.
    if (m_progress)
        m_progress->setTextLabel(QStringLiteral("Deploying files\u2026"));
    if (!prepareFiles())
        return;
    if (m_plan.site->protocol == u"SFTP")
        runRemotePreScript();
    else
        startTransfers();
}

bool DeployRun::prepareFiles() {
    const QString folder = m_plan.site->localPath.value_or(QString());
    if (folder.isEmpty() || !QFileInfo(folder).isDir()) {
        alertError(Error::application(
            200, QStringLiteral("The repository folder %1 is gone; nothing was sent.").arg(folder)));
        return false;
    }
    m_plan.rows.append(AlwaysUploadedFolders::filesIn(m_plan.rows, m_localBase));
    m_transporter->setDelegate(this);
    m_queue = std::make_unique<DeployQueue>();
    if (const auto problem =
            m_queue->build(*m_transporter, m_plan.rows, m_localBase, m_plan.commitId, m_summary.commit)) {
        alertError(Error::application(200, *problem));
        return false;
    }
    // The run's counters count the rows, checked or not and the always-uploaded
    // folders' included, as they always have: with rows left unchecked
    // "remaining" never reaches 0. What the window and the command line show
    // comes from the transfers really made (progressChanged).
    m_totalFiles = static_cast<quint64>(m_plan.rows.size());
    m_remainingFiles = m_totalFiles;
    m_summary.uploads = m_queue->uploads();
    m_summary.deletions = m_queue->deletions();
    m_summary.waiting = m_queue->waiting();
    m_summary.total = m_queue->transfers();
    m_transporter->setTag(kDeployTag);
    return true;
}

void DeployRun::runRemotePreScript() {
    const SitePtr& site = m_plan.site;
    if (nonEmpty(site->remotePreConnectionString) && nonEmpty(site->preDeployScriptRemote))
        setStageText(QStringLiteral("Running remote scripts\u2026"));
    m_scriptRunner = std::make_unique<ScriptRunner>();
    std::optional<Error> startError;
    m_scriptRunner->runExternal(site->remotePreConnectionString.value_or(QString()),
                                site->preDeployScriptRemote.value_or(QString()), &startError,
                                [this](const QString& output, const std::optional<Error>& scriptError) {
                                    later([this, output, scriptError] {
                                        if (scriptError)
                                            alertErrorScript(*scriptError, output);
                                        else
                                            startTransfers();
                                    });
                                });
    if (startError) {
        const Error failure = *startError;
        later([this, failure] { alertErrorScript(failure, QString()); });
    }
}

void DeployRun::startTransfers() {
    if (m_progress)
        m_progress->setTextLabel(QStringLiteral("Uploading files\u2026"));
    emit progressChanged(0, m_summary.total);
    m_transporter->runMulti();
}

// ---------------------------------------------------------------------------
// Transfers

qsizetype DeployRun::rowOf(const TransporterFilePtr& file) const {
    return file && m_queue ? m_queue->rowOf(file.get()) : -1;
}

void DeployRun::setRowStatus(qsizetype row, const QString& status) {
    if (row < 0 || row >= m_plan.rows.size())
        return;
    m_plan.rows.at(row)->status = status;
    emit rowStatusChanged(row);
}

void DeployRun::didCompletePercent(const TransporterFilePtr& file, double percent) {
    const qsizetype row = rowOf(file);
    if (row < 0)
        return;
    setRowStatus(row, QString::asprintf("%.1f %%", percent));
    NotificationHub::instance().postCurrentFile(m_plan.rows.at(row)->pathWithFilename.value_or(QString()));
}

void DeployRun::didComplete(const TransporterFilePtr& file) {
    const qsizetype row = rowOf(file);
    if (row >= 0) {
        setRowStatus(row, QStringLiteral("100%"));
        ++m_summary.done;
        emit progressChanged(m_summary.done, m_summary.total);
    }
    if (m_remainingFiles != 0) {
        --m_remainingFiles;
        // The whole run's row count for every file, deliberately: the stored
        // figure has always been counted so.
        Statistics().addUploadedFiles(static_cast<qint64>(m_totalFiles));
        NotificationHub::instance().postRemainingStatus(m_remainingFiles, m_totalFiles);
    }
}

void DeployRun::didFail(const TransporterFilePtr& file, const QString&) {
    if (m_ended)
        return;
    QString text = m_transporter->errorString().value_or(QString());
    if (file->failureIsUnnamed())
        // Only the failed row is marked; when curl did not say which file
        // failed, no row is, and the message says so.
        text += QStringLiteral("\ncurl did not say which file failed; the files not marked as sent did not "
                               "reach the server.");
    else
        setRowStatus(rowOf(file), QStringLiteral("ERROR"));
    alertError(Error::application(200, text));
}

void DeployRun::didCompleteAllWithErrors(const QString&) {
    SecurityBookmarkManager().startAccessing();
    if (m_ended)
        return;
    alertError(Error::application(200, m_transporter->errorString().value_or(QString())));
}

void DeployRun::didCompleteAllRequests(const QString& tag) {
    SecurityBookmarkManager().startAccessing();
    if (tag != kDeployTag || m_ended)
        return;
    setFileStatusTo100Percent();
    m_postDeployTimer.start();
}

// ---------------------------------------------------------------------------
// After the transfers

void DeployRun::deployFinished() {
    const SitePtr& site = m_plan.site;
    m_scriptRunner = std::make_unique<ScriptRunner>();
    m_scriptRunner->setBasePath(site->localPath.value_or(QString()));
    if (nonEmpty(site->postDeployScriptLocal) && m_progress) {
        m_progress->setIsIndeterminate(true);
        m_progress->setTextLabel(QStringLiteral("Running local post-scripts\u2026"));
    }
    std::optional<Error> error;
    m_scriptRunner->run(site->postDeployScriptLocal.value_or(QString()), &error,
                        [this](const QString& output, const std::optional<Error>& scriptError) {
                            later([this, output, scriptError] {
                                if (scriptError)
                                    alertErrorScript(*scriptError, output);
                                else if (m_plan.site->protocol != u"SFTP")
                                    postUpload();
                                else
                                    runRemotePostScript();
                            });
                        });
    if (error) {
        const Error failure = *error;
        later([this, failure] { alertErrorScript(failure, QString()); });
    }
}

void DeployRun::runRemotePostScript() {
    const SitePtr& site = m_plan.site;
    if (nonEmpty(site->remotePostConnectionString) && nonEmpty(site->postDeployScriptRemote) && m_progress) {
        m_progress->setIsIndeterminate(true);
        m_progress->setTextLabel(QStringLiteral("Running remote post-scripts\u2026"));
    }
    std::optional<Error> startError;
    m_scriptRunner->runExternal(site->remotePostConnectionString.value_or(QString()),
                                site->postDeployScriptRemote.value_or(QString()), &startError,
                                [this](const QString& output, const std::optional<Error>& scriptError) {
                                    later([this, output, scriptError] {
                                        if (scriptError)
                                            alertErrorScript(*scriptError, output);
                                        else
                                            postUpload();
                                    });
                                });
    if (startError)
        alertErrorScript(*startError, QString());
}

void DeployRun::postUpload() {
    later([this] { uploadCheckSumAndCleanup(); });
}

// The record goes to the server first; only a written record makes the run
// a success, saves the site and tells the person. A record that could not be
// written leaves the site's last deployed commit as it was.
void DeployRun::uploadCheckSumAndCleanup() {
    const CommitPtr& commit = m_plan.commit;
    if (!commit || !commit->sha1) {
        alertError(
            Error::application(200, QStringLiteral("The repository has no commit to record as deployed.")));
        return;
    }
    if (m_progress)
        m_progress->setTextLabel(QStringLiteral("Writing the deployment record\u2026"));
    commit->deployedWhen = QDateTime::currentDateTime();
    m_checkSumManager = std::make_unique<CheckSumManager>(m_transporter);
    const auto uploadError = m_checkSumManager->upload(
        *commit->sha1, *commit->deployedWhen, m_plan.site->deployBranch.value_or(QString()),
        [this](const std::optional<Error>& error) { recordWritten(error); });
    if (uploadError)
        recordWritten(Error::application(200, describe(*uploadError)));
}

void DeployRun::recordWritten(const std::optional<Error>& error) {
    if (m_ended)
        return;
    const QString commit = m_summary.commit;
    if (error) {
        alertError(Error::application(
                       200, QStringLiteral("The files were sent, but the server's record of this deployment "
                                           "could not be written (%1). The site still names its last "
                                           "deployed commit as before; deploy again to bring the record up "
                                           "to date.")
                                .arg(error->localizedDescription)),
                   DeployOutcome::RecordNotWritten);
        return;
    }
    m_summary.recordWritten = true;
    QStringList waiting;
    for (const FilePtr& row : std::as_const(m_plan.rows)) {
        if (!row->willUpload && !AlwaysUploadedFolders::isAlwaysUploaded(*row))
            waiting.append(row->pathWithFilename.value_or(QString()));
    }
    m_summary.waitingFiles = waiting;
    UploadingFlag::set(false); // the server holds the whole deployment and its record
    if (!Sites::saveDeployment(m_plan.site->siteId(), m_plan.commit)) {
        // The site was removed meanwhile, or the list may not be written now
        // (the log says which): the server is right, the stored site is not.
        alertError(Error::application(
                       200, QStringLiteral("The files were sent and the server's record names commit %1, but "
                                           "the site could not be saved with it (see the log): its last "
                                           "deployed commit was not stored.")
                                .arg(commit)),
                   DeployOutcome::SiteNotSaved);
        return;
    }
    NotificationHub::instance().postUploadComplete();
    finish(DeployOutcome::Deployed, QStringLiteral("All files deployed"));
}

void DeployRun::resetFilesStatus() {
    for (const FilePtr& file : std::as_const(m_plan.rows))
        file->status.reset();
    emit rowStatusChanged(-1);
}

void DeployRun::setFileStatusTo100Percent() {
    for (const FilePtr& file : std::as_const(m_plan.rows)) {
        if (file->willUpload)
            file->status = QStringLiteral("100%");
    }
    emit rowStatusChanged(-1);
}

// ---------------------------------------------------------------------------
// Ends

void DeployRun::abortDeploy() {
    if (m_ended)
        return;
    // No record; the uploading flag deliberately stays on.
    NotificationHub::instance().postUploadComplete();
    finish(DeployOutcome::Aborted, QStringLiteral("Deployment aborted"));
}

void DeployRun::alertError(const Error& error, DeployOutcome outcome) {
    if (m_ended)
        return;
    AlertRequest alert;
    alert.style = AlertStyle::Warning;
    alert.message = QStringLiteral("An error occured!");
    alert.informativeText = error.localizedDescription;
    alert.buttons = {QStringLiteral("Abort")};
    closeProgress();
    m_view.beginSheet(alert, [](int) {});
    finish(outcome, error.localizedDescription);
}

void DeployRun::alertErrorScript(const Error& error, const QString& output) {
    if (m_ended)
        return;
    // The script's own words go to the log and under the alert's details
    // with its exit status: "check the log file" has something to show.
    Logger::sharedInstance().log(QStringLiteral("Script failed: ") + error.localizedDescription +
                                 QStringLiteral("\n") + output);
    AlertRequest alert = warning(QStringLiteral("An error occured when running script"),
                                 QStringLiteral("Check the log file for syntax errors and such."),
                                 {QStringLiteral("Abort"), QStringLiteral("Show log\u2026")});
    alert.detailedText = error.localizedDescription;
    if (!output.trimmed().isEmpty())
        alert.detailedText += QStringLiteral("\n\n") + output.trimmed();
    closeProgress();
    DeployView* view = &m_view;
    m_view.beginSheet(alert, [view](int button) {
        if (button == 0)
            return;
        const QString folder = Logger::sharedInstance().logDirectory();
        QDir().mkpath(folder);
        view->openFolder(folder);
    });
    finish(DeployOutcome::ScriptFailed, alert.detailedText);
}

void DeployRun::finish(DeployOutcome outcome, const QString& message) {
    if (m_ended)
        return;
    m_ended = true;
    m_asking = false;
    m_postDeployTimer.stop();
    m_displaySleepGuard.release();
    if (m_transporter) {
        m_transporter->setDelegate(nullptr);
        if (outcome != DeployOutcome::Deployed && outcome != DeployOutcome::RecordNotWritten &&
            outcome != DeployOutcome::SiteNotSaved)
            m_transporter->terminateAllTasks();
    }
    closeProgress();
    emit ended(outcome, message);
}

} // namespace tw
