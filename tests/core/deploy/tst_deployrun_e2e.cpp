#include "DBusMockService.h"
#include "DeploySites.h"
#include "TestEnvironment.h"
#include "Traces.h"
#include "app/Logger.h"
#include "app/Preferences.h"
#include "git/CommitExport.h"
#include "keychain/TWPasswords.h"
#include "model/Sites.h"

#include <QCborArray>
#include <QCborMap>
#include <QDir>
#include <QFile>
#include <QTest>

using namespace tw;
using namespace Qt::StringLiterals;

// One deployment is one run from the press of Deploy to its record on the
// server: what may and may not happen while a run is under way, and how each
// way of ending leaves the server, the stored site and the desktop.
class TestDeployRunEndToEnd : public QObject {
    Q_OBJECT

    std::unique_ptr<test::FtpServer> m_ftp;
    std::unique_ptr<test::DBusMockService> m_screenSaver;

    QString www() const { return m_ftp->homeFolder() + u"/www"_s; }
    QByteArray record() const { return test::readFile(www() + u"/.tarnwell"_s); }
    bool recordNames(const QString& commit) const {
        return record().startsWith(QByteArray(commit.toUtf8() + ','));
    }
    // Inhibitions of the display's sleep not given back.
    int displayHeld() const {
        int held = 0;
        for (const auto& call : m_screenSaver->calls())
            held += call.first == u"Inhibit"_s ? 1 : call.first == u"UnInhibit"_s ? -1 : 0;
        return held;
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
        m_screenSaver = test::DBusMockService::screenSaver();
        QVERIFY(m_screenSaver);
    }

    void init() {
        TW_REQUIRE_SERVER(*m_ftp);
        test::TestEnvironment::resetPreferences();
        QVERIFY(m_ftp->emptyFolder(u"www"_s));
    }

    // The run ends once its record is on the server, so a second deployment
    // right after it reads that record and has nothing to ask. A server that
    // lost its record gets only what changed since the site's last deployed
    // commit. A sync root of "/" is the whole repository: remote paths keep
    // every folder.
    void recordOnTheServerWhenTheRunEnds() {
        test::GitRepository repo;
        const QString first = repo.commit({{u"top.html"_s, "top"}, {u"a/b/deep.html"_s, "deep"}});
        SitePtr site = test::ftpSite(repo, *m_ftp);
        site->syncRootPath = u"/"_s;
        test::DeployWindow window({site});
        QByteArray recordAtTheEnd;
        connect(&window.controller, &ViewController::deploymentEnded, this,
                [&] { recordAtTheEnd = record(); });
        QCOMPARE(window.deploy().problem(), QString());
        QVERIFY2(recordAtTheEnd.startsWith(QByteArray(first.toUtf8() + ',')), recordAtTheEnd.constData());
        QCOMPARE(test::tree(www()), (QStringList{u".tarnwell"_s, u"a/b/deep.html"_s, u"top.html"_s}));

        const QString second = repo.commit({{u"two.html"_s, "two"}}, u"second"_s);
        window.controller.setupFileList();
        QCOMPARE(window.deploy().problem(), QString());
        QVERIFY(recordNames(second));

        QVERIFY(m_ftp->emptyFolder(u"www"_s));
        const QString third = repo.commit({{u"new.html"_s, "new"}}, u"third"_s);
        window.controller.setupFileList();
        QCOMPARE(window.deploy().problem(), QString());
        QVERIFY(window.view.alerts.isEmpty());
        QCOMPARE(test::tree(www()), (QStringList{u".tarnwell"_s, u"new.html"_s}));
        QVERIFY(recordNames(third));
    }

