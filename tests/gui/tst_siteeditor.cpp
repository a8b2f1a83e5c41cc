#include "GitRepository.h"
#include "ScriptedInteraction.h"
#include "SiteEditorDialog.h"
#include "TestEnvironment.h"
#include "WindowTesting.h"
#include "app/Preferences.h"
#include "keychain/TWPasswords.h"
#include "model/SiteListActions.h"
#include "model/Sites.h"

#include <QCheckBox>
#include <QComboBox>
#include <QDir>
#include <QFileInfo>
#include <QLabel>
#include <QLineEdit>
#include <QPushButton>
#include <QScreen>
#include <QScrollArea>
#include <QSignalSpy>
#include <QTabWidget>
#include <QTemporaryDir>
#include <QTest>

using namespace tw;
using namespace Qt::StringLiterals;

// The site editor: the form's rules shown next to the fields, the
// repository picker and saving.
class TestSiteEditor : public QObject {
    Q_OBJECT

    test::GitRepository m_repo;

    void fillValid(SiteEditorDialog& editor) { QVERIFY(test::fillValid(editor, m_repo.path())); }

private slots:
    void initTestCase() {
        test::TestEnvironment::isolate();
        m_repo.commit({{u"public/index.html"_s, "x"}, {u"public/css/site.css"_s, "y"}}, u"one"_s);
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

    // A folder inside a repository is no repository of its own: the editor
    // offers the repository's top folder, with the chosen folder to deploy.
    void subFolderOffersTheRepository() {
        const QString top = QFileInfo(m_repo.path()).canonicalFilePath();
        test::ScriptedInteraction interaction;
        SiteEditorDialog editor(nullptr, interaction);
        interaction.answers = {u"Cancel"_s};
        QVERIFY(!editor.setRepositoryFolder(m_repo.path() + u"/public/css"_s));
        QCOMPARE(interaction.alerts.size(), 1);
        QVERIFY2(interaction.alerts.at(0).informativeText.contains(top),
                 qPrintable(interaction.alerts.at(0).informativeText));
        QVERIFY(editor.localPathField()->text().isEmpty());
        QVERIFY(editor.problemText(SiteField::LocalPath).contains(u"is not a git repository"_s));

        interaction.answers = {u"Use the Repository"_s};
        QVERIFY(editor.setRepositoryFolder(m_repo.path() + u"/public/css"_s));
        QCOMPARE(editor.localPathField()->text(), top);
        QCOMPARE(editor.syncRootField()->text(), u"public/css/"_s);
        QVERIFY(editor.problemText(SiteField::LocalPath).isEmpty());
        QCOMPARE(editor.deployBranchField()->currentText(), u"main"_s);
        QCOMPARE(editor.nameField()->text(), QDir(top).dirName());
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
        editor->passwordField()->setText(u"pw"_s);
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

    // The port takes digits only; a tab that holds a problem is marked until
    // the problem is gone; a result of the connection test goes when the
    // protocol changes; Escape asks before changes are thrown away.
    void editingSafely() {
        test::ScriptedInteraction interaction;
        SiteEditorDialog editor(nullptr, interaction);
        editor.show();
        QTest::keyClicks(editor.portField(), u"2a1-b21x"_s);
        QCOMPARE(editor.portField()->text(), u"2121"_s);

        QVERIFY(!editor.save());
        QVERIFY(editor.isTabMarked(0));
        QVERIFY(editor.isTabMarked(1));
        QVERIFY(!editor.isTabMarked(2));
        fillValid(editor);
        editor.validate();
        QVERIFY(!editor.isTabMarked(0));
        QVERIFY(!editor.isTabMarked(1));

        editor.setConnectionTester(
            [](const SitePtr&, std::function<void(const std::optional<QString>&)> done) {
                done(u"curl: (67) Access denied: 530"_s);
            });
        editor.testConnection();
        QCOMPARE(editor.connectionTestResult(),
                 u"The connection failed: The server refused the user name or password."_s);
        editor.protocolField()->setCurrentText(u"SFTP"_s);
        QVERIFY(editor.connectionTestResult().isEmpty());

        // Escape with changes asks; Cancel (the first, default answer) stays.
        QVERIFY(editor.hasChanges());
        interaction.answers = {u"Cancel"_s};
        QTest::keyClick(&editor, Qt::Key_Escape);
        QCOMPARE(interaction.alerts.size(), 1);
        QCOMPARE(interaction.alerts.at(0).buttons.first(), u"Cancel"_s);
        QVERIFY(editor.isVisible());
        interaction.answers = {u"Discard Changes"_s};
        QTest::keyClick(&editor, Qt::Key_Escape);
        QVERIFY(!editor.isVisible());

        // Without changes Escape closes at once.
        SiteEditorDialog untouched(nullptr, interaction);
        untouched.show();
        QTest::keyClick(&untouched, Qt::Key_Escape);
        QVERIFY(!untouched.isVisible());
        QCOMPARE(interaction.alerts.size(), 2);
    }

    // The editor is as tall as what it shows, every problem line and the
    // SFTP rows included, and never taller than the screen.
    void tallAsItsContent() {
        test::ScriptedInteraction interaction;
        SiteEditorDialog editor(nullptr, interaction);
        editor.show();
        QVERIFY(QTest::qWaitForWindowExposed(&editor));
        const int screenHeight = editor.screen()->availableGeometry().height();
        for (const QString& protocol : {u"FTP"_s, u"SFTP"_s}) {
            editor.protocolField()->setCurrentText(protocol);
            editor.sshKeyField()->setText(u"/no/such/key"_s);
            editor.portField()->setText(u"0"_s);
            for (int tab = 0; tab < editor.tabs()->count(); ++tab) {
                editor.validate();
                editor.tabs()->setCurrentIndex(tab);
                auto* area = qobject_cast<QScrollArea*>(editor.tabs()->currentWidget());
                QVERIFY(area);
                QWidget* page = area->widget();
                const auto needed = [&] { return page->heightForWidth(area->viewport()->width()); };
                const QString where = u"%1, tab %2"_s.arg(protocol).arg(tab);
                QTRY_VERIFY2(
                    area->viewport()->height() >= needed() || editor.frameGeometry().height() >= screenHeight,
                    qPrintable(u"%1: %2 < %3"_s.arg(where).arg(area->viewport()->height()).arg(needed())));
                QVERIFY2(editor.height() >= editor.sizeHint().height() ||
                             editor.frameGeometry().height() >= screenHeight,
                         qPrintable(u"%1: %2 < %3, frame %4 of %5"_s.arg(where)
                                        .arg(editor.height())
                                        .arg(editor.sizeHint().height())
                                        .arg(editor.frameGeometry().height())
                                        .arg(screenHeight)));
                QVERIFY2(editor.frameGeometry().height() <= screenHeight, qPrintable(where));
            }
        }
    }

    // A test that was under way when the protocol changed says nothing about
    // the new settings: its late answer is dropped, and a new test can start.
    void lateAnswerOfAClearedTest() {
        test::ScriptedInteraction interaction;
        SiteEditorDialog editor(nullptr, interaction);
        editor.show();
        fillValid(editor);
        QList<std::function<void(const std::optional<QString>&)>> pending;
        editor.setConnectionTester(
            [&pending](const SitePtr&, std::function<void(const std::optional<QString>&)> done) {
                pending.append(std::move(done));
            });
        QSignalSpy finished(&editor, &SiteEditorDialog::connectionTestFinished);
        editor.testConnection();
        QCOMPARE(pending.size(), 1);
        QVERIFY(!editor.testConnectionButton()->isEnabled());
        editor.protocolField()->setCurrentText(u"FTP with TLS/SSL"_s);
        QVERIFY(editor.connectionTestResult().isEmpty());
        QVERIFY(editor.testConnectionButton()->isEnabled());

        pending.at(0)(u"curl: (67) Access denied: 530"_s);
        QVERIFY(editor.connectionTestResult().isEmpty());
        QCOMPARE(finished.size(), 0);

        // The test of the new settings answers as usual.
        editor.testConnection();
        QCOMPARE(pending.size(), 2);
        pending.at(1)(std::nullopt);
        QCOMPARE(editor.connectionTestResult(), u"The connection works: the server took a test file."_s);
        QCOMPARE(finished.size(), 1);
    }
};

QTEST_MAIN(TestSiteEditor)
#include "tst_siteeditor.moc"
