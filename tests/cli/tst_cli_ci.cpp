#include "CliRunner.h"
#include "FtpServer.h"
#include "GitRepository.h"
#include "ProcessSampler.h"
#include "ServerProcess.h"
#include "SshServer.h"
#include "Traces.h"

#include <QDir>
#include <QDirIterator>
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

// Nothing of the run is left in the runner's temporary folder.
bool temporaryFolderIsEmpty(const test::CliRunner& cli) {
    return QDir(cli.folder() + u"/tmp"_s).isEmpty(QDir::AllEntries | QDir::NoDotAndDotDot | QDir::Hidden);
}

} // namespace

// A CI job's deployment: a site file in the repository, the secrets in
// environment variables, no D-Bus session and no secret store at all.
class TestCliCi : public test::CliTest {
    Q_OBJECT

    // The site file in the repository, "tarnwell-site.json", which the site
    // ignores: for the FTP server unless site says otherwise (single quotes
    // below stand for JSON's double ones).
    QString writeSiteFile(const test::GitRepository& repo, const QJsonObject& site) const {
        QJsonObject file =
            QJsonDocument::fromJson(
                u"{'protocol': 'FTP', 'host': '%1', 'port': '%2', 'username': '%3', 'name': 'CI site', "
                u"'localPath': '.', 'deployBranch': 'main', "
                u"'ignoredFiles': ['{\\'pathWithFilename\\': \\'tarnwell-site.json\\'}']}"_s
                    .arg(test::FtpServer::host(), QString::number(m_ftp->port()), test::FtpServer::userName())
                    .replace(u'\'', u'"')
                    .toUtf8())
                .object();
        for (auto it = site.begin(); it != site.end(); ++it)
            file.insert(it.key(), it.value());
        repo.write(u"tarnwell-site.json"_s, QJsonDocument(file).toJson());
        return repo.path() + u"/tarnwell-site.json"_s;
    }

    static QJsonObject sftpSite(const test::SshServer& ssh) {
        return {{u"protocol"_s, u"SFTP"_s},
                {u"host"_s, test::SshServer::host()},
                {u"port"_s, QString::number(ssh.port())},
                {u"username"_s, test::SshServer::userName()},
                {u"remotePath"_s, QString(ssh.remoteFolder() + u"/site/"_s)}};
    }

private slots:
    void firstAndIncrementalDeployment_data() {
        QTest::addColumn<bool>("sftp");
        QTest::newRow("FTP, password") << false;
        QTest::newRow("SFTP, key and pass phrase") << true;
    }

    // A first and an incremental deployment, checked on the server's disk;
    // the secret is in no file, output or command line, and the key file
    // is owner-only while it exists and gone afterwards.
    void firstAndIncrementalDeployment() {
        QFETCH(bool, sftp);
        test::SshServer ssh;
        TW_REQUIRE_SERVER(ssh);
        test::CliRunner cli;
        cli.withoutDesktop();
        test::GitRepository repo;
        QStringList deploy = {u"--no-input"_s, u"deploy"_s, u"--quiet"_s, u"--site-file"_s};
        QString root = www(u"ci/"_s);
        QString secret = test::FtpServer::password();
        if (sftp) {
            root = ssh.remoteFolder() + u"/site/"_s;
            secret = test::SshServer::passphrase();
            cli.setVariable(u"CI_KEY"_s, QString::fromUtf8(test::readFile(ssh.encryptedKeyPath())).trimmed());
            cli.setVariable(u"CI_PHRASE"_s, secret);
            deploy += {writeSiteFile(repo, sftpSite(ssh)), u"--key-env"_s, u"CI_KEY"_s, u"--passphrase-env"_s,
                       u"CI_PHRASE"_s};
        } else {
            cli.setVariable(u"CI_PASSWORD"_s, secret);
            deploy +=
                {writeSiteFile(repo, {{u"remotePath"_s, u"ci/"_s}}), u"--password-env"_s, u"CI_PASSWORD"_s};
        }
        for (int i = 0; i < 300; ++i)
            repo.write(u"pages/%1/page%2.html"_s.arg(i % 10).arg(i), "page " + QByteArray::number(i));
        repo.write(u"café.html"_s, "café");
        repo.commitAll(u"first"_s);

        QList<uint> modes;
        const auto lookAtTheKey = [&](QProcess&) { modes += keyFileModes(cli.folder() + u"/tmp"_s); };
        const test::ProcessSampler sampler({secret.toUtf8()});
        test::ProcessSampler::Run run = sampler.run(cli, deploy, lookAtTheKey);
        QCOMPARE(run.complaints(0), QString());
        QCOMPARE(test::readFile(root + u"café.html"_s), QByteArray("café"));
        QCOMPARE(test::readFile(root + u"pages/9/page299.html"_s), QByteArray("page 299"));
        QVERIFY(!QFile::exists(root + u"tarnwell-site.json"_s));
        QString output = run.result.out + run.result.err;

        // The next job knows nothing but the server's record: only what
        // changed goes.
        repo.write(u"café.html"_s, "café 2");
        repo.remove(u"pages/0/page0.html"_s);
        const QString second = repo.commitAll(u"second"_s);
        QVERIFY(QFile::remove(root + u"pages/9/page299.html"_s)); // not sent again: incremental
        run = sampler.run(cli, deploy, lookAtTheKey);
        QCOMPARE(run.complaints(0), QString());
        QVERIFY2(run.result.out.contains(u"1 file uploaded, 1 deleted"_s), run.result.describe().constData());
        QCOMPARE(test::readFile(root + u"café.html"_s), QByteArray("café 2"));
        QVERIFY(!QFile::exists(root + u"pages/0/page0.html"_s));
        QVERIFY(!QFile::exists(root + u"pages/9/page299.html"_s));
        QVERIFY(test::readFile(root + u".tarnwell"_s).startsWith(QByteArray(second.toUtf8() + ',')));

        output += run.result.out + run.result.err;
        QVERIFY2(!output.contains(secret), qPrintable(output));
        QCOMPARE(test::filesHolding(cli.folder(), {secret.toUtf8()}), QStringList());
        QVERIFY(temporaryFolderIsEmpty(cli));
        // Nothing was stored for the person: no site list in the config home.
        QCOMPARE(test::filesHolding(cli.folder() + u"/config"_s, {"CI site"}), QStringList());
        QCOMPARE(modes.isEmpty(), !sftp);
        QCOMPARE(modes, QList<uint>(modes.size(), 0600));
    }

