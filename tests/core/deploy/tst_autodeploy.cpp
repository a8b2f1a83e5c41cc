#include "FtpServer.h"
#include "GitRepository.h"
#include "ScriptedDeployView.h"
#include "ServerProcess.h"
#include "TestEnvironment.h"
#include "app/Preferences.h"
#include "deploy/ViewController.h"
#include "keychain/TWPasswords.h"
#include "model/Sites.h"

#include <QFile>
#include <QSignalSpy>
#include <QTest>

using namespace tw;
using namespace Qt::StringLiterals;

// Automatic deployment when HEAD moves: real repository, real watcher, real
// FTP server.
class TestAutoDeploy : public QObject {
    Q_OBJECT

    std::unique_ptr<test::FtpServer> m_ftp;
    std::unique_ptr<test::GitRepository> m_repo;
    std::unique_ptr<test::ScriptedDeployView> m_view;
    std::unique_ptr<ViewController> m_controller;
    std::unique_ptr<QSignalSpy> m_ended;

    QString record() const {
        QFile file(m_ftp->homeFolder() + u"/.tarnwell"_s);
        return file.open(QIODevice::ReadOnly) ? QString::fromUtf8(file.readAll()) : QString();
    }

    bool waitForDeployment(int count) {
        if (!QTest::qWaitFor([&] { return m_ended->count() >= count; }, 30000))
            return false;
        return m_ended->at(count - 1).at(0).value<DeployOutcome>() == DeployOutcome::Deployed;
    }

private slots:
    void initTestCase() {
        test::TestEnvironment::isolate();
        qRegisterMetaType<DeployOutcome>();
        m_ftp = std::make_unique<test::FtpServer>();
        TW_REQUIRE_SERVER(*m_ftp);

        m_repo = std::make_unique<test::GitRepository>();
        m_repo->write(u"index.html"_s, "one");
        m_repo->commitAll(u"first"_s);
        SitePtr site = Site::newSite();
        site->name = u"Auto"_s;
        site->localPath = m_repo->path();
        site->host = test::FtpServer::host();
        site->port = QString::number(m_ftp->port());
        site->username = test::FtpServer::userName();
        site->remotePath = QString(); // the FTP home
        site->deployBranch = u"main"_s;
        site->autoDeploy = true;
        TWPasswords::setPassword(test::FtpServer::password(), site->siteId());
        Sites().storeWithSites({site});

        m_view = std::make_unique<test::ScriptedDeployView>();
        m_controller = std::make_unique<ViewController>(*m_view);
        m_ended = std::make_unique<QSignalSpy>(m_controller.get(), &ViewController::deploymentEnded);
        m_controller->viewDidLoad();
        QCOMPARE(m_controller->fileWatcherQueue->numberOfWatchedPaths(), 1);
    }

    void cleanupTestCase() {
        m_controller.reset();
        m_view.reset();
    }

    void commitOnTheDeployBranchDeploys() {
        m_repo->write(u"index.html"_s, "two");
        const QString head = m_repo->commitAll(u"second"_s);
        QVERIFY(waitForDeployment(1));
        QTRY_VERIFY(record().startsWith(head + u","_s));
        QFile page(m_ftp->homeFolder() + u"/index.html"_s);
        QVERIFY(page.open(QIODevice::ReadOnly));
        QCOMPARE(page.readAll(), QByteArray("two"));
    }

    // git writes HEAD's reflog before it moves the branch: a deployment
    // started on the reflog's change alone would deploy the old commit again
    // and miss the new one. Nothing starts while the branch is locked.
    void reflogBeforeTheBranchMovesWaitsForTheBranch() {
        const int before = static_cast<int>(m_ended->count());
        m_repo->write(u"index.html"_s, "three");
        m_repo->git({u"add"_s, u"-A"_s});
        const QString tree = m_repo->git({u"write-tree"_s}).trimmed();
        const QString old = m_repo->git({u"rev-parse"_s, u"HEAD"_s}).trimmed();
        const QString commit =
            m_repo->git({u"commit-tree"_s, tree, u"-p"_s, old, u"-m"_s, u"third"_s}).trimmed();
        const QString ref = m_repo->path() + u"/.git/refs/heads/main"_s;
        QFile lock(ref + u".lock"_s);
        QVERIFY(lock.open(QIODevice::WriteOnly));
        lock.write(commit.toUtf8() + '\n');
        lock.close();
        QFile reflog(m_repo->path() + u"/.git/logs/HEAD"_s);
        QVERIFY(reflog.open(QIODevice::Append));
        reflog.write(
            QString(old + u' ' + commit + u" T <t@example.com> 1 +0000\tcommit: third\n"_s).toUtf8());
        reflog.close();

        QTest::qWait(1500);
        QCOMPARE(m_ended->count(), before);
        QVERIFY(!m_controller->isDeploying());

        QVERIFY(QFile::remove(ref));
        QVERIFY(QFile::rename(ref + u".lock"_s, ref));
        QVERIFY(waitForDeployment(before + 1));
        QTRY_VERIFY2(record().startsWith(commit.left(7) + u","_s), qPrintable(record()));
        QCOMPARE(m_ended->count(), before + 1);
    }
};

QTEST_GUILESS_MAIN(TestAutoDeploy)
#include "tst_autodeploy.moc"
