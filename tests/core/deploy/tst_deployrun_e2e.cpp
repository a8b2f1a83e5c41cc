#include "DBusMockService.h"
#include "DeploySites.h"
#include "FtpServer.h"
#include "GitRepository.h"
#include "Inspection.h"
#include "ScriptedDeployView.h"
#include "TestEnvironment.h"
#include "app/Preferences.h"
#include "deploy/DeployRun.h"
#include "deploy/NotificationHub.h"
#include "deploy/ViewController.h"
#include "git/CommitExport.h"
#include "keychain/TWPasswords.h"
#include "model/Sites.h"

#include <QCborArray>
#include <QCborMap>
#include <QDir>
#include <QFile>
#include <QScopeGuard>
#include <QSignalSpy>
#include <QTemporaryDir>
#include <QTest>
#include <QTimer>

using namespace tw;
using namespace Qt::StringLiterals;

// One deployment is one run from the press of Deploy to its record on the
// server: what may and may not happen while a run is under way, and how each
// way of ending leaves the server, the stored site and the desktop.
class TestDeployRunEndToEnd : public QObject {
    Q_OBJECT

    std::unique_ptr<test::FtpServer> m_ftp;

    QString www() const { return m_ftp->homeFolder() + u"/www"_s; }
    QByteArray record() const { return test::readFile(www() + u"/.tarnwell"_s); }

    struct Attempt {
        DeployOutcome outcome = DeployOutcome::Failed;
        QString message;
    };

    static Attempt waitForEnd(QSignalSpy& ended, qsizetype count = 1) {
        if (!QTest::qWaitFor([&] { return ended.count() >= count; }, 60000))
            return {DeployOutcome::Failed, u"no end within 60 s"_s};
        const QList<QVariant> last = ended.at(count - 1);
        return {last.at(0).value<DeployOutcome>(), last.at(1).toString()};
    }

    static Attempt deploy(ViewController& controller) {
        QSignalSpy ended(&controller, &ViewController::deploymentEnded);
        controller.deployButton();
        return waitForEnd(ended);
    }

    static void commitWritten(ViewController& controller, const test::GitRepository& repo) {
        controller.VDKQueue(controller.fileWatcherQueue.get(), u"VDKQueueFileWrittenToNotification"_s,
                            repo.path() + u"/.git/logs/HEAD"_s);
    }

private slots:
    void initTestCase() {
        test::TestEnvironment::isolate();
        qRegisterMetaType<DeployOutcome>();
        qRegisterMetaType<RunSummary>();
        m_ftp = std::make_unique<test::FtpServer>();
    }

    void init() {
        TW_REQUIRE_SERVER(*m_ftp);
        test::TestEnvironment::resetPreferences();
        QDir(www()).removeRecursively();
        QVERIFY(m_ftp->writeFile(u"www/.placeholder"_s, ""));
        QVERIFY(QFile::remove(www() + u"/.placeholder"_s));
    }

    // The run ends once its record is on the server, so a second deployment
    // right after it reads that record and has nothing to ask.
    void recordOnTheServerWhenTheRunEnds() {
        test::GitRepository repo;
        repo.write(u"index.html"_s, "one");
        const QString first = repo.commitAll(u"first"_s);
        test::storeSites({test::ftpSite(repo, *m_ftp)});
        test::ScriptedDeployView view;
        ViewController controller(view);
        controller.viewDidLoad();
        QByteArray recordAtTheEnd;
        connect(&controller, &ViewController::deploymentEnded, this, [&] { recordAtTheEnd = record(); });

        Attempt attempt = deploy(controller);
        QVERIFY2(attempt.outcome == DeployOutcome::Deployed, qPrintable(attempt.message));
        QVERIFY2(recordAtTheEnd.startsWith(QByteArray(first.toUtf8() + ',')), recordAtTheEnd.constData());

        repo.write(u"two.html"_s, "two");
        const QString second = repo.commitAll(u"second"_s);
        controller.setupFileList();
        attempt = deploy(controller);
        QVERIFY2(attempt.outcome == DeployOutcome::Deployed, qPrintable(attempt.message));
        QVERIFY(view.alerts.isEmpty());
        QVERIFY(record().startsWith(QByteArray(second.toUtf8() + ',')));
    }

