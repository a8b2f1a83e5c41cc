#include "SiteForm.h"

#include "git/SiteManager.h"
#include "git/TWGit.h"
#include "keychain/TWPasswords.h"
#include "model/SecurityBookmarkManager.h"
#include "model/TWUtilities.h"

#include <QDir>
#include <QFileInfo>

namespace tw {

namespace {

QString normalisedSyncRoot(QString root) {
    root = root.trimmed();
    while (root.startsWith(QLatin1Char('/')))
        root.remove(0, 1);
    if (!root.isEmpty() && !root.endsWith(QLatin1Char('/')))
        root += QLatin1Char('/');
    return root;
}

bool isRelativeInside(const QString& path) {
    if (path.isEmpty() || path.startsWith(QLatin1Char('/')))
        return false;
    const QStringList parts = path.split(QLatin1Char('/'));
    return !parts.contains(QStringLiteral(".."));
}

std::optional<QString> optionalText(const QString& text) {
    if (text.isEmpty())
        return std::nullopt;
    return text;
}

SharedFileList filesFrom(const QStringList& paths) {
    auto files = std::make_shared<FileList>();
    for (const QString& path : paths)
        files->append(File::initWithPath(path));
    return files;
}

QStringList pathsOf(const SharedFileList& files) {
    QStringList paths;
    if (!files)
        return paths;
    for (const FilePtr& file : *files) {
        if (file && file->pathWithFilename)
            paths.append(*file->pathWithFilename);
    }
    return paths;
}

} // namespace

QStringList SiteForm::protocols() {
    return {QStringLiteral("FTP"), QStringLiteral("FTP with implicit SSL"),
            QStringLiteral("FTP with TLS/SSL"), QStringLiteral("SFTP")};
}

QString SiteForm::defaultPort(const QString& protocol) {
    if (protocol == u"SFTP")
        return QStringLiteral("22");
    if (protocol == u"FTP with implicit SSL")
        return QStringLiteral("990");
    return QStringLiteral("21");
}

QString SiteForm::fieldName(SiteField field) {
    switch (field) {
    case SiteField::Name:
        return QStringLiteral("name");
    case SiteField::LocalPath:
        return QStringLiteral("repository folder");
    case SiteField::SyncRootPath:
        return QStringLiteral("sync root");
    case SiteField::Protocol:
        return QStringLiteral("protocol");
    case SiteField::Host:
        return QStringLiteral("host");
    case SiteField::Port:
        return QStringLiteral("port");
    case SiteField::Username:
        return QStringLiteral("user name");
    case SiteField::SshKeyPath:
        return QStringLiteral("private key");
    case SiteField::RemotePath:
        return QStringLiteral("remote path");
    case SiteField::DeployBranch:
        return QStringLiteral("deploy branch");
    case SiteField::MandatoryFiles:
        return QStringLiteral("always uploaded files");
    case SiteField::IgnoredFiles:
        return QStringLiteral("ignored files");
    }
    return QString();
}

SiteForm SiteForm::fromSite(Site& site) {
    SiteForm form;
    form.name = site.name.value_or(QString());
    form.localPath = site.localPath.value_or(QString());
    form.syncRootPath = site.syncRootPath.value_or(QString());
    form.protocol = site.protocol.value_or(QStringLiteral("FTP"));
    form.host = site.host.value_or(QString());
    form.port = site.port.value_or(QString());
    form.username = site.username.value_or(QString());
    form.password =
        TWPasswords::getPasswordForSite(site.siteId()).value_or(site.password.value_or(QString()));
    form.sshKeyPath = site.sshKeyPath.value_or(QString());
    form.passphrase = TWPasswords::getPassphraseForSite(site.siteId()).value_or(QString());
    form.passiveMode = site.passiveMode;
    form.remotePath = site.remotePath.value_or(QString());
    form.deployBranch = site.deployBranch.value_or(QString());
    form.autoDeploy = site.autoDeploy;
    form.mandatoryFiles = pathsOf(site.mandatoryFiles);
    form.ignoredFiles = pathsOf(site.ignoredFiles);
    form.preDeployScriptLocal = site.preDeployScriptLocal.value_or(QString());
    form.postDeployScriptLocal = site.postDeployScriptLocal.value_or(QString());
    form.preDeployScriptRemote = site.preDeployScriptRemote.value_or(QString());
    form.postDeployScriptRemote = site.postDeployScriptRemote.value_or(QString());
    form.remotePreConnectionString = site.remotePreConnectionString.value_or(QString());
    form.remotePostConnectionString = site.remotePostConnectionString.value_or(QString());
    return form;
}

QList<FieldProblem> SiteForm::serverProblems() const {
    const QList<SiteField> serverFields = {SiteField::Protocol, SiteField::Host,       SiteField::Port,
                                           SiteField::Username, SiteField::SshKeyPath, SiteField::RemotePath};
    QList<FieldProblem> problems;
    for (const FieldProblem& problem : validate()) {
        if (serverFields.contains(problem.field))
            problems.append(problem);
    }
    return problems;
}

bool SiteForm::hasSameEdits(const SiteForm& b) const {
    return name == b.name && localPath == b.localPath && syncRootPath == b.syncRootPath &&
           protocol == b.protocol && host == b.host && port == b.port && username == b.username &&
           password == b.password && sshKeyPath == b.sshKeyPath && passphrase == b.passphrase &&
           passiveMode == b.passiveMode && remotePath == b.remotePath && deployBranch == b.deployBranch &&
           autoDeploy == b.autoDeploy && mandatoryFiles == b.mandatoryFiles && ignoredFiles == b.ignoredFiles;
}

QList<FieldProblem> SiteForm::validate() const {
    QList<FieldProblem> problems;
    auto problem = [&problems](SiteField field, const QString& message) {
        problems.append({field, message});
    };

    if (name.trimmed().isEmpty())
        problem(SiteField::Name, QStringLiteral("Enter a name for the site."));

    const QFileInfo folder(localPath);
    if (localPath.isEmpty())
        problem(SiteField::LocalPath, QStringLiteral("Choose the folder of the site's git repository."));
    else if (!folder.isAbsolute())
        problem(SiteField::LocalPath, QStringLiteral("The repository folder must be an absolute path."));
    else if (!folder.isDir())
        problem(SiteField::LocalPath,
                QStringLiteral("The folder \u2018%1\u2019 does not exist.").arg(localPath));
    else if (!TWGit::isGitDirectory(localPath))
        problem(SiteField::LocalPath,
                QStringLiteral(
                    "\u2018%1\u2019 is not a git repository: it has no .git folder. Choose the folder in "
                    "which you ran \u201cgit init\u201d or \u201cgit clone\u201d.")
                    .arg(localPath));

    const QString root = normalisedSyncRoot(syncRootPath);
    if (!root.isEmpty()) {
        if (!isRelativeInside(root.chopped(1)))
            problem(
                SiteField::SyncRootPath,
                QStringLiteral(
                    "The sync root must be a folder inside the repository, such as \u201cpublic/\u201d."));
        else if (folder.isDir() && !QFileInfo(localPath + QLatin1Char('/') + root).isDir())
            problem(SiteField::SyncRootPath,
                    QStringLiteral("The repository has no folder \u2018%1\u2019.").arg(root));
    }

    if (!protocols().contains(protocol))
        problem(
            SiteField::Protocol,
            QStringLiteral("Choose one of the protocols: %1.").arg(protocols().join(QStringLiteral(", "))));

    const QString trimmedHost = host.trimmed();
    if (trimmedHost.isEmpty())
        problem(SiteField::Host, QStringLiteral("Enter the server's host name or address."));
    else if (trimmedHost.contains(QStringLiteral("://")) || trimmedHost.contains(QLatin1Char('/')) ||
             trimmedHost.contains(QLatin1Char(' ')) || trimmedHost.contains(QLatin1Char('@')))
        problem(SiteField::Host,
                QStringLiteral("Enter only the host name, without a protocol, user name or path (for example "
                               "ftp.example.org)."));

    if (!port.isEmpty()) {
        bool ok = false;
        const int number = port.toInt(&ok);
        if (!ok || number < 1 || number > 65535)
            problem(SiteField::Port, QStringLiteral("The port must be a number from 1 to 65535."));
    }

    if (username.isEmpty())
        problem(SiteField::Username, QStringLiteral("You must provide a username in the remote settings"));

    if (protocol == u"SFTP" && !sshKeyPath.isEmpty() && !QFileInfo(sshKeyPath).isReadable())
        problem(SiteField::SshKeyPath,
                QStringLiteral("The key file \u2018%1\u2019 cannot be read.").arg(sshKeyPath));

    if (remotePath.contains(QLatin1Char('\n')) || remotePath.contains(QLatin1Char('\t')))
        problem(SiteField::RemotePath, QStringLiteral("The remote path cannot hold line breaks or tabs."));

    QString why;
    if (deployBranch.isEmpty())
        problem(SiteField::DeployBranch, QStringLiteral("Choose the branch that is deployed."));
    else if (!SiteManager::isAcceptableBranchName(deployBranch, &why))
        problem(SiteField::DeployBranch,
                QStringLiteral("\u2018%1\u2019 cannot be a branch name: %2").arg(deployBranch, why));

    for (const QString& path : mandatoryFiles) {
        if (!isRelativeInside(path))
            problem(SiteField::MandatoryFiles,
                    QStringLiteral("\u2018%1\u2019 is not a path inside the repository.").arg(path));
    }
    for (const QString& path : ignoredFiles) {
        if (!isRelativeInside(path))
            problem(SiteField::IgnoredFiles,
                    QStringLiteral("\u2018%1\u2019 is not a path inside the repository.").arg(path));
    }
    return problems;
}

std::optional<QString> SiteForm::repositoryRootOf(const QString& folder) {
    const QFileInfo chosen(folder);
    if (folder.isEmpty() || !chosen.isDir())
        return std::nullopt;
    const TWGit::Output output =
        TWGit().run({QStringLiteral("rev-parse"), QStringLiteral("--show-toplevel")}, folder);
    if (!output.succeeded())
        return std::nullopt;
    const QString top = QString::fromUtf8(output.standardOutput).section(QLatin1Char('\n'), 0, 0);
    if (top.isEmpty() || QFileInfo(top).canonicalFilePath() == chosen.canonicalFilePath())
        return std::nullopt;
    return top;
}

std::optional<SiteForm::Secret> SiteForm::storeSecrets(const QString& siteId,
                                                       const std::optional<SiteForm>& loaded) const {
    if ((!loaded || loaded->password != password) &&
        !TWPasswords::setPassword(optionalText(password), siteId))
        return Secret::Password;
    if ((!loaded || loaded->passphrase != passphrase) &&
        !TWPasswords::setPassphrase(optionalText(passphrase), siteId))
        return Secret::Passphrase;
    return std::nullopt;
}

bool SiteForm::applyTo(Site& site) const {
    applyRecordTo(site);
    return !storeSecrets(site.siteId());
}

void SiteForm::applyRecordTo(Site& site) const {
    site.name = name.trimmed();
    site.localPath = QDir::cleanPath(localPath);
    if (const auto bookmark = SecurityBookmarkManager::bookmarkFor(localPath))
        site.bookmarkData = bookmark;
    site.syncRootPath = normalisedSyncRoot(syncRootPath);
    site.protocol = protocol;
    site.host = host.trimmed();
    site.port = optionalText(port);
    site.username = username;
    site.password = optionalText(password);
    site.sshKeyPath = optionalText(sshKeyPath);
    site.passiveMode = passiveMode;
    site.remotePath = TWUtilities::fixSlashes(remotePath);
    site.deployBranch = deployBranch;
    site.autoDeploy = autoDeploy;
    site.mandatoryFiles = filesFrom(mandatoryFiles);
    site.ignoredFiles = filesFrom(ignoredFiles);
    site.preDeployScriptLocal = preDeployScriptLocal;
    site.postDeployScriptLocal = postDeployScriptLocal;
    site.preDeployScriptRemote = preDeployScriptRemote;
    site.postDeployScriptRemote = postDeployScriptRemote;
    site.remotePreConnectionString = remotePreConnectionString;
    site.remotePostConnectionString = remotePostConnectionString;
    site.isValid = validate().isEmpty();
}

} // namespace tw
