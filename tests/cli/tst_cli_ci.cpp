#include "CliRunner.h"
#include "FtpServer.h"
#include "GitRepository.h"
#include "ProcessSampler.h"
#include "ServerProcess.h"
#include "SshServer.h"
#include "TestEnvironment.h"
#include "Traces.h"

#include <QDir>
#include <QDirIterator>
#include <QElapsedTimer>
#include <QFile>
#include <QJsonArray>
#include <QJsonDocument>
#include <QJsonObject>
#include <QProcess>
#include <QTest>

#include <csignal>
#include <sys/stat.h>
#include <unistd.h>

using namespace tw;
using namespace Qt::StringLiterals;

namespace {

// A password that must never pass a site file's check.
const QString kFilePassword = u"Ci-Secret-Never-Shown-47"_s;

// The modes of the key files (named "key") below the folder now.
QList<uint> keyFileModes(const QString& folder) {
    QList<uint> modes;
    QDirIterator files(folder, {u"key"_s}, QDir::Files | QDir::Hidden, QDirIterator::Subdirectories);
    while (files.hasNext()) {
        struct stat status = {};
        if (::stat(QFile::encodeName(files.next()).constData(), &status) == 0)
            modes.append(status.st_mode & 07777);
    }
    return modes;
}

} // namespace

// A CI job's deployment: a site file in the repository, the secrets in
// environment variables, no D-Bus session and no secret store at all.
class TestCliCi : public QObject {
    Q_OBJECT

    std::unique_ptr<test::FtpServer> m_ftp;

    // The site file in the repository, "tarnwell-site.json", which the site
    // ignores: for the FTP server unless site says otherwise (a null leaves
    // the key out).
    QString writeSiteFile(const test::GitRepository& repo, QJsonObject site) const {
        for (const auto& [key, value] :
             {std::pair(u"protocol"_s, u"FTP"_s), std::pair(u"host"_s, test::FtpServer::host()),
              std::pair(u"port"_s, QString::number(m_ftp->port())),
              std::pair(u"username"_s, test::FtpServer::userName())}) {
            if (!site.contains(key))
                site.insert(key, value);
            else if (site.value(key).isNull())
                site.remove(key);
        }
        site.insert(u"name"_s, u"CI site"_s);
        site.insert(u"localPath"_s, u"."_s);
        site.insert(u"deployBranch"_s, u"main"_s);
        site.insert(u"ignoredFiles"_s,
                    QJsonArray{QString::fromUtf8(
                        QJsonDocument(QJsonObject{{u"pathWithFilename"_s, u"tarnwell-site.json"_s}})
                            .toJson(QJsonDocument::Compact))});
        repo.write(u"tarnwell-site.json"_s, QJsonDocument(site).toJson());
        return repo.path() + u"/tarnwell-site.json"_s;
    }

    static QJsonObject sftpSite(const test::SshServer& ssh) {
        return {{u"protocol"_s, u"SFTP"_s},
                {u"host"_s, test::SshServer::host()},
                {u"port"_s, QString::number(ssh.port())},
                {u"username"_s, test::SshServer::userName()},
                {u"remotePath"_s, QString(ssh.remoteFolder() + u"/site/"_s)}};
    }

    static void writePages(const test::GitRepository& repo, int count) {
        for (int i = 0; i < count; ++i)
            repo.write(u"pages/%1/page%2.html"_s.arg(i % 10).arg(i), "page " + QByteArray::number(i));
        repo.write(u"café.html"_s, "café");
    }

    // Nothing of the run is left in the temporary folder (the key file
    // included).
    static bool temporaryFolderIsEmpty(const test::CliRunner& cli) {
        return QDir(cli.folder() + u"/tmp"_s)
            .entryList(QDir::AllEntries | QDir::NoDotAndDotDot | QDir::Hidden)
            .isEmpty();
    }

private slots:
    void initTestCase() {
        test::TestEnvironment::isolate();
        m_ftp = std::make_unique<test::FtpServer>();
    }

