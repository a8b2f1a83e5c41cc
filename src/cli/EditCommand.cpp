#include "EditCommand.h"

#include "AddCommand.h"
#include "SiteOptions.h"
#include "SiteSelection.h"
#include "Terminal.h"
#include "model/SiteListActions.h"

namespace tw::cli {

EditCommand::EditCommand() {
    name = QStringLiteral("edit");
    synopsis = QStringLiteral("SITE");
    minimumArguments = 1;
    maximumArguments = 1;
    description = QStringLiteral("Change a site's settings; the options not given stay as they are.");
    details = QStringLiteral(
        "The stored password stays unless --password-stdin, --ask-password or --no-password is given (the "
        "same "
        "for the pass phrase). Lists given with --always-upload or --ignore replace the stored ones.");
    options = SiteOptions::options();
    options.append(noInputOption());
}

int EditCommand::run(const QCommandLineParser& parser) {
    const auto index = SiteSelection::resolve(parser.positionalArguments().value(0));
    if (!index)
        return toInt(ExitCode::SetupError);
    if (!SiteOptions::anyGiven(parser))
        return usageError(
            QStringLiteral("Nothing to change: give the settings to change (see 'tarnwell-cli edit "
                           "--help')."));
    SitePtr site = SiteSelection::siteAt(*index);
    SiteForm form = SiteForm::fromSite(*site);
    if (const auto problem = SiteOptions::apply(parser, form))
        return usageError(*problem);
    const QList<FieldProblem> problems = form.validate();
    if (!problems.isEmpty()) {
        AddCommand::printProblems(QStringLiteral("The site was not saved:"), problems);
        return toInt(ExitCode::SetupError);
    }
    const SiteOptions::Secrets secrets = SiteOptions::readSecrets(parser, form, false, mayAsk());
    if (secrets.error)
        return usageError(*secrets.error);
    if (const auto problem = SiteOptions::applyTo(form, *site))
        return fail(ExitCode::SetupError, *problem + QStringLiteral(" The site was not saved."));
    site->updatedNow();
    SiteListActions::replace(*index, site);
    Terminal::instance().outLine(QStringLiteral("Saved site %1.").arg(SiteSelection::describe(*index, site)));
    return toInt(ExitCode::Success);
}

} // namespace tw::cli
