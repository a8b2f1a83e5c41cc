#include "Sites.h"

#include "app/Preferences.h"

#include <QCborArray>
#include <QCborValue>

namespace tw {

std::optional<SiteList> Sites::loadAll() const {
    const auto data = Preferences::instance().dataValue(sitesKey);
    if (!data)
        return std::nullopt;
    return unarchive(*data);
}

qint64 Sites::total() const {
    const auto sites = loadAll();
    return sites ? sites->size() : 0;
}

void Sites::storeWithSites(const SiteList& sites) const {
    Preferences::instance().setValue(sitesKey, archive(sites));
    Preferences::instance().synchronize();
}

void Sites::deleteAll() const {
    storeWithSites({});
}

bool Sites::saveDeployment(const QString& siteId, const CommitPtr& commit) {
    Sites store;
    std::optional<SiteList> sites = store.loadAll();
    if (!sites || !commit)
        return false;
    for (const SitePtr& site : std::as_const(*sites)) {
        if (site && site->siteId() == siteId) {
            auto deployed = std::make_shared<Commit>(*commit);
            site->lastCommitDeployed = deployed;
            store.storeWithSites(*sites);
            return true;
        }
    }
    return false;
}

QByteArray Sites::archive(const SiteList& sites) {
    QCborArray array;
    for (const SitePtr& site : sites)
        array.append(site ? QCborValue(site->encode()) : QCborValue(QCborValue::Null));
    return QCborValue(array).toCbor();
}

std::optional<SiteList> Sites::unarchive(const QByteArray& archived) {
    QCborParserError error;
    const QCborValue value = QCborValue::fromCbor(archived, &error);
    if (error.error != QCborError::NoError || !value.isArray())
        return std::nullopt;
    SiteList sites;
    for (const QCborValue& element : value.toArray()) {
        SitePtr site = Site::decode(element);
        if (!site)
            return std::nullopt;
        sites.append(site);
    }
    return sites;
}

} // namespace tw
