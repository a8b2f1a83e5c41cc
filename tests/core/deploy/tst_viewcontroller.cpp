#include "GitRepository.h"
#include "ScriptedDeployView.h"
#include "TestEnvironment.h"
#include "app/Preferences.h"
#include "deploy/ViewController.h"
#include "model/Sites.h"

#include <QSignalSpy>
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
    void initTestCase() {
        test::TestEnvironment::isolate();
        qRegisterMetaType<DeployOutcome>();
    }
    void init() { test::TestEnvironment::resetPreferences(); }

    void automaticDeploymentConditions() {
        test::GitRepository repo;
        repo.write(u"a"_s, "1");
        repo.commitAll(u"one"_s);
        SitePtr s = site(repo.path()); // no user name: an attempt ends with SetupFailed
        Sites().storeWithSites({s});
        Preferences::instance().setInteger(u"currentSiteIndex"_s, 0);
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

        // The watcher's events: only writes count.
        attempts.clear();
        const QString reflog = repo.path() + u"/.git/logs/HEAD"_s;
        controller.VDKQueue(controller.fileWatcherQueue.get(), u"VDKQueueFileAttributesChangedNotification"_s,
                            reflog);
        controller.VDKQueue(controller.fileWatcherQueue.get(), u"VDKQueueFileWrittenToNotification"_s,
                            reflog);
        QCOMPARE(attempts.count(), 1);
        QCOMPARE(controller.fileWatcherQueue->numberOfWatchedPaths(), 1);
    }

    // Another branch checked out: no run starts, not even for the always
    // uploaded files, whatever asks for one.
    void noRunWithAnotherBranchCheckedOut() {
        test::GitRepository repo;
        repo.write(u"a"_s, "1");
        repo.commitAll(u"one"_s);
        repo.git({u"checkout"_s, u"-q"_s, u"-b"_s, u"feature"_s});
        SitePtr s = site(repo.path());
        s->autoDeploy = true;
        auto always = File::initWithPath(u"a"_s);
        s->mandatoryFiles = std::make_shared<FileList>(FileList{always});
        Sites().storeWithSites({s});
        Preferences::instance().setInteger(u"currentSiteIndex"_s, 0);
        test::ScriptedDeployView view;
        ViewController controller(view);
        controller.viewDidLoad();
        QSignalSpy attempts(&controller, &ViewController::deploymentEnded);

        QCOMPARE(int(controller.readiness()), int(DeployReadiness::OtherBranch));
        QVERIFY(!view.deployButtonEnabled);
        controller.deployButton();
        QCOMPARE(attempts.count(), 1);
        QCOMPARE(int(attempts.first().at(0).value<DeployOutcome>()), int(DeployOutcome::Refused));
        QVERIFY(!controller.run());

        repo.git({u"checkout"_s, u"-q"_s, u"main"_s});
        controller.setupFileList();
        QCOMPARE(int(controller.readiness()), int(DeployReadiness::Ready));
        QVERIFY(view.deployButtonEnabled);
    }
};

QTEST_GUILESS_MAIN(TestViewController)
#include "tst_viewcontroller.moc"
