#include "GitRepository.h"
#include "PreferencesDialog.h"
#include "ScriptEditorDialog.h"
#include "TestEnvironment.h"
#include "app/AppInfo.h"
#include "app/Preferences.h"
#include "model/Sites.h"

#include <QCheckBox>
#include <QFontInfo>
#include <QLabel>
#include <QLineEdit>
#include <QPlainTextEdit>
#include <QPushButton>
#include <QSignalSpy>
#include <QSpinBox>
#include <QTest>

using namespace tw;
using namespace Qt::StringLiterals;

// The script editor with its console, and the preferences.
class TestScriptEditor : public QObject {
    Q_OBJECT

    test::GitRepository m_repo;

    SitePtr storedSite() {
        SitePtr site = Site::newSite();
        site->name = u"Blog"_s;
        site->localPath = m_repo.path();
        site->preDeployScriptLocal = u"echo before"_s;
        site->remotePostConnectionString = u"-p 2222 deploy@example.org"_s;
        Sites().storeWithSites({site});
        return Sites().loadAll()->at(0);
    }

private slots:
    void initTestCase() {
        test::TestEnvironment::isolate();
        m_repo.write(u"index.html"_s, "x");
        m_repo.commitAll(u"one"_s);
    }
    void init() { test::TestEnvironment::resetPreferences(); }

    void showsAndStoresTheScripts() {
        ScriptEditorDialog editor(storedSite());
        QCOMPARE(editor.editor(ScriptEditorDialog::PreDeployLocal)->toPlainText(), u"echo before"_s);
        QCOMPARE(editor.connectionField(ScriptEditorDialog::PostDeployRemote)->text(),
                 u"-p 2222 deploy@example.org"_s);
        QVERIFY(!editor.connectionField(ScriptEditorDialog::PreDeployLocal));
        for (int i = 0; i < ScriptEditorDialog::ScriptCount; ++i)
            QVERIFY(QFontInfo(editor.editor(ScriptEditorDialog::Script(i))->font()).fixedPitch());
        QVERIFY(QFontInfo(editor.console()->font()).fixedPitch());

        editor.editor(ScriptEditorDialog::PostDeployLocal)->setPlainText(u"echo after"_s);
        editor.editor(ScriptEditorDialog::PreDeployRemote)->setPlainText(u"cd www\nls"_s);
        editor.connectionField(ScriptEditorDialog::PreDeployRemote)->setText(u"host"_s);
        QSignalSpy accepted(&editor, &QDialog::accepted);
        editor.accept();
        QCOMPARE(accepted.size(), 1);
        const SitePtr stored = Sites().loadAll()->at(0);
        QCOMPARE(stored->preDeployScriptLocal, u"echo before"_s);
        QCOMPARE(stored->postDeployScriptLocal, u"echo after"_s);
        QCOMPARE(stored->preDeployScriptRemote, u"cd www\nls"_s);
        QCOMPARE(stored->postDeployScriptRemote, QString());
        QCOMPARE(stored->remotePreConnectionString, u"host"_s);
        QCOMPARE(stored->remotePostConnectionString, u"-p 2222 deploy@example.org"_s);
    }

    // A site that was deleted meanwhile is not brought back.
    void siteGoneMeanwhile() {
        ScriptEditorDialog editor(storedSite());
        Sites().deleteAll();
        editor.show();
        editor.accept();
        QVERIFY(editor.isVisible());
        QVERIFY(editor.statusLabel()->text().contains(u"no longer in the site list"_s));
        QVERIFY(Sites().loadAll()->isEmpty());
    }

