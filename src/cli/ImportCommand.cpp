#include "ImportCommand.h"

#include "SecretStoreCheck.h"
#include "SiteSelection.h"
#include "Terminal.h"
#include "model/ImportSites.h"
#include "model/Sites.h"

#include <QFile>
#include <QFileInfo>

namespace tw::cli {

ImportCommand::ImportCommand() {
    name = QStringLiteral("import");
    synopsis = QStringLiteral("FILE");
    minimumArguments = 1;
    maximumArguments = 1;
    description = QStringLiteral("Add the sites of an export file (JSON) to the end of the list.");
    details =
        QStringLiteral("Every imported site gets a new id, so importing never replaces a site; importing "
                       "the same file twice adds its sites twice. Their passwords go into the secret "
                       "store, which must be running when the file holds passwords.");
}

int ImportCommand::run(const QCommandLineParser& parser) {
    Terminal& terminal = Terminal::instance();
    const QString path = QFileInfo(parser.positionalArguments().value(0)).absoluteFilePath();

    // The file is read here once more only to know whether it brings
    // passwords that need the secret store; the import reads it itself.
    QFile file(path);
    if (file.open(QIODevice::ReadOnly)) {
        const auto parsed = ImportSites::parse(file.readAll());
        if (const auto* sites = std::get_if<SiteList>(&parsed)) {
            const bool hasPassword = std::any_of(sites->begin(), sites->end(), [](const SitePtr& site) {
                return site->password && !site->password->isEmpty();
            });
            if (hasPassword) {
                if (const auto problem = SecretStoreCheck::problem(QStringLiteral("import")))
                    return fail(ExitCode::SetupError,
                                QStringLiteral("The file holds passwords, and they cannot be stored: ") +
                                    *problem + QStringLiteral(". Nothing was imported."));
            }
        }
    }

    TerminalInteraction interaction(terminal, PresetAnswers());
    interaction.openPanelAnswer = path;
    const qint64 before = Sites().total();
    ImportSites importer(interaction);
    importer.browseFiles();
    if (!interaction.alerts().isEmpty())
        return toInt(ExitCode::Error); // the importer has said why

    const SiteList sites = Sites().loadAll().value_or(SiteList());
    const qint64 added = sites.size() - before;
    if (added == 0) {
        terminal.outLine(QStringLiteral("The file holds no sites; nothing was imported."));
        return toInt(ExitCode::Success);
    }
    QStringList names;
    for (qsizetype i = before; i < sites.size(); ++i)
        names.append(SiteSelection::describe(i, sites.at(i)));
    terminal.outLine(QStringLiteral("Imported %1: %2.")
                         .arg(added == 1 ? QStringLiteral("1 site") : QStringLiteral("%1 sites").arg(added),
                              names.join(QStringLiteral(", "))));
    return toInt(ExitCode::Success);
}

} // namespace tw::cli
