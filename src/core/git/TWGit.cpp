#include "TWGit.h"

#include "app/Logger.h"
#include "app/SystemLog.h"
#include "app/ToolPaths.h"

#include <QDir>
#include <QFile>
#include <QFileInfo>
#include <QProcess>
#include <QSet>
#include <QStandardPaths>

#include <algorithm>

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

QString firstLine(const QByteArray& output) {
    const qsizetype end = output.indexOf('\n');
    return QString::fromUtf8(end < 0 ? output : output.left(end)).trimmed();
}

} // namespace

QString TWGit::gitPath() {
    return ToolPaths::toolsDirectory() + QStringLiteral("/git");
}

QString TWGit::build(const QString& arguments) {
    return gitPath() + QLatin1Char(' ') + arguments;
}

// Whatever the person's configuration says: no colours or columns (they put
// escape codes and several names on one line), paths as they are (not quoted
// with octal escapes), no end-of-line conversion, no pager, signatures and
// relative paths off, untracked files shown by the status, and abbreviated
// commit ids of 7 digits (the id the server's record and the site keep; git
// still lengthens one that would be ambiguous).
QStringList TWGit::fixedOptions() {
    static const QStringList options{
        QStringLiteral("--no-pager"),
        QStringLiteral("-c"),
        QStringLiteral("color.ui=never"),
        QStringLiteral("-c"),
        QStringLiteral("column.ui=never"),
        QStringLiteral("-c"),
        QStringLiteral("core.quotePath=false"),
        QStringLiteral("-c"),
        QStringLiteral("core.abbrev=7"),
        QStringLiteral("-c"),
        QStringLiteral("core.autocrlf=false"),
        QStringLiteral("-c"),
        QStringLiteral("core.safecrlf=false"),
        QStringLiteral("-c"),
        QStringLiteral("core.fsmonitor=false"),
        QStringLiteral("-c"),
        QStringLiteral("log.showSignature=false"),
        QStringLiteral("-c"),
        QStringLiteral("diff.relative=false"),
        QStringLiteral("-c"),
        QStringLiteral("status.showUntrackedFiles=normal"),
        QStringLiteral("-c"),
        QStringLiteral("status.relativePaths=false"),
    };
    return options;
}

QProcessEnvironment TWGit::environment() {
    QProcessEnvironment environment = QProcessEnvironment::systemEnvironment();
    // The repository is the folder's, whatever the caller's environment names.
    for (const char* name : {"GIT_DIR", "GIT_WORK_TREE", "GIT_INDEX_FILE", "GIT_OBJECT_DIRECTORY",
                             "GIT_NAMESPACE", "GIT_CEILING_DIRECTORIES"})
        environment.remove(QString::fromLatin1(name));
    environment.insert(QStringLiteral("GIT_TERMINAL_PROMPT"), QStringLiteral("0"));
    environment.insert(QStringLiteral("GIT_OPTIONAL_LOCKS"), QStringLiteral("0"));
    return environment;
}

