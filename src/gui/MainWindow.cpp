#include "MainWindow.h"

#include "EmptyTablePlaceholder.h"
#include "FileListPanel.h"
#include "FileTableModel.h"
#include "ImageResources.h"
#include "PreferencesDialog.h"
#include "ProgressViewController.h"
#include "ScriptEditorDialog.h"
#include "SiteConnectionTester.h"
#include "SiteEditorDialog.h"
#include "SitesSidebar.h"
#include "app/AppInfo.h"
#include "app/Preferences.h"
#include "deploy/NotificationHub.h"
#include "deploy/ViewController.h"
#include "git/SiteManager.h"
#include "model/ExportSites.h"
#include "model/ImportSites.h"
#include "model/SiteListActions.h"
#include "model/Sites.h"

#include <QAction>
#include <QApplication>
#include <QCloseEvent>
#include <QDesktopServices>
#include <QHBoxLayout>
#include <QKeySequence>
#include <QLabel>
#include <QMenuBar>
#include <QMessageBox>
#include <QPointer>
#include <QPushButton>
#include <QSplitter>
#include <QStackedWidget>
#include <QStatusBar>
#include <QStyle>
#include <QToolBar>
#include <QUrl>
#include <QVBoxLayout>

namespace tw {

namespace {

QAction* makeAction(QWidget* owner, const QString& name, const QString& text, const QKeySequence& shortcut,
                    std::function<void()> handler) {
    auto* action = new QAction(text, owner);
    action->setObjectName(name);
    if (!shortcut.isEmpty())
        action->setShortcut(shortcut);
    QObject::connect(action, &QAction::triggered, owner, [handler] { handler(); });
    owner->addAction(action);
    return action;
}

} // namespace

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

    m_siteLabel = new QLabel;
    m_siteLabel->setTextFormat(Qt::PlainText);
    QFont title = m_siteLabel->font();
    title.setPointSizeF(title.pointSizeF() * 1.3);
    title.setBold(true);
    m_siteLabel->setFont(title);
    m_lastDeploymentLabel = new QLabel;
    m_lastDeploymentLabel->setTextFormat(Qt::PlainText);
    m_lastDeploymentLabel->setObjectName(QStringLiteral("lastDeploymentLabel"));
    m_warningSign = new QLabel;
    m_warningSign->setPixmap(style()->standardIcon(QStyle::SP_MessageBoxWarning).pixmap(16, 16));
    m_warningLabel = new QLabel;
    m_warningLabel->setTextFormat(Qt::PlainText);
    m_warningLabel->setWordWrap(true);
    m_deployButton = new QPushButton(tr("Deploy"));
    m_deployButton->setDefault(true);
    m_deployButton->setObjectName(QStringLiteral("deployButton"));
    m_deployButton->setMinimumWidth(140);
    m_deployButton->setIcon(ImageResources::icon(QStringLiteral("cloud_tick")));
    connect(m_deployButton, &QPushButton::clicked, this, [this] { m_controller->deployButton(); });

    m_stack = new QStackedWidget;
    m_stack->addWidget(m_filePanel);
    m_stack->addWidget(m_placeholder);

    auto* warningRow = new QHBoxLayout;
    warningRow->addWidget(m_warningSign);
    warningRow->addWidget(m_warningLabel, 1);
    auto* bottom = new QHBoxLayout;
    bottom->addLayout(warningRow, 1);
    bottom->addStretch();
    bottom->addWidget(m_deployButton);

    auto* right = new QWidget;
    auto* rightLayout = new QVBoxLayout(right);
    rightLayout->addWidget(m_siteLabel);
    rightLayout->addWidget(m_lastDeploymentLabel);
    rightLayout->addWidget(m_stack, 1);
    rightLayout->addLayout(bottom);

    auto* splitter = new QSplitter;
    splitter->addWidget(m_sidebar);
    splitter->addWidget(right);
    splitter->setStretchFactor(1, 1);
    splitter->setSizes({240, 700});
    setCentralWidget(splitter);

    connect(m_sidebar, &SitesSidebar::addSiteRequested, this, &MainWindow::newSite);
    connect(m_sidebar, &SitesSidebar::editSiteRequested, this, &MainWindow::editSite);
    connect(m_sidebar, &SitesSidebar::editScriptsRequested, this, &MainWindow::editScripts);
    connect(m_placeholder, &EmptyTablePlaceholder::addSiteClicked, this, &MainWindow::newSite);
    connect(m_placeholder, &EmptyTablePlaceholder::checkOutClicked, this,
            [this] { m_controller->switchBranchBtn(); });
    connect(m_model, &FileTableModel::checkMarksChanged, this, &MainWindow::updateActions);
    connect(qApp, &QGuiApplication::applicationStateChanged, this, [this](Qt::ApplicationState state) {
        static Qt::ApplicationState previous = Qt::ApplicationActive;
        if (state == Qt::ApplicationHidden)
            m_controller->applicationWillHide();
        else if (previous == Qt::ApplicationHidden && state == Qt::ApplicationActive)
            m_controller->applicationDidUnhide();
        previous = state;
    });
    connect(m_controller.get(), &ViewController::deploymentEnded, this, [this] { updateLabels(); });

