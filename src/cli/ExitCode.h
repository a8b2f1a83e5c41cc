#pragma once

#include "deploy/DeployOutcome.h"

#include <QList>
#include <QString>

namespace tw::cli {

// What the command line answers to its caller. Scripts and CI rely on these
// numbers: they never change meaning.
enum class ExitCode : int {
    Success = 0,         // the command did its work (deploy: files deployed, record written)
    Error = 1,           // another failure: a file that cannot be read or written, a bad import file
    UsageError = 2,      // unknown command or option, missing or extra arguments
    NothingToDeploy = 3, // "Nothing to deploy"
    NotAnswered = 4,     // a question came up with no terminal and no answer given in advance
    Cancelled = 5,       // a question was answered with "Cancel", or the server already has the commit
    ScriptError = 6,     // a deployment script failed
    SetupError = 7,      // no such site, no user name, no secret store, invalid settings, no repository
    TransferError = 8,   // the server could not be reached, or a transfer failed
    Interrupted = 130,   // Ctrl-C (or SIGTERM): the deployment was aborted
};

struct ExitCodeDescription {
    ExitCode code;
    QString text;
};

// The numbers with a line of text each, for --help and the documentation.
QList<ExitCodeDescription> exitCodeDescriptions();

// The exit code of a deployment that ended so.
ExitCode exitCodeFor(DeployOutcome outcome);

inline int toInt(ExitCode code) {
    return static_cast<int>(code);
}

} // namespace tw::cli
