#include "ExportCommand.h"

#include "SecretStoreCheck.h"
#include "Terminal.h"
#include "model/ExportSites.h"
#include "model/Sites.h"

#include <QFileInfo>

namespace tw::cli {

ExportCommand::ExportCommand() {
    name = QStringLiteral("export");
    synopsis = QStringLiteral("FILE");
    minimumArguments = 1;
    maximumArguments = 1;
    description = QStringLiteral("Write every site into a JSON file, passwords in plain text.");
    details = QStringLiteral("First comes the warning \"Continue export?\": it is asked on a terminal, and "
                             "needs --yes otherwise. The file is readable by its owner only.");
    options = {QCommandLineOption({QStringLiteral("y"), QStringLiteral("yes")},
                                  QStringLiteral("Answer the warning with \u201cOK\u201d.")),
               noInputOption()};
}

int ExportCommand::run(const QCommandLineParser& parser) {
    Terminal& terminal = Terminal::instance();
    const QString path = QFileInfo(parser.positionalArguments().value(0)).absoluteFilePath();
    const qint64 total = Sites().total();
    if (total == 0) {
        terminal.errLine(QStringLiteral("No sites defined: nothing to export."));
        return toInt(ExitCode::Success);
    }
    if (const auto problem = SecretStoreCheck::problem(QStringLiteral("export")))
        return fail(ExitCode::SetupError, QStringLiteral("The passwords cannot be read: ") + *problem +
                                              QStringLiteral(". Nothing was exported."));

    PresetAnswers answers;
    answers.firstButton = parser.isSet(QStringLiteral("yes"));
    TerminalInteraction interaction(terminal, answers);
    interaction.savePanelAnswer = path;
    ExportSites exporter(interaction);
    exporter.browseDirectory();
    if (interaction.hadUnansweredQuestion()) {
        terminal.errLine(QStringLiteral("Nothing was exported."));
        return toInt(ExitCode::NotAnswered);
    }
    if (!exporter.exportFilePath) {
        terminal.errLine(QStringLiteral("Export cancelled; nothing was written."));
        return toInt(ExitCode::Cancelled);
    }
    for (const AlertRequest& alert : interaction.alerts()) {
        if (alert.message == u"Could not export sites!")
            return toInt(ExitCode::Error); // the exporter has said why
    }
    terminal.outLine(
        QStringLiteral("Exported %1 to %2 (passwords in plain text: keep it safe).")
            .arg(total == 1 ? QStringLiteral("1 site") : QStringLiteral("%1 sites").arg(total), path));
    return toInt(ExitCode::Success);
}

} // namespace tw::cli
