#include "DeployCommand.h"

#include "DeploySession.h"
#include "SecretStoreCheck.h"
#include "SiteFileSession.h"
#include "SiteSelection.h"
#include "Terminal.h"
#include "app/Logger.h"
#include "keychain/TWPasswords.h"

namespace tw::cli {

namespace {

QString plural(qsizetype count, const QString& one, const QString& many) {
    if (count == 1)
        return QStringLiteral("1 ") + one;
    return QString::number(count) + QLatin1Char(' ') + many;
}

} // namespace

DeployCommand::DeployCommand() {
    name = QStringLiteral("deploy");
    synopsis = QStringLiteral("[SITE]");
    maximumArguments = 1;
    listsExitCodes = true;
    description = QStringLiteral("Deploy a site, as the window's Deploy button does.");
    details = QStringLiteral(
        "What changed since the last deployment goes to the server (all files the first time), with the "
        "site's always uploaded files and its scripts; then the server's record and the site are updated.\n"
        "\n"
        "When the server's record names another branch or another commit, a question comes up, with the same "
        "texts and buttons as in the window. On a terminal it is asked there; otherwise it needs an answer "
        "given in advance (--force, --use-server-commit, --yes or --answer), or the run ends with exit code "
        "4 "
        "and nothing is transferred.\n"
        "\n"
        "Progress goes to standard error: a bar with the remaining count and the current file on a terminal, "
        "plain lines otherwise, and \"Waiting for server to respond\u2026\" when the server has been silent "
        "for "
        "more than 5 seconds. Ctrl-C aborts the deployment (every curl process is stopped), and the exit "
        "code "
        "is 130.");
    options = answerOptions();
    options.append(QCommandLineOption({QStringLiteral("q"), QStringLiteral("quiet")},
                                      QStringLiteral("No progress on standard error.")));
    options.append(SiteFileSession::options());
}

std::optional<QString> DeployCommand::secretStoreProblem(Site& site) {
    if (TWPasswords::hasSessionSecrets(site.siteId()))
        return std::nullopt; // a site file's: its secrets come from the environment
    const bool keyAlone = site.protocol == u"SFTP" && site.sshKeyPath && !site.sshKeyPath->isEmpty();
    const auto problem = SecretStoreCheck::problem(site.siteId());
    if (!problem)
        return std::nullopt;
    if (keyAlone) {
        Terminal::instance().errLine(QStringLiteral("Note: ") + *problem +
                                     QStringLiteral("; going on without a pass phrase for the key."));
        return std::nullopt;
    }
    return QStringLiteral("Cannot deploy: ") + *problem +
           QStringLiteral(". The site's password is kept there.");
}

QString DeployCommand::destination(const Site& site) {
    QString text =
        site.protocol.value_or(QStringLiteral("FTP")) + QLatin1Char(' ') + site.host.value_or(QString());
    if (site.port && !site.port->isEmpty())
        text += QLatin1Char(':') + *site.port;
    text += QLatin1Char(' ') + (site.remotePath && !site.remotePath->isEmpty()
                                    ? *site.remotePath
                                    : QStringLiteral("(login folder)"));
    return text;
}

int DeployCommand::run(const QCommandLineParser& parser) {
    Terminal& terminal = Terminal::instance();
    if (parser.isSet(QStringLiteral("force")) && parser.isSet(QStringLiteral("use-server-commit")))
        return usageError(QStringLiteral("--force and --use-server-commit contradict each other."));
    SiteFileSession siteFile;
    if (const auto code = siteFile.prepare(parser, SiteFileSession::ServerRecordUse::LastDeployedCommit))
        return *code;
    const auto index = SiteSelection::resolve(parser.positionalArguments().value(0));
    if (!index)
        return toInt(ExitCode::SetupError);
    if (const auto problem = secretStoreProblem(*SiteSelection::siteAt(*index)))
        return fail(ExitCode::SetupError, *problem);

    DeploySession session(SiteSelection::siteAt(*index)->siteId(), presetAnswers(parser),
                          !parser.isSet(QStringLiteral("quiet")));
    session.load();
    const SitePtr site = session.controller().currentSite;
    if (!site)
        return fail(ExitCode::SetupError, QStringLiteral("The site could not be loaded."));
    if (const auto problem = session.listingProblem())
        return fail(
            ExitCode::SetupError,
            QStringLiteral("Cannot deploy site %1: %2").arg(SiteSelection::describe(*index, site), *problem));

    for (const QString& note : session.controller().listingNotes())
        terminal.errLine(QStringLiteral("Note: ") + note);
    const DeploySession::Counts counts = session.counts();
    if (siteFile.isActive() && !site->lastCommitDeployed) {
        // What goes depends on the server's record, read when the run starts.
        terminal.errLine(QStringLiteral("Deploying site %1 (branch %2) to %3: what changed since the commit "
                                        "the server's record names (every file when there is no record).")
                             .arg(SiteSelection::describe(*index, site),
                                  site->deployBranch.value_or(QString()), destination(*site)));
    } else if (counts.uploads + counts.deletions + counts.alwaysUploaded > 0) {
        QString what =
            plural(counts.uploads, QStringLiteral("file to upload"), QStringLiteral("files to upload")) +
            QStringLiteral(", ") +
            plural(counts.deletions, QStringLiteral("to delete"), QStringLiteral("to delete"));
        if (counts.alwaysUploaded > 0)
            what += QStringLiteral(", and %1 always uploaded").arg(counts.alwaysUploaded);
        terminal.errLine(QStringLiteral("Deploying site %1 (branch %2) to %3: %4.")
                             .arg(SiteSelection::describe(*index, site),
                                  site->deployBranch.value_or(QString()), destination(*site), what));
    }

    const DeploySession::Result result = session.deploy();
    const bool unanswered = session.interaction().hadUnansweredQuestion();
    if (result.interrupted) {
        terminal.errLine(
            QStringLiteral("Interrupted: the deployment was aborted; the server's record was not "
                           "written."));
        return toInt(ExitCode::Interrupted);
    }
    switch (result.outcome) {
    case DeployOutcome::Deployed: {
        terminal.outLine(
            QStringLiteral("Deployed site %1: commit %2 of branch %3 to %4 (%5, %6).")
                .arg(SiteSelection::describe(*index, site), result.summary.commit,
                     site->deployBranch.value_or(QString()), destination(*site),
                     plural(result.summary.uploads, QStringLiteral("file uploaded"),
                            QStringLiteral("files uploaded")),
                     plural(result.summary.deletions, QStringLiteral("deleted"), QStringLiteral("deleted"))));
        if (result.summary.waiting > 0)
            terminal.outLine(
                plural(result.summary.waiting, QStringLiteral("file waits"), QStringLiteral("files wait")) +
                QStringLiteral(" (left out with an unchecked mark) for a later deployment."));
        return toInt(ExitCode::Success);
    }
    case DeployOutcome::RecordNotWritten:
        terminal.errLine(QStringLiteral("Not deployed: ") + result.message);
        break;
    case DeployOutcome::SiteNotSaved:
        terminal.errLine(QStringLiteral("Deployed, but not saved: ") + result.message);
        break;
    case DeployOutcome::Cancelled:
        if (unanswered) {
            terminal.errLine(QStringLiteral("Not deployed: the question was not answered. Nothing was "
                                            "transferred."));
            return toInt(ExitCode::NotAnswered);
        }
        terminal.errLine(QStringLiteral("Not deployed: ") + result.message);
        return toInt(ExitCode::Cancelled);
    case DeployOutcome::Failed:
        terminal.errLine(
            QStringLiteral("The deployment failed (%1 of %2 files were sent); the server's record "
                           "was not written. The log files are in ")
                .arg(result.summary.done)
                .arg(result.summary.total) +
            Logger::sharedInstance().logDirectory());
        break;
    case DeployOutcome::ScriptFailed:
        terminal.errLine(QStringLiteral("A script failed: ") + result.message);
        terminal.errLine(QStringLiteral("Its output is in the log files, in ") +
                         Logger::sharedInstance().logDirectory());
        break;
    case DeployOutcome::NothingToDeploy:
    case DeployOutcome::SetupFailed:
    case DeployOutcome::Refused:
    case DeployOutcome::Aborted:
        break;
    }
    return toInt(exitCodeFor(result.outcome));
}

} // namespace tw::cli
