#include "GitRepository.h"
#include "TestEnvironment.h"
#include "Traces.h"
#include "app/ToolPaths.h"
#include "git/CommitExport.h"
#include "git/SiteManager.h"
#include "git/TWGit.h"

#include <QDir>
#include <QFile>
#include <QFileInfo>
#include <QScopeGuard>
#include <QTemporaryDir>
#include <QTest>

using namespace tw;
using namespace Qt::StringLiterals;

namespace {

// Names git would quote, or read as an option, and names the shell would
// split: each must come back as it is.
const QStringList oddNames{u"caf\u00e9.html"_s,  u"\u65e5\u672c\u8a9e/\u7d22\u5f15.html"_s,
                           u"with space.txt"_s,  u"quote\"d.txt"_s,
                           u"back\\slash.txt"_s, u"-leading-dash.txt"_s,
                           u"tab\tin.txt"_s};

// Settings people have in their ~/.gitconfig that change what git prints.
const char hostileConfiguration[] = "[color]\n\tui = always\n"
                                    "[column]\n\tui = always\n"
                                    "[core]\n\tquotePath = true\n\tautocrlf = true\n\tabbrev = 12\n"
                                    "[diff]\n\tnoprefix = true\n\trenames = copies\n\trelative = true\n"
                                    "[log]\n\tshowSignature = true\n\tdecorate = full\n"
                                    "[status]\n\tshort = true\n\tbranch = true\n\tshowUntrackedFiles = no\n"
                                    "[format]\n\tpretty = oneline\n"
                                    "[alias]\n\tls-tree = log\n";

SitePtr siteAt(const std::optional<QString>& folder) {
    SitePtr site = Site::newSite();
    site->localPath = folder;
    return site;
}

void ignore(const SitePtr& site, const QStringList& paths) {
    site->ignoredFiles = std::make_shared<FileList>();
    for (const QString& path : paths)
        site->ignoredFiles->append(File::initWithPath(path));
}

// "letter path" of every file, to compare lists at a glance.
QStringList summary(const FileList& files) {
    QStringList out;
    for (const FilePtr& file : files)
        out.append(file->gitStatus.value_or(u"?"_s) + u' ' + file->pathWithFilename.value_or(u"?"_s));
    return out;
}

QStringList summary(const std::optional<FileList>& files) {
    return files ? summary(*files) : QStringList{u"<nothing>"_s};
}

} // namespace

// Git as the program runs it, and the file lists a deployment is made of.
class TestTWGit : public QObject {
    Q_OBJECT

    TWGit git;

    static void writeHostileConfiguration() {
        QFile config(QDir::homePath() + u"/.gitconfig"_s);
        QVERIFY(config.open(QIODevice::WriteOnly | QIODevice::Truncate));
        config.write(hostileConfiguration);
    }

private slots:
    void initTestCase() {
        test::TestEnvironment::isolate();
        QVERIFY2(QFile::exists(TWGit::gitPath()), qPrintable(TWGit::gitPath()));
    }

    // Desktop metadata files are no change; edits and untracked files are.
    void dirtyCheckExcusesDesktopMetadata() {
        test::GitRepository repo;
        repo.commit({{u"sub/index.html"_s, "a"}}, u"one"_s);
        repo.write(u"sub/.DS_Store"_s, "x");
        QVERIFY(!git.isRepoDirtyAtPath(repo.path()));
        repo.write(u"new.txt"_s, "untracked counts");
        QVERIFY(git.isRepoDirtyAtPath(repo.path()));
    }

    void unsafeCommitIdsRunNothing() {
        test::GitRepository repo;
        repo.commit({{u"a"_s, "1"}}, u"one"_s);
        for (const QString& id : {u"HEAD; touch pwned"_s, u"$(touch pwned)"_s, u"abcg123"_s, QString()}) {
            test::SystemLogCapture log;
            QVERIFY(!git.loadFilesAtPath(repo.path(), id));
            QVERIFY(!git.loadFilesAtPath(repo.path(), repo.head(), id));
            QVERIFY(!log.contains(u"TARNWELL - command:"_s));
        }
        QVERIFY(!QFile::exists(repo.path() + u"/pwned"_s));
    }

