#include "ScriptedInteraction.h"
#include "TestEnvironment.h"
#include "app/Logger.h"
#include "app/Preferences.h"
#include "keychain/TWPasswords.h"
#include "model/ExportSites.h"
#include "model/ImportSites.h"
#include "model/Sites.h"

#include <QDir>
#include <QFile>
#include <QJsonArray>
#include <QJsonDocument>
#include <QJsonObject>
#include <QTemporaryDir>
#include <QTest>

#include <sys/stat.h>

using namespace tw;
using namespace Qt::StringLiterals;

// Export and import of the stored sites, with a real keyring.
class TestExportImport : public QObject {
    Q_OBJECT

    QTemporaryDir m_dir;

    static SitePtr site(const QString& name, const std::optional<QString>& password) {
        SitePtr s = Site::newSite();
        s->name = name;
        s->host = name + u".example.org"_s;
        s->username = u"user"_s;
        s->remotePath = u"/www/"_s;
        s->mandatoryFiles = std::make_shared<FileList>(FileList{File::initWithPath(u"robots.txt"_s)});
        TWPasswords::setPassword(password, s->siteId());
        return s;
    }

    QString write(const QString& name, const QByteArray& content) {
        const QString path = m_dir.filePath(name);
        QFile file(path);
        file.open(QIODevice::WriteOnly);
        file.write(content);
        return path;
    }

    static QByteArray storedList() {
        return Preferences::instance().dataValue(u"sites"_s).value_or(QByteArray());
    }

    static QString readLog() {
        QFile file(Logger::sharedInstance().logFilePath());
        file.open(QIODevice::ReadOnly);
        return QString::fromUtf8(file.readAll());
    }

    // Imports the file and answers the alerts it raises.
    static test::ScriptedInteraction importing(const QString& path) {
        test::ScriptedInteraction ui;
        ui.openPanelAnswer = path;
        ImportSites(ui).browseFiles();
        return ui;
    }

private slots:
    void initTestCase() { test::TestEnvironment::isolate(); }
    void init() { test::TestEnvironment::resetPreferences(); }

    void storeBasics() {
        const Sites sites;
        QCOMPARE(sites.total(), 0);
        QVERIFY(!sites.loadAll());
        sites.deleteAll();
        QCOMPARE(sites.total(), 0);
        QCOMPARE(sites.loadAll()->size(), 0);
        QVERIFY(!storedList().isEmpty());
        Preferences::instance().setValue(u"sites"_s, QByteArray("garbage"));
        QVERIFY(!sites.loadAll());
        Preferences::instance().setValue(u"sites"_s, u"not data"_s);
        QCOMPARE(sites.total(), 0);
    }

    void exportThenImportIntoAnEmptyConfiguration() {
        Sites().storeWithSites({site(u"alpha"_s, u"pw-alpha"_s), site(u"beta"_s, std::nullopt)});
        const SiteList before = *Sites().loadAll();

        const QString path = m_dir.filePath(u"export.json"_s);
        test::ScriptedInteraction ui;
        ui.savePanelAnswer = path;
        ExportSites exporter(ui);
        exporter.browseDirectory();
        QCOMPARE(ui.savePanels.first().nameFieldValue, u"Tarnwell.json"_s);
        QCOMPARE(ui.messages(), QStringList{u"Continue export?"_s});
        QCOMPARE(ui.alerts.first().buttons, (QStringList{u"OK"_s, u"Cancel"_s}));
        QCOMPARE(exporter.exportFilePath, path);

        QFile file(path);
        QVERIFY(file.open(QIODevice::ReadOnly));
        const QJsonArray array = QJsonDocument::fromJson(file.readAll()).array();
        QCOMPARE(array.size(), 2);
        QCOMPARE(array.at(0).toObject().size(), 27);
        QCOMPARE(array.at(0).toObject().value(u"password"_s), QJsonValue(u"pw-alpha"_s));
        QVERIFY(array.at(1).toObject().value(u"password"_s).isNull());
        struct stat info {};
        QCOMPARE(::stat(QFile::encodeName(path).constData(), &info), 0);
        QCOMPARE(info.st_mode & 0777, 0600u);

        // A new machine: no stored sites.
        test::TestEnvironment::resetPreferences();
        const auto ui2 = importing(path);
        QVERIFY(ui2.alerts.isEmpty());
        QCOMPARE(ui2.openPanels.first().title, u"Choose file to open"_s);
        QCOMPARE(ui2.openPanels.first().allowedFileTypes, QStringList{u"json"_s});
        QVERIFY(!ui2.openPanels.first().canChooseDirectories);
        const SiteList after = *Sites().loadAll();
        QCOMPARE(after.size(), 2);
        for (int i = 0; i < 2; ++i) {
            QCOMPARE(after[i]->name, before[i]->name);
            QCOMPARE(after[i]->host, before[i]->host);
            QCOMPARE(after[i]->remotePath, before[i]->remotePath);
            QCOMPARE(after[i]->mandatoryFiles->first()->pathWithFilename, u"robots.txt"_s);
            QVERIFY(after[i]->siteId() != before[i]->siteId());
        }
        QCOMPARE(TWPasswords::getPasswordForSite(after[0]->siteId()), u"pw-alpha"_s);
        // The export's null password comes back as an empty one.
        QCOMPARE(TWPasswords::getPasswordForSite(after[1]->siteId()).value_or(u"x"_s), QString());

        // Importing again adds copies with their own ids; nothing is replaced.
        importing(path);
        const SiteList twice = *Sites().loadAll();
        QCOMPARE(twice.size(), 4);
        QVERIFY(twice[2]->siteId() != after[0]->siteId());
        QCOMPARE(TWPasswords::getPasswordForSite(after[0]->siteId()), u"pw-alpha"_s);
    }

