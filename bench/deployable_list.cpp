// How much longer than git itself the deployable file list takes, on a
// repository of 100,000 files.
//
// Builds a throw-away repository in a temporary folder (git fast-import, then
// one checkout): 100,000 small files in 200 folders, and a second commit that
// changes 10,000 of them (6,000 modified, 2,000 added, 2,000 deleted). Then it
// times, a few rounds each, median:
//   - SiteManager::getAllFiles against the two git commands it runs
//     ("ls-tree -r HEAD --name-only" and "ls-files -m", each through
//     /bin/sh with its output read to the end);
//   - SiteManager::loadFilesFromCommit with the first commit against
//     "diff --staged --no-renames --name-status <first>";
//   - CommitExport of 20,000 files of the second commit (what a first
//     deployment of that many files adds: its content as committed, written
//     to a private folder; the target is at most 0.5 s).
// Prints both times, their ratios, the peak memory, and last "ratio=<worse>".
//
//   deployable_list [--files N] [--rounds N] [--keep]

#include "app/Preferences.h"
#include "git/CommitExport.h"
#include "git/SiteManager.h"
#include "git/TWGit.h"

#include <QCoreApplication>
#include <QDir>
#include <QElapsedTimer>
#include <QFileInfo>
#include <QProcess>
#include <QTemporaryDir>

#include <algorithm>
#include <cstdio>
#include <fcntl.h>
#include <spawn.h>
#include <string>
#include <sys/resource.h>
#include <sys/wait.h>
#include <thread>
#include <unistd.h>
#include <vector>

extern char** environ;

