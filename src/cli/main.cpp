// tarnwell-cli: the deploy controller, the sites and the secret store of the
// desktop application, on a terminal and in scripts.

#include "Command.h"
#include "InterruptWatcher.h"
#include "Terminal.h"
#include "app/AppInfo.h"
#include "app/Preferences.h"
#include "app/SystemLog.h"
#include "app/ToolPaths.h"
#include "deploy/DeployOutcome.h"
#include "model/Sites.h"

#include <QCoreApplication>
#include <QMetaType>

using namespace tw;
using namespace tw::cli;

int main(int argc, char* argv[]) {
    QCoreApplication app(argc, argv);
    // The same folder names as the window: the same preferences, sites and logs.
    QCoreApplication::setApplicationName(AppInfo::folderName());
    QCoreApplication::setApplicationVersion(AppInfo::version());
    Preferences::instance().registerDefaultsFromResource();
    qRegisterMetaType<DeployOutcome>();
    InterruptWatcher::instance().install();

    Terminal& terminal = Terminal::instance();
    const std::vector<std::unique_ptr<Command>> commands = Command::createAll();
    const auto find = [&commands](const QString& name) -> Command* {
        for (const auto& command : commands) {
            if (command->name == name)
                return command.get();
        }
        return nullptr;
    };
    const auto unknownCommand = [&terminal](const QString& name) {
        terminal.errLine(QStringLiteral("Unknown command \u201c%1\u201d.").arg(name));
        terminal.errLine(QStringLiteral("Run 'tarnwell-cli --help' for the list of commands."));
        return toInt(ExitCode::UsageError);
    };

    QStringList arguments = app.arguments().mid(1);
    bool verbose = false;
    // Global options come before the command.
    while (!arguments.isEmpty() && arguments.first().startsWith(QLatin1Char('-'))) {
        const QString option = arguments.takeFirst();
        if (option == u"-v" || option == u"--verbose") {
            verbose = true;
        } else if (option == u"--no-input") {
            Command::setGlobalNoInput(true);
        } else if (option == u"-h" || option == u"--help") {
            terminal.out(Command::generalHelp(commands));
            return toInt(ExitCode::Success);
        } else if (option == u"--version") {
            arguments = {QStringLiteral("version")};
            break;
        } else {
            terminal.errLine(QStringLiteral("Unknown option \u201c%1\u201d.").arg(option));
            terminal.errLine(QStringLiteral("Run 'tarnwell-cli --help' for help."));
            return toInt(ExitCode::UsageError);
        }
    }
    if (arguments.isEmpty()) {
        terminal.err(Command::generalHelp(commands));
        return toInt(ExitCode::UsageError);
    }

    const QString name = arguments.takeFirst();
    if (name == u"help") {
        if (arguments.isEmpty()) {
            terminal.out(Command::generalHelp(commands));
            return toInt(ExitCode::Success);
        }
        Command* command = find(arguments.first());
        return command ? command->execute({QStringLiteral("--help")}) : unknownCommand(arguments.first());
    }
    Command* command = find(name);
    if (!command)
        return unknownCommand(name);
    if (verbose) {
        // Git command lines, curl's version and the like, as the system log gets them.
        SystemLog::setEchoToStandardError(true);
        ToolPaths::logCurlVersion();
    }
    const int code = command->execute(arguments);
    // A stored list that could not be read whole is said once, whatever the
    // command (the deploy controller may have said it already).
    if (const auto problem = Sites::takeLoadProblem())
        terminal.errLine(QStringLiteral("Note: ") + *problem);
    return code;
}