    void exportStopsWhenAskedTo() {
        Sites().storeWithSites({site(u"gamma"_s, u"pw"_s)});
        const QString path = m_dir.filePath(u"not-written.json"_s);
        test::ScriptedInteraction cancelled;
        ExportSites(cancelled).browseDirectory();
        QVERIFY(cancelled.alerts.isEmpty());

        test::ScriptedInteraction declined;
        declined.savePanelAnswer = path;
        declined.answers = {u"Cancel"_s};
        ExportSites(declined).browseDirectory();
        QVERIFY(!QFile::exists(path));

        test::ScriptedInteraction unwritable;
        unwritable.savePanelAnswer = u"/nonexistent-folder/Tarnwell.json"_s;
        ExportSites(unwritable).browseDirectory();
        QCOMPARE(unwritable.messages(), (QStringList{u"Continue export?"_s, u"Could not export sites!"_s}));
        QVERIFY(!unwritable.alerts.last().informativeText.isEmpty());
        QVERIFY(readLog().contains(u"Cannot export sites: "_s));
    }

    void brokenFilesChangeNothing_data() {
        QTest::addColumn<QByteArray>("content");
        QTest::addColumn<QString>("message");
        QTest::newRow("not JSON") << QByteArray("{ this is not json") << u"Could not import sites!"_s;
        QTest::newRow("empty file") << QByteArray() << u"Could not import sites!"_s;
        QTest::newRow("binary") << QByteArray("\x00\xff\xfe", 3) << u"Could not import sites!"_s;
        QTest::newRow("an object") << QByteArray(R"({"name": "x"})")
                                   << u"Cannot read JSON file, seems not valid."_s;
        // A bare value at the top is no JSON document at all.
        QTest::newRow("a number") << QByteArray("42") << u"Could not import sites!"_s;
    }

    void brokenFilesChangeNothing() {
        QFETCH(QByteArray, content);
        QFETCH(QString, message);
        Sites().storeWithSites({site(u"kept"_s, u"pw"_s)});
        const QByteArray stored = storedList();
        const auto ui = importing(write(u"broken.json"_s, content));
        QCOMPARE(ui.messages(), QStringList{message});
        QCOMPARE(storedList(), stored);
        if (message == u"Could not import sites!"_s) {
            QVERIFY(!ui.alerts.first().informativeText.isEmpty());
            QVERIFY(readLog().contains(u"Cannot import sites: "_s));
        } else {
            QVERIFY(ui.alerts.first().informativeText.isEmpty());
            QVERIFY(readLog().contains(u"Cannot read JSON-file file://"_s));
        }
    }

    void oddElementsAndMissingFiles() {
        // Elements that are not objects are skipped; an object with nothing
        // useful still becomes a site.
        importing(
            write(u"odd.json"_s,
                  R"([{"name": "one", "siteId": null, "mandatoryFiles": [1, null]}, 3, "x", null, []])"));
        SiteList sites = *Sites().loadAll();
        QCOMPARE(sites.size(), 1);
        QCOMPARE(sites.first()->name, u"one"_s);
        QCOMPARE(sites.first()->mandatoryFiles->size(), 2);

        const auto ui = importing(m_dir.filePath(u"missing.json"_s));
        QCOMPARE(ui.messages(), QStringList{u"Could not import sites!"_s});
        QCOMPARE(Sites().total(), 1);

        test::ScriptedInteraction cancelled;
        ImportSites(cancelled).browseFiles();
        QCOMPARE(Sites().total(), 1);
    }

    void importNeverTakesAnExistingId() {
        SitePtr existing = site(u"existing"_s, u"original"_s);
        Sites().storeWithSites({existing});
        QJsonObject clash = existing->jsonObject();
        clash.insert(u"password"_s, u"intruder"_s);
        importing(write(u"clash.json"_s, QJsonDocument(QJsonArray{clash}).toJson()));
        const SiteList sites = *Sites().loadAll();
        QCOMPARE(sites.size(), 2);
        QVERIFY(sites[1]->siteId() != existing->siteId());
        QCOMPARE(TWPasswords::getPasswordForSite(existing->siteId()), u"original"_s);
        QCOMPARE(TWPasswords::getPasswordForSite(sites[1]->siteId()), u"intruder"_s);
    }
};

QTEST_GUILESS_MAIN(TestExportImport)
#include "tst_export_import.moc"