    // Whatever the person's git configuration says, and whatever the names,
    // the answers are the same and the names real; a detached HEAD is no
    // branch.
    void hostileConfigurationAndOddNames() {
        // The repository is made with git's defaults; the program then asks
        // with the hostile configuration in place.
        auto removeConfiguration = qScopeGuard([] { QFile::remove(QDir::homePath() + u"/.gitconfig"_s); });
        test::GitRepository repo;
        for (const QString& name : oddNames)
            repo.write(name, name.toUtf8() + "\r\n");
        const QString first = repo.commit({{u"plain.txt"_s, "plain"}});
        writeHostileConfiguration();

        QStringList expected = oddNames + QStringList{u"plain.txt"_s};
        expected.sort();
        QStringList listed = *git.getAllFileAtPath(repo.path());
        listed.sort();
        QCOMPARE(listed, expected);
        const std::optional<BranchSummary> branches = git.getBranchesAtPath(repo.path());
        QVERIFY(branches);
        QCOMPARE(branches->current, u"main"_s);
        QCOMPARE(branches->branches, QStringList{u"main"_s});
        QCOMPARE(git.getCommitsAtPath(repo.path())->first()->sha1, first);
        repo.write(u"untracked.txt"_s, "new");
        QVERIFY(git.isRepoDirtyAtPath(repo.path())); // whatever status.showUntrackedFiles says
        repo.remove(u"untracked.txt"_s);

        const QString changedName = oddNames.at(0), removedName = oddNames.at(6);
        repo.write(changedName, "changed");
        repo.remove(removedName);
        repo.write(u"new\ttab.txt"_s, "new");
        QFile::remove(QDir::homePath() + u"/.gitconfig"_s);
        repo.commitAll(u"second"_s);
        writeHostileConfiguration();
        QStringList changes = *git.loadFilesAtPath(repo.path(), first);
        changes.sort();
        QCOMPARE(changes,
                 (QStringList{u"A\tnew\ttab.txt"_s, u"D\t"_s + removedName, u"M\t"_s + changedName}));
        QCOMPARE(SiteManager(std::make_shared<Site>()).createFileObjects(changes).first()->pathWithFilename,
                 u"new\ttab.txt"_s);

        // The committed bytes, whatever core.autocrlf would make of them.
        CommitExport exported;
        QString error;
        QVERIFY2(exported.write(repo.path(), first, oddNames, &error), qPrintable(error));
        for (const QString& name : oddNames)
            QCOMPARE(test::readFile(exported.pathOf(name)), name.toUtf8() + "\r\n");

        repo.git({u"checkout"_s, u"-q"_s, u"--detach"_s});
        QVERIFY(!git.currentBranch(repo.path()));
        QVERIFY(!git.getBranchesAtPath(repo.path()));
    }

    // A tools folder whose path holds a blank, as a build tree under a
    // folder with a space has.
    void toolsFolderWithABlank() {
        QTemporaryDir parent;
        const QString tools = parent.path() + u"/My Tools/libexec"_s;
        QVERIFY(QDir().mkpath(tools));
        QVERIFY(QFile::link(TWGit::gitPath(), tools + u"/git"_s));
        ToolPaths::setToolsDirectory(tools);
        auto restore = qScopeGuard([] { ToolPaths::setToolsDirectory(std::nullopt); });
        test::GitRepository repo;
        repo.commit({{u"index.html"_s, "x"}}, u"one"_s);
        QCOMPARE(*git.getAllFileAtPath(repo.path()), QStringList{u"index.html"_s});
    }

