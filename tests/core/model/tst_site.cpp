#include "TestEnvironment.h"
#include "Traces.h"
#include "app/Preferences.h"
#include "keychain/TWPasswords.h"
#include "model/SecurityBookmarkManager.h"
#include "model/Site.h"
#include "model/Sites.h"

#include <QCborArray>
#include <QDir>
#include <QFile>
#include <QFileInfo>
#include <QJsonArray>
#include <QJsonDocument>
#include <QTemporaryDir>
#include <QTest>

using namespace tw;
using namespace Qt::StringLiterals;

// The site record in its three forms, and the records it is made of. Runs
// with a real keyring: the export form reads the password from it.
class TestSite : public QObject {
    Q_OBJECT

    static SitePtr filledSite() {
        SitePtr site = Site::newSite();
        site->name = u"Example"_s;
        site->host = u"ftp.example.org"_s;
        site->username = u"bob"_s;
        site->password = u"in-memory"_s;
        site->localPath = u"/home/bob/site"_s;
        site->syncRootPath = QString();
        site->remotePath = u"/www/"_s;
        site->deployBranch = u"main"_s;
        site->port = u"21"_s;
        site->sshKeyPath = u"/home/bob/.ssh/id_ed25519"_s;
        site->preDeployScriptLocal = u"make\nmake test"_s;
        site->bookmarkData = QByteArray("/home/bob/site");
        site->lastCommitDeployed = std::make_shared<Commit>();
        site->lastCommitDeployed->sha1 = u"a1b2c3d"_s;
        site->lastCommitDeployed->deployedWhen = QDateTime::fromSecsSinceEpoch(1700000000);
        site->commits = std::make_shared<CommitList>(CommitList{site->lastCommitDeployed});
        site->branches = std::make_shared<QStringList>(QStringList{u"main"_s, u"dev"_s});
        site->mandatoryFiles = std::make_shared<FileList>(FileList{File::initWithPath(u".htaccess"_s)});
        site->ignoredFiles = std::make_shared<FileList>(FileList{File::initWithPath(u"css/"_s)});
        site->isValid = true;
        site->autoDeploy = true;
        site->updatedNow();
        return site;
    }

private slots:
    void initTestCase() { test::TestEnvironment::isolate(); }

    void archiveRoundTrip() {
        SitePtr site = filledSite();
        site->siteIndex = 7;
        site->lastError = Error::application(2, u"never stored"_s);
        const QCborMap map = site->encode();
        QVERIFY(map.value(u"isValid"_s).isBool());
        QVERIFY(map.value(u"passiveMode"_s).isBool());
        // The stored list holds no secret: the key stays, without a value.
        QVERIFY(map.contains(u"password"_s));
        QVERIFY(map.value(u"password"_s).isNull());

        const auto back = Sites::unarchive(Sites::archive({site}));
        QVERIFY(back && back->size() == 1);
        const SitePtr s = back->first();
        QCOMPARE(s->siteId(), site->siteId());
        QCOMPARE(s->siteIndex, 0);
        QVERIFY(!s->lastError);
        QVERIFY(!s->password);
        QCOMPARE(s->syncRootPath, QString());
        QVERIFY(s->syncRootPath.has_value());
        QVERIFY(!s->postDeployScriptLocal);
        QCOMPARE(s->bookmarkData, site->bookmarkData);
        QCOMPARE(s->lastCommitDeployed->sha1, u"a1b2c3d"_s);
        QCOMPARE(s->lastCommitDeployed->deployedWhen, site->lastCommitDeployed->deployedWhen);
        QCOMPARE(*s->branches, *site->branches);
        QCOMPARE(s->mandatoryFiles->first()->pathWithFilename, u".htaccess"_s);
        QCOMPARE(s->ignoredFiles->first()->pathWithFilename, u"css/"_s);
        QVERIFY(s->isValid && s->autoDeploy && s->passiveMode);
        QCOMPARE(s->lastEdit(), site->lastEdit());
    }

    void unreadableArchives() {
        QVERIFY(!Sites::unarchive(QByteArray()));
        QVERIFY(!Sites::unarchive("not cbor at all"));
        QVERIFY(!Sites::unarchive(QCborValue(QCborArray{1, 2}).toCbor()));
        QVERIFY(!Sites::unarchive(QCborValue(QCborMap{}).toCbor()));
        QCOMPARE(Sites::unarchive(QCborValue(QCborArray{}).toCbor())->size(), 0);
    }

    // A stored list that cannot be read whole is never taken for "no
    // sites": what can be read loads, the value as it was is kept aside,
    // and the person is told once.
    void partlyReadableListLosesNothing() {
        test::TestEnvironment::resetPreferences();
        SitePtr first = filledSite();
        first->name = u"First"_s;
        SitePtr second = filledSite();
        second->name = u"Second"_s;
        QCborArray array{QCborValue(first->encode()), QCborValue(u"broken entry"_s),
                         QCborValue(second->encode())};
        QByteArray stored = QCborValue(array).toCbor();
        stored.chop(20); // and the value cut short in the last site
        Preferences::instance().setValue(u"sites"_s, stored);

        const SiteList loaded = Sites().loadAll().value_or(SiteList());
        QCOMPARE(loaded.size(), 1);
        QCOMPARE(loaded.first()->name, u"First"_s);
        const std::optional<QString> problem = Sites::takeLoadProblem();
        QVERIFY(problem);
        QVERIFY2(problem->contains(u"could not be read"_s), qPrintable(*problem));
        QVERIFY(!Sites::takeLoadProblem());
        Sites().loadAll();
        QVERIFY(!Sites::takeLoadProblem()); // once per run of the program

        const QDir folder = QFileInfo(Preferences::instance().fileName()).absoluteDir();
        const QStringList backups = folder.entryList({u"sites-unreadable-*.cbor"_s}, QDir::Files);
        QCOMPARE(backups.size(), 1);
        QVERIFY(problem->contains(backups.first()));
        QCOMPARE(test::readFile(folder.filePath(backups.first())), stored);
        QCOMPARE(
            int(QFile::permissions(folder.filePath(backups.first())) & (QFile::ReadGroup | QFile::ReadOther)),
            0);

        // Saving the readable sites now overwrites nothing that is not kept.
        Sites().storeWithSites(loaded);
        QCOMPARE(Sites().loadAll()->size(), 1);
    }