    // First and incremental deployment over FTP with the password from the
    // environment; the password is in no file, output or command line.
    void ftpFromASiteFile() {
        TW_REQUIRE_SERVER(*m_ftp);
        test::CliRunner cli;
        cli.withoutDesktop();
        cli.setVariable(u"CI_FTP_PASSWORD"_s, test::FtpServer::password());
        test::GitRepository repo;
        const QString siteFile = writeSiteFile(repo, {{u"remotePath"_s, u"ci/"_s}});
        writePages(repo, 300);
        const QString first = repo.commitAll(u"first"_s);
        const QString www = m_ftp->homeFolder() + u"/ci"_s;
        const QStringList deploy = {u"--no-input"_s,     u"deploy"_s,          u"--site-file"_s, siteFile,
                                    u"--password-env"_s, u"CI_FTP_PASSWORD"_s, u"--quiet"_s};

        test::CliResult status =
            cli.run({u"status"_s, u"--site-file"_s, siteFile, u"--password-env"_s, u"CI_FTP_PASSWORD"_s});
        QVERIFY2(status.exitCode == 0, status.describe().constData());
        QVERIFY2(status.out.contains(u"café.html"_s), status.describe().constData());

        const test::ProcessSampler sampler({test::FtpServer::password().toUtf8()});
        test::ProcessSampler::Run run = sampler.run(cli, deploy);
        QCOMPARE(run.complaints(0), QString());
        QCOMPARE(test::readFile(www + u"/café.html"_s), QByteArray("café"));
        QCOMPARE(test::readFile(www + u"/pages/9/page299.html"_s), QByteArray("page 299"));
        QVERIFY(!QFile::exists(www + u"/tarnwell-site.json"_s));
        QVERIFY(test::readFile(www + u"/.tarnwell"_s).startsWith(QByteArray(first.toUtf8() + ',')));
        QString output = run.result.out + run.result.err;

        // The next job knows nothing but the server's record: only what
        // changed goes.
        repo.write(u"café.html"_s, "café 2");
        repo.remove(u"pages/0/page0.html"_s);
        const QString second = repo.commitAll(u"second"_s);
        QVERIFY(QFile::remove(www + u"/pages/9/page299.html"_s)); // not re-sent: proves incremental
        run = sampler.run(cli, deploy);
        QCOMPARE(run.complaints(0), QString());
        QVERIFY2(run.result.out.contains(u"1 file uploaded, 1 deleted"_s), run.result.describe().constData());
        QCOMPARE(test::readFile(www + u"/café.html"_s), QByteArray("café 2"));
        QVERIFY(!QFile::exists(www + u"/pages/0/page0.html"_s));
        QVERIFY(!QFile::exists(www + u"/pages/9/page299.html"_s));
        QVERIFY(test::readFile(www + u"/.tarnwell"_s).startsWith(QByteArray(second.toUtf8() + ',')));
        output += run.result.out + run.result.err + status.out + status.err;

        QVERIFY2(!output.contains(test::FtpServer::password()), qPrintable(output));
        QCOMPARE(test::filesHolding(cli.folder(), {test::FtpServer::password().toUtf8()}), QStringList());
        QVERIFY(temporaryFolderIsEmpty(cli));
        // Nothing was stored for the person: no site list in the config home.
        QCOMPARE(test::filesHolding(cli.folder() + u"/config"_s, {"CI site"}), QStringList());
    }

