#include "DeploySites.h"
#include "TestEnvironment.h"
#include "app/Preferences.h"
#include "app/ToolPaths.h"
#include "git/TWGit.h"

#include <QElapsedTimer>
#include <QFile>
#include <QScopeGuard>
#include <QTemporaryDir>
#include <QTest>

using namespace tw;
using namespace Qt::StringLiterals;

// When the controller deploys on its own, without a server: a site without a
// user name stands in for a deployment attempt, which ends at once with
// SetupFailed.
class TestViewController : public QObject {
    Q_OBJECT

    static SitePtr site(const QString& folder) {
        SitePtr s = Site::newSite();
        s->name = u"Site"_s;
        s->localPath = folder;
        s->host = u"127.0.0.1"_s;
        s->deployBranch = u"main"_s;
        return s;
    }

private slots:
    void initTestCase() { test::TestEnvironment::isolate(); }
    void init() { test::TestEnvironment::resetPreferences(); }

    // Another branch checked out refuses every run, the always-uploaded
    // files' too. On the deploy branch, automatic deployment waits for its
    // flag, for the site editor to close and for something to deploy; of
    // the watcher's events only writes count.
    void automaticDeploymentConditions() {
        test::GitRepository repo;
        repo.commit({{u"a"_s, "1"}}, u"one"_s);
        repo.git({u"checkout"_s, u"-q"_s, u"-b"_s, u"feature"_s});
        SitePtr s = site(repo.path()); // no user name: an attempt ends with SetupFailed
        s->autoDeploy = true;
        s->mandatoryFiles = std::make_shared<FileList>(FileList{File::initWithPath(u"a"_s)});
        test::DeployWindow window({s});
        ViewController& controller = window.controller;
        QSignalSpy& attempts = window.ended;
        QCOMPARE(int(controller.readiness()), int(DeployReadiness::OtherBranch));
        QVERIFY(!window.view.deployButtonEnabled);
        controller.autoDeploy();
        QCOMPARE(attempts.count(), 0);
        controller.deployButton();
        QCOMPARE(attempts.count(), 1);
        QCOMPARE(int(attempts.first().at(0).value<DeployOutcome>()), int(DeployOutcome::Refused));
        QVERIFY(!controller.run());

        repo.git({u"checkout"_s, u"-q"_s, u"main"_s});
        controller.setupFileList();
        QCOMPARE(int(controller.readiness()), int(DeployReadiness::Ready));
        QVERIFY(window.view.deployButtonEnabled);
        attempts.clear();
        controller.currentSite->autoDeploy = false;
        controller.autoDeploy();
        QCOMPARE(attempts.count(), 0);
        controller.currentSite->autoDeploy = true;
        Preferences::instance().setBool(u"editing"_s, true);
        controller.autoDeploy();
        QCOMPARE(attempts.count(), 0);
        Preferences::instance().setBool(u"editing"_s, false);
        controller.updateCheckboxes(false, {0, 1});
        controller.autoDeploy(); // nothing checked
        QCOMPARE(attempts.count(), 0);
        controller.updateCheckboxes(true, {0, 1});
        controller.autoDeploy();
        QCOMPARE(attempts.count(), 1);
        QCOMPARE(int(attempts.first().at(0).value<DeployOutcome>()), int(DeployOutcome::SetupFailed));

        // The watcher's events: only writes count.
        attempts.clear();
        controller.VDKQueue(controller.fileWatcherQueue.get(), u"VDKQueueFileAttributesChangedNotification"_s,
                            repo.path() + u"/.git/logs/HEAD"_s);
        window.commitWritten(repo);
        QCOMPARE(attempts.count(), 0); // once git has settled
        QTRY_COMPARE(attempts.count(), 1);
        QCOMPARE(controller.fileWatcherQueue->numberOfWatchedPaths(), 1);
    }

    // A lock git left behind (a crashed git, an editor's) delays an
    // automatic deployment for a while, not for ever.
    void staleLockDelaysAutomaticDeploymentOnlyAWhile() {
        test::GitRepository repo;
        repo.commit({{u"a"_s, "1"}}, u"one"_s);
        SitePtr s = site(repo.path()); // no user name: an attempt ends with SetupFailed
        s->autoDeploy = true;
        test::DeployWindow window({s});
        QSignalSpy& attempts = window.ended;
        QFile lock(repo.path() + u"/.git/index.lock"_s);
        QVERIFY(lock.open(QIODevice::WriteOnly));
        lock.close();

        QElapsedTimer waited;
        waited.start();
        window.commitWritten(repo);
        QTest::qWait(1000);
        QCOMPARE(attempts.count(), 0); // git may still be at work
        QTRY_COMPARE_WITH_TIMEOUT(attempts.count(), 1, 30000);
        QVERIFY2(waited.elapsed() >= 9000, qPrintable(QString::number(waited.elapsed())));
    }

