#pragma once

#include <QDBusMessage>
#include <QList>
#include <QProcess>
#include <QString>
#include <QStringList>
#include <QVariantList>

#include <memory>
#include <utility>

namespace tw::test {

// A python3-dbusmock service on the test's private session bus (the
// desktop's notification or screen saver service), started by start() and
// stopped with the object.
//
//     DBusMockService mock(u"org.freedesktop.ScreenSaver"_s, u"/org/freedesktop/ScreenSaver"_s,
//                          {name, path, interface});
//     QVERIFY(mock.start());
//     mock.mockCall(u"AddMethod"_s, {...});
//     ... mock.calls() ...
class DBusMockService {
public:
    DBusMockService(const QString& name, const QString& path, const QStringList& arguments);
    ~DBusMockService();
    DBusMockService(const DBusMockService&) = delete;
    DBusMockService& operator=(const DBusMockService&) = delete;

    // The desktop's screen saver, started: Inhibit hands out the cookies 41,
    // 42, ... and UnInhibit takes one back. Null when it could not start.
    static std::unique_ptr<DBusMockService> screenSaver();

    // Starts the mock and waits until its name is on the bus (or it died).
    bool start();
    void stop();

    // A call of the mock's control interface (org.freedesktop.DBus.Mock).
    QDBusMessage mockCall(const QString& method, const QVariantList& arguments = {}) const;
    // The calls the mock received: method name and arguments, in order.
    QList<std::pair<QString, QVariantList>> calls() const;

private:
    QString m_name;
    QString m_path;
    QStringList m_arguments;
    QProcess m_process;
};

// Whether a name is owned on the session bus.
bool nameOnSessionBus(const QString& name);

} // namespace tw::test
