#pragma once

#include "Command.h"

namespace tw::cli {

// Writes every site into one JSON file, passwords in plain text, after the
// same warning as the window.
class ExportCommand : public Command {
public:
    ExportCommand();

protected:
    int run(const QCommandLineParser& parser) override;
};

} // namespace tw::cli
