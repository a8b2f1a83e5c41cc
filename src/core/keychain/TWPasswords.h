#pragma once

#include <QString>

#include <optional>

namespace tw {

// A site's password and SFTP pass phrase in the secret store: service
// "Tarnwell", accounts "password-<siteId>" and "passphrase-<siteId>". A
// failed read gives nothing (and is logged); a failed save is logged and
// answered false, so that the caller can say the secret was not stored.
//
// A run without a secret store (a CI job) hands its secrets over for the
// process alone: for such a site the store is never asked nor written.
class TWPasswords {
public:
    static QString service() { return QStringLiteral("Tarnwell"); }

    // Saving nothing deletes the item. False when the store failed.
    static bool setPassword(const std::optional<QString>& password, const QString& siteId);
    // An empty pass phrase counts as none (curl refuses an empty one), so
    // saving it deletes the item too.
    static bool setPassphrase(const std::optional<QString>& passphrase, const QString& siteId);
    // The site's secrets for this process only, instead of the store's.
    static void useSessionSecrets(const QString& siteId, const std::optional<QString>& password,
                                  const std::optional<QString>& passphrase);
    static bool hasSessionSecrets(const QString& siteId);
    // Logs "Got an error reading password: ..." when there is none.
    static std::optional<QString> getPasswordForSite(const QString& siteId);
    static std::optional<QString> getPassphraseForSite(const QString& siteId);

    // A read that tells "the store holds none for this site" (no secret, no
    // failure) from "the store failed" (locked, silent, missing): failure
    // then says why, in words for the person, never with the secret.
    struct Read {
        std::optional<QString> secret;
        std::optional<QString> failure;
    };
    static Read readPassword(const QString& siteId);
    static Read readPassphrase(const QString& siteId);
};

} // namespace tw
