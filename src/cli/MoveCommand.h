#pragma once

#include "Command.h"

namespace tw::cli {

// Moves a site to another place in the list.
class MoveCommand : public Command {
public:
    MoveCommand();

protected:
    int run(const QCommandLineParser& parser) override;
};

} // namespace tw::cli
