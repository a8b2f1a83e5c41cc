#include "GitRepository.h"
#include "ScriptedInteraction.h"
#include "SiteEditorDialog.h"
#include "TestEnvironment.h"
#include "app/Preferences.h"
#include "keychain/TWPasswords.h"
#include "model/SecurityBookmarkManager.h"
#include "model/SiteListActions.h"
#include "model/Sites.h"

#include <QCheckBox>
#include <QComboBox>
#include <QDir>
#include <QLabel>
#include <QLineEdit>
#include <QListWidget>
#include <QPushButton>
#include <QSignalSpy>
#include <QTabWidget>
#include <QTemporaryDir>
#include <QTest>

using namespace tw;
using namespace Qt::StringLiterals;

// The site editor: the form's rules shown next to the fields, the fields
// that depend on the protocol, the pickers, saving and the connection test.
class TestSiteEditor : public QObject {
    Q_OBJECT

    test::GitRepository m_repo;

    void fillValid(SiteEditorDialog& editor) {
        editor.nameField()->setText(u"Blog"_s);
        QVERIFY(editor.setRepositoryFolder(m_repo.path()));
        editor.hostField()->setText(u"ftp.example.org"_s);
        editor.usernameField()->setText(u"bob"_s);
        editor.passwordField()->setText(u"pw"_s);
        editor.remotePathField()->setText(u"/www"_s);
        editor.deployBranchField()->setCurrentText(u"main"_s);
    }

    static bool offered(QWidget* field) {
        // Hidden rows hide the field itself.
        return field->isVisibleTo(field->window());
    }

private slots:
    void initTestCase() {
        test::TestEnvironment::isolate();
        m_repo.write(u"public/index.html"_s, "x");
        m_repo.write(u"public/css/site.css"_s, "y");
        m_repo.commitAll(u"one"_s);
        m_repo.git({u"branch"_s, u"live"_s});
    }
    void init() { test::TestEnvironment::resetPreferences(); }

    void problemsShowNextToTheirFields() {
        test::ScriptedInteraction interaction;
        SiteEditorDialog editor(nullptr, interaction);
        editor.show();
        QVERIFY(editor.isNewSite());
        QVERIFY(!editor.save());
        QCOMPARE(editor.problemText(SiteField::Name), u"Enter a name for the site."_s);
        QCOMPARE(editor.problemText(SiteField::Host), u"Enter the server's host name or address."_s);
        QCOMPARE(editor.problemText(SiteField::Username),
                 u"You must provide a username in the remote settings"_s);
        QVERIFY(!editor.problemText(SiteField::LocalPath).isEmpty());
        QVERIFY(editor.problemText(SiteField::Port).isEmpty());
        // The first problem's tab is in front, its field focused.
        QCOMPARE(editor.tabs()->currentIndex(), 0);
        QVERIFY(Sites().loadAll().value_or(SiteList()).isEmpty());

        fillValid(editor);
        editor.portField()->setText(u"70000"_s);
        editor.hostField()->setText(u"ftp://example.org"_s);
        const QList<FieldProblem> problems = editor.validate();
        QCOMPARE(problems.size(), 2);
        QCOMPARE(editor.problemText(SiteField::Port), u"The port must be a number from 1 to 65535."_s);
        QVERIFY(editor.problemText(SiteField::Host).startsWith(u"Enter only the host name"_s));
        QVERIFY(editor.problemText(SiteField::Name).isEmpty());
        QCOMPARE(editor.tabs()->currentIndex(), 1);
        auto* label = editor.findChild<QLabel*>(u"problem-port"_s);
        QVERIFY(label && label->isVisible());

        editor.portField()->clear();
        editor.hostField()->setText(u"ftp.example.org"_s);
        QVERIFY(editor.validate().isEmpty());
        QVERIFY(!label->isVisible());
    }