    // A server without a record, for a site that names a last deployed
    // commit, gets only what changed since that commit: the missing record
    // is "no record yet", not a server to fill anew.
    void missingRecordDeploysOnlyTheChanges() {
        test::GitRepository repo;
        repo.write(u"old.html"_s, "old");
        repo.commitAll(u"first"_s);
        test::storeSites({test::ftpSite(repo, *m_ftp)});
        test::ScriptedDeployView view;
        ViewController controller(view);
        controller.viewDidLoad();
        QVERIFY(deploy(controller).outcome == DeployOutcome::Deployed);
        QDir(www()).removeRecursively(); // the server was emptied
        QVERIFY(m_ftp->writeFile(u"www/.placeholder"_s, ""));
        QVERIFY(QFile::remove(www() + u"/.placeholder"_s));

        repo.write(u"new.html"_s, "new");
        const QString second = repo.commitAll(u"second"_s);
        controller.setupFileList();
        const Attempt attempt = deploy(controller);
        QVERIFY2(attempt.outcome == DeployOutcome::Deployed, qPrintable(attempt.message));
        QVERIFY(view.alerts.isEmpty());
        QCOMPARE(test::tree(www()), (QStringList{u".tarnwell"_s, u"new.html"_s}));
        QVERIFY(record().startsWith(QByteArray(second.toUtf8() + ',')));
    }

    // The deployed site is found by its id: selecting or moving sites while
    // it runs changes nothing of where its commit is written.
    void deployedSiteSavedByIdWhateverIsSelected() {
        test::GitRepository repo;
        repo.write(u"index.html"_s, "x");
        const QString commit = repo.commitAll(u"first"_s);
        SitePtr other = test::ftpSite(repo, *m_ftp, u"other/"_s);
        other->name = u"Other"_s;
        SitePtr deployed = test::ftpSite(repo, *m_ftp);
        test::storeSites({other, deployed});

        test::ScriptedDeployView view;
        ViewController controller(view);
        controller.pinSite(deployed->siteId());
        controller.viewDidLoad();
        QCOMPARE(controller.currentSite->siteId(), deployed->siteId());
        QSignalSpy ended(&controller, &ViewController::deploymentEnded);
        controller.deployButton();
        // Meanwhile the window's person moves the site up and selects the other.
        Sites().storeWithSites({deployed, other});
        Preferences::instance().setInteger(u"currentSiteIndex"_s, 1);
        const Attempt attempt = waitForEnd(ended);
        QVERIFY2(attempt.outcome == DeployOutcome::Deployed, qPrintable(attempt.message));

        const SiteList stored = *Sites().loadAll();
        QCOMPARE(stored.size(), 2);
        QCOMPARE(stored.at(0)->siteId(), deployed->siteId());
        QCOMPARE(stored.at(0)->lastCommitDeployed->sha1, commit);
        QCOMPARE(stored.at(1)->name, u"Other"_s);
        QVERIFY(!stored.at(1)->lastCommitDeployed);
        QCOMPARE(Preferences::instance().integerValue(u"currentSiteIndex"_s), 1);
    }

    // A stored site without an id (as older releases stored it) gets one,
    // stored, when it is loaded: the run saves its deployed commit to it.
    void siteWithoutAnIdIsSavedAfterItsDeployment() {
        test::GitRepository repo;
        repo.write(u"index.html"_s, "x");
        const QString commit = repo.commitAll(u"first"_s);
        QCborMap archived = test::ftpSite(repo, *m_ftp)->encode();
        archived.remove(u"siteId"_s);
        Preferences::instance().setValue(u"sites"_s, QCborValue(QCborArray{archived}).toCbor());
        Preferences::instance().setInteger(u"currentSiteIndex"_s, 0);
        QVERIFY(!Sites().loadAll()->first()->hasSiteId());
        test::ScriptedDeployView view;
        ViewController controller(view);
        controller.viewDidLoad();
        TWPasswords::setPassword(test::FtpServer::password(), controller.currentSite->siteId());
        const Attempt attempt = deploy(controller);
        QVERIFY2(attempt.outcome == DeployOutcome::Deployed, qPrintable(attempt.message));
        const SiteList stored = *Sites().loadAll();
        QCOMPARE(stored.size(), 1);
        QVERIFY(stored.first()->hasSiteId());
        QCOMPARE(stored.first()->siteId(), controller.currentSite->siteId());
        QVERIFY(stored.first()->lastCommitDeployed);
        QCOMPARE(stored.first()->lastCommitDeployed->sha1, commit);
    }

