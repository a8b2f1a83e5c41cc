#include "CliRunner.h"
#include "ProcessSampler.h"
#include "ServerProcess.h"
#include "SshServer.h"
#include "Traces.h"

#include <QDir>
#include <QFile>
#include <QFileInfo>
#include <QJsonArray>
#include <QJsonObject>
#include <QSettings>
#include <QTest>

#include <csignal>

using namespace tw;
using namespace Qt::StringLiterals;

namespace {

// A ~/.curlrc that says "silent", which would hide every error line if curl
// read it.
void withHostileCurlrc(test::CliRunner& cli) {
    const QString home = cli.folder() + u"/home"_s;
    QVERIFY(test::writeFile(home + u"/.curlrc"_s, "silent\nshow-error = false\n"));
    cli.setVariable(u"HOME"_s, home);
    cli.setVariable(u"CURL_HOME"_s, home);
}

void withDebugLogging(const test::CliRunner& cli) {
    QSettings(cli.folder() + u"/config/tarnwell/tarnwell.conf"_s, QSettings::IniFormat)
        .setValue(u"debugEnabled"_s, true);
}

} // namespace

// tarnwell-cli with the real curl and a real server, as scripts and people
// use it over time: interrupted, testing the connection, watching a
// repository for a site that is not the current one. Failures are shown (a
// ~/.curlrc that says "silent" notwithstanding), end with exit code 8 and
// leave no record on the server, so the next deployment sends the same files
// again. The password and the pass phrase are seen
// nowhere: not in the output, not in any file (debug logs included), not on
// any command line while curl transfers; a secret store that cannot be used
// is said so, and nothing is saved or sent as if the secret were there.
class TestCliSessions : public test::CliTest {
    Q_OBJECT

private slots:
    void stoppedMidBatch_data() {
        QTest::addColumn<QString>("remote");
        QTest::newRow("Ctrl-C") << u"interrupted"_s;
        QTest::newRow("curl killed") << u"killed"_s;
    }

    // Ctrl-C during an upload batch ends with exit code 130; a curl killed
    // in the middle of one (no error line, a signal) fails what it had not
    // finished, exit code 8. Either way every curl has stopped and no record
    // is written.
    void stoppedMidBatch() {
        QFETCH(QString, remote);
        const bool interrupt = remote == u"interrupted"_s;
        test::CliRunner cli;
        withHostileCurlrc(cli);
        test::GitRepository repo;
        for (int i = 0; i < 1500; ++i)
            repo.write(u"f/%1/file%2.txt"_s.arg(i % 30).arg(i), QByteArray(512, 'k'));
        repo.commitAll(u"many"_s);
        TW_COMPARE_EXIT(0, cli.addFtpSite(repo, *m_ftp, u"Site"_s, remote + u'/'));

        const auto deploy = cli.start({u"deploy"_s, u"--quiet"_s});
        // An upload batch (-T), not the single run that reads the record.
        qint64 curl = 0;
        QVERIFY(QTest::qWaitFor(
            [&] {
                for (const qint64 pid : test::descendantsNamed("curl", deploy->processId())) {
                    if (test::readFile(u"/proc/%1/cmdline"_s.arg(pid)).contains(QByteArray("\0-T\0", 4)))
                        curl = pid;
                }
                return curl || deploy->state() == QProcess::NotRunning;
            },
            30000));
        QVERIFY(curl);
        ::kill(static_cast<pid_t>(interrupt ? deploy->processId() : curl), interrupt ? SIGINT : SIGKILL);
        QVERIFY(deploy->waitForFinished(60000));
        const QString err = QString::fromUtf8(deploy->readAllStandardError());
        QVERIFY2(deploy->exitStatus() == QProcess::NormalExit &&
                     deploy->exitCode() == (interrupt ? 130 : 8) &&
                     err.contains(interrupt ? u"Interrupted"_s : u"failed"_s),
                 qPrintable(err));
        QCOMPARE(test::curlsTalkingTo(m_ftp->port()), QList<qint64>());
        QVERIFY(!QFile::exists(www(remote + u"/.tarnwell"_s)));
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

        const QJsonArray sites = cli.sites();
        QCOMPARE(sites.size(), 2);
        QCOMPARE(sites.at(0)[u"name"_s].toString(), u"Shop"_s);
        QVERIFY(sites.at(0)[u"current"_s].toBool());
        QVERIFY(sites.at(0)[u"lastDeployedCommit"_s].isNull());
        QCOMPARE(sites.at(1)[u"lastDeployedCommit"_s].toString(), repo.head());
        QVERIFY(!QFile::exists(www(u"shop"_s)));
    }

