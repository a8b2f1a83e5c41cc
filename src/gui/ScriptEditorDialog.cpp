#include "ScriptEditorDialog.h"

#include "ThemeColors.h"
#include "deploy/ScriptRunner.h"
#include "model/SiteListActions.h"
#include "model/Sites.h"

#include <QDialogButtonBox>
#include <QFontDatabase>
#include <QFormLayout>
#include <QHBoxLayout>
#include <QLabel>
#include <QLineEdit>
#include <QMessageBox>
#include <QPlainTextEdit>
#include <QPushButton>
#include <QSplitter>
#include <QTabWidget>
#include <QTime>
#include <QVBoxLayout>

namespace tw {

namespace {

QFont monospaced() {
    return QFontDatabase::systemFont(QFontDatabase::FixedFont);
}

QPlainTextEdit* scriptEditor(QWidget* parent) {
    auto* editor = new QPlainTextEdit(parent);
    editor->setFont(monospaced());
    editor->setLineWrapMode(QPlainTextEdit::NoWrap);
    editor->setTabStopDistance(QFontMetricsF(monospaced()).horizontalAdvance(QLatin1Char(' ')) * 4);
    editor->setPlaceholderText(ScriptEditorDialog::tr("No script: this stage does nothing."));
    return editor;
}

} // namespace

ScriptEditorDialog::ScriptEditorDialog(SitePtr site, QWidget* parent)
    : QDialog(parent)
    , m_site(site ? std::move(site) : Site::newSite()) {
    const QString name = m_site->name.value_or(QString());
    setWindowTitle(name.isEmpty() ? tr("Scripts") : tr("Scripts of %1").arg(name));
    resize(760, 620);

    m_tabs = new QTabWidget(this);
    const QString titles[ScriptCount] = {tr("Before (local)"), tr("After (local)"), tr("Before (server)"),
                                         tr("After (server)")};
    const QString notes[ScriptCount] = {
        tr("Runs with bash on this computer in the repository folder, before any file is sent."),
        tr("Runs with bash on this computer in the repository folder, after every file was sent."),
        tr("Runs on the server over SSH before any file is sent (SFTP sites only). Its lines run as one "
           "command line."),
        tr("Runs on the server over SSH after every file was sent (SFTP sites only). Its lines run as one "
           "command line.")};
    const std::optional<QString> texts[ScriptCount] = {
        m_site->preDeployScriptLocal, m_site->postDeployScriptLocal, m_site->preDeployScriptRemote,
        m_site->postDeployScriptRemote};
    for (int i = 0; i < ScriptCount; ++i) {
        const auto script = static_cast<Script>(i);
        auto* page = new QWidget(m_tabs);
        auto* layout = new QVBoxLayout(page);
        auto* note = new QLabel(notes[i], page);
        note->setWordWrap(true);
        layout->addWidget(note);
        if (isRemote(script)) {
            auto* row = new QFormLayout;
            auto* connection = new QLineEdit(page);
            connection->setFont(monospaced());
            connection->setPlaceholderText(QStringLiteral("-p 22 user@example.org"));
            connection->setToolTip(tr("The arguments of ssh, separated by single blanks"));
            connection->setText(script == PreDeployRemote
                                    ? m_site->remotePreConnectionString.value_or(QString())
                                    : m_site->remotePostConnectionString.value_or(QString()));
            row->addRow(tr("SSH connection:"), connection);
            layout->addLayout(row);
            m_connections[i] = connection;
        }
        m_editors[i] = scriptEditor(page);
        m_editors[i]->setPlainText(texts[i].value_or(QString()));
        m_editors[i]->setAccessibleName(titles[i]);
        if (m_connections[i])
            m_connections[i]->setAccessibleName(tr("SSH connection, %1").arg(titles[i]));
        m_editors[i]->document()->setModified(false);
        layout->addWidget(m_editors[i], 1);
        m_tabs->addTab(page, titles[i]);
    }

    auto* consoleBox = new QWidget(this);
    auto* consoleLayout = new QVBoxLayout(consoleBox);
    consoleLayout->setContentsMargins(0, 0, 0, 0);
    auto* consoleBar = new QHBoxLayout;
    auto* consoleTitle = new QLabel(tr("Console"), consoleBox);
    QFont bold = consoleTitle->font();
    bold.setBold(true);
    consoleTitle->setFont(bold);
    m_runButton = new QPushButton(tr("Run Now"), consoleBox);
    m_runButton->setObjectName(QStringLiteral("runScriptButton"));
    m_runButton->setToolTip(tr("Runs the script shown above as it stands, without saving it"));
    m_runButton->setAutoDefault(false);
    auto* clear = new QPushButton(tr("Clear"), consoleBox);
    clear->setAutoDefault(false);
    consoleBar->addWidget(consoleTitle);
    consoleBar->addStretch();
    consoleBar->addWidget(clear);
    consoleBar->addWidget(m_runButton);
    m_console = new QPlainTextEdit(consoleBox);
    m_console->setObjectName(QStringLiteral("console"));
    m_console->setAccessibleName(tr("Console"));
    m_console->setReadOnly(true);
    m_console->setFont(monospaced());
    m_console->setMaximumBlockCount(20000);
    m_status = new QLabel(consoleBox);
    m_status->setObjectName(QStringLiteral("scriptStatus"));
    m_status->setWordWrap(true);
    m_status->setTextFormat(Qt::PlainText);
    consoleLayout->addLayout(consoleBar);
    consoleLayout->addWidget(m_console, 1);
    consoleLayout->addWidget(m_status);
    connect(m_runButton, &QPushButton::clicked, this, &ScriptEditorDialog::runCurrentScript);
    connect(clear, &QPushButton::clicked, m_console, &QPlainTextEdit::clear);

    auto* splitter = new QSplitter(Qt::Vertical, this);
    splitter->addWidget(m_tabs);
    splitter->addWidget(consoleBox);
    splitter->setStretchFactor(0, 3);
    splitter->setStretchFactor(1, 2);

    auto* buttons = new QDialogButtonBox(QDialogButtonBox::Save | QDialogButtonBox::Cancel, this);
    connect(buttons, &QDialogButtonBox::accepted, this, &ScriptEditorDialog::accept);
    connect(buttons, &QDialogButtonBox::rejected, this, &ScriptEditorDialog::reject);

    auto* layout = new QVBoxLayout(this);
    layout->addWidget(splitter, 1);
    layout->addWidget(buttons);
}

ScriptEditorDialog::~ScriptEditorDialog() = default;

ScriptEditorDialog::Script ScriptEditorDialog::currentScript() const {
    return static_cast<Script>(m_tabs->currentIndex());
}

void ScriptEditorDialog::setCurrentScript(Script script) {
    m_tabs->setCurrentIndex(script);
}

bool ScriptEditorDialog::isRunning() const {
    return m_runner && m_runner->isRunning();
}

void ScriptEditorDialog::runCurrentScript() {
    if (isRunning())
        return;
    const Script script = currentScript();
    const QString text = m_editors[script]->toPlainText();
    m_runner = std::make_unique<ScriptRunner>();
    m_runner->setBasePath(m_site->localPath.value_or(QString()));
    m_runButton->setEnabled(false);
    m_status->setStyleSheet(QString());
    m_status->setText(tr("Running\u2026"));
    m_console->appendPlainText(
        tr("\u2014 %1, %2 \u2014").arg(m_tabs->tabText(script), QTime::currentTime().toString()));

    std::optional<Error> startError;
    auto completion = [this](const QString& result, const std::optional<Error>& error) {
        // Called later on the event loop, or at once when there is nothing to run.
        QMetaObject::invokeMethod(
            this, [this, result, error] { runFinishedWith(result, error); }, Qt::QueuedConnection);
    };
    const bool started =
        isRemote(script) ? m_runner->runExternal(m_connections[script]->text(), text, &startError, completion)
                         : m_runner->run(text, &startError, completion);
    if (!started)
        runFinishedWith(QString(), startError ? startError
                                              : std::optional<Error>(Error::application(
                                                    0, tr("The script could not be started."))));
}

void ScriptEditorDialog::runFinishedWith(const QString& result, const std::optional<Error>& error) {
    if (!result.isEmpty())
        m_console->appendPlainText(result.endsWith(QLatin1Char('\n')) ? result.chopped(1) : result);
    if (error) {
        m_status->setStyleSheet(ThemeColors::styleSheetColor(ThemeColors::errorText(palette())));
        m_status->setText(error->localizedDescription);
    } else {
        m_status->setStyleSheet(ThemeColors::styleSheetColor(ThemeColors::successText(palette())));
        m_status->setText(tr("Finished with exit status 0."));
    }
    m_runButton->setEnabled(true);
    emit runFinished(error.has_value());
}

bool ScriptEditorDialog::save() {
    m_site->preDeployScriptLocal = m_editors[PreDeployLocal]->toPlainText();
    m_site->postDeployScriptLocal = m_editors[PostDeployLocal]->toPlainText();
    m_site->preDeployScriptRemote = m_editors[PreDeployRemote]->toPlainText();
    m_site->postDeployScriptRemote = m_editors[PostDeployRemote]->toPlainText();
    m_site->remotePreConnectionString = m_connections[PreDeployRemote]->text();
    m_site->remotePostConnectionString = m_connections[PostDeployRemote]->text();

    const SiteList stored = Sites().loadAll().value_or(SiteList());
    const QString id = m_site->siteId();
    for (qsizetype i = 0; i < stored.size(); ++i) {
        if (stored.at(i) && stored.at(i)->siteId() == id) {
            SiteListActions::replace(i, m_site);
            emit saved(i);
            return true;
        }
    }
    return false;
}

bool ScriptEditorDialog::hasChanges() const {
    const QString connections[ScriptCount] = {QString(), QString(),
                                              m_site->remotePreConnectionString.value_or(QString()),
                                              m_site->remotePostConnectionString.value_or(QString())};
    for (int i = 0; i < ScriptCount; ++i) {
        if (m_editors[i]->document()->isModified())
            return true;
        if (m_connections[i] && m_connections[i]->text() != connections[i])
            return true;
    }
    return false;
}

void ScriptEditorDialog::reject() {
    if (hasChanges()) {
        QMessageBox box(QMessageBox::Warning, windowTitle(), tr("Discard the changes to the scripts?"),
                        QMessageBox::Cancel | QMessageBox::Discard, this);
        box.setInformativeText(tr("What you changed in the editor is lost."));
        box.setDefaultButton(QMessageBox::Cancel);
        box.setEscapeButton(QMessageBox::Cancel);
        if (box.exec() != QMessageBox::Discard)
            return;
    }
    QDialog::reject();
}

void ScriptEditorDialog::accept() {
    if (!save()) {
        m_status->setStyleSheet(ThemeColors::styleSheetColor(ThemeColors::errorText(palette())));
        m_status->setText(tr("The site is no longer in the site list; the scripts were not saved."));
        return;
    }
    QDialog::accept();
}

} // namespace tw
