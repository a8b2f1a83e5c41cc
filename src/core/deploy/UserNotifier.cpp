#include "UserNotifier.h"

#include "app/AppInfo.h"
#include "app/SystemLog.h"

#include <QDBusConnection>
#include <QDBusMessage>
#include <QDBusPendingCallWatcher>
#include <QDBusPendingReply>
#include <QStringList>
#include <QVariantMap>

namespace tw {

UserNotifier::UserNotifier(QObject* parent)
    : QObject(parent) {}

void UserNotifier::showNotification(const QString& title, const QString& text) {
    const auto fail = [this](const QString& message) {
        SystemLog::write(QStringLiteral("TARNWELL - cannot show the notification: ") + message);
        emit notificationFailed(message);
    };
    QDBusConnection bus = QDBusConnection::sessionBus();
    if (!bus.isConnected()) {
        fail(QStringLiteral("no session bus (") + bus.lastError().message() + QLatin1Char(')'));
        return;
    }
    const QString service = QStringLiteral("org.freedesktop.Notifications");
    QDBusMessage call = QDBusMessage::createMethodCall(
        service, QStringLiteral("/org/freedesktop/Notifications"), service, QStringLiteral("Notify"));
    // app_name, replaces_id, app_icon, summary, body, actions, hints, expire_timeout
    call.setArguments({AppInfo::productName(), QVariant::fromValue(quint32(0)), QString(), title, text,
                       QStringList(), QVariantMap(), QVariant::fromValue(qint32(-1))});
    auto* watcher = new QDBusPendingCallWatcher(bus.asyncCall(call, callTimeoutMilliseconds), this);
    connect(watcher, &QDBusPendingCallWatcher::finished, this, [this, watcher, fail] {
        watcher->deleteLater();
        const QDBusPendingReply<quint32> reply = *watcher;
        if (reply.isError()) {
            fail(reply.error().name() + QStringLiteral(": ") + reply.error().message());
            return;
        }
        emit notificationShown(reply.value());
    });
}

} // namespace tw