    // An always-uploaded file gone when curl opens it: curl says "cannot
    // open" (no error number) and sends nothing of that batch.
    void alwaysUploadedFileGone() {
        test::CliRunner cli;
        withHostileCurlrc(cli);
        test::GitRepository repo;
        repo.commit({{u"index.html"_s, "x"}}, u"one"_s);
        repo.write(u"config.php"_s, "<?php"); // built, not committed
        const QStringList options = {u"--always-upload"_s, u"config.php"_s, u"--pre-deploy-local"_s,
                                     u"rm -f config.php"_s};
        TW_COMPARE_EXIT(0, cli.addFtpSite(repo, *m_ftp, u"Site"_s, u"gone/"_s, options));
        const test::CliResult result = cli.run({u"deploy"_s, u"--quiet"_s});
        QVERIFY2(result.exitCode == 8 && result.err.contains(u"config.php"_s), result.describe().constData());
        QVERIFY(!QFile::exists(www(u"gone/.tarnwell"_s)));
    }

    // The server goes away after the last upload and before the record is
    // written (the local post-deploy script stops it): no success, the files
    // are said to be sent and the record not written, and the site keeps its
    // last deployed commit.
    void serverGoneBeforeTheRecord() {
        test::FtpServer ftp;
        TW_REQUIRE_SERVER(ftp);
        // pure-ftpd writes its pid beside the user's home a moment after it
        // accepts connections.
        const QString pidFile = QFileInfo(ftp.homeFolder()).path() + u"/pure-ftpd.pid"_s;
        QTRY_VERIFY(!test::readFile(pidFile).trimmed().isEmpty());
        const QString server = QString::fromUtf8(test::readFile(pidFile)).trimmed();
        QVERIFY2(test::descendantsNamed("pure-ftpd").contains(server.toLongLong()), qPrintable(server));

        test::CliRunner cli;
        withHostileCurlrc(cli);
        test::GitRepository repo;
        for (int i = 0; i < 40; ++i)
            repo.write(u"pages/page%1.html"_s.arg(i), "page");
        repo.commitAll(u"one"_s);
        // Stopped for good: the script waits until the process has ended
        // (its sockets closed), not merely signalled.
        const QString stop =
            u"kill -KILL %1\n"
            u"while [ -e /proc/%1 ] && ! grep -q '^State:[[:space:]]*Z' /proc/%1/status; do sleep 0.05; done\n"_s
                .arg(server);
        TW_COMPARE_EXIT(0, cli.addFtpSite(repo, ftp, u"Site"_s, u"www/"_s, {u"--post-deploy-local"_s, stop}));

        const test::CliResult result = cli.run({u"deploy"_s, u"--quiet"_s});
        TW_COMPARE_EXIT(8, result);
        QVERIFY2(result.err.contains(u"files were sent"_s) &&
                     result.err.contains(u"could not be written"_s) && !result.out.contains(u"Deployed"_s),
                 result.describe().constData());
        QCOMPARE(test::readFile(ftp.homeFolder() + u"/www/pages/page39.html"_s), QByteArray("page"));
        QVERIFY(!QFile::exists(ftp.homeFolder() + u"/www/.tarnwell"_s));
        QVERIFY(cli.sites().at(0)[u"lastDeployedCommit"_s].isNull());
    }

