#include "ScriptedInteraction.h"
#include "TestEnvironment.h"
#include "Traces.h"
#include "app/Preferences.h"
#include "keychain/TWPasswords.h"
#include "model/ExportSites.h"
#include "model/ImportSites.h"
#include "model/SiteListActions.h"
#include "model/Sites.h"

#include <QCborArray>
#include <QCoreApplication>
#include <QDateTime>
#include <QDir>
#include <QFile>
#include <QFileInfo>
#include <QJsonArray>
#include <QJsonDocument>
#include <QJsonObject>
#include <QProcess>
#include <QTemporaryDir>
#include <QTest>

using namespace tw;
using namespace Qt::StringLiterals;

namespace {

SitePtr namedSite(const QString& name) {
    SitePtr site = Site::newSite();
    site->name = name;
    site->host = name + u".example.org"_s;
    site->username = u"user"_s;
    return site;
}

QByteArray preferencesFile() {
    if (!Preferences::instance().synchronize())
        qFatal("the preferences could not be saved");
    return test::readFile(Preferences::instance().fileName());
}

QByteArray storedList() {
    return Preferences::instance().dataValue(u"sites"_s).value_or(QByteArray());
}

bool privateFile(const QString& path) {
    return (QFile::permissions(path) & (QFile::ReadGroup | QFile::ReadOther | QFile::WriteOther)) == 0;
}

// Another process that records a deployment in the same preferences file,
// as `tarnwell-cli watch` does while the window runs.
bool recordDeploymentElsewhere(const QString& siteId, const QString& sha1) {
    QProcess other;
    other.start(QCoreApplication::applicationFilePath(),
                {u"--record-deployment"_s, Preferences::instance().fileName(), siteId, sha1});
    if (!other.waitForFinished(60000))
        return false;
    return other.exitStatus() == QProcess::NormalExit && other.exitCode() == 0;
}

} // namespace

// The site record and the stored site list, its export and import: the list
// holds no secret, two processes that save it keep each other's changes, and
// a list that cannot be read whole is never overwritten unless what could not
// be read is kept. Runs with a real keyring.
class TestSiteStore : public QObject {
    Q_OBJECT

    QTemporaryDir m_dir;

    // Imports the file and answers the alerts it raises.
    test::ScriptedInteraction importing(const QString& name, const QByteArray& content) {
        test::writeFile(m_dir.filePath(name), content);
        test::ScriptedInteraction ui;
        ui.openPanelAnswer = m_dir.filePath(name);
        ImportSites(ui).browseFiles();
        return ui;
    }

private slots:
    void initTestCase() { test::TestEnvironment::isolate(); }
    void init() { test::TestEnvironment::resetPreferences(); }

    // The records keep an absent value apart from an empty one; the stored
    // form carries neither the password nor the repository's history.
    void recordsKeepAbsentApartFromEmpty() {
        SitePtr site = namedSite(u"Example"_s);
        site->password = u"in-memory"_s;
        site->syncRootPath = QString();
        site->lastCommitDeployed = std::make_shared<Commit>();
        site->lastCommitDeployed->sha1 = u"a1b2c3d"_s;
        site->lastCommitDeployed->deployedWhen = QDateTime::fromMSecsSinceEpoch(86400500, Qt::UTC);
        site->commits = std::make_shared<CommitList>(CommitList{site->lastCommitDeployed});
        const QCborMap map = site->encode();
        QVERIFY(map.value(u"password"_s).isNull());
        QVERIFY(map.value(u"commits"_s).isNull());

        const auto back = Sites::unarchive(Sites::archive({site}));
        QVERIFY(back && back->size() == 1);
        const SitePtr s = back->first();
        QCOMPARE(s->siteId(), site->siteId());
        QVERIFY(!s->password);
        QCOMPARE(s->syncRootPath, QString());
        QVERIFY(s->syncRootPath.has_value());
        QVERIFY(!s->postDeployScriptLocal);
        QVERIFY(!s->lastCommitDeployed->author);
        QCOMPARE(s->lastCommitDeployed->deployedWhen, site->lastCommitDeployed->deployedWhen);
        QVERIFY(!Sites::unarchive("not cbor at all"));
        QCOMPARE(Sites::unarchive(QCborValue(QCborArray{}).toCbor())->size(), 0);

        const FilePtr file = File::initWithPath(u"x/y.txt"_s);
        file->status = QString();
        const FilePtr fileBack = File::decode(QCborValue::fromCbor(file->encode().toCborValue().toCbor()));
        QVERIFY(fileBack && fileBack->status.has_value() && fileBack->status->isEmpty());
        QVERIFY(!fileBack->gitStatus);
        QVERIFY(!File::decode(QCborValue(42)));
    }

