#include "MoveCommand.h"

#include "SiteSelection.h"
#include "Terminal.h"
#include "model/SiteListActions.h"
#include "model/Sites.h"

namespace tw::cli {

MoveCommand::MoveCommand() {
    name = QStringLiteral("move");
    synopsis = QStringLiteral("SITE POSITION");
    minimumArguments = 2;
    maximumArguments = 2;
    description = QStringLiteral("Move a site to another place in the list (POSITION is its new index).");
}

int MoveCommand::run(const QCommandLineParser& parser) {
    const auto index = SiteSelection::resolve(parser.positionalArguments().value(0));
    if (!index)
        return toInt(ExitCode::SetupError);
    const qint64 total = Sites().total();
    bool isNumber = false;
    const qsizetype to = parser.positionalArguments().value(1).toLongLong(&isNumber);
    if (!isNumber || to < 0 || to >= total)
        return usageError(QStringLiteral("POSITION must be an index from 0 to %1.").arg(total - 1));
    const SitePtr site = SiteSelection::siteAt(*index);
    if (!SiteListActions::move(*index, to))
        return fail(ExitCode::Error, QStringLiteral("The site could not be moved."));
    Terminal::instance().outLine(
        QStringLiteral("Moved site %1 to %2.").arg(SiteSelection::describe(*index, site)).arg(to));
    return toInt(ExitCode::Success);
}

} // namespace tw::cli