    // The deployed site is found by its id (one given when a site stored
    // without one, as older releases stored it, is loaded): moving sites and
    // selecting another while it runs changes nothing of where its commit is
    // written.
    void deployedSiteSavedByIdWhateverIsSelected() {
        test::GitRepository repo;
        const QString commit = repo.commit({{u"index.html"_s, "x"}});
        SitePtr other = test::ftpSite(repo, *m_ftp, u"other/"_s);
        other->name = u"Other"_s;
        QCborMap archived = test::ftpSite(repo, *m_ftp)->encode();
        archived.remove(u"siteId"_s);
        Preferences::instance().setValue(u"sites"_s,
                                         QCborValue(QCborArray{other->encode(), archived}).toCbor());
        Preferences::instance().setInteger(u"currentSiteIndex"_s, 1);
        test::DeployWindow window;
        const QString id = window.controller.currentSite->siteId();
        QVERIFY(Sites().loadAll()->at(1)->hasSiteId());
        TWPasswords::setPassword(test::FtpServer::password(), id);
        window.controller.deployButton();
        // Meanwhile the window's person moves the site up and selects the other.
        const SiteList loaded = *Sites().loadAll();
        Sites().storeWithSites({loaded.at(1), loaded.at(0)});
        Preferences::instance().setInteger(u"currentSiteIndex"_s, 1);
        QCOMPARE(window.waitForEnd().problem(), QString());

        const SiteList stored = *Sites().loadAll();
        QCOMPARE(stored.size(), 2);
        QCOMPARE(stored.at(0)->siteId(), id);
        QCOMPARE(stored.at(0)->lastCommitDeployed->sha1, commit);
        QCOMPARE(stored.at(1)->name, u"Other"_s);
        QVERIFY(!stored.at(1)->lastCommitDeployed);
        QCOMPARE(Preferences::instance().integerValue(u"currentSiteIndex"_s), 1);
    }

