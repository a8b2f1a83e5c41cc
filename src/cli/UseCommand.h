#pragma once

#include "Command.h"

namespace tw::cli {

// Makes a site the current one, for the command line and the window alike.
class UseCommand : public Command {
public:
    UseCommand();

protected:
    int run(const QCommandLineParser& parser) override;
};

} // namespace tw::cli