    // A site that cannot be saved after its deployment (it was deleted
    // meanwhile) is no success: the files and the record are on the server,
    // and the message says the site could not be saved.
    void siteThatCannotBeSavedIsNoSuccess() {
        test::GitRepository repo;
        repo.write(u"index.html"_s, "x");
        const QString commit = repo.commitAll(u"first"_s);
        SitePtr site = test::ftpSite(repo, *m_ftp);
        test::storeSites({site});
        test::ScriptedDeployView view;
        ViewController controller(view);
        controller.viewDidLoad();
        QSignalSpy ended(&controller, &ViewController::deploymentEnded);
        controller.deployButton();
        Sites().storeWithSites({}); // deleted while it deploys
        const Attempt attempt = waitForEnd(ended);
        QCOMPARE(int(attempt.outcome), int(DeployOutcome::SiteNotSaved));
        QVERIFY2(attempt.message.contains(u"could not be saved"_s), qPrintable(attempt.message));
        QVERIFY(record().startsWith(QByteArray(commit.toUtf8() + ',')));
        QVERIFY(QFile::exists(www() + u"/index.html"_s));
        QCOMPARE(view.messages(), QStringList{u"An error occured!"_s});
    }

    // While a question about the server's record is open, neither a commit
    // nor the Deploy button starts a second attempt; the commit is taken up
    // once the question is answered.
    void openQuestionStartsNoSecondAttempt() {
        test::GitRepository repo;
        repo.write(u"a.txt"_s, "1");
        repo.commitAll(u"one"_s);
        SitePtr site = test::ftpSite(repo, *m_ftp);
        site->autoDeploy = true;
        test::storeSites({site});
        QVERIFY(m_ftp->writeFile(u"www/.tarnwell"_s, "0123abc,100.0,other"));

        test::ScriptedDeployView view;
        view.holdSheets = true;
        ViewController controller(view);
        controller.viewDidLoad();
        QSignalSpy ended(&controller, &ViewController::deploymentEnded);
        controller.deployButton();
        QTRY_COMPARE_WITH_TIMEOUT(view.heldSheets.size(), 1, 20000);
        QCOMPARE(int(controller.readiness()), int(DeployReadiness::QuestionPending));

        repo.write(u"b.txt"_s, "2");
        const QString newest = repo.commitAll(u"two"_s);
        commitWritten(controller, repo);
        controller.deployButton();
        QTest::qWait(2000); // ten times the wait for git to settle after HEAD moved
        QCOMPARE(view.alerts.size(), 1);
        QCOMPARE(ended.count(), 0);

        view.answerHeldSheet(1); // Cancel
        QTRY_COMPARE(ended.count(), 1);
        // The commit seen meanwhile is deployed now: the record still names
        // another branch, so the question comes again.
        QTRY_COMPARE_WITH_TIMEOUT(view.heldSheets.size(), 1, 20000);
        QCOMPARE(view.alerts.size(), 2);
        view.answerHeldSheet(0); // Force deploy
        const Attempt attempt = waitForEnd(ended, 2);
        QVERIFY2(attempt.outcome == DeployOutcome::Deployed, qPrintable(attempt.message));
        QCOMPARE(test::tree(www()), (QStringList{u".tarnwell"_s, u"a.txt"_s, u"b.txt"_s}));
        QVERIFY(record().startsWith(QByteArray(newest.toUtf8() + ',')));
    }

    // An abort stops everything the run had queued: an answer given just
    // before it sends nothing.
    void abortRightAfterAnAnswerSendsNothing() {
        test::GitRepository repo;
        repo.write(u"a.txt"_s, "1");
        repo.commitAll(u"one"_s);
        test::storeSites({test::ftpSite(repo, *m_ftp)});
        QVERIFY(m_ftp->writeFile(u"www/.tarnwell"_s, "0123abc,100.0,other"));

        test::ScriptedDeployView view;
        view.holdSheets = true;
        ViewController controller(view);
        controller.viewDidLoad();
        QSignalSpy ended(&controller, &ViewController::deploymentEnded);
        controller.deployButton();
        QTRY_COMPARE_WITH_TIMEOUT(view.heldSheets.size(), 1, 20000);
        view.answerHeldSheet(0); // Force deploy
        controller.abortDeploy();
        QTest::qWait(1500);
        QCOMPARE(ended.count(), 1);
        QCOMPARE(int(ended.first().at(0).value<DeployOutcome>()), int(DeployOutcome::Aborted));
        QCOMPARE(test::tree(www()), QStringList{u".tarnwell"_s});
        QCOMPARE(record(), QByteArray("0123abc,100.0,other"));
        QVERIFY(controller.isIdle());
    }