    // A list an earlier version stored with passwords: each moves into the
    // secret store, where a password already stored wins; the file keeps none,
    // nor a password typed later.
    void earlierListMovesItsPasswordsIntoTheSecretStore() {
        const SitePtr moved = namedSite(u"moved"_s);
        const SitePtr alreadyStored = namedSite(u"already"_s);
        QVERIFY(TWPasswords::setPassword(u"Tw-in-the-store-9"_s, alreadyStored->siteId()));
        QCborArray array;
        for (const auto& [site, password] :
             {std::pair{moved, u"Tw-old-moved-1"_s}, std::pair{alreadyStored, u"Tw-old-copy-2"_s}}) {
            QCborMap map = site->encode();
            map.insert(u"password"_s, password);
            array.append(map);
        }
        Preferences::instance().setValue(u"sites"_s, QCborValue(array).toCbor());
        QVERIFY(preferencesFile().contains("Tw-old-moved-1"));

        SiteList loaded = Sites().loadAll().value_or(SiteList());
        QCOMPARE(loaded.size(), 2);
        QCOMPARE(TWPasswords::getPasswordForSite(moved->siteId()), u"Tw-old-moved-1"_s);
        QCOMPARE(TWPasswords::getPasswordForSite(alreadyStored->siteId()), u"Tw-in-the-store-9"_s);
        QVERIFY(!loaded.first()->password);

        loaded.first()->password = u"Tw-typed-3"_s;
        QVERIFY(Sites().storeWithSites(loaded));
        const QByteArray file = preferencesFile();
        for (const char* secret : {"Tw-old-moved-1", "Tw-old-copy-2", "Tw-typed-3"})
            QVERIFY2(!file.contains(secret), secret);
        QCOMPARE(Sites().loadAll()->size(), 2);
    }

    // `tarnwell-cli watch 1` records a deployment of site 1 while the window,
    // which read the list before, saves an edit of site 0; then the other way
    // round.
    void anotherProcessesChangeIsNotUndone() {
        const SitePtr first = namedSite(u"first"_s);
        const SitePtr second = namedSite(u"second"_s);
        Sites().storeWithSites({first, second});
        SitePtr edited = Sites().loadAll()->at(0);
        // A change of our own that waits for the delayed save.
        Preferences::instance().setBool(u"sitesCollapsed"_s, true);

        QVERIFY(recordDeploymentElsewhere(second->siteId(), u"abc1234"_s));
        edited->name = u"first, edited"_s;
        QVERIFY(SiteListActions::replace(0, edited));
        QVERIFY(preferencesFile().contains("sitesCollapsed=true"));

        QVERIFY(recordDeploymentElsewhere(first->siteId(), u"def5678"_s));
        auto commit = std::make_shared<Commit>();
        commit->sha1 = u"0a0b0c0"_s;
        QVERIFY(Sites::saveDeployment(second->siteId(), commit));
        const SiteList last = *Sites().loadAll();
        QCOMPARE(last.at(0)->name, u"first, edited"_s);
        QCOMPARE(last.at(0)->lastCommitDeployed->sha1, u"def5678"_s);
        QCOMPARE(last.at(1)->lastCommitDeployed->sha1, u"0a0b0c0"_s);
    }

    // A list that cannot be read whole is never taken for "no sites": what
    // can be read loads, the person is told once, and no save replaces the
    // list until a private backup of it is written.
    void unreadableListIsKeptBeforeAnySave() {
        QCborArray array{QCborValue(namedSite(u"readable"_s)->encode()), QCborValue(u"broken entry"_s),
                         QCborValue(namedSite(u"cut"_s)->encode())};
        QByteArray broken = QCborValue(array).toCbor();
        broken.chop(20);
        Preferences::instance().setValue(u"sites"_s, broken);

        // root may write in any folder: folders that stand where the backup
        // would go (one for each second of the next two minutes) stop it.
        const QDir folder = QFileInfo(Preferences::instance().fileName()).absoluteDir();
        QStringList blockers;
        const QDateTime now = QDateTime::currentDateTime();
        for (int second = -2; second < 120; ++second) {
            blockers.append(folder.filePath(u"sites-unreadable-"_s +
                                            now.addSecs(second).toString(u"yyyyMMdd-HHmmss"_s) + u".cbor"_s));
            QVERIFY(folder.mkpath(blockers.last()));
        }

        const SiteList loaded = Sites().loadAll().value_or(SiteList());
        QCOMPARE(loaded.size(), 1);
        QVERIFY(Sites::takeLoadProblem());
        Sites().loadAll();
        QVERIFY(!Sites::takeLoadProblem()); // once per run of the program

        loaded.first()->name = u"renamed"_s;
        QVERIFY(!Sites().storeWithSites(loaded));
        QCOMPARE(storedList(), broken);

        for (const QString& blocker : std::as_const(blockers))
            QVERIFY(QDir(blocker).removeRecursively());
        QVERIFY(Sites().storeWithSites(loaded));
        QCOMPARE(Sites().loadAll()->first()->name, u"renamed"_s);
        const QStringList backups = folder.entryList({u"sites-unreadable-*.cbor"_s}, QDir::Files);
        QCOMPARE(backups.size(), 1);
        QCOMPARE(test::readFile(folder.filePath(backups.first())), broken);
        QVERIFY(privateFile(folder.filePath(backups.first())));
    }

