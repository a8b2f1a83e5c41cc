#include "CliRunner.h"
#include "ServerProcess.h"
#include "Traces.h"

#include <QFile>
#include <QJsonArray>
#include <QJsonObject>
#include <QTest>

#include <csignal>

using namespace tw;
using namespace Qt::StringLiterals;

// tarnwell-cli as scripts and people use it over time: interrupted, testing
// the connection, watching a repository for a site that is not the current
// one.
class TestCliSessions : public test::CliTest {
    Q_OBJECT

private slots:
    // Ctrl-C during a deployment: exit code 130, every curl stopped, no
    // record written.
    void interruptedDeployment() {
        test::CliRunner cli;
        test::GitRepository repo;
        for (int i = 0; i < 1500; ++i)
            repo.write(u"f/%1/file%2.txt"_s.arg(i % 30).arg(i), QByteArray(256, 'x'));
        repo.commitAll(u"many"_s);
        TW_COMPARE_EXIT(0, cli.addFtpSite(repo, *m_ftp, u"Blog"_s, u"interrupted/"_s));

        const auto deploy = cli.start({u"deploy"_s, u"--quiet"_s});
        QVERIFY(QTest::qWaitFor([&] { return !test::curlsTalkingTo(m_ftp->port()).isEmpty(); }, 30000));
        ::kill(static_cast<pid_t>(deploy->processId()), SIGINT);
        QVERIFY(deploy->waitForFinished(30000));
        QCOMPARE(deploy->exitStatus(), QProcess::NormalExit);
        QCOMPARE(deploy->exitCode(), 130);
        QVERIFY(QString::fromUtf8(deploy->readAllStandardError()).contains(u"Interrupted"_s));
        QCOMPARE(test::curlsTalkingTo(m_ftp->port()), QList<qint64>());
        QVERIFY(!QFile::exists(www(u"interrupted/.tarnwell"_s)));
    }

    // 'test' answers 0 when the server takes the test file, 8 when the
    // server cannot be reached, 7 when the site cannot be tested at all.
    void connectionTestExitCodes() {
        test::CliRunner cli;
        test::GitRepository repo;
        repo.commit({{u"index.html"_s, "x"}}, u"one"_s);
        TW_COMPARE_EXIT(0, cli.addFtpSite(repo, *m_ftp, u"Blog"_s, u"tested/"_s));
        QVERIFY(m_ftp->emptyFolder(u"tested"_s));
        TW_COMPARE_EXIT(0, cli.run({u"test"_s, u"Blog"_s}));
        QVERIFY(QFile::exists(www(u"tested/.test"_s)));
        const QString closedPort = QString::number(test::ServerProcess::freePort());
        TW_COMPARE_EXIT(0, cli.run({u"edit"_s, u"Blog"_s, u"--port"_s, closedPort}));
        TW_COMPARE_EXIT(8, cli.run({u"test"_s, u"Blog"_s}));
        TW_COMPARE_EXIT(7, cli.run({u"test"_s, u"Nowhere"_s}));
    }

    // 'watch Blog' while Shop is current deploys every commit to Blog, also
    // the one right after a deployment has ended, stores it there and never
    // over the current site, and stops on Ctrl-C with exit code 0.
    void watchNamedSiteLeavesTheCurrentOne() {
        test::CliRunner cli;
        test::GitRepository repo;
        repo.commit({{u"index.html"_s, "x"}}, u"one"_s);
        TW_COMPARE_EXIT(0, cli.addFtpSite(repo, *m_ftp, u"Shop"_s, u"shop/"_s));
        TW_COMPARE_EXIT(0, cli.addFtpSite(repo, *m_ftp, u"Blog"_s, u"blog/"_s, {u"--auto-deploy"_s}));
        TW_COMPARE_EXIT(0, cli.run({u"use"_s, u"Shop"_s}));

        const auto watch = cli.start({u"watch"_s, u"--quiet"_s, u"Blog"_s});
        QByteArray output;
        QVERIFY2(cli.waitForOutput(*watch, output, "Watching site"), output.constData());
        for (int round = 2; round <= 3; ++round) {
            const QString commit =
                repo.commit({{u"page%1.html"_s.arg(round), "page"}}, u"round %1"_s.arg(round));
            QVERIFY2(cli.waitForOutput(*watch, output, "Deployed commit " + commit.toUtf8()),
                     QByteArray(output + watch->readAllStandardError()).constData());
            QVERIFY(test::readFile(www(u"blog/.tarnwell"_s)).startsWith(QByteArray(commit.toUtf8() + ',')));
        }
        ::kill(static_cast<pid_t>(watch->processId()), SIGINT);
        QVERIFY(watch->waitForFinished(20000));
        QCOMPARE(watch->exitCode(), 0);

        const QJsonArray sites = cli.json({u"sites"_s, u"--json"_s}).array();
        QCOMPARE(sites.size(), 2);
        QCOMPARE(sites.at(0)[u"name"_s].toString(), u"Shop"_s);
        QVERIFY(sites.at(0)[u"current"_s].toBool());
        QVERIFY(sites.at(0)[u"lastDeployedCommit"_s].isNull());
        QCOMPARE(sites.at(1)[u"lastDeployedCommit"_s].toString(), repo.head());
        QVERIFY(!QFile::exists(www(u"shop"_s)));
    }
};

QTEST_GUILESS_MAIN(TestCliSessions)
#include "tst_cli_sessions.moc"