    // A commit made while a run is under way is deployed when it has ended.
    void commitDuringARunIsDeployedAfterIt() {
        test::GitRepository repo;
        repo.write(u"a.txt"_s, "1");
        repo.commitAll(u"one"_s);
        SitePtr site = test::ftpSite(repo, *m_ftp);
        site->autoDeploy = true;
        site->preDeployScriptLocal = u"sleep 1"_s;
        test::storeSites({site});
        test::ScriptedDeployView view;
        ViewController controller(view);
        controller.viewDidLoad();
        QSignalSpy ended(&controller, &ViewController::deploymentEnded);
        controller.deployButton();
        QTest::qWait(200);
        repo.write(u"b.txt"_s, "2");
        const QString second = repo.commitAll(u"two"_s);
        commitWritten(controller, repo);
        QVERIFY(waitForEnd(ended, 1).outcome == DeployOutcome::Deployed);
        const Attempt attempt = waitForEnd(ended, 2);
        QVERIFY2(attempt.outcome == DeployOutcome::Deployed, qPrintable(attempt.message));
        QVERIFY(record().startsWith(QByteArray(second.toUtf8() + ',')));
        QVERIFY(QFile::exists(www() + u"/b.txt"_s));
    }

    // A commit seen during a run is deployed afterwards only for the site
    // whose repository it came from: when another site is selected
    // meanwhile, that one is not deployed because of it.
    void commitDuringARunDeploysNoOtherSite() {
        test::GitRepository repo;
        repo.write(u"a.txt"_s, "1");
        repo.commitAll(u"one"_s);
        SitePtr first = test::ftpSite(repo, *m_ftp);
        first->autoDeploy = true;
        first->preDeployScriptLocal = u"sleep 1"_s;
        test::GitRepository otherRepo;
        otherRepo.write(u"b.txt"_s, "2");
        otherRepo.commitAll(u"one"_s);
        SitePtr other = test::ftpSite(otherRepo, *m_ftp, u"other/"_s);
        other->autoDeploy = true;
        test::storeSites({first, other});
        QDir(m_ftp->homeFolder() + u"/other"_s).removeRecursively();

        test::ScriptedDeployView view;
        ViewController controller(view);
        controller.viewDidLoad();
        QSignalSpy ended(&controller, &ViewController::deploymentEnded);
        controller.deployButton();
        QTest::qWait(100);
        repo.write(u"c.txt"_s, "3");
        repo.commitAll(u"two"_s);
        commitWritten(controller, repo);
        QTest::qWait(600); // the commit is seen (and waits for the run)
        QVERIFY(controller.isDeploying());
        Preferences::instance().setInteger(u"currentSiteIndex"_s, 1);
        QCOMPARE(controller.currentSite->siteId(), other->siteId());
        QVERIFY(waitForEnd(ended).outcome == DeployOutcome::Deployed);
        QTest::qWait(2000);
        QCOMPARE(ended.count(), 1);
        QVERIFY(!controller.isDeploying());
        QVERIFY(!QFile::exists(m_ftp->homeFolder() + u"/other/.tarnwell"_s));
    }

    // A record that cannot be written is no success: the files are on the
    // server, the outcome says the record is missing, and the site keeps
    // the commit it had.
    void recordThatCannotBeWrittenIsNoSuccess() {
        test::GitRepository repo;
        repo.write(u"index.html"_s, "x");
        repo.commitAll(u"first"_s);
        SitePtr site = test::ftpSite(repo, *m_ftp);
        // After the uploads, before the record: the folder refuses writes.
        site->postDeployScriptLocal = u"chmod 555 '"_s + www() + u"'"_s;
        test::storeSites({site});
        test::ScriptedDeployView view;
        ViewController controller(view);
        controller.viewDidLoad();
        const Attempt attempt = deploy(controller);
        QFile::setPermissions(www(), QFile::ReadOwner | QFile::WriteOwner | QFile::ExeOwner |
                                         QFile::ReadGroup | QFile::ExeGroup | QFile::ReadOther |
                                         QFile::ExeOther);
        QCOMPARE(int(attempt.outcome), int(DeployOutcome::RecordNotWritten));
        QVERIFY2(attempt.message.contains(u"record"_s), qPrintable(attempt.message));
        QCOMPARE(view.messages(), QStringList{u"An error occured!"_s});
        QVERIFY(QFile::exists(www() + u"/index.html"_s));
        QVERIFY(!QFile::exists(www() + u"/.tarnwell"_s));
        QVERIFY(!Sites().loadAll()->first()->lastCommitDeployed);
        QVERIFY(ViewController::isUploading());
    }

