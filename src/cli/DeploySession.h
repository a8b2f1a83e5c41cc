#pragma once

#include "ProgressPrinter.h"
#include "TerminalDeployView.h"
#include "TerminalInteraction.h"
#include "deploy/DeployOutcome.h"
#include "deploy/ViewController.h"

#include <QObject>
#include <QString>

#include <memory>
#include <optional>

namespace tw::cli {

// The deploy controller on one site with a terminal for its view: what the
// window is, without the window. 'status', 'deploy' and 'watch' use it. The
// site is the stored site with the given id; the stored current site stays
// as it is.
class DeploySession : public QObject {
    Q_OBJECT

public:
    DeploySession(const QString& siteId, PresetAnswers answers, bool showProgress);
    ~DeploySession() override;

    ViewController& controller() { return *m_controller; }
    TerminalDeployView& view() { return m_view; }
    TerminalInteraction& interaction() { return m_interaction; }

    // Loads the current site and lists its files, as the window does when
    // it opens.
    void load();
    // Why no file list could be made: no folder, not a repository, another
    // branch checked out. Nothing when the list is there.
    std::optional<QString> listingProblem();

    struct Result {
        DeployOutcome outcome = DeployOutcome::Failed;
        QString message;
        bool interrupted = false; // Ctrl-C aborted it
        RunSummary summary;
    };
    // Presses Deploy and runs the event loop until the deployment has ended
    // (for a successful one: its record is written) and no curl process of
    // it runs any more. Ctrl-C aborts the deployment.
    Result deploy();

    // No transfer and no script of the controller runs.
    bool isIdle() const;

    // The rows that a press of Deploy would send, by kind.
    struct Counts {
        qsizetype uploads = 0;
        qsizetype deletions = 0;
        qsizetype alwaysUploaded = 0; // entries of the site's list, folders count once
        qsizetype waiting = 0;        // unchecked earlier: they wait for a later deployment
    };
    Counts counts() const;

private:
    TerminalInteraction m_interaction;
    std::unique_ptr<ProgressPrinter> m_progress;
    TerminalDeployView m_view;
    std::unique_ptr<ViewController> m_controller;
};

} // namespace tw::cli
