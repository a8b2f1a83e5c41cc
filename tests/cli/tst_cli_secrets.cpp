#include "CliRunner.h"
#include "ProcessSampler.h"
#include "ServerProcess.h"
#include "SshServer.h"
#include "TestEnvironment.h"
#include "Traces.h"

#include <QDir>
#include <QDirIterator>
#include <QFile>
#include <QJsonArray>
#include <QSettings>
#include <QTest>

using namespace tw;
using namespace Qt::StringLiterals;

namespace {

// The key's pass phrase of these tests: found nowhere else.
const QString kPassphrase = u"Zq-phrase-Unique-913"_s;

} // namespace

// The password and the pass phrase are seen nowhere: not in tarnwell-cli's
// output, not in any file it writes (debug logs included), not on any curl
// command line while it transfers. And a secret store that cannot be used
// is said so: nothing is saved or sent as if the secret were there.
class TestCliSecrets : public QObject {
    Q_OBJECT

    std::unique_ptr<test::FtpServer> m_ftp;

    // A runner whose temporary files go below its own folder, with debug
    // logging on.
    static void prepare(test::CliRunner& cli) {
        const QString temp = cli.folder() + u"/tmp"_s;
        QDir().mkpath(temp);
        cli.setVariable(u"TMPDIR"_s, temp);
        QSettings settings(cli.folder() + u"/config/tarnwell/tarnwell.conf"_s, QSettings::IniFormat);
        settings.setValue(u"debugEnabled"_s, true);
        settings.sync();
    }

    static QString log(const test::CliRunner& cli) {
        QString text;
        QDirIterator files(cli.folder() + u"/data"_s, QDir::Files, QDirIterator::Subdirectories);
        while (files.hasNext())
            text += QString::fromUtf8(test::readFile(files.next()));
        return text;
    }

private slots:
    void initTestCase() {
        test::TestEnvironment::isolate();
        m_ftp = std::make_unique<test::FtpServer>();
    }

    // Deployments over FTP and SFTP, a failed one and connection tests,
    // with debug logging on.
    void secretsAreSeenNowhere() {
        TW_REQUIRE_SERVER(*m_ftp);
        test::SshServer ssh;
        TW_REQUIRE_SERVER(ssh);
        test::CliRunner cli;
        prepare(cli);
        // The server's encrypted key, with this test's pass phrase.
        const QString key = cli.folder() + u"/key"_s;
        QVERIFY(QFile::copy(ssh.encryptedKeyPath(), key));
        QVERIFY(QFile::setPermissions(key, QFileDevice::ReadOwner | QFileDevice::WriteOwner));
        QString error;
        QVERIFY2(test::ServerProcess::runTool(u"ssh-keygen"_s,
                                              {u"-q"_s, u"-p"_s, u"-P"_s, test::SshServer::passphrase(),
                                               u"-N"_s, kPassphrase, u"-f"_s, key},
                                              &error),
                 qPrintable(error));

        test::GitRepository repo;
        for (int i = 0; i < 60; ++i)
            repo.write(u"pages/page%1.html"_s.arg(i), "page");
        repo.commit({{u"locked/page.html"_s, "x"}}, u"site"_s);
        test::CliResult r = cli.addFtpSite(repo, *m_ftp, u"Ftp"_s);
        QVERIFY2(r.exitCode == 0, r.describe().constData());
        r = cli.addFtpSite(repo, *m_ftp, u"Failing"_s, u"fails/"_s);
        QVERIFY2(r.exitCode == 0, r.describe().constData());
        QVERIFY(m_ftp->makeUnwritable(u"fails/locked"_s));
        r = cli.run({u"add"_s, u"--name"_s, u"Sftp"_s, u"--folder"_s, repo.path(), u"--protocol"_s, u"SFTP"_s,
                     u"--host"_s, test::SshServer::host(), u"--port"_s, QString::number(ssh.port()),
                     u"--user"_s, test::SshServer::userName(), u"--key"_s, key, u"--remote-path"_s,
                     ssh.remoteFolder() + u"/www/"_s, u"--passphrase-stdin"_s},
                    kPassphrase.toUtf8() + '\n');
        QVERIFY2(r.exitCode == 0, r.describe().constData());

        const test::ProcessSampler sampler({test::FtpServer::password().toUtf8(), kPassphrase.toUtf8()});
        QString output;
        const auto run = [&](const QStringList& arguments, int expected) {
            const test::ProcessSampler::Run sampled = sampler.run(cli, arguments);
            output += sampled.result.out + sampled.result.err;
            QVERIFY2(sampled.complaints(expected).isEmpty(),
                     qPrintable(arguments.join(u' ') + u": "_s + sampled.complaints(expected)));
        };
        run({u"deploy"_s, u"Ftp"_s}, 0);
        run({u"deploy"_s, u"Sftp"_s}, 0);
        run({u"deploy"_s, u"Failing"_s}, 8);
        run({u"test"_s, u"Ftp"_s}, 0);
        run({u"test"_s, u"Sftp"_s}, 0);
        QVERIFY(QFile::exists(m_ftp->homeFolder() + u"/www/.tarnwell"_s));
        QVERIFY(QFile::exists(ssh.remoteFolder() + u"/www/.tarnwell"_s));
        QVERIFY2(output.contains(u"(25)"_s), qPrintable(output)); // the failure's own words are shown

        QVERIFY2(!output.contains(test::FtpServer::password()) && !output.contains(kPassphrase),
                 qPrintable(output));
        // The debug log was written (with curl's command lines), and holds
        // neither secret; nor does any other file of the run.
        QVERIFY(log(cli).contains(u"curl"_s));
        const QByteArrayList secrets = {test::FtpServer::password().toUtf8(), kPassphrase.toUtf8()};
        QCOMPARE(test::filesHolding(cli.folder(), secrets), QStringList());
        QCOMPARE(test::filesHolding(QDir::homePath(), secrets), QStringList());
    }

