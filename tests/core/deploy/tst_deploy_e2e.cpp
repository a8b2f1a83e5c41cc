#include "DeploySites.h"
#include "TestEnvironment.h"
#include "Traces.h"
#include "deploy/NotificationHub.h"
#include "git/CommitExport.h"
#include "keychain/TWPasswords.h"
#include "model/Sites.h"

#include <QDir>
#include <QFile>
#include <QFileInfo>
#include <QJsonArray>
#include <QJsonDocument>
#include <QJsonObject>
#include <QMap>
#include <QTest>

using namespace tw;
using namespace Qt::StringLiterals;
using test::readFile;
using test::tree;

namespace {

// Names a web site may well have, and that git, curl or the servers would
// quote, cut or misread.
const QStringList oddNames{u"caf\u00e9.html"_s,     u"\u65e5\u672c\u8a9e/\u7d22\u5f15.html"_s,
                           u"with space.html"_s,    u"quote\"d.html"_s,
                           u"back\\slash.html"_s,   u"hash#and%25.html"_s,
                           u"what?and&.html"_s,     u"[brackets].html"_s,
                           u"-leading-dash.html"_s, u".well-known/security.txt"_s};

} // namespace

// Whole deployments, from the Deploy button to the record on the server,
// against real servers, real repositories and a real keyring.
class TestDeployEndToEnd : public QObject {
    Q_OBJECT

    std::unique_ptr<test::FtpServer> m_ftp;
    std::unique_ptr<test::SshServer> m_ssh;

    QString www() const { return m_ftp->homeFolder() + u"/www"_s; }

    // The files below the folder written since the time.
    static QStringList writtenSince(const QString& folder, const QDateTime& since) {
        QStringList written;
        for (const QString& path : tree(folder)) {
            if (QFileInfo(folder + u'/' + path).lastModified() >= since)
                written.append(path);
        }
        return written;
    }

    // The site as an import gives it: its always-uploaded entries unchecked
    // list entries, its last deployed commit empty.
    SitePtr importedSite(const test::GitRepository& repo, bool sftp) const {
        const auto entry = [](const QString& path) {
            return QString::fromUtf8(QJsonDocument(QJsonObject{{u"name"_s, path.section(u'/', -1)},
                                                               {u"pathWithFilename"_s, path},
                                                               {u"pathOnly"_s, QString()},
                                                               {u"status"_s, QJsonValue()}})
                                         .toJson());
        };
        QJsonObject json{
            {u"name"_s, u"Shop"_s},
            {u"localPath"_s, repo.path()},
            {u"host"_s, u"127.0.0.1"_s},
            {u"syncRootPath"_s, u"dist"_s},
            {u"deployBranch"_s, u"main"_s},
            {u"lastCommitDeployed"_s, QJsonValue()},
            {u"mandatoryFiles"_s, QJsonArray{entry(u"dist/build/app.js"_s), entry(u"dist/generated"_s)}},
            {u"ignoredFiles"_s, QJsonArray{entry(u"dist/drafts/"_s)}},
            {u"preDeployScriptLocal"_s, u"mkdir -p dist/build dist/generated/deep\n"
                                        u"echo built > dist/build/app.js\n"
                                        u"echo made > dist/generated/deep/out.txt\n"_s},
        };
        if (sftp) {
            json.insert(u"protocol"_s, u"SFTP"_s);
            json.insert(u"port"_s, QString::number(m_ssh->port()));
            json.insert(u"username"_s, test::SshServer::userName());
            json.insert(u"sshKeyPath"_s, m_ssh->keyPath());
            json.insert(u"remotePath"_s, u"~/deep/www/"_s);
            // Remote scripts run whole, before and after the transfers.
            json.insert(u"remotePreConnectionString"_s, m_ssh->connectionString());
            json.insert(u"preDeployScriptRemote"_s,
                        QString(u"cd "_s + m_ssh->remoteFolder() +
                                u"\n\nif [ ! -e deep/www/index.html ]; then\n  touch pre-ran\nfi\n"_s));
            json.insert(u"remotePostConnectionString"_s, m_ssh->connectionString());
            json.insert(u"postDeployScriptRemote"_s,
                        QString(u"cd "_s + m_ssh->remoteFolder() +
                                u" && test -f deep/www/index.html && touch post-ran"_s));
        } else {
            json.insert(u"protocol"_s, u"FTP"_s);
            json.insert(u"port"_s, QString::number(m_ftp->port()));
            json.insert(u"username"_s, test::FtpServer::userName());
            json.insert(u"remotePath"_s, u"deep/www/"_s);
        }
        SitePtr site = Site::initWithDict(json);
        site->generateSiteId();
        if (!sftp)
            TWPasswords::setPassword(test::FtpServer::password(), site->siteId());
        return site;
    }

