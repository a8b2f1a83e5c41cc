#pragma once

#include <QString>

#include <optional>

namespace tw {

// A site's password and SFTP pass phrase in the secret store: service
// "Tarnwell", accounts "password-<siteId>" and "passphrase-<siteId>". Errors
// never reach the callers: a failed read gives nothing, a failed save is only
// logged.
class TWPasswords {
public:
    static QString service() { return QStringLiteral("Tarnwell"); }

    // Saving nothing deletes the item.
    static void setPassword(const std::optional<QString>& password, const QString& siteId);
    // An empty pass phrase counts as none (curl refuses an empty one), so
    // saving it deletes the item too.
    static void setPassphrase(const std::optional<QString>& passphrase, const QString& siteId);
    // Logs "Got an error reading password: ..." when there is none.
    static std::optional<QString> getPasswordForSite(const QString& siteId);
    static std::optional<QString> getPassphraseForSite(const QString& siteId);
};

} // namespace tw