namespace {

using namespace tw;

[[noreturn]] void die(const QString& message) {
    std::fprintf(stderr, "deployable_list: %s\n", qPrintable(message));
    std::exit(1);
}

// Runs git (the system's, as the application's own is a link to it) for
// building the repository.
QByteArray git(const QString& folder, const QStringList& arguments, const QByteArray& input = QByteArray()) {
    QProcess process;
    process.setWorkingDirectory(folder);
    QProcessEnvironment environment = QProcessEnvironment::systemEnvironment();
    environment.insert(QStringLiteral("GIT_CONFIG_NOSYSTEM"), QStringLiteral("1"));
    process.setProcessEnvironment(environment);
    process.setProcessChannelMode(QProcess::ForwardedErrorChannel);
    process.start(TWGit::gitPath(), arguments);
    if (!process.waitForStarted(-1))
        die(QStringLiteral("cannot run git: ") + process.errorString());
    if (!input.isEmpty())
        process.write(input);
    process.closeWriteChannel();
    process.waitForFinished(-1);
    if (process.exitStatus() != QProcess::NormalExit || process.exitCode() != 0)
        die(QStringLiteral("git ") + arguments.join(QLatin1Char(' ')) + QStringLiteral(" failed"));
    return process.readAllStandardOutput();
}

QByteArray pathOf(int index) {
    // 20 sections of 10 parts: 200 folders of about 500 files.
    return QByteArrayLiteral("site/section") + QByteArray::number(index % 20).rightJustified(2, '0') +
           QByteArrayLiteral("/part") + QByteArray::number((index / 20) % 10) + QByteArrayLiteral("/page") +
           QByteArray::number(index).rightJustified(6, '0') + QByteArrayLiteral(".html");
}

void appendFile(QByteArray& stream, const QByteArray& path, const QByteArray& content) {
    stream +=
        "M 100644 inline " + path + "\ndata " + QByteArray::number(content.size()) + '\n' + content + '\n';
}

void appendCommitHeader(QByteArray& stream, int mark, const QByteArray& message, qint64 when) {
    const QByteArray stamp = QByteArray::number(when) + " +0000\n";
    stream += "commit refs/heads/main\nmark :" + QByteArray::number(mark) + '\n';
    stream += "author Bench <bench@example.invalid> " + stamp;
    stream += "committer Bench <bench@example.invalid> " + stamp;
    stream += "data " + QByteArray::number(message.size()) + '\n' + message + '\n';
}

struct Repository {
    QString first;
    QString second;
    qsizetype filesInSecond = 0;
    qsizetype changes = 0;
};

Repository buildRepository(const QString& folder, int fileCount) {
    const int changes = fileCount / 10;
    const int modified = changes * 6 / 10;
    const int deleted = changes * 2 / 10;
    const int added = changes - modified - deleted;

    git(folder, {QStringLiteral("init"), QStringLiteral("-q"), QStringLiteral("-b"), QStringLiteral("main")});

    QByteArray stream;
    stream.reserve(qsizetype(fileCount) * 80);
    appendCommitHeader(stream, 1, "first", 1700000000);
    for (int i = 0; i < fileCount; ++i)
        appendFile(stream, pathOf(i), "<p>page " + QByteArray::number(i) + "</p>");
    stream += '\n';
    // Every tenth file is touched: modified, then deleted, in turn; the
    // additions are new files past the end.
    appendCommitHeader(stream, 2, "second", 1700003600);
    stream += "from :1\n";
    int touched = 0;
    for (int i = 0; touched < modified + deleted; i += 10, ++touched) {
        if (touched % 2 == 1 && touched < 2 * deleted)
            stream += "D " + pathOf(i) + '\n';
        else
            appendFile(stream, pathOf(i), "<p>page " + QByteArray::number(i) + ", changed</p>");
    }
    for (int i = 0; i < added; ++i)
        appendFile(stream, pathOf(fileCount + i), "<p>new page " + QByteArray::number(i) + "</p>");
    stream += '\n';
    git(folder, {QStringLiteral("fast-import"), QStringLiteral("--quiet")}, stream);

    // The work tree and index of the second commit.
    // Writing 100,000 files one after the other is the slow part of building;
    // one checkout worker per core makes it several times faster here.
    git(folder, {QStringLiteral("-c"), QStringLiteral("checkout.workers=0"), QStringLiteral("reset"),
                 QStringLiteral("-q"), QStringLiteral("--hard"), QStringLiteral("main")});
    // Files written in the same second as the index would make every later
    // "ls-files -m" read them all again; let the clock move on and refresh.
    std::this_thread::sleep_for(std::chrono::milliseconds(1100));
    git(folder, {QStringLiteral("update-index"), QStringLiteral("-q"), QStringLiteral("--really-refresh")});

    Repository repository;
    repository.filesInSecond = fileCount - deleted + added;
    repository.changes = changes;
    repository.first = QString::fromUtf8(
        git(folder, {QStringLiteral("rev-parse"), QStringLiteral("--short"), QStringLiteral("main~1")})
            .trimmed());
    repository.second = QString::fromUtf8(
        git(folder, {QStringLiteral("rev-parse"), QStringLiteral("--short"), QStringLiteral("main")})
            .trimmed());
    return repository;
}

// Runs a command text through /bin/sh in the folder and reads its output to
// the end: the least any caller of git pays.
size_t runRaw(const QString& command, const QString& folder) {
    int pipeFds[2];
    if (pipe2(pipeFds, O_CLOEXEC) != 0)
        die(QStringLiteral("pipe failed"));
    posix_spawn_file_actions_t actions;
    posix_spawn_file_actions_init(&actions);
    posix_spawn_file_actions_adddup2(&actions, pipeFds[1], STDOUT_FILENO);
    posix_spawn_file_actions_addopen(&actions, STDIN_FILENO, "/dev/null", O_RDONLY, 0);
    const QByteArray folderBytes = QFile::encodeName(folder);
    posix_spawn_file_actions_addchdir_np(&actions, folderBytes.constData());
    const QByteArray commandBytes = command.toUtf8();
    char shell[] = "/bin/sh";
    char dashC[] = "-c";
    std::vector<char> text(commandBytes.begin(), commandBytes.end());
    text.push_back('\0');
    char* argv[] = {shell, dashC, text.data(), nullptr};
    pid_t pid = 0;
    if (posix_spawn(&pid, "/bin/sh", &actions, nullptr, argv, environ) != 0)
        die(QStringLiteral("cannot start /bin/sh"));
    posix_spawn_file_actions_destroy(&actions);
    close(pipeFds[1]);
    std::string output;
    char buffer[65536];
    for (;;) {
        const ssize_t n = read(pipeFds[0], buffer, sizeof buffer);
        if (n > 0)
            output.append(buffer, size_t(n));
        else if (n == 0 || errno != EINTR)
            break;
    }
    close(pipeFds[0]);
    int status = 0;
    waitpid(pid, &status, 0);
    return output.size();
}

double median(std::vector<double> values) {
    std::sort(values.begin(), values.end());
    const size_t n = values.size();
    return n % 2 ? values[n / 2] : (values[n / 2 - 1] + values[n / 2]) / 2;
}

template <typename F>
double milliseconds(F&& work) {
    QElapsedTimer timer;
    timer.start();
    work();
    return double(timer.nsecsElapsed()) / 1e6;
}

} // namespace

