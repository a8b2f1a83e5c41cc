#include "SiteListActions.h"

#include "app/Preferences.h"
#include "keychain/TWPasswords.h"
#include "model/Sites.h"

namespace tw {

namespace {

const QString currentKey = QStringLiteral("currentSiteIndex");

SiteList load() {
    return Sites().loadAll().value_or(SiteList());
}

} // namespace

qsizetype SiteListActions::currentIndex() {
    return Preferences::instance().integerValue(currentKey);
}

void SiteListActions::setCurrentIndex(qsizetype index) {
    Preferences::instance().setInteger(currentKey, index);
    Preferences::instance().synchronize();
}

qsizetype SiteListActions::add(const SitePtr& site) {
    SiteList sites = load();
    site->updatedNow();
    site->siteIndex = sites.size();
    sites.append(site);
    Sites().storeWithSites(sites);
    return sites.size() - 1;
}

bool SiteListActions::replace(qsizetype index, const SitePtr& site) {
    SiteList sites = load();
    if (index < 0 || index >= sites.size())
        return false;
    sites[index] = site;
    Sites().storeWithSites(sites);
    return true;
}

std::optional<qsizetype> SiteListActions::duplicate(qsizetype index) {
    SiteList sites = load();
    if (index < 0 || index >= sites.size())
        return std::nullopt;
    const SitePtr original = sites.at(index);
    const QString originalId = original->siteId();
    SitePtr copy = original->copy();
    copy->generateSiteId();
    // The copy shares nothing mutable with the original once stored.
    if (copy->mandatoryFiles)
        copy->mandatoryFiles = std::make_shared<FileList>(*copy->mandatoryFiles);
    if (copy->ignoredFiles)
        copy->ignoredFiles = std::make_shared<FileList>(*copy->ignoredFiles);
    copy->name = original->name.value_or(QString()) + QStringLiteral(" copy");
    TWPasswords::setPassword(TWPasswords::getPasswordForSite(originalId), copy->siteId());
    TWPasswords::setPassphrase(TWPasswords::getPassphraseForSite(originalId), copy->siteId());
    sites.insert(index + 1, copy);
    Sites().storeWithSites(sites);
    const qsizetype current = currentIndex();
    if (current > index)
        setCurrentIndex(current + 1);
    return index + 1;
}

bool SiteListActions::remove(qsizetype index) {
    SiteList sites = load();
    if (index < 0 || index >= sites.size())
        return false;
    const QString id = sites.at(index)->siteId();
    sites.removeAt(index);
    Sites().storeWithSites(sites);
    TWPasswords::setPassword(std::nullopt, id);
    TWPasswords::setPassphrase(std::nullopt, id);
    const qsizetype current = currentIndex();
    if (current > index || (current == index && current >= sites.size()))
        setCurrentIndex(std::max<qsizetype>(0, current - 1));
    return true;
}

bool SiteListActions::move(qsizetype from, qsizetype to) {
    SiteList sites = load();
    if (from < 0 || from >= sites.size() || to < 0 || to >= sites.size())
        return false;
    if (from == to)
        return true;
    sites.move(from, to);
    Sites().storeWithSites(sites);
    const qsizetype current = currentIndex();
    if (current == from)
        setCurrentIndex(to);
    else if (from < current && to >= current)
        setCurrentIndex(current - 1);
    else if (from > current && to <= current)
        setCurrentIndex(current + 1);
    return true;
}

std::optional<qsizetype> SiteListActions::find(const QString& nameOrIndex) {
    const SiteList sites = load();
    if (nameOrIndex.isEmpty()) {
        const qsizetype current = currentIndex();
        if (current >= 0 && current < sites.size())
            return current;
        return std::nullopt;
    }
    for (qsizetype i = 0; i < sites.size(); ++i) {
        if (sites.at(i)->name == nameOrIndex)
            return i;
    }
    bool isNumber = false;
    const qsizetype index = nameOrIndex.toLongLong(&isNumber);
    if (isNumber && index >= 0 && index < sites.size())
        return index;
    return std::nullopt;
}

} // namespace tw
