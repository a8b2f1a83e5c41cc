#pragma once

#include "Command.h"

namespace tw::cli {

// What a deployment of the site would send now: the deployable files with
// their change letters, or why there is nothing (the placeholder's message).
class StatusCommand : public Command {
public:
    StatusCommand();

protected:
    int run(const QCommandLineParser& parser) override;
};

} // namespace tw::cli