    // What the server's folder must hold: every committed file below dist/
    // but the drafts, as committed, and the built files.
    static QMap<QString, QByteArray> expected(const test::GitRepository& repo) {
        QMap<QString, QByteArray> files;
        for (const QString& path : repo.git({u"ls-files"_s, u"-z"_s}).split(QChar(0), Qt::SkipEmptyParts)) {
            if (!path.startsWith(u"dist/"_s) || path.startsWith(u"dist/drafts/"_s))
                continue;
            // (No committed file here ends in a blank, which git() would trim.)
            files.insert(path.mid(5), repo.git({u"cat-file"_s, u"blob"_s, u"HEAD:"_s + path}).toUtf8());
        }
        files.insert(u"build/app.js"_s, "built\n");
        files.insert(u"generated/deep/out.txt"_s, "made\n");
        return files;
    }

    static QMap<QString, QByteArray> onServer(const QString& folder) {
        QMap<QString, QByteArray> files;
        for (const QString& path : test::tree(folder)) {
            if (path != u".tarnwell"_s)
                files.insert(path, test::readFile(folder + u'/' + path));
        }
        return files;
    }

private slots:
    void initTestCase() {
        test::TestEnvironment::isolate();
        m_ftp = std::make_unique<test::FtpServer>();
        m_ssh = std::make_unique<test::SshServer>();
    }

    void init() {
        TW_REQUIRE_SERVER(*m_ftp);
        test::TestEnvironment::resetPreferences();
        // The remote folder exists, as on a real server: a missing one makes
        // curl answer the record read with (9), which stops the deployment.
        QVERIFY(m_ftp->emptyFolder(u"www"_s));
    }

    // The answers to the questions about the server's record, against a real
    // server: each deploys or sends nothing as it says, and a record's text
    // never reaches a shell.
    void serverRecordQuestions_data() {
        QTest::addColumn<QString>("record"); // %1 newest, %2 middle, %3 oldest commit
        QTest::addColumn<QString>("answer");
        QTest::addColumn<bool>("deploys");
        QTest::newRow("other branch, cancel") << u"%1,100.0,other"_s << u"Cancel"_s << false;
        QTest::newRow("record without branch, force") << u"%1"_s << u"Force deploy"_s << true;
        QTest::newRow("later, yes") << u"%1,100.0,main"_s << u"Yes"_s << true;
        QTest::newRow("earlier, no, use mine") << u"%3,100.0,main"_s << u"No, use mine"_s << true;
        QTest::newRow("hostile id, cancel") << u"$(touch pwned),100.0,main"_s << u"Cancel"_s << false;
        QTest::newRow("same commit: no question") << u"%2,100.0,main"_s << QString() << true;
    }

