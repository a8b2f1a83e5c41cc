#include "CliRunner.h"
#include "FtpServer.h"
#include "GitRepository.h"
#include "Inspection.h"
#include "ServerProcess.h"
#include "TestEnvironment.h"

#include <QDir>
#include <QFile>
#include <QProcess>
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
        return cli.run(QStringList{u"add"_s, u"--name"_s, u"Site"_s, u"--folder"_s, repo.path(), u"--host"_s,
                                   test::FtpServer::host(), u"--port"_s, QString::number(m_ftp->port()),
                                   u"--user"_s, test::FtpServer::userName(), u"--remote-path"_s,
                                   remote + u'/', u"--password-stdin"_s} +
                           more,
                       test::FtpServer::password().toUtf8() + '\n');
    }

    static QStringList curlChildrenOf(qint64 parent) {
        QStringList found;
        for (const QString& pid : QDir(u"/proc"_s).entryList(QDir::Dirs | QDir::NoDotAndDotDot)) {
            const QByteArray stat = test::readFile(u"/proc/"_s + pid + u"/stat"_s);
            const QList<QByteArray> fields = stat.mid(stat.lastIndexOf(')') + 2).split(' ');
            // An upload batch (-T), not the single run that reads the record.
            if (fields.size() > 1 && fields.at(1).toLongLong() == parent &&
                test::readFile(u"/proc/"_s + pid + u"/comm"_s).startsWith("curl") &&
                test::readFile(u"/proc/"_s + pid + u"/cmdline"_s).contains(QByteArray("\0-T\0", 4)))
                found.append(pid);
        }
        return found;
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
        repo.write(u"index.html"_s, "x");
        repo.commitAll(u"one"_s);
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
        QProcessEnvironment environment = cli.environment();
        const QString home = cli.folder() + u"/home"_s;
        QDir().mkpath(home);
        QFile curlrc(home + u"/.curlrc"_s);
        QVERIFY(curlrc.open(QIODevice::WriteOnly));
        curlrc.write("silent\nshow-error = false\n");
        curlrc.close();
        environment.insert(u"HOME"_s, home);
        environment.insert(u"CURL_HOME"_s, home);
        cli.setEnvironment(environment);

        test::GitRepository repo;
        repo.write(u"index.html"_s, "x");
        repo.write(u"locked/page.html"_s, "x");
        repo.commitAll(u"one"_s);
        QVERIFY(addSite(cli, repo, u"rc"_s).exitCode == 0);
        QVERIFY(QDir().mkpath(www(u"rc"_s)));
        QVERIFY(m_ftp->makeUnwritable(u"rc/locked"_s));
        const test::CliResult result = cli.run({u"deploy"_s, u"--quiet"_s});
        QVERIFY2(result.exitCode == 8, result.describe().constData());
        QVERIFY(!QFile::exists(www(u"rc"_s) + u"/.tarnwell"_s));
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

        QProcess deploy;
        deploy.setProcessEnvironment(cli.environment());
        deploy.start(cli.program(), {u"deploy"_s, u"--quiet"_s});
        QStringList curls;
        QVERIFY(QTest::qWaitFor(
            [&] {
                curls = curlChildrenOf(deploy.processId());
                return !curls.isEmpty() || deploy.state() == QProcess::NotRunning;
            },
            30000));
        QVERIFY(!curls.isEmpty());
        ::kill(static_cast<pid_t>(curls.first().toLongLong()), SIGKILL);
        QVERIFY(deploy.waitForFinished(60000));
        const QString err = QString::fromUtf8(deploy.readAllStandardError());
        QVERIFY2(deploy.exitCode() == 8, qPrintable(err));
        QVERIFY2(err.contains(u"failed"_s), qPrintable(err));
        QVERIFY(!QFile::exists(www(u"killed"_s) + u"/.tarnwell"_s));
    }
};

QTEST_GUILESS_MAIN(TestCliFailures)
#include "tst_cli_failures.moc"
