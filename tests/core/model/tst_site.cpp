#include "TestEnvironment.h"
#include "keychain/TWPasswords.h"
#include "model/Site.h"
#include "model/Sites.h"

#include <QCborArray>
#include <QJsonArray>
#include <QJsonDocument>
#include <QTest>

using namespace tw;
using namespace Qt::StringLiterals;

// The site record in its three forms. Runs with a real keyring: the export
// form reads the password from it.
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

    void idAndVersionUpgradeOnFirstRead() {
        Site old;
        QVERIFY(!old.version);
        QVERIFY(!old.passiveMode);
        const QString id = old.siteId();
        QVERIFY(!id.isEmpty());
        QCOMPARE(old.siteId(), id);
        QCOMPARE(old.version, u"2"_s);
        QVERIFY(old.passiveMode);

        Site current;
        current.version = u"2"_s;
        current.passiveMode = false;
        current.siteId();
        QVERIFY(!current.passiveMode);

        Site other;
        QVERIFY(other.siteId() != id);
        other.generateSiteId();
        QVERIFY(other.siteId() != id);
    }

    void lastEditIsOnlySetByUpdatedNow() {
        Site site;
        for (int i = 0; i < 3; ++i)
            QVERIFY(!site.lastEdit());
        const double before = static_cast<double>(QDateTime::currentMSecsSinceEpoch()) / 1000.0;
        site.updatedNow();
        QVERIFY(site.lastEdit());
        QVERIFY(*site.lastEdit() >= before - 0.001);
    }

    void copiesAreShallow() {
        SitePtr source = filledSite();
        source->setSiteId(std::nullopt);
        source->siteIndex = 4;
        source->lastError = Error::application(1, u"x"_s);
        SitePtr copy = source->copy();
        QVERIFY(source->siteId().size() > 0);
        QCOMPARE(copy->siteId(), source->siteId());
        QCOMPARE(copy->siteIndex, 0);
        QVERIFY(!copy->lastError);
        QCOMPARE(copy->mandatoryFiles.get(), source->mandatoryFiles.get());
        QCOMPARE(copy->lastCommitDeployed.get(), source->lastCommitDeployed.get());
        QCOMPARE(copy->commits.get(), source->commits.get());
        QCOMPARE(copy->name, source->name);
        // The list action "duplicate" gives the copy an id of its own.
        copy->generateSiteId();
        QVERIFY(copy->siteId() != source->siteId());
    }

    void archiveKeysOrderAndRoundTrip() {
        SitePtr site = filledSite();
        site->siteIndex = 7;
        site->lastError = Error::application(2, u"never stored"_s);
        const QCborMap map = site->encode();
        QStringList keys;
        for (auto it = map.begin(); it != map.end(); ++it)
            keys.append(it.key().toString());
        QCOMPARE(keys, (QStringList{u"siteId"_s,
                                    u"version"_s,
                                    u"name"_s,
                                    u"lastEdit"_s,
                                    u"host"_s,
                                    u"username"_s,
                                    u"password"_s,
                                    u"localPath"_s,
                                    u"syncRootPath"_s,
                                    u"bookmarkData"_s,
                                    u"remotePath"_s,
                                    u"lastCommitDeployed"_s,
                                    u"deployBranch"_s,
                                    u"commits"_s,
                                    u"branches"_s,
                                    u"protocol"_s,
                                    u"isValid"_s,
                                    u"autoDeploy"_s,
                                    u"port"_s,
                                    u"passiveMode"_s,
                                    u"preDeployScriptLocal"_s,
                                    u"postDeployScriptLocal"_s,
                                    u"preDeployScriptRemote"_s,
                                    u"postDeployScriptRemote"_s,
                                    u"sshKeyPath"_s,
                                    u"mandatoryFiles"_s,
                                    u"ignoredFiles"_s,
                                    u"remotePreConnectionString"_s,
                                    u"remotePostConnectionString"_s}));
        QVERIFY(map.value(u"isValid"_s).isBool());
        QVERIFY(map.value(u"passiveMode"_s).isBool());

        const auto back = Sites::unarchive(Sites::archive({site}));
        QVERIFY(back && back->size() == 1);
        const SitePtr s = back->first();
        QCOMPARE(s->siteId(), site->siteId());
        QCOMPARE(s->siteIndex, 0);
        QVERIFY(!s->lastError);
        QCOMPARE(s->password, u"in-memory"_s);
        QCOMPARE(s->syncRootPath, QString());
        QVERIFY(s->syncRootPath.has_value());
        QVERIFY(!s->postDeployScriptLocal);
        QCOMPARE(s->bookmarkData, site->bookmarkData);
        QCOMPARE(s->lastCommitDeployed->sha1, u"a1b2c3d"_s);
        QCOMPARE(s->lastCommitDeployed->deployedWhen, site->lastCommitDeployed->deployedWhen);
        QCOMPARE(s->commits->size(), 1);
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

    void jsonObjectOfAnEmptySite() {
        Site site;
        const QJsonObject json = site.jsonObject();
        QCOMPARE(json.size(), 27);
        QVERIFY(json.value(u"password"_s).isNull());
        QVERIFY(json.value(u"name"_s).isNull());
        QVERIFY(json.value(u"lastCommitDeployed"_s).isNull());
        QVERIFY(json.value(u"mandatoryFiles"_s).isNull());
        QCOMPARE(json.value(u"passiveMode"_s), QJsonValue(true)); // the id read upgraded the record
        QVERIFY(json.value(u"exportDate"_s).isDouble());
        QCOMPARE(json.value(u"siteIndex"_s), QJsonValue(0));
        QCOMPARE(json.value(u"version"_s), QJsonValue(u"2"_s));
        QVERIFY(!json.contains(u"bookmarkData"_s) && !json.contains(u"commits"_s) &&
                !json.contains(u"isValid"_s));
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

    void jsonReadsLeniently() {
        const auto read = [](const char* json) {
            return Site::initWithDict(QJsonDocument::fromJson(QByteArray(json)).object());
        };
        QCOMPARE(read("{\"siteIndex\": \"3\", \"passiveMode\": \"true\"}")->siteIndex, 3);
        QVERIFY(read("{\"siteIndex\": \"3\", \"passiveMode\": \"true\"}")->passiveMode);
        QVERIFY(!read("{\"passiveMode\": \"false\"}")->passiveMode);
        QVERIFY(!read("{\"passiveMode\": null}")->passiveMode);
        QCOMPARE(read("{\"siteIndex\": null}")->siteIndex, 0);
        QCOMPARE(read("{\"siteIndex\": \" -12abc\"}")->siteIndex, -12);
        QCOMPARE(read("{\"port\": 2121}")->port, u"2121"_s);

        const SitePtr missing = read("{}");
        QVERIFY(!missing->name && !missing->host && !missing->password);
        QVERIFY(missing->lastCommitDeployed); // always an object
        QVERIFY(!missing->lastCommitDeployed->sha1);
        QCOMPARE(missing->mandatoryFiles->size(), 0);

        // Entries that are not JSON texts become entries with empty fields.
        const SitePtr odd =
            read("{\"mandatoryFiles\": [\"not json\", 3, {\"name\": \"x\"}, \"{\\\"name\\\": null}\"],\n"
                 "                                     \"name\": [\"wrong\", \"type\"], "
                 "\"lastCommitDeployed\": \"abc\", \"branches\": \"x\"}");
        QCOMPARE(odd->mandatoryFiles->size(), 4);
        QVERIFY(!odd->mandatoryFiles->at(0)->name);
        QCOMPARE(odd->mandatoryFiles->at(3)->name, QString());
        QVERIFY(!odd->name);
        QVERIFY(!odd->lastCommitDeployed->sha1);
        QVERIFY(!odd->branches);
    }
};

QTEST_GUILESS_MAIN(TestSite)
#include "tst_site.moc"