    // While a question about the server's record is open, neither a commit
    // nor the Deploy button starts a second attempt; the commit is taken up
    // once the question is answered. An abort right after an answer stops
    // everything the run had queued: nothing is sent.
    void openQuestionStartsNoSecondAttempt() {
        test::GitRepository repo;
        repo.commit({{u"a.txt"_s, "1"}});
        SitePtr site = test::ftpSite(repo, *m_ftp);
        site->autoDeploy = true;
        QVERIFY(m_ftp->writeFile(u"www/.tarnwell"_s, "0123abc,100.0,other"));
        test::DeployWindow window({site});
        test::ScriptedDeployView& view = window.view;
        view.holdSheets = true;
        window.controller.deployButton();
        QTRY_COMPARE_WITH_TIMEOUT(view.heldSheets.size(), 1, 20000);
        QCOMPARE(int(window.controller.readiness()), int(DeployReadiness::QuestionPending));

        repo.commit({{u"b.txt"_s, "2"}}, u"two"_s);
        window.commitWritten(repo);
        window.controller.deployButton();
        QTest::qWait(2000); // ten times the wait for git to settle after HEAD moved
        QCOMPARE(view.alerts.size(), 1);
        QCOMPARE(window.ended.count(), 0);

        view.answerHeldSheet(1); // Cancel
        QTRY_COMPARE(window.ended.count(), 1);
        // The commit seen meanwhile starts a run now: the record still names
        // another branch, so the question comes again.
        QTRY_COMPARE_WITH_TIMEOUT(view.heldSheets.size(), 1, 20000);
        QCOMPARE(view.alerts.size(), 2);
        view.answerHeldSheet(0); // Force deploy
        window.controller.abortDeploy();
        QCOMPARE(int(window.waitForEnd(2).outcome), int(DeployOutcome::Aborted));
        QTest::qWait(1500);
        QCOMPARE(window.ended.count(), 2);
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

    // A run that cannot finish is no success, and says why: a record the
    // server refuses after the uploads (the site keeps the commit it had), a
    // site deleted while it deploys (the files and the record are on the
    // server), a repository folder gone before the files are queued (nothing
    // is sent, nothing hangs).
    void unfinishedRunsAreNoSuccess_data() {
        QTest::addColumn<QString>("preScript");
        QTest::addColumn<QString>("postScript");
        QTest::addColumn<bool>("deleteSite");
        QTest::addColumn<int>("outcome");
        QTest::addColumn<QString>("says");
        QTest::addColumn<bool>("sent");
        QTest::addColumn<bool>("recorded");
        QTest::newRow("record not written")
            << QString() << u"chmod 555 '%www'"_s << false << int(DeployOutcome::RecordNotWritten)
            << u"record"_s << true << false;
        QTest::newRow("site deleted meanwhile")
            << QString() << QString() << true << int(DeployOutcome::SiteNotSaved) << u"could not be saved"_s
            << true << true;
        QTest::newRow("repository folder gone")
            << u"cd / && rm -rf '%repo'"_s << QString() << false << int(DeployOutcome::Failed) << u"is gone"_s
            << false << false;
    }
    void unfinishedRunsAreNoSuccess() {
        QFETCH(QString, preScript);
        QFETCH(QString, postScript);
        QFETCH(bool, deleteSite);
        QFETCH(int, outcome);
        QFETCH(QString, says);
        QFETCH(bool, sent);
        QFETCH(bool, recorded);
        auto repo = std::make_unique<test::GitRepository>();
        const QString commit = repo->commit({{u"index.html"_s, "x"}});
        SitePtr site = test::ftpSite(*repo, *m_ftp);
        const auto filled = [&](QString script) {
            return script.replace(u"%www"_s, www()).replace(u"%repo"_s, repo->path());
        };
        if (!preScript.isEmpty())
            site->preDeployScriptLocal = filled(preScript);
        if (!postScript.isEmpty())
            site->postDeployScriptLocal = filled(postScript);
        test::DeployWindow window({site});
        window.controller.deployButton();
        if (deleteSite)
            Sites().storeWithSites({});
        const test::DeployAttempt attempt = window.waitForEnd();
        QCOMPARE(int(attempt.outcome), outcome);
        QVERIFY2(attempt.message.contains(says), qPrintable(attempt.message));
        QCOMPARE(window.view.messages(), QStringList{u"An error occured!"_s});
        QCOMPARE(QFile::exists(www() + u"/index.html"_s), sent);
        QCOMPARE(recordNames(commit), recorded);
        if (!deleteSite)
            QVERIFY(!Sites().loadAll()->first()->lastCommitDeployed);
    }

    // Files left unchecked wait, unchecked, until a commit changes them; a
    // deployment that left some says how many wait. An always-uploaded entry
    // unchecked is left out once, never in the stored site. What is shown
    // counts the transfers really made: a waiting row, a folder's own row and
    // a file listed twice are none, so it ends with all done.
    void uncheckedFilesWait() {
        test::GitRepository repo;
        repo.commit({{u"a.txt"_s, "a1"}, {u"b.txt"_s, "b1"}, {u"c.txt"_s, "c1"}}, u"one"_s);
        repo.write(u"dist/x.js"_s, "x"); // built, not committed
        repo.write(u"dist/y.js"_s, "y");
        repo.write(u".htaccess"_s, "deny");
        SitePtr site = test::ftpSite(repo, *m_ftp);
        site->mandatoryFiles =
            std::make_shared<FileList>(FileList{File::initWithPath(u"dist"_s), File::initWithPath(u"a.txt"_s),
                                                File::initWithPath(u".htaccess"_s)});
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
        QSignalSpy progress(&controller, &ViewController::progressChanged);
        const test::DeployAttempt attempt = window.deploy();
        QCOMPARE(attempt.problem(), QString());
        QCOMPARE(attempt.summary.waiting, 1);
        QCOMPARE(test::tree(www()),
                 (QStringList{u".tarnwell"_s, u"a.txt"_s, u"c.txt"_s, u"dist/x.js"_s, u"dist/y.js"_s}));
        QVERIFY(!progress.isEmpty());
        QCOMPARE(progress.last().at(0).toLongLong(), 4);
        QCOMPARE(progress.last().at(1).toLongLong(), 4);
        QCOMPARE(controller.lastRunSummary().total, 4);
        const FileList stored = *Sites().loadAll()->first()->mandatoryFiles;
        QCOMPARE(stored.size(), 3);
        for (const FilePtr& entry : stored)
            QVERIFY(entry->willUpload);

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
    }

    // An upload the server refuses fails the run with curl's words, marks
    // the row curl named, writes no record, saves no commit and lets the
    // display sleep again; a retry then lists and sends each always-uploaded
    // file once. The private export of the commit goes with each run.
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
        const auto exports = [] {
            QStringList found;
            for (const QString& place : CommitExport::places())
                found += QDir(place).entryList({CommitExport::folderPrefix() + u'*'}, QDir::AllEntries);
            return found;
        };
        QStringList duringTheRun;
        connect(&window.controller, &ViewController::progressChanged, this, [&](qsizetype done) {
            if (done == 0)
                duringTheRun = exports();
        });
        const QStringList listed{u"dist"_s, u"robots.txt"_s};
        QCOMPARE(rows(u"-"_s), listed);
        QCOMPARE(int(window.deploy().outcome), int(DeployOutcome::Failed));
        QCOMPARE(duringTheRun.size(), 1);
        QTRY_COMPARE(exports(), QStringList());
        QCOMPARE(window.view.messages().first(), u"An error occured!"_s);
        QVERIFY2(window.view.alerts.first().informativeText.contains(u"curl: (25)"_s),
                 qPrintable(window.view.alerts.first().informativeText));
        QCOMPARE(rows(u"ERROR"_s).size(), 1);
        QCOMPARE(test::tree(www()), QStringList());
        QVERIFY(!Sites().loadAll()->first()->lastCommitDeployed);
        QCOMPARE(rows(u"-"_s), listed);
        QTRY_COMPARE(displayHeld(), 0);
        QVERIFY(!m_screenSaver->calls().isEmpty());

        QDir(www()).removeRecursively();
        const test::DeployAttempt attempt = window.deploy();
        QVERIFY2(attempt.deployed(), qPrintable(attempt.message));
        QCOMPARE(attempt.summary.uploads, 3);
        QTRY_COMPARE(exports(), QStringList());
        QCOMPARE(test::tree(www()),
                 (QStringList{u".tarnwell"_s, u"dist/app.js"_s, u"index.html"_s, u"robots.txt"_s}));
        QCOMPARE(rows(u"-"_s), listed);
    }

