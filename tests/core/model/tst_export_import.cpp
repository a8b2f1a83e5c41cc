#include "ScriptedInteraction.h"
#include "TestEnvironment.h"
#include "Traces.h"
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
        test::writeFile(m_dir.filePath(name), content);
        return m_dir.filePath(name);
    }

    static QByteArray storedList() {
        return Preferences::instance().dataValue(u"sites"_s).value_or(QByteArray());
    }

    static QString readLog() {
        return QString::fromUtf8(test::readFile(Logger::sharedInstance().logFilePath()));
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

    void exportThenImportIntoAnEmptyConfiguration() {
        Sites().storeWithSites({site(u"alpha"_s, u"pw-alpha"_s), site(u"beta"_s, std::nullopt)});
        const SiteList before = *Sites().loadAll();

        const QString path = m_dir.filePath(u"export.json"_s);
        test::ScriptedInteraction ui;
        ui.savePanelAnswer = path;
        ExportSites exporter(ui);
        exporter.browseDirectory();
        QCOMPARE(ui.messages(), QStringList{u"Continue export?"_s});
        QCOMPARE(exporter.exportFilePath, path);

        const QJsonArray array = QJsonDocument::fromJson(test::readFile(path)).array();
        QCOMPARE(array.size(), 2);
        QCOMPARE(array.at(0).toObject().value(u"password"_s), QJsonValue(u"pw-alpha"_s));
        QVERIFY(array.at(1).toObject().value(u"password"_s).isNull());
        struct stat info {};
        QCOMPARE(::stat(QFile::encodeName(path).constData(), &info), 0);
        QCOMPARE(info.st_mode & 0777, 0600u);

        // A new machine: no stored sites.
        test::TestEnvironment::resetPreferences();
        const auto ui2 = importing(path);
        QVERIFY(ui2.alerts.isEmpty());
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

    void brokenFilesChangeNothing_data() {
        QTest::addColumn<QByteArray>("content");
        QTest::addColumn<QString>("message");
        QTest::newRow("not JSON") << QByteArray("{ this is not json") << u"Could not import sites!"_s;
        QTest::newRow("empty file") << QByteArray() << u"Could not import sites!"_s;
        QTest::newRow("an object") << QByteArray(R"({"name": "x"})")
                                   << u"Cannot read JSON file, seems not valid."_s;
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
        // The imported password is in the secret store only.
        QVERIFY(Preferences::instance().synchronize());
        QVERIFY(!test::readFile(Preferences::instance().fileName()).contains("intruder"));
        QVERIFY(!sites[1]->password);
    }
};

QTEST_GUILESS_MAIN(TestExportImport)
#include "tst_export_import.moc"
