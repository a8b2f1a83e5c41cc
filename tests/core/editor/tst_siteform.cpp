#include "GitRepository.h"
#include "TestEnvironment.h"
#include "editor/SiteForm.h"
#include "keychain/TWPasswords.h"
#include "model/SiteListActions.h"
#include "model/Sites.h"

#include <QTest>

using namespace tw;
using namespace Qt::StringLiterals;

// The site editor's rules and the site list's operations, with a real keyring.
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

    static QList<SiteField> fields(const QList<FieldProblem>& problems) {
        QList<SiteField> result;
        for (const FieldProblem& p : problems)
            result.append(p.field);
        return result;
    }

    static SitePtr named(const QString& name) {
        SitePtr site = Site::newSite();
        site->name = name;
        return site;
    }

    static QStringList names() {
        QStringList result;
        for (const SitePtr& site : Sites().loadAll().value_or(SiteList()))
            result.append(site->name.value_or(QString()));
        return result;
    }

private slots:
    void initTestCase() {
        test::TestEnvironment::isolate();
        m_repo.write(u"public/index.html"_s, "x");
        m_repo.commitAll(u"one"_s);
    }
    void init() { test::TestEnvironment::resetPreferences(); }

    void emptyFormNamesEveryMissingField() {
        const auto problems = SiteForm().validate();
        QCOMPARE(fields(problems), (QList<SiteField>{SiteField::Name, SiteField::LocalPath, SiteField::Host,
                                                     SiteField::Username, SiteField::DeployBranch}));
        QVERIFY(validForm().validate().isEmpty());
    }

    void fieldRules_data() {
        QTest::addColumn<QString>("field");
        QTest::addColumn<QString>("value");
        QTest::addColumn<int>("problem");
        const int none = -1;
        QTest::newRow("folder without .git") << u"localPath"_s << u"/tmp"_s << int(SiteField::LocalPath);
        QTest::newRow("relative folder") << u"localPath"_s << u"site"_s << int(SiteField::LocalPath);
        QTest::newRow("missing sync root") << u"syncRootPath"_s << u"dist"_s << int(SiteField::SyncRootPath);
        QTest::newRow("sync root outside") << u"syncRootPath"_s << u"../x"_s << int(SiteField::SyncRootPath);
        QTest::newRow("good sync root") << u"syncRootPath"_s << u"/public"_s << none;
        QTest::newRow("unknown protocol") << u"protocol"_s << u"ftp"_s << int(SiteField::Protocol);
        QTest::newRow("host with scheme") << u"host"_s << u"ftp://example.org"_s << int(SiteField::Host);
        QTest::newRow("host with path") << u"host"_s << u"example.org/www"_s << int(SiteField::Host);
        QTest::newRow("port text") << u"port"_s << u"21a"_s << int(SiteField::Port);
        QTest::newRow("port zero") << u"port"_s << u"0"_s << int(SiteField::Port);
        QTest::newRow("port too big") << u"port"_s << u"65536"_s << int(SiteField::Port);
        QTest::newRow("good port") << u"port"_s << u"2121"_s << none;
        QTest::newRow("branch with shell")
            << u"deployBranch"_s << u"main;rm -rf ~"_s << int(SiteField::DeployBranch);
        QTest::newRow("branch with dots") << u"deployBranch"_s << u"a..b"_s << int(SiteField::DeployBranch);
        QTest::newRow("nested branch") << u"deployBranch"_s << u"release/1.2"_s << none;
        QTest::newRow("mandatory outside")
            << u"mandatory"_s << u"../secret"_s << int(SiteField::MandatoryFiles);
        QTest::newRow("ignored absolute") << u"ignored"_s << u"/etc"_s << int(SiteField::IgnoredFiles);
    }

    void fieldRules() {
        QFETCH(QString, field);
        QFETCH(QString, value);
        QFETCH(int, problem);
        SiteForm form = validForm();
        if (field == u"localPath")
            form.localPath = value;
        else if (field == u"syncRootPath")
            form.syncRootPath = value;
        else if (field == u"protocol")
            form.protocol = value;
        else if (field == u"host")
            form.host = value;
        else if (field == u"port")
            form.port = value;
        else if (field == u"deployBranch")
            form.deployBranch = value;
        else if (field == u"mandatory")
            form.mandatoryFiles = {value};
        else if (field == u"ignored")
            form.ignoredFiles = {value};
        const auto problems = form.validate();
        if (problem < 0) {
            QVERIFY2(problems.isEmpty(), qPrintable(problems.value(0).message));
        } else {
            QCOMPARE(problems.size(), 1);
            QCOMPARE(int(problems.first().field), problem);
            QVERIFY(!problems.first().message.isEmpty());
        }
    }

    void applyingNormalisesAndStoresSecrets() {
        SiteForm form = validForm();
        form.protocol = u"SFTP"_s;
        form.syncRootPath = u"/public"_s;
        form.passphrase = u"phrase"_s;
        form.mandatoryFiles = {u".htaccess"_s};
        SitePtr site = Site::newSite();
        form.applyTo(*site);
        QCOMPARE(site->remotePath, u"/www/"_s);
        QCOMPARE(site->syncRootPath, u"public/"_s);
        QVERIFY(site->isValid);
        QCOMPARE(site->bookmarkData, m_repo.path().toUtf8());
        QCOMPARE(site->mandatoryFiles->first()->pathWithFilename, u".htaccess"_s);
        QCOMPARE(TWPasswords::getPasswordForSite(site->siteId()), u"pw"_s);
        QCOMPARE(TWPasswords::getPassphraseForSite(site->siteId()), u"phrase"_s);

        SiteForm back = SiteForm::fromSite(*site);
        QCOMPARE(back.password, u"pw"_s);
        QCOMPARE(back.passphrase, u"phrase"_s);
        QCOMPARE(back.mandatoryFiles, QStringList{u".htaccess"_s});
        back.passphrase.clear();
        back.applyTo(*site);
        QVERIFY(!TWPasswords::getPassphraseForSite(site->siteId()));
    }

    void listOperationsKeepTheCurrentSite() {
        SiteListActions::add(named(u"a"_s));
        SiteListActions::add(named(u"b"_s));
        SiteListActions::add(named(u"c"_s));
        QVERIFY(Sites().loadAll()->first()->lastEdit());
        SiteListActions::setCurrentIndex(1); // b

        SiteListActions::move(1, 2);
        QCOMPARE(names(), (QStringList{u"a"_s, u"c"_s, u"b"_s}));
        QCOMPARE(SiteListActions::currentIndex(), 2);
        SiteListActions::move(0, 2);
        QCOMPARE(names(), (QStringList{u"c"_s, u"b"_s, u"a"_s}));
        QCOMPARE(SiteListActions::currentIndex(), 1);

        SitePtr b = Sites().loadAll()->at(1);
        TWPasswords::setPassword(u"b-pw"_s, b->siteId());
        QCOMPARE(SiteListActions::duplicate(0), 1);
        QCOMPARE(names(), (QStringList{u"c"_s, u"c copy"_s, u"b"_s, u"a"_s}));
        QCOMPARE(SiteListActions::currentIndex(), 2);
        const auto copyOfB = SiteListActions::duplicate(2);
        const SitePtr copy = Sites().loadAll()->at(*copyOfB);
        QVERIFY(copy->siteId() != b->siteId());
        QCOMPARE(TWPasswords::getPasswordForSite(copy->siteId()), u"b-pw"_s);

        QVERIFY(SiteListActions::remove(2));
        QCOMPARE(names(), (QStringList{u"c"_s, u"c copy"_s, u"b copy"_s, u"a"_s}));
        QVERIFY(!TWPasswords::getPasswordForSite(b->siteId()));
        QCOMPARE(SiteListActions::find(u"a"_s), 3);
        QCOMPARE(SiteListActions::find(u"1"_s), 1);
        QVERIFY(!SiteListActions::find(u"9"_s));
        QVERIFY(!SiteListActions::remove(9));
        QVERIFY(!SiteListActions::move(0, 9));
    }
};

QTEST_GUILESS_MAIN(TestSiteForm)
#include "tst_siteform.moc"