    void protocolDecidesTheFields_data() {
        QTest::addColumn<QString>("protocol");
        QTest::addColumn<bool>("key");
        QTest::addColumn<bool>("passive");
        QTest::addColumn<QString>("port");
        QTest::newRow("FTP") << u"FTP"_s << false << true << u"21"_s;
        QTest::newRow("implicit") << u"FTP with implicit SSL"_s << false << false << u"990"_s;
        QTest::newRow("TLS") << u"FTP with TLS/SSL"_s << false << false << u"21"_s;
        QTest::newRow("SFTP") << u"SFTP"_s << true << false << u"22"_s;
    }
    void protocolDecidesTheFields() {
        QFETCH(QString, protocol);
        QFETCH(bool, key);
        QFETCH(bool, passive);
        QFETCH(QString, port);
        test::ScriptedInteraction interaction;
        SiteEditorDialog editor(nullptr, interaction);
        editor.show();
        editor.tabs()->setCurrentIndex(1);
        QCOMPARE(editor.protocolField()->count(), 4);
        editor.protocolField()->setCurrentText(protocol);
        QCOMPARE(offered(editor.sshKeyField()), key);
        QCOMPARE(offered(editor.passphraseField()), key);
        QCOMPARE(offered(editor.passiveModeField()), passive);
        QCOMPARE(editor.isPassiveModeOffered(), passive);
        QCOMPARE(editor.portPlaceholder(), port);
        QCOMPARE(editor.portField()->placeholderText(), port);
    }

    void repositoryFolderMustBeARepository() {
        test::ScriptedInteraction interaction;
        SiteEditorDialog editor(nullptr, interaction);
        QTemporaryDir plain;
        interaction.openPanelAnswer = plain.path();
        QTest::mouseClick(editor.findChild<QPushButton*>(u"chooseFolderButton"_s), Qt::LeftButton);
        QCOMPARE(interaction.openPanels.size(), 1);
        QVERIFY(interaction.openPanels.at(0).canChooseDirectories);
        QVERIFY(!interaction.openPanels.at(0).canChooseFiles);
        QVERIFY(editor.localPathField()->text().isEmpty());
        QVERIFY(editor.problemText(SiteField::LocalPath).contains(u"is not a git repository"_s));

        // A repository is taken; its branches are offered, the checked-out
        // one first chosen; the folder's name becomes the site's.
        interaction.openPanelAnswer = m_repo.path();
        editor.chooseRepositoryFolder();
        QCOMPARE(editor.localPathField()->text(), m_repo.path());
        QVERIFY(editor.problemText(SiteField::LocalPath).isEmpty());
        QStringList branches;
        for (int i = 0; i < editor.deployBranchField()->count(); ++i)
            branches.append(editor.deployBranchField()->itemText(i));
        QVERIFY2(branches.contains(u"live"_s) && branches.contains(u"main"_s),
                 qPrintable(branches.join(u' ')));
        QCOMPARE(editor.deployBranchField()->currentText(), u"main"_s);
        QCOMPARE(editor.nameField()->text(), QDir(m_repo.path()).dirName());

        // A missing folder is refused too, and the chosen one stays.
        QVERIFY(!editor.setRepositoryFolder(m_repo.path() + u"/nothing"_s));
        QCOMPARE(editor.localPathField()->text(), m_repo.path());
        QVERIFY(editor.problemText(SiteField::LocalPath).contains(u"does not exist"_s));
    }

    void keyPickerStartsInSsh() {
        QDir().mkpath(QDir::homePath() + u"/.ssh"_s);
        test::ScriptedInteraction interaction;
        SiteEditorDialog editor(nullptr, interaction);
        editor.protocolField()->setCurrentText(u"SFTP"_s);
        interaction.openPanelAnswer = u"/home/me/.ssh/id_ed25519"_s;
        QTest::mouseClick(editor.findChild<QPushButton*>(u"chooseKeyButton"_s), Qt::LeftButton);
        QCOMPARE(interaction.openPanels.at(0).directory, QDir::homePath() + u"/.ssh"_s);
        QVERIFY(interaction.openPanels.at(0).showsHiddenFiles);
        QCOMPARE(editor.sshKeyField()->text(), u"/home/me/.ssh/id_ed25519"_s);
        // A key that cannot be read is named when saving.
        QCOMPARE(editor.form().validate().constFirst().field, SiteField::Name);
        fillValid(editor);
        editor.protocolField()->setCurrentText(u"SFTP"_s);
        QVERIFY(!editor.save());
        QVERIFY(editor.problemText(SiteField::SshKeyPath).contains(u"cannot be read"_s));
    }