    // Files left unchecked wait, unchecked, until a commit changes them; a
    // deployment that left some says how many wait. An always-uploaded entry
    // unchecked is left out once.
    void uncheckedFilesWait() {
        test::GitRepository repo;
        repo.write(u"a.txt"_s, "a1");
        repo.write(u"b.txt"_s, "b1");
        repo.write(u"c.txt"_s, "c1");
        repo.commitAll(u"one"_s);
        repo.write(u".htaccess"_s, "deny"); // built, not committed
        SitePtr site = test::ftpSite(repo, *m_ftp);
        site->mandatoryFiles = std::make_shared<FileList>(FileList{File::initWithPath(u".htaccess"_s)});
        test::storeSites({site});
        test::ScriptedDeployView view;
        ViewController controller(view);
        controller.viewDidLoad();
        const auto rowOf = [&](const QString& path) -> FilePtr {
            for (const FilePtr& file : *controller.files) {
                if (file->pathWithFilename == path && file->gitStatus != u"-")
                    return file;
            }
            return nullptr;
        };
        const auto rowIndex = [&](const QString& path, const QString& letter) {
            for (qsizetype i = 0; i < controller.files->size(); ++i) {
                if (controller.files->at(i)->pathWithFilename == path &&
                    controller.files->at(i)->gitStatus == letter)
                    return i;
            }
            return qsizetype(-1);
        };
        controller.updateCheckboxes(false, {rowIndex(u"b.txt"_s, u"A"_s), rowIndex(u".htaccess"_s, u"-"_s)});
        const auto storedAlwaysUploaded = [] {
            QStringList paths;
            const SiteList stored = *Sites().loadAll();
            for (const FilePtr& entry : *stored.first()->mandatoryFiles)
                paths.append(entry->pathWithFilename.value_or(QString()) +
                             (entry->willUpload ? u""_s : u" (unchecked)"_s));
            return paths;
        };
        QCOMPARE(storedAlwaysUploaded(), QStringList{u".htaccess"_s});
        QSignalSpy ended(&controller, &ViewController::deploymentEnded);
        controller.deployButton();
        QVERIFY(waitForEnd(ended).outcome == DeployOutcome::Deployed);
        QCOMPARE(ended.first().at(2).value<RunSummary>().waiting, 1);
        QCOMPARE(test::tree(www()), (QStringList{u".tarnwell"_s, u"a.txt"_s, u"c.txt"_s}));
        QCOMPARE(storedAlwaysUploaded(), QStringList{u".htaccess"_s});

        // Listed again, unchecked; the always-uploaded entry is checked again.
        QVERIFY(rowOf(u"b.txt"_s) && !rowOf(u"b.txt"_s)->willUpload);
        QVERIFY(controller.files->at(rowIndex(u".htaccess"_s, u"-"_s))->willUpload);
        QCOMPARE(controller.waitingCount(), 1);
        // A commit that changes another file leaves it waiting ...
        repo.write(u"c.txt"_s, "c2");
        repo.commitAll(u"two"_s);
        controller.setupFileList();
        QVERIFY(rowOf(u"c.txt"_s)->willUpload);
        QVERIFY(!rowOf(u"b.txt"_s)->willUpload);
        // ... and one that changes it checks it again.
        repo.write(u"b.txt"_s, "b2");
        repo.commitAll(u"three"_s);
        controller.setupFileList();
        QVERIFY(rowOf(u"b.txt"_s)->willUpload);
        QCOMPARE(controller.waitingCount(), 0);
        ended.clear();
        controller.deployButton();
        QVERIFY(waitForEnd(ended).outcome == DeployOutcome::Deployed);
        QCOMPARE(test::readFile(www() + u"/b.txt"_s), QByteArray("b2"));
        QCOMPARE(ended.first().at(2).value<RunSummary>().waiting, 0);
    }

    // Listed files whose commit has no resolved id are never sent from the
    // working folder under that commit's record: the run fails, nothing is
    // sent.
    void listedFilesWithoutACommitIdFailTheRun() {
        test::GitRepository repo;
        repo.write(u"index.html"_s, "committed");
        const QString head = repo.commitAll(u"first"_s);
        repo.write(u"index.html"_s, "edited, not committed");
        SitePtr site = test::ftpSite(repo, *m_ftp);
        test::storeSites({site});

        DeployRun::Plan plan;
        plan.site = site->copy();
        const FilePtr row = File::initWithPath(u"index.html"_s);
        row->gitStatus = u"A"_s;
        plan.rows = {row};
        plan.commit = std::make_shared<Commit>();
        plan.commit->sha1 = head;
        test::ScriptedDeployView view;
        DeployRun run(view, plan);
        QSignalSpy ended(&run, &DeployRun::ended);
        run.start();
        QTRY_COMPARE_WITH_TIMEOUT(ended.count(), 1, 30000);
        QCOMPARE(int(ended.first().at(0).value<DeployOutcome>()), int(DeployOutcome::Failed));
        const QString message = ended.first().at(1).toString();
        QVERIFY2(message.contains(head) && message.contains(u"Nothing was sent"_s), qPrintable(message));
        QCOMPARE(test::tree(www()), QStringList());
    }

