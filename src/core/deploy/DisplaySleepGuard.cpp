#include "DisplaySleepGuard.h"

#include "app/AppInfo.h"
#include "app/SystemLog.h"

#include <QDBusConnection>
#include <QDBusMessage>

namespace tw {

namespace {

const QString& service() {
    static const QString name = QStringLiteral("org.freedesktop.ScreenSaver");
    return name;
}

const QString& objectPath() {
    static const QString path = QStringLiteral("/org/freedesktop/ScreenSaver");
    return path;
}

// Sends the call and waits a short while; answers the reply, or logs why
// there is none and answers nothing.
std::optional<QDBusMessage> callScreenSaver(const QString& method, const QVariantList& arguments) {
    QDBusConnection bus = QDBusConnection::sessionBus();
    if (!bus.isConnected()) {
        SystemLog::write(QStringLiteral("TARNWELL - cannot keep the display awake: no session bus (") +
                         bus.lastError().message() + QLatin1Char(')'));
        return std::nullopt;
    }
    QDBusMessage call = QDBusMessage::createMethodCall(service(), objectPath(), service(), method);
    call.setArguments(arguments);
    const QDBusMessage reply = bus.call(call, QDBus::Block, DisplaySleepGuard::callTimeoutMilliseconds);
    if (reply.type() != QDBusMessage::ReplyMessage) {
        SystemLog::write(QStringLiteral("TARNWELL - ") + service() + QLatin1Char('.') + method +
                         QStringLiteral(" failed: ") + reply.errorName() + QStringLiteral(": ") +
                         reply.errorMessage());
        return std::nullopt;
    }
    return reply;
}

} // namespace

DisplaySleepGuard::~DisplaySleepGuard() {
    release();
}

void DisplaySleepGuard::take() {
    release();
    const auto reply = callScreenSaver(QStringLiteral("Inhibit"),
                                       {AppInfo::productName(), QStringLiteral("Tarnwell is deploying")});
    if (!reply)
        return;
    const QVariantList values = reply->arguments();
    bool ok = false;
    const quint32 cookie = values.isEmpty() ? 0 : values.first().toUInt(&ok);
    if (!ok) {
        SystemLog::write(QStringLiteral("TARNWELL - ") + service() +
                         QStringLiteral(".Inhibit answered without a cookie"));
        return;
    }
    m_cookie = cookie;
}

void DisplaySleepGuard::release() {
    if (!m_cookie)
        return;
    const quint32 cookie = *m_cookie;
    m_cookie.reset();
    callScreenSaver(QStringLiteral("UnInhibit"), {QVariant::fromValue(cookie)});
}

} // namespace tw
