#pragma once

#include "ExitCode.h"
#include "TerminalInteraction.h"

#include <QCommandLineOption>
#include <QCommandLineParser>
#include <QList>
#include <QString>
#include <QStringList>

#include <memory>
#include <vector>

namespace tw::cli {

// One subcommand of tarnwell-cli: its name, a line of description, its
// options and arguments, and what it does. execute() parses the arguments
// (answering --help itself) and runs the command.
class Command {
public:
    virtual ~Command() = default;

    QString name;
    QString description; // one line, for the list of commands
    QString synopsis;    // the synopsis after the options, such as "[SITE]"
    QString details;     // more text for --help; may be empty
    QList<QCommandLineOption> options;
    qsizetype minimumArguments = 0;
    qsizetype maximumArguments = 0;
    bool listsExitCodes = false; // --help shows the table of exit codes

    // The arguments after the command's name; answers the exit code.
    int execute(const QStringList& commandArguments);
    QString helpText() const;

    // Every command, in the order of the help text.
    static std::vector<std::unique_ptr<Command>> createAll();
    static QString generalHelp(const std::vector<std::unique_ptr<Command>>& commands);
    static QString exitCodeTable();

    // --no-input given before the command.
    static void setGlobalNoInput(bool noInput);

protected:
    virtual int run(const QCommandLineParser& parser) = 0;

    // Prints the text on standard error and answers the code.
    static int fail(ExitCode code, const QString& text);
    static int usageError(const QString& text);

    // --yes, --force, --use-server-commit, --answer and --no-input.
    static QList<QCommandLineOption> answerOptions();
    static PresetAnswers presetAnswers(const QCommandLineParser& parser);
    // Questions may be asked on the terminal (there is one, and --no-input
    // was given neither before the command nor after it).
    static bool mayAsk();
    static QCommandLineOption noInputOption();

    static QString usage(const Command& command);
};

} // namespace tw::cli
