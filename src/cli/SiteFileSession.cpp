#include "SiteFileSession.h"

#include "ExitCode.h"
#include "InterruptWatcher.h"
#include "Terminal.h"
#include "app/Preferences.h"
#include "deploy/PreflightDecision.h"
#include "git/SiteManager.h"
#include "keychain/TWPasswords.h"
#include "model/Commit.h"
#include "model/SiteFile.h"
#include "model/Sites.h"
#include "transfer/CheckSumManager.h"
#include "transfer/Deployer.h"

#include <QDir>
#include <QEventLoop>
#include <QFile>

namespace tw::cli {

namespace {

const QString kSiteFile = QStringLiteral("site-file");
const QString kPasswordEnv = QStringLiteral("password-env");
const QString kPassphraseEnv = QStringLiteral("passphrase-env");
const QString kKeyEnv = QStringLiteral("key-env");

int setupError(const QString& text) {
    Terminal::instance().errLine(text);
    return toInt(ExitCode::SetupError);
}

// The remote scripts' ssh gets the key too: in CI the key file a site names
// (if any) is not there. The connection string is split at blanks, so a key
// path with a blank cannot be added; ssh then uses what the string names.
void useKeyForRemoteScripts(Site& site, const QString& keyFile) {
    if (keyFile.contains(QLatin1Char(' ')))
        return;
    for (std::optional<QString>* connection :
         {&site.remotePreConnectionString, &site.remotePostConnectionString}) {
        if (*connection && !(*connection)->trimmed().isEmpty())
            *connection = QStringLiteral("-i ") + keyFile + QLatin1Char(' ') + **connection;
    }
}

int interrupted() {
    Terminal::instance().errLine(QStringLiteral("Interrupted: nothing was sent."));
    return toInt(ExitCode::Interrupted);
}

} // namespace

SiteFileSession::~SiteFileSession() {
    if (!m_keyFile.isEmpty())
        QFile::remove(m_keyFile);
    // What the command changed is written to the temporary file now, so
    // that nothing is left to write when the folder has gone with it.
    if (m_folder)
        Preferences::instance().synchronize();
}

QList<QCommandLineOption> SiteFileSession::options() {
    return {
        QCommandLineOption(
            kSiteFile,
            QStringLiteral("Take the site from this site file (JSON, as 'init-ci' or an export "
                           "writes it, without password) instead of the stored sites."),
            QStringLiteral("FILE")),
        QCommandLineOption(kPasswordEnv,
                           QStringLiteral("Take the password from this environment variable instead of the "
                                          "secret store."),
                           QStringLiteral("NAME")),
        QCommandLineOption(kPassphraseEnv,
                           QStringLiteral("Take the SFTP key's pass phrase from this environment variable."),
                           QStringLiteral("NAME")),
        QCommandLineOption(kKeyEnv,
                           QStringLiteral("Take the SFTP private key (its text) from this environment "
                                          "variable."),
                           QStringLiteral("NAME")),
    };
}

std::optional<int> SiteFileSession::prepare(const QCommandLineParser& parser, ServerRecordUse use) {
    const bool secretsGiven =
        parser.isSet(kPasswordEnv) || parser.isSet(kPassphraseEnv) || parser.isSet(kKeyEnv);
    if (!parser.isSet(kSiteFile)) {
        if (secretsGiven)
            return setupError(QStringLiteral("--password-env, --passphrase-env and --key-env go with "
                                             "--site-file FILE."));
        return std::nullopt;
    }
    if (!parser.positionalArguments().isEmpty())
        return setupError(QStringLiteral("A site file names the site: give no SITE with --site-file."));

    QString error;
    const SitePtr site = SiteFile::read(parser.value(kSiteFile), &error);
    if (!site)
        return setupError(error);

    // Every variable named must be there: a CI job whose secret variable is
    // missing fails here, before anything connects.
    const auto variable = [&](const QString& option) -> std::optional<QString> {
        if (!parser.isSet(option))
            return std::nullopt;
        const QString name = parser.value(option);
        const QByteArray value = qgetenv(name.toLocal8Bit().constData());
        if (value.isEmpty()) {
            error = QStringLiteral("The environment variable %1 (given with --%2) is not set or is empty.")
                        .arg(name, option);
            return std::nullopt;
        }
        return QString::fromUtf8(value);
    };
    const auto password = variable(kPasswordEnv);
    const auto passphrase = variable(kPassphraseEnv);
    const auto key = variable(kKeyEnv);
    if (!error.isEmpty())
        return setupError(error);

    m_folder =
        std::make_unique<QTemporaryDir>(QDir::tempPath() + QStringLiteral("/tarnwell-site-file-XXXXXX"));
    if (!m_folder->isValid())
        return setupError(QStringLiteral("Cannot make a temporary folder: %1.").arg(m_folder->errorString()));
    if (key) {
        // Created owner-only (never for a moment wider); ssh keys need their
        // final newline.
        m_keyFile = m_folder->filePath(QStringLiteral("key"));
        QFile file(m_keyFile);
        QString text = *key;
        text.replace(QStringLiteral("\r\n"), QStringLiteral("\n"));
        if (!text.endsWith(QLatin1Char('\n')))
            text += QLatin1Char('\n');
        if (!file.open(QIODevice::WriteOnly | QIODevice::NewOnly,
                       QFileDevice::ReadOwner | QFileDevice::WriteOwner) ||
            file.write(text.toUtf8()) < 0 || !file.flush())
            return setupError(
                QStringLiteral("Cannot write the key to %1: %2.").arg(m_keyFile, file.errorString()));
        site->sshKeyPath = m_keyFile;
        useKeyForRemoteScripts(*site, m_keyFile);
    }
    // The secrets are the environment's or none: the secret store is
    // neither needed nor touched for a site from a file.
    TWPasswords::useSessionSecrets(site->siteId(), password, passphrase);

    if (use == ServerRecordUse::LastDeployedCommit) {
        if (const auto code = adoptServerRecord(*site))
            return code;
    }

    Preferences& preferences = Preferences::instance();
    preferences.setFileName(m_folder->filePath(QStringLiteral("tarnwell.conf")));
    Sites().storeWithSites({site});
    preferences.setInteger(QStringLiteral("currentSiteIndex"), 0);
    preferences.synchronize();
    return std::nullopt;
}

std::optional<int> SiteFileSession::adoptServerRecord(Site& site) {
    Deployer deployer(std::make_shared<Site>(site));
    DeployerSetupFailure failure;
    deployer.setDelegate(&failure);
    deployer.setupTransporter();
    const std::shared_ptr<Transporter> transporter = deployer.getTransporter();
    if (!transporter)
        return setupError(QStringLiteral("The server's record cannot be read: %1")
                              .arg(failure.error ? failure.error->localizedDescription
                                                 : QStringLiteral("the site cannot connect.")));
    if (InterruptWatcher::wasInterrupted())
        return interrupted();
    CheckSumManager record(transporter);
    std::optional<ServerRecord> read;
    QEventLoop loop;
    record.check([&](const std::optional<QString>& commit, const std::optional<QDateTime>&,
                     const std::optional<QString>& branch, const std::optional<Error>& error) {
        if (error)
            read = ServerRecord::fromReadError(*error);
        else
            read = commit ? ServerRecord::found(*commit, branch) : ServerRecord::missing();
        loop.quit();
    });
    // Ctrl-C stops the read at once rather than after its time-out.
    QObject::connect(&InterruptWatcher::instance(), &InterruptWatcher::interrupted, &loop, &QEventLoop::quit);
    if (!read && !InterruptWatcher::wasInterrupted())
        loop.exec();
    transporter->terminateAllTasks();
    if (InterruptWatcher::wasInterrupted())
        return interrupted();
    if (!read)
        return std::nullopt;
    Terminal& terminal = Terminal::instance();
    if (read->kind == ServerRecord::Kind::Failed) {
        // Not "never deployed": what the server holds is unknown, and a
        // first deployment would send every file over it.
        terminal.errLine(
            QStringLiteral("Cannot read the server's record of the last deployment (.tarnwell in "
                           "the remote path): %1")
                .arg(read->error.localizedDescription));
        return toInt(ExitCode::TransferError);
    }
    if (read->kind != ServerRecord::Kind::Found)
        return std::nullopt; // none: a first deployment
    if (read->branch != site.deployBranch ||
        !SiteManager(std::make_shared<Site>(site)).commitExists(read->commit)) {
        // Asked about by the deployment, as when a site remembers a commit.
        terminal.errLine(QStringLiteral("The server's record names commit %1 of branch %2, which is not in "
                                        "this history of branch %3.")
                             .arg(read->commit, read->branch.value_or(QStringLiteral("(none)")),
                                  site.deployBranch.value_or(QString())));
        return std::nullopt;
    }
    auto commit = std::make_shared<Commit>();
    commit->sha1 = read->commit;
    site.lastCommitDeployed = commit;
    terminal.errLine(
        QStringLiteral("The server's record names commit %1: what changed since goes.").arg(read->commit));
    return std::nullopt;
}

} // namespace tw::cli
