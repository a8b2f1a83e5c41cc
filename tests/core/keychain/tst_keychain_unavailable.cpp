#include "TestEnvironment.h"
#include "keychain/FDKeychain.h"
#include "keychain/KeychainJobRunner.h"
#include "keychain/TWPasswords.h"

#include <QElapsedTimer>
#include <QProcess>
#include <QTest>

using namespace tw;
using namespace Qt::StringLiterals;

// The secret store missing, or present but silent: nothing crashes, nothing
// waits longer than the time limit, reads give nothing and writes fail.
class TestKeychainUnavailable : public QObject {
    Q_OBJECT

    // Each call gives up after the time limit; the bound leaves a loaded
    // machine seconds of room, far below a call that would wait for ever.
    static void withinTheLimit(const QElapsedTimer& clock) {
        QVERIFY2(clock.elapsed() < KeychainJobRunner::timeout() + 4000,
                 qPrintable(QString::number(clock.elapsed())));
    }

    void expectUnavailable(qint64 expectedCode) {
        test::SystemLogCapture log;
        QElapsedTimer clock;
        clock.start();
        QVERIFY(!TWPasswords::getPasswordForSite(u"site"_s));
        withinTheLimit(clock);
        QVERIFY(log.contains(u"Got an error reading password: "_s));
        clock.restart();
        TWPasswords::setPassword(u"pw"_s, u"site"_s);
        withinTheLimit(clock);
        QVERIFY(log.contains(u"Could not save 'password-site' in the secret store"_s));
        clock.restart();
        QVERIFY(!TWPasswords::getPassphraseForSite(u"site"_s));
        withinTheLimit(clock);

        std::optional<Error> error;
        clock.restart();
        QVERIFY(!FDKeychain::saveItem(u"x"_s, u"k"_s, u"svc"_s, &error));
        withinTheLimit(clock);
        QCOMPARE(error->code, expectedCode);
    }

private slots:
    void initTestCase() {
        test::TestEnvironment::isolate();
        KeychainJobRunner::setTimeout(1000);
    }

    // QtKeychain reports a bus without the service as "other error": the undefined-error text.
    void noSecretService() { expectUnavailable(FDKeychain::errSecInternalComponent); }

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
