#include "SecurityBookmarkManager.h"

#include "app/Preferences.h"
#include "app/UserInteraction.h"

#include <QDir>
#include <QFileInfo>

namespace tw {

void SecurityBookmarkManager::useLocalScriptBookmark() {
    userDefaultsKey = QStringLiteral("localFileBookmark");
}

std::optional<QString> SecurityBookmarkManager::startAccessing() const {
    const auto data = Preferences::instance().dataValue(userDefaultsKey);
    if (!data)
        return std::nullopt;
    const auto resolved = resolve(*data);
    if (!resolved)
        return std::nullopt;
    startAccessingSecurityScopedResource(resolved->path);
    return resolved->path;
}

void SecurityBookmarkManager::stopAccessing() const {
    const auto data = Preferences::instance().dataValue(userDefaultsKey);
    if (!data)
        return;
    if (const auto resolved = resolve(*data))
        stopAccessingSecurityScopedResource(resolved->path);
}

void SecurityBookmarkManager::showFilePicker(UserInteraction& interaction) {
    OpenPanelRequest panel;
    panel.canChooseFiles = false;
    panel.canChooseDirectories = true;
    panel.allowsMultipleSelection = false;
    panel.showsHiddenFiles = true;
    panel.directory = panelDefaultPath;
    panel.message = panelDefaultMessage;
    const auto chosen = interaction.runOpenPanel(panel);
    if (!chosen)
        return;
    const auto bookmark = bookmarkFor(*chosen);
    if (!bookmark)
        return;
    Preferences::instance().setValue(userDefaultsKey, *bookmark);
    Preferences::instance().synchronize();
}

std::optional<QByteArray> SecurityBookmarkManager::bookmarkFor(const QString& folder) {
    if (folder.isEmpty() || !QFileInfo(folder).isDir())
        return std::nullopt;
    return QDir::cleanPath(QFileInfo(folder).absoluteFilePath()).toUtf8();
}

std::optional<SecurityBookmarkManager::Resolved>
SecurityBookmarkManager::resolve(const QByteArray& bookmark) {
    if (bookmark.isEmpty())
        return std::nullopt;
    const QString path = QString::fromUtf8(bookmark);
    return Resolved{path, !QFileInfo(path).isDir()};
}

void SecurityBookmarkManager::startAccessingSecurityScopedResource(const QString&) {}

void SecurityBookmarkManager::stopAccessingSecurityScopedResource(const QString&) {}

} // namespace tw
