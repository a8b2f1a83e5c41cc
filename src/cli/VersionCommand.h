#pragma once

#include "Command.h"

namespace tw::cli {

// The version, and the git and curl the program runs.
class VersionCommand : public Command {
public:
    VersionCommand();

protected:
    int run(const QCommandLineParser& parser) override;
};

} // namespace tw::cli
