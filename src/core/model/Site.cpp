#include "Site.h"

#include "keychain/TWPasswords.h"
#include "model/ArchiveValues.h"
#include "model/NullReplacement.h"

#include <QCborArray>
#include <QDateTime>
#include <QJsonArray>
#include <QJsonDocument>
#include <QUuid>

#include <limits>

namespace tw {

namespace {

qint64 leadingInteger(const QString& text) {
    // Like reading an integer from the start of a text: white space, a sign,
    // digits; anything after them is ignored and no digits give 0.
    qsizetype i = 0;
    while (i < text.size() && text.at(i).isSpace())
        ++i;
    bool negative = false;
    if (i < text.size() && (text.at(i) == u'-' || text.at(i) == u'+')) {
        negative = text.at(i) == u'-';
        ++i;
    }
    qint64 value = 0;
    for (; i < text.size() && text.at(i) >= u'0' && text.at(i) <= u'9'; ++i) {
        if (value > (std::numeric_limits<qint64>::max() - 9) / 10)
            return negative ? std::numeric_limits<qint64>::min() : std::numeric_limits<qint64>::max();
        value = value * 10 + (text.at(i).unicode() - u'0');
    }
    return negative ? -value : value;
}

bool leadingBool(const QString& text) {
    // "true", "YES", "1" and the like are true; "false", "no", "0" and "" are false.
    qsizetype i = 0;
    while (i < text.size() && text.at(i).isSpace())
        ++i;
    if (i < text.size() && (text.at(i) == u'-' || text.at(i) == u'+'))
        ++i;
    while (i < text.size() && text.at(i) == u'0')
        ++i;
    if (i >= text.size())
        return false;
    const QChar c = text.at(i);
    return c == u'Y' || c == u'y' || c == u'T' || c == u't' || (c >= u'1' && c <= u'9');
}

qint64 jsonInteger(const QJsonValue& value) {
    if (value.isDouble()) {
        const double d = value.toDouble();
        if (d >= 9.2e18 || d <= -9.2e18 || d != d)
            return 0;
        return static_cast<qint64>(d);
    }
    if (value.isString())
        return leadingInteger(value.toString());
    if (value.isBool())
        return value.toBool() ? 1 : 0;
    return 0;
}

bool jsonBool(const QJsonValue& value) {
    if (value.isBool())
        return value.toBool();
    if (value.isDouble())
        return value.toDouble() != 0;
    if (value.isString())
        return leadingBool(value.toString());
    return false;
}

// A text field of an imported site: a text as it is, a number as its
// decimal text (a port written as 21), anything else absent.
std::optional<QString> jsonString(const QJsonObject& dict, QStringView key) {
    const QJsonValue value = dict.value(key);
    if (value.isString())
        return value.toString();
    if (value.isDouble()) {
        const double d = value.toDouble();
        if (d == static_cast<double>(static_cast<qint64>(d)) && d < 9.2e18 && d > -9.2e18)
            return QString::number(static_cast<qint64>(d));
        return QString::number(d, 'g', 17);
    }
    return std::nullopt;
}

SharedFileList filesFromJson(const QJsonValue& value) {
    auto files = std::make_shared<FileList>();
    if (!value.isArray())
        return files;
    for (const QJsonValue& element : value.toArray()) {
        // Each entry is a JSON text of its own; one that does not parse gives
        // an entry whose fields are all absent.
        QJsonObject dict;
        if (element.isString()) {
            const QJsonDocument document = QJsonDocument::fromJson(element.toString().toUtf8());
            if (document.isObject())
                dict = dictionaryByReplacingNullsWithBlanks(document.object());
        }
        files->append(File::initWithDict(dict));
    }
    return files;
}

QJsonValue filesToJson(const SharedFileList& files) {
    if (!files)
        return QJsonValue::Null;
    QJsonArray array;
    for (const FilePtr& file : *files) {
        const auto text = file ? file->jsonObject() : std::nullopt;
        array.append(text ? QJsonValue(*text) : QJsonValue(QJsonValue::Null));
    }
    return array;
}

QCborValue filesToCbor(const SharedFileList& files) {
    if (!files)
        return QCborValue(QCborValue::Null);
    QCborArray array;
    for (const FilePtr& file : *files)
        array.append(file ? QCborValue(file->encode()) : QCborValue(QCborValue::Null));
    return array;
}

SharedFileList filesFromCbor(const QCborValue& value) {
    if (!value.isArray())
        return nullptr;
    auto files = std::make_shared<FileList>();
    for (const QCborValue& element : value.toArray()) {
        if (FilePtr file = File::decode(element))
            files->append(file);
    }
    return files;
}

} // namespace

SitePtr Site::newSite() {
    auto site = std::make_shared<Site>();
    site->siteIndex = -1;
    site->protocol = QStringLiteral("FTP");
    site->passiveMode = true;
    return site;
}

QString Site::siteId() {
    if (!m_siteId)
        generateSiteId();
    if (!version) {
        version = QStringLiteral("2");
        passiveMode = true;
    }
    return *m_siteId;
}

void Site::generateSiteId() {
    m_siteId = QUuid::createUuid().toString(QUuid::WithoutBraces).toUpper();
}

std::optional<double> Site::lastEdit() const {
    if (!m_lastEdit) {
        // The current time is computed and deliberately not kept: only
        // updatedNow, called when a new site joins the list, sets the stamp.
        [[maybe_unused]] const double now = static_cast<double>(QDateTime::currentMSecsSinceEpoch()) / 1000.0;
    }
    return m_lastEdit;
}

void Site::updatedNow() {
    m_lastEdit = static_cast<double>(QDateTime::currentMSecsSinceEpoch()) / 1000.0;
}

SitePtr Site::copy() {
    siteId();
    auto site = std::make_shared<Site>(*this);
    site->siteIndex = 0;
    site->lastError.reset();
    return site;
}

QCborMap Site::encode() {
    QCborMap map;
    map.insert(QStringLiteral("siteId"), archive::toCbor(siteId()));
    map.insert(QStringLiteral("version"), archive::toCbor(version));
    map.insert(QStringLiteral("name"), archive::toCbor(name));
    map.insert(QStringLiteral("lastEdit"),
               m_lastEdit ? QCborValue(*m_lastEdit) : QCborValue(QCborValue::Null));
    map.insert(QStringLiteral("host"), archive::toCbor(host));
    map.insert(QStringLiteral("username"), archive::toCbor(username));
    map.insert(QStringLiteral("password"), archive::toCbor(m_passwordKeptInList));
    map.insert(QStringLiteral("localPath"), archive::toCbor(localPath));
    map.insert(QStringLiteral("syncRootPath"), archive::toCbor(syncRootPath));
    map.insert(QStringLiteral("bookmarkData"),
               bookmarkData ? QCborValue(*bookmarkData) : QCborValue(QCborValue::Null));
    map.insert(QStringLiteral("remotePath"), archive::toCbor(remotePath));
    map.insert(QStringLiteral("lastCommitDeployed"),
               lastCommitDeployed ? QCborValue(lastCommitDeployed->encode()) : QCborValue(QCborValue::Null));
    map.insert(QStringLiteral("deployBranch"), archive::toCbor(deployBranch));
    // The commit list is a cache the window fills from git whenever it lists
    // the files: stored with every save it made the list grow with the
    // repository's whole history. The key stays, empty.
    map.insert(QStringLiteral("commits"), QCborValue(QCborValue::Null));
    map.insert(QStringLiteral("branches"),
               branches ? QCborValue(QCborArray::fromStringList(*branches)) : QCborValue(QCborValue::Null));
    map.insert(QStringLiteral("protocol"), archive::toCbor(protocol));
    map.insert(QStringLiteral("isValid"), isValid);
    map.insert(QStringLiteral("autoDeploy"), autoDeploy);
    map.insert(QStringLiteral("port"), archive::toCbor(port));
    map.insert(QStringLiteral("passiveMode"), passiveMode);
    map.insert(QStringLiteral("preDeployScriptLocal"), archive::toCbor(preDeployScriptLocal));
    map.insert(QStringLiteral("postDeployScriptLocal"), archive::toCbor(postDeployScriptLocal));
    map.insert(QStringLiteral("preDeployScriptRemote"), archive::toCbor(preDeployScriptRemote));
    map.insert(QStringLiteral("postDeployScriptRemote"), archive::toCbor(postDeployScriptRemote));
    map.insert(QStringLiteral("sshKeyPath"), archive::toCbor(sshKeyPath));
    map.insert(QStringLiteral("mandatoryFiles"), filesToCbor(mandatoryFiles));
    map.insert(QStringLiteral("ignoredFiles"), filesToCbor(ignoredFiles));
    map.insert(QStringLiteral("remotePreConnectionString"), archive::toCbor(remotePreConnectionString));
    map.insert(QStringLiteral("remotePostConnectionString"), archive::toCbor(remotePostConnectionString));
    return map;
}

SitePtr Site::decode(const QCborValue& archived) {
    if (!archived.isMap())
        return nullptr;
    const QCborMap map = archived.toMap();
    auto site = std::make_shared<Site>();
    auto text = [&map](const char16_t* key) { return archive::cborText(map, key); };
    site->m_siteId = text(u"siteId");
    site->version = text(u"version");
    site->name = text(u"name");
    const QCborValue lastEdit = map.value(QStringLiteral("lastEdit"));
    if (lastEdit.isDouble() || lastEdit.isInteger())
        site->m_lastEdit = lastEdit.toDouble();
    site->host = text(u"host");
    site->username = text(u"username");
    if (const auto kept = text(u"password"); kept && !kept->isEmpty()) {
        site->m_passwordKeptInList = kept;
        site->password = kept;
    }
    site->localPath = text(u"localPath");
    site->syncRootPath = text(u"syncRootPath");
    const QCborValue bookmark = map.value(QStringLiteral("bookmarkData"));
    if (bookmark.isByteArray())
        site->bookmarkData = bookmark.toByteArray();
    site->remotePath = text(u"remotePath");
    site->lastCommitDeployed = Commit::decode(map.value(QStringLiteral("lastCommitDeployed")));
    site->deployBranch = text(u"deployBranch");
    const QCborValue commits = map.value(QStringLiteral("commits"));
    if (commits.isArray()) {
        site->commits = std::make_shared<CommitList>();
        for (const QCborValue& element : commits.toArray()) {
            if (CommitPtr commit = Commit::decode(element))
                site->commits->append(commit);
        }
    }
    const QCborValue branches = map.value(QStringLiteral("branches"));
    if (branches.isArray()) {
        site->branches = std::make_shared<QStringList>();
        for (const QCborValue& element : branches.toArray()) {
            if (element.isString())
                site->branches->append(element.toString());
        }
    }
    site->protocol = text(u"protocol");
    site->isValid = map.value(QStringLiteral("isValid")).toBool();
    site->autoDeploy = map.value(QStringLiteral("autoDeploy")).toBool();
    site->port = text(u"port");
    site->passiveMode = map.value(QStringLiteral("passiveMode")).toBool();
    site->preDeployScriptLocal = text(u"preDeployScriptLocal");
    site->postDeployScriptLocal = text(u"postDeployScriptLocal");
    site->preDeployScriptRemote = text(u"preDeployScriptRemote");
    site->postDeployScriptRemote = text(u"postDeployScriptRemote");
    site->sshKeyPath = text(u"sshKeyPath");
    site->mandatoryFiles = filesFromCbor(map.value(QStringLiteral("mandatoryFiles")));
    site->ignoredFiles = filesFromCbor(map.value(QStringLiteral("ignoredFiles")));
    site->remotePreConnectionString = text(u"remotePreConnectionString");
    site->remotePostConnectionString = text(u"remotePostConnectionString");
    return site;
}

void Site::passwordMovedToSecretStore() {
    m_passwordKeptInList.reset();
    password.reset();
}

QJsonObject Site::jsonObject() {
    const auto stored = TWPasswords::getPasswordForSite(siteId());
    return jsonObject(stored ? stored : m_passwordKeptInList);
}

QJsonObject Site::jsonObject(const std::optional<QString>& exportedPassword) {
    QJsonObject dict;
    dict.insert(QStringLiteral("siteIndex"), static_cast<double>(siteIndex));
    dict.insert(QStringLiteral("password"), archive::toJson(exportedPassword));
    dict.insert(QStringLiteral("version"), archive::toJson(version));
    dict.insert(QStringLiteral("siteId"), archive::toJson(m_siteId));
    dict.insert(QStringLiteral("name"), archive::toJson(name));
    dict.insert(QStringLiteral("host"), archive::toJson(host));
    dict.insert(QStringLiteral("username"), archive::toJson(username));
    dict.insert(QStringLiteral("localPath"), archive::toJson(localPath));
    dict.insert(QStringLiteral("syncRootPath"), archive::toJson(syncRootPath));
    dict.insert(QStringLiteral("remotePath"), archive::toJson(remotePath));
    const auto commit = lastCommitDeployed ? lastCommitDeployed->jsonObject() : std::nullopt;
    dict.insert(QStringLiteral("lastCommitDeployed"),
                commit ? QJsonValue(*commit) : QJsonValue(QJsonValue::Null));
    dict.insert(QStringLiteral("deployBranch"), archive::toJson(deployBranch));
    dict.insert(QStringLiteral("branches"),
                branches ? QJsonValue(QJsonArray::fromStringList(*branches)) : QJsonValue(QJsonValue::Null));
    dict.insert(QStringLiteral("protocol"), archive::toJson(protocol));
    dict.insert(QStringLiteral("port"), archive::toJson(port));
    dict.insert(QStringLiteral("passiveMode"), passiveMode);
    dict.insert(QStringLiteral("preDeployScriptLocal"), archive::toJson(preDeployScriptLocal));
    dict.insert(QStringLiteral("postDeployScriptLocal"), archive::toJson(postDeployScriptLocal));
    dict.insert(QStringLiteral("preDeployScriptRemote"), archive::toJson(preDeployScriptRemote));
    dict.insert(QStringLiteral("postDeployScriptRemote"), archive::toJson(postDeployScriptRemote));
    dict.insert(QStringLiteral("remotePreConnectionString"), archive::toJson(remotePreConnectionString));
    dict.insert(QStringLiteral("remotePostConnectionString"), archive::toJson(remotePostConnectionString));
    dict.insert(QStringLiteral("mandatoryFiles"), filesToJson(mandatoryFiles));
    dict.insert(QStringLiteral("ignoredFiles"), filesToJson(ignoredFiles));
    dict.insert(QStringLiteral("sshKeyPath"), archive::toJson(sshKeyPath));
    dict.insert(QStringLiteral("exportDate"),
                static_cast<double>(QDateTime::currentMSecsSinceEpoch()) / 1000.0);
    dict.insert(QStringLiteral("lastEdit"),
                m_lastEdit ? QJsonValue(*m_lastEdit) : QJsonValue(QJsonValue::Null));
    return dict;
}

SitePtr Site::initWithDict(const QJsonObject& input) {
    const QJsonObject dict = dictionaryByReplacingNullsWithBlanks(input);
    auto site = std::make_shared<Site>();
    const SharedFileList mandatory = filesFromJson(dict.value(u"mandatoryFiles"));
    const SharedFileList ignored = filesFromJson(dict.value(u"ignoredFiles"));

    site->siteIndex = jsonInteger(dict.value(u"siteIndex"));
    site->password = jsonString(dict, u"password");
    site->version = jsonString(dict, u"version");
    site->m_siteId = jsonString(dict, u"siteId");
    site->name = jsonString(dict, u"name");
    const QJsonValue lastEdit = dict.value(u"lastEdit");
    if (lastEdit.isDouble())
        site->m_lastEdit = lastEdit.toDouble();
    site->host = jsonString(dict, u"host");
    site->username = jsonString(dict, u"username");
    site->localPath = jsonString(dict, u"localPath");
    site->syncRootPath = jsonString(dict, u"syncRootPath");
    site->remotePath = jsonString(dict, u"remotePath");
    site->deployBranch = jsonString(dict, u"deployBranch");
    site->lastCommitDeployed = Commit::initWithDict(dict.value(u"lastCommitDeployed"));
    const QJsonValue branches = dict.value(u"branches");
    if (branches.isArray()) {
        site->branches = std::make_shared<QStringList>();
        for (const QJsonValue& branch : branches.toArray()) {
            if (branch.isString())
                site->branches->append(branch.toString());
        }
    }
    site->protocol = jsonString(dict, u"protocol");
    site->port = jsonString(dict, u"port");
    site->passiveMode = jsonBool(dict.value(u"passiveMode"));
    site->preDeployScriptLocal = jsonString(dict, u"preDeployScriptLocal");
    site->postDeployScriptLocal = jsonString(dict, u"postDeployScriptLocal");
    site->preDeployScriptRemote = jsonString(dict, u"preDeployScriptRemote");
    site->postDeployScriptRemote = jsonString(dict, u"postDeployScriptRemote");
    site->remotePreConnectionString = jsonString(dict, u"remotePreConnectionString");
    site->remotePostConnectionString = jsonString(dict, u"remotePostConnectionString");
    site->mandatoryFiles = mandatory;
    site->ignoredFiles = ignored;
    site->sshKeyPath = jsonString(dict, u"sshKeyPath");
    return site;
}

bool Site::savePasswordToKeychain() {
    return TWPasswords::setPassword(password, siteId());
}

} // namespace tw
