#include "Sites.h"

#include "app/Logger.h"
#include "app/Preferences.h"
#include "keychain/TWPasswords.h"

#include <QCborArray>
#include <QCborStreamReader>
#include <QCborValue>
#include <QDateTime>
#include <QDir>
#include <QElapsedTimer>
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

// After the secret store failed to take a password, it is not asked again
// for a minute: a silent store costs its time limit per question, and the
// list is loaded often.
QElapsedTimer& lastMoveFailure() {
    static QElapsedTimer timer;
    return timer;
}
constexpr qint64 moveRetryMilliseconds = 60000;

void passwordStays(const Site& site, const QString& why) {
    Logger::sharedInstance().log(
        QStringLiteral(
            "The password of the site \u201c%1\u201d stays in the stored site list: the secret store "
            "did not take it (%2). It moves there once the store works.")
            .arg(site.name.value_or(QString()), why));
    lastMoveFailure().start();
}

// Moves the passwords an earlier version kept in the stored list into the
// secret store, each only once the store gives it back; answers whether any
// moved. A store that already holds a password for the site keeps its own:
// that is the one every deployment used.
bool movePasswordsToSecretStore(const SiteList& sites) {
    bool moved = false;
    for (const SitePtr& site : sites) {
        if (!site || !site->passwordKeptInList())
            continue;
        if (lastMoveFailure().isValid() && !lastMoveFailure().hasExpired(moveRetryMilliseconds))
            break;
        const QString kept = *site->passwordKeptInList();
        const QString id = site->siteId();
        const TWPasswords::Read stored = TWPasswords::readPassword(id);
        if (stored.failure) {
            passwordStays(*site, *stored.failure);
            break;
        }
        if (stored.secret && !stored.secret->isEmpty()) {
            if (*stored.secret != kept)
                Logger::sharedInstance().log(
                    QStringLiteral("The stored site list held another password for the site \u201c%1\u201d "
                                   "than the secret store; the secret store's, the one in use, is kept.")
                        .arg(site->name.value_or(QString())));
        } else {
            const bool saved = TWPasswords::setPassword(kept, id);
            const TWPasswords::Read back = TWPasswords::readPassword(id);
            if (!saved || back.secret != kept) {
                passwordStays(*site,
                              back.failure.value_or(QStringLiteral("it did not give the password back")));
                break;
            }
        }
        site->passwordMovedToSecretStore();
        moved = true;
    }
    return moved;
}

// Whether the stored value may be replaced: it can be read whole, or what
// cannot be read is kept in a backup.
bool mayReplace(const QString& key) {
    const auto stored = Preferences::instance().dataValue(key);
    return !stored || Sites::unarchiveReadable(*stored).complete || keepAside(*stored);
}

} // namespace

std::optional<SiteList> Sites::loadAll() const {
    // Another process may have changed the list since this one read it.
    Preferences::instance().reload();
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
                               : QStringLiteral(" The stored list could not be copied aside, so no change to "
                                                "the sites is saved until it can be; copy %1 somewhere safe.")
                                     .arg(Preferences::instance().fileName()));
        Logger::sharedInstance().log(*pendingProblem());
    }
    if (movePasswordsToSecretStore(readable.sites))
        storeWithSites(readable.sites);
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

bool Sites::storeWithSites(const SiteList& sites) const {
    Preferences& preferences = Preferences::instance();
    preferences.reload();
    if (!mayReplace(sitesKey)) {
        Logger::sharedInstance().log(
            QStringLiteral("The sites were not saved: the stored list cannot be read whole and could not be "
                           "copied aside beside %1.")
                .arg(preferences.fileName()));
        return false;
    }
    preferences.setValue(sitesKey, archive(sites));
    return preferences.synchronize();
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
            return store.storeWithSites(*sites);
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
