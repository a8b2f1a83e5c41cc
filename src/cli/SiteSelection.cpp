#include "SiteSelection.h"

#include "Terminal.h"
#include "model/SiteListActions.h"
#include "model/Sites.h"

namespace tw::cli {

std::optional<qsizetype> SiteSelection::resolve(const QString& nameOrIndex) {
    if (const auto index = SiteListActions::find(nameOrIndex))
        return index;
    Terminal& terminal = Terminal::instance();
    const SiteList sites = Sites().loadAll().value_or(SiteList());
    if (sites.isEmpty()) {
        terminal.errLine(QStringLiteral("No sites defined."));
        terminal.errLine(QStringLiteral("Add one with 'tarnwell-cli add' (see 'tarnwell-cli add --help')."));
        return std::nullopt;
    }
    if (nameOrIndex.isEmpty()) {
        terminal.errLine(
            QStringLiteral("There is no current site (index %1 of %2 sites). Name a site, or choose "
                           "one with 'tarnwell-cli use SITE'.")
                .arg(SiteListActions::currentIndex())
                .arg(sites.size()));
        return std::nullopt;
    }
    QStringList known;
    for (qsizetype i = 0; i < sites.size(); ++i)
        known.append(describe(i, sites.at(i)));
    terminal.errLine(QStringLiteral("No site is named or numbered \u201c%1\u201d. The sites are: %2.")
                         .arg(nameOrIndex, known.join(QStringLiteral(", "))));
    return std::nullopt;
}

SitePtr SiteSelection::siteAt(qsizetype index) {
    const SiteList sites = Sites().loadAll().value_or(SiteList());
    if (index < 0 || index >= sites.size() || !sites.at(index))
        return nullptr;
    if (!sites.at(index)->hasSiteId()) {
        sites.at(index)->siteId();
        Sites().storeWithSites(sites);
    }
    return sites.at(index);
}

QString SiteSelection::describe(qsizetype index, const SitePtr& site) {
    return QStringLiteral("%1 \u201c%2\u201d")
        .arg(index)
        .arg(site ? site->name.value_or(QString()) : QString());
}

} // namespace tw::cli
