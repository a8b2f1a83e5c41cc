#include "GitRepository.h"
#include "ScriptedInteraction.h"
#include "SiteEditorDialog.h"
#include "TestEnvironment.h"
#include "WindowTesting.h"
#include "app/Preferences.h"
#include "keychain/TWPasswords.h"
#include "model/SiteListActions.h"
#include "model/Sites.h"

#include <QComboBox>
#include <QFileInfo>
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

using Done = std::function<void(const std::optional<QString>&)>;

// The site editor on a repository with two branches; built twice, the
// second time (TW_NO_SECRET_STORE) for a desktop whose secret store does not
// answer.
class EditorTest : public QObject {
    Q_OBJECT

protected:
    test::GitRepository m_repo;
    // A valid FTP site of the repository, no password.
    void fillValid(SiteEditorDialog& editor) {
        editor.nameField()->setText(u"Blog"_s);
        editor.hostField()->setText(u"ftp.example.org"_s);
        editor.usernameField()->setText(u"bob"_s);
        editor.remotePathField()->setText(u"/www"_s);
        QVERIFY(editor.setRepositoryFolder(m_repo.path()));
    }

private slots:
    void initTestCase() {
        test::TestEnvironment::isolate();
        m_repo.commit({{u"public/index.html"_s, "x"}, {u"public/css/site.css"_s, "y"}}, u"one"_s);
        m_repo.git({u"branch"_s, u"live"_s});
    }
    void init() { test::TestEnvironment::resetPreferences(); }
};

class TestSiteEditor : public EditorTest {
    Q_OBJECT

private slots:
    // Only a repository is taken; a sub-folder offers its repository's top
    // folder, with the sub-folder to deploy.
    void repositoryFolder() {
        test::ScriptedInteraction interaction;
        SiteEditorDialog editor(nullptr, interaction);
        QTemporaryDir plain;
        QVERIFY(!editor.setRepositoryFolder(plain.path()));
        QVERIFY(editor.localPathField()->text().isEmpty());
        QVERIFY(editor.problemText(SiteField::LocalPath).contains(u"is not a git repository"_s));

        const QString top = QFileInfo(m_repo.path()).canonicalFilePath();
        interaction.answers = {u"Use the Repository"_s};
        QVERIFY(editor.setRepositoryFolder(m_repo.path() + u"/public/css"_s));
        QCOMPARE(editor.localPathField()->text(), top);
        QCOMPARE(editor.syncRootField()->text(), u"public/css/"_s);
        QCOMPARE(editor.deployBranchField()->currentText(), u"main"_s);
        QVERIFY(editor.problemText(SiteField::LocalPath).isEmpty());
    }

    // A new site is stored with its password in the secret store; edited
    // again, it is replaced where it stands.
    void savingASite() {
        Sites().storeWithSites({Site::newSite()});
        test::ScriptedInteraction interaction;
        auto editor = std::make_unique<SiteEditorDialog>(nullptr, interaction);
        editor->show();
        fillValid(*editor);
        editor->passwordField()->setText(u"pw"_s);
        editor->accept();
        QCOMPARE(SiteListActions::currentIndex(), 1);
        const SitePtr site = Sites().loadAll()->at(1);
        QCOMPARE(site->remotePath, u"/www/"_s);
        QVERIFY(site->isValid);
        QCOMPARE(TWPasswords::getPasswordForSite(site->siteId()), u"pw"_s);

        editor = std::make_unique<SiteEditorDialog>(site, interaction);
        QCOMPARE(editor->passwordField()->text(), u"pw"_s);
        editor->hostField()->setText(u"sftp.example.org"_s);
        editor->passwordField()->clear();
        QVERIFY(editor->save());
        QCOMPARE(Sites().loadAll()->size(), 2);
        QCOMPARE(Sites().loadAll()->at(1)->host, u"sftp.example.org"_s);
        QVERIFY(!TWPasswords::getPasswordForSite(site->siteId()));
    }

    // The port takes digits only; a tab that holds a problem is marked; a
    // connection test's result, or its late answer, goes when the protocol
    // changes; Escape asks before changes are thrown away.
    void editingSafely() {
        test::ScriptedInteraction interaction;
        SiteEditorDialog editor(nullptr, interaction);
        editor.show();
        QTest::keyClicks(editor.portField(), u"2a1-b21x"_s);
        QCOMPARE(editor.portField()->text(), u"2121"_s);
        QVERIFY(!editor.save());
        QVERIFY(editor.isTabMarked(0) && editor.isTabMarked(1) && !editor.isTabMarked(2));
        fillValid(editor);
        editor.validate();
        QVERIFY(!editor.isTabMarked(0) && !editor.isTabMarked(1));

        QList<Done> pending;
        editor.setConnectionTester(
            [&pending](const SitePtr&, Done done) { pending.append(std::move(done)); });
        editor.testConnection();
        pending.at(0)(u"curl: (67) Access denied: 530"_s);
        QCOMPARE(editor.connectionTestResult(),
                 u"The connection failed: The server refused the user name or password."_s);
        editor.testConnection();
        editor.protocolField()->setCurrentText(u"SFTP"_s);
        QVERIFY(editor.connectionTestResult().isEmpty());
        QVERIFY(editor.testConnectionButton()->isEnabled());
        pending.at(1)(u"curl: (67) Access denied: 530"_s);
        QVERIFY(editor.connectionTestResult().isEmpty());

        // Cancel, the default answer, stays; Discard Changes closes.
        interaction.answers = {u"Cancel"_s};
        QTest::keyClick(&editor, Qt::Key_Escape);
        QCOMPARE(interaction.alerts.size(), 1);
        QCOMPARE(interaction.alerts.at(0).buttons.first(), u"Cancel"_s);
        QVERIFY(editor.isVisible());
        interaction.answers = {u"Discard Changes"_s};
        QTest::keyClick(&editor, Qt::Key_Escape);
        QVERIFY(!editor.isVisible());
    }
};

// A password the store does not take is never saved as if it were: the
// editor stays open with everything typed, and the connection test says so.
class TestSiteEditorNoStore : public EditorTest {
    Q_OBJECT

private slots:
    void passwordNotStored() {
        test::ScriptedInteraction interaction;
        SiteEditorDialog editor(nullptr, interaction);
        editor.show();
        fillValid(editor);
        editor.passwordField()->setText(u"typed-secret"_s);
        editor.accept();
        QCOMPARE(interaction.alerts.size(), 1);
        QVERIFY(editor.isVisible());
        QVERIFY(Sites().loadAll().value_or(SiteList()).isEmpty());
        QCOMPARE(editor.passwordField()->text(), u"typed-secret"_s);

        int runs = 0;
        editor.setConnectionTester([&runs](const SitePtr&, Done done) {
            ++runs;
            done(std::nullopt);
        });
        editor.testConnection();
        QCOMPARE(runs, 0);
        QVERIFY(editor.connectionTestResult().contains(u"secret store did not answer or is locked"_s));

        // Without a secret to store the site is saved as usual.
        editor.passwordField()->clear();
        editor.accept();
        QVERIFY(!editor.isVisible());
        QCOMPARE(Sites().total(), 1);
    }
};

#ifdef TW_NO_SECRET_STORE
using TestProgram = TestSiteEditorNoStore;
#else
using TestProgram = TestSiteEditor;
#endif
QTEST_MAIN(TestProgram)
#include "tst_siteeditor.moc"
