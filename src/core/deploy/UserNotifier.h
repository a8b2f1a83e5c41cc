#pragma once

#include <QObject>
#include <QString>

namespace tw {

// Shows desktop notifications through the notification service of the
// session bus (org.freedesktop.Notifications), as the application
// "Tarnwell". The call does not wait for the desktop's answer; a missing
// service or any other D-Bus failure is written to the system log when the
// answer comes (or times out), and nothing else happens.
class UserNotifier : public QObject {
    Q_OBJECT

public:
    explicit UserNotifier(QObject* parent = nullptr);

    void showNotification(const QString& title, const QString& text);

    static constexpr int callTimeoutMilliseconds = 5000;

signals:
    // The desktop's answer to one notification: its id, or the failure that
    // was logged. For whoever wants to know; nothing needs to listen.
    void notificationShown(quint32 notificationId);
    void notificationFailed(const QString& message);
};

} // namespace tw
