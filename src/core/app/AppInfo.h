#pragma once

#include <QString>

namespace tw {

// Names that identify the application: the identifier names the error domain
// of the application's own errors and the folder of its log files.
struct AppInfo {
    static QString identifier() { return QStringLiteral("dev.tarnwell.Tarnwell"); }
    static QString productName() { return QStringLiteral("Tarnwell"); }
    // Folder name under the XDG config and data folders.
    static QString folderName() { return QStringLiteral("tarnwell"); }
    static QString domain() { return QStringLiteral("tarnwell.dev"); }
    static QString userAgent() {
        return productName() + QStringLiteral(" (") + domain() + QStringLiteral(")");
    }
    static QString version();
};

} // namespace tw
