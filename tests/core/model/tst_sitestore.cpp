#include "TestEnvironment.h"
#include "Traces.h"
#include "app/Preferences.h"
#include "keychain/TWPasswords.h"
#include "model/SiteListActions.h"
#include "model/Sites.h"

#include <QCborArray>
#include <QCoreApplication>
#include <QDateTime>
#include <QDir>
#include <QFile>
#include <QFileInfo>
#include <QProcess>
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

// A list as an earlier version stored it: each site with its password in the
// archive.
QByteArray earlierList(const QList<QPair<SitePtr, QString>>& sites) {
    QCborArray array;
    for (const auto& [site, password] : sites) {
        QCborMap map = site->encode();
        map.insert(u"password"_s, password);
        array.append(map);
    }
    return QCborValue(array).toCbor();
}

QByteArray preferencesFile() {
    return test::readFile(Preferences::instance().fileName());
}

// The "password" entries of the stored archive as they are in the file.
QList<QCborValue> storedPasswordEntries() {
    QList<QCborValue> entries;
    const QByteArray stored = Preferences::instance().dataValue(u"sites"_s).value_or(QByteArray());
    for (const QCborValue& site : QCborValue::fromCbor(stored).toArray()) {
        const QCborMap map = site.toMap();
        entries.append(map.contains(u"password"_s) ? map.value(u"password"_s)
                                                   : QCborValue(QCborValue::Undefined));
    }
    return entries;
}

// Another process that records a deployment in the same preferences file,
// as `tarnwell-cli watch` does while the window runs.
bool recordDeploymentElsewhere(const QString& siteId, const QString& sha1) {
    QProcess other;
    other.start(QCoreApplication::applicationFilePath(),
                {u"--record-deployment"_s, Preferences::instance().fileName(), siteId, sha1});
    if (!other.waitForFinished(60000)) {
        qWarning("the other process did not end");
        return false;
    }
    if (other.exitCode() != 0)
        qWarning("the other process failed: %s", other.readAllStandardError().constData());
    return other.exitStatus() == QProcess::NormalExit && other.exitCode() == 0;
}

} // namespace

// The stored site list as a whole: it holds no secret, two processes that
// save it keep each other's changes, and a list that cannot be read whole is
// never overwritten unless what could not be read is kept. Runs with a real
// keyring.
class TestSiteStore : public QObject {
    Q_OBJECT

private slots:
    void initTestCase() { test::TestEnvironment::isolate(); }
    void init() { test::TestEnvironment::resetPreferences(); }

    void earlierListMovesItsPasswordsIntoTheSecretStore() {
        const SitePtr moved = namedSite(u"moved"_s);
        const SitePtr alreadyStored = namedSite(u"already"_s);
        const SitePtr none = namedSite(u"none"_s);
        QVERIFY(TWPasswords::setPassword(u"Tw-in-the-store-9"_s, alreadyStored->siteId()));
        Preferences::instance().setValue(u"sites"_s, earlierList({{moved, u"Tw-old-moved-1"_s},
                                                                  {alreadyStored, u"Tw-old-copy-2"_s},
                                                                  {none, QString()}}));
        QVERIFY(Preferences::instance().synchronize());
        QVERIFY(preferencesFile().contains("Tw-old-moved-1"));

        const SiteList loaded = Sites().loadAll().value_or(SiteList());
        QCOMPARE(loaded.size(), 3);
        QCOMPARE(TWPasswords::getPasswordForSite(moved->siteId()), u"Tw-old-moved-1"_s);
        // The secret store's password is the one every deployment used.
        QCOMPARE(TWPasswords::getPasswordForSite(alreadyStored->siteId()), u"Tw-in-the-store-9"_s);
        QVERIFY(!TWPasswords::getPasswordForSite(none->siteId()));

        // The file holds the key, never a value.
        const QByteArray file = preferencesFile();
        QVERIFY(!file.contains("Tw-old-moved-1"));
        QVERIFY(!file.contains("Tw-old-copy-2"));
        for (const QCborValue& entry : storedPasswordEntries())
            QVERIFY(entry.isNull());
        for (const SitePtr& site : loaded)
            QVERIFY(!site->password);
        QCOMPARE(Sites().loadAll()->size(), 3);
    }

    void aTypedPasswordIsNeverStoredInTheList() {
        SitePtr site = namedSite(u"typed"_s);
        site->password = u"Tw-typed-3"_s;
        Sites().storeWithSites({site});
        QVERIFY(!preferencesFile().contains("Tw-typed-3"));
        QCOMPARE(storedPasswordEntries(), QList<QCborValue>{QCborValue(QCborValue::Null)});
        QVERIFY(!Sites().loadAll()->first()->password);
    }

