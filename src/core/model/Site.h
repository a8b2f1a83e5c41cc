#pragma once

#include "app/Error.h"
#include "model/Commit.h"
#include "model/File.h"

#include <QByteArray>
#include <QCborMap>
#include <QJsonObject>
#include <QString>
#include <QStringList>

#include <memory>
#include <optional>

namespace tw {

class Site;
using SitePtr = std::shared_ptr<Site>;
using SiteList = QList<SitePtr>;
using SharedStringList = std::shared_ptr<QStringList>;

// One deployment target: which repository (and which sub-folder of it) goes
// to which server, how, with which credentials, branch, scripts and file
// lists, and what was last deployed there.
//
// Three forms are kept apart on purpose: the object, the keyed archive of the
// stored site list (which keeps the key "password" but no secret: passwords
// live in the secret store) and the JSON object of an export (which takes the
// password from the secret store and leaves out the bookmark, the commit
// cache and the flags). Absent fields are std::nullopt or null pointers; an
// empty text is a value.
class Site {
public:
    qint64 siteIndex = 0; // -1: not in the list yet
    std::optional<QString> version;
    std::optional<QString> name;
    std::optional<QString> host;
    std::optional<QString> username;
    std::optional<QString> password;
    std::optional<QString> localPath;
    std::optional<QString> syncRootPath;
    std::optional<QByteArray> bookmarkData;
    std::optional<QString> remotePath;
    CommitPtr lastCommitDeployed;
    std::optional<QString> deployBranch;
    SharedCommitList commits;
    SharedStringList branches;
    std::optional<QString> protocol; // "FTP", "FTP with implicit SSL", "FTP with TLS/SSL" or "SFTP"
    std::optional<QString> port;
    bool passiveMode = false;
    std::optional<QString> preDeployScriptLocal;
    std::optional<QString> postDeployScriptLocal;
    std::optional<QString> preDeployScriptRemote;
    std::optional<QString> postDeployScriptRemote;
    std::optional<QString> remotePreConnectionString;
    std::optional<QString> remotePostConnectionString;
    SharedFileList mandatoryFiles;
    SharedFileList ignoredFiles;
    std::optional<QString> sshKeyPath;
    std::optional<Error> lastError; // never stored
    bool isValid = false;
    bool autoDeploy = false;

    // A new site as the site editor makes it: index -1, "FTP", passive.
    static SitePtr newSite();

    // The id, made on first read. A record without a version was written by
    // an older release: the first read also marks it version "2" with passive
    // mode on.
    QString siteId();
    void setSiteId(const std::optional<QString>& siteId) { m_siteId = siteId; }
    bool hasSiteId() const { return m_siteId.has_value(); }
    void generateSiteId();

    // Only updatedNow sets the stamp; the getter never fills it in.
    std::optional<double> lastEdit() const;
    void setLastEdit(const std::optional<double>& stamp) { m_lastEdit = stamp; }
    void updatedNow();

    // A shallow copy: texts, lists and the last deployed commit are shared;
    // siteIndex and lastError start fresh. Reads siteId through its getter,
    // so the source gets an id first and the copy has the same one.
    SitePtr copy();

    // The archive writes "password" as null, except for a password an
    // earlier version stored there that the secret store has not taken yet
    // (passwordKeptInList): that one stays until it has moved.
    QCborMap encode();
    // A password found in the archive fills both `password` and
    // passwordKeptInList.
    static SitePtr decode(const QCborValue& archived);

    const std::optional<QString>& passwordKeptInList() const { return m_passwordKeptInList; }
    // The secret store holds the password now: the archive drops it.
    void passwordMovedToSecretStore();

    // The 27-key export object; the password comes from the secret store
    // (or, while the store cannot take it, from the stored list).
    QJsonObject jsonObject();
    // The same object with the given password (none: null), the secret store
    // left alone.
    QJsonObject jsonObject(const std::optional<QString>& exportedPassword);
    // A site from an export object; nulls become empty texts.
    static SitePtr initWithDict(const QJsonObject& dict);

    // False when the secret store did not take it.
    bool savePasswordToKeychain();

private:
    std::optional<QString> m_siteId;
    std::optional<QString> m_passwordKeptInList;
    std::optional<double> m_lastEdit;
};

} // namespace tw
