#include "DBusMockService.h"
#include "DeploySites.h"
#include "TestEnvironment.h"
#include "Traces.h"
#include "app/Logger.h"
#include "app/Preferences.h"
#include "deploy/DeployRun.h"
#include "deploy/NotificationHub.h"
#include "git/CommitExport.h"
#include "keychain/TWPasswords.h"
#include "model/Sites.h"

#include <QCborArray>
#include <QCborMap>
#include <QDir>
#include <QFile>
#include <QScopeGuard>
#include <QTemporaryDir>
#include <QTest>

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
    bool recordNames(const QString& commit) const {
        return record().startsWith(QByteArray(commit.toUtf8() + ','));
    }

    // The row of the path in the controller's list: the one with the change
    // letter when given ("-": an always-uploaded entry), else the one from
    // the commit; -1 when it is not listed.
    static qsizetype rowOf(const ViewController& controller, const QString& path,
                           const QString& letter = QString()) {
        for (qsizetype i = 0; i < controller.files->size(); ++i) {
            const FilePtr& file = controller.files->at(i);
            if (file->pathWithFilename == path &&
                (letter.isEmpty() ? file->gitStatus != u"-" : file->gitStatus == letter))
                return i;
        }
        return -1;
    }

private slots:
    void initTestCase() {
        test::TestEnvironment::isolate();
        m_ftp = std::make_unique<test::FtpServer>();
    }

    void init() {
        TW_REQUIRE_SERVER(*m_ftp);
        test::TestEnvironment::resetPreferences();
        QVERIFY(m_ftp->emptyFolder(u"www"_s));
    }

    // The run ends once its record is on the server, so a second deployment
    // right after it reads that record and has nothing to ask.
    void recordOnTheServerWhenTheRunEnds() {
        test::GitRepository repo;
        const QString first = repo.commit({{u"index.html"_s, "one"}});
        test::DeployWindow window({test::ftpSite(repo, *m_ftp)});
        QByteArray recordAtTheEnd;
        connect(&window.controller, &ViewController::deploymentEnded, this,
                [&] { recordAtTheEnd = record(); });

        test::DeployAttempt attempt = window.deploy();
        QVERIFY2(attempt.deployed(), qPrintable(attempt.message));
        QVERIFY2(recordAtTheEnd.startsWith(QByteArray(first.toUtf8() + ',')), recordAtTheEnd.constData());

        const QString second = repo.commit({{u"two.html"_s, "two"}}, u"second"_s);
        window.controller.setupFileList();
        attempt = window.deploy();
        QVERIFY2(attempt.deployed(), qPrintable(attempt.message));
        QVERIFY(window.view.alerts.isEmpty());
        QVERIFY(recordNames(second));
    }

    // A server without a record, for a site that names a last deployed
    // commit, gets only what changed since that commit: the missing record
    // is "no record yet", not a server to fill anew.
    void missingRecordDeploysOnlyTheChanges() {
        test::GitRepository repo;
        repo.commit({{u"old.html"_s, "old"}});
        test::DeployWindow window({test::ftpSite(repo, *m_ftp)});
        QVERIFY(window.deploy().deployed());
        QVERIFY(m_ftp->emptyFolder(u"www"_s)); // the server was emptied

        const QString second = repo.commit({{u"new.html"_s, "new"}}, u"second"_s);
        window.controller.setupFileList();
        QCOMPARE(window.deploy().problem(), QString());
        QVERIFY(window.view.alerts.isEmpty());
        QCOMPARE(test::tree(www()), (QStringList{u".tarnwell"_s, u"new.html"_s}));
        QVERIFY(recordNames(second));
    }

    // The deployed site is found by its id: selecting or moving sites while
    // it runs changes nothing of where its commit is written.
    void deployedSiteSavedByIdWhateverIsSelected() {
        test::GitRepository repo;
        const QString commit = repo.commit({{u"index.html"_s, "x"}});
        SitePtr other = test::ftpSite(repo, *m_ftp, u"other/"_s);
        other->name = u"Other"_s;
        SitePtr deployed = test::ftpSite(repo, *m_ftp);
        test::DeployWindow window({other, deployed}, deployed->siteId());
        QCOMPARE(window.controller.currentSite->siteId(), deployed->siteId());
        window.controller.deployButton();
        // Meanwhile the window's person moves the site up and selects the other.
        Sites().storeWithSites({deployed, other});
        Preferences::instance().setInteger(u"currentSiteIndex"_s, 1);
        QCOMPARE(window.waitForEnd().problem(), QString());

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
        const QString commit = repo.commit({{u"index.html"_s, "x"}});
        QCborMap archived = test::ftpSite(repo, *m_ftp)->encode();
        archived.remove(u"siteId"_s);
        Preferences::instance().setValue(u"sites"_s, QCborValue(QCborArray{archived}).toCbor());
        QVERIFY(!Sites().loadAll()->first()->hasSiteId());
        test::DeployWindow window;
        TWPasswords::setPassword(test::FtpServer::password(), window.controller.currentSite->siteId());
        QCOMPARE(window.deploy().problem(), QString());
        const SiteList stored = *Sites().loadAll();
        QCOMPARE(stored.size(), 1);
        QVERIFY(stored.first()->hasSiteId());
        QCOMPARE(stored.first()->siteId(), window.controller.currentSite->siteId());
        QVERIFY(stored.first()->lastCommitDeployed);
        QCOMPARE(stored.first()->lastCommitDeployed->sha1, commit);
    }

    // A site that cannot be saved after its deployment (it was deleted
    // meanwhile) is no success: the files and the record are on the server,
    // and the message says the site could not be saved.
    void siteThatCannotBeSavedIsNoSuccess() {
        test::GitRepository repo;
        const QString commit = repo.commit({{u"index.html"_s, "x"}});
        test::DeployWindow window({test::ftpSite(repo, *m_ftp)});
        window.controller.deployButton();
        Sites().storeWithSites({}); // deleted while it deploys
        const test::DeployAttempt attempt = window.waitForEnd();
        QCOMPARE(int(attempt.outcome), int(DeployOutcome::SiteNotSaved));
        QVERIFY2(attempt.message.contains(u"could not be saved"_s), qPrintable(attempt.message));
        QVERIFY(recordNames(commit));
        QVERIFY(QFile::exists(www() + u"/index.html"_s));
        QCOMPARE(window.view.messages(), QStringList{u"An error occured!"_s});
    }

    // While a question about the server's record is open, neither a commit
    // nor the Deploy button starts a second attempt; the commit is taken up
    // once the question is answered.
    void openQuestionStartsNoSecondAttempt() {
        test::GitRepository repo;
        repo.commit({{u"a.txt"_s, "1"}});
        SitePtr site = test::ftpSite(repo, *m_ftp);
        site->autoDeploy = true;
        test::storeSites({site});
        QVERIFY(m_ftp->writeFile(u"www/.tarnwell"_s, "0123abc,100.0,other"));

        test::DeployWindow window;
        test::ScriptedDeployView& view = window.view;
        view.holdSheets = true;
        window.controller.deployButton();
        QTRY_COMPARE_WITH_TIMEOUT(view.heldSheets.size(), 1, 20000);
        QCOMPARE(int(window.controller.readiness()), int(DeployReadiness::QuestionPending));

        const QString newest = repo.commit({{u"b.txt"_s, "2"}}, u"two"_s);
        window.commitWritten(repo);
        window.controller.deployButton();
        QTest::qWait(2000); // ten times the wait for git to settle after HEAD moved
        QCOMPARE(view.alerts.size(), 1);
        QCOMPARE(window.ended.count(), 0);

        view.answerHeldSheet(1); // Cancel
        QTRY_COMPARE(window.ended.count(), 1);
        // The commit seen meanwhile is deployed now: the record still names
        // another branch, so the question comes again.
        QTRY_COMPARE_WITH_TIMEOUT(view.heldSheets.size(), 1, 20000);
        QCOMPARE(view.alerts.size(), 2);
        view.answerHeldSheet(0); // Force deploy
        QCOMPARE(window.waitForEnd(2).problem(), QString());
        QCOMPARE(test::tree(www()), (QStringList{u".tarnwell"_s, u"a.txt"_s, u"b.txt"_s}));
        QVERIFY(recordNames(newest));
    }

    // An abort stops everything the run had queued: an answer given just
    // before it sends nothing.
    void abortRightAfterAnAnswerSendsNothing() {
        test::GitRepository repo;
        repo.commit({{u"a.txt"_s, "1"}});
        test::storeSites({test::ftpSite(repo, *m_ftp)});
        QVERIFY(m_ftp->writeFile(u"www/.tarnwell"_s, "0123abc,100.0,other"));

        test::DeployWindow window;
        window.view.holdSheets = true;
        window.controller.deployButton();
        QTRY_COMPARE_WITH_TIMEOUT(window.view.heldSheets.size(), 1, 20000);
        window.view.answerHeldSheet(0); // Force deploy
        window.controller.abortDeploy();
        QTest::qWait(1500);
        QCOMPARE(window.ended.count(), 1);
        QCOMPARE(int(window.waitForEnd().outcome), int(DeployOutcome::Aborted));
        QCOMPARE(test::tree(www()), QStringList{u".tarnwell"_s});
        QCOMPARE(record(), QByteArray("0123abc,100.0,other"));
        QVERIFY(window.controller.isIdle());
    }

    // A commit on the deploy branch deploys by itself. git writes HEAD's
    // reflog before it moves the branch: a deployment started on the
    // reflog's change alone would deploy the old commit again and miss the
    // new one, so nothing starts while the branch is locked.
    void commitsDeployThemselves() {
        test::GitRepository repo;
        repo.commit({{u"index.html"_s, "one"}});
        SitePtr site = test::ftpSite(repo, *m_ftp);
        site->autoDeploy = true;
        test::DeployWindow window({site});
        QCOMPARE(window.controller.fileWatcherQueue->numberOfWatchedPaths(), 1);
        const QString head = repo.commit({{u"index.html"_s, "two"}}, u"second"_s);
        QVERIFY(window.waitForEnd(1).deployed());
        QTRY_VERIFY(recordNames(head));
        QCOMPARE(test::readFile(www() + u"/index.html"_s), QByteArray("two"));

        repo.write(u"index.html"_s, "three");
        repo.git({u"add"_s, u"-A"_s});
        const QString old = repo.git({u"rev-parse"_s, u"HEAD"_s});
        const QString commit =
            repo.git({u"commit-tree"_s, repo.git({u"write-tree"_s}), u"-p"_s, old, u"-m"_s, u"third"_s});
        const QString ref = repo.path() + u"/.git/refs/heads/main"_s;
        QVERIFY(test::writeFile(ref + u".lock"_s, commit.toUtf8() + '\n'));
        QFile reflog(repo.path() + u"/.git/logs/HEAD"_s);
        QVERIFY(reflog.open(QIODevice::Append));
        reflog.write(
            QString(old + u' ' + commit + u" T <t@example.com> 1 +0000\tcommit: third\n"_s).toUtf8());
        reflog.close();
        QTest::qWait(1500);
        QCOMPARE(window.ended.count(), 1);
        QVERIFY(!window.controller.isDeploying());

        QVERIFY(QFile::remove(ref));
        QVERIFY(QFile::rename(ref + u".lock"_s, ref));
        QVERIFY(window.waitForEnd(2).deployed());
        QTRY_VERIFY2(recordNames(commit.left(7)), record().constData());
        QCOMPARE(window.ended.count(), 2);
    }

    // A commit made while a run is under way is deployed when it has ended.
    void commitDuringARunIsDeployedAfterIt() {
        test::GitRepository repo;
        repo.commit({{u"a.txt"_s, "1"}});
        SitePtr site = test::ftpSite(repo, *m_ftp);
        site->autoDeploy = true;
        site->preDeployScriptLocal = u"sleep 1"_s;
        test::DeployWindow window({site});
        window.controller.deployButton();
        QTest::qWait(200);
        const QString second = repo.commit({{u"b.txt"_s, "2"}}, u"two"_s);
        window.commitWritten(repo);
        QVERIFY(window.waitForEnd(1).deployed());
        QCOMPARE(window.waitForEnd(2).problem(), QString());
        QVERIFY(recordNames(second));
        QVERIFY(QFile::exists(www() + u"/b.txt"_s));
    }

    // A commit seen during a run is deployed afterwards only for the site
    // whose repository it came from: when another site is selected
    // meanwhile, that one is not deployed because of it.
    void commitDuringARunDeploysNoOtherSite() {
        test::GitRepository repo;
        repo.commit({{u"a.txt"_s, "1"}});
        SitePtr first = test::ftpSite(repo, *m_ftp);
        first->autoDeploy = true;
        first->preDeployScriptLocal = u"sleep 1"_s;
        test::GitRepository otherRepo;
        otherRepo.commit({{u"b.txt"_s, "2"}});
        SitePtr other = test::ftpSite(otherRepo, *m_ftp, u"other/"_s);
        other->autoDeploy = true;
        test::storeSites({first, other});
        QDir(m_ftp->homeFolder() + u"/other"_s).removeRecursively();

        test::DeployWindow window;
        window.controller.deployButton();
        QTest::qWait(100);
        repo.commit({{u"c.txt"_s, "3"}}, u"two"_s);
        window.commitWritten(repo);
        QTest::qWait(600); // the commit is seen (and waits for the run)
        QVERIFY(window.controller.isDeploying());
        Preferences::instance().setInteger(u"currentSiteIndex"_s, 1);
        QCOMPARE(window.controller.currentSite->siteId(), other->siteId());
        QVERIFY(window.waitForEnd().deployed());
        QTest::qWait(2000);
        QCOMPARE(window.ended.count(), 1);
        QVERIFY(!window.controller.isDeploying());
        QVERIFY(!QFile::exists(m_ftp->homeFolder() + u"/other/.tarnwell"_s));
    }

    // A record that cannot be written is no success: the files are on the
    // server, the outcome says the record is missing, and the site keeps
    // the commit it had.
    void recordThatCannotBeWrittenIsNoSuccess() {
        test::GitRepository repo;
        repo.commit({{u"index.html"_s, "x"}});
        SitePtr site = test::ftpSite(repo, *m_ftp);
        // After the uploads, before the record: the folder refuses writes.
        site->postDeployScriptLocal = u"chmod 555 '"_s + www() + u"'"_s;
        test::DeployWindow window({site});
        const test::DeployAttempt attempt = window.deploy();
        QCOMPARE(int(attempt.outcome), int(DeployOutcome::RecordNotWritten));
        QVERIFY2(attempt.message.contains(u"record"_s), qPrintable(attempt.message));
        QCOMPARE(window.view.messages(), QStringList{u"An error occured!"_s});
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
        repo.commit({{u"a.txt"_s, "a1"}, {u"b.txt"_s, "b1"}, {u"c.txt"_s, "c1"}}, u"one"_s);
        repo.write(u".htaccess"_s, "deny"); // built, not committed
        SitePtr site = test::ftpSite(repo, *m_ftp);
        site->mandatoryFiles = std::make_shared<FileList>(FileList{File::initWithPath(u".htaccess"_s)});
        test::DeployWindow window({site});
        ViewController& controller = window.controller;
        const auto state = [&](const QString& path, const QString& letter = QString()) {
            const qsizetype row = rowOf(controller, path, letter);
            return row < 0                                 ? u"not listed"_s
                   : controller.files->at(row)->willUpload ? u"checked"_s
                                                           : u"unchecked"_s;
        };
        controller.updateCheckboxes(
            false, {rowOf(controller, u"b.txt"_s, u"A"_s), rowOf(controller, u".htaccess"_s, u"-"_s)});
        const auto storedAlwaysUploaded = [] {
            QStringList paths;
            const SiteList stored = *Sites().loadAll();
            for (const FilePtr& entry : *stored.first()->mandatoryFiles)
                paths.append(entry->pathWithFilename.value_or(QString()) +
                             (entry->willUpload ? u""_s : u" (unchecked)"_s));
            return paths;
        };
        QCOMPARE(storedAlwaysUploaded(), QStringList{u".htaccess"_s});
        test::DeployAttempt attempt = window.deploy();
        QVERIFY(attempt.deployed());
        QCOMPARE(attempt.summary.waiting, 1);
        QCOMPARE(test::tree(www()), (QStringList{u".tarnwell"_s, u"a.txt"_s, u"c.txt"_s}));
        QCOMPARE(storedAlwaysUploaded(), QStringList{u".htaccess"_s});

        // Listed again, unchecked; the always-uploaded entry is checked again.
        QCOMPARE(state(u"b.txt"_s), u"unchecked"_s);
        QCOMPARE(state(u".htaccess"_s, u"-"_s), u"checked"_s);
        QCOMPARE(controller.waitingCount(), 1);
        // A commit that changes another file leaves it waiting ...
        repo.commit({{u"c.txt"_s, "c2"}}, u"two"_s);
        controller.setupFileList();
        QCOMPARE(state(u"c.txt"_s), u"checked"_s);
        QCOMPARE(state(u"b.txt"_s), u"unchecked"_s);
        // ... and one that changes it checks it again.
        repo.commit({{u"b.txt"_s, "b2"}}, u"three"_s);
        controller.setupFileList();
        QCOMPARE(state(u"b.txt"_s), u"checked"_s);
        QCOMPARE(controller.waitingCount(), 0);
        attempt = window.deploy();
        QVERIFY(attempt.deployed());
        QCOMPARE(test::readFile(www() + u"/b.txt"_s), QByteArray("b2"));
        QCOMPARE(attempt.summary.waiting, 0);
    }

    // Listed files whose commit has no resolved id are never sent from the
    // working folder under that commit's record: the run fails, nothing is
    // sent.
    void listedFilesWithoutACommitIdFailTheRun() {
        test::GitRepository repo;
        const QString head = repo.commit({{u"index.html"_s, "committed"}});
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
        repo.commit({{u"a.txt"_s, "a"}, {u"b.txt"_s, "b"}, {u"c.txt"_s, "c"}}, u"one"_s);
        repo.write(u"dist/x.js"_s, "x"); // built, not committed
        repo.write(u"dist/y.js"_s, "y");
        SitePtr site = test::ftpSite(repo, *m_ftp);
        site->mandatoryFiles = std::make_shared<FileList>(
            FileList{File::initWithPath(u"dist"_s), File::initWithPath(u"a.txt"_s)});
        test::DeployWindow window({site});
        window.controller.updateCheckboxes(false, {rowOf(window.controller, u"b.txt"_s)});

        QList<QPair<QString, QString>> counts; // remaining, total
        const auto connection = connect(&NotificationHub::instance(), &NotificationHub::remainingStatus, this,
                                        [&](const QVariantMap& userInfo) {
                                            counts.append({userInfo.value(u"remaining"_s).toString(),
                                                           userInfo.value(u"total"_s).toString()});
                                        });
        auto disconnect = qScopeGuard([&] { QObject::disconnect(connection); });
        QSignalSpy progress(&window.controller, &ViewController::progressChanged);
        QCOMPARE(window.deploy().problem(), QString());
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
        QCOMPARE(window.controller.lastRunSummary().total, 4);
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
            test::DeployWindow window;
            QStringList duringTheRun;
            connect(&window.controller, &ViewController::progressChanged, this, [&](qsizetype done) {
                if (done == 0)
                    duringTheRun = exports();
            });
            if (expected == DeployOutcome::Aborted)
                connect(
                    &window.controller, &ViewController::progressChanged, &window.controller,
                    [&](qsizetype done) {
                        if (done == 0)
                            window.controller.abortDeploy();
                    },
                    Qt::QueuedConnection);
            QCOMPARE(int(window.deploy().outcome), int(expected));
            QCOMPARE(duringTheRun.size(), 1); // the export, while the files were sent
            QTRY_COMPARE(exports(), QStringList());
        }
    }

    // A sync root of "/" is the whole repository: remote paths keep every
    // folder.
    void syncRootOfSlashKeepsRemotePathsWhole() {
        test::GitRepository repo;
        repo.commit({{u"top.html"_s, "top"}, {u"a/b/deep.html"_s, "deep"}});
        SitePtr site = test::ftpSite(repo, *m_ftp);
        site->syncRootPath = u"/"_s;
        test::DeployWindow window({site});
        QCOMPARE(window.deploy().problem(), QString());
        QCOMPARE(test::tree(www()), (QStringList{u".tarnwell"_s, u"a/b/deep.html"_s, u"top.html"_s}));
        QCOMPARE(test::readFile(www() + u"/a/b/deep.html"_s), QByteArray("deep"));
    }

    // An upload the server refuses fails the run with curl's words, marks
    // the row curl named, writes no record and saves no commit; a retry
    // then lists and sends each always-uploaded file once.
    void failedUploadThenARetry() {
        test::GitRepository repo;
        repo.commit({{u"index.html"_s, "x"}});
        repo.write(u"dist/app.js"_s, "built");
        repo.write(u"robots.txt"_s, "all");
        SitePtr site = test::ftpSite(repo, *m_ftp);
        site->mandatoryFiles = std::make_shared<FileList>(
            FileList{File::initWithPath(u"dist"_s), File::initWithPath(u"robots.txt"_s)});
        test::storeSites({site});
        QVERIFY(m_ftp->makeUnwritable(u"www"_s));
        test::DeployWindow window;
        // The rows whose change letter or status is the text.
        const auto rows = [&](const QString& status) {
            QStringList found;
            for (const FilePtr& file : *window.controller.files) {
                if (file->gitStatus == status || file->status == status)
                    found.append(file->pathWithFilename.value_or(QString()));
            }
            return found;
        };
        const QStringList listed{u"dist"_s, u"robots.txt"_s};
        QCOMPARE(rows(u"-"_s), listed);
        QCOMPARE(int(window.deploy().outcome), int(DeployOutcome::Failed));
        QCOMPARE(window.view.messages().first(), u"An error occured!"_s);
        QVERIFY2(window.view.alerts.first().informativeText.contains(u"curl: (25)"_s),
                 qPrintable(window.view.alerts.first().informativeText));
        QCOMPARE(rows(u"ERROR"_s).size(), 1);
        QCOMPARE(test::tree(www()), QStringList());
        QVERIFY(!Sites().loadAll()->first()->lastCommitDeployed);
        QCOMPARE(rows(u"-"_s), listed);

        QDir(www()).removeRecursively();
        const test::DeployAttempt attempt = window.deploy();
        QVERIFY2(attempt.deployed(), qPrintable(attempt.message));
        QCOMPARE(attempt.summary.uploads, 3);
        QCOMPARE(test::tree(www()),
                 (QStringList{u".tarnwell"_s, u"dist/app.js"_s, u"index.html"_s, u"robots.txt"_s}));
        QCOMPARE(rows(u"-"_s), listed);
    }

    // A repository folder that is gone by the time the files are queued
    // fails the run with a message; nothing hangs.
    void vanishedRepositoryFolderFailsTheRun() {
        auto repo = std::make_unique<test::GitRepository>();
        repo->commit({{u"index.html"_s, "x"}});
        SitePtr site = test::ftpSite(*repo, *m_ftp);
        site->preDeployScriptLocal = u"cd / && rm -rf '"_s + repo->path() + u"'"_s;
        test::DeployWindow window({site});
        const test::DeployAttempt attempt = window.deploy();
        QCOMPARE(int(attempt.outcome), int(DeployOutcome::Failed));
        QVERIFY2(attempt.message.contains(u"is gone"_s), qPrintable(attempt.message));
        QCOMPARE(test::tree(www()), QStringList());
    }

    // A failed or timed-out script ends the run with its output and its exit
    // status (or the time-out) shown: under the alert's details, and in the
    // message the command line prints. A failed script before the transfers
    // sends nothing, and its alert opens the log folder.
    void failedScriptShowsItsOutputAndStatus() {
        test::GitRepository repo;
        repo.commit({{u"index.html"_s, "x"}});
        SitePtr site = test::ftpSite(repo, *m_ftp);
        site->preDeployScriptLocal = u"echo visible-output; echo on-stderr >&2; exit 3"_s;
        test::storeSites({site});
        {
            test::DeployWindow window;
            window.view.answers = {u"Show log\u2026"_s};
            const test::DeployAttempt attempt = window.deploy();
            QCOMPARE(int(attempt.outcome), int(DeployOutcome::ScriptFailed));
            QCOMPARE(window.view.messages(), QStringList{u"An error occured when running script"_s});
            const AlertRequest& alert = window.view.alerts.first();
            QCOMPARE(alert.informativeText, u"Check the log file for syntax errors and such."_s);
            for (const QString& shown : {alert.detailedText, attempt.message}) {
                QVERIFY2(shown.contains(u"exit status 3"_s), qPrintable(shown));
                QVERIFY2(shown.contains(u"visible-output"_s), qPrintable(shown));
                QVERIFY2(shown.contains(u"on-stderr"_s), qPrintable(shown));
            }
            QTRY_COMPARE(window.view.openedFolders, QStringList{Logger::sharedInstance().logDirectory()});
            QVERIFY(window.view.progressTexts.contains(u"Running local scripts\u2026"_s));
            QVERIFY(!window.view.progressTexts.contains(u"Uploading files\u2026"_s));
            QCOMPARE(test::tree(www()), QStringList());
            QVERIFY(ViewController::isUploading());
        }

        Preferences::instance().setInteger(u"scriptTimeout"_s, 1);
        site->preDeployScriptLocal.reset();
        site->postDeployScriptLocal = u"echo post-started; sleep 30"_s;
        test::DeployWindow window({site});
        const test::DeployAttempt attempt = window.deploy();
        QCOMPARE(int(attempt.outcome), int(DeployOutcome::ScriptFailed));
        for (const QString& shown : {window.view.alerts.first().detailedText, attempt.message}) {
            QVERIFY2(shown.contains(u"did not end within 1 seconds"_s), qPrintable(shown));
            QVERIFY2(shown.contains(u"post-started"_s), qPrintable(shown));
        }
        QVERIFY(!QFile::exists(www() + u"/.tarnwell"_s)); // the files were sent, no record
    }

    // The display is kept awake for a run and let go whatever way it ends.
    void displaySleepReleasedOnEveryEnd() {
        const auto screenSaver = test::DBusMockService::screenSaver();
        QVERIFY(screenSaver);
        const auto balance = [&] {
            int held = 0;
            for (const auto& call : screenSaver->calls())
                held += call.first == u"Inhibit"_s ? 1 : call.first == u"UnInhibit"_s ? -1 : 0;
            return held;
        };

        test::GitRepository repo;
        repo.commit({{u"index.html"_s, "x"}});
        SitePtr site = test::ftpSite(repo, *m_ftp);
        site->preDeployScriptLocal = u"exit 2"_s;
        test::storeSites({site});
        {
            test::DeployWindow window;
            QCOMPARE(int(window.deploy().outcome), int(DeployOutcome::ScriptFailed));
            QTRY_COMPARE(balance(), 0);
        }
        site->preDeployScriptLocal.reset();
        test::storeSites({site});
        QVERIFY(m_ftp->makeUnwritable(u"www"_s));
        test::DeployWindow window;
        QCOMPARE(int(window.deploy().outcome), int(DeployOutcome::Failed));
        QTRY_COMPARE(balance(), 0);
        QVERIFY(screenSaver->calls().size() >= 4);
    }
};

QTEST_GUILESS_MAIN(TestDeployRunEndToEnd)
#include "tst_deployrun_e2e.moc"