    void listEntriesAreRelativeToTheRepository() {
        test::ScriptedInteraction interaction;
        SiteEditorDialog editor(nullptr, interaction);
        QVERIFY(!editor.addListEntry(SiteField::MandatoryFiles, m_repo.path() + u"/public/index.html"_s));
        QCOMPARE(editor.problemText(SiteField::MandatoryFiles), u"Choose the repository folder first."_s);

        QVERIFY(editor.setRepositoryFolder(m_repo.path()));
        interaction.openPanelAnswer = m_repo.path() + u"/public/index.html"_s;
        editor.chooseListEntry(SiteField::MandatoryFiles, false);
        QCOMPARE(interaction.openPanels.last().directory, m_repo.path());
        QVERIFY(editor.addListEntry(SiteField::IgnoredFiles, m_repo.path() + u"/public/css"_s));
        QVERIFY(editor.addListEntry(SiteField::IgnoredFiles, m_repo.path() + u"/public/css"_s)); // once only
        QCOMPARE(editor.listEntries(SiteField::MandatoryFiles), QStringList{u"public/index.html"_s});
        QCOMPARE(editor.listEntries(SiteField::IgnoredFiles), QStringList{u"public/css"_s});

        // Outside the repository: refused with the reason.
        QVERIFY(!editor.addListEntry(SiteField::IgnoredFiles, QDir::tempPath()));
        QVERIFY(
            editor.problemText(SiteField::IgnoredFiles).contains(u"is not a path inside the repository"_s));
        QCOMPARE(editor.listEntries(SiteField::IgnoredFiles), QStringList{u"public/css"_s});

        auto* list = editor.findChild<QListWidget*>(u"ignoredFiles"_s);
        list->item(0)->setSelected(true);
        editor.removeSelectedListEntries(SiteField::IgnoredFiles);
        QVERIFY(editor.listEntries(SiteField::IgnoredFiles).isEmpty());
    }

    // A new site is appended, stamped, valid, with its password in the
    // secret store; "editing" is on only while the editor is shown.
    void savingANewSite() {
        Sites().storeWithSites({Site::newSite()});
        test::ScriptedInteraction interaction;
        auto editor = std::make_unique<SiteEditorDialog>(nullptr, interaction);
        QVERIFY(!Preferences::instance().boolValue(u"editing"_s));
        editor->show();
        QVERIFY(Preferences::instance().boolValue(u"editing"_s));
        fillValid(*editor);
        editor->syncRootField()->setText(u"public"_s);
        editor->passiveModeField()->setChecked(false);
        editor->autoDeployField()->setChecked(true);
        QVERIFY(editor->addListEntry(SiteField::MandatoryFiles, m_repo.path() + u"/public/index.html"_s));
        QSignalSpy saved(editor.get(), &SiteEditorDialog::siteSaved);
        QSignalSpy accepted(editor.get(), &QDialog::accepted);
        editor->accept();
        QCOMPARE(accepted.size(), 1);
        QCOMPARE(saved.size(), 1);
        QCOMPARE(saved.at(0).at(0).toLongLong(), 1);
        QVERIFY(!Preferences::instance().boolValue(u"editing"_s));
        QCOMPARE(SiteListActions::currentIndex(), 1);

        const SitePtr site = Sites().loadAll()->at(1);
        QCOMPARE(site->name, u"Blog"_s);
        QCOMPARE(site->localPath, m_repo.path());
        QVERIFY(site->bookmarkData.has_value());
        QCOMPARE(site->remotePath, u"/www/"_s);
        QCOMPARE(site->syncRootPath, u"public/"_s);
        QCOMPARE(site->protocol, u"FTP"_s);
        QCOMPARE(site->deployBranch, u"main"_s);
        QVERIFY(!site->passiveMode);
        QVERIFY(site->autoDeploy);
        QVERIFY(site->isValid);
        QVERIFY(site->lastEdit().has_value());
        QCOMPARE(site->mandatoryFiles->size(), 1);
        QCOMPARE(TWPasswords::getPasswordForSite(site->siteId()), u"pw"_s);
        const std::optional<double> stamp = site->lastEdit();

        // Editing it again replaces it where it stands, without a new stamp.
        editor = std::make_unique<SiteEditorDialog>(site, interaction);
        QVERIFY(!editor->isNewSite());
        QCOMPARE(editor->passwordField()->text(), u"pw"_s);
        QCOMPARE(editor->listEntries(SiteField::MandatoryFiles), QStringList{u"public/index.html"_s});
        editor->show();
        editor->hostField()->setText(u"sftp.example.org"_s);
        editor->passwordField()->clear();
        QVERIFY(editor->save());
        editor->close();
        QCOMPARE(Sites().loadAll()->size(), 2);
        QCOMPARE(Sites().loadAll()->at(1)->host, u"sftp.example.org"_s);
        QCOMPARE(Sites().loadAll()->at(1)->lastEdit(), stamp);
        QVERIFY(!TWPasswords::getPasswordForSite(site->siteId()));
        QVERIFY(!Preferences::instance().boolValue(u"editing"_s));
    }

