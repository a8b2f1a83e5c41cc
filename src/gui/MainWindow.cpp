#include "MainWindow.h"

#include "AboutBox.h"
#include "EmptyTablePlaceholder.h"
#include "FileListPanel.h"
#include "FileTableModel.h"
#include "ImageResources.h"
#include "MainMenus.h"
#include "PreferencesDialog.h"
#include "ProgressViewController.h"
#include "RunMessages.h"
#include "ScriptEditorDialog.h"
#include "SiteConnectionTester.h"
#include "SiteEditorDialog.h"
#include "SitesSidebar.h"
#include "WindowState.h"
#include "app/AppInfo.h"
#include "app/Logger.h"
#include "app/Preferences.h"
#include "deploy/DeployRun.h"
#include "deploy/FailureExplanation.h"
#include "deploy/NotificationHub.h"
#include "deploy/ViewController.h"
#include "git/SiteManager.h"
#include "model/ExportSites.h"
#include "model/ImportSites.h"
#include "model/SecurityBookmarkManager.h"
#include "model/SiteListActions.h"
#include "model/Sites.h"

#include <QAction>
#include <QApplication>
#include <QCheckBox>
#include <QCloseEvent>
#include <QDesktopServices>
#include <QHBoxLayout>
#include <QKeySequence>
#include <QLabel>
#include <QLineEdit>
#include <QListView>
#include <QMenuBar>
#include <QMessageBox>
#include <QPointer>
#include <QPushButton>
#include <QShortcut>
#include <QSplitter>
#include <QStackedWidget>
#include <QStatusBar>
#include <QStyle>
#include <QTableView>
#include <QToolBar>
#include <QToolButton>
#include <QUrl>
#include <QVBoxLayout>

