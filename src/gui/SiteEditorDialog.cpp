#include "SiteEditorDialog.h"

#include "ConnectionTestRow.h"
#include "PathListEditor.h"
#include "SiteConnectionTester.h"
#include "SiteEditorPanels.h"
#include "app/Preferences.h"
#include "app/UserInteraction.h"
#include "git/SiteManager.h"
#include "model/SecurityBookmarkManager.h"
#include "model/SiteListActions.h"
#include "model/Sites.h"

#include <QCheckBox>
#include <QComboBox>
#include <QDialogButtonBox>
#include <QDir>
#include <QFileInfo>
#include <QFormLayout>
#include <QHBoxLayout>
#include <QLabel>
#include <QLineEdit>
#include <QListWidget>
#include <QPointer>
#include <QPushButton>
#include <QRegularExpressionValidator>
#include <QScreen>
#include <QScrollArea>
#include <QTabWidget>
#include <QTimer>
#include <QVBoxLayout>

namespace tw {

namespace {

enum Tab { GeneralTab, ServerTab, FilesTab };

// A page that scrolls when it is taller than the screen allows.
QScrollArea* scrolled(QWidget* page) {
    auto* area = new QScrollArea;
    area->setFrameShape(QFrame::NoFrame);
    area->setWidgetResizable(true);
    area->setHorizontalScrollBarPolicy(Qt::ScrollBarAlwaysOff);
    area->setWidget(page);
    area->viewport()->setAutoFillBackground(false);
    page->setAutoFillBackground(false);
    return area;
}

QString withoutFileScheme(QString path) {
    path.remove(QStringLiteral("file://"));
    return path;
}

} // namespace

SiteEditorDialog::SiteEditorDialog(SitePtr site, UserInteraction& interaction, QWidget* parent)
    : QDialog(parent)
    , m_site(site ? std::move(site) : Site::newSite())
    , m_interaction(interaction) {
    setWindowTitle(isNewSite() ? tr("New Site") : tr("Edit Site"));
    setMinimumWidth(560);

    m_tabs = new QTabWidget(this);
    m_problems.setTabs(m_tabs);
    m_tabs->addTab(scrolled(buildGeneralTab()), tr("Repository"));
    m_tabs->addTab(scrolled(buildServerTab()), tr("Server"));
    m_tabs->addTab(scrolled(buildFilesTab()), tr("Files"));
    connect(m_tabs, &QTabWidget::currentChanged, this, &SiteEditorDialog::fitToContent);

    auto* buttons = new QDialogButtonBox(QDialogButtonBox::Save | QDialogButtonBox::Cancel, this);
    connect(buttons, &QDialogButtonBox::accepted, this, &SiteEditorDialog::accept);
    connect(buttons, &QDialogButtonBox::rejected, this, &SiteEditorDialog::reject);

    auto* layout = new QVBoxLayout(this);
    layout->addWidget(m_tabs);
    layout->addWidget(buttons);

    // Names for screen readers; the labels of the form sit beside wrappers.
    const std::pair<QWidget*, QString> names[] = {{m_name, tr("Name")},
                                                  {m_localPath, tr("Repository")},
                                                  {m_syncRoot, tr("Deploy folder")},
                                                  {m_deployBranch, tr("Deploy branch")},
                                                  {m_protocol, tr("Protocol")},
                                                  {m_host, tr("Host")},
                                                  {m_port, tr("Port")},
                                                  {m_username, tr("User name")},
                                                  {m_password, tr("Password")},
                                                  {m_sshKey, tr("Private key")},
                                                  {m_passphrase, tr("Pass phrase")},
                                                  {m_remotePath, tr("Remote path")},
                                                  {m_mandatory, tr("Always upload")},
                                                  {m_ignored, tr("Never upload")}};
    for (const auto& [widget, name] : names)
        widget->setAccessibleName(name);
    m_port->setValidator(
        new QRegularExpressionValidator(QRegularExpression(QStringLiteral("[0-9]{0,5}")), m_port));

    m_loaded = SiteForm::fromSite(*m_site);
    setForm(m_loaded);
    m_original = form();
}

void SiteEditorDialog::reject() {
    if (hasChanges()) {
        AlertRequest alert;
        alert.style = AlertStyle::Warning;
        alert.message = tr("Discard the changes to this site?");
        alert.informativeText = tr("What you changed in the editor is lost.");
        // Cancel first: the default button keeps the editor open.
        alert.buttons = {tr("Cancel"), tr("Discard Changes")};
        if (m_interaction.runModal(alert) != 1)
            return;
    }
    QDialog::reject();
}

bool SiteEditorDialog::hasChanges() const {
    return !form().hasSameEdits(m_original);
}

SiteEditorDialog::~SiteEditorDialog() {
    setEditing(false);
}

QWidget* SiteEditorDialog::buildGeneralTab() {
    auto* page = new QWidget;
    auto* form = new QFormLayout(page);

    m_name = new QLineEdit(page);
    m_name->setPlaceholderText(tr("My website"));
    form->addRow(tr("Name:"), m_problems.wrap(SiteField::Name, m_name, GeneralTab));

    m_localPath = new QLineEdit(page);
    m_localPath->setReadOnly(true);
    m_localPath->setPlaceholderText(tr("The folder of the git repository"));
    auto* chooseFolder = new QPushButton(tr("Choose\u2026"), page);
    chooseFolder->setObjectName(QStringLiteral("chooseFolderButton"));
    connect(chooseFolder, &QPushButton::clicked, this, &SiteEditorDialog::chooseRepositoryFolder);
    auto* folderRow = new QWidget(page);
    auto* folderLayout = new QHBoxLayout(folderRow);
    folderLayout->setContentsMargins(0, 0, 0, 0);
    folderLayout->addWidget(m_localPath, 1);
    folderLayout->addWidget(chooseFolder);
    form->addRow(tr("Repository:"), m_problems.wrap(SiteField::LocalPath, folderRow, GeneralTab));
    m_problems.setFocusWidget(SiteField::LocalPath, m_localPath);

    m_syncRoot = new QLineEdit(page);
    m_syncRoot->setPlaceholderText(tr("The whole repository"));
    m_syncRoot->setToolTip(tr("The folder of the repository whose contents go to the remote path, "
                              "for example public/"));
    form->addRow(tr("Deploy folder:"), m_problems.wrap(SiteField::SyncRootPath, m_syncRoot, GeneralTab));

    m_deployBranch = new QComboBox(page);
    m_deployBranch->setEditable(true);
    m_deployBranch->setInsertPolicy(QComboBox::NoInsert);
    m_deployBranch->setToolTip(tr("Only this branch can be deployed to the site"));
    form->addRow(tr("Deploy branch:"), m_problems.wrap(SiteField::DeployBranch, m_deployBranch, GeneralTab));

    m_autoDeploy = new QCheckBox(tr("Deploy automatically when a new commit arrives on the branch"), page);
    form->addRow(QString(), m_autoDeploy);
    return page;
}

QWidget* SiteEditorDialog::buildServerTab() {
    auto* page = new QWidget;
    m_serverForm = new QFormLayout(page);

    m_protocol = new QComboBox(page);
    m_protocol->addItems(SiteForm::protocols());
    connect(m_protocol, &QComboBox::currentTextChanged, this, &SiteEditorDialog::protocolChanged);
    m_serverForm->addRow(tr("Protocol:"), m_problems.wrap(SiteField::Protocol, m_protocol, ServerTab));

    m_host = new QLineEdit(page);
    m_host->setPlaceholderText(tr("ftp.example.org"));
    m_serverForm->addRow(tr("Host:"), m_problems.wrap(SiteField::Host, m_host, ServerTab));

    m_port = new QLineEdit(page);
    m_port->setMaxLength(5);
    m_port->setMaximumWidth(m_port->fontMetrics().horizontalAdvance(QStringLiteral("000000")) + 20);
    m_serverForm->addRow(tr("Port:"), m_problems.wrap(SiteField::Port, m_port, ServerTab));

    m_username = new QLineEdit(page);
    m_serverForm->addRow(tr("User name:"), m_problems.wrap(SiteField::Username, m_username, ServerTab));

    m_password = new QLineEdit(page);
    m_password->setEchoMode(QLineEdit::Password);
    m_password->setToolTip(tr("Kept in the system's secret store"));
    m_serverForm->addRow(tr("Password:"), m_password);

    m_sshKey = new QLineEdit(page);
    m_sshKey->setPlaceholderText(tr("None: log in with the password"));
    auto* chooseKey = new QPushButton(tr("Choose\u2026"), page);
    chooseKey->setObjectName(QStringLiteral("chooseKeyButton"));
    connect(chooseKey, &QPushButton::clicked, this, &SiteEditorDialog::chooseKeyFile);
    m_sshKeyRow = new QWidget(page);
    auto* keyLayout = new QHBoxLayout(m_sshKeyRow);
    keyLayout->setContentsMargins(0, 0, 0, 0);
    keyLayout->addWidget(m_sshKey, 1);
    keyLayout->addWidget(chooseKey);
    m_serverForm->addRow(tr("Private key:"), m_problems.wrap(SiteField::SshKeyPath, m_sshKeyRow, ServerTab));
    m_problems.setFocusWidget(SiteField::SshKeyPath, m_sshKey);

    m_passphrase = new QLineEdit(page);
    m_passphrase->setEchoMode(QLineEdit::Password);
    m_passphrase->setToolTip(tr("The pass phrase of the private key; kept in the system's secret store"));
    m_serverForm->addRow(tr("Pass phrase:"), m_passphrase);

    m_passiveMode = new QCheckBox(tr("Passive mode"), page);
    m_serverForm->addRow(QString(), m_passiveMode);

    m_remotePath = new QLineEdit(page);
    m_remotePath->setPlaceholderText(tr("/var/www/"));
    m_remotePath->setToolTip(tr("The folder on the server the files go to"));
    m_serverForm->addRow(tr("Remote path:"), m_problems.wrap(SiteField::RemotePath, m_remotePath, ServerTab));

    m_testRow = new ConnectionTestRow(page);
    connect(m_testRow, &ConnectionTestRow::clicked, this, &SiteEditorDialog::testConnection);
    connect(m_testRow, &ConnectionTestRow::finished, this, &SiteEditorDialog::connectionTestFinished);
    m_serverForm->addRow(QString(), m_testRow);
    setConnectionTester(SiteConnectionTester::tester());
    return page;
}

QWidget* SiteEditorDialog::buildFilesTab() {
    auto* page = new QWidget;
    auto* layout = new QVBoxLayout(page);
    auto addList = [this, page, layout](SiteField field, const QString& title, const QString& help) {
        auto* editor = new PathListEditor(
            title, help,
            field == SiteField::MandatoryFiles ? QStringLiteral("mandatoryFiles")
                                               : QStringLiteral("ignoredFiles"),
            [this, field](QWidget* list) { return m_problems.wrap(field, list, FilesTab); }, page);
        connect(editor, &PathListEditor::chooseRequested, this,
                [this, field](bool folder) { chooseListEntry(field, folder); });
        layout->addWidget(editor);
        return editor;
    };
    m_mandatoryList =
        addList(SiteField::MandatoryFiles, tr("Always upload"),
                tr("Uploaded with every deployment, changed or not. A folder brings everything in it."));
    layout->addSpacing(8);
    m_ignoredList = addList(SiteField::IgnoredFiles, tr("Never upload"),
                            tr("Left out of every deployment. A folder leaves out everything in it."));
    m_mandatory = m_mandatoryList->list();
    m_ignored = m_ignoredList->list();
    return page;
}

SiteForm SiteEditorDialog::form() const {
    SiteForm form = m_loaded; // the scripts and connection strings stay as loaded
    form.name = m_name->text();
    form.localPath = m_localPath->text();
    form.syncRootPath = m_syncRoot->text();
    form.protocol = m_protocol->currentText();
    form.host = m_host->text();
    form.port = m_port->text().trimmed();
    form.username = m_username->text();
    form.password = m_password->text();
    form.sshKeyPath = m_sshKey->text();
    form.passphrase = m_passphrase->text();
    form.passiveMode = m_passiveMode->isChecked();
    form.remotePath = m_remotePath->text();
    form.deployBranch = m_deployBranch->currentText().trimmed();
    form.autoDeploy = m_autoDeploy->isChecked();
    form.mandatoryFiles = listEntries(SiteField::MandatoryFiles);
    form.ignoredFiles = listEntries(SiteField::IgnoredFiles);
    return form;
}

void SiteEditorDialog::setForm(const SiteForm& form) {
    m_loaded = form;
    m_name->setText(form.name);
    m_localPath->setText(form.localPath);
    m_syncRoot->setText(form.syncRootPath);
    const qsizetype protocolIndex = SiteForm::protocols().indexOf(form.protocol);
    // A stored text the editor does not offer counts as plain FTP.
    m_protocol->setCurrentIndex(protocolIndex >= 0 ? static_cast<int>(protocolIndex) : 0);
    m_host->setText(form.host);
    m_port->setText(form.port);
    m_username->setText(form.username);
    m_password->setText(form.password);
    m_sshKey->setText(form.sshKeyPath);
    m_passphrase->setText(form.passphrase);
    m_passiveMode->setChecked(form.passiveMode);
    m_remotePath->setText(form.remotePath);
    m_autoDeploy->setChecked(form.autoDeploy);
    m_mandatoryList->setEntries(form.mandatoryFiles);
    m_ignoredList->setEntries(form.ignoredFiles);
    reloadBranches();
    m_deployBranch->setCurrentText(form.deployBranch);
    protocolChanged();
    m_problems.clearAll();
}

PathListEditor* SiteEditorDialog::listFor(SiteField list) const {
    return list == SiteField::MandatoryFiles ? m_mandatoryList : m_ignoredList;
}

QStringList SiteEditorDialog::listEntries(SiteField list) const {
    return listFor(list)->entries();
}

QString SiteEditorDialog::problemText(SiteField field) const {
    return m_problems.text(field);
}

bool SiteEditorDialog::isTabMarked(int tab) const {
    return m_problems.isTabMarked(tab);
}

QList<FieldProblem> SiteEditorDialog::validate() {
    const QList<FieldProblem> problems = form().validate();
    m_problems.showAll(problems);
    fitToContent();
    return problems;
}

// As tall as the page in front needs (its problem lines and the rows of the
// protocol included), up to the screen's height; beyond that it scrolls.
void SiteEditorDialog::fitToContent() {
    auto* area = qobject_cast<QScrollArea*>(m_tabs->currentWidget());
    if (!isVisible() || !area || !area->widget() || !screen())
        return;
    QWidget* page = area->widget();
    const int width = area->viewport()->width();
    const int needed = page->hasHeightForWidth() ? page->heightForWidth(width) : page->sizeHint().height();
    const int missing = std::max(needed, page->minimumSizeHint().height()) - area->viewport()->height();
    const int wanted = std::max(sizeHint().height(), height() + std::max(missing, 0));
    if (wanted <= height())
        return;
    const int frame = frameGeometry().height() - height();
    const int room = screen()->availableGeometry().height() - frame;
    resize(this->width(), std::min(wanted, room));
}

bool SiteEditorDialog::save() {
    if (!validate().isEmpty())
        return false;
    const SiteForm filled = form();
    // The secrets first: a password the store did not take is not saved as
    // if it were, and the editor keeps everything typed.
    if (const std::optional<SiteForm::Secret> notStored = filled.storeSecrets(m_site->siteId(), m_original)) {
        AlertRequest alert;
        alert.style = AlertStyle::Warning;
        alert.message = *notStored == SiteForm::Secret::Password ? tr("The password was not stored")
                                                                 : tr("The pass phrase was not stored");
        alert.informativeText =
            tr("The secret store (the desktop's keyring) did not answer or is locked. The "
               "site was not saved; unlock the keyring, or start it, and save again.");
        m_interaction.runModal(alert);
        return false;
    }
    filled.applyRecordTo(*m_site);

    // The site is found by its id: the list may have been reordered while
    // the editor was open.
    const SiteList stored = Sites().loadAll().value_or(SiteList());
    const QString id = m_site->siteId();
    qsizetype index = -1;
    for (qsizetype i = 0; i < stored.size(); ++i) {
        if (stored.at(i) && stored.at(i)->siteId() == id) {
            index = i;
            break;
        }
    }
    if (index < 0) {
        index = SiteListActions::add(m_site);
        SiteListActions::setCurrentIndex(index);
    } else {
        m_site->siteIndex = index;
        SiteListActions::replace(index, m_site);
    }
    m_loaded = filled;
    m_original = form();
    setWindowTitle(tr("Edit Site"));
    emit siteSaved(index);
    return true;
}

void SiteEditorDialog::accept() {
    if (save())
        QDialog::accept();
}

bool SiteEditorDialog::setRepositoryFolder(const QString& path) {
    SiteForm probe;
    probe.localPath = withoutFileScheme(path);
    m_problems.clear(SiteField::LocalPath);
    QString subFolder;
    for (const FieldProblem& problem : probe.validate()) {
        if (problem.field != SiteField::LocalPath)
            continue;
        const std::optional<QString> top = SiteForm::repositoryRootOf(probe.localPath);
        if (!top || !useRepositoryOf(probe.localPath, *top)) {
            m_problems.show(SiteField::LocalPath, problem.message);
            return false;
        }
        subFolder = QDir(*top).relativeFilePath(QFileInfo(probe.localPath).canonicalFilePath());
        probe.localPath = *top;
        break;
    }
    m_localPath->setText(QDir::cleanPath(probe.localPath));
    if (!subFolder.isEmpty())
        m_syncRoot->setText(subFolder + QLatin1Char('/'));
    reloadBranches();
    if (m_name->text().trimmed().isEmpty())
        m_name->setText(QFileInfo(m_localPath->text()).fileName());
    return true;
}

// A folder inside a repository: asks whether the repository is meant, with
// the folder as the part that is deployed.
bool SiteEditorDialog::useRepositoryOf(const QString& folder, const QString& top) {
    AlertRequest alert;
    alert.style = AlertStyle::Informational;
    alert.message = tr("Use the repository that holds this folder?");
    alert.informativeText =
        tr("\u2018%1\u2019 is a folder inside the git repository \u2018%2\u2019. The site can "
           "use that repository and deploy only this folder.")
            .arg(QDir::cleanPath(folder), top);
    alert.buttons = {tr("Use the Repository"), tr("Cancel")};
    return m_interaction.runModal(alert) == 0;
}

void SiteEditorDialog::chooseRepositoryFolder() {
    const OpenPanelRequest panel = SiteEditorPanels::repositoryFolder(m_localPath->text());
    if (const std::optional<QString> chosen = m_interaction.runOpenPanel(panel))
        setRepositoryFolder(*chosen);
}

void SiteEditorDialog::chooseKeyFile() {
    const OpenPanelRequest panel = SiteEditorPanels::privateKey();
    if (const std::optional<QString> chosen = m_interaction.runOpenPanel(panel)) {
        m_sshKey->setText(withoutFileScheme(*chosen));
        m_problems.clear(SiteField::SshKeyPath);
    }
}

bool SiteEditorDialog::addListEntry(SiteField list, const QString& absolutePath) {
    m_problems.clear(list);
    const QString repository = m_localPath->text();
    if (repository.isEmpty()) {
        m_problems.show(list, tr("Choose the repository folder first."));
        return false;
    }
    const QString relative = QDir(repository).relativeFilePath(withoutFileScheme(absolutePath));
    SiteForm probe;
    (list == SiteField::MandatoryFiles ? probe.mandatoryFiles : probe.ignoredFiles).append(relative);
    for (const FieldProblem& problem : probe.validate()) {
        if (problem.field == list) {
            m_problems.show(list, problem.message);
            return false;
        }
    }
    listFor(list)->addEntry(relative);
    return true;
}

void SiteEditorDialog::chooseListEntry(SiteField list, bool folder) {
    const OpenPanelRequest panel = SiteEditorPanels::repositoryEntry(folder, m_localPath->text());
    if (panel.directory.isEmpty()) {
        m_problems.show(list, tr("Choose the repository folder first."));
        return;
    }
    if (const std::optional<QString> chosen = m_interaction.runOpenPanel(panel))
        addListEntry(list, *chosen);
}

void SiteEditorDialog::removeSelectedListEntries(SiteField list) {
    listFor(list)->removeSelected();
}

void SiteEditorDialog::reloadBranches() {
    const QString typed = m_deployBranch->currentText();
    m_deployBranch->clear();
    const QString folder = m_localPath->text();
    if (!folder.isEmpty() && QFileInfo(folder).isDir()) {
        auto probe = Site::newSite();
        probe->localPath = folder;
        if (const std::optional<BranchSummary> summary = SiteManager(probe).getBranches()) {
            m_deployBranch->addItems(summary->branches);
            if (typed.isEmpty() && !summary->current.isEmpty()) {
                m_deployBranch->setCurrentText(summary->current);
                return;
            }
        }
    }
    m_deployBranch->setCurrentText(typed);
}

void SiteEditorDialog::protocolChanged() {
    const QString protocol = m_protocol->currentText();
    const bool sftp = protocol == u"SFTP";
    m_serverForm->setRowVisible(m_problems.rowOf(SiteField::SshKeyPath), sftp);
    m_serverForm->setRowVisible(m_passphrase, sftp);
    m_serverForm->setRowVisible(m_passiveMode, protocol == u"FTP");
    m_port->setPlaceholderText(SiteForm::defaultPort(protocol));
    // A result found with another protocol says nothing about this one.
    m_testRow->clearResult();
    fitToContent();
}

bool SiteEditorDialog::isFieldOffered(SiteField field) const {
    if (field == SiteField::SshKeyPath)
        return m_protocol->currentText() == u"SFTP";
    return true;
}

bool SiteEditorDialog::isPassiveModeOffered() const {
    return m_protocol->currentText() == u"FTP";
}

bool SiteEditorDialog::isPassphraseOffered() const {
    return m_protocol->currentText() == u"SFTP";
}

QString SiteEditorDialog::portPlaceholder() const {
    return m_port->placeholderText();
}

void SiteEditorDialog::setConnectionTester(ConnectionTester tester) {
    m_testRow->setTester(std::move(tester));
}

void SiteEditorDialog::testConnection() {
    if (!m_testRow->hasTester() || m_testRow->isTesting())
        return;
    const QList<FieldProblem> problems = form().serverProblems();
    m_problems.showAll(problems);
    if (!problems.isEmpty()) {
        m_testRow->showRefusal(tr("Correct the server settings first."));
        return;
    }

    const SiteForm filled = form();
    const SitePtr probe = ConnectionTestRow::probeFor(*m_site, filled);
    m_testRow->run(probe, filled.password, filled.passphrase);
}

QString SiteEditorDialog::connectionTestResult() const {
    return m_testRow->resultText();
}

void SiteEditorDialog::siteManagerDidFailWithError(const Error& error) {
    m_problems.show(SiteField::LocalPath, error.localizedDescription);
}

void SiteEditorDialog::fileBookmarkIsStale() {
    AlertRequest alert;
    alert.style = AlertStyle::Warning;
    alert.message = QStringLiteral("An error occured!");
    alert.informativeText = QStringLiteral("Could not recover filebookmark for sandbox. Please select your "
                                           "base path for your repository again.");
    alert.buttons = {QStringLiteral("Abort")};
    m_interaction.runModal(alert);
}

void SiteEditorDialog::checkBookmark() {
    if (m_bookmarkChecked)
        return;
    m_bookmarkChecked = true;
    if (!m_site->bookmarkData || !m_site->localPath || m_site->localPath->isEmpty())
        return;
    const std::optional<SecurityBookmarkManager::Resolved> resolved =
        SecurityBookmarkManager::resolve(*m_site->bookmarkData);
    if (resolved && resolved->isStale)
        fileBookmarkIsStale();
}

void SiteEditorDialog::setEditing(bool editing) {
    Preferences& preferences = Preferences::instance();
    if (preferences.boolValue(QStringLiteral("editing")) == editing)
        return;
    preferences.setBool(QStringLiteral("editing"), editing);
    preferences.synchronize();
}

void SiteEditorDialog::showEvent(QShowEvent* event) {
    QDialog::showEvent(event);
    setEditing(true);
    QTimer::singleShot(0, this, &SiteEditorDialog::fitToContent);
    if (!m_bookmarkChecked)
        QTimer::singleShot(0, this, &SiteEditorDialog::checkBookmark);
}

void SiteEditorDialog::hideEvent(QHideEvent* event) {
    QDialog::hideEvent(event);
    setEditing(false);
}

} // namespace tw
