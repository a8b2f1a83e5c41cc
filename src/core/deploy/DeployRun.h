#pragma once

#include "app/Error.h"
#include "deploy/DeployOutcome.h"
#include "deploy/DeployView.h"
#include "deploy/DisplaySleepGuard.h"
#include "deploy/PreflightDecision.h"
#include "deploy/ProgressView.h"
#include "deploy/RunSummary.h"
#include "model/File.h"
#include "model/Site.h"
#include "transfer/DeployerDelegate.h"
#include "transfer/Transporter.h"

#include <QHash>
#include <QObject>
#include <QTimer>

#include <functional>
#include <memory>
#include <optional>

namespace tw {

class CheckSumManager;
class DeployQueue;
class ScriptRunner;

// One deployment attempt, from the press of Deploy to the server's new
// record: the check of the server's record, the questions, the local and
// remote scripts at their stages, the transfers, the 0.5 s pause, the record
// and the saved site. It owns everything that lives for the attempt (the
// transfer engine, the record's read and write, the script runners, the
// display-sleep inhibition) and works on its own copies of the site and of
// the listed rows, so listing the files again while it runs changes nothing
// of it.
//
// It ends exactly once, with ended(): after an error dialog, an answer that
// stops it, an abort, or once the server's record is written (or could not
// be). Nothing of it runs after that. Destroying it earlier cancels its
// queued steps and stops its processes.
class DeployRun : public QObject,
                  public TransporterDelegate,
                  public DeployerDelegate,
                  public ProgressViewDelegate {
    Q_OBJECT

public:
    // What the run deploys.
    struct Plan {
        SitePtr site;     // the run's own copy
        FileList rows;    // the run's own copies of the listed rows, checked or not
        CommitPtr commit; // the commit deployed and recorded (as listed)
        // The full id of that commit, whose content is uploaded; empty: the
        // files come from the working folder.
        QString commitId;
        CommitList commits; // the repository's commits, newest first (for the questions)
    };

    DeployRun(DeployView& view, Plan plan, QObject* parent = nullptr);
    ~DeployRun() override;

    // Builds the transfer engine, shows the progress display and reads the
    // server's record (prepareDeployFiles and preflightCheck).
    void start();
    // Deploys the listed rows without reading the record first.
    void forceDeploy();
    // The progress display's abort button: every curl stops, nothing is
    // recorded.
    void abortDeploy() override;
    // Shows the progress display again (the window was hidden and shown).
    void reshowProgress() { showProgress(); }

    bool isAsking() const { return m_asking; }
    bool hasEnded() const { return m_ended; }
    const FileList& rows() const { return m_plan.rows; }
    const SitePtr& site() const { return m_plan.site; }
    RunSummary summary() const { return m_summary; }
    const std::shared_ptr<Transporter>& transporter() const { return m_transporter; }

    // The pause between the end of the transfers and the post-deploy stage.
    static constexpr int postDeployDelayMilliseconds = 500;
    // The row of a transfer, or -1 (getCurrentFile by index).
    qsizetype rowOf(const TransporterFilePtr& file) const;

    // TransporterDelegate
    void didCompletePercent(const TransporterFilePtr& file, double percent) override;
    void didComplete(const TransporterFilePtr& file) override;
    void didCompleteAllRequests(const QString& tag) override;
    void didCompleteAllWithErrors(const QString& tag) override;
    void didFail(const TransporterFilePtr& file, const QString& error) override;

    // DeployerDelegate
    void setupTransporterDidFailWithError(const Error& error) override;

signals:
    // A row's status text changed (its index in rows()).
    void rowStatusChanged(qsizetype row);
    // Files sent so far and the number to send, as transfers end.
    void progressChanged(qsizetype done, qsizetype total);
    // A question about the server's record was asked (true) or answered.
    void askingChanged(bool asking);
    void ended(tw::DeployOutcome outcome, const QString& message);

private:
    void later(std::function<void()> work);
    void showProgress();
    void closeProgress();
    void setStageText(const QString& text);
    void preflightCheck();
    void decide(const PreflightDecision& decision);
    void deployFiles();
    void preDeployLocalScriptResult(const std::optional<Error>& error, const QString& output);
    bool prepareFiles();
    void runRemotePreScript();
    void startTransfers();
    void deployFinished();
    void runRemotePostScript();
    void postUpload();
    void uploadCheckSumAndCleanup();
    void recordWritten(const std::optional<Error>& error);
    void resetFilesStatus();
    void setFileStatusTo100Percent();
    void setRowStatus(qsizetype row, const QString& status);

    void alertError(const Error& error, DeployOutcome outcome = DeployOutcome::Failed);
    void alertErrorScript(const Error& error, const QString& output);
    void ask(const PreflightDecision& decision);
    void finish(DeployOutcome outcome, const QString& message);

    DeployView& m_view;
    Plan m_plan;
    std::shared_ptr<Transporter> m_transporter;
    std::unique_ptr<CheckSumManager> m_checkSumManager;
    std::unique_ptr<ScriptRunner> m_scriptRunner;
    std::unique_ptr<DeployQueue> m_queue; // with the deployed commit's files, while the run lasts
    ProgressView* m_progress = nullptr;
    bool m_progressClosed = true;
    DisplaySleepGuard m_displaySleepGuard;
    QTimer m_postDeployTimer;
    QString m_localBase;
    quint64 m_totalFiles = 0;     // every row, checked or not ("remainingStatus", the statistics)
    quint64 m_remainingFiles = 0; // goes down with every completed transfer
    RunSummary m_summary;
    bool m_asking = false;
    bool m_ended = false;
};

} // namespace tw
