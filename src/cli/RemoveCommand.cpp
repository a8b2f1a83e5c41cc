#include "RemoveCommand.h"

#include "SiteSelection.h"
#include "Terminal.h"
#include "model/SiteListActions.h"

namespace tw::cli {

RemoveCommand::RemoveCommand() {
    name = QStringLiteral("remove");
    synopsis = QStringLiteral("SITE");
    minimumArguments = 1;
    maximumArguments = 1;
    description = QStringLiteral("Remove a site and its password and pass phrase.");
}

int RemoveCommand::run(const QCommandLineParser& parser) {
    const auto index = SiteSelection::resolve(parser.positionalArguments().value(0));
    if (!index)
        return toInt(ExitCode::SetupError);
    const QString described = SiteSelection::describe(*index, SiteSelection::siteAt(*index));
    if (!SiteListActions::remove(*index))
        return fail(ExitCode::Error, QStringLiteral("Site %1 could not be removed.").arg(described));
    Terminal::instance().outLine(QStringLiteral("Removed site %1.").arg(described));
    return toInt(ExitCode::Success);
}

} // namespace tw::cli
