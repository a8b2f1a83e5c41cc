#include "GitRepository.h"
#include "ScriptedDeployView.h"
#include "TestEnvironment.h"
#include "app/Preferences.h"
#include "deploy/ViewController.h"
#include "model/Sites.h"

#include <QDir>
#include <QSignalSpy>
#include <QTemporaryDir>
#include <QTest>

using namespace tw;
using namespace Qt::StringLiterals;

// The controller's decisions that need no server: what it lists, what the
// placeholder says, when it would deploy. A site without a user name stands
// in for a deployment attempt: it ends at once with SetupFailed.
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

    static void store(const SiteList& sites, qint64 current = 0) {
        Sites().storeWithSites(sites);
        Preferences::instance().setInteger(u"currentSiteIndex"_s, current);
    }

private slots:
    void initTestCase() {
        test::TestEnvironment::isolate();
        qRegisterMetaType<DeployOutcome>();
    }
    void init() { test::TestEnvironment::resetPreferences(); }

    void placeholderStates() {
        {
            test::ScriptedDeployView view;
            ViewController controller(view);
            controller.viewDidLoad();
            QCOMPARE(view.placeholder, (QStringList{u"hideAll"_s, u"noSitesDefined"_s}));
            QVERIFY(!controller.files);
            QVERIFY(!view.deployButtonEnabled);
        }

        QTemporaryDir plain;
        const SitePtr gone = site(u"/nonexistent/folder"_s);
        const SitePtr notRepo = site(plain.path());
        SitePtr noHost = site(plain.path());
        noHost->host.reset();
        store({gone, notRepo, noHost});
        test::ScriptedDeployView view;
        ViewController controller(view);
        controller.viewDidLoad();
        QCOMPARE(view.placeholder.last(), u"notValidGitRepoWith:No valid git repository"_s);
        QVERIFY(!controller.files);
        QVERIFY(view.deployButtonEnabled);

        // Choosing another site re-lists at once.
        Preferences::instance().setInteger(u"currentSiteIndex"_s, 1);
        QCOMPARE(view.placeholder.last(),
                 u"notValidGitRepoWith:Not a valid Git repository '%1'. \n"_s.arg(plain.path()));
        QCOMPARE(controller.currentSite->siteId(), notRepo->siteId());
        Preferences::instance().setInteger(u"currentSiteIndex"_s, 2);
        QVERIFY(!view.deployButtonEnabled);
        // An index beyond the list (or negative) selects nothing.
        Preferences::instance().setInteger(u"currentSiteIndex"_s, -1);
        QVERIFY(!controller.currentSite);
        QVERIFY(!controller.files);
    }

    void branchChecks() {
        test::GitRepository repo;
        repo.write(u"index.html"_s, "x");
        const QString first = repo.commitAll(u"one"_s);
        repo.git({u"checkout"_s, u"-q"_s, u"-b"_s, u"feature"_s});
        store({site(repo.path())});

        test::ScriptedDeployView view;
        ViewController controller(view);
        controller.viewDidLoad();
        QCOMPARE(controller.checkOutedBranch(), u"feature"_s);
        QVERIFY(!controller.files);
        // The wrong-branch text comes a turn of the event loop later.
        QTRY_COMPARE(view.placeholder.last(), u"wrongBranchIsSelectedWith:A non-deployment branch:main"_s);

        // With uncommitted changes there is no placeholder text at all.
        repo.write(u"index.html"_s, "dirty");
        view.placeholder.clear();
        controller.setupFileList();
        QTest::qWait(50);
        QVERIFY(view.placeholder.isEmpty());
        repo.git({u"checkout"_s, u"-q"_s, u"index.html"_s});

        // A detached head answers its commit id, which is never a branch.
        repo.git({u"checkout"_s, u"-q"_s, first});
        QCOMPARE(controller.checkOutedBranch(), repo.git({u"rev-parse"_s, u"HEAD"_s}));
        controller.setupFileList();
        QVERIFY(!controller.files);

        // The placeholder's button checks out the deploy branch.
        controller.switchBranchBtn();
        QCOMPARE(controller.checkOutedBranch(), u"main"_s);
        controller.setupFileList();
        QCOMPARE(controller.files->size(), 1);
        QCOMPARE(view.placeholder.last(), u"hasFilesToDeployWithStatus:true"_s);
    }

    void commitOrderAndCheckboxes() {
        test::GitRepository repo;
        repo.write(u"a"_s, "1");
        const QString c1 = repo.commitAll(u"one"_s);
        repo.write(u"b"_s, "2");
        const QString c2 = repo.commitAll(u"two"_s);
        store({site(repo.path())});
        test::ScriptedDeployView view;
        ViewController controller(view);
        controller.viewDidLoad();
        // Newest first.
        QCOMPARE(controller.indexOfSha1Commit(c2), 0);
        QCOMPARE(controller.indexOfSha1Commit(c1), 1);
        QCOMPARE(controller.indexOfSha1Commit(u"deadbee"_s), ViewController::NotFound);
        QCOMPARE(controller.indexOfSha1Commit(std::nullopt), ViewController::NotFound);

        QCOMPARE(controller.files->size(), 2);
        controller.updateCheckboxes(false, {0, 1, 7});
        QVERIFY(!controller.hasFilesToUpload());
        controller.updateCheckboxes(true, {1});
        QVERIFY(controller.files->at(1)->willUpload);
        QVERIFY(controller.hasFilesToUpload());
    }

    void automaticDeploymentConditions() {
        test::GitRepository repo;
        repo.write(u"a"_s, "1");
        repo.commitAll(u"one"_s);
        SitePtr s = site(repo.path()); // no user name: an attempt ends with SetupFailed
        store({s});
        test::ScriptedDeployView view;
        ViewController controller(view);
        controller.viewDidLoad();
        QSignalSpy attempts(&controller, &ViewController::deploymentEnded);

        controller.autoDeploy(); // the flag is off
        QCOMPARE(attempts.count(), 0);
        controller.currentSite->autoDeploy = true;
        Preferences::instance().setBool(u"editing"_s, true);
        controller.autoDeploy();
        QCOMPARE(attempts.count(), 0);
        Preferences::instance().setBool(u"editing"_s, false);
        controller.updateCheckboxes(false, {0});
        controller.autoDeploy(); // nothing checked and no mandatory file
        QCOMPARE(attempts.count(), 0);
        controller.updateCheckboxes(true, {0});
        controller.currentSite->deployBranch = u"other"_s;
        controller.autoDeploy();
        QCOMPARE(attempts.count(), 0);
        controller.currentSite->deployBranch = u"main"_s;
        controller.autoDeploy();
        QCOMPARE(attempts.count(), 1);
        QCOMPARE(int(attempts.first().at(0).value<DeployOutcome>()), int(DeployOutcome::SetupFailed));

        // The watcher's events: only writes count, and none while deploying.
        attempts.clear();
        const QString reflog = repo.path() + u"/.git/logs/HEAD"_s;
        controller.VDKQueue(controller.fileWatcherQueue.get(), u"VDKQueueFileAttributesChangedNotification"_s,
                            reflog);
        controller.isDeploying = true;
        controller.VDKQueue(controller.fileWatcherQueue.get(), u"VDKQueueFileWrittenToNotification"_s,
                            reflog);
        QCOMPARE(attempts.count(), 0);
        controller.isDeploying = false;
        controller.VDKQueue(controller.fileWatcherQueue.get(), u"VDKQueueFileWrittenToNotification"_s,
                            reflog);
        QCOMPARE(attempts.count(), 1);
        QCOMPARE(controller.fileWatcherQueue->numberOfWatchedPaths(), 1);
    }
};

QTEST_GUILESS_MAIN(TestViewController)
#include "tst_viewcontroller.moc"
