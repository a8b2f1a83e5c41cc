#pragma once

#include "model/Site.h"

#include <QDialog>

#include <memory>

class QLabel;
class QLineEdit;
class QPlainTextEdit;
class QPushButton;
class QTabWidget;

namespace tw {

class ScriptRunner;

// The scripts of a site: the local and remote scripts run before and after
// a deployment and the ssh connection strings of the remote ones, each in a
// monospaced editor, and a console that runs the script shown now and prints
// what it wrote and how it ended. Saving stores the texts in the site list.
class ScriptEditorDialog : public QDialog {
    Q_OBJECT

public:
    enum Script { PreDeployLocal, PostDeployLocal, PreDeployRemote, PostDeployRemote, ScriptCount };

    explicit ScriptEditorDialog(SitePtr site, QWidget* parent = nullptr);
    ~ScriptEditorDialog() override;

    SitePtr site() const { return m_site; }

    QPlainTextEdit* editor(Script script) const { return m_editors[script]; }
    // The ssh connection string of a remote script (null for local ones).
    QLineEdit* connectionField(Script script) const { return m_connections[script]; }
    QPlainTextEdit* console() const { return m_console; }
    QLabel* statusLabel() const { return m_status; }
    QPushButton* runButton() const { return m_runButton; }

    Script currentScript() const;
    void setCurrentScript(Script script);
    static bool isRemote(Script script) { return script == PreDeployRemote || script == PostDeployRemote; }

    // Runs the script shown now through the script runner.
    void runCurrentScript();
    bool isRunning() const;
    // Writes the texts into the site and stores it; false when the site is
    // no longer in the list.
    bool save();

    // Saves first; stays open when saving fails.
    void accept() override;

signals:
    // The console's run ended; failed when the script did not end well.
    void runFinished(bool failed);
    void saved(qsizetype index);

protected:
public:
    // Escape and Cancel: asks first when a script or connection was changed.
    void reject() override;
    bool hasChanges() const;

private:
    void runFinishedWith(const QString& result, const std::optional<Error>& error);

    SitePtr m_site;
    QTabWidget* m_tabs = nullptr;
    QPlainTextEdit* m_editors[ScriptCount] = {};
    QLineEdit* m_connections[ScriptCount] = {};
    QPlainTextEdit* m_console = nullptr;
    QLabel* m_status = nullptr;
    QPushButton* m_runButton = nullptr;
    std::unique_ptr<ScriptRunner> m_runner;
};

} // namespace tw