    // The stored site does not carry the repository's history with it.
    void archiveCarriesNoHistory() {
        SitePtr site = filledSite();
        site->commits = std::make_shared<CommitList>();
        for (int i = 0; i < 1000; ++i) {
            auto commit = std::make_shared<Commit>();
            commit->sha1 = QString::number(i, 16);
            site->commits->append(commit);
        }
        const QCborMap map = site->encode();
        QVERIFY(map.contains(u"commits"_s));
        QVERIFY(map.value(u"commits"_s).isNull());
        QCOMPARE(Site::decode(map)->lastCommitDeployed->sha1, site->lastCommitDeployed->sha1);
    }

    void jsonRoundTrip() {
        SitePtr site = filledSite();
        TWPasswords::setPassword(u"from-the-keyring"_s, site->siteId());
        const QByteArray text = QJsonDocument(site->jsonObject()).toJson();
        const QJsonObject json = QJsonDocument::fromJson(text).object();
        QCOMPARE(json.value(u"password"_s), QJsonValue(u"from-the-keyring"_s));
        // File lists nest JSON texts, not objects.
        QVERIFY(json.value(u"mandatoryFiles"_s).toArray().first().isString());

        const SitePtr back = Site::initWithDict(json);
        QCOMPARE(back->password, u"from-the-keyring"_s);
        QCOMPARE(back->siteId(), site->siteId());
        QCOMPARE(back->name, site->name);
        QCOMPARE(back->lastCommitDeployed->sha1, u"a1b2c3d"_s);
        QVERIFY(!back->lastCommitDeployed->deployedWhen);
        QCOMPARE(back->mandatoryFiles->first()->pathWithFilename, u".htaccess"_s);
        QVERIFY(!back->mandatoryFiles->first()->willUpload);
        QVERIFY(back->passiveMode);
        QVERIFY(!back->bookmarkData && !back->commits && !back->isValid && !back->autoDeploy);
        // Absent fields were written as null and come back as empty texts.
        QCOMPARE(back->postDeployScriptLocal, QString());
        QVERIFY(back->postDeployScriptLocal.has_value());
        QCOMPARE(back->lastEdit(), site->lastEdit());
        TWPasswords::setPassword(std::nullopt, site->siteId());
    }

    // A file's and a commit's records keep an absent value apart from an
    // empty one; anything else is no record.
    void archivesKeepAbsentApartFromEmpty() {
        const FilePtr file = File::initWithPath(QStringLiteral("x/y.txt"));
        file->status = QString();
        file->gitStatus = QStringLiteral("D");
        const FilePtr back = File::decode(QCborValue::fromCbor(file->encode().toCborValue().toCbor()));
        QVERIFY(back);
        QCOMPARE(back->status, QString());
        QVERIFY(back->status.has_value());
        QCOMPARE(back->gitStatus, QStringLiteral("D"));
        QCOMPARE(back->pathOnly, QStringLiteral("x/"));
        QVERIFY(back->willUpload);

        Commit commit;
        commit.sha1 = QStringLiteral("a1b2c3d");
        commit.deployedWhen = QDateTime::fromMSecsSinceEpoch(86400500, Qt::UTC);
        const CommitPtr decoded =
            Commit::decode(QCborValue::fromCbor(commit.encode().toCborValue().toCbor()));
        QVERIFY(decoded);
        QCOMPARE(decoded->sha1, QStringLiteral("a1b2c3d"));
        QVERIFY(!decoded->author);
        QCOMPARE(decoded->deployedWhen, commit.deployedWhen);
        QVERIFY(!File::decode(QCborValue(42)));
        QVERIFY(!Commit::decode(QCborValue(QStringLiteral("x"))));
    }

    // Without a sandbox a bookmark is the folder's path, stale once the
    // folder is gone.
    void bookmarksAreStaleWhenTheFolderIsGone() {
        auto folder = std::make_unique<QTemporaryDir>();
        const QString path = folder->path();
        const auto bookmark = SecurityBookmarkManager::bookmarkFor(path);
        QVERIFY(bookmark);
        QCOMPARE(SecurityBookmarkManager::resolve(*bookmark)->path, path);
        QVERIFY(!SecurityBookmarkManager::resolve(*bookmark)->isStale);
        folder.reset();
        QVERIFY(SecurityBookmarkManager::resolve(*bookmark)->isStale);
        QVERIFY(!SecurityBookmarkManager::bookmarkFor(path));
        QVERIFY(!SecurityBookmarkManager::resolve(QByteArray()));
    }
};

QTEST_GUILESS_MAIN(TestSite)
#include "tst_site.moc"
