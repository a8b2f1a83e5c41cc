#include "FtpServer.h"
#include "GitRepository.h"
#include "ScriptedDeployView.h"
#include "ServerProcess.h"
#include "SshServer.h"
#include "TestEnvironment.h"
#include "app/Logger.h"
#include "app/Preferences.h"
#include "deploy/NotificationHub.h"
#include "deploy/ViewController.h"
#include "keychain/TWPasswords.h"
#include "model/Sites.h"

#include <QDir>
#include <QDirIterator>
#include <QFile>
#include <QSignalSpy>
#include <QTest>

using namespace tw;
using namespace Qt::StringLiterals;

namespace {

QByteArray readFile(const QString& path) {
    QFile file(path);
    if (!file.open(QIODevice::ReadOnly))
        return QByteArray();
    return file.readAll();
}

// Every file under a folder, relative, sorted.
QStringList tree(const QString& folder) {
    QStringList files;
    QDirIterator walk(folder, QDir::Files | QDir::Hidden | QDir::NoDotAndDotDot,
                      QDirIterator::Subdirectories);
    while (walk.hasNext())
        files.append(QDir(folder).relativeFilePath(walk.next()));
    files.sort();
    return files;
}

// curl processes that are children of this test.
int runningCurlChildren() {
    int count = 0;
    const QString self = QString::number(QCoreApplication::applicationPid());
    for (const QString& pid : QDir(u"/proc"_s).entryList(QDir::Dirs | QDir::NoDotAndDotDot)) {
        const QByteArray stat = readFile(u"/proc/"_s + pid + u"/stat"_s);
        // pid (comm) state ppid ...
        const qsizetype close = stat.lastIndexOf(')');
        if (close < 0)
            continue;
        const QList<QByteArray> fields = stat.mid(close + 2).split(' ');
        if (fields.size() > 1 && QString::fromLatin1(fields.at(1)) == self && stat.contains("(curl)"))
            ++count;
    }
    return count;
}

} // namespace

// Whole deployments, from the Deploy button to the record on the server,
// against real servers, real repositories and a real keyring.
class TestDeployEndToEnd : public QObject {
    Q_OBJECT

    std::unique_ptr<test::FtpServer> m_ftp;

    // A site on the FTP server with its remote folder "www/", stored as the
    // only and current site.
    SitePtr ftpSite(const test::GitRepository& repo) {
        SitePtr site = Site::newSite();
        site->name = u"Blog"_s;
        site->localPath = repo.path();
        site->host = test::FtpServer::host();
        site->port = QString::number(m_ftp->port());
        site->username = test::FtpServer::userName();
        site->remotePath = u"www/"_s;
        site->deployBranch = u"main"_s;
        TWPasswords::setPassword(test::FtpServer::password(), site->siteId());
        return site;
    }

    static void store(const SitePtr& site) {
        Sites().storeWithSites({site});
        Preferences::instance().setInteger(u"currentSiteIndex"_s, 0);
    }

    QString www() const { return m_ftp->homeFolder() + u"/www"_s; }

    struct Run {
        DeployOutcome outcome = DeployOutcome::Failed;
        QString message;
    };

    // Presses Deploy and waits for the end (after a success, the record is
    // on the server then).
    static Run deploy(ViewController& controller) {
        QSignalSpy ended(&controller, &ViewController::deploymentEnded);
        controller.deployButton();
        if (!QTest::qWaitFor([&] { return ended.count() > 0; }, 60000))
            return {DeployOutcome::Failed, u"no end within 60 s"_s};
        return {ended.first().at(0).value<DeployOutcome>(), ended.first().at(1).toString()};
    }

    QStringList putsSince(qsizetype before) const {
        QStringList puts;
        const QList<QByteArray> lines = readFile(m_ftp->transferLogPath()).mid(before).split('\n');
        for (const QByteArray& line : lines) {
            const qsizetype at = line.indexOf("\"PUT ");
            if (at >= 0) {
                const QByteArray path = line.mid(at + 5, line.indexOf(' ', at + 5) - at - 5);
                QByteArray name = path.mid(path.lastIndexOf("/www/") + 5);
                if (name.endsWith('"'))
                    name.chop(1);
                puts.append(QString::fromUtf8(name));
            }
        }
        puts.sort();
        return puts;
    }

private slots:
    void initTestCase() {
        test::TestEnvironment::isolate();
        qRegisterMetaType<DeployOutcome>();
        m_ftp = std::make_unique<test::FtpServer>();
    }

