#include "WatchCommand.h"

#include "DeployCommand.h"
#include "DeploySession.h"
#include "InterruptWatcher.h"
#include "SiteSelection.h"
#include "Terminal.h"
#include "app/Logger.h"

#include <QEventLoop>
#include <QTimer>

namespace tw::cli {

WatchCommand::WatchCommand() {
    name = QStringLiteral("watch");
    synopsis = QStringLiteral("[SITE]");
    maximumArguments = 1;
    description = QStringLiteral("Deploy every new commit automatically, until Ctrl-C.");
    details = QStringLiteral(
        "Every commit on the site's branch is deployed, as the window does for sites with automatic "
        "deployment. "
        "The site's automatic deployment must be on ('tarnwell-cli edit SITE --auto-deploy'). Files that "
        "already wait go with the next commit. Each deployment's outcome is printed on standard output. A "
        "question about the server's record needs an answer given in advance (--force, ...) or on the "
        "terminal; without one that deployment is cancelled and watching goes on.\n"
        "\n"
        "Ctrl-C (or SIGTERM) stops watching with exit code 0, or aborts a running deployment and exits with "
        "130.");
    options = answerOptions();
    options.append(QCommandLineOption({QStringLiteral("q"), QStringLiteral("quiet")},
                                      QStringLiteral("No progress on standard error.")));
}

int WatchCommand::run(const QCommandLineParser& parser) {
    Terminal& terminal = Terminal::instance();
    if (parser.isSet(QStringLiteral("force")) && parser.isSet(QStringLiteral("use-server-commit")))
        return usageError(QStringLiteral("--force and --use-server-commit contradict each other."));
    const auto index = SiteSelection::resolve(parser.positionalArguments().value(0));
    if (!index)
        return toInt(ExitCode::SetupError);
    SitePtr stored = SiteSelection::siteAt(*index);
    if (!stored->autoDeploy)
        return fail(
            ExitCode::SetupError,
            QStringLiteral("Automatic deployment is off for site %1. Switch it on with: tarnwell-cli edit "
                           "%2 --auto-deploy")
                .arg(SiteSelection::describe(*index, stored))
                .arg(*index));
    if (const auto problem = DeployCommand::secretStoreProblem(*stored))
        return fail(ExitCode::SetupError, *problem);

    DeploySession session(stored->siteId(), presetAnswers(parser), !parser.isSet(QStringLiteral("quiet")));
    session.load();
    ViewController& controller = session.controller();
    const SitePtr site = controller.currentSite;
    if (!site)
        return fail(ExitCode::SetupError, QStringLiteral("The site could not be loaded."));
    if (const auto problem = session.listingProblem()) {
        if (session.view().placeholder() != TerminalDeployView::Placeholder::WrongBranch &&
            controller.checkOutedBranch() == site->deployBranch)
            return fail(ExitCode::SetupError, QStringLiteral("Cannot watch site %1: %2")
                                                  .arg(SiteSelection::describe(*index, site), *problem));
        terminal.errLine(QStringLiteral("Note: ") + *problem);
    }
    if (!controller.fileWatcherQueue || controller.fileWatcherQueue->numberOfWatchedPaths() == 0)
        return fail(ExitCode::SetupError,
                    QStringLiteral("Cannot watch %1/.git/logs/HEAD (is it a repository with a commit?).")
                        .arg(site->localPath.value_or(QString())));

    terminal.outLine(
        QStringLiteral("[%1] Watching site %2: every commit on branch %3 in %4 is deployed to %5. "
                       "Press Ctrl-C to stop.")
            .arg(Logger::sharedInstance().timestamp(), SiteSelection::describe(*index, site),
                 site->deployBranch.value_or(QString()), site->localPath.value_or(QString()),
                 DeployCommand::destination(*site)));
    if (controller.files && !controller.files->isEmpty())
        terminal.outLine(
            QStringLiteral("[%1] %2 file(s) wait for the next commit (or run 'tarnwell-cli deploy').")
                .arg(Logger::sharedInstance().timestamp())
                .arg(controller.files->size()));

    QEventLoop loop;
    QTimer poll;
    poll.setInterval(50);
    std::optional<DeploySession::Result> current;
    bool interrupted = false;
    int exitCode = toInt(ExitCode::Success);

    const auto settle = [&] {
        if (!current)
            return;
        if (!session.isIdle()) {
            poll.start();
            return;
        }
        poll.stop();
        QString line;
        switch (current->outcome) {
        case DeployOutcome::Deployed:
            line = QStringLiteral("Deployed commit %1.").arg(current->summary.commit);
            break;
        case DeployOutcome::Cancelled:
            line = session.interaction().hadUnansweredQuestion()
                       ? QStringLiteral("Not deployed: the question was not answered (see above).")
                       : QStringLiteral("Not deployed: ") + current->message;
            break;
        default:
            line = QStringLiteral("Not deployed: ") + current->message;
            break;
        }
        terminal.outLine(QStringLiteral("[%1] ").arg(Logger::sharedInstance().timestamp()) + line);
        current.reset();
        session.interaction().reset();
        if (interrupted)
            loop.quit();
    };
    QObject::connect(&poll, &QTimer::timeout, &loop, settle);
    QObject::connect(&controller, &ViewController::deploymentEnded, &loop,
                     [&](DeployOutcome outcome, const QString& message, const RunSummary& summary) {
                         if (!current)
                             current = DeploySession::Result{outcome, message, false, summary};
                         settle();
                     });
    QObject::connect(&InterruptWatcher::instance(), &InterruptWatcher::interrupted, &loop, [&] {
        if (interrupted)
            return;
        interrupted = true;
        if (controller.isDeploying() || current || !session.isIdle()) {
            exitCode = toInt(ExitCode::Interrupted);
            terminal.errLine(QStringLiteral("Interrupted: aborting the running deployment."));
            controller.abortDeploy();
            settle();
            if (!current)
                loop.quit();
            return;
        }
        loop.quit();
    });
    if (!InterruptWatcher::wasInterrupted())
        loop.exec();
    terminal.outLine(QStringLiteral("[%1] Stopped watching.").arg(Logger::sharedInstance().timestamp()));
    return exitCode;
}

} // namespace tw::cli
