#include "TestEnvironment.h"
#include "deploy/DisplaySleepGuard.h"
#include "deploy/UserNotifier.h"

#include <QDBusArgument>
#include <QDBusConnection>
#include <QDBusConnectionInterface>
#include <QDBusMessage>
#include <QDBusServiceWatcher>
#include <QDBusVariant>
#include <QElapsedTimer>
#include <QEventLoop>
#include <QProcess>
#include <QSignalSpy>
#include <QTest>
#include <QTimer>

#include <memory>

using namespace tw;
using namespace Qt::StringLiterals;

namespace {

const QString screenSaver = u"org.freedesktop.ScreenSaver"_s;
const QString screenSaverPath = u"/org/freedesktop/ScreenSaver"_s;
const QString notifications = u"org.freedesktop.Notifications"_s;
const QString notificationsPath = u"/org/freedesktop/Notifications"_s;

bool nameOnBus(const QString& name) {
    return QDBusConnection::sessionBus().interface()->isServiceRegistered(name).value();
}

// A python3-dbusmock service on the test's private session bus.
class MockService {
public:
    MockService(const QString& name, const QString& path, const QStringList& arguments)
        : m_name(name)
        , m_path(path) {
        m_process.setProcessChannelMode(QProcess::ForwardedErrorChannel);
        m_arguments = QStringList{u"-m"_s, u"dbusmock"_s} + arguments;
    }
    ~MockService() { stop(); }

    // Starts the mock and waits until its name is on the bus (or it died).
    bool start() {
        QDBusServiceWatcher watcher(m_name, QDBusConnection::sessionBus(),
                                    QDBusServiceWatcher::WatchForRegistration);
        QEventLoop loop;
        QObject::connect(&watcher, &QDBusServiceWatcher::serviceRegistered, &loop, &QEventLoop::quit);
        QObject::connect(&m_process, &QProcess::finished, &loop, &QEventLoop::quit);
        QObject::connect(&m_process, &QProcess::errorOccurred, &loop, &QEventLoop::quit);
        QTimer::singleShot(20000, &loop, &QEventLoop::quit);
        m_process.start(u"/usr/bin/python3"_s, m_arguments);
        if (!nameOnBus(m_name))
            loop.exec();
        return nameOnBus(m_name);
    }

    void stop() {
        if (m_process.state() == QProcess::NotRunning)
            return;
        m_process.terminate();
        m_process.waitForFinished(10000);
    }

    QDBusMessage mockCall(const QString& method, const QVariantList& arguments = {}) const {
        QDBusMessage call =
            QDBusMessage::createMethodCall(m_name, m_path, u"org.freedesktop.DBus.Mock"_s, method);
        call.setArguments(arguments);
        return QDBusConnection::sessionBus().call(call);
    }

    // The calls the mock received: method name and arguments, in order.
    QList<std::pair<QString, QVariantList>> calls() const {
        QList<std::pair<QString, QVariantList>> list;
        const QDBusMessage reply = mockCall(u"GetCalls"_s);
        if (reply.type() != QDBusMessage::ReplyMessage || reply.arguments().isEmpty())
            return list;
        const QDBusArgument array = reply.arguments().first().value<QDBusArgument>();
        array.beginArray();
        while (!array.atEnd()) {
            quint64 time = 0;
            QString method;
            QList<QDBusVariant> arguments;
            array.beginStructure();
            array >> time >> method >> arguments;
            array.endStructure();
            QVariantList values;
            for (const QDBusVariant& argument : std::as_const(arguments))
                values.append(argument.variant());
            list.append({method, values});
        }
        array.endArray();
        return list;
    }

private:
    QString m_name;
    QString m_path;
    QStringList m_arguments;
    QProcess m_process;
};

} // namespace

class TestDesktopServices : public QObject {
    Q_OBJECT

private slots:
    void initTestCase() {
        test::TestEnvironment::isolate();
        QVERIFY(QDBusConnection::sessionBus().isConnected());
    }

    void notificationReachesTheDesktop() {
        MockService mock(notifications, notificationsPath, {u"--template"_s, u"notification_daemon"_s});
        QVERIFY(mock.start());

        UserNotifier notifier;
        QSignalSpy shown(&notifier, &UserNotifier::notificationShown);
        QSignalSpy failed(&notifier, &UserNotifier::notificationFailed);
        notifier.showNotification(u"Success!"_s, u"All files deployed"_s);
        QTRY_COMPARE_WITH_TIMEOUT(shown.size(), 1, 10000);
        QCOMPARE(failed.size(), 0);

        const auto calls = mock.calls();
        QCOMPARE(calls.size(), 1);
        QCOMPARE(calls.first().first, u"Notify"_s);
        const QVariantList arguments = calls.first().second;
        QCOMPARE(arguments.size(), 8);
        QCOMPARE(arguments.at(0).toString(), u"Tarnwell"_s);
        QCOMPARE(arguments.at(1).toUInt(), 0u);
        QCOMPARE(arguments.at(3).toString(), u"Success!"_s);
        QCOMPARE(arguments.at(4).toString(), u"All files deployed"_s);
        QCOMPARE(arguments.at(7).toInt(), -1);
    }

    void displayStaysAwakeWhileHeld() {
        MockService mock(screenSaver, screenSaverPath, {screenSaver, screenSaverPath, screenSaver});
        QVERIFY(mock.start());
        // Each Inhibit hands out a new cookie: 41, 42, ...
        QCOMPARE(mock.mockCall(u"AddMethod"_s, {QString(), u"Inhibit"_s, u"ss"_s, u"u"_s,
                                                u"self.cookie = getattr(self, 'cookie', 40) + 1\nret = "
                                                u"self.cookie"_s})
                     .type(),
                 QDBusMessage::ReplyMessage);
        QCOMPARE(
            mock.mockCall(u"AddMethod"_s, {QString(), u"UnInhibit"_s, u"u"_s, QString(), QString()}).type(),
            QDBusMessage::ReplyMessage);

        {
            DisplaySleepGuard guard;
            guard.release(); // not held: nothing is sent
            QVERIFY(!guard.isHeld());
            guard.take();
            QVERIFY(guard.isHeld());
            guard.take(); // the first cookie is given back first
            guard.release();
            QVERIFY(!guard.isHeld());
            guard.release();
            guard.take(); // held when the guard goes: given back then
        }

        const auto calls = mock.calls();
        const QVariantList inhibit{u"Tarnwell"_s, u"Tarnwell is deploying"_s};
        QCOMPARE(calls.size(), 6);
        QCOMPARE(calls.at(0), std::pair(u"Inhibit"_s, inhibit));
        QCOMPARE(calls.at(1).first, u"UnInhibit"_s);
        QCOMPARE(calls.at(1).second, QVariantList{41u});
        QCOMPARE(calls.at(2), std::pair(u"Inhibit"_s, inhibit));
        QCOMPARE(calls.at(3).first, u"UnInhibit"_s);
        QCOMPARE(calls.at(3).second, QVariantList{42u});
        QCOMPARE(calls.at(4), std::pair(u"Inhibit"_s, inhibit));
        QCOMPARE(calls.at(5).first, u"UnInhibit"_s);
        QCOMPARE(calls.at(5).second, QVariantList{43u});
    }

    void noServiceOnTheBus() {
        QVERIFY(!nameOnBus(screenSaver));
        QVERIFY(!nameOnBus(notifications));
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
        QVERIFY2(clock.elapsed() < 1000, qPrintable(QString::number(clock.elapsed())));
    }
};

QTEST_GUILESS_MAIN(TestDesktopServices)
#include "tst_desktopservices.moc"