    // The counts the progress display and the command line show are the
    // transfers really made: waiting rows, an always-uploaded folder's own
    // row and a file listed twice are none, so they end with all done; the
    // run's own row counters keep counting every row.
    void countsOfTheRunAndOfWhatIsShown() {
        test::GitRepository repo;
        repo.write(u"a.txt"_s, "a");
        repo.write(u"b.txt"_s, "b");
        repo.write(u"c.txt"_s, "c");
        repo.commitAll(u"one"_s);
        repo.write(u"dist/x.js"_s, "x"); // built, not committed
        repo.write(u"dist/y.js"_s, "y");
        SitePtr site = test::ftpSite(repo, *m_ftp);
        site->mandatoryFiles = std::make_shared<FileList>(
            FileList{File::initWithPath(u"dist"_s), File::initWithPath(u"a.txt"_s)});
        test::storeSites({site});
        test::ScriptedDeployView view;
        ViewController controller(view);
        controller.viewDidLoad();
        qsizetype b = -1;
        for (qsizetype i = 0; i < controller.files->size(); ++i) {
            if (controller.files->at(i)->pathWithFilename == u"b.txt"_s)
                b = i;
        }
        controller.updateCheckboxes(false, {b});

        QList<QPair<QString, QString>> counts; // remaining, total
        const auto connection = connect(&NotificationHub::instance(), &NotificationHub::remainingStatus, this,
                                        [&](const QVariantMap& userInfo) {
                                            counts.append({userInfo.value(u"remaining"_s).toString(),
                                                           userInfo.value(u"total"_s).toString()});
                                        });
        auto disconnect = qScopeGuard([&] { QObject::disconnect(connection); });
        QSignalSpy progress(&controller, &ViewController::progressChanged);
        const Attempt attempt = deploy(controller);
        QVERIFY2(attempt.outcome == DeployOutcome::Deployed, qPrintable(attempt.message));
        QCOMPARE(test::tree(www()),
                 (QStringList{u".tarnwell"_s, u"a.txt"_s, u"c.txt"_s, u"dist/x.js"_s, u"dist/y.js"_s}));
        // The run's counters count its rows (a, b, c, the dist folder, a
        // again, x.js, y.js), the unchecked one too: "remaining" stops at 3.
        QCOMPARE(counts.size(), 4);
        QCOMPARE(counts.last(), (QPair<QString, QString>(u"3"_s, u"7"_s)));
        // What is shown counts the transfers: all 4 done.
        QVERIFY(!progress.isEmpty());
        QCOMPARE(progress.last().at(0).toLongLong(), 4);
        QCOMPARE(progress.last().at(1).toLongLong(), 4);
        QCOMPARE(controller.lastRunSummary().total, 4);
    }

    // The private export of the deployed commit goes with its run, whatever
    // way the run ends: sent, failed or aborted.
    void exportedFilesGoWithTheRun() {
        QTemporaryDir temporary;
        const QByteArray previous = qgetenv("TMPDIR");
        qputenv("TMPDIR", QFile::encodeName(temporary.path()));
        auto restore = qScopeGuard([&] {
            if (previous.isEmpty())
                qunsetenv("TMPDIR");
            else
                qputenv("TMPDIR", previous);
        });
        const auto exports = [&] {
            QStringList found;
            for (const QString& place : CommitExport::places())
                found += QDir(place).entryList({CommitExport::folderPrefix() + u'*'},
                                               QDir::AllEntries | QDir::Hidden);
            return found;
        };
        test::GitRepository repo;
        for (int i = 0; i < 20; ++i)
            repo.write(u"page%1.html"_s.arg(i), QByteArray(20000, 'x'));
        repo.commitAll(u"first"_s);

        for (const DeployOutcome expected :
             {DeployOutcome::Deployed, DeployOutcome::Failed, DeployOutcome::Aborted}) {
            test::storeSites({test::ftpSite(repo, *m_ftp)}); // never deployed: every file is sent
            QDir(www()).removeRecursively();
            if (expected == DeployOutcome::Failed)
                QVERIFY(m_ftp->makeUnwritable(u"www"_s));
            test::ScriptedDeployView view;
            ViewController controller(view);
            controller.viewDidLoad();
            QStringList duringTheRun;
            connect(&controller, &ViewController::progressChanged, this, [&](qsizetype done) {
                if (done == 0)
                    duringTheRun = exports();
            });
            if (expected == DeployOutcome::Aborted)
                connect(
                    &controller, &ViewController::progressChanged, &controller,
                    [&](qsizetype done) {
                        if (done == 0)
                            controller.abortDeploy();
                    },
                    Qt::QueuedConnection);
            const Attempt attempt = deploy(controller);
            QCOMPARE(int(attempt.outcome), int(expected));
            QCOMPARE(duringTheRun.size(), 1); // the export, while the files were sent
            QTRY_COMPARE(exports(), QStringList());
        }
    }

