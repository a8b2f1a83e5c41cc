#pragma once

#include "Command.h"
#include "model/Site.h"

namespace tw::cli {

class DeploySession;

// Deploys a site exactly as the window's Deploy button does: the check of
// the server's record, its questions, the scripts, the transfers, the new
// record and the saved site.
class DeployCommand : public Command {
public:
    DeployCommand();

    // Checks before the controller runs: the secret store must answer
    // (unless the site logs in with a key alone). Answers the problem.
    static std::optional<QString> secretStoreProblem(Site& site);
    // "FTP 127.0.0.1:2121 www/": where a site deploys to, in words.
    static QString destination(const Site& site);

protected:
    int run(const QCommandLineParser& parser) override;
};

} // namespace tw::cli
