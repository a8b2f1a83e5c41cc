#pragma once

#include <QObject>
#include <QString>
#include <QVariantMap>

namespace tw {

// The notifications of a deployment, posted by the deploy controller and
// observed by the progress display. Each carries its userInfo with the keys
// named below, values as text.
class NotificationHub : public QObject {
    Q_OBJECT

public:
    static NotificationHub& instance();

    static QString currentFileName() { return QStringLiteral("currentFile"); }
    static QString remainingStatusName() { return QStringLiteral("remainingStatus"); }
    static QString uploadCompleteName() { return QStringLiteral("uploadComplete"); }

    void postCurrentFile(const QString& pathWithFilename);
    void postRemainingStatus(quint64 remaining, quint64 total);
    void postUploadComplete();
    void postNoSites();
    void postReloadFiles();

signals:
    // userInfo "currentFile": the file's repository-relative path.
    void currentFile(const QVariantMap& userInfo);
    // userInfo "remaining" and "total": the run's counters as decimal text.
    void remainingStatus(const QVariantMap& userInfo);
    void uploadComplete();
    // The site list became empty.
    void noSites();
    // The file list is to be built anew.
    void reloadFiles();

private:
    NotificationHub() = default;
};

} // namespace tw
