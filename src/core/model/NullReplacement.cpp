#include "NullReplacement.h"

namespace tw {

namespace {

QJsonValue replaced(const QJsonValue& value) {
    if (value.isNull())
        return QStringLiteral("");
    if (value.isObject())
        return dictionaryByReplacingNullsWithBlanks(value.toObject());
    if (value.isArray())
        return arrayByReplacingNullsWithBlanks(value.toArray());
    return value;
}

} // namespace

QJsonObject dictionaryByReplacingNullsWithBlanks(const QJsonObject& dict) {
    QJsonObject result = dict;
    for (auto it = dict.begin(); it != dict.end(); ++it)
        result.insert(it.key(), replaced(it.value()));
    return result;
}

QJsonArray arrayByReplacingNullsWithBlanks(const QJsonArray& array) {
    QJsonArray result = array;
    for (qsizetype i = 0; i < array.size(); ++i)
        result.replace(i, replaced(array.at(i)));
    return result;
}

} // namespace tw
