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
        test::SystemLogCapture log;
        withinTheLimit([] { QVERIFY(!TWPasswords::getPasswordForSite(u"site"_s)); });
        QVERIFY(log.contains(u"Got an error reading password: "_s));
        withinTheLimit([] { TWPasswords::setPassword(u"pw"_s, u"site"_s); });
        QVERIFY(log.contains(u"Could not save 'password-site' in the secret store"_s));
        withinTheLimit([] { QVERIFY(!TWPasswords::getPassphraseForSite(u"site"_s)); });
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
        QVERIFY2(delegate.errors.first().localizedDescription.startsWith(
                     u"The password could not be read from the secret store"_s),
                 qPrintable(delegate.errors.first().localizedDescription));
    }

    static QByteArray preferencesFile() { return test::readFile(Preferences::instance().fileName()); }
    static QString readLog() {
        return QString::fromUtf8(test::readFile(Logger::sharedInstance().logFilePath()));
    }

private slots:
    void initTestCase() {
        test::TestEnvironment::isolate();
        KeychainJobRunner::setTimeout(1000);
    }

    // QtKeychain reports a bus without the service as "other error": the undefined-error text.
    void noSecretService() { expectUnavailable(FDKeychain::errSecInternalComponent); }

    // A list stored by an earlier version keeps its passwords while no
    // secret store can take them: nothing the person had is lost, and a
    // later save keeps them too.
    void earlierListKeepsItsPasswordsWithoutSecretStore() {
        test::TestEnvironment::resetPreferences();
        SitePtr site = Site::newSite();
        site->name = u"Old"_s;
        site->username = u"user"_s;
        QCborMap map = site->encode();
        map.insert(u"password"_s, u"Tw-kept-in-file-5"_s);
        Preferences::instance().setValue(u"sites"_s, QCborValue(QCborArray{map}).toCbor());
        QVERIFY(Preferences::instance().synchronize());

        SiteList loaded = Sites().loadAll().value_or(SiteList());
        QCOMPARE(loaded.size(), 1);
        QCOMPARE(loaded.first()->password, u"Tw-kept-in-file-5"_s);
        QVERIFY(preferencesFile().contains("Tw-kept-in-file-5"));
        QVERIFY2(readLog().contains(u"stays in the stored site list"_s), qPrintable(readLog()));
        QVERIFY(!readLog().contains(u"Tw-kept-in-file-5"_s));

        loaded.first()->name = u"Old, renamed"_s;
        QVERIFY(Sites().storeWithSites(loaded));
        QVERIFY(preferencesFile().contains("Tw-kept-in-file-5"));
        QCOMPARE(Sites().loadAll()->first()->name, u"Old, renamed"_s);
        QCOMPARE(Sites().loadAll()->first()->password, u"Tw-kept-in-file-5"_s);
    }

    // An import whose passwords cannot be stored adds nothing, and says why;
    // one without passwords needs no secret store.
    void importNeedsTheSecretStoreForPasswords() {
        test::TestEnvironment::resetPreferences();
        QTemporaryDir folder;
        auto importFile = [&folder](const QString& name, const QJsonValue& password) {
            SitePtr site = Site::newSite();
            site->name = name;
            const QString path = folder.filePath(name + u".json"_s);
            QJsonObject exported = site->jsonObject(std::nullopt);
            exported.insert(u"password"_s, password);
            test::writeFile(path, QJsonDocument(QJsonArray{exported}).toJson());
            test::ScriptedInteraction ui;
            ui.openPanelAnswer = path;
            ImportSites(ui).browseFiles();
            return ui.alerts;
        };
        const auto refused = importFile(u"with"_s, u"Tw-import-6"_s);
        QCOMPARE(refused.size(), 1);
        QCOMPARE(refused.first().message, u"Could not import sites!"_s);
        QVERIFY2(refused.first().informativeText.contains(u"secret store"_s),
                 qPrintable(refused.first().informativeText));
        QVERIFY(!Sites().loadAll());
        QVERIFY(!preferencesFile().contains("Tw-import-6"));

        QVERIFY(importFile(u"without"_s, QJsonValue(QJsonValue::Null)).isEmpty());
        QCOMPARE(Sites().loadAll()->size(), 1);
    }

    // The window's Deploy: the alert says the password could not be read,
    // and no curl ever starts.
    void deploymentSaysThePasswordIsMissing() {
        test::TestEnvironment::resetPreferences();
        test::GitRepository repo;
        repo.commit({{u"index.html"_s, "<h1>hello</h1>"}});
        SitePtr site = Site::newSite();
        site->name = u"Blog"_s;
        site->localPath = repo.path();
        site->host = u"127.0.0.1"_s;
        site->port = u"1"_s;
        site->username = u"webmaster"_s;
        site->remotePath = u"www/"_s;
        site->deployBranch = u"main"_s;
        test::storeSites({site});

        test::DeployWindow window;
        QVERIFY(window.view.deployButtonEnabled);
        bool curlSeen = false;
        window.controller.deployButton();
        QVERIFY(QTest::qWaitFor(
            [&] {
                curlSeen = curlSeen || !test::curlDescendants().isEmpty();
                return window.ended.count() > 0;
            },
            30000));
        QVERIFY(!curlSeen);
        QCOMPARE(int(window.waitForEnd().outcome), int(DeployOutcome::SetupFailed));
        QCOMPARE(window.view.alerts.size(), 1);
        QCOMPARE(window.view.alerts.first().message, u"An error occured!"_s);
        QVERIFY2(window.view.alerts.first().informativeText.startsWith(
                     u"The password could not be read from the secret store"_s),
                 qPrintable(window.view.alerts.first().informativeText));
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