namespace tw {

MainWindow::MainWindow(QWidget* parent)
    : QMainWindow(parent)
    , m_interaction(this) {
    setWindowTitle(AppInfo::productName());
    setWindowIcon(ImageResources::applicationIcon());
    m_controller = std::make_unique<ViewController>(*this);

    m_sidebar = new SitesSidebar(m_interaction);
    m_model = new FileTableModel(&m_controller->files, this);
    m_filePanel = new FileListPanel(m_model);
    m_filePanel->setCheckboxHandler([this](bool checked, const QList<qsizetype>& rows) {
        m_controller->updateCheckboxes(checked, rows);
    });
    m_placeholder = new EmptyTablePlaceholder;

    m_siteLabel = new ElidedLabel;
    m_siteLabel->setObjectName(QStringLiteral("siteLabel"));
    QFont title = m_siteLabel->font();
    title.setPointSizeF(title.pointSizeF() * 1.3);
    title.setBold(true);
    m_siteLabel->setFont(title);
    m_lastDeploymentLabel = new ElidedLabel;
    m_lastDeploymentLabel->setObjectName(QStringLiteral("lastDeploymentLabel"));
    m_warningSign = new QLabel;
    m_warningSign->setPixmap(style()->standardIcon(QStyle::SP_MessageBoxWarning).pixmap(16, 16));
    m_warningSign->setAccessibleName(tr("Warning"));
    m_warningLabel = new QLabel;
    m_warningLabel->setTextFormat(Qt::PlainText);
    m_warningLabel->setWordWrap(true);
    m_runResultLabel = new QLabel;
    m_runResultLabel->setObjectName(QStringLiteral("runResultLabel"));
    m_runResultLabel->setTextFormat(Qt::PlainText);
    m_runResultLabel->setWordWrap(true);
    m_runResultLabel->setTextInteractionFlags(Qt::TextSelectableByMouse);
    m_runResultLabel->hide();
    m_connectionLabel = new ElidedLabel;
    m_connectionLabel->setObjectName(QStringLiteral("connectionTestLabel"));
    m_connectionLabel->hide();
    m_deployButton = new QPushButton(tr("Deploy"));
    m_deployButton->setDefault(true);
    m_deployButton->setObjectName(QStringLiteral("deployButton"));
    m_deployButton->setMinimumWidth(140);
    m_deployButton->setSizePolicy(QSizePolicy::Fixed, QSizePolicy::Fixed);
    connect(m_deployButton, &QPushButton::clicked, this, [this] { m_controller->deployButton(); });

    m_stack = new QStackedWidget;
    m_stack->addWidget(m_filePanel);
    m_stack->addWidget(m_placeholder);

    auto* warningRow = new QHBoxLayout;
    warningRow->addWidget(m_warningSign, 0, Qt::AlignTop);
    warningRow->addWidget(m_warningLabel, 1);
    // The notes take the width Deploy leaves; a box of their own, so that
    // hidden notes do not shrink the column to nothing.
    auto* notesBox = new QWidget;
    notesBox->setSizePolicy(QSizePolicy::Expanding, QSizePolicy::Preferred);
    auto* notes = new QVBoxLayout(notesBox);
    notes->setContentsMargins(0, 0, 0, 0);
    notes->addLayout(warningRow);
    notes->addWidget(m_runResultLabel);
    notes->addWidget(m_connectionLabel);
    auto* bottom = new QHBoxLayout;
    bottom->addWidget(notesBox, 1);
    bottom->addWidget(m_deployButton, 0, Qt::AlignRight | Qt::AlignBottom);

    auto* right = new QWidget;
    auto* rightLayout = new QVBoxLayout(right);
    rightLayout->addWidget(m_siteLabel);
    rightLayout->addWidget(m_lastDeploymentLabel);
    rightLayout->addWidget(m_stack, 1);
    rightLayout->addLayout(bottom);

    m_splitter = new QSplitter;
    m_splitter->setObjectName(QStringLiteral("mainSplitter"));
    m_splitter->addWidget(m_sidebar);
    m_splitter->addWidget(right);
    m_splitter->setStretchFactor(1, 1);
    m_splitter->setCollapsible(1, false);
    m_splitter->setSizes({240, 700});
    setCentralWidget(m_splitter);

    // Tab goes from the list of sites to its buttons, the filter, the file
    // list and on to Deploy: one stop per part, not one per cell.
    setTabOrder(m_sidebar->listView(), m_sidebar->addButton());
    setTabOrder(m_sidebar->addButton(), m_sidebar->duplicateButton());
    setTabOrder(m_sidebar->duplicateButton(), m_sidebar->removeButton());
    setTabOrder(m_sidebar->removeButton(), m_filePanel->filterField());
    setTabOrder(m_filePanel->filterField(), m_filePanel->tableView());
    setTabOrder(m_filePanel->tableView(), m_filePanel->checkbox());
    setTabOrder(m_filePanel->checkbox(), m_deployButton);

    // Delete in the list of sites removes the selected site, after asking.
    auto* removeKey = new QShortcut(QKeySequence::Delete, m_sidebar->listView());
    removeKey->setContext(Qt::WidgetShortcut);
    connect(removeKey, &QShortcut::activated, this, &MainWindow::deleteSite);

    m_interaction.setLogFolderOpener([this] { showLogFolder(); });

    connect(m_sidebar, &SitesSidebar::addSiteRequested, this, &MainWindow::newSite);
    connect(m_sidebar, &SitesSidebar::editSiteRequested, this, &MainWindow::editSite);
    connect(m_sidebar, &SitesSidebar::editScriptsRequested, this, &MainWindow::editScripts);
    connect(m_placeholder, &EmptyTablePlaceholder::addSiteClicked, this, &MainWindow::newSite);
    connect(m_placeholder, &EmptyTablePlaceholder::checkOutClicked, this,
            [this] { m_controller->switchBranchBtn(); });
    connect(m_placeholder, &EmptyTablePlaceholder::settingsClicked, this,
            [this] { editSite(m_sidebar->currentRow()); });
    connect(m_placeholder, &EmptyTablePlaceholder::chooseFolderClicked, this, &MainWindow::chooseFolderAgain);
    connect(m_model, &FileTableModel::checkMarksChanged, this, &MainWindow::updateActions);
    connect(qApp, &QGuiApplication::applicationStateChanged, this, [this](Qt::ApplicationState state) {
        static Qt::ApplicationState previous = Qt::ApplicationActive;
        if (state == Qt::ApplicationHidden)
            m_controller->applicationWillHide();
        else if (previous == Qt::ApplicationHidden && state == Qt::ApplicationActive)
            m_controller->applicationDidUnhide();
        previous = state;
    });
    connect(m_controller.get(), &ViewController::deploymentEnded, this,
            [this](DeployOutcome outcome, const QString&, const RunSummary& summary) {
                runEnded(outcome, summary);
            });
    connect(m_controller.get(), &ViewController::readinessChanged, this, &MainWindow::readinessChanged);
    connect(m_controller.get(), &ViewController::progressChanged, this,
            [this](qsizetype done, qsizetype total) {
                if (m_progress)
                    m_progress->setFileCount(done, total);
            });

    MainMenus::build(*this);
    resize(980, 640);
    WindowState::restore(*this, *m_splitter);
}

MainWindow::~MainWindow() {
    // The controller goes first: it still talks to the sheet and the placeholder.
    m_controller.reset();
}

QAction* MainWindow::action(const QString& objectName) const {
    for (QAction* candidate : actions()) {
        if (candidate->objectName() == objectName)
            return candidate;
    }
    return nullptr;
}

void MainWindow::load() {
    m_controller->viewDidLoad();
    m_sidebar->selectCurrentSite();
    updateLabels();
}

bool MainWindow::isShowingFiles() const {
    return m_stack->currentWidget() == m_filePanel;
}

// ---------------------------------------------------------------------------
// Questions

int MainWindow::runModal(const AlertRequest& alert) {
    return m_interaction.runModal(explained(alert));
}

void MainWindow::beginSheet(const AlertRequest& alert, std::function<void(int)> completion) {
    m_interaction.beginSheet(explained(alert), std::move(completion));
}

AlertRequest MainWindow::explained(const AlertRequest& alert) const {
    if (alert.message != u"An error occured!" || !alert.detailedText.isEmpty())
        return alert;
    const SitePtr site = m_controller->currentSite;
    const FailureExplanation::Context context =
        site ? FailureExplanation::Context::of(*site) : FailureExplanation::Context();
    QString curlText = alert.informativeText;
    const QString notes = RunMessages::takeRunNotes(curlText);
    const FailureExplanation explanation = FailureExplanation::explain(curlText, context);
    AlertRequest shown = alert;
    shown.informativeText = explanation.summary();
    if (!notes.isEmpty())
        shown.informativeText += QLatin1Char('\n') + notes;
    shown.detailedText = explanation.details();
    // During a run: what reached the server, and that the record was not written.
    if (const DeployRun* run = m_controller->run();
        run && run->summary().total > 0 && !run->summary().recordWritten)
        shown.informativeText += QStringLiteral("\n\n") + RunMessages::notRecorded(run->summary());
    return shown;
}

std::optional<QString> MainWindow::runSavePanel(const SavePanelRequest& panel) {
    return m_interaction.runSavePanel(panel);
}

std::optional<QString> MainWindow::runOpenPanel(const OpenPanelRequest& panel) {
    return m_interaction.runOpenPanel(panel);
}

// ---------------------------------------------------------------------------
// What the controller shows

// One progress sheet for the window's life, presented again for every run:
// the runs hold on to it until they are gone.
ProgressView* MainWindow::showProgressView() {
    if (!m_progress)
        m_progress = std::make_unique<ProgressViewController>(this);
    if (!m_progress->isPresented())
        m_progress->present();
    return m_progress.get();
}

EmptyTableView& MainWindow::emptyTableView() {
    return m_placeholder->controller();
}

void MainWindow::setDeployButtonEnabled(bool enabled) {
    m_deployEnabled = enabled;
    m_deployButton->setEnabled(enabled);
    if (QAction* deploy = action(QStringLiteral("deploy")))
        deploy->setEnabled(enabled);
}

void MainWindow::filesDidChange() {
    m_model->reload();
    const bool hasRows = m_controller->files && !m_controller->files->isEmpty();
    m_stack->setCurrentWidget(hasRows ? static_cast<QWidget*>(m_filePanel) : m_placeholder);
    updateLabels();
    updateFix();
}

void MainWindow::fileStatusDidChange(qsizetype row) {
    if (row >= 0)
        m_model->fileStatusDidChange(row);
}

void MainWindow::siteDidChange() {
    m_sidebar->selectCurrentSite();
    updateLabels();
    updateFix();
}

void MainWindow::readinessChanged() {
    const DeployReadiness readiness = m_controller->readiness();
    m_deployButton->setToolTip(readiness == DeployReadiness::Ready ? tr("Deploy the checked files")
                                                                   : describe(readiness));
    updateFix();
}

// What the placeholder adds to the controller's picture and text: what is
// wrong, by name, and the buttons that fix it.
void MainWindow::updateFix() {
    const SitePtr site = m_controller->currentSite;
    const DeployReadiness readiness = m_controller->readiness();
    if (!site || isShowingFiles()) {
        m_placeholder->showFix(QString(), false, false);
        return;
    }
    const std::optional<QString> checkedOut =
        readiness == DeployReadiness::OtherBranch ? m_controller->checkOutedBranch() : std::nullopt;
    m_placeholder->showFixFor(readiness, site->localPath.value_or(QString()), checkedOut,
                              site->deployBranch.value_or(QString()));
}

QString MainWindow::currentSiteId() const {
    const SitePtr site = m_controller->currentSite;
    return site ? site->siteId() : QString();
}

// The lines about a run and a connection test speak of one site: another
// site chosen, they go.
void MainWindow::forgetMessagesOfOtherSites() {
    const QString id = currentSiteId();
    if (id == m_messagesSiteId)
        return;
    m_messagesSiteId = id;
    m_runResultLabel->clear();
    m_runResultLabel->hide();
    m_connectionLabel->setFullText(QString());
    m_connectionLabel->setDetails(QString());
    m_connectionLabel->hide();
}

void MainWindow::runEnded(DeployOutcome outcome, const RunSummary& summary) {
    forgetMessagesOfOtherSites();
    const QString text = RunMessages::afterRun(outcome, summary);
    m_runResultLabel->setText(text);
    m_runResultLabel->setVisible(!text.isEmpty());
    updateLabels();
}

void MainWindow::openFolder(const QString& path) {
    QDesktopServices::openUrl(QUrl::fromLocalFile(path));
}

void MainWindow::updateLabels() {
    forgetMessagesOfOtherSites();
    const SitePtr site = m_controller->currentSite;
    if (!site) {
        m_siteLabel->setFullText(Sites().total() == 0 ? tr("Welcome to %1").arg(AppInfo::productName())
                                                      : tr("No site selected"));
        m_lastDeploymentLabel->setFullText(
            Sites().total() == 0 ? tr("Add a site to publish a git repository.") : QString());
        setWindowTitle(AppInfo::productName());
        m_warningSign->hide();
        m_warningLabel->hide();
        updateActions();
        return;
    }
    const QString name = site->name.value_or(QString()).isEmpty() ? tr("Untitled site") : *site->name;
    QString title = name;
    if (site->host && !site->host->isEmpty())
        title += QStringLiteral(" \u2014 ") + site->protocol.value_or(QStringLiteral("FTP")) +
                 QStringLiteral(" ") + *site->host;
    m_siteLabel->setFullText(title);
    setWindowTitle(QStringLiteral("%1 \u2014 %2").arg(name, AppInfo::productName()));

    const CommitPtr last = site->lastCommitDeployed;
    if (last && last->sha1) {
        QString text = tr("Last deployed: %1").arg(*last->sha1);
        if (last->comment && !last->comment->isEmpty())
            text += QStringLiteral(" \u201c") + *last->comment + QStringLiteral("\u201d");
        if (last->deployedWhen)
            text +=
                tr(" on %1").arg(QLocale().toString(last->deployedWhen->toLocalTime(), QLocale::ShortFormat));
        m_lastDeploymentLabel->setFullText(text);
    } else {
        m_lastDeploymentLabel->setFullText(
            tr("Never deployed: the first deployment sends every committed file."));
    }

    QString warning;
    if (ViewController::isUploading() && !m_controller->isDeploying())
        warning = tr("The last deployment did not finish. Deploy again to bring the server up to date.");
    else
        warning = m_controller->listingNotes().join(QLatin1Char('\n'));
    m_warningLabel->setText(warning);
    m_warningLabel->setVisible(!warning.isEmpty());
    m_warningSign->setVisible(!warning.isEmpty());
    updateActions();
}

void MainWindow::updateActions() {
    const bool hasSite = m_controller->currentSite != nullptr;
    for (const char* name : {"editSite", "editScripts", "duplicateSite", "deleteSite", "testConnection"}) {
        if (QAction* a = action(QString::fromLatin1(name)))
            a->setEnabled(hasSite);
    }
}

// ---------------------------------------------------------------------------
// Commands

void MainWindow::newSite() {
    auto* editor = new SiteEditorDialog(Site::newSite(), m_interaction, this);
    editor->setAttribute(Qt::WA_DeleteOnClose);
    connect(editor, &SiteEditorDialog::siteSaved, this,
            [](qsizetype index) { SiteListActions::setCurrentIndex(index); });
    editor->open();
}

void MainWindow::editSite(int row) {
    const auto sites = Sites().loadAll();
    if (!sites || row < 0 || row >= sites->size())
        return;
    SitePtr site = sites->at(row);
    site->siteIndex = row;
    auto* editor = new SiteEditorDialog(site, m_interaction, this);
    editor->setAttribute(Qt::WA_DeleteOnClose);
    editor->open();
}

void MainWindow::editScripts(int row) {
    const auto sites = Sites().loadAll();
    if (!sites || row < 0 || row >= sites->size())
        return;
    SitePtr site = sites->at(row);
    site->siteIndex = row;
    auto* editor = new ScriptEditorDialog(site, this);
    editor->setAttribute(Qt::WA_DeleteOnClose);
    editor->open();
}

void MainWindow::duplicateSite() {
    if (m_sidebar->currentRow() >= 0)
        m_sidebar->duplicateSite(m_sidebar->currentRow());
}

void MainWindow::deleteSite() {
    if (m_sidebar->currentRow() >= 0)
        m_sidebar->removeSite(m_sidebar->currentRow());
}

void MainWindow::importSites() {
    ImportSites(m_interaction).browseFiles();
}

void MainWindow::exportSites() {
    ExportSites(m_interaction).browseDirectory();
}

void MainWindow::testConnection() {
    const SitePtr site = m_controller->currentSite;
    if (!site)
        return;
    statusBar()->showMessage(tr("Testing the connection to %1\u2026").arg(site->host.value_or(QString())));
    m_connectionLabel->hide();
    QPointer<MainWindow> self(this);
    SitePtr tested = site;
    SiteConnectionTester::start(site, [self, tested](const std::optional<QString>& error) {
        if (self)
            self->showConnectionResult(*tested, error);
    });
}

void MainWindow::showConnectionResult(Site& site, const std::optional<QString>& error) {
    statusBar()->clearMessage();
    // Another site chosen meanwhile: the line under the list is not for it.
    const bool shown = site.siteId() == currentSiteId();
    if (!error) {
        if (shown) {
            m_connectionLabel->setFullText(tr("The connection works: the server accepted a small test file, "
                                              "\u201c.test\u201d."));
            m_connectionLabel->setDetails(QString());
            m_connectionLabel->show();
        }
        return;
    }
    const FailureExplanation::Context context = FailureExplanation::Context::of(site);
    const FailureExplanation explanation = FailureExplanation::explain(*error, context);
    if (shown) {
        m_connectionLabel->setFullText(tr("The connection test failed: %1").arg(explanation.summary()));
        m_connectionLabel->setDetails(explanation.details());
        m_connectionLabel->show();
    }
    AlertRequest alert;
    alert.style = AlertStyle::Warning;
    alert.message =
        shown ? tr("The connection test failed")
              : tr("The connection test of \u201c%1\u201d failed").arg(site.name.value_or(QString()));
    alert.informativeText = explanation.summary();
    alert.detailedText = explanation.details();
    m_interaction.beginSheet(alert, [](int) {});
}

void MainWindow::refresh() {
    NotificationHub::instance().postReloadFiles();
}

void MainWindow::showPreferences() {
    PreferencesDialog dialog(this);
    dialog.exec();
}

void MainWindow::showAbout() {
    AboutBox::show(this);
}

void MainWindow::showDocumentation() {
    QDesktopServices::openUrl(QUrl(AboutBox::documentationUrl()));
}

void MainWindow::activate() {
    if (isMinimized())
        showNormal();
    show();
    raise();
    activateWindow();
}

void MainWindow::chooseFolderAgain() {
    const int row = m_sidebar->currentRow();
    const auto sites = Sites().loadAll();
    if (!sites || row < 0 || row >= sites->size())
        return;
    OpenPanelRequest panel;
    panel.title = tr("Choose the Repository Folder");
    panel.message = tr("Choose the folder of the site's git repository.");
    panel.canChooseFiles = false;
    panel.canChooseDirectories = true;
    SitePtr site = sites->at(row);
    panel.directory = site->localPath.value_or(QString());
    const std::optional<QString> chosen = m_interaction.runOpenPanel(panel);
    if (!chosen)
        return;
    site->localPath = *chosen;
    if (const auto bookmark = SecurityBookmarkManager::bookmarkFor(*chosen))
        site->bookmarkData = bookmark;
    SiteListActions::replace(row, site);
}

void MainWindow::showLogFolder() {
    m_controller->showLogDirectory();
}

void MainWindow::changeEvent(QEvent* event) {
    QMainWindow::changeEvent(event);
    if (event->type() == QEvent::PaletteChange)
        MainMenus::applyIcons(*this);
}

void MainWindow::closeEvent(QCloseEvent* event) {
    if (m_controller->isDeploying()) {
        AlertRequest alert;
        alert.message = tr("A deployment is running");
        alert.informativeText = tr("Quitting now stops it; the server keeps what was sent so far.");
        alert.buttons = {tr("Keep Deploying"), tr("Stop and Quit")};
        if (runModal(alert) == 0) {
            event->ignore();
            return;
        }
        m_controller->abortDeploy();
    }
    WindowState::save(*this, *m_splitter);
    event->accept();
}

} // namespace tw
