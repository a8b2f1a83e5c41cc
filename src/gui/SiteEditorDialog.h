#pragma once

#include "ConnectionTestRow.h"
#include "FieldProblems.h"
#include "editor/SiteForm.h"
#include "git/SiteManagerDelegate.h"
#include "model/Site.h"

#include <QDialog>
#include <QHash>

#include <functional>
#include <optional>

class QCheckBox;
class QComboBox;
class QLabel;
class QLineEdit;
class QListWidget;
class QPushButton;
class QTabWidget;
class QFormLayout;

namespace tw {

class UserInteraction;
class PathListEditor;

// The site editor: every field of a site in one dialog, checked with the
// editor's rules (SiteForm), each problem shown next to its field. Saving
// writes the form into the site (secrets into the secret store), marks it
// valid and stores it: a new site (siteIndex -1) is appended to the site
// list, an existing one replaced where it stands. The preference "editing"
// is on while the dialog is shown.
class SiteEditorDialog : public QDialog, public SiteManagerDelegate {
    Q_OBJECT

public:
    // Runs the connection test for a site and calls done once, on the main
    // thread, with the error text or nothing.
    using ConnectionTester = ConnectionTestRow::Tester;

    // The interaction answers the folder and file pickers and shows alerts;
    // it must outlive the dialog.
    SiteEditorDialog(SitePtr site, UserInteraction& interaction, QWidget* parent = nullptr);
    ~SiteEditorDialog() override;

    SitePtr site() const { return m_site; }
    bool isNewSite() const { return m_site->siteIndex < 0; }

    // The form as filled in now, and filling it in.
    SiteForm form() const;
    void setForm(const SiteForm& form);

    // Checks the form and shows each problem next to its field (the first
    // one's tab comes to the front); answers the problems.
    QList<FieldProblem> validate();
    // Checks, writes and stores the site; false (and the problems shown)
    // when the form does not pass.
    bool save();
    // The text shown next to a field; empty when it has none.
    QString problemText(SiteField field) const;

    // The repository folder: refused, with the reason next to the field,
    // when it is not a git repository. A folder inside one offers the
    // repository, with the folder as the sync root. Answers whether a
    // folder was taken.
    bool setRepositoryFolder(const QString& path);
    void chooseRepositoryFolder();
    void chooseKeyFile();
    // Adds a file or folder of the repository to the always-uploaded or the
    // ignored list, as a path relative to the repository.
    bool addListEntry(SiteField list, const QString& absolutePath);
    void chooseListEntry(SiteField list, bool folder);
    void removeSelectedListEntries(SiteField list);
    QStringList listEntries(SiteField list) const;
    // The branches of the chosen repository.
    void reloadBranches();

    // Whether a protocol-dependent field is offered now.
    bool isFieldOffered(SiteField field) const;
    bool isPassiveModeOffered() const;
    bool isPassphraseOffered() const;
    // What the port field shows when it is empty.
    QString portPlaceholder() const;

    // The real test (SiteConnectionTester) unless replaced; none disables
    // the button.
    void setConnectionTester(ConnectionTester tester);
    void testConnection();
    QString connectionTestResult() const;

    // SiteManagerDelegate
    void siteManagerDidFailWithError(const Error& error) override;
    void fileBookmarkIsStale() override;

    QLineEdit* nameField() const { return m_name; }
    QLineEdit* localPathField() const { return m_localPath; }
    QLineEdit* syncRootField() const { return m_syncRoot; }
    QComboBox* protocolField() const { return m_protocol; }
    QLineEdit* hostField() const { return m_host; }
    QLineEdit* portField() const { return m_port; }
    QLineEdit* usernameField() const { return m_username; }
    QLineEdit* passwordField() const { return m_password; }
    QLineEdit* sshKeyField() const { return m_sshKey; }
    QLineEdit* passphraseField() const { return m_passphrase; }
    QCheckBox* passiveModeField() const { return m_passiveMode; }
    QLineEdit* remotePathField() const { return m_remotePath; }
    QComboBox* deployBranchField() const { return m_deployBranch; }
    QCheckBox* autoDeployField() const { return m_autoDeploy; }
    QPushButton* testConnectionButton() const { return m_testRow->button(); }
    QTabWidget* tabs() const { return m_tabs; }

    // Saves first; stays open when saving fails.
    void accept() override;
    // Escape and Cancel: asks first when something was changed.
    void reject() override;
    bool hasChanges() const;
    // Whether a tab carries the mark of a problem on it.
    bool isTabMarked(int tab) const;

signals:
    // The site was stored at this index of the site list.
    void siteSaved(qsizetype index);
    void connectionTestFinished(bool succeeded, const QString& message);

protected:
    void showEvent(QShowEvent* event) override;
    void hideEvent(QHideEvent* event) override;

private:
    QWidget* buildGeneralTab();
    QWidget* buildServerTab();
    QWidget* buildFilesTab();
    bool useRepositoryOf(const QString& folder, const QString& top);
    void fitToContent();
    void protocolChanged();
    void checkBookmark();
    void setEditing(bool editing);
    PathListEditor* listFor(SiteField list) const;

    SitePtr m_site;
    UserInteraction& m_interaction;
    ConnectionTester m_tester;
    FieldProblems m_problems;
    bool m_bookmarkChecked = false;

    QTabWidget* m_tabs = nullptr;
    QFormLayout* m_serverForm = nullptr;
    QLineEdit* m_name = nullptr;
    QLineEdit* m_localPath = nullptr;
    QLineEdit* m_syncRoot = nullptr;
    QComboBox* m_deployBranch = nullptr;
    QCheckBox* m_autoDeploy = nullptr;
    QComboBox* m_protocol = nullptr;
    QLineEdit* m_host = nullptr;
    QLineEdit* m_port = nullptr;
    QLineEdit* m_username = nullptr;
    QLineEdit* m_password = nullptr;
    QLineEdit* m_sshKey = nullptr;
    QWidget* m_sshKeyRow = nullptr;
    QLineEdit* m_passphrase = nullptr;
    QCheckBox* m_passiveMode = nullptr;
    QLineEdit* m_remotePath = nullptr;
    ConnectionTestRow* m_testRow = nullptr;
    QListWidget* m_mandatory = nullptr;
    QListWidget* m_ignored = nullptr;
    PathListEditor* m_mandatoryList = nullptr;
    PathListEditor* m_ignoredList = nullptr;
    // Texts of the form that this dialog does not edit (the scripts).
    SiteForm m_loaded;
    // The form as shown at the start or the last save.
    SiteForm m_original;
};

} // namespace tw
