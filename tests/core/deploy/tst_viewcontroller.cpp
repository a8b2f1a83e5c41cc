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