    // Without a secret store: 'add' says the password was not stored and
    // saves nothing; 'deploy' of a stored site says its password cannot be
    // read before anything connects.
    void noSecretStore() {
        TW_REQUIRE_SERVER(*m_ftp);
        test::CliRunner cli;
        prepare(cli);
        test::CliRunner noStore;
        noStore.setEnvironment(cli.environment());
        noStore.setVariable(u"DBUS_SESSION_BUS_ADDRESS"_s, u"unix:path=/nonexistent/bus"_s);
        test::GitRepository repo;
        repo.commit({{u"index.html"_s, "x"}}, u"one"_s);

        test::CliResult r = noStore.addFtpSite(repo, *m_ftp, u"Lost"_s, u"lost/"_s);
        QVERIFY2(r.exitCode == 7, r.describe().constData());
        QVERIFY2(r.err.contains(u"cannot be stored"_s) && r.err.contains(u"not added"_s),
                 r.describe().constData());
        QCOMPARE(cli.json({u"sites"_s, u"--json"_s}).array().size(), 0);

        r = cli.addFtpSite(repo, *m_ftp, u"Kept"_s, u"kept/"_s);
        QVERIFY2(r.exitCode == 0, r.describe().constData());
        const test::ProcessSampler::Run run = test::ProcessSampler({}).run(noStore, {u"deploy"_s, u"Kept"_s});
        QVERIFY2(run.result.exitCode == 7, run.result.describe().constData());
        QVERIFY2(run.result.err.contains(u"Cannot deploy"_s) && run.result.err.contains(u"password"_s),
                 run.result.describe().constData());
        QCOMPARE(run.curlSamples, 0);
        QVERIFY(!QFile::exists(m_ftp->homeFolder() + u"/kept"_s));
        // The site stays as it was, deployable once the store is back.
        r = cli.run({u"deploy"_s, u"Kept"_s});
        QVERIFY2(r.exitCode == 0, r.describe().constData());
    }
};

QTEST_GUILESS_MAIN(TestCliSecrets)
#include "tst_cli_secrets.moc"