    // A file is exported as a checkout of the commit writes it: committed
    // content only, the commit's content filters (a smudge filter, as
    // large-file storage uses) and end-of-line attributes, by the file's own
    // path; a link becomes the file it names, never one outside the
    // repository. The private folder goes with the export.
    void exportWritesWhatACheckoutWrites() {
        test::GitRepository repo;
        repo.git({u"config"_s, u"filter.mark.smudge"_s, u"sed s/^/SMUDGED-/"_s});
        repo.git({u"config"_s, u"filter.mark.clean"_s, u"sed s/^SMUDGED-//"_s});
        repo.write(u".gitattributes"_s, "*.txt filter=mark\n*.crlf text eol=crlf\n");
        const QStringList names{u"plain.txt"_s, u"-leading-dash.txt"_s, u"line\nbreak.txt"_s,
                                u"deep/tab\tin.txt"_s};
        for (const QString& name : names)
            repo.write(name, "content\n");
        repo.write(u"windows.crlf"_s, "one\ntwo\n");
        repo.write(u"index.html"_s, "committed");
        QVERIFY(QFile::link(u"plain.txt"_s, repo.path() + u"/link.html"_s));
        QVERIFY(QFile::link(u"/etc/passwd"_s, repo.path() + u"/outside.txt"_s));
        const QString commit = repo.commitAll(u"first"_s);
        repo.write(u"index.html"_s, "edited, not committed");
        repo.write(u".gitattributes"_s, "");

        QString folder;
        {
            CommitExport exported;
            QString error;
            QVERIFY2(exported.write(repo.path(), commit,
                                    names + QStringList{u"windows.crlf"_s, u"index.html"_s, u"link.html"_s,
                                                        u"outside.txt"_s},
                                    &error),
                     qPrintable(error));
            for (const QString& name : names + QStringList{u"link.html"_s})
                QCOMPARE(test::readFile(exported.pathOf(name)), QByteArray("SMUDGED-content\n"));
            QVERIFY(!QFileInfo(exported.pathOf(u"link.html"_s)).isSymLink());
            QCOMPARE(test::readFile(exported.pathOf(u"windows.crlf"_s)), QByteArray("one\r\ntwo\r\n"));
            QCOMPARE(test::readFile(exported.pathOf(u"index.html"_s)), QByteArray("committed"));
            QCOMPARE(test::readFile(exported.pathOf(u"outside.txt"_s)), QByteArray("/etc/passwd"));
            folder = exported.folder();
            QCOMPARE(int(QFile(folder).permissions() & (QFile::ReadOther | QFile::ReadGroup)), 0);
            // A filter may make a file of the commit far larger: never in memory.
            QVERIFY2(folder.startsWith(QDir::tempPath() + u'/'), qPrintable(folder));
            QVERIFY(!exported.write(repo.path(), commit, {u"no/such/file"_s}, &error));
            QVERIFY2(error.contains(u"no/such/file"_s), qPrintable(error));
        }
        QVERIFY(!QFileInfo::exists(folder));
    }

    // Ignored entries and the sync root are folder prefixes: never a sibling
    // that shares a name's beginning, never a folder of the same name further
    // down; an empty sync root or "/" is the whole repository.
    void ignoredEntriesAndSyncRootArePrefixes() {
        SitePtr site = siteAt(u"/nowhere"_s);
        SiteManager manager(site);
        ignore(site, {u"css/"_s, u"drafts"_s});
        const QStringList ignoring{u"M\tcss/site.css"_s, u"M\tcssx/a.css"_s, u"D\tcss/old.css"_s,
                                   u"A\tdrafts2/x.html"_s, u"index.html"_s};
        QCOMPARE(summary(manager.createFileObjects(ignoring)),
                 (QStringList{u"M cssx/a.css"_s, u"A index.html"_s}));
        QVERIFY(manager.isIgnoredFile(u"drafts/post.md"_s));
        site->ignoredFiles.reset();

        const QStringList lines{u"M\tpublic/index.html"_s, u"M\tindex.html"_s, u"D\tpublic/img/a.png"_s,
                                u"M\tpublicity/b.html"_s, u"M\tsrc/public/x.html"_s};
        for (const QString& written : {u"public/"_s, u"public"_s, u"/public"_s, u"./public/"_s}) {
            site->syncRootPath = written;
            QCOMPARE(summary(manager.createFileObjects(lines)),
                     (QStringList{u"M public/index.html"_s, u"D public/img/a.png"_s}));
        }
        for (const std::optional<QString>& root :
             {std::optional<QString>(u"/"_s), std::optional<QString>(u""_s), std::optional<QString>()}) {
            site->syncRootPath = root;
            QCOMPARE(manager.createFileObjects(lines).size(), lines.size());
        }
    }

