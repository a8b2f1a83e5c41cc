#include "CliRunner.h"
#include "SshServer.h"
#include "Traces.h"

#include <QDir>
#include <QFile>
#include <QJsonDocument>
#include <QJsonObject>
#include <QRegularExpression>
#include <QTest>

using namespace tw;
using namespace Qt::StringLiterals;

namespace {

const QString kGitHubJob = u".github/workflows/tarnwell-deploy.yml"_s;
const QString kGitLabJob = u".gitlab-ci.yml"_s;

// The shell script a CI runner would run: the YAML literal block ("|") on
// the first line 'marker' after 'anchor', the lines indented deeper.
QString jobScript(const QString& yaml, const QString& anchor, const QString& marker) {
    const QRegularExpression block(QRegularExpression::escape(anchor) + u"\\n(?:.*\\n)*?( *)"_s +
                                   QRegularExpression::escape(marker) + u"\\n((?:\\1 .*\\n| *\\n)*)"_s);
    return block.match(yaml).captured(2);
}

} // namespace

// 'init-ci' writes what a repository needs to deploy from CI, and what it
// writes works: the jobs' own scripts deploy, and go green when there is
// nothing to deploy.
class TestCliInitCi : public test::CliTest {
    Q_OBJECT

    // Runs a job's script with sh -e, as the CI runner would: in the
    // repository, tarnwell-cli on the search path, no desktop session, the
    // CI's variables and the secret variable given.
    static test::CliResult runJob(const test::CliRunner& cli, const test::GitRepository& repo,
                                  const QString& script, const QStringList& variables) {
        const QString bin = cli.folder() + u"/job-bin"_s;
        QDir().mkpath(bin);
        QFile::link(cli.program(), bin + u"/tarnwell-cli"_s);
        QProcessEnvironment environment = cli.environment();
        environment.insert(u"PATH"_s, bin + u':' + environment.value(u"PATH"_s));
        environment.insert(u"HOME"_s, cli.folder());
        environment.insert(u"DBUS_SESSION_BUS_ADDRESS"_s, u"unix:path=/nonexistent/bus"_s);
        const QString head = repo.git({u"rev-parse"_s, u"HEAD"_s});
        for (const auto& [name, value] :
             {std::pair(u"GITHUB_WORKSPACE"_s, repo.path()), std::pair(u"GITHUB_REF_NAME"_s, u"main"_s),
              std::pair(u"GITHUB_SHA"_s, head), std::pair(u"CI_COMMIT_BRANCH"_s, u"main"_s),
              std::pair(u"CI_COMMIT_SHA"_s, head)})
            environment.insert(name, value);
        for (qsizetype i = 0; i + 1 < variables.size(); i += 2)
            environment.insert(variables.at(i), variables.at(i + 1));
        return test::CliRunner::runProgram(u"/bin/sh"_s, {u"-e"_s, u"-c"_s, script}, environment,
                                           repo.path());
    }

private slots:
    // An FTP site: the files and what is printed hold no password; the
    // GitHub job deploys from the site file, and both jobs go green on a
    // push with nothing to deploy.
    void ftpSiteDeploysFromWhatItWrote() {
        test::CliRunner cli;
        test::GitRepository repo;
        repo.commit({{u"index.html"_s, "home"}, {u"about/index.html"_s, "about"}}, u"site"_s);
        TW_COMPARE_EXIT(0, cli.addFtpSite(repo, *m_ftp, u"Blog"_s, u"ci/"_s));

        test::CliResult r = cli.run({u"init-ci"_s, u"Blog"_s});
        TW_COMPARE_EXIT(0, r);
        QVERIFY2(r.out.contains(u"TARNWELL_PASSWORD"_s) && !r.out.contains(u"TARNWELL_SSH_KEY"_s),
                 r.describe().constData());
        const QByteArray job = test::readFile(repo.path() + u'/' + kGitHubJob);
        QVERIFY(job.contains("${{ secrets.TARNWELL_PASSWORD }}"));
        // Existing files stay unless --force is given.
        r = cli.run({u"init-ci"_s, u"Blog"_s, u"--gitlab"_s});
        QVERIFY2(r.exitCode == 1 && r.err.contains(u"--force"_s), r.describe().constData());
        TW_COMPARE_EXIT(0, cli.run({u"init-ci"_s, u"Blog"_s, u"--gitlab"_s, u"--force"_s}));
        const QByteArray gitLab = test::readFile(repo.path() + u'/' + kGitLabJob);
        QCOMPARE(test::filesHolding(repo.path(), {test::FtpServer::password().toUtf8()}), QStringList());
        repo.commitAll(u"deploy from CI"_s);

        const QString script = jobScript(QString::fromUtf8(job), u"- name: Deploy"_s, u"run: |"_s);
        const QStringList password = {u"TARNWELL_PASSWORD"_s, test::FtpServer::password()};
        TW_COMPARE_EXIT(0, runJob(cli, repo, script, password));
        QCOMPARE(test::tree(www(u"ci"_s)).join(u" "_s), u".tarnwell about/index.html index.html"_s);
        QVERIFY(test::readFile(www(u"ci/.tarnwell"_s)).startsWith(QByteArray(repo.head().toUtf8() + ',')));

        // A push that changes only the job: nothing to deploy, no failure.
        repo.commit({{kGitHubJob, job + "# a comment\n"}}, u"job only"_s);
        const QString gitLabScript = jobScript(QString::fromUtf8(gitLab), u"script:"_s, u"- |"_s);
        for (const QString& each : {script, gitLabScript}) {
            r = runJob(cli, repo, each, password);
            TW_COMPARE_EXIT(0, r);
            QVERIFY2(QString(r.out + r.err).contains(u"Nothing to deploy"_s), r.describe().constData());
        }
        // A real failure stays one: the secret variable missing fails the job.
        TW_COMPARE_EXIT(7, runJob(cli, repo, script, {}));
    }

