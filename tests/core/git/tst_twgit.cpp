#include "GitRepository.h"
#include "TestEnvironment.h"
#include "app/ToolPaths.h"
#include "git/TWGit.h"

#include <QDir>
#include <QFile>
#include <QTemporaryDir>
#include <QTest>

using namespace tw;
using namespace Qt::StringLiterals;

class TestTWGit : public QObject {
    Q_OBJECT

    TWGit git;

    // A tools folder whose git prints the given first line for "--version".
    static void fakeGitVersion(const QTemporaryDir& tools, const QByteArray& line) {
        QFile script(tools.path() + u"/git"_s);
        QVERIFY(script.open(QIODevice::WriteOnly));
        script.write("#!/bin/sh\necho '" + line + "'\n");
        script.close();
        script.setPermissions(QFile::ReadOwner | QFile::WriteOwner | QFile::ExeOwner);
    }

private slots:
    void initTestCase() {
        test::TestEnvironment::isolate();
        QVERIFY2(QFile::exists(TWGit::gitPath()), qPrintable(TWGit::gitPath()));
    }

    void commandText() {
        QCOMPARE(TWGit::build(u"branch"_s), ToolPaths::toolsDirectory() + u"/git branch"_s);
        QVERIFY(!ToolPaths::toolsDirectory().isEmpty());
    }

    void branchesIncludingADetachedHead() {
        test::GitRepository repo;
        repo.write(u"index.html"_s, "<h1>hi</h1>");
        const QString first = repo.commitAll(u"one"_s);
        repo.git({u"branch"_s, u"dev"_s});

        auto summary = git.getBranchesAtPath(repo.path());
        QVERIFY(summary);
        QCOMPARE(summary->branches, (QStringList{u"dev"_s, u"main"_s}));
        QCOMPARE(summary->current, u"main"_s);

        repo.git({u"checkout"_s, u"-q"_s, first});
        summary = git.getBranchesAtPath(repo.path());
        QVERIFY(summary);
        // Only the last blank-separated word of "* (HEAD detached at abc1234)" is kept.
        QCOMPARE(summary->current, first + u")"_s);
        QCOMPARE(summary->branches.first(), first + u")"_s);

        QTemporaryDir notARepository;
        QVERIFY(!git.getBranchesAtPath(notARepository.path()));
        QVERIFY(!git.isRepoDirtyAtPath(notARepository.path()));
        QVERIFY(!TWGit::isGitDirectory(notARepository.path()));
        QVERIFY(TWGit::isGitDirectory(repo.path()));
    }

    void versionText() {
        const auto real = git.getGitVersion();
        QVERIFY(real);
        QVERIFY2(real->at(0).isDigit(), qPrintable(*real));

        QTemporaryDir tools;
        ToolPaths::setToolsDirectory(tools.path());
        fakeGitVersion(tools, "git version 2.40.1");
        QCOMPARE(git.getGitVersion(), u"2.40.1"_s);
        fakeGitVersion(tools, "git version 2.39.3 (Apple Git-146)");
        QCOMPARE(git.getGitVersion(), u"Git-146)"_s);
        fakeGitVersion(tools, "git 2");
        QCOMPARE(git.getGitVersion(), u"Unknown"_s);
        ToolPaths::setToolsDirectory(std::nullopt);
    }

    void dirtyCheckExcusesDesktopMetadata() {
        test::GitRepository repo;
        repo.write(u"index.html"_s, "a");
        repo.write(u"sub/page.html"_s, "b");
        repo.commitAll(u"one"_s);
        QVERIFY(!git.isRepoDirtyAtPath(repo.path()));
        repo.write(u".DS_Store"_s, "x");
        repo.write(u"sub/.DS_Store"_s, "x");
        QVERIFY(!git.isRepoDirtyAtPath(repo.path()));
        repo.write(u"index.html"_s, "changed");
        QVERIFY(git.isRepoDirtyAtPath(repo.path()));
        repo.git({u"checkout"_s, u"index.html"_s});
        repo.write(u"new.txt"_s, "untracked counts");
        QVERIFY(git.isRepoDirtyAtPath(repo.path()));
    }

    void fullListingLeavesOutModifiedFiles() {
        test::GitRepository repo;
        repo.write(u"index.html"_s, "a");
        repo.write(u"css/site.css"_s, "b");
        repo.commitAll(u"one"_s);

        auto files = git.getAllFileAtPath(repo.path());
        QVERIFY(files);
        // Nothing modified: the empty text after ls-tree's final newline stays.
        QCOMPARE(*files, (QStringList{u"css/site.css"_s, u"index.html"_s, QString()}));

        repo.write(u"index.html"_s, "modified, not committed");
        files = git.getAllFileAtPath(repo.path());
        QVERIFY(files);
        QCOMPARE(*files, (QStringList{u"css/site.css"_s}));
    }

