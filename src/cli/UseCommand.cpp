#include "UseCommand.h"

#include "SiteSelection.h"
#include "Terminal.h"
#include "model/SiteListActions.h"

namespace tw::cli {

UseCommand::UseCommand() {
    name = QStringLiteral("use");
    synopsis = QStringLiteral("SITE");
    minimumArguments = 1;
    maximumArguments = 1;
    description = QStringLiteral("Make a site the current one (the one commands use when none is named).");
}

int UseCommand::run(const QCommandLineParser& parser) {
    const auto index = SiteSelection::resolve(parser.positionalArguments().value(0));
    if (!index)
        return toInt(ExitCode::SetupError);
    SiteListActions::setCurrentIndex(*index);
    Terminal::instance().outLine(QStringLiteral("The current site is %1.")
                                     .arg(SiteSelection::describe(*index, SiteSelection::siteAt(*index))));
    return toInt(ExitCode::Success);
}

} // namespace tw::cli
