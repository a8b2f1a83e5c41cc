#include "TestCommand.h"

#include "DeployCommand.h"
#include "InterruptWatcher.h"
#include "SiteFileSession.h"
#include "SiteSelection.h"
#include "Terminal.h"
#include "transfer/Deployer.h"
#include "transfer/TestConnection.h"

#include <QEventLoop>
#include <QTimer>

namespace tw::cli {

TestCommand::TestCommand() {
    name = QStringLiteral("test");
    synopsis = QStringLiteral("[SITE]");
    maximumArguments = 1;
    description =
        QStringLiteral("Test a site's connection: upload the empty file \".test\" to its remote path.");
    details =
        QStringLiteral("The file stays on the server. Exit code 0 when the upload worked, 8 with the "
                       "server's answer when it did not, 7 when the site cannot be tried (no user name, "
                       "no secret store).");
    options = SiteFileSession::options();
}

int TestCommand::run(const QCommandLineParser& parser) {
    Terminal& terminal = Terminal::instance();
    SiteFileSession siteFile;
    if (const auto code = siteFile.prepare(parser))
        return *code;
    const auto index = SiteSelection::resolve(parser.positionalArguments().value(0));
    if (!index)
        return toInt(ExitCode::SetupError);
    SitePtr site = SiteSelection::siteAt(*index);
    if (const auto problem = DeployCommand::secretStoreProblem(*site))
        return fail(ExitCode::SetupError, *problem);

    Deployer deployer(site);
    DeployerSetupFailure failure;
    deployer.setDelegate(&failure);
    deployer.setupTransporter();
    const std::shared_ptr<Transporter> transporter = deployer.getTransporter();
    if (!transporter)
        return fail(ExitCode::SetupError,
                    QStringLiteral("An error occured!\n  ") +
                        (failure.error ? failure.error->localizedDescription : QString()));

    terminal.errLine(QStringLiteral("Testing site %1: uploading .test to %2\u2026")
                         .arg(SiteSelection::describe(*index, site), DeployCommand::destination(*site)));
    TestConnection test(transporter);
    std::optional<std::optional<Error>> outcome;
    bool interrupted = InterruptWatcher::wasInterrupted();
    QEventLoop loop;
    QTimer poll;
    poll.setInterval(50);
    const auto finishWhenIdle = [&] {
        if (transporter->runningProcessCount() == 0)
            loop.quit();
        else
            poll.start();
    };
    QObject::connect(&poll, &QTimer::timeout, &loop, finishWhenIdle);
    QObject::connect(&InterruptWatcher::instance(), &InterruptWatcher::interrupted, &loop, [&] {
        interrupted = true;
        transporter->terminateAllTasks();
        finishWhenIdle();
    });
    if (interrupted)
        return toInt(ExitCode::Interrupted);
    const auto started = test.checkWithCompletion([&](std::optional<Error> error) {
        outcome = error;
        QTimer::singleShot(0, &loop, finishWhenIdle);
    });
    if (started)
        return fail(ExitCode::Error, QStringLiteral("The local test file could not be written."));
    loop.exec();

    if (interrupted)
        return fail(ExitCode::Interrupted, QStringLiteral("Interrupted: the test was stopped."));
    if (outcome && !*outcome) {
        terminal.outLine(QStringLiteral("The connection works: .test was uploaded to %1.")
                             .arg(DeployCommand::destination(*site)));
        return toInt(ExitCode::Success);
    }
    const QString why = outcome && *outcome ? (*outcome)->localizedDescription : QString();
    return fail(ExitCode::TransferError, QStringLiteral("The connection test failed: ") + why);
}

} // namespace tw::cli
