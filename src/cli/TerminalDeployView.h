#pragma once

#include "deploy/DeployView.h"
#include "deploy/EmptyTableView.h"
#include "deploy/ProgressView.h"

#include <QString>

namespace tw::cli {

class ProgressPrinter;
class TerminalInteraction;

// The deploy controller's view on a terminal: questions and messages go to
// the terminal interaction, progress to the progress printer (none with
// --quiet), and the placeholder's state is kept so that the commands can say
// why there is nothing to list.
class TerminalDeployView : public DeployView, public EmptyTableView, public ProgressView {
public:
    enum class Placeholder {
        Hidden,             // the file list shows
        NoSites,            // "No sites defined."
        NotValidRepository, // the text says why
        WrongBranch,        // "A non-deployment branch"; check out correctBranch
        AllDeployed,        // "All files deployed. Good work!"
    };

    TerminalDeployView(TerminalInteraction& interaction, ProgressPrinter* progress);

    Placeholder placeholder() const { return m_placeholder; }
    QString placeholderText() const { return m_placeholderText; }
    QString correctBranch() const { return m_correctBranch; }
    ProgressViewDelegate* progressDelegate() const { return m_progressDelegate; }

    // UserInteraction
    int runModal(const AlertRequest& alert) override;
    void beginSheet(const AlertRequest& alert, std::function<void(int button)> completion) override;
    std::optional<QString> runSavePanel(const SavePanelRequest& panel) override;
    std::optional<QString> runOpenPanel(const OpenPanelRequest& panel) override;

    // DeployView
    ProgressView* showProgressView() override;
    EmptyTableView& emptyTableView() override { return *this; }
    void setDeployButtonEnabled(bool) override {}
    void filesDidChange() override {}
    void fileStatusDidChange(qsizetype) override {}
    void siteDidChange() override {}
    void openFolder(const QString& path) override;

    // EmptyTableView
    void hideAll() override;
    void noSitesDefined() override;
    void notValidGitRepoWith(const QString& text) override;
    void wrongBranchIsSelectedWith(const QString& text, const QString& correctBranch) override;
    void hasFilesToDeployWithStatus(bool hasFiles) override;

    // ProgressView
    void setTextLabel(const QString& text) override;
    void setIsIndeterminate(bool indeterminate) override;
    void deployFinished() override;
    void setDelegate(ProgressViewDelegate* delegate) override { m_progressDelegate = delegate; }

private:
    TerminalInteraction& m_interaction;
    ProgressPrinter* m_progress;
    ProgressViewDelegate* m_progressDelegate = nullptr;
    Placeholder m_placeholder = Placeholder::Hidden;
    QString m_placeholderText;
    QString m_correctBranch;
};

} // namespace tw::cli
