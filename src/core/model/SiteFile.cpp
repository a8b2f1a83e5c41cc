#include "SiteFile.h"

#include "model/File.h"

#include <QDir>
#include <QFile>
#include <QFileInfo>
#include <QJsonArray>
#include <QJsonDocument>
#include <QJsonParseError>

namespace tw {

namespace {

QString resolved(const QDir& folder, const QString& path) {
    if (path.isEmpty())
        return folder.absolutePath();
    return QDir::cleanPath(folder.absoluteFilePath(path));
}

} // namespace

SitePtr SiteFile::read(const QString& path, QString* error) {
    const auto failWith = [error](const QString& text) -> SitePtr {
        if (error)
            *error = text;
        return nullptr;
    };
    QFile file(path);
    if (!file.open(QIODevice::ReadOnly))
        return failWith(QStringLiteral("Cannot read the site file %1: %2.").arg(path, file.errorString()));
    QJsonParseError parse{};
    const QJsonDocument document = QJsonDocument::fromJson(file.readAll(), &parse);
    if (parse.error != QJsonParseError::NoError)
        return failWith(QStringLiteral("The site file %1 is not valid JSON: %2 (at byte %3).")
                            .arg(path, parse.errorString())
                            .arg(parse.offset));
    QJsonObject object;
    if (document.isObject()) {
        object = document.object();
    } else if (document.isArray() && document.array().size() == 1 && document.array().first().isObject()) {
        object = document.array().first().toObject();
    } else {
        return failWith(
            QStringLiteral("The site file %1 holds no site: it must hold one site object (or a list "
                           "of exactly one), as an export writes it.")
                .arg(path));
    }
    const QJsonValue password = object.value(QStringLiteral("password"));
    if (!password.isNull() && !password.isUndefined() &&
        !(password.isString() && password.toString().isEmpty()))
        return failWith(
            QStringLiteral("The site file %1 holds a password. Passwords never belong in a repository: "
                           "remove it from the file and give it to the command through an "
                           "environment variable (--password-env NAME).")
                .arg(path));

    SitePtr site = Site::initWithDict(object);
    site->password.reset();
    // A CI run takes the last deployed commit from the server's record.
    site->lastCommitDeployed.reset();
    const QDir folder = QFileInfo(path).absoluteDir();
    site->localPath = resolved(folder, site->localPath.value_or(QString()));
    if (site->sshKeyPath && !site->sshKeyPath->isEmpty())
        site->sshKeyPath = resolved(folder, *site->sshKeyPath);
    else
        site->sshKeyPath.reset();
    if (!site->version)
        site->version = QStringLiteral("2");
    return site;
}

QJsonObject SiteFile::forRepository(Site& site, const QString& filePath, const QStringList& alsoIgnored) {
    QJsonObject object = site.jsonObject(std::nullopt);
    object.remove(QStringLiteral("password"));
    object.insert(QStringLiteral("lastCommitDeployed"), QJsonValue(QJsonValue::Null));
    object.insert(QStringLiteral("sshKeyPath"), QJsonValue(QJsonValue::Null));
    const QString repository = site.localPath.value_or(QString());
    const QDir fileFolder = QFileInfo(filePath).absoluteDir();
    QString relative = fileFolder.relativeFilePath(repository);
    if (relative.isEmpty())
        relative = QStringLiteral(".");
    object.insert(QStringLiteral("localPath"), relative);

    QJsonArray ignored = object.value(QStringLiteral("ignoredFiles")).toArray();
    QStringList present;
    for (const QJsonValue& entry : std::as_const(ignored)) {
        const QJsonObject file = QJsonDocument::fromJson(entry.toString().toUtf8()).object();
        present.append(file.value(QStringLiteral("pathWithFilename")).toString());
    }
    QStringList toIgnore{QDir(repository).relativeFilePath(QFileInfo(filePath).absoluteFilePath())};
    toIgnore += alsoIgnored;
    for (const QString& path : std::as_const(toIgnore)) {
        if (path.isEmpty() || path.startsWith(QStringLiteral("..")) || present.contains(path))
            continue;
        if (const std::optional<QString> text = File::initWithPath(path)->jsonObject())
            ignored.append(*text);
        present.append(path);
    }
    object.insert(QStringLiteral("ignoredFiles"), ignored);
    return object;
}

} // namespace tw
