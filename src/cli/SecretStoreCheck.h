#pragma once

#include <QString>

#include <optional>

namespace tw::cli {

// Whether the secret store (the Secret Service on the session bus) can be
// used now. The secret store layer only logs its failures; the command line
// asks first, so that a site is never saved, imported or deployed without the
// password it was given.
class SecretStoreCheck {
public:
    // Nothing when the store answers; else why it cannot be used, in words
    // for the person. Reads one item (it need not exist) and changes nothing.
    static std::optional<QString> problem(const QString& siteId);
    // Whether the site has a pass phrase in the store; nothing (with *why
    // set) when the store cannot tell.
    static std::optional<bool> hasPassphrase(const QString& siteId, QString* why);
};

} // namespace tw::cli