    void staleBookmarkIsReported() {
        QTemporaryDir gone;
        SitePtr site = Site::newSite();
        site->name = u"Old"_s;
        site->localPath = gone.path();
        site->bookmarkData = SecurityBookmarkManager::bookmarkFor(gone.path());
        QVERIFY(site->bookmarkData);
        gone.remove();

        test::ScriptedInteraction interaction;
        SiteEditorDialog editor(site, interaction);
        editor.show();
        QTRY_COMPARE(interaction.alerts.size(), 1);
        const AlertRequest alert = interaction.alerts.at(0);
        QCOMPARE(alert.message, u"An error occured!"_s);
        QCOMPARE(
            alert.informativeText,
            u"Could not recover filebookmark for sandbox. Please select your base path for your repository again."_s);
        QCOMPARE(alert.buttons, QStringList{u"Abort"_s});
        QCOMPARE(alert.style, AlertStyle::Warning);

        // A reachable folder says nothing.
        SitePtr fine = Site::newSite();
        fine->localPath = m_repo.path();
        fine->bookmarkData = SecurityBookmarkManager::bookmarkFor(m_repo.path());
        test::ScriptedInteraction quiet;
        SiteEditorDialog second(fine, quiet);
        second.show();
        QCoreApplication::processEvents();
        QCoreApplication::processEvents();
        QVERIFY(quiet.alerts.isEmpty());
    }

    void connectionTestShowsItsOutcome() {
        test::ScriptedInteraction interaction;
        SiteEditorDialog editor(nullptr, interaction);
        QVERIFY(editor.testConnectionButton()->isEnabled());
        editor.setConnectionTester(nullptr);
        QVERIFY(!editor.testConnectionButton()->isEnabled());

        SitePtr tested;
        std::optional<QString> storedPassword;
        std::function<void(const std::optional<QString>&)> finish;
        editor.setConnectionTester([&](const SitePtr& site, auto done) {
            tested = site;
            storedPassword = TWPasswords::getPasswordForSite(site->siteId());
            finish = done;
        });
        QVERIFY(editor.testConnectionButton()->isEnabled());

        // Server fields that make no sense stop the test before it starts.
        editor.testConnection();
        QVERIFY(!tested);
        QVERIFY(!editor.problemText(SiteField::Host).isEmpty());

        fillValid(editor);
        editor.protocolField()->setCurrentText(u"SFTP"_s);
        editor.portField()->setText(u"2222"_s);
        QSignalSpy finished(&editor, &SiteEditorDialog::connectionTestFinished);
        QTest::mouseClick(editor.testConnectionButton(), Qt::LeftButton);
        QVERIFY(tested);
        QCOMPARE(tested->host, u"ftp.example.org"_s);
        QCOMPARE(tested->port, u"2222"_s);
        QCOMPARE(tested->protocol, u"SFTP"_s);
        QCOMPARE(tested->remotePath, u"/www/"_s);
        // The typed password is used, under an id that is not the site's.
        QCOMPARE(storedPassword, u"pw"_s);
        QVERIFY(tested->siteId() != editor.site()->siteId());
        QVERIFY(!editor.testConnectionButton()->isEnabled());
        QVERIFY(editor.connectionTestResult().startsWith(u"Connecting to ftp.example.org"_s));

        finish(u"(67) Access denied: 530"_s);
        QCOMPARE(finished.size(), 1);
        QCOMPARE(finished.at(0).at(0).toBool(), false);
        QCOMPARE(editor.connectionTestResult(), u"The connection failed: (67) Access denied: 530"_s);
        QVERIFY(editor.testConnectionButton()->isEnabled());
        // The test's own secret is gone again.
        QVERIFY(!TWPasswords::getPasswordForSite(tested->siteId()));

        editor.testConnection();
        finish(std::nullopt);
        QCOMPARE(finished.size(), 2);
        QCOMPARE(finished.at(1).at(0).toBool(), true);
        QVERIFY(editor.connectionTestResult().startsWith(u"The connection works"_s));
        // Nothing was stored by testing.
        QVERIFY(Sites().loadAll().value_or(SiteList()).isEmpty());
    }

    // A test that ends after the editor was closed does no harm.
    void connectionTestOutlivingTheEditor() {
        test::ScriptedInteraction interaction;
        std::function<void(const std::optional<QString>&)> finish;
        {
            SiteEditorDialog editor(nullptr, interaction);
            editor.setConnectionTester([&](const SitePtr&, auto done) { finish = done; });
            fillValid(editor);
            editor.testConnection();
        }
        QVERIFY(finish);
        finish(std::nullopt);
    }
};

QTEST_MAIN(TestSiteEditor)
#include "tst_siteeditor.moc"
