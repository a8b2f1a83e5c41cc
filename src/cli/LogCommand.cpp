#include "LogCommand.h"

#include "Terminal.h"
#include "app/Logger.h"
#include "app/Preferences.h"

#include <QDir>
#include <QFileInfo>

namespace tw::cli {

LogCommand::LogCommand() {
    name = QStringLiteral("log");
    description = QStringLiteral("Show where the log files are (one file a day).");
    options = {
        QCommandLineOption(
            QStringLiteral("folder"),
            QStringLiteral("Print only the folder, for scripts ($(tarnwell-cli log --folder)).")),
        QCommandLineOption(QStringLiteral("today"), QStringLiteral("Print only the path of today's file."))};
}

int LogCommand::run(const QCommandLineParser& parser) {
    Terminal& terminal = Terminal::instance();
    const Logger& logger = Logger::sharedInstance();
    const QString folder = logger.logDirectory();
    const QString today = logger.logFilePath();
    if (parser.isSet(QStringLiteral("folder"))) {
        terminal.outLine(folder);
        return toInt(ExitCode::Success);
    }
    if (parser.isSet(QStringLiteral("today"))) {
        terminal.outLine(today);
        return toInt(ExitCode::Success);
    }
    terminal.outLine(QStringLiteral("Log folder:   ") + folder);
    terminal.outLine(QStringLiteral("Today's file: ") + today +
                     (QFileInfo::exists(today) ? QString() : QStringLiteral(" (nothing written yet)")));
    const QFileInfoList files =
        QDir(folder).entryInfoList({QStringLiteral("*.log")}, QDir::Files, QDir::Name | QDir::Reversed);
    if (!files.isEmpty()) {
        terminal.outLine(QStringLiteral("Files:"));
        for (const QFileInfo& file : files)
            terminal.outLine(QStringLiteral("  %1  %2 bytes").arg(file.fileName()).arg(file.size()));
    }
    terminal.outLine(
        QStringLiteral("Debug lines (curl's full output) are %1; the preference \"debugEnabled\" "
                       "switches them.")
            .arg(Preferences::instance().boolValue(QStringLiteral("debugEnabled")) ? QStringLiteral("on")
                                                                                   : QStringLiteral("off")));
    return toInt(ExitCode::Success);
}

} // namespace tw::cli
