#include "FtpServer.h"
#include "GitRepository.h"
#include "ScriptedDeployView.h"
#include "ServerProcess.h"
#include "TestEnvironment.h"
#include "app/Preferences.h"
#include "deploy/ViewController.h"
#include "keychain/TWPasswords.h"
#include "model/Sites.h"

#include <QDir>
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

    void attributeChangesAndOtherBranchesDoNotDeploy() {
        const int listings = m_view->filesChanges;
        QFile::setPermissions(m_repo->path() + u"/.git/logs/HEAD"_s,
                              QFile::ReadOwner | QFile::WriteOwner | QFile::ReadGroup);
        test::runProgram(u"/usr/bin/touch"_s, {m_repo->path() + u"/.git/logs/HEAD"_s});
        QTest::qWait(1500);
        QCOMPARE(m_view->filesChanges, listings);

        m_repo->git({u"checkout"_s, u"-q"_s, u"-b"_s, u"other"_s});
        m_repo->write(u"index.html"_s, "other branch");
        m_repo->commitAll(u"elsewhere"_s);
        QTRY_COMPARE(m_view->placeholder.last(), u"wrongBranchIsSelectedWith:A non-deployment branch:main"_s);
        QVERIFY(m_view->filesChanges > listings);
        QTest::qWait(1000);
        QCOMPARE(m_ended->count(), 1);
        m_repo->git({u"checkout"_s, u"-q"_s, u"main"_s});
        QTest::qWait(1000);
        QCOMPARE(m_ended->count(), 1); // nothing changed since the last deployment
    }

    void writesDuringADeploymentAreDropped() {
        m_repo->write(u"index.html"_s, "three");
        m_repo->commitAll(u"third"_s);
        QTRY_VERIFY(m_controller->isDeploying);
        m_repo->write(u"index.html"_s, "four");
        m_repo->commitAll(u"fourth, during the deployment"_s);
        QVERIFY(waitForDeployment(2));
        // The commit made during the run started nothing of its own.
        QTest::qWait(1500);
        QCOMPARE(m_ended->count(), 2);
    }

    void stillWatchingAfterGitReplacesTheReflog() {
        m_repo->git({u"reflog"_s, u"expire"_s, u"--expire=now"_s, u"--all"_s});
        m_repo->git({u"gc"_s, u"-q"_s});
        QTest::qWait(500);
        const int before = m_ended->count();
        m_repo->write(u"index.html"_s, "after gc");
        const QString head = m_repo->commitAll(u"after gc"_s);
        QVERIFY(waitForDeployment(before + 1));
        QTRY_VERIFY(record().startsWith(head + u","_s));
    }
};

QTEST_GUILESS_MAIN(TestAutoDeploy)
#include "tst_autodeploy.moc"
