#include "AddCommand.h"

#include "SiteOptions.h"
#include "SiteSelection.h"
#include "Terminal.h"
#include "git/SiteManager.h"
#include "keychain/TWPasswords.h"
#include "model/SiteListActions.h"

#include <QFileInfo>

namespace tw::cli {

AddCommand::AddCommand() {
    name = QStringLiteral("add");
    description = QStringLiteral("Add a site (the same checks and messages as the window's site editor).");
    details = QStringLiteral(
        "Needs at least --name, --folder, --host and --user. The password is asked on the terminal without "
        "echo, or read with --password-stdin; it is kept in the secret store, never in the site list, and "
        "never taken as an argument. Without a running secret store a site with a password cannot be added.\n"
        "\n"
        "Example:\n"
        "  printf '%s\\n' \"$FTP_PASSWORD\" | tarnwell-cli add --name Blog --folder ~/blog --host "
        "ftp.example.org "
        "--user me --remote-path www/ --password-stdin");
    options = SiteOptions::options();
    options.append(noInputOption());
}

void AddCommand::printProblems(const QString& heading, const QList<FieldProblem>& problems) {
    Terminal& terminal = Terminal::instance();
    terminal.errLine(heading);
    for (const FieldProblem& problem : problems)
        terminal.errLine(QStringLiteral("  %1: %2").arg(SiteForm::fieldName(problem.field), problem.message));
}

int AddCommand::run(const QCommandLineParser& parser) {
    SiteForm form;
    if (const auto problem = SiteOptions::apply(parser, form))
        return usageError(*problem);

    // Like the editor: the branch checked out now, when none is given.
    if (form.deployBranch.isEmpty() && !form.localPath.isEmpty() && QFileInfo(form.localPath).isDir()) {
        SitePtr probe = Site::newSite();
        probe->localPath = form.localPath;
        if (const auto branches = SiteManager(probe).getBranches(); branches && !branches->current.isEmpty())
            form.deployBranch = branches->current;
    }

    const QList<FieldProblem> problems = form.validate();
    if (!problems.isEmpty()) {
        printProblems(QStringLiteral("The site was not added:"), problems);
        return toInt(ExitCode::SetupError);
    }
    const SiteOptions::Secrets secrets = SiteOptions::readSecrets(parser, form, true, mayAsk());
    if (secrets.error)
        return usageError(*secrets.error);

    SitePtr site = Site::newSite();
    if (const auto problem = SiteOptions::applyTo(form, *site)) {
        TWPasswords::setPassword(std::nullopt, site->siteId());
        TWPasswords::setPassphrase(std::nullopt, site->siteId());
        return fail(ExitCode::SetupError, *problem + QStringLiteral(" The site was not added."));
    }
    const qsizetype index = SiteListActions::add(site);
    Terminal& terminal = Terminal::instance();
    QString where = site->host.value_or(QString());
    if (site->port)
        where += QLatin1Char(':') + *site->port;
    terminal.outLine(QStringLiteral("Added site %1: %2 to %3%4, branch %5.")
                         .arg(SiteSelection::describe(index, site), site->protocol.value_or(QString()), where,
                              site->remotePath && !site->remotePath->isEmpty()
                                  ? QStringLiteral(" (") + *site->remotePath + QLatin1Char(')')
                                  : QString(),
                              site->deployBranch.value_or(QString())));
    if (SiteListActions::currentIndex() != index)
        terminal.outLine(QStringLiteral("Make it the current site with: tarnwell-cli use %1").arg(index));
    return toInt(ExitCode::Success);
}

} // namespace tw::cli
