#pragma once

#include "ElidedLabel.h"
#include "WidgetInteraction.h"
#include "deploy/DeployOutcome.h"
#include "deploy/DeployView.h"
#include "deploy/RunSummary.h"
#include "model/Site.h"

#include <QMainWindow>

#include <memory>

class QAction;
class QLabel;
class QPushButton;
class QSplitter;
class QStackedWidget;

namespace tw {

class EmptyTablePlaceholder;
class FileListPanel;
class FileTableModel;
class ProgressViewController;
class SitesSidebar;
class ViewController;

// The main window: the site list on the left, the selected site's deployable
// files on the right, the Deploy button below. It shows and asks what the
// deploy controller wants shown and asked, and holds no deployment logic.
class MainWindow : public QMainWindow, public DeployView {
    Q_OBJECT

public:
    explicit MainWindow(QWidget* parent = nullptr);
    ~MainWindow() override;

    ViewController& controller() const { return *m_controller; }
    SitesSidebar* sidebar() const { return m_sidebar; }
    FileListPanel* filePanel() const { return m_filePanel; }
    EmptyTablePlaceholder* placeholder() const { return m_placeholder; }
    QPushButton* deployButton() const { return m_deployButton; }
    QLabel* lastDeploymentLabel() const { return m_lastDeploymentLabel; }
    QLabel* warningLabel() const { return m_warningLabel; }
    ElidedLabel* siteLabel() const { return m_siteLabel; }
    // What the last connection test found (the sentence; curl's text in the tool tip).
    ElidedLabel* connectionLabel() const { return m_connectionLabel; }
    // What the last run did ("Deployed: 4 files reached the server. ...").
    QLabel* runResultLabel() const { return m_runResultLabel; }
    QSplitter* splitter() const { return m_splitter; }
    ProgressViewController* progressSheet() const { return m_progress.get(); }
    // Whether the file table (rather than the placeholder) is showing.
    bool isShowingFiles() const;
    QAction* action(const QString& objectName) const;

    // Loads the current site and its files; call once the window is shown.
    void load();

    // UserInteraction
    int runModal(const AlertRequest& alert) override;
    void beginSheet(const AlertRequest& alert, std::function<void(int)> completion) override;
    std::optional<QString> runSavePanel(const SavePanelRequest& panel) override;
    std::optional<QString> runOpenPanel(const OpenPanelRequest& panel) override;

    // DeployView
    ProgressView* showProgressView() override;
    EmptyTableView& emptyTableView() override;
    void setDeployButtonEnabled(bool enabled) override;
    void filesDidChange() override;
    void fileStatusDidChange(qsizetype row) override;
    void siteDidChange() override;
    void openFolder(const QString& path) override;

    void newSite();
    void editSite(int row);
    void editScripts(int row);
    void duplicateSite();
    void deleteSite();
    void importSites();
    void exportSites();
    void testConnection();
    void refresh();
    void showPreferences();
    void showAbout();
    void showLogFolder();
    void showDocumentation();
    // Chooses the current site's repository folder again (it is gone).
    void chooseFolderAgain();
    // Shows the window in front of others (a second start asked for it).
    void activate();

    // A failure the core reports ("An error occured!" with curl's text) as
    // the window shows it: a sentence, curl's text under the details and,
    // during a run, how many files reached the server.
    AlertRequest explained(const AlertRequest& alert) const;

protected:
    void changeEvent(QEvent* event) override;
    void closeEvent(QCloseEvent* event) override;

private:
    void updateLabels();
    void updateActions();
    void updateFix();
    void readinessChanged();
    void runEnded(DeployOutcome outcome, const RunSummary& summary);
    void showConnectionResult(Site& site, const std::optional<QString>& error);
    QString currentSiteId() const;
    void forgetMessagesOfOtherSites();

    WidgetInteraction m_interaction;
    std::unique_ptr<ViewController> m_controller;
    std::unique_ptr<ProgressViewController> m_progress;
    SitesSidebar* m_sidebar = nullptr;
    FileTableModel* m_model = nullptr;
    FileListPanel* m_filePanel = nullptr;
    EmptyTablePlaceholder* m_placeholder = nullptr;
    QStackedWidget* m_stack = nullptr;
    ElidedLabel* m_siteLabel = nullptr;
    ElidedLabel* m_lastDeploymentLabel = nullptr;
    ElidedLabel* m_connectionLabel = nullptr;
    QLabel* m_runResultLabel = nullptr;
    QSplitter* m_splitter = nullptr;
    QLabel* m_warningSign = nullptr;
    QLabel* m_warningLabel = nullptr;
    QPushButton* m_deployButton = nullptr;
    bool m_deployEnabled = false;
    QString m_messagesSiteId; // the site the lines about a run and a test speak of
};

} // namespace tw