    // A commit that lands while the list is built (automatic deployment
    // lists as soon as HEAD moves) never mixes two commits: the commit
    // listed, the files listed and the commit whose content is exported are
    // one and the same.
    void aCommitWhileListingNeverMixesTwoCommits() {
        test::GitRepository repo;
        const QString first = repo.commit({{u"a.txt"_s, "1"}}, u"one"_s);
        test::storeSites({site(repo.path())});

        // The program's git, which lets a second commit land right after the
        // program's first look at HEAD.
        QTemporaryDir tools;
        const QString mark = tools.filePath(u"commit-once"_s);
        QFile script(tools.filePath(u"git"_s));
        QVERIFY(script.open(QIODevice::WriteOnly));
        script.write(
            QStringLiteral("#!/bin/sh\n"
                           "'%1' \"$@\"; status=$?\n"
                           "case \" $* \" in *' rev-parse '*|*' log '*)\n"
                           "  if [ -e '%2' ]; then rm -f '%2'; cd '%3' && echo 2 > b.txt &&\n"
                           "    '%1' add b.txt && '%1' -c user.name=T -c user.email=t@example.invalid "
                           "commit -qm two; fi >/dev/null 2>&1 ;;\n"
                           "esac\n"
                           "exit $status\n")
                .arg(TWGit::gitPath(), mark, repo.path())
                .toUtf8());
        script.close();
        QVERIFY(script.setPermissions(QFile::ReadOwner | QFile::WriteOwner | QFile::ExeOwner));
        QFile(mark).open(QIODevice::WriteOnly);
        ToolPaths::setToolsDirectory(tools.path());
        auto restore = qScopeGuard([] { ToolPaths::setToolsDirectory(std::nullopt); });

        test::DeployWindow window;
        ViewController& controller = window.controller;
        QVERIFY(!QFile::exists(mark));
        QVERIFY(repo.head() != first); // the second commit landed meanwhile

        QVERIFY(controller.listedCommit() && controller.files);
        QVERIFY(controller.listedCommitId().startsWith(controller.listedCommit()->sha1.value_or(u"-"_s)));
        QStringList files;
        for (const FilePtr& file : *controller.files)
            files.append(file->pathWithFilename.value_or(QString()));
        files.sort();
        const QStringList inCommit =
            repo.git({u"ls-tree"_s, u"-r"_s, u"--name-only"_s, controller.listedCommitId()}).split(u'\n');
        QCOMPARE(files, inCommit);
    }

    // Beside the list: uncommitted edits are named (always-uploaded and
    // ignored paths are excused), and a last deployed commit that a rebase
    // removed lists every file and says why.
    void notesBesideTheList() {
        test::GitRepository repo;
        repo.commit({{u"a.html"_s, "1"}, {u"b.html"_s, "1"}}, u"one"_s);
        SitePtr s = site(repo.path());
        s->mandatoryFiles = std::make_shared<FileList>(FileList{File::initWithPath(u"dist/"_s)});
        s->ignoredFiles = std::make_shared<FileList>(FileList{File::initWithPath(u"notes.txt"_s)});
        auto gone = std::make_shared<Commit>();
        gone->sha1 = u"0123abc"_s;
        s->lastCommitDeployed = gone;
        test::storeSites({s});
        repo.write(u"a.html"_s, "edited");
        repo.write(u"dist/app.js"_s, "built");
        repo.write(u"notes.txt"_s, "mine");
        test::DeployWindow window;
        ViewController& controller = window.controller;

        const QStringList notes = controller.listingNotes();
        QCOMPARE(notes.size(), 2);
        QVERIFY2(notes.at(0).contains(u"0123abc is no longer in the repository"_s), qPrintable(notes.at(0)));
        QCOMPARE(notes.at(1), u"Uncommitted changes (a.html) are not deployed: commit them first."_s);
        QVERIFY(controller.files);
        QCOMPARE(controller.files->size(), 3); // a.html, b.html and the always-uploaded dist/
    }
};

QTEST_GUILESS_MAIN(TestViewController)
#include "tst_viewcontroller.moc"
