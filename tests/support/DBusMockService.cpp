#include "DBusMockService.h"

#include <QDBusArgument>
#include <QDBusConnection>
#include <QDBusConnectionInterface>
#include <QDBusServiceWatcher>
#include <QDBusVariant>
#include <QEventLoop>
#include <QTimer>

namespace tw::test {

bool nameOnSessionBus(const QString& name) {
    return QDBusConnection::sessionBus().interface()->isServiceRegistered(name).value();
}

DBusMockService::DBusMockService(const QString& name, const QString& path, const QStringList& arguments)
    : m_name(name)
    , m_path(path)
    , m_arguments(QStringList{QStringLiteral("-m"), QStringLiteral("dbusmock")} + arguments) {
    m_process.setProcessChannelMode(QProcess::ForwardedErrorChannel);
}

DBusMockService::~DBusMockService() {
    stop();
}

std::unique_ptr<DBusMockService> DBusMockService::screenSaver() {
    const QString name = QStringLiteral("org.freedesktop.ScreenSaver");
    const QString path = QStringLiteral("/org/freedesktop/ScreenSaver");
    auto mock = std::make_unique<DBusMockService>(name, path, QStringList{name, path, name});
    const bool ready =
        mock->start() &&
        mock->mockCall(QStringLiteral("AddMethod"),
                       {QString(), QStringLiteral("Inhibit"), QStringLiteral("ss"), QStringLiteral("u"),
                        QStringLiteral("self.cookie = getattr(self, 'cookie', 40) + 1\nret = self.cookie")})
                .type() == QDBusMessage::ReplyMessage &&
        mock->mockCall(QStringLiteral("AddMethod"),
                       {QString(), QStringLiteral("UnInhibit"), QStringLiteral("u"), QString(), QString()})
                .type() == QDBusMessage::ReplyMessage;
    return ready ? std::move(mock) : nullptr;
}

bool DBusMockService::start() {
    QDBusServiceWatcher watcher(m_name, QDBusConnection::sessionBus(),
                                QDBusServiceWatcher::WatchForRegistration);
    QEventLoop loop;
    QObject::connect(&watcher, &QDBusServiceWatcher::serviceRegistered, &loop, &QEventLoop::quit);
    QObject::connect(&m_process, &QProcess::finished, &loop, &QEventLoop::quit);
    QObject::connect(&m_process, &QProcess::errorOccurred, &loop, &QEventLoop::quit);
    QTimer::singleShot(20000, &loop, &QEventLoop::quit);
    m_process.start(QStringLiteral("/usr/bin/python3"), m_arguments);
    if (!nameOnSessionBus(m_name))
        loop.exec();
    return nameOnSessionBus(m_name);
}

void DBusMockService::stop() {
    if (m_process.state() == QProcess::NotRunning)
        return;
    m_process.terminate();
    m_process.waitForFinished(10000);
}

QDBusMessage DBusMockService::mockCall(const QString& method, const QVariantList& arguments) const {
    QDBusMessage call =
        QDBusMessage::createMethodCall(m_name, m_path, QStringLiteral("org.freedesktop.DBus.Mock"), method);
    call.setArguments(arguments);
    return QDBusConnection::sessionBus().call(call);
}

QList<std::pair<QString, QVariantList>> DBusMockService::calls() const {
    QList<std::pair<QString, QVariantList>> list;
    const QDBusMessage reply = mockCall(QStringLiteral("GetCalls"));
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

} // namespace tw::test
