#include "Commit.h"

#include "model/ArchiveValues.h"

namespace tw {

QCborMap Commit::encode() const {
    QCborMap map;
    map.insert(QStringLiteral("sha1"), archive::toCbor(sha1));
    map.insert(QStringLiteral("author"), archive::toCbor(author));
    map.insert(QStringLiteral("time"), archive::toCbor(time));
    map.insert(QStringLiteral("comment"), archive::toCbor(comment));
    map.insert(QStringLiteral("deployedWhen"),
               deployedWhen ? QCborValue(*deployedWhen) : QCborValue(QCborValue::Null));
    return map;
}

CommitPtr Commit::decode(const QCborValue& archived) {
    if (!archived.isMap())
        return nullptr;
    const QCborMap map = archived.toMap();
    auto commit = std::make_shared<Commit>();
    commit->sha1 = archive::cborText(map, u"sha1");
    commit->author = archive::cborText(map, u"author");
    commit->time = archive::cborText(map, u"time");
    commit->comment = archive::cborText(map, u"comment");
    const QCborValue when = map.value(QStringLiteral("deployedWhen"));
    if (when.isDateTime())
        commit->deployedWhen = when.toDateTime();
    return commit;
}

std::optional<QJsonObject> Commit::jsonObject() const {
    if (!sha1)
        return std::nullopt;
    QJsonObject dict;
    dict.insert(QStringLiteral("sha1"), *sha1);
    dict.insert(QStringLiteral("author"), archive::toJson(author));
    dict.insert(QStringLiteral("time"), archive::toJson(time));
    dict.insert(QStringLiteral("comment"), archive::toJson(comment));
    return dict;
}

CommitPtr Commit::initWithDict(const QJsonValue& value) {
    auto commit = std::make_shared<Commit>();
    if (!value.isObject())
        return commit;
    const QJsonObject dict = value.toObject();
    commit->sha1 = archive::jsonText(dict, u"sha1");
    commit->author = archive::jsonText(dict, u"author");
    commit->time = archive::jsonText(dict, u"time");
    commit->comment = archive::jsonText(dict, u"comment");
    return commit;
}

} // namespace tw