    void init() {
        TW_REQUIRE_SERVER(*m_ftp);
        test::TestEnvironment::resetPreferences();
        QDir(www()).removeRecursively();
        // The remote folder exists, as on a real server: a missing one makes
        // curl answer the record read with (9), which stops the deployment.
        QVERIFY(m_ftp->writeFile(u"www/.placeholder"_s, ""));
        QVERIFY(QFile::remove(www() + u"/.placeholder"_s));
    }

    void firstThenIncrementalDeployment() {
        test::GitRepository repo;
        repo.write(u"index.html"_s, "<h1>one</h1>");
        repo.write(u"old.html"_s, "old");
        repo.write(u"css/site.css"_s, "body{}");
        repo.write(u"a b#c%d.txt"_s, "odd name");
        const QString first = repo.commitAll(u"first"_s);
        store(ftpSite(repo));

        test::ScriptedDeployView view;
        ViewController controller(view);
        controller.viewDidLoad();
        QVERIFY(controller.files);
        QCOMPARE(controller.files->size(), 4);
        QVERIFY(view.deployButtonEnabled);
        QVERIFY(view.placeholder.contains(u"hasFilesToDeployWithStatus:true"_s));

        // No record on the server yet: a first deployment of every file.
        Run run = deploy(controller);
        QVERIFY2(run.outcome == DeployOutcome::Deployed, qPrintable(run.message));
        QVERIFY(view.alerts.isEmpty());
        QCOMPARE(tree(www()), (QStringList{u".tarnwell"_s, u"a b#c%d.txt"_s, u"css/site.css"_s,
                                           u"index.html"_s, u"old.html"_s}));
        QCOMPARE(readFile(www() + u"/index.html"_s), QByteArray("<h1>one</h1>"));
        const QList<QByteArray> record = readFile(www() + u"/.tarnwell"_s).split(',');
        QCOMPARE(record.size(), 3);
        QCOMPARE(QString::fromUtf8(record.at(0)), first);
        QCOMPARE(record.at(2), QByteArray("main"));
        QVERIFY(qAbs(record.at(1).toDouble() - QDateTime::currentSecsSinceEpoch()) < 120);
        QCOMPARE(view.progressTexts.first(), u"Preflight checks\u2026"_s);
        QVERIFY(view.progressTexts.contains(u"Uploading files\u2026"_s));
        QVERIFY(!ViewController::isUploading());

        // The site was saved with its last deployed commit, and the list is empty now.
        const SitePtr saved = Sites().loadAll()->first();
        QCOMPARE(saved->lastCommitDeployed->sha1, first);
        QVERIFY(saved->lastCommitDeployed->deployedWhen);
        QCOMPARE(controller.files->size(), 0);
        QCOMPARE(view.placeholder.last(), u"hasFilesToDeployWithStatus:false"_s);

        // A commit that modifies, adds and deletes: exactly those go.
        repo.write(u"index.html"_s, "<h1>two</h1>");
        repo.write(u"new.html"_s, "new");
        repo.remove(u"old.html"_s);
        const QString second = repo.commitAll(u"second"_s);
        controller.setupFileList();
        QCOMPARE(controller.files->size(), 3);
        const qsizetype logBefore = readFile(m_ftp->transferLogPath()).size();
        run = deploy(controller);
        QVERIFY2(run.outcome == DeployOutcome::Deployed, qPrintable(run.message));
        QCOMPARE(putsSince(logBefore), (QStringList{u".tarnwell"_s, u"index.html"_s, u"new.html"_s}));
        QCOMPARE(tree(www()), (QStringList{u".tarnwell"_s, u"a b#c%d.txt"_s, u"css/site.css"_s,
                                           u"index.html"_s, u"new.html"_s}));
        QCOMPARE(readFile(www() + u"/index.html"_s), QByteArray("<h1>two</h1>"));
        QVERIFY(readFile(www() + u"/.tarnwell"_s).startsWith(QByteArray(second.toUtf8() + ',')));
    }