    // An SFTP key without a pass phrase: the job passes the key alone (an
    // empty pass phrase variable would fail it), and the key serves the
    // remote script too.
    void sftpKeyDeploysAndRunsTheRemoteScript() {
        test::SshServer ssh;
        TW_REQUIRE_SERVER(ssh);
        test::CliRunner cli;
        test::GitRepository repo;
        repo.commit({{u"index.html"_s, "home"}}, u"site"_s);
        const QString remote = ssh.remoteFolder() + u"/site/"_s;
        // The remote script's ssh names no key of its own.
        const QString sshOptions = u"-p %1 -o UserKnownHostsFile=/dev/null -o StrictHostKeyChecking=no "
                                   u"-o BatchMode=yes -o LogLevel=ERROR root@127.0.0.1"_s.arg(ssh.port());
        const QStringList scripts = {u"--remote-post-connection"_s, sshOptions, u"--post-deploy-remote"_s,
                                     u"touch %1ran-remotely"_s.arg(remote)};
        TW_COMPARE_EXIT(0, cli.addSftpSite(repo, ssh, u"Plain"_s, ssh.keyPath(), scripts));
        const test::CliResult r = cli.run({u"init-ci"_s, u"Plain"_s});
        TW_COMPARE_EXIT(0, r);
        QVERIFY2(r.out.contains(u"TARNWELL_SSH_KEY"_s) && !r.out.contains(u"TARNWELL_PASSPHRASE"_s),
                 r.describe().constData());
        // The key's path on this machine means nothing in CI.
        QVERIFY(!test::readFile(repo.path() + u"/tarnwell-site.json"_s).contains(ssh.keyPath().toUtf8()));
        repo.commitAll(u"deploy from CI"_s);

        const QString job = QString::fromUtf8(test::readFile(repo.path() + u'/' + kGitHubJob));
        const QString key = QString::fromUtf8(test::readFile(ssh.keyPath()));
        TW_COMPARE_EXIT(0, runJob(cli, repo, jobScript(job, u"- name: Deploy"_s, u"run: |"_s),
                                  {u"TARNWELL_SSH_KEY"_s, key}));
        QCOMPARE(test::readFile(remote + u"index.html"_s), QByteArray("home"));
        QVERIFY(QFile::exists(remote + u"ran-remotely"_s));
    }
};

QTEST_GUILESS_MAIN(TestCliInitCi)
#include "tst_cli_init_ci.moc"
