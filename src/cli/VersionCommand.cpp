#include "VersionCommand.h"

#include "Terminal.h"
#include "app/AppInfo.h"
#include "app/ToolPaths.h"
#include "git/TWGit.h"

namespace tw::cli {

VersionCommand::VersionCommand() {
    name = QStringLiteral("version");
    description = QStringLiteral("Show the version, and the git and curl that are used.");
}

int VersionCommand::run(const QCommandLineParser&) {
    Terminal& terminal = Terminal::instance();
    terminal.outLine(AppInfo::productName() + QLatin1Char(' ') + AppInfo::version());
    terminal.outLine(QStringLiteral("git:  ") +
                     TWGit().getGitVersion().value_or(QStringLiteral("not found")) + QStringLiteral(" (") +
                     TWGit::gitPath() + QLatin1Char(')'));
    terminal.outLine(QStringLiteral("curl: ") +
                     ToolPaths::curlVersion().value_or(QStringLiteral("not found")) + QStringLiteral(" (") +
                     ToolPaths::curlPath() + QLatin1Char(')'));
    return toInt(ExitCode::Success);
}

} // namespace tw::cli
