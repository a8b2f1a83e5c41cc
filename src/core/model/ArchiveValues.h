#pragma once

#include <QCborMap>
#include <QCborValue>
#include <QJsonObject>
#include <QJsonValue>
#include <QString>

#include <optional>

// Conversions between the records' optional fields and their archived (CBOR)
// and JSON forms: an absent field is written as null and a null, missing or
// wrongly typed value reads back as absent.
namespace tw::archive {

inline QCborValue toCbor(const std::optional<QString>& text) {
    return text ? QCborValue(*text) : QCborValue(QCborValue::Null);
}

inline QJsonValue toJson(const std::optional<QString>& text) {
    return text ? QJsonValue(*text) : QJsonValue(QJsonValue::Null);
}

inline std::optional<QString> cborText(const QCborMap& map, QStringView key) {
    const QCborValue value = map.value(key.toString());
    if (value.isString())
        return value.toString();
    return std::nullopt;
}

inline std::optional<QString> jsonText(const QJsonObject& dict, QStringView key) {
    const QJsonValue value = dict.value(key);
    if (value.isString())
        return value.toString();
    return std::nullopt;
}

} // namespace tw::archive