    void mandatoryFilesSyncRootAndIgnoredFiles() {
        test::GitRepository repo;
        repo.write(u"public/index.html"_s, "index");
        repo.write(u"public/css/a.css"_s, "css");
        repo.write(u"public/assets/img/logo.svg"_s, "<svg/>");
        repo.write(u"public/.htaccess"_s, "deny");
        repo.write(u"src/app.js"_s, "js");
        repo.write(u"README.md"_s, "readme");
        repo.commitAll(u"first"_s);
        SitePtr site = ftpSite(repo);
        site->syncRootPath = u"public/"_s;
        site->ignoredFiles = std::make_shared<FileList>(FileList{File::initWithPath(u"public/css/"_s)});
        site->mandatoryFiles = std::make_shared<FileList>(
            FileList{File::initWithPath(u"public/.htaccess"_s), File::initWithPath(u"public/assets"_s)});
        store(site);

        test::ScriptedDeployView view;
        ViewController controller(view);
        controller.viewDidLoad();
        {
            const Run r = deploy(controller);
            QVERIFY2(r.outcome == DeployOutcome::Deployed, qPrintable(r.message));
        }
        // Below the sync root only, without the ignored folder, mandatory
        // files and folders placed like the rest.
        QCOMPARE(tree(www()),
                 (QStringList{u".htaccess"_s, u".tarnwell"_s, u"assets/img/logo.svg"_s, u"index.html"_s}));

        // Mandatory files go every time, even when nothing else changed.
        QFile::remove(www() + u"/.htaccess"_s);
        QFile::remove(www() + u"/assets/img/logo.svg"_s);
        controller.setupFileList();
        QCOMPARE(controller.files->size(), 2); // the two always-uploaded entries
        {
            const Run r = deploy(controller);
            QVERIFY2(r.outcome == DeployOutcome::Deployed, qPrintable(r.message));
        }
        QVERIFY(QFile::exists(www() + u"/.htaccess"_s));
        QVERIFY(QFile::exists(www() + u"/assets/img/logo.svg"_s));
    }

    void serverRecordQuestions_data() {
        QTest::addColumn<QString>("record"); // %1 newest, %2 middle, %3 oldest commit
        QTest::addColumn<QString>("answer");
        QTest::addColumn<QString>("question");
        QTest::addColumn<bool>("deploys");
        const QString otherBranch = u"Target site was last deployed with a different branch"_s;
        const QString unknown =
            u"Last deployed commit on target site is unknown. Are you sure to continue?"_s;
        QTest::newRow("other branch, cancel") << u"%1,100.0,other"_s << u"Cancel"_s << otherBranch << false;
        QTest::newRow("record without branch, force") << u"%1"_s << u"Force deploy"_s << otherBranch << true;
        QTest::newRow("later, yes")
            << u"%1,100.0,main"_s << u"Yes"_s
            << u"Last deployed commit on target site is later. Are you sure to continue?"_s << true;
        QTest::newRow("earlier, no, use mine")
            << u"%3,100.0,main"_s << u"No, use mine"_s << u"Last commit on target site is earlier"_s << true;
        QTest::newRow("unknown, force") << u"deadbee,100.0,main"_s << u"Force deploy"_s << unknown << true;
        QTest::newRow("hostile id, cancel")
            << u"$(touch pwned),100.0,main"_s << u"Cancel"_s << unknown << false;
        QTest::newRow("same commit: no question") << u"%2,100.0,main"_s << QString() << QString() << true;
    }

