#include "SiteEditorPanels.h"

#include <QCoreApplication>
#include <QDir>
#include <QFileInfo>

namespace tw {

namespace {

QString tr(const char* text) {
    return QCoreApplication::translate("SiteEditorDialog", text);
}

} // namespace

OpenPanelRequest SiteEditorPanels::repositoryFolder(const QString& current) {
    OpenPanelRequest panel;
    panel.title = tr("Choose the Repository Folder");
    panel.message = tr("Choose the folder of the site's git repository.");
    panel.canChooseFiles = false;
    panel.canChooseDirectories = true;
    panel.showsHiddenFiles = false;
    panel.directory = current.isEmpty() ? QDir::homePath() : current;
    return panel;
}

OpenPanelRequest SiteEditorPanels::privateKey() {
    OpenPanelRequest panel;
    panel.title = tr("Choose the Private Key");
    panel.message = tr("Choose the private key file for the SFTP login.");
    panel.canChooseFiles = true;
    panel.canChooseDirectories = false;
    panel.showsHiddenFiles = true;
    const QString sshFolder = QDir::homePath() + QStringLiteral("/.ssh");
    panel.directory = QFileInfo(sshFolder).isDir() ? sshFolder : QDir::homePath();
    return panel;
}

OpenPanelRequest SiteEditorPanels::repositoryEntry(bool folder, const QString& repository) {
    OpenPanelRequest panel;
    panel.title = folder ? tr("Choose a Folder of the Repository") : tr("Choose a File of the Repository");
    panel.canChooseFiles = !folder;
    panel.canChooseDirectories = folder;
    panel.showsHiddenFiles = true;
    panel.directory = repository;
    return panel;
}

} // namespace tw
