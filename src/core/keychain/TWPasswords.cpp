#include "TWPasswords.h"

#include "app/SystemLog.h"
#include "keychain/FDKeychain.h"

#include <QHash>

namespace tw {

namespace {

QString passwordKey(const QString& siteId) {
    return QStringLiteral("password-%1").arg(siteId);
}

QString passphraseKey(const QString& siteId) {
    return QStringLiteral("passphrase-%1").arg(siteId);
}

struct SessionSecrets {
    std::optional<QString> password;
    std::optional<QString> passphrase;
};

QHash<QString, SessionSecrets>& sessionSecrets() {
    static QHash<QString, SessionSecrets> secrets;
    return secrets;
}

bool save(const std::optional<QString>& secret, const QString& key) {
    std::optional<Error> error;
    if (FDKeychain::saveItem(secret, key, TWPasswords::service(), &error))
        return true;
    if (error && error->code == FDKeychain::errSecItemNotFound && !secret)
        return true; // nothing to delete
    SystemLog::write(QStringLiteral("Could not save '%1' in the secret store: %2")
                         .arg(key, error ? error->localizedDescription : QStringLiteral("unknown error")));
    return false;
}

} // namespace

bool TWPasswords::setPassword(const std::optional<QString>& password, const QString& siteId) {
    if (const auto session = sessionSecrets().find(siteId); session != sessionSecrets().end()) {
        session->password = password;
        return true;
    }
    return save(password, passwordKey(siteId));
}

bool TWPasswords::setPassphrase(const std::optional<QString>& passphrase, const QString& siteId) {
    const auto kept = passphrase && !passphrase->isEmpty() ? passphrase : std::nullopt;
    if (const auto session = sessionSecrets().find(siteId); session != sessionSecrets().end()) {
        session->passphrase = kept;
        return true;
    }
    return save(kept, passphraseKey(siteId));
}

void TWPasswords::useSessionSecrets(const QString& siteId, const std::optional<QString>& password,
                                    const std::optional<QString>& passphrase) {
    sessionSecrets().insert(siteId,
                            {password, passphrase && !passphrase->isEmpty() ? passphrase : std::nullopt});
}

bool TWPasswords::hasSessionSecrets(const QString& siteId) {
    return sessionSecrets().contains(siteId);
}

std::optional<QString> TWPasswords::getPasswordForSite(const QString& siteId) {
    if (const auto session = sessionSecrets().constFind(siteId); session != sessionSecrets().cend())
        return session->password;
    std::optional<Error> error;
    const auto password = FDKeychain::itemForKey(passwordKey(siteId), service(), &error);
    if (error)
        SystemLog::write(
            QStringLiteral("Got an error reading password: %1").arg(error->localizedDescription));
    return password;
}

std::optional<QString> TWPasswords::getPassphraseForSite(const QString& siteId) {
    if (const auto session = sessionSecrets().constFind(siteId); session != sessionSecrets().cend())
        return session->passphrase;
    const auto passphrase = FDKeychain::itemForKey(passphraseKey(siteId), service());
    if (passphrase && passphrase->isEmpty())
        return std::nullopt;
    return passphrase;
}

} // namespace tw