    void serverRecordQuestions() {
        QFETCH(QString, record);
        QFETCH(QString, answer);
        QFETCH(QString, question);
        QFETCH(bool, deploys);

        test::GitRepository repo;
        repo.write(u"a.txt"_s, "1");
        const QString oldest = repo.commitAll(u"one"_s);
        repo.write(u"b.txt"_s, "2");
        const QString middle = repo.commitAll(u"two"_s);
        repo.write(u"c.txt"_s, "3");
        const QString newest = repo.commitAll(u"three"_s);
        const auto fill = [&](QString text) {
            return text.replace(u"%1"_s, newest).replace(u"%2"_s, middle).replace(u"%3"_s, oldest);
        };
        SitePtr site = ftpSite(repo);
        site->lastCommitDeployed = std::make_shared<Commit>();
        site->lastCommitDeployed->sha1 = middle;
        store(site);
        QVERIFY(m_ftp->writeFile(u"www/.tarnwell"_s, fill(record).toUtf8()));

        test::ScriptedDeployView view;
        if (!answer.isEmpty())
            view.answers = {answer};
        ViewController controller(view);
        controller.viewDidLoad();
        QCOMPARE(controller.files->size(), 1); // c.txt, changed since the middle commit
        const Run run = deploy(controller);
        if (question.isEmpty()) {
            QVERIFY(view.alerts.isEmpty());
        } else {
            QCOMPARE(view.messages(), QStringList{question});
            QVERIFY(view.progressClosed >= 1);
        }
        QCOMPARE(run.outcome == DeployOutcome::Deployed, deploys);
        if (!deploys) {
            QVERIFY(!QFile::exists(www() + u"/c.txt"_s));
            QCOMPARE(readFile(www() + u"/.tarnwell"_s), fill(record).toUtf8());
        } else {
            QCOMPARE(tree(www()), (QStringList{u".tarnwell"_s, u"c.txt"_s}));
            QVERIFY(readFile(www() + u"/.tarnwell"_s).startsWith(QByteArray(newest.toUtf8() + ",")));
            QCOMPARE(Sites().loadAll()->first()->lastCommitDeployed->sha1, newest);
        }
        QVERIFY(!QFile::exists(repo.path() + u"/pwned"_s));
    }

    void failingLocalScriptStopsBeforeTransfers() {
        test::GitRepository repo;
        repo.write(u"index.html"_s, "x");
        repo.commitAll(u"first"_s);
        SitePtr site = ftpSite(repo);
        site->preDeployScriptLocal = u"echo preparing\nexit 3"_s;
        store(site);

        test::ScriptedDeployView view;
        view.answers = {u"Show log\u2026"_s};
        ViewController controller(view);
        controller.viewDidLoad();
        const Run run = deploy(controller);
        QCOMPARE(int(run.outcome), int(DeployOutcome::ScriptFailed));
        QCOMPARE(view.messages(), QStringList{u"An error occured when running script"_s});
        QCOMPARE(view.alerts.first().informativeText, u"Check the log file for syntax errors and such."_s);
        QTRY_COMPARE(view.openedFolders, QStringList{Logger::sharedInstance().logDirectory()});
        QVERIFY(view.progressTexts.contains(u"Running local scripts\u2026"_s));
        QVERIFY(!view.progressTexts.contains(u"Uploading files\u2026"_s));
        QVERIFY(!QFile::exists(www() + u"/index.html"_s));
        QVERIFY(ViewController::isUploading());
    }

    void failedUploadWritesNoRecord() {
        test::GitRepository repo;
        repo.write(u"index.html"_s, "x");
        repo.commitAll(u"first"_s);
        store(ftpSite(repo));
        QVERIFY(m_ftp->writeFile(u"www/keep"_s, ""));
        QVERIFY(m_ftp->makeUnwritable(u"www"_s));

        test::ScriptedDeployView view;
        ViewController controller(view);
        controller.viewDidLoad();
        const Run run = deploy(controller);
        QCOMPARE(int(run.outcome), int(DeployOutcome::Failed));
        QCOMPARE(view.messages().first(), u"An error occured!"_s);
        QVERIFY2(view.alerts.first().informativeText.contains(u"curl: (25)"_s),
                 qPrintable(view.alerts.first().informativeText));
        QCOMPARE(controller.files->first()->status, u"ERROR"_s);
        QTest::qWait(700);
        QVERIFY(!QFile::exists(www() + u"/.tarnwell"_s));
        QVERIFY(!QFile::exists(www() + u"/index.html"_s));
        QVERIFY(!Sites().loadAll()->first()->lastCommitDeployed);
    }