    // The export carries the passwords in a private file; an import adds
    // sites with ids of their own, never replacing a site or its password,
    // and keeps the passwords in the secret store only.
    void exportThenImport() {
        SitePtr alpha = namedSite(u"alpha"_s);
        alpha->mandatoryFiles = std::make_shared<FileList>(FileList{File::initWithPath(u"robots.txt"_s)});
        QVERIFY(TWPasswords::setPassword(u"pw-alpha"_s, alpha->siteId()));
        Sites().storeWithSites({alpha, namedSite(u"beta"_s)});

        const QString path = m_dir.filePath(u"export.json"_s);
        test::ScriptedInteraction ui;
        ui.savePanelAnswer = path;
        ExportSites(ui).browseDirectory();
        QCOMPARE(ui.alerts.size(), 1); // the warning that passwords are in the file
        QVERIFY(privateFile(path));
        QJsonArray array = QJsonDocument::fromJson(test::readFile(path)).array();
        QCOMPARE(array.size(), 2);
        QCOMPARE(array.at(0).toObject().value(u"password"_s), QJsonValue(u"pw-alpha"_s));
        QVERIFY(array.at(1).toObject().value(u"password"_s).isNull());

        QJsonObject changed = array.at(0).toObject();
        changed.insert(u"password"_s, u"intruder"_s);
        array.replace(0, changed);
        QVERIFY(importing(u"import.json"_s, QJsonDocument(array).toJson()).alerts.isEmpty());
        const SiteList sites = *Sites().loadAll();
        QCOMPARE(sites.size(), 4);
        QCOMPARE(sites[2]->name, alpha->name);
        QVERIFY(sites[2]->siteId() != alpha->siteId());
        QCOMPARE(sites[2]->mandatoryFiles->first()->pathWithFilename, u"robots.txt"_s);
        QCOMPARE(TWPasswords::getPasswordForSite(alpha->siteId()), u"pw-alpha"_s);
        QCOMPARE(TWPasswords::getPasswordForSite(sites[2]->siteId()), u"intruder"_s);
        // The export's null password comes back as an empty one.
        QCOMPARE(TWPasswords::getPasswordForSite(sites[3]->siteId()).value_or(u"x"_s), QString());
        QVERIFY(!preferencesFile().contains("intruder"));
    }

    void brokenImportChangesNothing_data() {
        QTest::addColumn<QByteArray>("content");
        QTest::newRow("not JSON") << QByteArray("{ this is not json");
        QTest::newRow("empty file") << QByteArray();
        QTest::newRow("an object") << QByteArray(R"({"name": "x"})");
    }

    void brokenImportChangesNothing() {
        QFETCH(QByteArray, content);
        Sites().storeWithSites({namedSite(u"kept"_s)});
        const QByteArray stored = storedList();
        QCOMPARE(importing(u"broken.json"_s, content).alerts.size(), 1);
        QCOMPARE(storedList(), stored);
    }
};

int main(int argc, char** argv) {
    QCoreApplication app(argc, argv);
    if (argc == 5 && qstrcmp(argv[1], "--record-deployment") == 0) {
        Preferences::instance().setFileName(QString::fromLocal8Bit(argv[2]));
        auto commit = std::make_shared<Commit>();
        commit->sha1 = QString::fromLocal8Bit(argv[4]);
        return Sites::saveDeployment(QString::fromLocal8Bit(argv[3]), commit) ? 0 : 1;
    }
    TestSiteStore test;
    return QTest::qExec(&test, argc, argv);
}

#include "tst_sitestore.moc"
