#pragma once

#include <QString>

namespace tw {

// Whether a press of Deploy (or an automatic deployment) would start a run
// now, and if not, why. The Deploy button, the command line and automatic
// deployment all ask the controller this one question.
enum class DeployReadiness {
    Ready,           // a run would start
    NoSite,          // no site is selected (or stored)
    NoHost,          // the site names no server
    NoFolder,        // the site has no repository folder, or it is gone
    NotARepository,  // the folder is not a git repository
    OtherBranch,     // another branch (or a detached HEAD) is checked out
    NothingToDeploy, // no checked file and no always-uploaded file
    QuestionPending, // a question about the server's record waits for an answer
    Deploying,       // a run is under way (until its record on the server is written)
};

// A short sentence for people ("Another branch is checked out."), for logs,
// the command line and tool tips.
QString describe(DeployReadiness readiness);

} // namespace tw
