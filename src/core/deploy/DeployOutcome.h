#pragma once

namespace tw {

// How one press of Deploy (or one automatic deployment) ended. The window
// needs none of this; the command line turns it into its exit code.
enum class DeployOutcome {
    Deployed,         // files sent, record written, site saved
    RecordNotWritten, // files sent, but the server's record could not be written: not deployed
    SiteNotSaved,     // files sent and record written, but the site could not be saved with its new
                      // commit (it left the list meanwhile, or the list may not be written)
    NothingToDeploy,  // "Nothing to deploy"
    Cancelled,        // a question was answered with Cancel, or needed no deployment
    Failed,           // "An error occured!" (preflight or transfer)
    ScriptFailed,     // "An error occured when running script"
    Aborted,          // the abort button
    SetupFailed,      // no transfer engine could be made for the site
    Refused,          // Deploy was pressed while no run could start (another branch checked out, ...)
};

} // namespace tw