    void abortStopsEveryCurl() {
        test::GitRepository repo;
        for (int i = 0; i < 600; ++i)
            repo.write(u"files/f%1.txt"_s.arg(i), QByteArray(512, 'x'));
        repo.commitAll(u"many"_s);
        store(ftpSite(repo));

        test::ScriptedDeployView view;
        ViewController controller(view);
        controller.viewDidLoad();
        QSignalSpy ended(&controller, &ViewController::deploymentEnded);
        bool aborted = false;
        QObject context;
        connect(&NotificationHub::instance(), &NotificationHub::remainingStatus, &context,
                [&](const QVariantMap&) {
                    if (!aborted && runningCurlChildren() > 0) {
                        aborted = true;
                        view.progressDelegate->abortDeploy();
                    }
                });
        controller.deployButton();
        QTRY_VERIFY_WITH_TIMEOUT(ended.count() > 0, 60000);
        QVERIFY(aborted);
        QCOMPARE(int(ended.first().at(0).value<DeployOutcome>()), int(DeployOutcome::Aborted));
        QTRY_COMPARE(runningCurlChildren(), 0);
        QTest::qWait(800);
        QCOMPARE(ended.count(), 1);
        QVERIFY(!QFile::exists(www() + u"/.tarnwell"_s));
        QVERIFY(tree(www()).size() < 600);
        QVERIFY(ViewController::isUploading());
    }

    void remoteScriptsRunForSftpSitesOnly() {
        test::SshServer ssh;
        TW_REQUIRE_SERVER(ssh);
        test::GitRepository repo;
        repo.write(u"index.html"_s, "sftp");
        repo.commitAll(u"first"_s);
        const QString markers = ssh.remoteFolder();

        // An FTP site with remote scripts filled in runs none of them.
        SitePtr ftp = ftpSite(repo);
        ftp->remotePreConnectionString = ssh.connectionString();
        ftp->preDeployScriptRemote = u"touch "_s + markers + u"/ftp-pre"_s;
        ftp->remotePostConnectionString = ssh.connectionString();
        ftp->postDeployScriptRemote = u"touch "_s + markers + u"/ftp-post"_s;
        store(ftp);
        {
            test::ScriptedDeployView view;
            ViewController controller(view);
            controller.viewDidLoad();
            {
                const Run r = deploy(controller);
                QVERIFY2(r.outcome == DeployOutcome::Deployed, qPrintable(r.message));
            }
        }
        QVERIFY(!QFile::exists(markers + u"/ftp-pre"_s));
        QVERIFY(!QFile::exists(markers + u"/ftp-post"_s));

        SitePtr site = Site::newSite();
        site->name = u"Secure"_s;
        site->protocol = u"SFTP"_s;
        site->localPath = repo.path();
        site->host = test::SshServer::host();
        site->port = QString::number(ssh.port());
        site->username = test::SshServer::userName();
        site->sshKeyPath = ssh.encryptedKeyPath();
        site->remotePath = u"~/www/"_s;
        site->deployBranch = u"main"_s;
        site->remotePreConnectionString = ssh.connectionString();
        site->preDeployScriptRemote = u"cd "_s + markers + u"\ntouch pre-ran"_s;
        site->remotePostConnectionString = ssh.connectionString();
        site->postDeployScriptRemote =
            u"test -f "_s + markers + u"/www/index.html && touch "_s + markers + u"/post-ran"_s;
        TWPasswords::setPassphrase(test::SshServer::passphrase(), site->siteId());
        store(site);
        test::ScriptedDeployView view;
        ViewController controller(view);
        controller.viewDidLoad();
        const Run run = deploy(controller);
        QVERIFY2(run.outcome == DeployOutcome::Deployed, qPrintable(run.message));
        QVERIFY(view.progressTexts.contains(u"Running remote scripts\u2026"_s));
        QVERIFY(view.progressTexts.contains(u"Running remote post-scripts\u2026"_s));
        QVERIFY(QFile::exists(markers + u"/pre-ran"_s));
        QVERIFY(QFile::exists(markers + u"/post-ran"_s));
        QCOMPARE(readFile(markers + u"/www/index.html"_s), QByteArray("sftp"));
        QVERIFY(readFile(markers + u"/www/.tarnwell"_s).endsWith(",main"));
    }
};

QTEST_GUILESS_MAIN(TestDeployEndToEnd)
#include "tst_deploy_e2e.moc"
