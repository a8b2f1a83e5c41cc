#include "ExitCode.h"

namespace tw::cli {

QList<ExitCodeDescription> exitCodeDescriptions() {
    return {
        {ExitCode::Success, QStringLiteral("success (deploy: the files and the server's record were sent)")},
        {ExitCode::Error, QStringLiteral("other failure (a file that cannot be read or written; deploy: the "
                                         "site could not be saved after its deployment)")},
        {ExitCode::UsageError, QStringLiteral("unknown command or option, wrong arguments")},
        {ExitCode::NothingToDeploy, QStringLiteral("nothing to deploy")},
        {ExitCode::NotAnswered,
         QStringLiteral("a question needs an answer: no terminal and no answer given in advance")},
        {ExitCode::Cancelled, QStringLiteral("cancelled by an answer, or the server already has the commit")},
        {ExitCode::ScriptError, QStringLiteral("a deployment script failed")},
        {ExitCode::SetupError,
         QStringLiteral("set-up error: no such site, invalid settings, no user name, no secret store, "
                        "no repository or another branch checked out")},
        {ExitCode::TransferError, QStringLiteral("transfer error: the server or a transfer failed")},
        {ExitCode::Interrupted, QStringLiteral("interrupted (Ctrl-C): the deployment was aborted")},
    };
}

ExitCode exitCodeFor(DeployOutcome outcome) {
    switch (outcome) {
    case DeployOutcome::Deployed:
        return ExitCode::Success;
    case DeployOutcome::NothingToDeploy:
        return ExitCode::NothingToDeploy;
    case DeployOutcome::Cancelled:
        return ExitCode::Cancelled;
    case DeployOutcome::Failed:
    case DeployOutcome::RecordNotWritten:
        return ExitCode::TransferError;
    case DeployOutcome::SiteNotSaved:
        return ExitCode::Error;
    case DeployOutcome::ScriptFailed:
        return ExitCode::ScriptError;
    case DeployOutcome::Aborted:
        return ExitCode::Interrupted;
    case DeployOutcome::SetupFailed:
    case DeployOutcome::Refused:
        return ExitCode::SetupError;
    }
    return ExitCode::Error;
}

} // namespace tw::cli
