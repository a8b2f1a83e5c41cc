#pragma once

#include <QByteArray>
#include <QString>

#include <optional>

namespace tw {

class UserInteraction;

// Lasting access to a folder the person chose. There is no application
// sandbox here: a bookmark is the folder's path itself, resolving it gives
// that path back, and it is stale when the folder no longer exists. The keys
// in the preferences and the order of calls are kept, so callers behave the
// same everywhere.
class SecurityBookmarkManager {
public:
    QString userDefaultsKey = QStringLiteral("userPublicKeyDirectoryBookmark");
    QString panelDefaultPath = QStringLiteral("/");
    QString panelDefaultMessage = QStringLiteral(
        "Due to security reasons you must select the root of your HD to user local scripting.");

    // Switches to the bookmark of the folder local scripts run from.
    void useLocalScriptBookmark();
    // The folder of the stored bookmark, or nothing.
    std::optional<QString> startAccessing() const;
    void stopAccessing() const;
    // Asks for a folder and stores its bookmark under userDefaultsKey.
    void showFilePicker(UserInteraction& interaction);

    // A bookmark of a folder, and the folder it resolves to.
    struct Resolved {
        QString path;
        bool isStale = false;
    };
    static std::optional<QByteArray> bookmarkFor(const QString& folder);
    static std::optional<Resolved> resolve(const QByteArray& bookmark);
    // Access to a resolved folder starts and ends with nothing to do here.
    static void startAccessingSecurityScopedResource(const QString& folder);
    static void stopAccessingSecurityScopedResource(const QString& folder);
};

} // namespace tw
