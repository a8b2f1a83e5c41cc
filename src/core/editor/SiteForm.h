#pragma once

#include "model/Site.h"

#include <QList>
#include <QString>
#include <QStringList>

#include <optional>

namespace tw {

enum class SiteField {
    Name,
    LocalPath,
    SyncRootPath,
    Protocol,
    Host,
    Port,
    Username,
    SshKeyPath,
    RemotePath,
    DeployBranch,
    MandatoryFiles,
    IgnoredFiles,
};

struct FieldProblem {
    SiteField field;
    QString message;
};

// What the site editor edits, as plain texts, with the editor's checks. The
// desktop window's form and the command line's add/edit use the same rules
// and messages. Secrets go to the secret store when the form is applied,
// never only into the record.
class SiteForm {
public:
    QString name;
    QString localPath;
    QString syncRootPath;
    QString protocol = QStringLiteral("FTP");
    QString host;
    QString port;
    QString username;
    QString password;
    QString sshKeyPath;
    QString passphrase;
    bool passiveMode = true;
    QString remotePath;
    QString deployBranch;
    bool autoDeploy = false;
    QStringList mandatoryFiles; // repository-relative paths
    QStringList ignoredFiles;
    QString preDeployScriptLocal;
    QString postDeployScriptLocal;
    QString preDeployScriptRemote;
    QString postDeployScriptRemote;
    QString remotePreConnectionString;
    QString remotePostConnectionString;

    // The four protocol texts a site stores, in the order the editor offers them.
    static QStringList protocols();
    // The usual port of a protocol, shown when the port is left empty.
    static QString defaultPort(const QString& protocol);
    static QString fieldName(SiteField field);

    // The form of a stored site; its password and pass phrase come from the
    // secret store.
    static SiteForm fromSite(Site& site);

    // Everything that is wrong, field by field; empty when the form passes.
    QList<FieldProblem> validate() const;
    // The problems of the fields a connection test needs (protocol, host,
    // port, user, key, remote path); the rest of the form may wait.
    QList<FieldProblem> serverProblems() const;
    // The person changed nothing the site editor edits (the scripts aside).
    bool hasSameEdits(const SiteForm& other) const;

    // The top folder of the git repository that holds folder, when folder is
    // a folder below it (not the top itself): a person who picks the folder
    // to publish is offered the repository with it as the sync root.
    static std::optional<QString> repositoryRootOf(const QString& folder);

    // Writes the form into the site, secrets aside: the remote path
    // normalised to end with "/", the sync root to a relative folder ending
    // with "/", the folder's bookmark and isValid.
    void applyRecordTo(Site& site) const;
    enum class Secret { Password, Passphrase };
    // Writes the password and pass phrase into the secret store under the
    // site's id (an empty one removes the stored one). Given the form as it
    // was loaded, only a secret that differs from it is written, so a store
    // that did not answer when the form was loaded loses nothing. Answers
    // the secret the store did not take, or nothing.
    std::optional<Secret> storeSecrets(const QString& siteId,
                                       const std::optional<SiteForm>& loaded = std::nullopt) const;
    // Both; false when the secret store did not take a secret (the record is
    // written all the same).
    bool applyTo(Site& site) const;
};

} // namespace tw
