#include "CliRunner.h"
#include "SshServer.h"
#include "TestEnvironment.h"
#include "Traces.h"

#include <QDir>
#include <QFile>
#include <QJsonArray>
#include <QJsonObject>
#include <QTest>

using namespace tw;
using namespace Qt::StringLiterals;

namespace {

const QString kGitHubJob = u".github/workflows/tarnwell-deploy.yml"_s;
const QString kGitLabJob = u".gitlab-ci.yml"_s;

// The lines of a YAML literal block ("|") that follows the first line equal
// to marker (blanks around it ignored) after the first line equal to anchor,
// without their common indentation: the shell script a CI runner would run.
QString literalBlock(const QString& yaml, const QString& anchor, const QString& marker) {
    const QStringList lines = yaml.split(u'\n');
    qsizetype at = 0;
    while (at < lines.size() && lines.at(at).trimmed() != anchor)
        ++at;
    while (at < lines.size() && lines.at(at).trimmed() != marker)
        ++at;
    if (at >= lines.size())
        return QString();
    const auto indentOf = [](const QString& line) {
        qsizetype n = 0;
        while (n < line.size() && line.at(n) == u' ')
            ++n;
        return n;
    };
    const qsizetype markerIndent = indentOf(lines.at(at));
    QStringList block;
    qsizetype indent = -1;
    for (++at; at < lines.size(); ++at) {
        const QString& line = lines.at(at);
        if (line.trimmed().isEmpty()) {
            block.append(QString());
            continue;
        }
        if (indentOf(line) <= markerIndent)
            break;
        if (indent < 0)
            indent = indentOf(line);
        block.append(line.mid(indent));
    }
    return block.join(u'\n') + u'\n';
}

} // namespace

// 'init-ci' writes what a repository needs to deploy from CI, and what it
// writes works: the site file deploys, the job's own script runs green when
// there is nothing to deploy.
class TestCliInitCi : public QObject {
    Q_OBJECT

    std::unique_ptr<test::FtpServer> m_ftp;

    // Runs a job's script with sh -e, as the CI runner would, with
    // tarnwell-cli on the search path, no desktop session and the variables
    // given.
    static test::CliResult runJob(const test::CliRunner& cli, const test::GitRepository& repo,
                                  const QString& script, const QMap<QString, QString>& variables) {
        const QString bin = cli.folder() + u"/job-bin"_s;
        QDir().mkpath(bin);
        QFile::link(cli.program(), bin + u"/tarnwell-cli"_s);
        const QString home = cli.folder() + u"/job-home"_s;
        QDir().mkpath(home);
        QProcessEnvironment environment = cli.environment();
        environment.insert(u"PATH"_s, bin + u':' + environment.value(u"PATH"_s));
        environment.insert(u"HOME"_s, home);
        environment.insert(u"DBUS_SESSION_BUS_ADDRESS"_s, u"unix:path=/nonexistent/bus"_s);
        for (auto it = variables.cbegin(); it != variables.cend(); ++it)
            environment.insert(it.key(), it.value());
        return test::CliRunner::runProgram(u"/bin/sh"_s, {u"-e"_s, u"-c"_s, script}, environment,
                                           repo.path());
    }

    static QMap<QString, QString> gitHubVariables(const test::GitRepository& repo) {
        return {{u"GITHUB_WORKSPACE"_s, repo.path()},
                {u"GITHUB_REF_NAME"_s, u"main"_s},
                {u"GITHUB_SHA"_s, repo.git({u"rev-parse"_s, u"HEAD"_s})}};
    }

private slots:
    void initTestCase() {
        test::TestEnvironment::isolate();
        m_ftp = std::make_unique<test::FtpServer>();
    }

