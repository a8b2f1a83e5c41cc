#include "CliRunner.h"
#include "ServerProcess.h"
#include "TestEnvironment.h"
#include "Traces.h"

#include <QFile>
#include <QJsonArray>
#include <QJsonObject>
#include <QTest>

#include <csignal>

using namespace tw;
using namespace Qt::StringLiterals;

// tarnwell-cli as scripts and people use it over time: interrupted, watching
// a repository, testing the connection, naming a site that is not the
// current one.
class TestCliSessions : public QObject {
    Q_OBJECT

    std::unique_ptr<test::FtpServer> m_ftp;

    QString www() const { return m_ftp->homeFolder() + u"/www"_s; }
    QByteArray record() const { return test::readFile(www() + u"/.tarnwell"_s); }

private slots:
    void initTestCase() {
        test::TestEnvironment::isolate();
        m_ftp = std::make_unique<test::FtpServer>();
    }

    void init() {
        TW_REQUIRE_SERVER(*m_ftp);
        QVERIFY(m_ftp->emptyFolder(u"www"_s));
    }

    // Ctrl-C during a deployment: exit code 130, every curl stopped, no
    // record written.
    void interruptedDeployment() {
        test::CliRunner cli;
        test::GitRepository repo;
        for (int i = 0; i < 1500; ++i)
            repo.write(u"f/%1/file%2.txt"_s.arg(i % 30).arg(i), QByteArray(256, 'x'));
        repo.commitAll(u"many"_s);
        QCOMPARE(cli.addFtpSite(repo, *m_ftp, u"Blog"_s).exitCode, 0);

        const auto deploy = cli.start({u"deploy"_s, u"--quiet"_s});
        QVERIFY(QTest::qWaitFor([&] { return !test::curlsTalkingTo(m_ftp->port()).isEmpty(); }, 30000));
        ::kill(static_cast<pid_t>(deploy->processId()), SIGINT);
        QVERIFY(deploy->waitForFinished(30000));
        QCOMPARE(deploy->exitStatus(), QProcess::NormalExit);
        QCOMPARE(deploy->exitCode(), 130);
        QVERIFY(QString::fromUtf8(deploy->readAllStandardError()).contains(u"Interrupted"_s));
        QCOMPARE(test::curlsTalkingTo(m_ftp->port()), QList<qint64>());
        QVERIFY(!QFile::exists(www() + u"/.tarnwell"_s));
    }

    // watch deploys every commit, also the one after a deployment that has
    // just ended, and stops on Ctrl-C with exit code 0.
    void watchDeploysEveryCommit() {
        test::CliRunner cli;
        test::GitRepository repo;
        repo.commit({{u"index.html"_s, "one"}}, u"one"_s);
        QCOMPARE(cli.addFtpSite(repo, *m_ftp, u"Blog"_s, u"www/"_s, {u"--auto-deploy"_s}).exitCode, 0);

        const auto watch = cli.start({u"watch"_s, u"--quiet"_s});
        QByteArray output;
        QVERIFY2(cli.waitForOutput(*watch, output, "Watching site"), output.constData());
        for (int round = 2; round <= 3; ++round) {
            const QString commit =
                repo.commit({{u"page%1.html"_s.arg(round), "page"}}, u"round %1"_s.arg(round));
            QVERIFY2(cli.waitForOutput(*watch, output, "Deployed commit " + commit.toUtf8()),
                     QByteArray(output + watch->readAllStandardError()).constData());
            QVERIFY(record().startsWith(QByteArray(commit.toUtf8() + ',')));
        }
        ::kill(static_cast<pid_t>(watch->processId()), SIGINT);
        QVERIFY(watch->waitForFinished(20000));
        QCOMPARE(watch->exitCode(), 0);
        QVERIFY(QFile::exists(www() + u"/page3.html"_s));
    }

    // 'test' answers 0 when the server takes the test file, 8 when the
    // server cannot be reached, 7 when the site cannot be tested at all.
    void connectionTestExitCodes() {
        test::CliRunner cli;
        test::GitRepository repo;
        repo.commit({{u"index.html"_s, "x"}}, u"one"_s);
        QCOMPARE(cli.addFtpSite(repo, *m_ftp, u"Blog"_s).exitCode, 0);

        test::CliResult r = cli.run({u"test"_s, u"Blog"_s});
        QVERIFY2(r.exitCode == 0, r.describe().constData());
        QVERIFY(QFile::exists(www() + u"/.test"_s));

        const QString closedPort = QString::number(test::ServerProcess::freePort());
        QCOMPARE(cli.run({u"edit"_s, u"Blog"_s, u"--port"_s, closedPort}).exitCode, 0);
        r = cli.run({u"test"_s, u"Blog"_s});
        QVERIFY2(r.exitCode == 8, r.describe().constData());

        r = cli.run({u"test"_s, u"Nowhere"_s});
        QVERIFY2(r.exitCode == 7, r.describe().constData());
    }

    // A command that names a site works on it alone: the current site, the
    // window's selection, stays.
    void namedSiteLeavesTheCurrentOne() {
        test::CliRunner cli;
        test::GitRepository repo;
        const QString commit = repo.commit({{u"index.html"_s, "x"}}, u"one"_s);
        QCOMPARE(cli.addFtpSite(repo, *m_ftp, u"Shop"_s).exitCode, 0);
        QCOMPARE(cli.run({u"edit"_s, u"Shop"_s, u"--remote-path"_s, u"shop/"_s}).exitCode, 0);
        QCOMPARE(cli.addFtpSite(repo, *m_ftp, u"Blog"_s, u"www/"_s, {u"--auto-deploy"_s}).exitCode, 0);
        QCOMPARE(cli.run({u"use"_s, u"Shop"_s}).exitCode, 0);
        const auto sitesAfter = [&](const QString& blogCommit) {
            const QJsonArray sites = cli.json({u"sites"_s, u"--json"_s}).array();
            QCOMPARE(sites.size(), 2);
            QCOMPARE(sites.at(0)[u"name"_s].toString(), u"Shop"_s);
            QVERIFY(sites.at(0)[u"current"_s].toBool());
            QVERIFY(sites.at(0)[u"lastDeployedCommit"_s].isNull());
            QCOMPARE(sites.at(1)[u"name"_s].toString(), u"Blog"_s);
            QCOMPARE(sites.at(1)[u"lastDeployedCommit"_s].toString(), blogCommit);
            QVERIFY(!QFile::exists(m_ftp->homeFolder() + u"/shop/index.html"_s));
        };

        const test::CliResult r = cli.run({u"deploy"_s, u"Blog"_s});
        QVERIFY2(r.exitCode == 0, r.describe().constData());
        sitesAfter(commit);

        // Watching the named site while the other one is current: a commit
        // is deployed to the named site and stored there, never over the
        // current one.
        const auto watch = cli.start({u"watch"_s, u"--quiet"_s, u"Blog"_s});
        QByteArray output;
        QVERIFY2(cli.waitForOutput(*watch, output, "Watching site"), output.constData());
        const QString second = repo.commit({{u"two.html"_s, "two"}}, u"two"_s);
        QVERIFY2(cli.waitForOutput(*watch, output, "Deployed commit " + second.toUtf8()),
                 QByteArray(output + watch->readAllStandardError()).constData());
        ::kill(static_cast<pid_t>(watch->processId()), SIGINT);
        QVERIFY(watch->waitForFinished(20000));
        QCOMPARE(watch->exitCode(), 0);
        sitesAfter(second);
    }
};

QTEST_GUILESS_MAIN(TestCliSessions)
#include "tst_cli_sessions.moc"