    // A sync root of "/" is the whole repository: remote paths keep every
    // folder.
    void syncRootOfSlashKeepsRemotePathsWhole() {
        test::GitRepository repo;
        repo.write(u"top.html"_s, "top");
        repo.write(u"a/b/deep.html"_s, "deep");
        repo.commitAll(u"first"_s);
        SitePtr site = test::ftpSite(repo, *m_ftp);
        site->syncRootPath = u"/"_s;
        test::storeSites({site});
        test::ScriptedDeployView view;
        ViewController controller(view);
        controller.viewDidLoad();
        const Attempt attempt = deploy(controller);
        QVERIFY2(attempt.outcome == DeployOutcome::Deployed, qPrintable(attempt.message));
        QCOMPARE(test::tree(www()), (QStringList{u".tarnwell"_s, u"a/b/deep.html"_s, u"top.html"_s}));
        QCOMPARE(test::readFile(www() + u"/a/b/deep.html"_s), QByteArray("deep"));
    }

    // A retry after a failed run lists and sends each always-uploaded file
    // once.
    void retryListsAlwaysUploadedFilesOnce() {
        test::GitRepository repo;
        repo.write(u"index.html"_s, "x");
        repo.commitAll(u"first"_s);
        repo.write(u"dist/app.js"_s, "built");
        repo.write(u"robots.txt"_s, "all");
        SitePtr site = test::ftpSite(repo, *m_ftp);
        site->mandatoryFiles = std::make_shared<FileList>(
            FileList{File::initWithPath(u"dist"_s), File::initWithPath(u"robots.txt"_s)});
        test::storeSites({site});
        QVERIFY(m_ftp->makeUnwritable(u"www"_s));
        test::ScriptedDeployView view;
        ViewController controller(view);
        controller.viewDidLoad();
        const auto alwaysUploadedRows = [&] {
            QStringList rows;
            for (const FilePtr& file : *controller.files) {
                if (file->gitStatus == u"-"_s)
                    rows.append(file->pathWithFilename.value_or(QString()));
            }
            return rows;
        };
        const QStringList listed{u"dist"_s, u"robots.txt"_s};
        QCOMPARE(alwaysUploadedRows(), listed);
        QCOMPARE(int(deploy(controller).outcome), int(DeployOutcome::Failed));
        QCOMPARE(alwaysUploadedRows(), listed);

        QDir(www()).removeRecursively();
        QSignalSpy ended(&controller, &ViewController::deploymentEnded);
        controller.deployButton();
        const Attempt attempt = waitForEnd(ended);
        QVERIFY2(attempt.outcome == DeployOutcome::Deployed, qPrintable(attempt.message));
        QCOMPARE(ended.first().at(2).value<RunSummary>().uploads, 3);
        QCOMPARE(test::tree(www()),
                 (QStringList{u".tarnwell"_s, u"dist/app.js"_s, u"index.html"_s, u"robots.txt"_s}));
        QCOMPARE(alwaysUploadedRows(), listed);
    }

    // A repository folder that is gone by the time the files are queued
    // fails the run with a message; nothing hangs.
    void vanishedRepositoryFolderFailsTheRun() {
        auto repo = std::make_unique<test::GitRepository>();
        repo->write(u"index.html"_s, "x");
        repo->commitAll(u"first"_s);
        SitePtr site = test::ftpSite(*repo, *m_ftp);
        site->preDeployScriptLocal = u"cd / && rm -rf '"_s + repo->path() + u"'"_s;
        test::storeSites({site});
        test::ScriptedDeployView view;
        ViewController controller(view);
        controller.viewDidLoad();
        const Attempt attempt = deploy(controller);
        QCOMPARE(int(attempt.outcome), int(DeployOutcome::Failed));
        QVERIFY2(attempt.message.contains(u"is gone"_s), qPrintable(attempt.message));
        QCOMPARE(test::tree(www()), QStringList());
    }