    // An FTP site: the files, what is printed, and the GitHub job deploying
    // from the site file, then going green on a push with nothing to deploy.
    void ftpSiteDeploysFromWhatItWrote() {
        TW_REQUIRE_SERVER(*m_ftp);
        test::CliRunner cli;
        test::GitRepository repo;
        repo.commit({{u"index.html"_s, "home"}, {u"about/index.html"_s, "about"}}, u"site"_s);
        test::CliResult r = cli.addFtpSite(repo, *m_ftp, u"Blog"_s, u"ci/"_s);
        QVERIFY2(r.exitCode == 0, r.describe().constData());

        r = cli.run({u"init-ci"_s, u"Blog"_s});
        QVERIFY2(r.exitCode == 0, r.describe().constData());
        // The secret to create, and where the package's address is set.
        QVERIFY2(r.out.contains(u"TARNWELL_PASSWORD"_s), r.describe().constData());
        QVERIFY2(!r.out.contains(u"TARNWELL_PASSPHRASE"_s) && !r.out.contains(u"TARNWELL_SSH_KEY"_s),
                 r.describe().constData());
        QVERIFY2(r.out.contains(u"TARNWELL_PACKAGE"_s) && r.out.contains(kGitHubJob),
                 r.describe().constData());

        const QByteArray siteFile = test::readFile(repo.path() + u"/tarnwell-site.json"_s);
        const QJsonObject site = QJsonDocument::fromJson(siteFile).object();
        QVERIFY2(!site.isEmpty(), siteFile.constData());
        QVERIFY(!site.contains(u"password"_s) || site.value(u"password"_s).toString().isEmpty());
        QCOMPARE(site.value(u"localPath"_s).toString(), u"."_s);
        QCOMPARE(site.value(u"deployBranch"_s).toString(), u"main"_s);
        const QByteArray job = test::readFile(repo.path() + u'/' + kGitHubJob);
        QVERIFY(job.contains("--password-env TARNWELL_PASSWORD"));
        QVERIFY(!job.contains("--passphrase-env") && !job.contains("--key-env"));
        QVERIFY(job.contains("${{ secrets.TARNWELL_PASSWORD }}"));
        for (const QString& path : test::tree(repo.path())) {
            if (!path.startsWith(u".git/"_s))
                QVERIFY2(
                    !test::readFile(repo.path() + u'/' + path).contains(test::FtpServer::password().toUtf8()),
                    qPrintable(path));
        }

        // Existing files stay unless --force is given.
        r = cli.run({u"init-ci"_s, u"Blog"_s});
        QVERIFY2(r.exitCode == 1 && r.err.contains(u"--force"_s), r.describe().constData());
        r = cli.run({u"init-ci"_s, u"Blog"_s, u"--gitlab"_s, u"--force"_s});
        QVERIFY2(r.exitCode == 0, r.describe().constData());
        QVERIFY2(r.out.contains(u"TARNWELL_PASSWORD"_s) && r.out.contains(kGitLabJob),
                 r.describe().constData());
        const QByteArray gitLab = test::readFile(repo.path() + u'/' + kGitLabJob);
        QVERIFY(gitLab.contains("--password-env TARNWELL_PASSWORD"));
        QVERIFY(!gitLab.contains("--passphrase-env"));
        repo.commitAll(u"deploy from CI"_s);

        // The GitHub job's deploy step, as the runner runs it.
        const QString script = literalBlock(QString::fromUtf8(job), u"- name: Deploy"_s, u"run: |"_s);
        QVERIFY2(script.contains(u"tarnwell-cli"_s), qPrintable(script));
        QMap<QString, QString> variables = gitHubVariables(repo);
        variables.insert(u"TARNWELL_PASSWORD"_s, test::FtpServer::password());
        r = runJob(cli, repo, script, variables);
        QVERIFY2(r.exitCode == 0, r.describe().constData());
        const QString www = m_ftp->homeFolder() + u"/ci"_s;
        QCOMPARE(test::tree(www).join(u" "_s), u".tarnwell about/index.html index.html"_s);
        QVERIFY(test::readFile(www + u"/.tarnwell"_s).startsWith(QByteArray(repo.head().toUtf8() + ',')));

        // A push that changes only the job: nothing to deploy, and the job is
        // no failure.
        repo.commit({{kGitHubJob, job + "# a comment\n"}}, u"job only"_s);
        variables.insert(u"GITHUB_SHA"_s, repo.git({u"rev-parse"_s, u"HEAD"_s}));
        r = runJob(cli, repo, script, variables);
        QVERIFY2(r.exitCode == 0, r.describe().constData());
        QVERIFY2(QString(r.out + r.err).contains(u"Nothing to deploy"_s), r.describe().constData());

        // The GitLab job's script runs the same way.
        const QString gitLabScript = literalBlock(QString::fromUtf8(gitLab), u"script:"_s, u"- |"_s);
        QVERIFY2(gitLabScript.contains(u"tarnwell-cli"_s), qPrintable(gitLabScript));
        r = runJob(cli, repo, gitLabScript,
                   {{u"CI_COMMIT_BRANCH"_s, u"main"_s},
                    {u"CI_COMMIT_SHA"_s, repo.git({u"rev-parse"_s, u"HEAD"_s})},
                    {u"TARNWELL_PASSWORD"_s, test::FtpServer::password()}});
        QVERIFY2(r.exitCode == 0, r.describe().constData());
        QVERIFY2(QString(r.out + r.err).contains(u"Nothing to deploy"_s), r.describe().constData());

        // A real failure stays one: a wrong variable name fails the job.
        r = runJob(cli, repo, script, gitHubVariables(repo));
        QVERIFY2(r.exitCode == 7, r.describe().constData());
    }

