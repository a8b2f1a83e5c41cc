#include "DeploySites.h"
#include "TestEnvironment.h"
#include "keychain/FDKeychain.h"
#include "keychain/KeychainJobRunner.h"
#include "keychain/TWPasswords.h"

#include <QCborValue>
#include <QTest>

using namespace tw;
using namespace Qt::StringLiterals;

// Runs against a real, unlocked gnome-keyring on the test's private bus.
class TestKeychain : public QObject {
    Q_OBJECT

private slots:
    void initTestCase() { test::TestEnvironment::isolate(); }

    void secretsByKindAndSite() {
        TWPasswords::setPassword(u"s3cret:with colon"_s, u"site-1"_s);
        // A second save updates the item instead of failing as a duplicate.
        TWPasswords::setPassword(u"changed"_s, u"site-1"_s);
        QCOMPARE(TWPasswords::getPasswordForSite(u"site-1"_s), u"changed"_s);
        QVERIFY(!TWPasswords::getPasswordForSite(u"site-2"_s));
        QVERIFY(!TWPasswords::getPassphraseForSite(u"site-1"_s));
        TWPasswords::setPassword(std::nullopt, u"site-1"_s);
        QVERIFY(!TWPasswords::getPasswordForSite(u"site-1"_s));

        // An empty pass phrase is kept as none at all.
        TWPasswords::setPassphrase(u"phrase"_s, u"site-3"_s);
        QCOMPARE(TWPasswords::getPassphraseForSite(u"site-3"_s), u"phrase"_s);
        TWPasswords::setPassphrase(QString(), u"site-3"_s);
        std::optional<Error> error;
        QVERIFY(!FDKeychain::rawDataForKey(u"passphrase-site-3"_s, u"Tarnwell"_s, &error));
        QCOMPARE(error->code, FDKeychain::errSecItemNotFound);

        // Data that is not an archived text is an error, never a password.
        QCOMPARE(KeychainJobRunner::write(u"svc"_s, u"raw"_s, "\xff\x00garbage").outcome,
                 KeychainJobRunner::Outcome::Success);
        QVERIFY(!FDKeychain::itemForKey(u"raw"_s, u"svc"_s, &error));
        QCOMPARE(error->code, FDKeychain::decodingFailed);
    }

    // A site whose password the store does not hold (an SFTP site that logs
    // in with a key) deploys: only a store that fails stops the set-up.
    void noStoredPasswordIsNoFailure() {
        test::RecordingDeployerDelegate delegate;
        SitePtr site = Site::newSite();
        site->protocol = u"SFTP"_s;
        site->username = u"root"_s;
        site->sshKeyPath = u"/nonexistent/key"_s;
        Deployer deployer(site);
        deployer.setDelegate(&delegate);
        deployer.setupTransporter();
        QVERIFY2(delegate.errors.isEmpty(), qPrintable(delegate.errors.value(0).localizedDescription));
        QVERIFY(deployer.getTransporter());
    }
};

QTEST_GUILESS_MAIN(TestKeychain)
#include "tst_keychain.moc"
