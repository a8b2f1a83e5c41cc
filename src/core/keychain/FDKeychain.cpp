#include "FDKeychain.h"

#include "keychain/KeychainJobRunner.h"

#include <QCborValue>

#include <stdexcept>

namespace tw {

namespace {

constexpr const char* kSaveItem =
    "FDKeychain::saveItem(item, key, service, accessGroup, accessibility, error)";
constexpr const char* kAttributes =
    "FDKeychain::itemAttributesAndDataForKey(key, service, accessGroup, error)";
constexpr const char* kDelete = "FDKeychain::deleteItemForKey(key, service, accessGroup, error)";

qint64 resultCodeOf(KeychainJobRunner::Outcome outcome) {
    switch (outcome) {
    case KeychainJobRunner::Outcome::Success:
        return 0;
    case KeychainJobRunner::Outcome::NotFound:
        return FDKeychain::errSecItemNotFound;
    case KeychainJobRunner::Outcome::AccessDenied:
    case KeychainJobRunner::Outcome::TimedOut:
        // A locked keyring that asks for its password and gets no answer.
        return FDKeychain::errSecInteractionNotAllowed;
    case KeychainJobRunner::Outcome::NoBackend:
        return FDKeychain::errSecNotAvailable;
    case KeychainJobRunner::Outcome::OtherError:
        break;
    }
    return FDKeychain::errSecInternalComponent;
}

void setError(std::optional<Error>* out, const Error& error) {
    if (out)
        *out = error;
}

} // namespace

QString FDKeychain::Query::storeService() const {
    if (accessGroup && !accessGroup->isEmpty())
        return service + QLatin1Char('/') + *accessGroup;
    return service;
}

FDKeychain::Query FDKeychain::baseQuery(const QString& key, const QString& service,
                                        const std::optional<QString>& accessGroup) {
    Query query{key, service, std::nullopt};
    if (accessGroup && !accessGroup->isEmpty())
        query.accessGroup = accessGroup;
    return query;
}

void FDKeychain::requireArguments(const QString& key, const QString& service, const char* operation) {
    if (key.isEmpty())
        throw std::invalid_argument(std::string(operation) + " key argument cannot be empty");
    if (service.isEmpty())
        throw std::invalid_argument(std::string(operation) + " service argument cannot be empty");
}

Error FDKeychain::errorForResultCode(qint64 resultCode, const QString& key, const QString& service) {
    QString description;
    switch (resultCode) {
    case errSecInteractionNotAllowed:
        description =
            QStringLiteral("Interaction with key '%1' for service '%2' was not allowed. It is possible that "
                           "the item is only accessible when the device is unlocked and this query is "
                           "happening when the app is in the background. Double-check your item "
                           "permissions.")
                .arg(key, service);
        break;
    case errSecDuplicateItem:
        description = QStringLiteral("Item with key '%1' for service '%2' already exists in the keychain.")
                          .arg(key, service);
        break;
    case errSecItemNotFound:
        description =
            QStringLiteral("Item with key '%1' for service '%2' could not be found in the keychain.")
                .arg(key, service);
        break;
    default:
        description =
            QStringLiteral("This is a undefined error. Check SecBase.h or Apple's iOS Developer Library for "
                           "more information on this Keychain Services error code.");
        break;
    }
    return Error{errorDomain(), resultCode, description};
}

bool FDKeychain::saveItem(const std::optional<QString>& item, const QString& key, const QString& service,
                          std::optional<Error>* error) {
    return saveItem(item, key, service, std::nullopt, Accessibility::WhenUnlocked, error);
}

bool FDKeychain::saveItem(const std::optional<QString>& item, const QString& key, const QString& service,
                          const std::optional<QString>& accessGroup, Accessibility accessibility,
                          std::optional<Error>* error) {
    requireArguments(key, service, kSaveItem);
    if (!item)
        return deleteItemForKey(key, service, accessGroup, error);

    // Only a missing item may stop the lookup from answering.
    std::optional<Error> lookupError;
    itemAttributesAndDataForKey(key, service, accessGroup, &lookupError, kAttributes);
    if (lookupError && lookupError->code != errSecItemNotFound) {
        setError(error, *lookupError);
        return false;
    }

    // The Secret Service keeps items while the session's keyring is unlocked
    // either way, so both accessibility choices are stored alike.
    Q_UNUSED(accessibility);
    const QByteArray archived = QCborValue(*item).toCbor();
    const Query query = baseQuery(key, service, accessGroup);
    // Writing replaces an existing item's data or adds a new item.
    const auto result = KeychainJobRunner::write(query.storeService(), query.account, archived);
    const qint64 code = resultCodeOf(result.outcome);
    if (code != 0) {
        setError(error, errorForResultCode(code, key, service));
        return false;
    }
    return true;
}

std::optional<QString> FDKeychain::itemForKey(const QString& key, const QString& service,
                                              std::optional<Error>* error) {
    return itemForKey(key, service, std::nullopt, error);
}

std::optional<QString> FDKeychain::itemForKey(const QString& key, const QString& service,
                                              const std::optional<QString>& accessGroup,
                                              std::optional<Error>* error) {
    const auto data = rawDataForKey(key, service, accessGroup, error);
    if (!data)
        return std::nullopt;
    QCborParserError parseError;
    const QCborValue value = QCborValue::fromCbor(*data, &parseError);
    if (parseError.error != QCborError::NoError || !value.isString()) {
        const QString reason = parseError.error != QCborError::NoError
                                   ? parseError.errorString()
                                   : QStringLiteral("the stored item is not an archived text");
        setError(error, Error{errorDomain(), decodingFailed, reason});
        return std::nullopt;
    }
    return value.toString();
}

std::optional<QByteArray> FDKeychain::rawDataForKey(const QString& key, const QString& service,
                                                    std::optional<Error>* error) {
    return rawDataForKey(key, service, std::nullopt, error);
}

std::optional<QByteArray> FDKeychain::rawDataForKey(const QString& key, const QString& service,
                                                    const std::optional<QString>& accessGroup,
                                                    std::optional<Error>* error) {
    const auto attributes = itemAttributesAndDataForKey(key, service, accessGroup, error, kAttributes);
    if (!attributes)
        return std::nullopt;
    return attributes->value(QStringLiteral("v_Data"));
}

std::optional<QMap<QString, QByteArray>>
FDKeychain::itemAttributesAndDataForKey(const QString& key, const QString& service,
                                        const std::optional<QString>& accessGroup,
                                        std::optional<Error>* error, const char* operation) {
    requireArguments(key, service, operation);
    const Query query = baseQuery(key, service, accessGroup);
    const auto result = KeychainJobRunner::read(query.storeService(), query.account);
    const qint64 code = resultCodeOf(result.outcome);
    if (code != 0) {
        setError(error, errorForResultCode(code, key, service));
        return std::nullopt;
    }
    QMap<QString, QByteArray> attributes;
    attributes.insert(QStringLiteral("acct"), key.toUtf8());
    attributes.insert(QStringLiteral("svce"), service.toUtf8());
    if (query.accessGroup)
        attributes.insert(QStringLiteral("agrp"), query.accessGroup->toUtf8());
    attributes.insert(QStringLiteral("v_Data"), result.data);
    return attributes;
}

bool FDKeychain::deleteItemForKey(const QString& key, const QString& service, std::optional<Error>* error) {
    return deleteItemForKey(key, service, std::nullopt, error);
}

bool FDKeychain::deleteItemForKey(const QString& key, const QString& service,
                                  const std::optional<QString>& accessGroup, std::optional<Error>* error) {
    requireArguments(key, service, kDelete);
    const Query query = baseQuery(key, service, accessGroup);
    // The Secret Service deletes a missing item without complaint; ask first
    // so that deleting nothing is reported as such.
    const auto lookup = KeychainJobRunner::read(query.storeService(), query.account);
    qint64 code = resultCodeOf(lookup.outcome);
    if (code == 0)
        code = resultCodeOf(KeychainJobRunner::remove(query.storeService(), query.account).outcome);
    if (code == errSecItemNotFound) {
        setError(error, Error{errorDomain(), code,
                              QStringLiteral(
                                  "Could not delete item with key '%1' for service '%2' from the keychain "
                                  "because it does not exist.")
                                  .arg(key, service)});
        return false;
    }
    if (code != 0) {
        setError(error, errorForResultCode(code, key, service));
        return false;
    }
    return true;
}

} // namespace tw
