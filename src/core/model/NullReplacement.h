#pragma once

#include <QJsonArray>
#include <QJsonObject>

namespace tw {

// Every JSON null, at any depth, becomes the empty text. Used before a JSON
// object becomes a record, so a null field reads back as "" and not as absent.
QJsonObject dictionaryByReplacingNullsWithBlanks(const QJsonObject& dict);
QJsonArray arrayByReplacingNullsWithBlanks(const QJsonArray& array);

} // namespace tw
