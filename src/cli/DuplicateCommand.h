#pragma once

#include "Command.h"

namespace tw::cli {

// Copies a site (with its secrets) to the place after it, named "<name> copy".
class DuplicateCommand : public Command {
public:
    DuplicateCommand();

protected:
    int run(const QCommandLineParser& parser) override;
};

} // namespace tw::cli
