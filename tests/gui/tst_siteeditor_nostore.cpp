#include "GitRepository.h"
#include "ScriptedInteraction.h"
#include "SiteEditorDialog.h"
#include "TestEnvironment.h"
#include "WindowTesting.h"
#include "model/SiteListActions.h"
#include "model/Sites.h"

#include <QLineEdit>
#include <QSignalSpy>
#include <QTest>

using namespace tw;
using namespace Qt::StringLiterals;

// The site editor on a desktop whose secret store does not answer (no Secret
// Service on the bus): a password it cannot store is never saved as if it
// were, and nothing typed is lost.
class TestSiteEditorNoStore : public QObject {
    Q_OBJECT

    test::GitRepository m_repo;

    void fillValid(SiteEditorDialog& editor) { QVERIFY(test::fillValid(editor, m_repo.path())); }

private slots:
    void initTestCase() {
        test::TestEnvironment::isolate();
        m_repo.commit({{u"index.html"_s, "x"}}, u"one"_s);
    }
    void init() { test::TestEnvironment::resetPreferences(); }

    void passwordNotStoredKeepsTheEditorOpen() {
        test::ScriptedInteraction interaction;
        SiteEditorDialog editor(nullptr, interaction);
        editor.show();
        fillValid(editor);
        editor.passwordField()->setText(u"typed-secret"_s);
        QSignalSpy saved(&editor, &SiteEditorDialog::siteSaved);

        editor.accept();
        QCOMPARE(interaction.alerts.size(), 1);
        QCOMPARE(interaction.alerts.at(0).message, u"The password was not stored"_s);
        QVERIFY2(interaction.alerts.at(0).informativeText.contains(u"did not answer or is locked"_s),
                 qPrintable(interaction.alerts.at(0).informativeText));
        QVERIFY(editor.isVisible());
        QCOMPARE(saved.size(), 0);
        QVERIFY(Sites().loadAll().value_or(SiteList()).isEmpty());
        QCOMPARE(editor.passwordField()->text(), u"typed-secret"_s);
        QVERIFY(editor.hasChanges());

        // Without a secret to store (an SFTP key, a server without one) the
        // site is saved as usual.
        editor.passwordField()->clear();
        editor.accept();
        QCOMPARE(saved.size(), 1);
        QVERIFY(!editor.isVisible());
        QCOMPARE(Sites().total(), 1);

        // Editing a stored site without touching its password saves it: the
        // store is not asked, so whatever it holds stays.
        SiteEditorDialog again(Sites().loadAll()->at(0), interaction);
        again.show();
        again.hostField()->setText(u"sftp.example.org"_s);
        again.accept();
        QVERIFY(!again.isVisible());
        QCOMPARE(Sites().loadAll()->at(0)->host, u"sftp.example.org"_s);
        QCOMPARE(interaction.alerts.size(), 1);
    }

    // The connection test hands the typed password over through the store: a
    // store that did not take it says so instead of a login the server refuses.
    void connectionTestSaysTheStoreFailed() {
        test::ScriptedInteraction interaction;
        SiteEditorDialog editor(nullptr, interaction);
        fillValid(editor);
        int runs = 0;
        editor.setConnectionTester(
            [&runs](const SitePtr&, std::function<void(const std::optional<QString>&)> done) {
                ++runs;
                done(std::nullopt);
            });
        editor.passwordField()->setText(u"typed-secret"_s);
        editor.testConnection();
        QCOMPARE(runs, 0);
        QVERIFY2(editor.connectionTestResult().contains(u"secret store did not answer or is locked"_s),
                 qPrintable(editor.connectionTestResult()));
        editor.passwordField()->clear();
        editor.testConnection();
        QCOMPARE(runs, 1);
    }
};

QTEST_MAIN(TestSiteEditorNoStore)
#include "tst_siteeditor_nostore.moc"
