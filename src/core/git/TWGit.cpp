#include "TWGit.h"

#include "app/Logger.h"
#include "app/SystemLog.h"
#include "app/ToolPaths.h"

#include <QDir>
#include <QFileInfo>
#include <QProcess>
#include <QSet>
#include <QStandardPaths>

namespace tw {

namespace {

bool refuseCommitIds(std::initializer_list<QString> ids) {
    for (const QString& id : ids) {
        if (!TWGit::isAcceptableCommitId(id)) {
            SystemLog::write(QStringLiteral("TARNWELL - refused to run git with the commit id '") + id +
                             QStringLiteral("': not 4 to 40 hexadecimal digits"));
            return true;
        }
    }
    return false;
}

} // namespace

QString TWGit::gitPath() {
    return ToolPaths::toolsDirectory() + QStringLiteral("/git");
}

QString TWGit::build(const QString& arguments) {
    return gitPath() + QLatin1Char(' ') + arguments;
}

bool TWGit::isAcceptableCommitId(const QString& commitId) {
    if (commitId.size() < 4 || commitId.size() > 40)
        return false;
    for (const QChar c : commitId) {
        const char16_t u = c.unicode();
        const bool hex = (u >= u'0' && u <= u'9') || (u >= u'a' && u <= u'f') || (u >= u'A' && u <= u'F');
        if (!hex)
            return false;
    }
    return true;
}

bool TWGit::isGitDirectory(const QString& folder) {
    return QFileInfo::exists(folder + QStringLiteral("/.git"));
}

std::optional<QStringList> TWGit::runCommand(const QString& command, const QString& folder) const {
    SystemLog::write(QStringLiteral("TARNWELL - command: ") + command);

    QProcess shell;
    shell.setProgram(QStringLiteral("/bin/sh"));
    shell.setArguments({QStringLiteral("-c"), command});
    shell.setWorkingDirectory(folder);
    shell.setProcessChannelMode(QProcess::ForwardedErrorChannel);
    shell.setStandardInputFile(QProcess::nullDevice());
    shell.start(QIODevice::ReadOnly);
    if (!shell.waitForStarted(-1)) {
        SystemLog::write(QStringLiteral("TARNWELL - Expection occurred ") + shell.errorString());
        return std::nullopt;
    }
    shell.waitForFinished(-1);
    const QByteArray bytes = shell.readAllStandardOutput();
    if (bytes.isEmpty())
        return std::nullopt;

    const QString output = QString::fromUtf8(bytes);
    Logger::sharedInstance().debugLog(command);
    Logger::sharedInstance().debugLog(output);
    SystemLog::write(QStringLiteral("TARNWELL - results: ") + output);
    return output.split(QLatin1Char('\n'));
}

std::optional<BranchSummary> TWGit::getBranchesAtPath(const QString& folder) const {
    const auto lines = runCommand(build(QStringLiteral("branch")), folder);
    if (!lines)
        return std::nullopt;
    BranchSummary summary;
    bool hasCurrent = false;
    for (const QString& line : *lines) {
        if (line.isEmpty())
            continue;
        const QStringList pieces = line.split(QLatin1Char(' '));
        if (pieces.first() == u"*") {
            summary.current = pieces.last();
            hasCurrent = true;
        }
        summary.branches.append(pieces.last());
    }
    if (!hasCurrent)
        return std::nullopt;
    return summary;
}

std::optional<QString> TWGit::getGitVersion() const {
    const QString documents = QStandardPaths::writableLocation(QStandardPaths::DocumentsLocation);
    const QString folder = QDir(documents).exists() ? documents : QDir::homePath();
    const auto lines = runCommand(build(QStringLiteral("--version")), folder);
    if (!lines)
        return std::nullopt;
    const QStringList pieces = lines->first().split(QLatin1Char(' '));
    if (pieces.size() >= 3)
        return pieces.last();
    return QStringLiteral("Unknown");
}

bool TWGit::isRepoDirtyAtPath(const QString& folder) const {
    const auto lines = runCommand(build(QStringLiteral("status --porcelain")), folder);
    if (!lines)
        return false;
    for (const QString& line : *lines) {
        if (!line.isEmpty() && !line.endsWith(QStringLiteral(".DS_Store")))
            return true;
    }
    return false;
}

std::optional<QStringList> TWGit::getAllFileAtPath(const QString& folder) const {
    const auto all = runCommand(build(QStringLiteral("ls-tree -r HEAD --name-only")), folder);
    const auto modified = runCommand(build(QStringLiteral("ls-files -m")), folder);
    if (!all)
        return std::nullopt;
    if (!modified)
        return *all;
    // A hash set keeps this linear on repositories of 100,000 files.
    const QSet<QString> excluded(modified->cbegin(), modified->cend());
    QStringList files;
    files.reserve(all->size());
    for (const QString& path : *all) {
        if (!excluded.contains(path))
            files.append(path);
    }
    return files;
}

std::optional<CommitList> TWGit::getCommitsAtPath(const QString& folder) const {
    const auto lines = runCommand(build(QStringLiteral("log --pretty=format:\"%h\t%an\t%ar\t%s\"")), folder);
    if (!lines)
        return std::nullopt;
    CommitList commits;
    for (const QString& line : *lines) {
        if (line.isEmpty())
            continue;
        const QStringList pieces = line.split(QLatin1Char('\t'));
        auto commit = std::make_shared<Commit>();
        commit->sha1 = pieces.value(0);
        commit->author = pieces.value(1);
        commit->time = pieces.value(2);
        commit->comment = pieces.value(3);
        commits.append(commit);
    }
    return commits;
}

std::optional<QStringList> TWGit::loadFilesAtPath(const QString& folder, const QString& fromCommit,
                                                  const QString& toCommit) const {
    if (refuseCommitIds({fromCommit, toCommit}))
        return std::nullopt;
    const QString format = build(QStringLiteral("diff --staged --no-renames --name-status %1 %2"));
    return runCommand(format.arg(fromCommit, toCommit), folder);
}

std::optional<QStringList> TWGit::loadFilesAtPath(const QString& folder, const QString& fromCommit) const {
    if (refuseCommitIds({fromCommit}))
        return std::nullopt;
    const QString format = build(QStringLiteral("diff --staged --no-renames --name-status %1"));
    return runCommand(format.arg(fromCommit), folder);
}

} // namespace tw
