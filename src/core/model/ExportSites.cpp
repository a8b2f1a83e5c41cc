#include "ExportSites.h"

#include "app/Logger.h"
#include "app/UserInteraction.h"
#include "model/Sites.h"

#include <QJsonArray>
#include <QJsonDocument>
#include <QSaveFile>

namespace tw {

ExportSites::ExportSites(UserInteraction& interaction)
    : m_interaction(interaction) {}

void ExportSites::browseDirectory() {
    SavePanelRequest panel;
    panel.nameFieldValue = QStringLiteral("Tarnwell.json");
    const auto location = m_interaction.runSavePanel(panel);
    if (!location)
        return;

    // The warning comes after the file was chosen.
    AlertRequest warning;
    warning.style = AlertStyle::Warning;
    warning.message = QStringLiteral("Continue export?");
    warning.informativeText =
        QStringLiteral("Please note that passwords are exported in plain text, be careful!");
    warning.buttons = {QStringLiteral("OK"), QStringLiteral("Cancel")};
    if (m_interaction.runModal(warning) != 0)
        return;

    exportFilePath = *location;
    const auto sites = Sites().loadAll();
    if (!sites)
        return;

    QJsonArray array;
    for (const SitePtr& site : *sites)
        array.append(site->jsonObject());
    const QByteArray text = QJsonDocument(array).toJson(QJsonDocument::Indented);

    // Written whole or not at all, and readable by its owner only: it holds
    // the passwords in plain text.
    QSaveFile file(*location);
    bool written = file.open(QIODevice::WriteOnly);
    if (written) {
        file.setPermissions(QFileDevice::ReadOwner | QFileDevice::WriteOwner);
        written = file.write(text) == text.size();
        written = file.commit() && written;
    }
    if (!written) {
        const QString description = file.errorString();
        Logger::sharedInstance().log(QStringLiteral("Cannot export sites: ") + description);
        AlertRequest alert;
        alert.message = QStringLiteral("Could not export sites!");
        alert.informativeText = description;
        m_interaction.runModal(alert);
    }
}

} // namespace tw
