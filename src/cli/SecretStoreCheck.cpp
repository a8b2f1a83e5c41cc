#include "SecretStoreCheck.h"

#include "keychain/KeychainJobRunner.h"
#include "keychain/TWPasswords.h"

namespace tw::cli {

namespace {

// Why a read of the store failed, in words for the person; nothing when it
// answered (found or not).
std::optional<QString> failure(const KeychainJobRunner::Result& result) {
    QString why;
    switch (result.outcome) {
    case KeychainJobRunner::Outcome::Success:
    case KeychainJobRunner::Outcome::NotFound:
        return std::nullopt;
    case KeychainJobRunner::Outcome::NoBackend:
    case KeychainJobRunner::Outcome::OtherError:
        why =
            QStringLiteral("no secret store can be reached (the Secret Service of the desktop session, such "
                           "as gnome-keyring, on the session D-Bus)");
        break;
    case KeychainJobRunner::Outcome::AccessDenied:
        why = QStringLiteral("the secret store refused access (is the keyring locked?)");
        break;
    case KeychainJobRunner::Outcome::TimedOut:
        why = QStringLiteral("the secret store did not answer within %1 seconds (a locked keyring waiting "
                             "for its password?)")
                  .arg(KeychainJobRunner::timeout() / 1000);
        break;
    }
    if (!result.errorString.isEmpty())
        why += QStringLiteral(": ") + result.errorString;
    return why;
}

} // namespace

std::optional<QString> SecretStoreCheck::problem(const QString& siteId) {
    return failure(KeychainJobRunner::read(TWPasswords::service(), QStringLiteral("password-") + siteId));
}

std::optional<bool> SecretStoreCheck::hasPassphrase(const QString& siteId, QString* why) {
    const KeychainJobRunner::Result result =
        KeychainJobRunner::read(TWPasswords::service(), QStringLiteral("passphrase-") + siteId);
    if (const auto problem = failure(result)) {
        *why = *problem;
        return std::nullopt;
    }
    return result.outcome == KeychainJobRunner::Outcome::Success && !result.data.isEmpty();
}

} // namespace tw::cli