    // SIGTERM while a script runs takes the key file with it.
    void keyFileGoesOnSignal() {
        test::SshServer ssh;
        TW_REQUIRE_SERVER(ssh);
        test::CliRunner cli;
        cli.withoutDesktop();
        cli.setVariable(u"CI_KEY"_s, QString::fromUtf8(test::readFile(ssh.keyPath())));
        test::GitRepository repo;
        QJsonObject site = sftpSite(ssh);
        site.insert(u"preDeployScriptLocal"_s, u"exec sleep 30"_s);
        const QString siteFile = writeSiteFile(repo, site);
        repo.commit({{u"index.html"_s, "x"}}, u"first"_s);
        bool sent = false;
        const test::ProcessSampler::Run run = test::ProcessSampler({}).run(
            cli, {u"--no-input"_s, u"deploy"_s, u"--site-file"_s, siteFile, u"--key-env"_s, u"CI_KEY"_s},
            [&](QProcess& command) {
                if (!sent && !keyFileModes(cli.folder() + u"/tmp"_s).isEmpty() &&
                    !test::descendantsNamed("sleep", command.processId()).isEmpty())
                    sent = ::kill(static_cast<pid_t>(command.processId()), SIGTERM) == 0;
            });
        QVERIFY(sent);
        TW_COMPARE_EXIT(130, run.result);
        QCOMPARE(keyFileModes(cli.folder() + u"/tmp"_s), QList<uint>());
        QVERIFY(!QFile::exists(ssh.remoteFolder() + u"/site/.tarnwell"_s));
    }

    // What a CI job must not get past, each before anything is sent: a
    // password in the site file, a variable that is not set, a server whose
    // record cannot be read (which is no first deployment).
    void refusals() {
        test::CliRunner cli;
        cli.withoutDesktop();
        const QString password = u"Ci-Secret-Never-Shown-47"_s;
        test::GitRepository repo;
        repo.commit({{u"index.html"_s, "x"}}, u"one"_s);
        const auto deploy = [&](QJsonObject site, const QStringList& more) {
            site.insert(u"remotePath"_s, u"refused/"_s);
            return cli.run(
                QStringList{u"--no-input"_s, u"deploy"_s, u"--site-file"_s, writeSiteFile(repo, site)} +
                more);
        };
        test::CliResult r = deploy({{u"password"_s, password}}, {});
        QVERIFY2(r.exitCode == 7 && r.err.contains(u"holds a password"_s) && !r.err.contains(password),
                 r.describe().constData());
        r = deploy({}, {u"--password-env"_s, u"CI_NOT_SET_ANYWHERE"_s});
        QVERIFY2(r.exitCode == 7 && r.err.contains(u"CI_NOT_SET_ANYWHERE"_s) && r.err.contains(u"not set"_s),
                 r.describe().constData());
        r = deploy({{u"port"_s, QString::number(test::ServerProcess::freePort())}}, {});
        QVERIFY2(r.exitCode == 8 && r.err.contains(u"record"_s) && r.err.contains(u"(7)"_s) &&
                     !r.out.contains(u"never deployed"_s),
                 r.describe().constData());
        QVERIFY(!QFile::exists(www(u"refused"_s)));
        QVERIFY(temporaryFolderIsEmpty(cli));
    }
};

QTEST_GUILESS_MAIN(TestCliCi)
#include "tst_cli_ci.moc"
