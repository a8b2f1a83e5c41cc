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

// Why a read failed; nothing when the item is merely missing.
std::optional<QString> failureOf(const std::optional<Error>& error) {
    if (!error || error->code == FDKeychain::errSecItemNotFound)
        return std::nullopt;
    switch (error->code) {
    case FDKeychain::errSecInteractionNotAllowed:
        return QStringLiteral("the secret store refused access or did not answer in time; is the keyring "
                              "locked?");
    case FDKeychain::errSecNotAvailable:
    case FDKeychain::errSecInternalComponent:
        return QStringLiteral("no secret store could be reached (the Secret Service of the desktop "
                              "session, such as gnome-keyring)");
    case FDKeychain::decodingFailed:
        return QStringLiteral("the stored item could not be read back");
    default:
        return error->localizedDescription;
    }
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
    return readPassword(siteId).secret;
}

std::optional<QString> TWPasswords::getPassphraseForSite(const QString& siteId) {
    return readPassphrase(siteId).secret;
}

TWPasswords::Read TWPasswords::readPassword(const QString& siteId) {
    if (const auto session = sessionSecrets().constFind(siteId); session != sessionSecrets().cend())
        return {session->password, std::nullopt};
    std::optional<Error> error;
    const auto password = FDKeychain::itemForKey(passwordKey(siteId), service(), &error);
    if (error)
        SystemLog::write(
            QStringLiteral("Got an error reading password: %1").arg(error->localizedDescription));
    return {password, failureOf(error)};
}

TWPasswords::Read TWPasswords::readPassphrase(const QString& siteId) {
    if (const auto session = sessionSecrets().constFind(siteId); session != sessionSecrets().cend())
        return {session->passphrase, std::nullopt};
    std::optional<Error> error;
    const auto passphrase = FDKeychain::itemForKey(passphraseKey(siteId), service(), &error);
    if (passphrase && passphrase->isEmpty())
        return {std::nullopt, std::nullopt};
    return {passphrase, failureOf(error)};
}

} // namespace tw
