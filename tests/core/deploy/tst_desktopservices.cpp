#include "DBusMockService.h"
#include "TestEnvironment.h"
#include "deploy/DisplaySleepGuard.h"
#include "deploy/UserNotifier.h"

#include <QDBusConnection>
#include <QDBusMessage>
#include <QElapsedTimer>
#include <QSignalSpy>
#include <QTest>

using namespace tw;
using namespace Qt::StringLiterals;

namespace {

const QString screenSaver = u"org.freedesktop.ScreenSaver"_s;
const QString notifications = u"org.freedesktop.Notifications"_s;
const QString notificationsPath = u"/org/freedesktop/Notifications"_s;

} // namespace

class TestDesktopServices : public QObject {
    Q_OBJECT

private slots:
    void initTestCase() {
        test::TestEnvironment::isolate();
        QVERIFY(QDBusConnection::sessionBus().isConnected());
    }

    void notificationReachesTheDesktop() {
        test::DBusMockService mock(notifications, notificationsPath,
                                   {u"--template"_s, u"notification_daemon"_s});
        QVERIFY(mock.start());

        UserNotifier notifier;
        QSignalSpy shown(&notifier, &UserNotifier::notificationShown);
        QSignalSpy failed(&notifier, &UserNotifier::notificationFailed);
        notifier.showNotification(u"Success!"_s, u"All files deployed"_s);
        QTRY_COMPARE_WITH_TIMEOUT(shown.size(), 1, 10000);
        QCOMPARE(failed.size(), 0);

        QCOMPARE(mock.calls().size(), 1);
        QCOMPARE(mock.calls().first().first, u"Notify"_s);
        QVERIFY(mock.calls().first().second.contains(u"All files deployed"_s));
    }

    void displayStaysAwakeWhileHeld() {
        const auto mock = test::DBusMockService::screenSaver();
        QVERIFY(mock);
        {
            DisplaySleepGuard guard;
            guard.take();
            QVERIFY(guard.isHeld());
            guard.take(); // the first cookie is given back first
        }                 // held when the guard goes: given back then
        const QVariantList inhibit{u"Tarnwell"_s, u"Tarnwell is deploying"_s};
        QCOMPARE(mock->calls(), (QList<std::pair<QString, QVariantList>>{{u"Inhibit"_s, inhibit},
                                                                         {u"UnInhibit"_s, {41u}},
                                                                         {u"Inhibit"_s, inhibit},
                                                                         {u"UnInhibit"_s, {42u}}}));
    }

    void noServiceOnTheBus() {
        QVERIFY(!test::nameOnSessionBus(screenSaver));
        QVERIFY(!test::nameOnSessionBus(notifications));
        test::SystemLogCapture log;
        QElapsedTimer clock;
        clock.start();

        DisplaySleepGuard guard;
        guard.take();
        QVERIFY(!guard.isHeld());
        guard.release();
        QVERIFY(log.contains(u"org.freedesktop.ScreenSaver.Inhibit failed"_s));
        QCOMPARE(log.lines().size(), 1);

        UserNotifier notifier;
        QSignalSpy failed(&notifier, &UserNotifier::notificationFailed);
        notifier.showNotification(u"Success!"_s, u"All files deployed"_s);
        QTRY_COMPARE_WITH_TIMEOUT(failed.size(), 1, 5000);
        QVERIFY(log.contains(u"cannot show the notification"_s));
        // Nothing waits for a service that is not there: both give up at once
        // (their own time-outs are 1 and 5 s; the bound leaves room for a
        // loaded machine).
        QVERIFY2(clock.elapsed() < 4500, qPrintable(QString::number(clock.elapsed())));
    }
};

QTEST_GUILESS_MAIN(TestDesktopServices)
#include "tst_desktopservices.moc"
