#pragma once

#include "Command.h"

namespace tw::cli {

// Changes the settings given and keeps the others; the same checks as 'add'.
class EditCommand : public Command {
public:
    EditCommand();

protected:
    int run(const QCommandLineParser& parser) override;
};

} // namespace tw::cli
