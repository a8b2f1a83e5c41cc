#pragma once

#include "Command.h"

namespace tw::cli {

// Adds the sites of an export file to the end of the list, each with a new
// id and its password in the secret store.
class ImportCommand : public Command {
public:
    ImportCommand();

protected:
    int run(const QCommandLineParser& parser) override;
};

} // namespace tw::cli