    // `tarnwell-cli watch 1` records a deployment of site 1 while the window,
    // which read the list before, saves an edit of site 0.
    void anotherProcessesChangeIsNotUndone() {
        const SitePtr first = namedSite(u"first"_s);
        const SitePtr second = namedSite(u"second"_s);
        Sites().storeWithSites({first, second});
        QCOMPARE(Sites().loadAll()->size(), 2);
        // A change of our own that waits for the delayed save.
        Preferences::instance().setBool(u"sitesCollapsed"_s, true);

        QVERIFY(recordDeploymentElsewhere(second->siteId(), u"abc1234"_s));
        SitePtr edited = Sites().loadAll()->at(0);
        edited->name = u"first, edited"_s;
        QVERIFY(SiteListActions::replace(0, edited));

        const SiteList after = *Sites().loadAll();
        QCOMPARE(after.at(0)->name, u"first, edited"_s);
        QVERIFY(after.at(1)->lastCommitDeployed);
        QCOMPARE(after.at(1)->lastCommitDeployed->sha1, u"abc1234"_s);
        QVERIFY(Preferences::instance().synchronize());
        QVERIFY(preferencesFile().contains("sitesCollapsed=true"));

        // And the other way round: a deployment recorded here keeps what the
        // other process stored meanwhile.
        QVERIFY(recordDeploymentElsewhere(first->siteId(), u"def5678"_s));
        auto commit = std::make_shared<Commit>();
        commit->sha1 = u"0a0b0c0"_s;
        QVERIFY(Sites::saveDeployment(second->siteId(), commit));
        const SiteList last = *Sites().loadAll();
        QCOMPARE(last.at(0)->lastCommitDeployed->sha1, u"def5678"_s);
        QCOMPARE(last.at(0)->name, u"first, edited"_s);
        QCOMPARE(last.at(1)->lastCommitDeployed->sha1, u"0a0b0c0"_s);
    }

    // A list that cannot be read whole, and no backup of it can be written:
    // no save may replace it, until the backup can be written.
    void noSaveWithoutTheBackupOfAnUnreadableList() {
        const SitePtr readable = namedSite(u"readable"_s);
        QCborArray array{QCborValue(readable->encode()), QCborValue(u"broken entry"_s)};
        const QByteArray broken = QCborValue(array).toCbor();
        Preferences::instance().setValue(u"sites"_s, broken);
        QVERIFY(Preferences::instance().synchronize());

        // root may write in any folder: folders that stand where the backup
        // would go (one for each second of the next two minutes) stop it.
        const QDir folder = QFileInfo(Preferences::instance().fileName()).absoluteDir();
        QStringList blockers;
        const QDateTime now = QDateTime::currentDateTime();
        for (int second = -2; second < 120; ++second) {
            const QString name =
                u"sites-unreadable-"_s + now.addSecs(second).toString(u"yyyyMMdd-HHmmss"_s) + u".cbor"_s;
            QVERIFY(folder.mkpath(name));
            blockers.append(folder.filePath(name));
        }

        const SiteList loaded = Sites().loadAll().value_or(SiteList());
        QCOMPARE(loaded.size(), 1);
        const std::optional<QString> problem = Sites::takeLoadProblem();
        QVERIFY(problem);
        QVERIFY2(problem->contains(u"could not be copied aside"_s), qPrintable(*problem));

        loaded.first()->name = u"renamed"_s;
        QVERIFY(!Sites().storeWithSites(loaded));
        QCOMPARE(Preferences::instance().dataValue(u"sites"_s), broken);
        auto commit = std::make_shared<Commit>();
        commit->sha1 = u"abc1234"_s;
        QVERIFY(!Sites::saveDeployment(readable->siteId(), commit));
        SiteListActions::replace(0, loaded.first());
        QCOMPARE(Preferences::instance().dataValue(u"sites"_s), broken);
        QVERIFY(preferencesFile().contains("broken entry"));

        // Once the backup can be written, saving works again.
        for (const QString& blocker : std::as_const(blockers))
            QVERIFY(QDir(blocker).removeRecursively());
        QVERIFY(Sites().storeWithSites(loaded));
        QCOMPARE(Sites().loadAll()->first()->name, u"renamed"_s);
        const QStringList backups = folder.entryList({u"sites-unreadable-*.cbor"_s}, QDir::Files);
        QCOMPARE(backups.size(), 1);
        QCOMPARE(test::readFile(folder.filePath(backups.first())), broken);
    }
};

int main(int argc, char** argv) {
    if (argc == 5 && qstrcmp(argv[1], "--record-deployment") == 0) {
        QCoreApplication app(argc, argv);
        Preferences::instance().setFileName(QString::fromLocal8Bit(argv[2]));
        auto commit = std::make_shared<Commit>();
        commit->sha1 = QString::fromLocal8Bit(argv[4]);
        return Sites::saveDeployment(QString::fromLocal8Bit(argv[3]), commit) ? 0 : 1;
    }
    QCoreApplication app(argc, argv);
    TestSiteStore test;
    return QTest::qExec(&test, argc, argv);
}

#include "tst_sitestore.moc"
