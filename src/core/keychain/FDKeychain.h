#pragma once

#include "app/Error.h"

#include <QByteArray>
#include <QMap>
#include <QString>

#include <optional>

namespace tw {

// A small wrapper over the desktop's secret store: save, read and delete one
// generic-password item by key (account) and service. The stored data is the
// keyed-archive encoding of the text it is given. Failures come back as
// errors with the store's result codes and fixed messages.
class FDKeychain {
public:
    enum class Accessibility { WhenUnlocked, AfterFirstUnlock };

    // Result codes of the secret store.
    static constexpr qint64 errSecItemNotFound = -25300;
    static constexpr qint64 errSecDuplicateItem = -25299;
    static constexpr qint64 errSecInteractionNotAllowed = -25308;
    static constexpr qint64 errSecNotAvailable = -25291;
    static constexpr qint64 errSecInternalComponent = -2070;
    static constexpr qint64 decodingFailed = 21;

    static QString errorDomain() { return QStringLiteral("dev.tarnwell.FDKeychain"); }

    // An empty key or service throws std::invalid_argument: a programming
    // error, checked before the store is asked anything. Saving nothing
    // deletes the item.
    static bool saveItem(const std::optional<QString>& item, const QString& key, const QString& service,
                         std::optional<Error>* error = nullptr);
    static bool saveItem(const std::optional<QString>& item, const QString& key, const QString& service,
                         const std::optional<QString>& accessGroup, Accessibility accessibility,
                         std::optional<Error>* error = nullptr);

    static std::optional<QString> itemForKey(const QString& key, const QString& service,
                                             std::optional<Error>* error = nullptr);
    static std::optional<QString> itemForKey(const QString& key, const QString& service,
                                             const std::optional<QString>& accessGroup,
                                             std::optional<Error>* error = nullptr);

    static std::optional<QByteArray> rawDataForKey(const QString& key, const QString& service,
                                                   std::optional<Error>* error = nullptr);
    static std::optional<QByteArray> rawDataForKey(const QString& key, const QString& service,
                                                   const std::optional<QString>& accessGroup,
                                                   std::optional<Error>* error = nullptr);

    static bool deleteItemForKey(const QString& key, const QString& service,
                                 std::optional<Error>* error = nullptr);
    static bool deleteItemForKey(const QString& key, const QString& service,
                                 const std::optional<QString>& accessGroup,
                                 std::optional<Error>* error = nullptr);

    static Error errorForResultCode(qint64 resultCode, const QString& key, const QString& service);

private:
    struct Query {
        QString account;
        QString service;
        std::optional<QString> accessGroup;
        // The Secret Service knows no access groups: a group becomes part of
        // the service name the item is filed under.
        QString storeService() const;
    };
    static Query baseQuery(const QString& key, const QString& service,
                           const std::optional<QString>& accessGroup);
    static std::optional<QMap<QString, QByteArray>>
    itemAttributesAndDataForKey(const QString& key, const QString& service,
                                const std::optional<QString>& accessGroup, std::optional<Error>* error,
                                const char* operation);
    static void requireArguments(const QString& key, const QString& service, const char* operation);
};

} // namespace tw
