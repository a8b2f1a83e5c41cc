#include "TerminalDeployView.h"

#include "ProgressPrinter.h"
#include "Terminal.h"
#include "TerminalInteraction.h"

namespace tw::cli {

TerminalDeployView::TerminalDeployView(TerminalInteraction& interaction, ProgressPrinter* progress)
    : m_interaction(interaction)
    , m_progress(progress) {}

int TerminalDeployView::runModal(const AlertRequest& alert) {
    return m_interaction.runModal(alert);
}

void TerminalDeployView::beginSheet(const AlertRequest& alert, std::function<void(int)> completion) {
    m_interaction.beginSheet(alert, std::move(completion));
}

std::optional<QString> TerminalDeployView::runSavePanel(const SavePanelRequest& panel) {
    return m_interaction.runSavePanel(panel);
}

std::optional<QString> TerminalDeployView::runOpenPanel(const OpenPanelRequest& panel) {
    return m_interaction.runOpenPanel(panel);
}

ProgressView* TerminalDeployView::showProgressView() {
    if (m_progress)
        m_progress->show();
    return this;
}

void TerminalDeployView::openFolder(const QString& path) {
    Terminal::instance().errLine(QStringLiteral("The log files are in ") + path);
}

void TerminalDeployView::hideAll() {
    m_placeholder = Placeholder::Hidden;
    m_placeholderText.clear();
    m_correctBranch.clear();
}

void TerminalDeployView::noSitesDefined() {
    hideAll();
    m_placeholder = Placeholder::NoSites;
    m_placeholderText = QStringLiteral("No sites defined.");
}

void TerminalDeployView::notValidGitRepoWith(const QString& text) {
    hideAll();
    m_placeholder = Placeholder::NotValidRepository;
    m_placeholderText = text.trimmed();
}

void TerminalDeployView::wrongBranchIsSelectedWith(const QString& text, const QString& correctBranch) {
    hideAll();
    m_placeholder = Placeholder::WrongBranch;
    m_placeholderText = text;
    m_correctBranch = correctBranch;
}

void TerminalDeployView::hasFilesToDeployWithStatus(bool hasFiles) {
    hideAll();
    if (!hasFiles) {
        m_placeholder = Placeholder::AllDeployed;
        m_placeholderText = QStringLiteral("All files deployed. Good work!");
    }
}

void TerminalDeployView::setTextLabel(const QString& text) {
    if (m_progress)
        m_progress->setStage(text);
}

void TerminalDeployView::setIsIndeterminate(bool) {
    if (m_progress)
        m_progress->setIndeterminate();
}

void TerminalDeployView::deployFinished() {
    if (m_progress)
        m_progress->finish();
}

} // namespace tw::cli