    void logLines() {
        test::GitRepository repo;
        repo.write(u"a"_s, "1");
        repo.commitAll(u"first"_s);
        repo.write(u"a"_s, "2");
        const QString second = repo.commitAll(u"subject\twith a tab"_s);

        const auto commits = git.getCommitsAtPath(repo.path());
        QVERIFY(commits);
        QCOMPARE(commits->size(), 2);
        const CommitPtr newest = commits->first();
        QCOMPARE(newest->sha1, second);
        QCOMPARE(newest->author, u"Test Author"_s);
        QVERIFY(newest->time->endsWith(u"ago"_s));
        QCOMPARE(newest->comment, u"subject"_s);
        QCOMPARE(commits->at(1)->comment, u"first"_s);
    }

    void diffCommands() {
        test::GitRepository repo;
        repo.write(u"keep.txt"_s, "k");
        repo.write(u"modify.txt"_s, "m");
        repo.write(u"delete.txt"_s, "d");
        repo.write(u"old/name.txt"_s, "r");
        const QString first = repo.commitAll(u"one"_s);
        repo.write(u"modify.txt"_s, "m2");
        repo.remove(u"delete.txt"_s);
        repo.git({u"mv"_s, u"old"_s, u"new"_s});
        repo.write(u"added.txt"_s, "a");
        const QString second = repo.commitAll(u"two"_s);

        const auto lines = git.loadFilesAtPath(repo.path(), first);
        QVERIFY(lines);
        QCOMPARE(*lines, (QStringList{u"A\tadded.txt"_s, u"D\tdelete.txt"_s, u"M\tmodify.txt"_s,
                                      u"A\tnew/name.txt"_s, u"D\told/name.txt"_s, QString()}));

        // A staged change counts; an unstaged one does not.
        repo.write(u"keep.txt"_s, "unstaged");
        repo.write(u"staged.txt"_s, "s");
        repo.git({u"add"_s, u"staged.txt"_s});
        QVERIFY(git.loadFilesAtPath(repo.path(), second)->contains(u"A\tstaged.txt"_s));
        QVERIFY(!git.loadFilesAtPath(repo.path(), second)->contains(u"M\tkeep.txt"_s));

        // git refuses --staged with two commits, so the two-commit form answers nothing.
        QVERIFY(!git.loadFilesAtPath(repo.path(), first, second));
    }

    void unsafeInputRunsNothing() {
        test::GitRepository repo;
        repo.write(u"a"_s, "1");
        repo.commitAll(u"one"_s);
        const QString marker = repo.path() + u"/pwned"_s;
        for (const QString& id : {u"HEAD; touch pwned"_s, u"$(touch pwned)"_s, u"abc"_s,
                                  u"0123456789abcdef0123456789abcdef01234567a"_s, u"abcg123"_s, QString()}) {
            test::SystemLogCapture log;
            QVERIFY(!git.loadFilesAtPath(repo.path(), id));
            QVERIFY(!git.loadFilesAtPath(repo.path(), repo.head(), id));
            QVERIFY(!log.contains(u"TARNWELL - command:"_s));
            QVERIFY(log.contains(u"refused"_s));
        }
        QVERIFY(!QFile::exists(marker));
        QVERIFY(TWGit::isAcceptableCommitId(u"ABCDEF12"_s));
    }

    void missingWorkingFolder() {
        test::SystemLogCapture log;
        QVERIFY(!git.runCommand(TWGit::build(u"status"_s), u"/nonexistent/folder"_s));
        QVERIFY(!git.getAllFileAtPath(u"/nonexistent/folder"_s));
        QVERIFY(log.contains(u"TARNWELL - Expection occurred "_s));
        QVERIFY(log.contains(u"TARNWELL - command: "_s));
    }

    void outputIsLoggedToTheSystemLog() {
        test::GitRepository repo;
        repo.write(u"a"_s, "1");
        repo.commitAll(u"one"_s);
        test::SystemLogCapture log;
        git.runCommand(TWGit::build(u"ls-files"_s), repo.path());
        QVERIFY(log.lines().contains(u"TARNWELL - command: "_s + TWGit::build(u"ls-files"_s)));
        QVERIFY(log.lines().contains(u"TARNWELL - results: a\n"_s));
    }
};

QTEST_GUILESS_MAIN(TestTWGit)
#include "tst_twgit.moc"