int main(int argc, char** argv) {
    QCoreApplication app(argc, argv);
    int fileCount = 100000;
    int rounds = 9;
    bool keep = false;
    const QStringList arguments = app.arguments();
    for (qsizetype i = 1; i < arguments.size(); ++i) {
        if (arguments[i] == u"--files" && i + 1 < arguments.size())
            fileCount = arguments[++i].toInt();
        else if (arguments[i] == u"--rounds" && i + 1 < arguments.size())
            rounds = arguments[++i].toInt();
        else if (arguments[i] == u"--keep")
            keep = true;
        else
            die(QStringLiteral("usage: deployable_list [--files N] [--rounds N] [--keep]"));
    }
    if (fileCount < 100 || rounds < 1)
        die(QStringLiteral("need at least 100 files and one round"));

    QTemporaryDir scratch;
    if (!scratch.isValid())
        die(QStringLiteral("no temporary folder"));
    scratch.setAutoRemove(!keep);
    // Own preferences, so the person's are never read or changed; debug
    // logging off while timing.
    Preferences::instance().setFileName(scratch.filePath(QStringLiteral("preferences.conf")));
    Preferences::instance().registerDefaultsFromResource();
    Preferences::instance().setBool(QStringLiteral("debugEnabled"), false);

    const QString folder = scratch.filePath(QStringLiteral("repository"));
    QDir().mkpath(folder);
    QElapsedTimer building;
    building.start();
    const Repository repository = buildRepository(folder, fileCount);
    std::printf("repository: %d files, second commit changes %lld, built in %.1f s (%s)\n", fileCount,
                static_cast<long long>(repository.changes), double(building.elapsed()) / 1000,
                qPrintable(folder));

    SitePtr site = Site::newSite();
    site->localPath = folder;
    const SiteManager manager(site);

    const QString lsTree = TWGit::build(QStringLiteral("ls-tree -r HEAD --name-only"));
    const QString lsFiles = TWGit::build(QStringLiteral("ls-files -m"));
    const QString diff =
        TWGit::build(QStringLiteral("diff --staged --no-renames --name-status ")) + repository.first;

    // One untimed round of each warms the caches and checks the answers.
    const auto all = manager.getAllFiles();
    const auto changed = manager.loadFilesFromCommit(repository.first);
    if (!all || all->size() != repository.filesInSecond)
        die(QStringLiteral("getAllFiles gave ") + QString::number(all ? all->size() : -1) +
            QStringLiteral(" files"));
    if (!changed || changed->size() != repository.changes)
        die(QStringLiteral("loadFilesFromCommit gave ") + QString::number(changed ? changed->size() : -1) +
            QStringLiteral(" files"));
    runRaw(lsTree, folder);
    runRaw(lsFiles, folder);
    runRaw(diff, folder);

    std::vector<double> ownAll, rawAll, ownDiff, rawDiff;
    for (int round = 0; round < rounds; ++round) {
        rawAll.push_back(milliseconds([&] {
            runRaw(lsTree, folder);
            runRaw(lsFiles, folder);
        }));
        std::optional<FileList> files;
        ownAll.push_back(milliseconds([&] { files = manager.getAllFiles(); }));
        files.reset();
        rawDiff.push_back(milliseconds([&] { runRaw(diff, folder); }));
        ownDiff.push_back(milliseconds([&] { files = manager.loadFilesFromCommit(repository.first); }));
    }

    // Our own share, without any process: the File records made from the
    // full listing, plain and with ten ignored entries (one of them a folder
    // that holds a tenth of the files).
    const QStringList listing = manager.git.getAllFileAtPath(folder).value_or(QStringList());
    SitePtr filtered = Site::newSite();
    filtered->localPath = folder;
    filtered->ignoredFiles = std::make_shared<FileList>();
    for (int i = 0; i < 9; ++i)
        filtered->ignoredFiles->append(
            File::initWithPath(QStringLiteral("drafts/") + QString::number(i) + QLatin1Char('/')));
    filtered->ignoredFiles->append(File::initWithPath(QStringLiteral("site/section07/")));
    const SiteManager filteringManager(filtered);
    std::vector<double> recordsOnly, recordsFiltered;
    qsizetype keptWithFilter = 0;
    for (int round = 0; round < rounds; ++round) {
        recordsOnly.push_back(milliseconds([&] { (void)manager.createFileObjects(listing); }));
        recordsFiltered.push_back(
            milliseconds([&] { keptWithFilter = filteringManager.createFileObjects(listing).size(); }));
    }

    const QStringList exported = listing.mid(0, std::min<qsizetype>(20000, listing.size()));
    std::vector<double> exports;
    QString exportPlace;
    for (int round = 0; round < std::min(rounds, 5); ++round) {
        CommitExport commitExport;
        QString error;
        exports.push_back(milliseconds([&] {
            if (!commitExport.write(folder, repository.second, exported, &error))
                die(QStringLiteral("export failed: ") + error);
        }));
        exportPlace = QFileInfo(commitExport.folder()).path();
    }

    const double allRatio = median(ownAll) / median(rawAll);
    const double diffRatio = median(ownDiff) / median(rawDiff);
    struct rusage usage = {};
    getrusage(RUSAGE_SELF, &usage);
    std::printf("getAllFiles:          %8.1f ms   git alone %8.1f ms   ratio %.3f   (%lld files)\n",
                median(ownAll), median(rawAll), allRatio, static_cast<long long>(all->size()));
    std::printf("loadFilesFromCommit:  %8.1f ms   git alone %8.1f ms   ratio %.3f   (%lld files)\n",
                median(ownDiff), median(rawDiff), diffRatio, static_cast<long long>(changed->size()));
    std::printf(
        "File records alone:   %8.1f ms for %lld lines, %.1f ms with 10 ignored entries (%lld kept)\n",
        median(recordsOnly), static_cast<long long>(listing.size()), median(recordsFiltered),
        static_cast<long long>(keptWithFilter));
    std::printf("CommitExport:         %8.1f ms for %lld files, into %s (target: at most 500 ms)\n",
                median(exports), static_cast<long long>(exported.size()), qPrintable(exportPlace));
    std::printf("rounds: %d (median)   peak memory: %.1f MiB\n", rounds, double(usage.ru_maxrss) / 1024);
    std::printf("ratio=%.3f\n", std::max(allRatio, diffRatio));
    return 0;
}
