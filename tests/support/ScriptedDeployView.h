#pragma once

#include "ScriptedInteraction.h"
#include "deploy/DeployView.h"

#include <QStringList>

namespace tw::test {

// A deploy view for tests: answers questions from a script (see
// ScriptedInteraction) and records what the controller showed: the
// placeholder's states, the progress display's texts, opened folders.
class ScriptedDeployView : public ScriptedInteraction,
                           public DeployView,
                           public EmptyTableView,
                           public ProgressView {
public:
    // The placeholder's calls as text, such as "hideAll" or
    // "wrongBranchIsSelectedWith:A non-deployment branch:main".
    QStringList placeholder;
    QStringList progressTexts;
    int progressShown = 0;
    int progressClosed = 0;
    int indeterminate = 0;
    bool deployButtonEnabled = false;
    int filesChanges = 0;
    int statusChanges = 0;
    int siteChanges = 0;
    QStringList openedFolders;
    ProgressViewDelegate* progressDelegate = nullptr;

    // UserInteraction (both bases need them; ScriptedInteraction answers).
    int runModal(const AlertRequest& alert) override { return ScriptedInteraction::runModal(alert); }
    void beginSheet(const AlertRequest& alert, std::function<void(int)> completion) override {
        ScriptedInteraction::beginSheet(alert, std::move(completion));
    }
    std::optional<QString> runSavePanel(const SavePanelRequest& panel) override {
        return ScriptedInteraction::runSavePanel(panel);
    }
    std::optional<QString> runOpenPanel(const OpenPanelRequest& panel) override {
        return ScriptedInteraction::runOpenPanel(panel);
    }

    // DeployView
    ProgressView* showProgressView() override {
        ++progressShown;
        return this;
    }
    EmptyTableView& emptyTableView() override { return *this; }
    void setDeployButtonEnabled(bool enabled) override { deployButtonEnabled = enabled; }
    void filesDidChange() override { ++filesChanges; }
    void fileStatusDidChange(qsizetype) override { ++statusChanges; }
    void siteDidChange() override { ++siteChanges; }
    void openFolder(const QString& path) override { openedFolders.append(path); }

    // EmptyTableView
    void hideAll() override { placeholder.append(QStringLiteral("hideAll")); }
    void noSitesDefined() override { placeholder.append(QStringLiteral("noSitesDefined")); }
    void notValidGitRepoWith(const QString& text) override {
        placeholder.append(QStringLiteral("notValidGitRepoWith:") + text);
    }
    void wrongBranchIsSelectedWith(const QString& text, const QString& branch) override {
        placeholder.append(QStringLiteral("wrongBranchIsSelectedWith:") + text + QLatin1Char(':') + branch);
    }
    void hasFilesToDeployWithStatus(bool hasFiles) override {
        placeholder.append(QStringLiteral("hasFilesToDeployWithStatus:") +
                           (hasFiles ? QStringLiteral("true") : QStringLiteral("false")));
    }

    // ProgressView
    void setTextLabel(const QString& text) override { progressTexts.append(text); }
    void setIsIndeterminate(bool) override { ++indeterminate; }
    void deployFinished() override { ++progressClosed; }
    void setDelegate(ProgressViewDelegate* delegate) override { progressDelegate = delegate; }
};

} // namespace tw::test