    // SFTP sites: the job passes the key, and the pass phrase only when the
    // key has one (a key without one would fail on the empty variable). A
    // key without pass phrase deploys, and serves the remote scripts too.
    void sftpKeysWithAndWithoutPassphrase() {
        test::SshServer ssh;
        TW_REQUIRE_SERVER(ssh);
        test::CliRunner cli;
        test::GitRepository repo;
        repo.commit({{u"index.html"_s, "home"}}, u"site"_s);
        const QString remote = ssh.remoteFolder() + u"/site/"_s;
        // The remote script's ssh names no key of its own: in CI it gets the
        // key of the environment.
        const QString sshOptions = u"-p %1 -o UserKnownHostsFile=/dev/null -o StrictHostKeyChecking=no "
                                   u"-o BatchMode=yes -o LogLevel=ERROR root@127.0.0.1"_s.arg(ssh.port());
        const QStringList sftp = {u"--protocol"_s,    u"SFTP"_s,
                                  u"--host"_s,        test::SshServer::host(),
                                  u"--port"_s,        QString::number(ssh.port()),
                                  u"--user"_s,        test::SshServer::userName(),
                                  u"--remote-path"_s, remote};
        test::CliResult r = cli.run(QStringList{u"add"_s, u"--name"_s, u"Plain"_s, u"--folder"_s, repo.path(),
                                                u"--key"_s, ssh.keyPath(), u"--post-deploy-remote"_s,
                                                u"touch %1ran-remotely"_s.arg(remote),
                                                u"--remote-post-connection"_s, sshOptions} +
                                    sftp);
        QVERIFY2(r.exitCode == 0, r.describe().constData());
        r = cli.run(QStringList{u"add"_s, u"--name"_s, u"Phrase"_s, u"--folder"_s, repo.path(), u"--key"_s,
                                ssh.encryptedKeyPath(), u"--passphrase-stdin"_s} +
                        sftp,
                    test::SshServer::passphrase().toUtf8() + '\n');
        QVERIFY2(r.exitCode == 0, r.describe().constData());

        r = cli.run({u"init-ci"_s, u"Phrase"_s, u"--gitlab"_s});
        QVERIFY2(r.exitCode == 0, r.describe().constData());
        QVERIFY2(r.out.contains(u"TARNWELL_SSH_KEY"_s) && r.out.contains(u"TARNWELL_PASSPHRASE"_s),
                 r.describe().constData());
        QVERIFY(
            test::readFile(repo.path() + u'/' + kGitLabJob).contains("--passphrase-env TARNWELL_PASSPHRASE"));

        r = cli.run({u"init-ci"_s, u"Plain"_s, u"--force"_s});
        QVERIFY2(r.exitCode == 0, r.describe().constData());
        QVERIFY2(r.out.contains(u"TARNWELL_SSH_KEY"_s) && !r.out.contains(u"TARNWELL_PASSPHRASE"_s) &&
                     !r.out.contains(u"TARNWELL_PASSWORD"_s),
                 r.describe().constData());
        const QByteArray job = test::readFile(repo.path() + u'/' + kGitHubJob);
        QVERIFY(job.contains("--key-env TARNWELL_SSH_KEY"));
        QVERIFY(!job.contains("--passphrase-env") && !job.contains("--password-env"));
        // The key's path on this machine means nothing in CI.
        QVERIFY(!test::readFile(repo.path() + u"/tarnwell-site.json"_s).contains(ssh.keyPath().toUtf8()));
        repo.commitAll(u"deploy from CI"_s);

        const QString script = literalBlock(QString::fromUtf8(job), u"- name: Deploy"_s, u"run: |"_s);
        QMap<QString, QString> variables = gitHubVariables(repo);
        variables.insert(u"TARNWELL_SSH_KEY"_s, QString::fromUtf8(test::readFile(ssh.keyPath())));
        r = runJob(cli, repo, script, variables);
        QVERIFY2(r.exitCode == 0, r.describe().constData());
        QCOMPARE(test::readFile(remote + u"index.html"_s), QByteArray("home"));
        QVERIFY2(QFile::exists(remote + u"ran-remotely"_s), r.describe().constData());
    }

