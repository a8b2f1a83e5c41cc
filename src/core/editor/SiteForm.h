#pragma once

#include "model/Site.h"

#include <QList>
#include <QString>
#include <QStringList>

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

    // Writes the form into the site: the remote path normalised to end with
    // "/", the sync root to a relative folder ending with "/", the folder's
    // bookmark, isValid, and the password and pass phrase into the secret
    // store under the site's id (an empty one removes the stored one).
    void applyTo(Site& site) const;
};

} // namespace tw