    // SFTP with the private key given as text and its pass phrase, both from
    // the environment; the key file goes when the command ends.
    void sftpWithAKeyFromTheEnvironment() {
        test::SshServer ssh;
        TW_REQUIRE_SERVER(ssh);
        test::CliRunner cli;
        cli.withoutDesktop();
        cli.setVariable(u"CI_KEY"_s, QString::fromUtf8(test::readFile(ssh.encryptedKeyPath())).trimmed());
        cli.setVariable(u"CI_PHRASE"_s, test::SshServer::passphrase());
        test::GitRepository repo;
        const QString siteFile = writeSiteFile(repo, sftpSite(ssh));
        writePages(repo, 20);
        repo.commitAll(u"first"_s);
        const QStringList deploy = {u"--no-input"_s, u"deploy"_s, u"--site-file"_s,      siteFile,
                                    u"--key-env"_s,  u"CI_KEY"_s, u"--passphrase-env"_s, u"CI_PHRASE"_s};
        // The key file is owner-only for as long as it exists.
        QList<uint> modes;
        const auto lookAtTheKey = [&](QProcess&) { modes += keyFileModes(cli.folder() + u"/tmp"_s); };
        const test::ProcessSampler sampler({test::SshServer::passphrase().toUtf8()});
        test::ProcessSampler::Run run = sampler.run(cli, deploy, lookAtTheKey);
        QCOMPARE(run.complaints(0), QString());
        QCOMPARE(test::readFile(ssh.remoteFolder() + u"/site/café.html"_s), QByteArray("café"));
        QString output = run.result.out + run.result.err;

        const QString second = repo.commit({{u"pages/1/page1.html"_s, "changed"}}, u"second"_s);
        // Unchanged since the first run: an incremental run leaves it gone.
        QVERIFY(QFile::remove(ssh.remoteFolder() + u"/site/pages/2/page2.html"_s));
        run = sampler.run(cli, deploy, lookAtTheKey);
        QCOMPARE(run.complaints(0), QString());
        QVERIFY2(run.result.out.contains(u"1 file uploaded, 0 deleted"_s), run.result.describe().constData());
        QCOMPARE(test::readFile(ssh.remoteFolder() + u"/site/pages/1/page1.html"_s), QByteArray("changed"));
        QVERIFY(!QFile::exists(ssh.remoteFolder() + u"/site/pages/2/page2.html"_s));
        QVERIFY(test::readFile(ssh.remoteFolder() + u"/site/.tarnwell"_s)
                    .startsWith(QByteArray(second.toUtf8() + ',')));
        output += run.result.out + run.result.err;
        QVERIFY2(!output.contains(test::SshServer::passphrase()), qPrintable(output));
        QVERIFY(!modes.isEmpty());
        QCOMPARE(modes, QList<uint>(modes.size(), 0600));
        QVERIFY(temporaryFolderIsEmpty(cli));
    }

    // Ctrl-C or SIGTERM take the key file with them, wherever the command
    // is: reading the server's record, or running a script.
    void keyFileGoesOnInterrupt() {
        test::SshServer ssh;
        TW_REQUIRE_SERVER(ssh);
        test::CliRunner cli;
        cli.withoutDesktop();
        cli.setVariable(u"CI_KEY"_s, QString::fromUtf8(test::readFile(ssh.keyPath())));
        test::GitRepository repo;
        QJsonObject site = sftpSite(ssh);
        site.insert(u"preDeployScriptLocal"_s, u"exec sleep 30"_s);
        const QString siteFile = writeSiteFile(repo, site);
        writePages(repo, 5);
        repo.commitAll(u"first"_s);
        const QStringList deploy = {u"--no-input"_s, u"deploy"_s,    u"--site-file"_s,
                                    siteFile,        u"--key-env"_s, u"CI_KEY"_s};
        const QString temp = cli.folder() + u"/tmp"_s;
        const test::ProcessSampler sampler({});

        for (const int signal : {SIGINT, SIGTERM}) {
            bool sent = false;
            const test::ProcessSampler::Run run = sampler.run(cli, deploy, [&](QProcess& command) {
                if (sent || keyFileModes(temp).isEmpty())
                    return;
                // SIGINT as soon as the key is there (the record is read
                // then); SIGTERM while the local script runs.
                if (signal == SIGTERM && test::descendantsNamed("sleep", command.processId()).isEmpty())
                    return;
                ::kill(static_cast<pid_t>(command.processId()), signal);
                sent = true;
            });
            QVERIFY(sent);
            QVERIFY2(run.result.exitCode == 130, run.result.describe().constData());
            // The key's folder is gone (a script's own folder may stay).
            const QString left =
                QDir(temp).entryList({u"tarnwell-site-file-*"_s}, QDir::AllEntries | QDir::Hidden).join(u' ');
            QVERIFY2(left.isEmpty(), qPrintable(u"left after signal %1: "_s.arg(signal) + left + u'\n' +
                                                QString::fromUtf8(run.result.describe())));
        }
        QVERIFY(!QFile::exists(ssh.remoteFolder() + u"/site/.tarnwell"_s));
    }

