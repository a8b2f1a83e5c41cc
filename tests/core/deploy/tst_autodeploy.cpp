#include "DeploySites.h"
#include "Inspection.h"
#include "TestEnvironment.h"

#include <QFile>
#include <QTest>

using namespace tw;
using namespace Qt::StringLiterals;

// Automatic deployment when HEAD moves: real repository, real watcher, real
// FTP server.
class TestAutoDeploy : public QObject {
    Q_OBJECT

    std::unique_ptr<test::FtpServer> m_ftp;
    std::unique_ptr<test::GitRepository> m_repo;
    std::unique_ptr<test::DeployWindow> m_window;

    QString record() const {
        return QString::fromUtf8(test::readFile(m_ftp->homeFolder() + u"/.tarnwell"_s));
    }
    bool waitForDeployment(int count) { return m_window->waitForEnd(count).deployed(); }

private slots:
    void initTestCase() {
        test::TestEnvironment::isolate();
        m_ftp = std::make_unique<test::FtpServer>();
        TW_REQUIRE_SERVER(*m_ftp);

        m_repo = std::make_unique<test::GitRepository>();
        m_repo->commit({{u"index.html"_s, "one"}});
        SitePtr site = test::ftpSite(*m_repo, *m_ftp, QString()); // to the FTP home
        site->autoDeploy = true;
        test::storeSites({site});
        m_window = std::make_unique<test::DeployWindow>();
        QCOMPARE(m_window->controller.fileWatcherQueue->numberOfWatchedPaths(), 1);
    }

    void cleanupTestCase() { m_window.reset(); }

    void commitOnTheDeployBranchDeploys() {
        const QString head = m_repo->commit({{u"index.html"_s, "two"}}, u"second"_s);
        QVERIFY(waitForDeployment(1));
        QTRY_VERIFY(record().startsWith(head + u","_s));
        QCOMPARE(test::readFile(m_ftp->homeFolder() + u"/index.html"_s), QByteArray("two"));
    }

    // git writes HEAD's reflog before it moves the branch: a deployment
    // started on the reflog's change alone would deploy the old commit again
    // and miss the new one. Nothing starts while the branch is locked.
    void reflogBeforeTheBranchMovesWaitsForTheBranch() {
        const int before = static_cast<int>(m_window->ended.count());
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
        QCOMPARE(m_window->ended.count(), before);
        QVERIFY(!m_window->controller.isDeploying());

        QVERIFY(QFile::remove(ref));
        QVERIFY(QFile::rename(ref + u".lock"_s, ref));
        QVERIFY(waitForDeployment(before + 1));
        QTRY_VERIFY2(record().startsWith(commit.left(7) + u","_s), qPrintable(record()));
        QCOMPARE(m_window->ended.count(), before + 1);
    }
};

QTEST_GUILESS_MAIN(TestAutoDeploy)
#include "tst_autodeploy.moc"
