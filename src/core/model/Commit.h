#pragma once

#include <QCborMap>
#include <QDateTime>
#include <QJsonObject>
#include <QList>
#include <QString>

#include <memory>
#include <optional>

namespace tw {

class Commit;
using CommitPtr = std::shared_ptr<Commit>;
using CommitList = QList<CommitPtr>;
using SharedCommitList = std::shared_ptr<CommitList>;

// One git commit as the log lists it, and a site's last deployed commit.
class Commit {
public:
    std::optional<QString> sha1;    // abbreviated hash (%h)
    std::optional<QString> author;  // %an
    std::optional<QString> time;    // relative date text (%ar), never parsed
    std::optional<QString> comment; // subject (%s)
    std::optional<QDateTime> deployedWhen;

    // Keyed archive: sha1, author, time, comment, deployedWhen.
    QCborMap encode() const;
    static CommitPtr decode(const QCborValue& archived);

    // sha1, author, time and comment; nothing without a sha1. deployedWhen
    // is deliberately not part of the JSON form.
    std::optional<QJsonObject> jsonObject() const;
    // A commit from a JSON object; anything that is not an object (such as
    // the empty text a null became) gives a commit with every field absent.
    static CommitPtr initWithDict(const QJsonValue& value);
};

} // namespace tw