    // The console runs the script as it stands, in the repository folder,
    // and tells how it ended.
    void consoleRunsTheScript() {
        ScriptEditorDialog editor(storedSite());
        editor.show();
        editor.setCurrentScript(ScriptEditorDialog::PostDeployLocal);
        editor.editor(ScriptEditorDialog::PostDeployLocal)->setPlainText(u"pwd\necho to-error >&2\nexit 3"_s);
        QSignalSpy finished(&editor, &ScriptEditorDialog::runFinished);
        QTest::mouseClick(editor.runButton(), Qt::LeftButton);
        QVERIFY(!editor.runButton()->isEnabled());
        QTRY_COMPARE_WITH_TIMEOUT(finished.size(), 1, 15000);
        QCOMPARE(finished.at(0).at(0).toBool(), true);
        const QString console = editor.console()->toPlainText();
        QVERIFY2(console.contains(m_repo.path()), qPrintable(console));
        QVERIFY(console.contains(u"to-error"_s));
        QCOMPARE(editor.statusLabel()->text(), u"The script failed with exit status 3."_s);
        QVERIFY(editor.runButton()->isEnabled());

        editor.editor(ScriptEditorDialog::PostDeployLocal)->setPlainText(u"echo fine"_s);
        editor.runCurrentScript();
        QTRY_COMPARE_WITH_TIMEOUT(finished.size(), 2, 15000);
        QCOMPARE(finished.at(1).at(0).toBool(), false);
        QVERIFY(editor.console()->toPlainText().contains(u"fine"_s));
        QCOMPARE(editor.statusLabel()->text(), u"Finished with exit status 0."_s);

        // Nothing to run is said so, not an error.
        editor.setCurrentScript(ScriptEditorDialog::PreDeployRemote);
        editor.runCurrentScript();
        QTRY_COMPARE(finished.size(), 3);
        QCOMPARE(finished.at(2).at(0).toBool(), false);
        QVERIFY(editor.console()->toPlainText().contains(u"No remote host to execute script on given"_s));
    }

    // Closing the editor while a script runs ends the script.
    void closingWhileRunning() {
        auto editor = std::make_unique<ScriptEditorDialog>(storedSite());
        editor->editor(ScriptEditorDialog::PreDeployLocal)->setPlainText(u"sleep 30"_s);
        editor->runCurrentScript();
        QVERIFY(editor->isRunning());
        editor.reset();
    }

    void preferencesAreStoredAtOnce() {
        PreferencesDialog dialog;
        QCOMPARE(dialog.maxConnectionsField()->value(), 3);
        QVERIFY(!dialog.debugField()->isChecked());
        QVERIFY(dialog.environmentPathsField()->text().isEmpty());
        QCOMPARE(dialog.environmentPathsField()->placeholderText(),
                 u"/usr/local/bin:/usr/bin:/bin:/usr/sbin:/sbin"_s);
        QVERIFY(dialog.versionLabel()->text().contains(AppInfo::version()));

        Preferences& preferences = Preferences::instance();
        dialog.maxConnectionsField()->setValue(5);
        QCOMPARE(preferences.integerValue(u"maxConnections"_s), 5);
        dialog.debugField()->setChecked(true);
        QVERIFY(preferences.boolValue(u"debugEnabled"_s));
        dialog.showFullPathField()->setChecked(true);
        QVERIFY(preferences.boolValue(u"showFullPath"_s));

        dialog.show();
        dialog.environmentPathsField()->setFocus();
        dialog.environmentPathsField()->setText(u" /opt/node/bin:/usr/bin "_s);
        QTest::keyClick(dialog.environmentPathsField(), Qt::Key_Return);
        QCOMPARE(preferences.stringValue(u"environmentPaths"_s), u"/opt/node/bin:/usr/bin"_s);
        // Emptied: scripts get the usual folders again, not an empty PATH.
        dialog.environmentPathsField()->clear();
        dialog.done(QDialog::Rejected);
        QVERIFY(!preferences.contains(u"environmentPaths"_s));

        // A stored value beyond the range shows within it.
        preferences.setInteger(u"maxConnections"_s, 99);
        dialog.load();
        QCOMPARE(dialog.maxConnectionsField()->value(), PreferencesDialog::maximumConnections);
        QCOMPARE(preferences.integerValue(u"maxConnections"_s), 99);
    }
};

QTEST_MAIN(TestScriptEditor)
#include "tst_scripteditor.moc"
