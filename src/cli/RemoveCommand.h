#pragma once

#include "Command.h"

namespace tw::cli {

// Removes a site from the list, and its password and pass phrase from the
// secret store.
class RemoveCommand : public Command {
public:
    RemoveCommand();

protected:
    int run(const QCommandLineParser& parser) override;
};

} // namespace tw::cli