    void serverRecordQuestions() {
        QFETCH(QString, record);
        QFETCH(QString, answer);
        QFETCH(bool, deploys);
        test::GitRepository repo;
        const QString oldest = repo.commit({{u"a.txt"_s, "1"}}, u"one"_s);
        const QString middle = repo.commit({{u"b.txt"_s, "2"}}, u"two"_s);
        const QString newest = repo.commit({{u"c.txt"_s, "3"}}, u"three"_s);
        record.replace(u"%1"_s, newest).replace(u"%2"_s, middle).replace(u"%3"_s, oldest);
        SitePtr site = test::ftpSite(repo, *m_ftp);
        site->lastCommitDeployed = std::make_shared<Commit>();
        site->lastCommitDeployed->sha1 = middle;
        test::storeSites({site});
        QVERIFY(m_ftp->writeFile(u"www/.tarnwell"_s, record.toUtf8()));

        test::DeployWindow window;
        if (!answer.isEmpty())
            window.view.answers = {answer};
        QCOMPARE(window.controller.files->size(), 1); // c.txt, changed since the middle commit
        const test::DeployAttempt run = window.deploy();
        QCOMPARE(window.view.alerts.size(), answer.isEmpty() ? 0 : 1);
        QCOMPARE(run.deployed(), deploys);
        if (!deploys) {
            QVERIFY(!QFile::exists(www() + u"/c.txt"_s));
            QCOMPARE(readFile(www() + u"/.tarnwell"_s), record.toUtf8());
        } else {
            QCOMPARE(tree(www()), (QStringList{u".tarnwell"_s, u"c.txt"_s}));
            QVERIFY(readFile(www() + u"/.tarnwell"_s).startsWith(QByteArray(newest.toUtf8() + ",")));
            QCOMPARE(Sites().loadAll()->first()->lastCommitDeployed->sha1, newest);
        }
        QVERIFY(!QFile::exists(repo.path() + u"/pwned"_s));
    }

    void serverHoldsTheCommit_data() {
        QTest::addColumn<bool>("sftp");
        QTest::newRow("FTP") << false;
        QTest::newRow("SFTP") << true;
    }

    // After a successful deployment the server holds, file for file and byte
    // for byte, the deployed commit (within the sync root, without ignored
    // files) and the always-uploaded paths, whatever the names, the working
    // folder's uncommitted edits and the remote folder's absence before; the
    // record names the commit and the branch. An incremental deployment
    // sends what changed and the always-uploaded paths, nothing else. Over
    // SFTP, remote scripts run around the transfers.
    void serverHoldsTheCommit() {
        QFETCH(bool, sftp);
        TW_REQUIRE_SERVER(*m_ssh);
        const QString www =
            sftp ? m_ssh->remoteFolder() + u"/deep/www"_s : m_ftp->homeFolder() + u"/deep/www"_s;
        QDir(sftp ? m_ssh->remoteFolder() + u"/deep"_s : m_ftp->homeFolder() + u"/deep"_s)
            .removeRecursively();

        test::GitRepository repo;
        for (const QString& name : oddNames) {
            // pure-ftpd refuses a backslash in a name (553); sshd takes it.
            if (sftp || !name.contains(u'\\'))
                repo.write(u"dist/"_s + name, name.toUtf8());
        }
        const QString first = repo.commit({{u"dist/index.html"_s, "committed index"},
                                           {u"dist/dist/nested.html"_s, "a folder named like the sync root"},
                                           {u"dist/vendor/bootstrap/dist/css/bootstrap.css"_s, "css"},
                                           {u"dist/drafts/secret.html"_s, "ignored"},
                                           {u"distribution/not-deployed.html"_s, "beside the sync root"},
                                           {u"README.md"_s, "outside"},
                                           {u".gitignore"_s, "dist/build/\ndist/generated/\n"}});
        repo.write(u"dist/index.html"_s, "edited, not committed");

        test::DeployWindow window({importedSite(repo, sftp)});
        test::DeployAttempt attempt = window.deploy();
        QVERIFY2(attempt.deployed(), qPrintable(attempt.message));
        QCOMPARE(onServer(www), expected(repo));
        if (sftp) {
            QVERIFY(QFile::exists(m_ssh->remoteFolder() + u"/pre-ran"_s));
            QVERIFY(QFile::exists(m_ssh->remoteFolder() + u"/post-ran"_s));
        }
        const QList<QByteArray> record = readFile(www + u"/.tarnwell"_s).split(',');
        QCOMPARE(record, (QList<QByteArray>{first.toUtf8(), record.value(1), "main"}));
        QVERIFY(qAbs(record.value(1).toDouble() - QDateTime::currentSecsSinceEpoch()) < 120);
        const QDateTime before = QDateTime::fromSecsSinceEpoch(1000);
        for (const QString& path : tree(www)) {
            QFile file(www + u'/' + path);
            QVERIFY(file.open(QIODevice::Append));
            QVERIFY(file.setFileTime(before, QFileDevice::FileModificationTime));
        }

        // The next commit changes, deletes and adds odd names; the edit stays
        // uncommitted.
        repo.write(u"dist/"_s + oddNames.at(0), "changed");
        repo.remove(u"dist/"_s + oddNames.at(3));
        repo.write(u"dist/new one#2.html"_s, "new");
        repo.git(
            {u"add"_s, u"-A"_s, u"dist/caf\u00e9.html"_s, u"dist/quote\"d.html"_s, u"dist/new one#2.html"_s});
        repo.git({u"commit"_s, u"-q"_s, u"-m"_s, u"second"_s});
        const QString second = repo.head();
        window.controller.setupFileList();
        attempt = window.deploy();
        QVERIFY2(attempt.deployed(), qPrintable(attempt.message));
        QCOMPARE(onServer(www), expected(repo));
        // Only what the commit changed, and the always-uploaded paths again.
        QCOMPARE(writtenSince(www, before.addSecs(60)),
                 (QStringList{u".tarnwell"_s, u"build/app.js"_s, u"caf\u00e9.html"_s,
                              u"generated/deep/out.txt"_s, u"new one#2.html"_s}));
        QVERIFY(test::readFile(www + u"/.tarnwell"_s).startsWith(QByteArray(second.toUtf8() + ',')));
        QCOMPARE(Sites().loadAll()->first()->lastCommitDeployed->sha1, second);
    }

