#include "CliRunner.h"
#include "TestEnvironment.h"
#include "Traces.h"

#include <QDir>
#include <QFileInfo>
#include <QJsonArray>
#include <QJsonDocument>
#include <QTest>

#include <csignal>

using namespace tw;
using namespace Qt::StringLiterals;

// Failures with the real curl and a real server, as a person meets them:
// each one is shown, ends with exit code 8 and leaves no record on the
// server, so the next deployment sends the same files again.
class TestCliFailures : public QObject {
    Q_OBJECT

    std::unique_ptr<test::FtpServer> m_ftp;

    QString www(const QString& folder) const { return m_ftp->homeFolder() + u'/' + folder; }

    test::CliResult addSite(const test::CliRunner& cli, const test::GitRepository& repo,
                            const QString& remote, const QStringList& more = {}) const {
        return cli.addFtpSite(repo, *m_ftp, u"Site"_s, remote + u'/', more);
    }

private slots:
    void initTestCase() {
        test::TestEnvironment::isolate();
        m_ftp = std::make_unique<test::FtpServer>();
    }

    // An always-uploaded file that is gone when curl opens it: curl says
    // "cannot open" (no error number) and sends nothing of that batch.
    void alwaysUploadedFileGoneBeforeTheUpload() {
        TW_REQUIRE_SERVER(*m_ftp);
        test::CliRunner cli;
        test::GitRepository repo;
        repo.commit({{u"index.html"_s, "x"}}, u"one"_s);
        repo.write(u"config.php"_s, "<?php"); // built, not committed
        QVERIFY(
            addSite(cli, repo, u"gone"_s,
                    {u"--always-upload"_s, u"config.php"_s, u"--pre-deploy-local"_s, u"rm -f config.php"_s})
                .exitCode == 0);
        const test::CliResult result = cli.run({u"deploy"_s, u"--quiet"_s});
        QVERIFY2(result.exitCode == 8, result.describe().constData());
        QVERIFY2(result.err.contains(u"config.php"_s), result.describe().constData());
        QVERIFY(!QFile::exists(www(u"gone"_s) + u"/.tarnwell"_s));
    }

    // A ~/.curlrc that says "silent" would hide every error line: curl
    // never reads it.
    void curlrcIsNeverRead() {
        TW_REQUIRE_SERVER(*m_ftp);
        test::CliRunner cli;
        const QString home = cli.folder() + u"/home"_s;
        QVERIFY(test::writeFile(home + u"/.curlrc"_s, "silent\nshow-error = false\n"));
        cli.setVariable(u"HOME"_s, home);
        cli.setVariable(u"CURL_HOME"_s, home);

        test::GitRepository repo;
        repo.commit({{u"index.html"_s, "x"}, {u"locked/page.html"_s, "x"}}, u"one"_s);
        QVERIFY(addSite(cli, repo, u"rc"_s).exitCode == 0);
        QVERIFY(QDir().mkpath(www(u"rc"_s)));
        QVERIFY(m_ftp->makeUnwritable(u"rc/locked"_s));
        const test::CliResult result = cli.run({u"deploy"_s, u"--quiet"_s});
        QVERIFY2(result.exitCode == 8, result.describe().constData());
        // curl's own words about the refused upload: a "silent" that applied
        // would have hidden them.
        QVERIFY2(result.err.contains(u"(25)"_s) && result.err.contains(u"553"_s),
                 result.describe().constData());
        QVERIFY(!QFile::exists(www(u"rc"_s) + u"/.tarnwell"_s));
    }

    // The server goes away after the last upload and before the record is
    // written (the local post-deploy script runs in between and stops it):
    // no success, the files are said to be sent and the record not written,
    // and the site keeps its last deployed commit.
    void serverGoneBeforeTheRecord() {
        test::FtpServer ftp;
        TW_REQUIRE_SERVER(ftp);
        // The server's process: it writes its pid beside the user's home, a
        // moment after it accepts connections.
        const QString pidFile = QFileInfo(ftp.homeFolder()).path() + u"/pure-ftpd.pid"_s;
        QTRY_VERIFY(!test::readFile(pidFile).trimmed().isEmpty());
        const QString server = QString::fromUtf8(test::readFile(pidFile)).trimmed();
        QVERIFY2(test::descendantsNamed("pure-ftpd").contains(server.toLongLong()), qPrintable(server));

        test::CliRunner cli;
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
        const test::CliResult added =
            cli.addFtpSite(repo, ftp, u"Site"_s, u"www/"_s, {u"--post-deploy-local"_s, stop});
        QVERIFY2(added.exitCode == 0, added.describe().constData());

        const test::CliResult result = cli.run({u"deploy"_s, u"--quiet"_s});
        QVERIFY2(result.exitCode == 8, result.describe().constData());
        QVERIFY2(result.err.contains(u"files were sent"_s) && result.err.contains(u"could not be written"_s),
                 result.describe().constData());
        QVERIFY2(!result.out.contains(u"Deployed"_s), result.describe().constData());
        QCOMPARE(test::readFile(ftp.homeFolder() + u"/www/pages/page39.html"_s), QByteArray("page"));
        QVERIFY(!QFile::exists(ftp.homeFolder() + u"/www/.tarnwell"_s));
        const QJsonArray sites = cli.json({u"sites"_s, u"--json"_s}).array();
        QCOMPARE(sites.size(), 1);
        QVERIFY2(sites.at(0)[u"lastDeployedCommit"_s].isNull(), QJsonDocument(sites).toJson().constData());
    }

    // A curl killed in the middle of a batch (no error line, a signal):
    // what it had not finished fails.
    void curlKilledMidBatch() {
        TW_REQUIRE_SERVER(*m_ftp);
        test::CliRunner cli;
        test::GitRepository repo;
        for (int i = 0; i < 1500; ++i)
            repo.write(u"f/%1/file%2.txt"_s.arg(i % 30).arg(i), QByteArray(512, 'k'));
        repo.commitAll(u"many"_s);
        QVERIFY(addSite(cli, repo, u"killed"_s).exitCode == 0);

        const auto deploy = cli.start({u"deploy"_s, u"--quiet"_s});
        // An upload batch (-T), not the single run that reads the record.
        const auto uploading = [&] {
            for (const qint64 pid : test::descendantsNamed("curl", deploy->processId())) {
                if (test::readFile(u"/proc/%1/cmdline"_s.arg(pid)).contains(QByteArray("\0-T\0", 4)))
                    return pid;
            }
            return qint64(0);
        };
        qint64 curl = 0;
        QVERIFY(QTest::qWaitFor(
            [&] { return (curl = uploading()) || deploy->state() == QProcess::NotRunning; }, 30000));
        QVERIFY(curl);
        ::kill(static_cast<pid_t>(curl), SIGKILL);
        QVERIFY(deploy->waitForFinished(60000));
        const QString err = QString::fromUtf8(deploy->readAllStandardError());
        QVERIFY2(deploy->exitCode() == 8, qPrintable(err));
        QVERIFY2(err.contains(u"failed"_s), qPrintable(err));
        QVERIFY(!QFile::exists(www(u"killed"_s) + u"/.tarnwell"_s));
    }
};

QTEST_GUILESS_MAIN(TestCliFailures)
#include "tst_cli_failures.moc"