    // A failed or timed-out script ends the run with its output and its exit
    // status (or the time-out) shown: under the alert's details, and in the
    // message the command line prints.
    void failedScriptShowsItsOutputAndStatus() {
        test::GitRepository repo;
        repo.write(u"index.html"_s, "x");
        repo.commitAll(u"first"_s);
        SitePtr site = test::ftpSite(repo, *m_ftp);
        site->preDeployScriptLocal = u"echo visible-output; echo on-stderr >&2; exit 3"_s;
        test::storeSites({site});
        {
            test::ScriptedDeployView view;
            ViewController controller(view);
            controller.viewDidLoad();
            const Attempt attempt = deploy(controller);
            QCOMPARE(int(attempt.outcome), int(DeployOutcome::ScriptFailed));
            QCOMPARE(view.messages(), QStringList{u"An error occured when running script"_s});
            const AlertRequest& alert = view.alerts.first();
            QCOMPARE(alert.informativeText, u"Check the log file for syntax errors and such."_s);
            for (const QString& shown : {alert.detailedText, attempt.message}) {
                QVERIFY2(shown.contains(u"exit status 3"_s), qPrintable(shown));
                QVERIFY2(shown.contains(u"visible-output"_s), qPrintable(shown));
                QVERIFY2(shown.contains(u"on-stderr"_s), qPrintable(shown));
            }
            QCOMPARE(test::tree(www()), QStringList());
        }

        Preferences::instance().setInteger(u"scriptTimeout"_s, 1);
        site->preDeployScriptLocal.reset();
        site->postDeployScriptLocal = u"echo post-started; sleep 30"_s;
        test::storeSites({site});
        test::ScriptedDeployView view;
        ViewController controller(view);
        controller.viewDidLoad();
        const Attempt attempt = deploy(controller);
        QCOMPARE(int(attempt.outcome), int(DeployOutcome::ScriptFailed));
        for (const QString& shown : {view.alerts.first().detailedText, attempt.message}) {
            QVERIFY2(shown.contains(u"did not end within 1 seconds"_s), qPrintable(shown));
            QVERIFY2(shown.contains(u"post-started"_s), qPrintable(shown));
        }
        QVERIFY(!QFile::exists(www() + u"/.tarnwell"_s)); // the files were sent, no record
    }

    // The display is kept awake for a run and let go whatever way it ends.
    void displaySleepReleasedOnEveryEnd() {
        test::DBusMockService screenSaver(u"org.freedesktop.ScreenSaver"_s, u"/org/freedesktop/ScreenSaver"_s,
                                          {u"org.freedesktop.ScreenSaver"_s,
                                           u"/org/freedesktop/ScreenSaver"_s,
                                           u"org.freedesktop.ScreenSaver"_s});
        QVERIFY(screenSaver.start());
        screenSaver.mockCall(u"AddMethod"_s,
                             {QString(), u"Inhibit"_s, u"ss"_s, u"u"_s,
                              u"self.cookie = getattr(self, 'cookie', 0) + 1\nret = self.cookie"_s});
        screenSaver.mockCall(u"AddMethod"_s, {QString(), u"UnInhibit"_s, u"u"_s, QString(), QString()});
        const auto balance = [&] {
            int held = 0;
            for (const auto& call : screenSaver.calls())
                held += call.first == u"Inhibit"_s ? 1 : call.first == u"UnInhibit"_s ? -1 : 0;
            return held;
        };

        test::GitRepository repo;
        repo.write(u"index.html"_s, "x");
        repo.commitAll(u"first"_s);
        SitePtr site = test::ftpSite(repo, *m_ftp);
        site->preDeployScriptLocal = u"exit 2"_s;
        test::storeSites({site});
        {
            test::ScriptedDeployView view;
            ViewController controller(view);
            controller.viewDidLoad();
            QCOMPARE(int(deploy(controller).outcome), int(DeployOutcome::ScriptFailed));
            QTRY_COMPARE(balance(), 0);
        }
        site->preDeployScriptLocal.reset();
        test::storeSites({site});
        QVERIFY(m_ftp->makeUnwritable(u"www"_s));
        test::ScriptedDeployView view;
        ViewController controller(view);
        controller.viewDidLoad();
        QCOMPARE(int(deploy(controller).outcome), int(DeployOutcome::Failed));
        QTRY_COMPARE(balance(), 0);
        QVERIFY(screenSaver.calls().size() >= 4);
    }
};

QTEST_GUILESS_MAIN(TestDeployRunEndToEnd)
#include "tst_deployrun_e2e.moc"
