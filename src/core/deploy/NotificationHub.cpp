#include "NotificationHub.h"

namespace tw {

NotificationHub& NotificationHub::instance() {
    static NotificationHub* hub = new NotificationHub;
    return *hub;
}

void NotificationHub::postCurrentFile(const QString& pathWithFilename) {
    emit currentFile({{currentFileName(), pathWithFilename}});
}

void NotificationHub::postRemainingStatus(quint64 remaining, quint64 total) {
    emit remainingStatus({{QStringLiteral("remaining"), QString::number(remaining)},
                          {QStringLiteral("total"), QString::number(total)}});
}

void NotificationHub::postUploadComplete() {
    emit uploadComplete();
}

void NotificationHub::postNoSites() {
    emit noSites();
}

void NotificationHub::postReloadFiles() {
    emit reloadFiles();
}

} // namespace tw
