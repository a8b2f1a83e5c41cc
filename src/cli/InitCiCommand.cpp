#include "InitCiCommand.h"

#include "CiJobFiles.h"
#include "SecretStoreCheck.h"
#include "SiteSelection.h"
#include "Terminal.h"
#include "model/SiteFile.h"

#include <QDir>
#include <QFileInfo>
#include <QJsonDocument>
#include <QSaveFile>

namespace tw::cli {

namespace {

bool writeText(const QString& path, const QByteArray& content, QString* error) {
    if (!QDir().mkpath(QFileInfo(path).absolutePath())) {
        *error = QStringLiteral("cannot make the folder of %1").arg(path);
        return false;
    }
    QSaveFile file(path);
    if (!file.open(QIODevice::WriteOnly) || file.write(content) != content.size() || !file.commit()) {
        *error = QStringLiteral("cannot write %1: %2").arg(path, file.errorString());
        return false;
    }
    return true;
}

// Whether the job passes a pass phrase for the site's key: as the options
// say, else as the secret store knows it.
bool keyHasPassphrase(const QCommandLineParser& parser, const QString& siteId) {
    if (parser.isSet(QStringLiteral("passphrase")))
        return true;
    if (parser.isSet(QStringLiteral("no-passphrase")))
        return false;
    QString why;
    if (const auto stored = SecretStoreCheck::hasPassphrase(siteId, &why))
        return *stored;
    Terminal::instance().errLine(
        QStringLiteral("Note: cannot tell whether the key has a pass phrase (%1); the "
                       "job passes none. Give --passphrase if the key has one.")
            .arg(why));
    return false;
}

} // namespace

InitCiCommand::InitCiCommand() {
    name = QStringLiteral("init-ci");
    synopsis = QStringLiteral("[SITE]");
    maximumArguments = 1;
    description = QStringLiteral("Write a site file and a CI job into the site's repository.");
    details = QStringLiteral(
        "The site file (tarnwell-site.json at the top of the repository, or --site-file) holds the site's "
        "settings without any secret, in the export format; the job (a GitHub Actions workflow, or with "
        "--gitlab a GitLab CI job) installs Tarnwell on Debian 12 and runs 'tarnwell-cli deploy --site-file' "
        "on "
        "every push to the site's branch, with the secrets from the CI's secret variables, which are printed "
        "at the end. Both files are listed among the site file's ignored files, so they are never deployed. "
        "Existing files are kept unless --force is given. Commit both files.");
    options = {QCommandLineOption(QStringLiteral("gitlab"),
                                  QStringLiteral("Write a GitLab CI job (.gitlab-ci.yml).")),
               QCommandLineOption(QStringLiteral("site-file"),
                                  QStringLiteral("Where the site file goes, relative to the repository."),
                                  QStringLiteral("PATH"), SiteFile::defaultName()),
               QCommandLineOption(QStringLiteral("force"), QStringLiteral("Replace existing files.")),
               QCommandLineOption(QStringLiteral("passphrase"),
                                  QStringLiteral("The SFTP key has a pass phrase: the job passes it from "
                                                 "TARNWELL_PASSPHRASE (default: when the secret store holds "
                                                 "one for the site).")),
               QCommandLineOption(QStringLiteral("no-passphrase"),
                                  QStringLiteral("The SFTP key has no pass phrase: the job passes none."))};
}

int InitCiCommand::run(const QCommandLineParser& parser) {
    Terminal& terminal = Terminal::instance();
    const auto index = SiteSelection::resolve(parser.positionalArguments().value(0));
    if (!index)
        return toInt(ExitCode::SetupError);
    const SitePtr site = SiteSelection::siteAt(*index);
    const QString repository = site->localPath.value_or(QString());
    if (repository.isEmpty() || !QFileInfo(repository + QStringLiteral("/.git")).exists())
        return fail(ExitCode::SetupError,
                    QStringLiteral("Site %1 has no git repository folder to write the files into.")
                        .arg(SiteSelection::describe(*index, site)));
    const QString relativeSiteFile = QDir::cleanPath(parser.value(QStringLiteral("site-file")));
    if (relativeSiteFile.startsWith(QStringLiteral("..")) || QDir::isAbsolutePath(relativeSiteFile))
        return usageError(QStringLiteral("--site-file names a path inside the repository."));
    if (parser.isSet(QStringLiteral("passphrase")) && parser.isSet(QStringLiteral("no-passphrase")))
        return usageError(QStringLiteral("--passphrase and --no-passphrase contradict each other."));
    const bool gitlab = parser.isSet(QStringLiteral("gitlab"));
    const QString relativeJob = gitlab ? CiJobFiles::gitLabPath() : CiJobFiles::gitHubPath();
    const QString siteFilePath = QDir(repository).filePath(relativeSiteFile);
    const QString jobPath = QDir(repository).filePath(relativeJob);
    if (!parser.isSet(QStringLiteral("force"))) {
        for (const QString& path : {siteFilePath, jobPath}) {
            if (QFileInfo::exists(path))
                return fail(ExitCode::Error,
                            QStringLiteral("%1 exists already; nothing was written (--force replaces it).")
                                .arg(path));
        }
    }

    CiJobFiles::Job job;
    job.siteName = site->name.value_or(QString());
    job.branch = site->deployBranch.value_or(QStringLiteral("main"));
    job.siteFile = relativeSiteFile;
    const bool sftp = site->protocol == u"SFTP";
    job.key = sftp && site->sshKeyPath && !site->sshKeyPath->isEmpty();
    job.password = !job.key;
    // A pass phrase variable for a key without one would stop every run
    // (an empty variable is an error), so it goes in only when needed.
    if (job.key)
        job.passphrase = keyHasPassphrase(parser, site->siteId());

    // Both kinds of job are left out of deployments: a repository that got
    // one job earlier and the other now keeps both off the server.
    const QJsonObject object =
        SiteFile::forRepository(*site, siteFilePath, {CiJobFiles::gitHubPath(), CiJobFiles::gitLabPath()});
    QString error;
    if (!writeText(siteFilePath, QJsonDocument(object).toJson(QJsonDocument::Indented), &error) ||
        !writeText(jobPath, (gitlab ? CiJobFiles::gitLabJob(job) : CiJobFiles::gitHubWorkflow(job)).toUtf8(),
                   &error))
        return fail(ExitCode::Error, QStringLiteral("Nothing more was written: ") + error + QLatin1Char('.'));

    terminal.outLine(QStringLiteral("Wrote %1 and %2 for site %3.")
                         .arg(siteFilePath, jobPath, SiteSelection::describe(*index, site)));
    terminal.outLine(
        gitlab ? QStringLiteral("Create these variables in GitLab (Settings > CI/CD > Variables, "
                                "protected):")
               : QStringLiteral("Create these secrets in GitHub (Settings > Secrets and variables > "
                                "Actions):"));
    for (const QString& line : CiJobFiles::secrets(job))
        terminal.outLine(QStringLiteral("  ") + line);
    terminal.outLine(QStringLiteral("Set TARNWELL_PACKAGE at the top of %1 to where the job can download "
                                    "Tarnwell's .deb (now %2, a placeholder): a package you build with "
                                    "'cpack -G DEB' in a release build folder and publish.")
                         .arg(relativeJob, CiJobFiles::packageUrl()));
    terminal.outLine(QStringLiteral("Then commit both files; every push to %1 deploys.").arg(job.branch));
    return toInt(ExitCode::Success);
}

} // namespace tw::cli
