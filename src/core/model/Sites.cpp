#include "Sites.h"

#include "app/Logger.h"
#include "app/Preferences.h"

#include <QCborArray>
#include <QCborStreamReader>
#include <QCborValue>
#include <QDateTime>
#include <QDir>
#include <QFile>
#include <QFileInfo>
#include <QSaveFile>

#include <utility>

namespace tw {

namespace {

std::optional<QString>& pendingProblem() {
    static std::optional<QString> problem;
    return problem;
}

bool& problemTold() {
    static bool told = false;
    return told;
}

// Keeps the stored value in "sites-unreadable-<date>.cbor" beside the
// preferences file (mode 0600: it holds what the list held), unless a file
// there holds the same bytes already. Answers the backup's path.
std::optional<QString> keepAside(const QByteArray& data) {
    const QFileInfo preferences(Preferences::instance().fileName());
    QDir folder = preferences.absoluteDir();
    if (!folder.exists() && !QDir().mkpath(folder.path()))
        return std::nullopt;
    const QStringList existing =
        folder.entryList({QStringLiteral("sites-unreadable-*.cbor")}, QDir::Files, QDir::Name);
    for (const QString& name : existing) {
        QFile file(folder.filePath(name));
        if (file.size() == data.size() && file.open(QIODevice::ReadOnly) && file.readAll() == data)
            return file.fileName();
    }
    const QString path = folder.filePath(
        QStringLiteral("sites-unreadable-") +
        QDateTime::currentDateTime().toString(QStringLiteral("yyyyMMdd-HHmmss")) + QStringLiteral(".cbor"));
    QSaveFile file(path);
    if (!file.open(QIODevice::WriteOnly))
        return std::nullopt;
    file.setPermissions(QFileDevice::ReadOwner | QFileDevice::WriteOwner);
    if (file.write(data) != data.size() || !file.commit())
        return std::nullopt;
    return path;
}

} // namespace

std::optional<SiteList> Sites::loadAll() const {
    const auto data = Preferences::instance().dataValue(sitesKey);
    if (!data)
        return std::nullopt;
    Readable readable = unarchiveReadable(*data);
    if (!readable.complete && !problemTold() && !pendingProblem()) {
        const std::optional<QString> backup = keepAside(*data);
        const QString sentence =
            QStringLiteral("Some of the stored sites could not be read; the %1 that could are listed.")
                .arg(readable.sites.size());
        pendingProblem() =
            sentence + (backup ? QStringLiteral(" The stored list as it was is kept in %1.").arg(*backup)
                               : QStringLiteral(" The stored list could not be copied aside: save nothing "
                                                "before you have copied %1.")
                                     .arg(Preferences::instance().fileName()));
        Logger::sharedInstance().log(*pendingProblem());
    }
    return readable.sites;
}

std::optional<QString> Sites::takeLoadProblem() {
    std::optional<QString> problem = std::exchange(pendingProblem(), std::nullopt);
    if (problem)
        problemTold() = true;
    return problem;
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
    Readable readable = unarchiveReadable(archived);
    if (!readable.complete)
        return std::nullopt;
    return readable.sites;
}

// Read element by element, so that a broken entry costs that entry and a
// value cut short costs only its end.
Sites::Readable Sites::unarchiveReadable(const QByteArray& archived) {
    Readable readable;
    QCborStreamReader reader(archived);
    if (!reader.isArray() || !reader.enterContainer()) {
        readable.complete = false;
        return readable;
    }
    while (reader.lastError() == QCborError::NoError && reader.hasNext()) {
        const QCborValue element = QCborValue::fromCbor(reader);
        if (reader.lastError() != QCborError::NoError)
            break;
        if (SitePtr site = Site::decode(element))
            readable.sites.append(site);
        else
            readable.complete = false;
    }
    if (reader.lastError() != QCborError::NoError || !reader.leaveContainer() ||
        reader.lastError() != QCborError::NoError)
        readable.complete = false;
    return readable;
}

} // namespace tw
