#pragma once

#include "Command.h"

namespace tw::cli {

// Tries a site's server settings by uploading the small file ".test" to its
// remote path, as the site editor's connection test does.
class TestCommand : public Command {
public:
    TestCommand();

protected:
    int run(const QCommandLineParser& parser) override;
};

} // namespace tw::cli
