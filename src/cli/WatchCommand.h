#pragma once

#include "Command.h"

namespace tw::cli {

// Automatic deployment without the window: the controller's own watcher on
// the repository's HEAD, and its rules for when a commit deploys. Runs until
// Ctrl-C.
class WatchCommand : public Command {
public:
    WatchCommand();

protected:
    int run(const QCommandLineParser& parser) override;
};

} // namespace tw::cli
