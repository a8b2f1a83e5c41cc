#include "File.h"

#include "app/Preferences.h"
#include "model/ArchiveValues.h"

#include <QFileInfo>
#include <QJsonDocument>

namespace tw {

QString File::pathOnlyFor(const QString& path, const QString& fileName) {
    QString folder = path;
    if (!fileName.isEmpty())
        folder.remove(fileName);
    return folder;
}

FilePtr File::initWithPath(const QString& path) {
    auto file = std::make_shared<File>();
    const QString fileName = path.section(QLatin1Char('/'), -1);
    file->name = fileName;
    file->pathWithFilename = path;
    file->willUpload = true;
    file->pathOnly = pathOnlyFor(path, fileName);
    return file;
}

FilePtr File::initWithDict(const QJsonObject& dict) {
    auto file = std::make_shared<File>();
    file->name = archive::jsonText(dict, u"name");
    file->pathWithFilename = archive::jsonText(dict, u"pathWithFilename");
    file->pathOnly = archive::jsonText(dict, u"pathOnly");
    file->status = archive::jsonText(dict, u"status");
    return file;
}

bool File::isDirectory(const QString& root) const {
    return QFileInfo(root + QLatin1Char('/') + pathWithFilename.value_or(QString())).isDir();
}

FilePtr File::copy() const {
    return std::make_shared<File>(*this);
}

QString File::nameOrPath() const {
    if (Preferences::instance().boolValue(QStringLiteral("showFullPath")))
        return pathWithFilename.value_or(QString());
    return name.value_or(QString());
}

QCborMap File::encode() const {
    QCborMap map;
    map.insert(QStringLiteral("name"), archive::toCbor(name));
    map.insert(QStringLiteral("pathWithFilename"), archive::toCbor(pathWithFilename));
    map.insert(QStringLiteral("pathOnly"), archive::toCbor(pathOnly));
    map.insert(QStringLiteral("status"), archive::toCbor(status));
    map.insert(QStringLiteral("gitStatus"), archive::toCbor(gitStatus));
    map.insert(QStringLiteral("willUpload"), willUpload);
    return map;
}

FilePtr File::decode(const QCborValue& archived) {
    if (!archived.isMap())
        return nullptr;
    const QCborMap map = archived.toMap();
    auto file = std::make_shared<File>();
    file->name = archive::cborText(map, u"name");
    file->pathWithFilename = archive::cborText(map, u"pathWithFilename");
    file->pathOnly = archive::cborText(map, u"pathOnly");
    file->status = archive::cborText(map, u"status");
    file->gitStatus = archive::cborText(map, u"gitStatus");
    file->willUpload = map.value(QStringLiteral("willUpload")).toBool();
    return file;
}

std::optional<QString> File::jsonObject() const {
    QJsonObject dict;
    dict.insert(QStringLiteral("name"), archive::toJson(name));
    dict.insert(QStringLiteral("pathWithFilename"), archive::toJson(pathWithFilename));
    dict.insert(QStringLiteral("pathOnly"), archive::toJson(pathOnly));
    dict.insert(QStringLiteral("status"), archive::toJson(status));
    return QString::fromUtf8(QJsonDocument(dict).toJson(QJsonDocument::Indented));
}

} // namespace tw
