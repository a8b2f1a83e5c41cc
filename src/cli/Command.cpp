#include "Command.h"

#include "AddCommand.h"
#include "DeployCommand.h"
#include "DuplicateCommand.h"
#include "EditCommand.h"
#include "ExportCommand.h"
#include "ImportCommand.h"
#include "InitCiCommand.h"
#include "LogCommand.h"
#include "MoveCommand.h"
#include "RemoveCommand.h"
#include "SitesCommand.h"
#include "StatusCommand.h"
#include "Terminal.h"
#include "TestCommand.h"
#include "UseCommand.h"
#include "VersionCommand.h"
#include "WatchCommand.h"

namespace tw::cli {

namespace {

const QString kProgram = QStringLiteral("tarnwell-cli");
constexpr int kHelpWidth = 100;

// The words of the text in lines of at most width columns. Empty lines
// (paragraphs) stay, and so do lines that start with two spaces (examples).
QStringList wrapLines(const QString& text, int width) {
    QStringList lines;
    for (const QString& paragraph : text.split(QLatin1Char('\n'))) {
        if (paragraph.trimmed().isEmpty() || paragraph.startsWith(QStringLiteral("  "))) {
            lines.append(paragraph.trimmed().isEmpty() ? QString() : paragraph);
            continue;
        }
        QString line;
        for (const QString& word : paragraph.split(QLatin1Char(' '), Qt::SkipEmptyParts)) {
            if (!line.isEmpty() && line.size() + 1 + word.size() > width) {
                lines.append(line);
                line.clear();
            }
            if (!line.isEmpty())
                line += QLatin1Char(' ');
            line += word;
        }
        lines.append(line);
    }
    return lines;
}

// The text wrapped into the columns right of a first-line lead (such as an
// option's names); the other lines are indented to the same column.
QString hanging(const QString& lead, int column, const QString& text) {
    const QStringList lines = wrapLines(text, kHelpWidth - column);
    QString result = lead;
    if (lead.size() > column - 1) {
        result += QLatin1Char('\n');
        result += QString(column, QLatin1Char(' '));
    } else {
        result += QString(column - lead.size(), QLatin1Char(' '));
    }
    for (qsizetype i = 0; i < lines.size(); ++i) {
        if (i > 0)
            result += QString(column, QLatin1Char(' '));
        result += lines.at(i) + QLatin1Char('\n');
    }
    return result;
}

QString wrap(const QString& text, int width) {
    return wrapLines(text, width).join(QLatin1Char('\n')) + QLatin1Char('\n');
}

QString optionNames(const QCommandLineOption& option) {
    QStringList names;
    for (const QString& name : option.names())
        names.append(name.size() == 1 ? QStringLiteral("-") + name : QStringLiteral("--") + name);
    QString text = names.join(QStringLiteral(", "));
    if (!option.valueName().isEmpty())
        text += QLatin1Char(' ') + option.valueName();
    return text;
}

} // namespace

void Command::setGlobalNoInput(bool noInput) {
    Terminal::instance().setNoInput(noInput);
}

std::vector<std::unique_ptr<Command>> Command::createAll() {
    std::vector<std::unique_ptr<Command>> commands;
    commands.push_back(std::make_unique<SitesCommand>());
    commands.push_back(std::make_unique<AddCommand>());
    commands.push_back(std::make_unique<EditCommand>());
    commands.push_back(std::make_unique<RemoveCommand>());
    commands.push_back(std::make_unique<DuplicateCommand>());
    commands.push_back(std::make_unique<MoveCommand>());
    commands.push_back(std::make_unique<UseCommand>());
    commands.push_back(std::make_unique<StatusCommand>());
    commands.push_back(std::make_unique<DeployCommand>());
    commands.push_back(std::make_unique<TestCommand>());
    commands.push_back(std::make_unique<ImportCommand>());
    commands.push_back(std::make_unique<ExportCommand>());
    commands.push_back(std::make_unique<WatchCommand>());
    commands.push_back(std::make_unique<InitCiCommand>());
    commands.push_back(std::make_unique<LogCommand>());
    commands.push_back(std::make_unique<VersionCommand>());
    return commands;
}

QString Command::exitCodeTable() {
    QString text = QStringLiteral("Exit codes:\n");
    for (const ExitCodeDescription& entry : exitCodeDescriptions())
        text += hanging(QStringLiteral("  %1").arg(toInt(entry.code), 3), 8, entry.text);
    return text;
}

QString Command::generalHelp(const std::vector<std::unique_ptr<Command>>& commands) {
    QString text =
        QStringLiteral("Usage: %1 [--verbose] [--no-input] COMMAND [options] [arguments]\n\n").arg(kProgram);
    text +=
        wrap(QStringLiteral("Deploys a website kept in a git repository to its server over FTP, FTP with TLS "
                            "or SFTP: the same sites, secrets and decisions as the desktop window, from a "
                            "terminal or a script."),
             kHelpWidth);
    text += QStringLiteral("\nCommands:\n");
    for (const auto& command : commands)
        text += hanging(QStringLiteral("  ") + command->name, 13, command->description);
    text += QStringLiteral("\nGlobal options (before the command):\n");
    text += QStringLiteral(
        "  -v, --verbose  Echo the system log lines (git and curl commands) on standard error.\n");
    text += QStringLiteral(
        "  --no-input     Never ask on the terminal; questions need answers given in advance.\n");
    text += QStringLiteral("  -h, --help     Show this help; '%1 COMMAND --help' shows a command's.\n")
                .arg(kProgram);
    text += QStringLiteral("  --version      Show the version.\n\n");
    text += wrap(QStringLiteral("A SITE is a site's name or its index as 'sites' lists it; without one, the "
                                "current site (chosen with 'use', or in the window)."),
                 kHelpWidth);
    text += QLatin1Char('\n') + exitCodeTable();
    return text;
}

QString Command::usage(const Command& command) {
    QString text = QStringLiteral("%1 %2").arg(kProgram, command.name);
    if (!command.options.isEmpty())
        text += QStringLiteral(" [options]");
    if (!command.synopsis.isEmpty())
        text += QLatin1Char(' ') + command.synopsis;
    return text;
}

QString Command::helpText() const {
    QString text = QStringLiteral("Usage: ") + usage(*this) + QStringLiteral("\n\n");
    text += wrap(description, kHelpWidth);
    if (!details.isEmpty())
        text += QLatin1Char('\n') + wrap(details, kHelpWidth);
    text += QStringLiteral("\nOptions:\n");
    QList<QCommandLineOption> all = options;
    all.append(
        QCommandLineOption({QStringLiteral("h"), QStringLiteral("help")}, QStringLiteral("Show this help.")));
    int column = 0;
    for (const QCommandLineOption& option : all)
        column = std::max(column, int(optionNames(option).size()));
    column = std::min(column, 34) + 4;
    for (const QCommandLineOption& option : all)
        text += hanging(QStringLiteral("  ") + optionNames(option), column, option.description());
    if (listsExitCodes)
        text += QLatin1Char('\n') + exitCodeTable();
    return text;
}

int Command::execute(const QStringList& commandArguments) {
    QCommandLineParser parser;
    parser.setSingleDashWordOptionMode(QCommandLineParser::ParseAsLongOptions);
    const QCommandLineOption help({QStringLiteral("h"), QStringLiteral("help")}, QString());
    parser.addOption(help);
    for (const QCommandLineOption& option : options)
        parser.addOption(option);
    if (!parser.parse(QStringList{kProgram} + commandArguments))
        return usageError(parser.errorText());
    if (parser.isSet(help)) {
        Terminal::instance().out(helpText());
        return toInt(ExitCode::Success);
    }
    if (parser.optionNames().contains(QStringLiteral("no-input")))
        Terminal::instance().setNoInput(true);
    const QStringList positional = parser.positionalArguments();
    if (positional.size() < minimumArguments)
        return usageError(QStringLiteral("Missing argument. Usage: ") + usage(*this));
    if (positional.size() > maximumArguments)
        return usageError(QStringLiteral("Too many arguments (\u201c%1\u201d). Usage: ")
                              .arg(positional.mid(maximumArguments).join(QLatin1Char(' '))) +
                          usage(*this));
    return run(parser);
}

int Command::fail(ExitCode code, const QString& text) {
    Terminal::instance().errLine(text);
    return toInt(code);
}

int Command::usageError(const QString& text) {
    Terminal::instance().errLine(text);
    Terminal::instance().errLine(
        QStringLiteral("Run '%1 --help' or '%1 COMMAND --help' for help.").arg(kProgram));
    return toInt(ExitCode::UsageError);
}

QCommandLineOption Command::noInputOption() {
    return QCommandLineOption(QStringLiteral("no-input"),
                              QStringLiteral("Never ask on the terminal, even when there is one."));
}

QList<QCommandLineOption> Command::answerOptions() {
    return {
        QCommandLineOption(
            {QStringLiteral("y"), QStringLiteral("yes")},
            QStringLiteral("Answer every question with its first button (\u201cForce deploy\u201d, "
                           "\u201cOK\u201d; for the later/earlier commit questions that is "
                           "\u201cCancel\u201d).")),
        QCommandLineOption(
            QStringLiteral("force"),
            QStringLiteral("Deploy despite the server's record: answers \u201cForce deploy\u201d and "
                           "\u201cNo, use mine\u201d (deploy the files listed here).")),
        QCommandLineOption(QStringLiteral("use-server-commit"),
                           QStringLiteral("When the server has another commit of the deploy branch, answer "
                                          "\u201cYes\u201d: deploy from the server's commit.")),
        QCommandLineOption(QStringLiteral("answer"),
                           QStringLiteral("Answer the question that has a button of this title (may be given "
                                          "more than once; checked before the options above)."),
                           QStringLiteral("BUTTON")),
        noInputOption(),
    };
}

PresetAnswers Command::presetAnswers(const QCommandLineParser& parser) {
    PresetAnswers answers;
    answers.buttons = parser.values(QStringLiteral("answer"));
    answers.force = parser.isSet(QStringLiteral("force"));
    answers.useServerCommit = parser.isSet(QStringLiteral("use-server-commit"));
    answers.firstButton = parser.isSet(QStringLiteral("yes"));
    return answers;
}

bool Command::mayAsk() {
    return Terminal::instance().canAsk();
}

} // namespace tw::cli
