#pragma once

#include "Command.h"

namespace tw::cli {

// Says where the log files are (one per day; scripts' output and curl's
// errors go there).
class LogCommand : public Command {
public:
    LogCommand();

protected:
    int run(const QCommandLineParser& parser) override;
};

} // namespace tw::cli
