#include "ImportSites.h"

#include "app/Logger.h"
#include "app/UserInteraction.h"
#include "keychain/TWPasswords.h"
#include "model/Sites.h"

#include <QFile>
#include <QJsonArray>
#include <QJsonDocument>
#include <QUrl>

namespace tw {

ImportSites::ImportSites(UserInteraction& interaction)
    : m_interaction(interaction) {}

std::variant<SiteList, ImportSites::ParseError> ImportSites::parse(const QByteArray& bytes) {
    QJsonParseError error;
    const QJsonDocument document = QJsonDocument::fromJson(bytes, &error);
    if (error.error != QJsonParseError::NoError)
        return ParseError{Failure::NotJson, error.errorString()};
    if (!document.isArray())
        return ParseError{Failure::NotAnArray, QString()};
    SiteList sites;
    for (const QJsonValue& element : document.array()) {
        if (element.isObject())
            sites.append(Site::initWithDict(element.toObject()));
    }
    return sites;
}

void ImportSites::browseFiles() {
    OpenPanelRequest panel;
    panel.title = QStringLiteral("Choose file to open");
    panel.canChooseFiles = true;
    panel.canChooseDirectories = false;
    panel.canCreateDirectories = false;
    panel.allowsMultipleSelection = false;
    panel.showsHiddenFiles = false;
    panel.allowedFileTypes = {QStringLiteral("json")};
    const auto location = m_interaction.runOpenPanel(panel);
    if (!location || location->isEmpty())
        return;
    importFilePath = *location;

    auto couldNotImport = [this](const QString& description) {
        Logger::sharedInstance().log(QStringLiteral("Cannot import sites: ") + description);
        AlertRequest alert;
        alert.message = QStringLiteral("Could not import sites!");
        alert.informativeText = description;
        m_interaction.runModal(alert);
    };

    QFile file(*location);
    if (!file.open(QIODevice::ReadOnly)) {
        couldNotImport(file.errorString());
        return;
    }
    const auto parsed = parse(file.readAll());
    if (const auto* failure = std::get_if<ParseError>(&parsed)) {
        if (failure->failure == Failure::NotJson) {
            couldNotImport(failure->description);
        } else {
            Logger::sharedInstance().log(QStringLiteral("Cannot read JSON-file ") +
                                         QUrl::fromLocalFile(*location).toString());
            AlertRequest alert;
            alert.message = QStringLiteral("Cannot read JSON file, seems not valid.");
            m_interaction.runModal(alert);
        }
        return;
    }

    const Sites store;
    SiteList sites = store.loadAll().value_or(SiteList());
    const SiteList imported = std::get<SiteList>(parsed);
    for (qsizetype i = 0; i < imported.size(); ++i) {
        const SitePtr& site = imported.at(i);
        // Always a new id, so an import never overwrites or shares another
        // site's credentials.
        site->generateSiteId();
        if (!site->savePasswordToKeychain() && site->password && !site->password->isEmpty()) {
            // The passwords live in the secret store alone: without it the
            // sites would be added without them. Nothing is added, and the
            // passwords stored so far go again.
            for (qsizetype j = 0; j < i; ++j)
                TWPasswords::setPassword(std::nullopt, imported.at(j)->siteId());
            couldNotImport(QStringLiteral("The passwords could not be stored in the secret store, so no site "
                                          "was imported. Unlock or start the keyring (such as "
                                          "gnome-keyring), then import again."));
            return;
        }
        site->password.reset();
        sites.append(site);
    }
    if (!store.storeWithSites(sites)) {
        for (const SitePtr& site : imported)
            TWPasswords::setPassword(std::nullopt, site->siteId());
        couldNotImport(QStringLiteral("The stored site list cannot be saved now (see the log)."));
    }
}

} // namespace tw