    // A failed or timed-out script ends the run with its output and its exit
    // status (or the time-out) shown: under the alert's details, and in the
    // message the command line prints; the display may sleep again. A failed
    // script before the transfers sends nothing, and its alert opens the log
    // folder; one after them leaves no record.
    void failedScriptShowsItsOutputAndStatus() {
        test::GitRepository repo;
        repo.commit({{u"index.html"_s, "x"}});
        SitePtr site = test::ftpSite(repo, *m_ftp);
        site->preDeployScriptLocal = u"echo visible-output; echo on-stderr >&2; exit 3"_s;
        {
            test::DeployWindow window({site});
            window.view.answers = {u"Show log\u2026"_s};
            const test::DeployAttempt attempt = window.deploy();
            QCOMPARE(int(attempt.outcome), int(DeployOutcome::ScriptFailed));
            QCOMPARE(window.view.messages(), QStringList{u"An error occured when running script"_s});
            const AlertRequest& alert = window.view.alerts.first();
            for (const QString& shown : {alert.detailedText, attempt.message}) {
                QVERIFY2(shown.contains(u"exit status 3"_s), qPrintable(shown));
                QVERIFY2(shown.contains(u"visible-output"_s), qPrintable(shown));
                QVERIFY2(shown.contains(u"on-stderr"_s), qPrintable(shown));
            }
            QTRY_COMPARE(window.view.openedFolders, QStringList{Logger::sharedInstance().logDirectory()});
            QVERIFY(!window.view.progressTexts.contains(u"Uploading files\u2026"_s));
            QCOMPARE(test::tree(www()), QStringList());
            QTRY_COMPARE(displayHeld(), 0);
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
        QVERIFY(QFile::exists(www() + u"/index.html"_s));
        QVERIFY(!QFile::exists(www() + u"/.tarnwell"_s));
        QTRY_COMPARE(displayHeld(), 0);
    }
};

QTEST_GUILESS_MAIN(TestDeployRunEndToEnd)
#include "tst_deployrun_e2e.moc"
