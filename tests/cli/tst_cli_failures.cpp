#include "CliRunner.h"
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
// server, so the next deployment sends the same files again. The runner's
// ~/.curlrc says "silent", which would hide every error line if curl read it.
class TestCliFailures : public test::CliTest {
    Q_OBJECT

    static void hostileCurlrc(test::CliRunner& cli) {
        const QString home = cli.folder() + u"/home"_s;
        QVERIFY(test::writeFile(home + u"/.curlrc"_s, "silent\nshow-error = false\n"));
        cli.setVariable(u"HOME"_s, home);
        cli.setVariable(u"CURL_HOME"_s, home);
    }

private slots:
    void failureIsShown_data() {
        QTest::addColumn<QString>("remote");
        QTest::addColumn<QStringList>("options");
        QTest::addColumn<QStringList>("shown");
        // curl's own words about the refused upload.
        QTest::newRow("upload refused") << u"rc"_s << QStringList() << QStringList{u"(25)"_s, u"553"_s};
        // Gone when curl opens it: curl says "cannot open" (no error number)
        // and sends nothing of that batch.
        QTest::newRow("always-uploaded file gone")
            << u"gone"_s
            << QStringList{u"--always-upload"_s, u"config.php"_s, u"--pre-deploy-local"_s,
                           u"rm -f config.php"_s}
            << QStringList{u"config.php"_s};
    }

    void failureIsShown() {
        QFETCH(QString, remote);
        QFETCH(QStringList, options);
        QFETCH(QStringList, shown);
        test::CliRunner cli;
        hostileCurlrc(cli);
        test::GitRepository repo;
        repo.commit({{u"index.html"_s, "x"}, {u"locked/page.html"_s, "x"}}, u"one"_s);
        repo.write(u"config.php"_s, "<?php"); // built, not committed
        TW_COMPARE_EXIT(0, cli.addFtpSite(repo, *m_ftp, u"Site"_s, remote + u'/', options));
        if (options.isEmpty()) {
            QVERIFY(QDir().mkpath(www(remote)));
            QVERIFY(m_ftp->makeUnwritable(remote + u"/locked"_s));
        }
        const test::CliResult result = cli.run({u"deploy"_s, u"--quiet"_s});
        TW_COMPARE_EXIT(8, result);
        for (const QString& text : shown)
            QVERIFY2(result.err.contains(text), result.describe().constData());
        QVERIFY(!QFile::exists(www(remote) + u"/.tarnwell"_s));
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
        hostileCurlrc(cli);
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
        QVERIFY(cli.lastDeployed().isEmpty());
    }

    // A curl killed in the middle of an upload batch (no error line, a
    // signal): what it had not finished fails.
    void curlKilledMidBatch() {
        test::CliRunner cli;
        hostileCurlrc(cli);
        test::GitRepository repo;
        for (int i = 0; i < 1500; ++i)
            repo.write(u"f/%1/file%2.txt"_s.arg(i % 30).arg(i), QByteArray(512, 'k'));
        repo.commitAll(u"many"_s);
        TW_COMPARE_EXIT(0, cli.addFtpSite(repo, *m_ftp, u"Site"_s, u"killed/"_s));

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
        ::kill(static_cast<pid_t>(curl), SIGKILL);
        QVERIFY(deploy->waitForFinished(60000));
        const QString err = QString::fromUtf8(deploy->readAllStandardError());
        QVERIFY2(deploy->exitCode() == 8 && err.contains(u"failed"_s), qPrintable(err));
        QVERIFY(!QFile::exists(www(u"killed"_s) + u"/.tarnwell"_s));
    }
};

QTEST_GUILESS_MAIN(TestCliFailures)
#include "tst_cli_failures.moc"
