#include "GitRepository.h"
#include "TestEnvironment.h"
#include "editor/SiteForm.h"
#include "keychain/TWPasswords.h"

#include <QFileInfo>
#include <QTemporaryDir>
#include <QTest>

using namespace tw;
using namespace Qt::StringLiterals;

// The site editor's rules, with a real keyring.
class TestSiteForm : public QObject {
    Q_OBJECT

    test::GitRepository m_repo;

    SiteForm validForm() const {
        SiteForm form;
        form.name = u"Blog"_s;
        form.localPath = m_repo.path();
        form.host = u"ftp.example.org"_s;
        form.username = u"bob"_s;
        form.password = u"pw"_s;
        form.deployBranch = u"main"_s;
        form.remotePath = u"/www"_s;
        return form;
    }

private slots:
    void initTestCase() {
        test::TestEnvironment::isolate();
        m_repo.commit({{u"public/index.html"_s, "x"}}, u"one"_s);
    }
    void init() { test::TestEnvironment::resetPreferences(); }

    void fieldRules_data() {
        QTest::addColumn<QString>("syncRoot");
        QTest::addColumn<QString>("branch");
        QTest::addColumn<int>("problem");
        QTest::newRow("good") << u"/public"_s << u"release/1.2"_s << -1;
        QTest::newRow("missing sync root") << u"dist"_s << u"main"_s << int(SiteField::SyncRootPath);
        QTest::newRow("sync root outside") << u"../x"_s << u"main"_s << int(SiteField::SyncRootPath);
        QTest::newRow("branch with shell") << u""_s << u"main;rm -rf ~"_s << int(SiteField::DeployBranch);
    }

    void fieldRules() {
        QFETCH(QString, syncRoot);
        QFETCH(QString, branch);
        QFETCH(int, problem);
        SiteForm form = validForm();
        form.syncRootPath = syncRoot;
        form.deployBranch = branch;
        const auto problems = form.validate();
        QCOMPARE(problems.size(), problem < 0 ? 0 : 1);
        if (problem >= 0)
            QCOMPARE(int(problems.first().field), problem);
    }

    // Applying stores the secrets, and clearing the pass phrase removes it.
    void applyingNormalisesAndStoresSecrets() {
        SiteForm form = validForm();
        form.protocol = u"SFTP"_s;
        form.syncRootPath = u"/public"_s;
        form.passphrase = u"phrase"_s;
        SitePtr site = Site::newSite();
        form.applyTo(*site);
        QCOMPARE(site->remotePath, u"/www/"_s);
        QCOMPARE(site->syncRootPath, u"public/"_s);
        QCOMPARE(TWPasswords::getPasswordForSite(site->siteId()), u"pw"_s);

        SiteForm back = SiteForm::fromSite(*site);
        QCOMPARE(back.passphrase, u"phrase"_s);
        back.passphrase.clear();
        back.applyTo(*site);
        QVERIFY(!TWPasswords::getPassphraseForSite(site->siteId()));
    }

    // A folder below the top of a repository leads to the top; the top itself,
    // a plain folder and a missing one lead nowhere.
    void repositoryOfASubFolder() {
        const QString top = QFileInfo(m_repo.path()).canonicalFilePath();
        QCOMPARE(SiteForm::repositoryRootOf(m_repo.path() + u"/public"_s), top);
        QCOMPARE(SiteForm::repositoryRootOf(m_repo.path()), std::nullopt);
        QTemporaryDir plain;
        QCOMPARE(SiteForm::repositoryRootOf(plain.path() + u"/gone"_s), std::nullopt);
    }

    // Given the form as loaded, only a changed secret is written: a password
    // the store held but could not hand out when the editor opened survives.
    void onlyChangedSecretsAreWritten() {
        const QString id = u"site-unchanged"_s;
        QVERIFY(TWPasswords::setPassword(u"kept"_s, id));
        SiteForm loaded = validForm();
        loaded.password.clear(); // what a silent store gave the editor
        QCOMPARE(loaded.storeSecrets(id, loaded), std::nullopt);
        QCOMPARE(TWPasswords::getPasswordForSite(id), u"kept"_s);
        SiteForm changed = loaded;
        changed.password = u"new"_s;
        QCOMPARE(changed.storeSecrets(id, loaded), std::nullopt);
        QCOMPARE(TWPasswords::getPasswordForSite(id), u"new"_s);
    }
};

QTEST_GUILESS_MAIN(TestSiteForm)
#include "tst_siteform.moc"