    void firstAndLaterDeployments() {
        test::GitRepository repo;
        const QString first = repo.commit({{u"index.html"_s, "one"},
                                           {u"about.html"_s, "one"},
                                           {u"css/site.css"_s, "one"},
                                           {u"old/page.html"_s, "one"}});
        SitePtr site = siteAt(repo.path());
        SiteManager manager(site);
        const QStringList everything{u"A about.html"_s, u"A css/site.css"_s, u"A index.html"_s,
                                     u"A old/page.html"_s};
        QCOMPARE(summary(manager.getAllFiles()), everything);

        // A file with uncommitted changes is listed all the same: its
        // committed content is what a deployment sends.
        repo.write(u"about.html"_s, "changed, not committed");
        QCOMPARE(manager.uncommittedPaths(), QStringList{u"about.html"_s});
        QCOMPARE(summary(manager.getAllFiles()), everything);

        repo.write(u"index.html"_s, "two");
        repo.write(u"css/new.css"_s, "two");
        repo.remove(u"old/page.html"_s);
        repo.git({u"add"_s, u"index.html"_s, u"css/new.css"_s, u"old/page.html"_s});
        repo.git({u"commit"_s, u"-q"_s, u"-m"_s, u"second"_s});

        // A later deployment sends what changed between the deployed commit
        // and HEAD: what is staged but not committed stays out.
        repo.write(u"css/site.css"_s, "staged");
        repo.git({u"add"_s, u"css/site.css"_s});
        QCOMPARE(summary(manager.loadFilesFromCommit(first)),
                 (QStringList{u"A css/new.css"_s, u"M index.html"_s, u"D old/page.html"_s}));

        // A commit the repository no longer has (after a rebase) is told
        // apart from one without changes.
        QVERIFY(manager.commitExists(first));
        QVERIFY(!manager.commitExists(u"abcdef1"_s));
    }

    void noFolderStartsNoProcess() {
        for (const std::optional<QString>& folder :
             {std::optional<QString>(), std::optional<QString>(u""_s)}) {
            test::SystemLogCapture log;
            SiteManager manager(siteAt(folder));
            QVERIFY(!manager.getAllFiles());
            QVERIFY(!manager.loadFilesFromCommit(u"abcdef1"_s));
            QVERIFY(!manager.getBranches());
            QVERIFY(!manager.isGitDirectory());
            manager.checkoutBranch(u"main"_s);
            QVERIFY2(!log.contains(u"TARNWELL - command:"_s), qPrintable(log.lines().join(u'\n')));
        }
    }

    // Names git would take but a shell would not leave alone, options and
    // forged log lines are refused before any process starts.
    void hostileBranchNamesRunNothing() {
        test::GitRepository repo;
        repo.commit({{u"index.html"_s, "one"}});
        repo.git({u"branch"_s, u"feature/x"_s});
        SiteManager manager(siteAt(repo.path()));
        for (const QString& name :
             {u"main;touch pwned"_s, u"$(touch pwned)"_s, u"-b pwned"_s, u"main\nTARNWELL - forged"_s}) {
            test::SystemLogCapture log;
            manager.checkoutBranch(name);
            QVERIFY2(!log.contains(u"TARNWELL - command:"_s), qPrintable(name));
            QCOMPARE(log.lines().size(), 1); // refused, on one line
            QVERIFY(!QFile::exists(repo.path() + u"/pwned"_s));
        }
        manager.checkoutBranch(u"feature/x"_s);
        QCOMPARE(manager.getBranches()->current, u"feature/x"_s);
    }
};

QTEST_GUILESS_MAIN(TestTWGit)
#include "tst_twgit.moc"