    // An abort stops every curl at once, writes no record and removes the
    // private export of the commit.
    void abortStopsEveryCurl() {
        test::GitRepository repo;
        for (int i = 0; i < 600; ++i)
            repo.write(u"files/f%1.txt"_s.arg(i), QByteArray(512, 'x'));
        repo.commitAll(u"many"_s);
        test::storeSites({test::ftpSite(repo, *m_ftp)});

        test::DeployWindow window;
        bool aborted = false;
        QObject context;
        connect(&NotificationHub::instance(), &NotificationHub::remainingStatus, &context,
                [&](const QVariantMap&) {
                    if (!aborted && !test::curlDescendants().isEmpty()) {
                        aborted = true;
                        window.view.progressDelegate->abortDeploy();
                    }
                });
        const auto exports = [] {
            QStringList found;
            for (const QString& place : CommitExport::places())
                found += QDir(place).entryList({CommitExport::folderPrefix() + u'*'}, QDir::AllEntries);
            return found;
        };
        QStringList duringTheRun;
        connect(&window.controller, &ViewController::progressChanged, &context, [&](qsizetype done) {
            if (done == 0)
                duringTheRun = exports();
        });
        QCOMPARE(int(window.deploy().outcome), int(DeployOutcome::Aborted));
        QVERIFY(aborted);
        QCOMPARE(duringTheRun.size(), 1);
        QTRY_COMPARE(exports(), QStringList());
        QTRY_COMPARE(test::curlDescendants(), QList<qint64>());
        QTest::qWait(800);
        QCOMPARE(window.ended.count(), 1);
        QVERIFY(!QFile::exists(www() + u"/.tarnwell"_s));
        QVERIFY(tree(www()).size() < 600);
        QVERIFY(ViewController::isUploading());
    }
};

QTEST_GUILESS_MAIN(TestDeployEndToEnd)
#include "tst_deploy_e2e.moc"