TWGit::Output TWGit::run(const QStringList& arguments, const QString& folder, const QByteArray& input,
                         const QProcessEnvironment& extraVariables) const {
    const QString command = build(arguments.join(QLatin1Char(' ')));
    SystemLog::write(QStringLiteral("TARNWELL - command: ") + command);

    Output output;
    QProcess git;
    git.setProgram(gitPath());
    git.setArguments(fixedOptions() + arguments);
    git.setWorkingDirectory(folder);
    QProcessEnvironment variables = environment();
    variables.insert(extraVariables);
    git.setProcessEnvironment(variables);
    if (input.isEmpty())
        git.setStandardInputFile(QProcess::nullDevice());
    if (!QFileInfo(folder).isDir()) {
        SystemLog::write(QStringLiteral("TARNWELL - Expection occurred: no folder ") + folder);
        return output;
    }
    git.start(QIODevice::ReadWrite);
    if (!git.waitForStarted(-1)) {
        SystemLog::write(QStringLiteral("TARNWELL - Expection occurred ") + git.errorString());
        return output;
    }
    if (!input.isEmpty()) {
        git.write(input);
        git.closeWriteChannel();
    }
    git.waitForFinished(-1);
    output.ran = git.exitStatus() == QProcess::NormalExit;
    output.exitCode = git.exitCode();
    output.standardOutput = git.readAllStandardOutput();
    output.standardError = git.readAllStandardError();

    Logger::sharedInstance().debugLog(command);
    if (!output.standardOutput.isEmpty()) {
        const QString text = QString::fromUtf8(output.standardOutput);
        Logger::sharedInstance().debugLog(text);
        SystemLog::write(QStringLiteral("TARNWELL - results: ") + text);
    }
    if (!output.succeeded())
        SystemLog::write(QStringLiteral("TARNWELL - git ended with %1: %2")
                             .arg(output.exitCode)
                             .arg(QString::fromUtf8(output.standardError).trimmed()));
    return output;
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

QStringList TWGit::nulSeparated(const QByteArray& output) {
    QStringList names;
    qsizetype start = 0;
    while (start < output.size()) {
        qsizetype end = output.indexOf('\0', start);
        if (end < 0)
            end = output.size();
        if (end > start)
            names.append(QString::fromUtf8(output.constData() + start, end - start));
        start = end + 1;
    }
    return names;
}

QStringList TWGit::nameStatusEntries(const QByteArray& output) {
    const QStringList pieces = nulSeparated(output);
    QStringList entries;
    entries.reserve(pieces.size() / 2);
    for (qsizetype i = 0; i + 1 < pieces.size(); i += 2)
        entries.append(pieces.at(i) + QLatin1Char('\t') + pieces.at(i + 1));
    return entries;
}

bool TWGit::isGitDirectory(const QString& folder) {
    return QFileInfo::exists(folder + QStringLiteral("/.git"));
}

std::optional<QString> TWGit::currentBranch(const QString& folder) const {
    const Output output = run({QStringLiteral("symbolic-ref"), QStringLiteral("-q"),
                               QStringLiteral("--short"), QStringLiteral("HEAD")},
                              folder);
    if (!output.succeeded())
        return std::nullopt;
    const QString branch = firstLine(output.standardOutput);
    if (branch.isEmpty())
        return std::nullopt;
    return branch;
}

std::optional<BranchSummary> TWGit::getBranchesAtPath(const QString& folder) const {
    const std::optional<QString> current = currentBranch(folder);
    if (!current)
        return std::nullopt;
    const Output output = run({QStringLiteral("for-each-ref"), QStringLiteral("--format=%(refname:short)"),
                               QStringLiteral("refs/heads")},
                              folder);
    if (!output.succeeded())
        return std::nullopt;
    BranchSummary summary;
    summary.current = *current;
    for (const QByteArray& line : output.standardOutput.split('\n')) {
        if (!line.isEmpty())
            summary.branches.append(QString::fromUtf8(line));
    }
    return summary;
}

std::optional<QString> TWGit::getGitVersion() const {
    const QString documents = QStandardPaths::writableLocation(QStandardPaths::DocumentsLocation);
    const QString folder = QDir(documents).exists() ? documents : QDir::homePath();
    const Output output = run({QStringLiteral("--version")}, folder);
    if (output.standardOutput.isEmpty())
        return std::nullopt;
    const QStringList pieces = firstLine(output.standardOutput).split(QLatin1Char(' '));
    if (pieces.size() >= 3)
        return pieces.last();
    return QStringLiteral("Unknown");
}

QStringList TWGit::uncommittedPaths(const QString& folder) const {
    const Output output =
        run({QStringLiteral("status"), QStringLiteral("--porcelain=v1"), QStringLiteral("-z"),
             QStringLiteral("--untracked-files=normal"), QStringLiteral("--no-renames")},
            folder);
    QStringList paths;
    if (!output.succeeded())
        return paths;
    for (const QString& entry : nulSeparated(output.standardOutput)) {
        // "XY path"; the desktop's folder metadata is excused.
        const QString path = entry.mid(3);
        if (!path.isEmpty() && !path.endsWith(QStringLiteral(".DS_Store")))
            paths.append(path);
    }
    return paths;
}

bool TWGit::isUpdatingRefs(const QString& folder, const QString& branch) {
    const QString git = folder + QStringLiteral("/.git/");
    QStringList locks = {git + QStringLiteral("HEAD.lock"), git + QStringLiteral("index.lock")};
    if (!branch.isEmpty())
        locks.append(git + QStringLiteral("refs/heads/") + branch + QStringLiteral(".lock"));
    return std::any_of(locks.cbegin(), locks.cend(), [](const QString& lock) { return QFile::exists(lock); });
}

bool TWGit::isRepoDirtyAtPath(const QString& folder) const {
    return !uncommittedPaths(folder).isEmpty();
}

// Every file of the commit, as committed: files with uncommitted changes
// are listed too, since their committed content is what a deployment sends.
// Submodules are no files of this repository and are left out.
std::optional<QStringList> TWGit::getAllFileAtPath(const QString& folder) const {
    return getAllFileAtPath(folder, QStringLiteral("HEAD"));
}

std::optional<QStringList> TWGit::getAllFileAtPath(const QString& folder, const QString& commit) const {
    if (commit != u"HEAD" && refuseCommitIds({commit}))
        return std::nullopt;
    const Output output = run({QStringLiteral("ls-tree"), QStringLiteral("-r"), QStringLiteral("-z"),
                               QStringLiteral("--full-tree"), commit},
                              folder);
    if (!output.succeeded())
        return std::nullopt;
    QStringList files;
    const QByteArray& bytes = output.standardOutput;
    qsizetype start = 0;
    while (start < bytes.size()) {
        qsizetype end = bytes.indexOf('\0', start);
        if (end < 0)
            end = bytes.size();
        // "<mode> <type> <object>\t<path>"
        const qsizetype tab = bytes.indexOf('\t', start);
        if (tab > start && tab < end && bytes.mid(start, tab - start).contains(" blob "))
            files.append(QString::fromUtf8(bytes.constData() + tab + 1, end - tab - 1));
        start = end + 1;
    }
    return files;
}

std::optional<CommitList> TWGit::getCommitsAtPath(const QString& folder) const {
    return getCommitsAtPath(folder, QStringLiteral("HEAD"));
}

std::optional<CommitList> TWGit::getCommitsAtPath(const QString& folder, const QString& tip) const {
    if (tip != u"HEAD" && refuseCommitIds({tip}))
        return std::nullopt;
    const Output output =
        run({QStringLiteral("log"), QStringLiteral("-z"), QStringLiteral("--no-color"),
             QStringLiteral("--pretty=format:%h%x09%an%x09%ar%x09%s"), tip, QStringLiteral("--")},
            folder);
    if (!output.succeeded() || output.standardOutput.isEmpty())
        return std::nullopt;
    CommitList commits;
    for (const QString& line : nulSeparated(output.standardOutput)) {
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

// Tree against tree: what differs between the two commits, whatever is
// staged or changed in the working folder. Submodules are left out.
std::optional<QStringList> TWGit::loadFilesAtPath(const QString& folder, const QString& fromCommit,
                                                  const QString& toCommit) const {
    if (refuseCommitIds({fromCommit}) || (toCommit != u"HEAD" && refuseCommitIds({toCommit})))
        return std::nullopt;
    const Output output =
        run({QStringLiteral("diff-tree"), QStringLiteral("-r"), QStringLiteral("-z"), QStringLiteral("--raw"),
             QStringLiteral("--no-renames"), QStringLiteral("--no-ext-diff"), fromCommit, toCommit},
            folder);
    if (!output.succeeded())
        return std::nullopt;
    // ":<old mode> <new mode> <old object> <new object> <letter>" NUL path NUL
    QStringList entries;
    const QByteArray& bytes = output.standardOutput;
    qsizetype start = 0;
    while (start < bytes.size()) {
        const qsizetype headerEnd = bytes.indexOf('\0', start);
        if (headerEnd < 0)
            break;
        qsizetype pathEnd = bytes.indexOf('\0', headerEnd + 1);
        if (pathEnd < 0)
            pathEnd = bytes.size();
        const QList<QByteArray> header = bytes.mid(start, headerEnd - start).split(' ');
        if (header.size() >= 5 && header.at(0) != ":160000" && header.at(1) != "160000") {
            entries.append(QString::fromLatin1(header.at(4)) + QLatin1Char('\t') +
                           QString::fromUtf8(bytes.constData() + headerEnd + 1, pathEnd - headerEnd - 1));
        }
        start = pathEnd + 1;
    }
    return entries;
}

std::optional<QStringList> TWGit::loadFilesAtPath(const QString& folder, const QString& fromCommit) const {
    return loadFilesAtPath(folder, fromCommit, QStringLiteral("HEAD"));
}

std::optional<QString> TWGit::headCommit(const QString& folder) const {
    const Output output = run({QStringLiteral("rev-parse"), QStringLiteral("--verify"), QStringLiteral("-q"),
                               QStringLiteral("HEAD^{commit}")},
                              folder);
    if (!output.succeeded())
        return std::nullopt;
    const QString id = firstLine(output.standardOutput);
    return id.isEmpty() ? std::nullopt : std::optional<QString>(id);
}

bool TWGit::commitExists(const QString& folder, const QString& commitId) const {
    if (refuseCommitIds({commitId}))
        return false;
    return run({QStringLiteral("cat-file"), QStringLiteral("-e"), commitId + QStringLiteral("^{commit}")},
               folder)
        .succeeded();
}

bool TWGit::checkout(const QString& folder, const QString& branch) const {
    return run({QStringLiteral("checkout"), QStringLiteral("-q"), branch, QStringLiteral("--")}, folder)
        .succeeded();
}

} // namespace tw