    buildMenus();
    resize(980, 640);
}

MainWindow::~MainWindow() {
    // The controller goes first: it still talks to the sheet and the placeholder.
    m_controller.reset();
}

void MainWindow::buildMenus() {
    QMenu* file = menuBar()->addMenu(tr("&Site"));
    file->addAction(makeAction(this, QStringLiteral("newSite"), tr("&New Site…"), QKeySequence::New,
                               [this] { newSite(); }));
    file->addAction(makeAction(this, QStringLiteral("editSite"), tr("&Edit Site…"),
                               QKeySequence(tr("Ctrl+E")), [this] { editSite(m_sidebar->currentRow()); }));
    file->addAction(makeAction(this, QStringLiteral("editScripts"), tr("Scr&ipts…"),
                               QKeySequence(tr("Ctrl+Shift+E")),
                               [this] { editScripts(m_sidebar->currentRow()); }));
    file->addAction(makeAction(this, QStringLiteral("duplicateSite"), tr("D&uplicate Site"),
                               QKeySequence(tr("Ctrl+D")), [this] { duplicateSite(); }));
    file->addAction(makeAction(this, QStringLiteral("deleteSite"), tr("De&lete Site…"),
                               QKeySequence(tr("Ctrl+Backspace")), [this] { deleteSite(); }));
    file->addSeparator();
    file->addAction(makeAction(this, QStringLiteral("importSites"), tr("&Import Sites…"),
                               QKeySequence(tr("Ctrl+I")), [this] { importSites(); }));
    file->addAction(makeAction(this, QStringLiteral("exportSites"), tr("E&xport Sites…"),
                               QKeySequence(tr("Ctrl+Shift+S")), [this] { exportSites(); }));
    file->addSeparator();
    file->addAction(
        makeAction(this, QStringLiteral("quit"), tr("&Quit"), QKeySequence::Quit, [this] { close(); }));

    QMenu* deploy = menuBar()->addMenu(tr("&Deploy"));
    QAction* deployAction =
        makeAction(this, QStringLiteral("deploy"), tr("&Deploy"), QKeySequence(tr("Ctrl+Return")), [this] {
            if (m_deployEnabled)
                m_controller->deployButton();
        });
    deployAction->setIcon(ImageResources::icon(QStringLiteral("cloud_tick")));
    deploy->addAction(deployAction);
    QAction* testAction = makeAction(this, QStringLiteral("testConnection"), tr("&Test Connection"),
                                     QKeySequence(tr("Ctrl+T")), [this] { testConnection(); });
    testAction->setIcon(
        QIcon::fromTheme(QStringLiteral("network-server"), style()->standardIcon(QStyle::SP_DriveNetIcon)));
    deploy->addAction(testAction);
    QAction* refreshAction = makeAction(this, QStringLiteral("refresh"), tr("&Refresh"),
                                        QKeySequence::Refresh, [this] { refresh(); });
    refreshAction->setIcon(
        QIcon::fromTheme(QStringLiteral("view-refresh"), style()->standardIcon(QStyle::SP_BrowserReload)));
    deploy->addAction(refreshAction);
    deploy->addSeparator();
    deploy->addAction(makeAction(this, QStringLiteral("showLogFolder"), tr("Open &Log Folder"),
                                 QKeySequence(tr("Ctrl+L")), [this] { showLogFolder(); }));

    QMenu* view = menuBar()->addMenu(tr("&View"));
    QAction* toggle = m_sidebar->toggleAction();
    toggle->setObjectName(QStringLiteral("toggleSidebar"));
    toggle->setShortcut(QKeySequence(tr("Ctrl+0")));
    addAction(toggle);
    view->addAction(toggle);
    QAction* fullPath = makeAction(
        this, QStringLiteral("showFullPath"), tr("Show &Full Paths"), QKeySequence(tr("Ctrl+Shift+F")), [] {
            Preferences& p = Preferences::instance();
            p.setBool(QStringLiteral("showFullPath"), !p.boolValue(QStringLiteral("showFullPath")));
            p.synchronize();
        });
    fullPath->setCheckable(true);
    fullPath->setChecked(Preferences::instance().boolValue(QStringLiteral("showFullPath")));
    connect(&Preferences::instance(), &Preferences::valueChanged, fullPath, [fullPath](const QString& key) {
        if (key == u"showFullPath")
            fullPath->setChecked(Preferences::instance().boolValue(key));
    });
    view->addAction(fullPath);
    view->addSeparator();
    view->addAction(makeAction(this, QStringLiteral("preferences"), tr("&Preferences…"),
                               QKeySequence::keyBindings(QKeySequence::Preferences).isEmpty()
                                   ? QKeySequence(tr("Ctrl+,"))
                                   : QKeySequence(QKeySequence::Preferences),
                               [this] { showPreferences(); }));

    QMenu* help = menuBar()->addMenu(tr("&Help"));
    help->addAction(makeAction(this, QStringLiteral("about"), tr("&About %1").arg(AppInfo::productName()),
                               QKeySequence(), [this] { showAbout(); }));

    QToolBar* bar = addToolBar(tr("Main"));
    bar->setObjectName(QStringLiteral("mainToolBar"));
    bar->setMovable(false);
    bar->setToolButtonStyle(Qt::ToolButtonTextBesideIcon);
    bar->addAction(toggle);
    bar->addSeparator();
    bar->addAction(deployAction);
    bar->addAction(action(QStringLiteral("refresh")));
    bar->addAction(action(QStringLiteral("testConnection")));
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
    return m_interaction.runModal(alert);
}

