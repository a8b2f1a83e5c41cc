#include "DuplicateCommand.h"

#include "SiteSelection.h"
#include "Terminal.h"
#include "model/SiteListActions.h"

namespace tw::cli {

DuplicateCommand::DuplicateCommand() {
    name = QStringLiteral("duplicate");
    synopsis = QStringLiteral("SITE");
    minimumArguments = 1;
    maximumArguments = 1;
    description = QStringLiteral("Copy a site, with its password, to the place after it.");
}

int DuplicateCommand::run(const QCommandLineParser& parser) {
    const auto index = SiteSelection::resolve(parser.positionalArguments().value(0));
    if (!index)
        return toInt(ExitCode::SetupError);
    const auto copy = SiteListActions::duplicate(*index);
    if (!copy)
        return fail(ExitCode::Error, QStringLiteral("Site %1 could not be copied.").arg(*index));
    Terminal::instance().outLine(QStringLiteral("Copied site %1 to %2.")
                                     .arg(SiteSelection::describe(*index, SiteSelection::siteAt(*index)),
                                          SiteSelection::describe(*copy, SiteSelection::siteAt(*copy))));
    return toInt(ExitCode::Success);
}

} // namespace tw::cli
