#include "CliRunner.h"
#include "ProcessSampler.h"
#include "ServerProcess.h"
#include "SshServer.h"
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
class TestCliSecrets : public test::CliTest {
    Q_OBJECT

    // A runner whose temporary files go below its own folder, with debug
    // logging on.
    static void prepare(test::CliRunner& cli) {
        const QString temp = cli.folder() + u"/tmp"_s;
        QDir().mkpath(temp);
        cli.setVariable(u"TMPDIR"_s, temp);
        QSettings settings(cli.folder() + u"/config/tarnwell/tarnwell.conf"_s, QSettings::IniFormat);
        settings.setValue(u"debugEnabled"_s, true);
    }

private slots:
    // Deployments over FTP and SFTP, a failed one and connection tests,
    // with debug logging on.
    void secretsAreSeenNowhere() {
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
        TW_COMPARE_EXIT(0, cli.addFtpSite(repo, *m_ftp, u"Ftp"_s));
        TW_COMPARE_EXIT(0, cli.addFtpSite(repo, *m_ftp, u"Failing"_s, u"fails/"_s));
        QVERIFY(m_ftp->makeUnwritable(u"fails/locked"_s));
        TW_COMPARE_EXIT(
            0, cli.run({u"add"_s, u"--name"_s, u"Sftp"_s, u"--folder"_s, repo.path(), u"--protocol"_s,
                        u"SFTP"_s, u"--host"_s, test::SshServer::host(), u"--port"_s,
                        QString::number(ssh.port()), u"--user"_s, test::SshServer::userName(), u"--key"_s,
                        key, u"--remote-path"_s, ssh.remoteFolder() + u"/www/"_s, u"--passphrase-stdin"_s},
                       kPassphrase.toUtf8() + '\n'));

        const QByteArrayList secrets = {test::FtpServer::password().toUtf8(), kPassphrase.toUtf8()};
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
        QVERIFY(QFile::exists(www() + u"/.tarnwell"_s));
        QVERIFY(QFile::exists(ssh.remoteFolder() + u"/www/.tarnwell"_s));
        QVERIFY2(output.contains(u"(25)"_s), qPrintable(output)); // the failure's own words are shown
        QVERIFY2(!output.contains(test::FtpServer::password()) && !output.contains(kPassphrase),
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
        prepare(cli);
        test::CliRunner noStore;
        noStore.setEnvironment(cli.environment());
        noStore.setVariable(u"DBUS_SESSION_BUS_ADDRESS"_s, u"unix:path=/nonexistent/bus"_s);
        test::GitRepository repo;
        repo.commit({{u"index.html"_s, "x"}}, u"one"_s);

        test::CliResult r = noStore.addFtpSite(repo, *m_ftp, u"Lost"_s, u"lost/"_s);
        TW_COMPARE_EXIT(7, r);
        QVERIFY2(r.err.contains(u"cannot be stored"_s) && r.err.contains(u"not added"_s),
                 r.describe().constData());
        QCOMPARE(cli.json({u"sites"_s, u"--json"_s}).array().size(), 0);

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

QTEST_GUILESS_MAIN(TestCliSecrets)
#include "tst_cli_secrets.moc"