    // Deployments over FTP and SFTP, a failed one and connection tests,
    // with debug logging on. 'test' answers 0 when the server takes the test
    // file, 8 when the server cannot be reached, 7 when the site cannot be
    // tested at all.
    void secretsAreSeenNowhere() {
        test::SshServer ssh;
        TW_REQUIRE_SERVER(ssh);
        test::CliRunner cli;
        withDebugLogging(cli);
        withHostileCurlrc(cli);
        const QString passphrase = test::SshServer::passphrase();

        test::GitRepository repo;
        for (int i = 0; i < 60; ++i)
            repo.write(u"pages/page%1.html"_s.arg(i), "page");
        repo.commit({{u"locked/page.html"_s, "x"}}, u"site"_s);
        TW_COMPARE_EXIT(0, cli.addFtpSite(repo, *m_ftp, u"Ftp"_s));
        TW_COMPARE_EXIT(0, cli.addFtpSite(repo, *m_ftp, u"Failing"_s, u"fails/"_s));
        QVERIFY(m_ftp->makeUnwritable(u"fails/locked"_s));
        TW_COMPARE_EXIT(0, cli.addSftpSite(repo, ssh, u"Sftp"_s, ssh.encryptedKeyPath(),
                                           {u"--passphrase-stdin"_s}, passphrase.toUtf8() + '\n'));

        const QByteArrayList secrets = {test::FtpServer::password().toUtf8(), passphrase.toUtf8()};
        const test::ProcessSampler sampler(secrets);
        QString output;
        for (const auto& [command, site, exitCode] :
             {std::tuple(u"deploy"_s, u"Ftp"_s, 0), std::tuple(u"deploy"_s, u"Sftp"_s, 0),
              std::tuple(u"deploy"_s, u"Failing"_s, 8), std::tuple(u"test"_s, u"Ftp"_s, 0),
              std::tuple(u"test"_s, u"Sftp"_s, 0)}) {
            const test::ProcessSampler::Run run = sampler.run(cli, {command, site});
            output += run.result.out + run.result.err;
            QVERIFY2(run.complaints(exitCode).isEmpty(),
                     qPrintable(command + u' ' + site + u": "_s + run.complaints(exitCode)));
        }
        QVERIFY(QFile::exists(www() + u"/.tarnwell"_s) && QFile::exists(www() + u"/.test"_s));
        QVERIFY(QFile::exists(ssh.remoteFolder() + u"/site/.tarnwell"_s));
        const QString closedPort = QString::number(test::ServerProcess::freePort());
        TW_COMPARE_EXIT(0, cli.run({u"edit"_s, u"Failing"_s, u"--port"_s, closedPort}));
        TW_COMPARE_EXIT(8, cli.run({u"test"_s, u"Failing"_s}));
        TW_COMPARE_EXIT(7, cli.run({u"test"_s, u"Nowhere"_s}));
        // curl's own words about the refused upload, though ~/.curlrc says
        // "silent".
        QVERIFY2(output.contains(u"(25)"_s) && output.contains(u"553"_s), qPrintable(output));
        QVERIFY(!QFile::exists(www(u"fails/.tarnwell"_s)));
        QVERIFY2(!output.contains(test::FtpServer::password()) && !output.contains(passphrase),
                 qPrintable(output));
        // The debug log was written (with curl's command lines), and holds
        // neither secret; nor does any other file of the run.
        QVERIFY(!test::filesHolding(cli.folder() + u"/data"_s, {"curl"}).isEmpty());
        QCOMPARE(test::filesHolding(cli.folder(), secrets), QStringList());
        QCOMPARE(test::filesHolding(QDir::homePath(), secrets), QStringList());
    }

    // Without a secret store: 'add' says the password was not stored and
    // saves nothing; 'deploy' of a stored site says its password cannot be
    // read before anything connects.
    void noSecretStore() {
        test::CliRunner cli;
        test::CliRunner noStore;
        noStore.setEnvironment(cli.environment());
        noStore.withoutDesktop();
        test::GitRepository repo;
        repo.commit({{u"index.html"_s, "x"}}, u"one"_s);

        test::CliResult r = noStore.addFtpSite(repo, *m_ftp, u"Lost"_s, u"lost/"_s);
        TW_COMPARE_EXIT(7, r);
        QVERIFY2(r.err.contains(u"cannot be stored"_s) && r.err.contains(u"not added"_s),
                 r.describe().constData());
        QCOMPARE(cli.sites().size(), 0);

        TW_COMPARE_EXIT(0, cli.addFtpSite(repo, *m_ftp, u"Kept"_s, u"kept/"_s));
        const test::ProcessSampler::Run run = test::ProcessSampler({}).run(noStore, {u"deploy"_s, u"Kept"_s});
        TW_COMPARE_EXIT(7, run.result);
        QVERIFY2(run.result.err.contains(u"Cannot deploy"_s) && run.result.err.contains(u"password"_s),
                 run.result.describe().constData());
        QCOMPARE(run.curlSamples, 0);
        QVERIFY(!QFile::exists(www(u"kept"_s)));
        // The site stays as it was, deployable once the store is back.
        TW_COMPARE_EXIT(0, cli.run({u"deploy"_s, u"Kept"_s}));
    }
};

QTEST_GUILESS_MAIN(TestCliSessions)
#include "tst_cli_sessions.moc"
