#pragma once

#include "Command.h"

namespace tw::cli {

// Writes a site file and a CI job into a site's repository, so that CI
// deploys the site on every push with one command and no secret store.
class InitCiCommand : public Command {
public:
    InitCiCommand();

protected:
    int run(const QCommandLineParser& parser) override;
};

} // namespace tw::cli
