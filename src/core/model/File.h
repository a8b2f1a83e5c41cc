#pragma once

#include <QCborMap>
#include <QJsonObject>
#include <QList>
#include <QString>

#include <memory>
#include <optional>

namespace tw {

class File;
using FilePtr = std::shared_ptr<File>;
using FileList = QList<FilePtr>;
// A list that records share: assigning it to another record shares it.
using SharedFileList = std::shared_ptr<FileList>;

// One repository-relative file to upload or delete, or one entry of a site's
// mandatory or ignored list. Files have identity: lists hold pointers and the
// same object is compared by address.
class File {
public:
    bool willUpload = false;
    std::optional<QString> name;
    std::optional<QString> pathWithFilename;
    std::optional<QString> pathOnly;
    std::optional<QString> status;
    std::optional<QString> gitStatus;

    // name = last component, pathOnly = the path with every occurrence of the
    // name removed (so lib/lib gives "/"), willUpload = true.
    static FilePtr initWithPath(const QString& path);
    // name, pathWithFilename, pathOnly and status from the keys of the same
    // names (texts only); willUpload stays false, gitStatus absent.
    static FilePtr initWithDict(const QJsonObject& dict);

    // True when root + "/" + pathWithFilename is an existing folder.
    bool isDirectory(const QString& root) const;
    FilePtr copy() const;
    // The full path when the preference "showFullPath" is on, else the name.
    QString nameOrPath() const;

    // Keyed archive: name, pathWithFilename, pathOnly, status, gitStatus, willUpload.
    QCborMap encode() const;
    static FilePtr decode(const QCborValue& archived);

    // A pretty-printed JSON text of name, pathWithFilename, pathOnly and status
    // (absent values as null).
    std::optional<QString> jsonObject() const;

    static QString pathOnlyFor(const QString& path, const QString& name);
};

} // namespace tw
