#include "DeploySites.h"
#include "TestEnvironment.h"
#include "Traces.h"
#include "app/Logger.h"
#include "app/Preferences.h"
#include "keychain/FDKeychain.h"
#include "keychain/KeychainJobRunner.h"
#include "keychain/TWPasswords.h"
#include "model/ImportSites.h"
#include "model/Sites.h"
#include "transfer/Deployer.h"

#include <QCborArray>
#include <QElapsedTimer>
#include <QFile>
#include <QJsonArray>
#include <QJsonDocument>
#include <QProcess>
#include <QTemporaryDir>
#include <QTest>

using namespace tw;
using namespace Qt::StringLiterals;

// The secret store missing, or present but silent: nothing crashes, nothing
// waits longer than the time limit, reads give nothing and writes fail.
class TestKeychainUnavailable : public QObject {
    Q_OBJECT

    // Runs a call, which gives up after the time limit; the bound leaves a
    // loaded machine seconds of room, far below a call that would wait for
    // ever.
    static void withinTheLimit(const std::function<void()>& call) {
        QElapsedTimer clock;
        clock.start();
        call();
        QVERIFY2(clock.elapsed() < KeychainJobRunner::timeout() + 4000,
                 qPrintable(QString::number(clock.elapsed())));
    }

    void expectUnavailable(qint64 expectedCode) {
        withinTheLimit([] { QVERIFY(!TWPasswords::getPasswordForSite(u"site"_s)); });
        withinTheLimit([] { QVERIFY(!TWPasswords::setPassword(u"pw"_s, u"site"_s)); });
        std::optional<Error> error;
        withinTheLimit([&] { QVERIFY(!FDKeychain::saveItem(u"x"_s, u"k"_s, u"svc"_s, &error)); });
        QCOMPARE(error->code, expectedCode);

        // A deployment never starts without the password it should have:
        // it stops before any connection, saying why.
        test::RecordingDeployerDelegate delegate;
        SitePtr site = Site::newSite();
        site->username = u"webmaster"_s;
        site->host = u"127.0.0.1"_s;
        Deployer deployer(site);
        deployer.setDelegate(&delegate);
        withinTheLimit([&] { deployer.setupTransporter(); });
        QVERIFY(!deployer.getTransporter());
        QCOMPARE(delegate.errors.size(), 1);
        QVERIFY2(delegate.errors.first().localizedDescription.contains(u"secret store"_s),
                 qPrintable(delegate.errors.first().localizedDescription));
    }

    static QByteArray preferencesFile() { return test::readFile(Preferences::instance().fileName()); }

private slots:
    void initTestCase() {
        test::TestEnvironment::isolate();
        KeychainJobRunner::setTimeout(1000);
    }

    // QtKeychain reports a bus without the service as "other error": the undefined-error text.
    void noSecretService() { expectUnavailable(FDKeychain::errSecInternalComponent); }

    // A list stored by an earlier version keeps its passwords while no
    // secret store can take them, through a later save too; an import whose
    // passwords cannot be stored adds nothing, one without passwords needs
    // no secret store.
    void storedListWithoutSecretStore() {
        test::TestEnvironment::resetPreferences();
        SitePtr site = Site::newSite();
        QCborMap map = site->encode();
        map.insert(u"password"_s, u"Tw-kept-in-file-5"_s);
        Preferences::instance().setValue(u"sites"_s, QCborValue(QCborArray{map}).toCbor());
        SiteList loaded = Sites().loadAll().value_or(SiteList());
        QCOMPARE(loaded.size(), 1);
        QCOMPARE(loaded.first()->password, u"Tw-kept-in-file-5"_s);
        loaded.first()->name = u"Old, renamed"_s;
        QVERIFY(Sites().storeWithSites(loaded));
        QCOMPARE(Sites().loadAll()->first()->password, u"Tw-kept-in-file-5"_s);
        QVERIFY(!test::readFile(Logger::sharedInstance().logFilePath()).contains("Tw-kept-in-file-5"));

        test::TestEnvironment::resetPreferences();
        QTemporaryDir folder;
        auto importFile = [&folder](const QJsonValue& password) {
            QJsonObject exported = Site::newSite()->jsonObject(std::nullopt);
            exported.insert(u"password"_s, password);
            test::writeFile(folder.filePath(u"import.json"_s), QJsonDocument(QJsonArray{exported}).toJson());
            test::ScriptedInteraction ui;
            ui.openPanelAnswer = folder.filePath(u"import.json"_s);
            ImportSites(ui).browseFiles();
            return ui.alerts;
        };
        const auto refused = importFile(u"Tw-import-6"_s);
        QCOMPARE(refused.size(), 1);
        QVERIFY2(refused.first().informativeText.contains(u"secret store"_s),
                 qPrintable(refused.first().informativeText));
        QVERIFY(!Sites().loadAll());
        QVERIFY(Preferences::instance().synchronize());
        QVERIFY(!preferencesFile().contains("Tw-import-6"));
        QVERIFY(importFile(QJsonValue(QJsonValue::Null)).isEmpty());
        QCOMPARE(Sites().loadAll()->size(), 1);
    }

    void silentSecretService() {
        // Something owns the Secret Service's name on the bus but never answers.
        QProcess squatter;
        squatter.start(u"/usr/bin/python3"_s, {u"-c"_s, u"import dbus, sys, time\n"
                                                        u"bus = dbus.SessionBus()\n"
                                                        u"bus.request_name('org.freedesktop.secrets')\n"
                                                        u"print('ready', flush=True)\n"
                                                        u"time.sleep(60)\n"_s});
        QVERIFY(squatter.waitForReadyRead(10000));
        expectUnavailable(FDKeychain::errSecInteractionNotAllowed);
        squatter.kill();
        squatter.waitForFinished();
    }
};

QTEST_GUILESS_MAIN(TestKeychainUnavailable)
#include "tst_keychain_unavailable.moc"