    // The site's name goes into the jobs' comments: a line break in it
    // cannot start a YAML line of its own.
    void oddNamesStayInTheirComment() {
        TW_REQUIRE_SERVER(*m_ftp);
        test::CliRunner cli;
        test::GitRepository repo;
        repo.commit({{u"index.html"_s, "home"}}, u"site"_s);
        const QString name = u"Blog\non: [pull_request]\r\njobs: {}\u2028x"_s;
        QJsonObject site{{u"name"_s, name},
                         {u"localPath"_s, repo.path()},
                         {u"deployBranch"_s, u"main"_s},
                         {u"protocol"_s, u"FTP"_s},
                         {u"host"_s, test::FtpServer::host()},
                         {u"port"_s, QString::number(m_ftp->port())},
                         {u"username"_s, test::FtpServer::userName()},
                         {u"remotePath"_s, u"odd/"_s}};
        const QString exportFile = cli.folder() + u"/sites.json"_s;
        QVERIFY(test::writeFile(exportFile, QJsonDocument(QJsonArray{site}).toJson()));
        test::CliResult r = cli.run({u"import"_s, exportFile});
        QVERIFY2(r.exitCode == 0, r.describe().constData());

        for (const QString& jobFile : {kGitHubJob, kGitLabJob}) {
            QStringList arguments = {u"init-ci"_s, u"0"_s, u"--force"_s};
            if (jobFile == kGitLabJob)
                arguments.append(u"--gitlab"_s);
            r = cli.run(arguments);
            QVERIFY2(r.exitCode == 0, r.describe().constData());
            const QString job = QString::fromUtf8(test::readFile(repo.path() + u'/' + jobFile));
            for (const QString& line : job.split(u'\n')) {
                QVERIFY2(!line.startsWith(u"on: [pull"_s) && !line.startsWith(u"jobs: {}"_s) &&
                             !line.contains(u'\r') && !line.contains(QChar(0x2028)),
                         qPrintable(job));
            }
            QVERIFY2(job.startsWith(u"# Deploys the site Blog on: [pull_request]"_s), qPrintable(job));
        }
    }
};

QTEST_GUILESS_MAIN(TestCliInitCi)
#include "tst_cli_init_ci.moc"