void MainWindow::beginSheet(const AlertRequest& alert, std::function<void(int)> completion) {
    m_interaction.beginSheet(alert, std::move(completion));
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
}

void MainWindow::fileStatusDidChange(qsizetype row) {
    if (row >= 0)
        m_model->fileStatusDidChange(row);
}

void MainWindow::siteDidChange() {
    m_sidebar->selectCurrentSite();
    updateLabels();
}

void MainWindow::openFolder(const QString& path) {
    QDesktopServices::openUrl(QUrl::fromLocalFile(path));
}

void MainWindow::updateLabels() {
    const SitePtr site = m_controller->currentSite;
    if (!site) {
        m_siteLabel->setText(Sites().total() == 0 ? tr("Welcome to %1").arg(AppInfo::productName())
                                                  : tr("No site selected"));
        m_lastDeploymentLabel->setText(Sites().total() == 0 ? tr("Add a site to publish a git repository.")
                                                            : QString());
        m_warningSign->hide();
        m_warningLabel->hide();
        updateActions();
        return;
    }
    QString title = site->name.value_or(tr("Untitled site"));
    if (site->host && !site->host->isEmpty())
        title += QStringLiteral(" \u2014 ") + site->protocol.value_or(QStringLiteral("FTP")) +
                 QStringLiteral(" ") + *site->host;
    m_siteLabel->setText(title);

    const CommitPtr last = site->lastCommitDeployed;
    if (last && last->sha1) {
        QString text = tr("Last deployed: %1").arg(*last->sha1);
        if (last->comment && !last->comment->isEmpty())
            text += QStringLiteral(" \u201c") + *last->comment + QStringLiteral("\u201d");
        if (last->deployedWhen)
            text +=
                tr(" on %1").arg(QLocale().toString(last->deployedWhen->toLocalTime(), QLocale::ShortFormat));
        m_lastDeploymentLabel->setText(text);
    } else {
        m_lastDeploymentLabel->setText(
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
    statusBar()->showMessage(tr("Testing the connection to %1…").arg(site->host.value_or(QString())));
    QPointer<MainWindow> self(this);
    SiteConnectionTester::start(site, [self](const std::optional<QString>& error) {
        if (!self)
            return;
        self->statusBar()->clearMessage();
        AlertRequest alert;
        alert.style = error ? AlertStyle::Warning : AlertStyle::Informational;
        alert.message = error ? tr("The connection test failed") : tr("The connection works");
        alert.informativeText =
            error ? *error : tr("The server accepted a small test file, \u201c.test\u201d.");
        self->beginSheet(alert, [](int) {});
    });
}

void MainWindow::refresh() {
    NotificationHub::instance().postReloadFiles();
}

void MainWindow::showPreferences() {
    PreferencesDialog dialog(this);
    dialog.exec();
}

void MainWindow::showAbout() {
    QMessageBox::about(
        this, tr("About %1").arg(AppInfo::productName()),
        tr("<h3>%1 %2</h3><p>Publishes a website kept in a git repository to a web server over "
           "FTP, FTP with TLS or SFTP: only what changed since the last deployment.</p>"
           "<p>Updates come from your package manager.</p>")
            .arg(AppInfo::productName(), AppInfo::version()));
}

void MainWindow::showLogFolder() {
    m_controller->showLogDirectory();
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
    event->accept();
}

} // namespace tw
