#pragma once

#include "Command.h"
#include "model/Site.h"

#include <QJsonObject>

namespace tw::cli {

// Lists the stored sites: index, name, protocol, host, branch and last
// deployed commit, the current site marked; --json for scripts.
class SitesCommand : public Command {
public:
    SitesCommand();

    // The JSON object of one site in 'sites --json'; its keys are stable.
    static QJsonObject jsonFor(qsizetype index, Site& site, bool current);

protected:
    int run(const QCommandLineParser& parser) override;
};

} // namespace tw::cli
