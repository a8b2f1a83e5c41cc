#include "TWPasswords.h"

#include "app/SystemLog.h"
#include "keychain/FDKeychain.h"

namespace tw {

namespace {

QString passwordKey(const QString& siteId) {
    return QStringLiteral("password-%1").arg(siteId);
}

QString passphraseKey(const QString& siteId) {
    return QStringLiteral("passphrase-%1").arg(siteId);
}

void save(const std::optional<QString>& secret, const QString& key) {
    std::optional<Error> error;
    if (!FDKeychain::saveItem(secret, key, TWPasswords::service(), &error) && error &&
        !(error->code == FDKeychain::errSecItemNotFound && !secret)) {
        SystemLog::write(QStringLiteral("Could not save '%1' in the secret store: %2")
                             .arg(key, error->localizedDescription));
    }
}

} // namespace

void TWPasswords::setPassword(const std::optional<QString>& password, const QString& siteId) {
    save(password, passwordKey(siteId));
}

void TWPasswords::setPassphrase(const std::optional<QString>& passphrase, const QString& siteId) {
    save(passphrase && !passphrase->isEmpty() ? passphrase : std::nullopt, passphraseKey(siteId));
}

std::optional<QString> TWPasswords::getPasswordForSite(const QString& siteId) {
    std::optional<Error> error;
    const auto password = FDKeychain::itemForKey(passwordKey(siteId), service(), &error);
    if (error)
        SystemLog::write(
            QStringLiteral("Got an error reading password: %1").arg(error->localizedDescription));
    return password;
}

std::optional<QString> TWPasswords::getPassphraseForSite(const QString& siteId) {
    const auto passphrase = FDKeychain::itemForKey(passphraseKey(siteId), service());
    if (passphrase && passphrase->isEmpty())
        return std::nullopt;
    return passphrase;
}

} // namespace tw