    // A record that cannot be read is no first deployment: the command says
    // why and ends with exit code 8, before anything is sent.
    void unreadableRecordIsNoFirstDeployment() {
        TW_REQUIRE_SERVER(*m_ftp);
        test::CliRunner cli;
        cli.withoutDesktop();
        test::GitRepository repo;
        repo.commit({{u"index.html"_s, "x"}}, u"one"_s);
        QString siteFile;
        const auto site = [&](quint16 port) {
            siteFile =
                writeSiteFile(repo, {{u"port"_s, QString::number(port)}, {u"remotePath"_s, u"unread/"_s}});
        };

        // The server is down.
        site(test::ServerProcess::freePort());
        for (const QString& command : {u"status"_s, u"deploy"_s}) {
            const test::CliResult result = cli.run({u"--no-input"_s, command, u"--site-file"_s, siteFile});
            QVERIFY2(result.exitCode == 8, result.describe().constData());
            QVERIFY2(result.err.contains(u"record"_s) && result.err.contains(u"(7)"_s),
                     result.describe().constData());
            QVERIFY2(!result.out.contains(u"never deployed"_s), result.describe().constData());
        }

        // No password given: the login is refused.
        site(m_ftp->port());
        const test::CliResult result = cli.run({u"status"_s, u"--site-file"_s, siteFile});
        QVERIFY2(result.exitCode == 8, result.describe().constData());
        QVERIFY2(result.err.contains(u"(67)"_s), result.describe().constData());
        QVERIFY2(!result.out.contains(u"never deployed"_s), result.describe().constData());
        QVERIFY(!QFile::exists(m_ftp->homeFolder() + u"/unread"_s));

        // A server that accepts and never says a word: Ctrl-C ends the read
        // at once, without waiting for its time-out.
        const test::SilentServer silent;
        QVERIFY2(silent.isRunning(), qPrintable(silent.errorString()));
        site(silent.port());
        QElapsedTimer sinceSignal;
        const test::ProcessSampler::Run run = test::ProcessSampler({}).run(
            cli, {u"status"_s, u"--site-file"_s, siteFile}, [&](QProcess& command) {
                if (sinceSignal.isValid() || test::descendantsNamed("curl", command.processId()).isEmpty())
                    return;
                ::kill(static_cast<pid_t>(command.processId()), SIGINT);
                sinceSignal.start();
            });
        QVERIFY(sinceSignal.isValid());
        QVERIFY2(run.result.exitCode == 130, run.result.describe().constData());
        QVERIFY2(sinceSignal.elapsed() < 4000, qPrintable(QString::number(sinceSignal.elapsed())));
        QVERIFY(temporaryFolderIsEmpty(cli));
    }

    // What a CI job must not get past: a password in the site file, a
    // variable that is not set, a secret option without a site file.
    void refusals() {
        test::CliRunner cli;
        cli.withoutDesktop();
        test::GitRepository repo;
        const QString siteFile =
            writeSiteFile(repo, {{u"password"_s, kFilePassword}, {u"remotePath"_s, u"refused/"_s}});
        repo.commit({{u"index.html"_s, "x"}}, u"one"_s);

        test::CliResult result = cli.run({u"deploy"_s, u"--site-file"_s, siteFile});
        QCOMPARE(result.exitCode, 7);
        QVERIFY2(result.err.contains(u"holds a password"_s), result.describe().constData());
        QVERIFY(!result.err.contains(kFilePassword));

        writeSiteFile(repo, {{u"remotePath"_s, u"refused/"_s}});
        result =
            cli.run({u"deploy"_s, u"--site-file"_s, siteFile, u"--password-env"_s, u"CI_NOT_SET_ANYWHERE"_s});
        QCOMPARE(result.exitCode, 7);
        QVERIFY2(result.err.contains(u"CI_NOT_SET_ANYWHERE"_s) && result.err.contains(u"not set"_s),
                 result.describe().constData());

        // No user name: the server cannot be asked for its record at all.
        writeSiteFile(repo, {{u"username"_s, QJsonValue()}, {u"remotePath"_s, u"refused/"_s}});
        result = cli.run({u"status"_s, u"--site-file"_s, siteFile});
        QVERIFY2(result.exitCode == 7, result.describe().constData());
        QVERIFY2(!result.out.contains(u"never deployed"_s), result.describe().constData());

        result = cli.run({u"deploy"_s, u"--password-env"_s, u"HOME"_s});
        QCOMPARE(result.exitCode, 7);
        QVERIFY2(result.err.contains(u"--site-file"_s), result.describe().constData());

        result = cli.run({u"test"_s, u"--site-file"_s, cli.folder() + u"/missing.json"_s});
        QCOMPARE(result.exitCode, 7);
        QVERIFY2(result.err.contains(u"Cannot read the site file"_s), result.describe().constData());
        QVERIFY(!QFile::exists(m_ftp->homeFolder() + u"/refused"_s));
        QVERIFY(temporaryFolderIsEmpty(cli));
    }
};

QTEST_GUILESS_MAIN(TestCliCi)
#include "tst_cli_ci.moc"
