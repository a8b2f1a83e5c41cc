#include "CliRunner.h"
#include "ServerProcess.h"
#include "TestEnvironment.h"
#include "Traces.h"

#include <QFile>
#include <QJsonArray>
#include <QJsonObject>
#include <QTest>

using namespace tw;
using namespace Qt::StringLiterals;
using test::readFile;
using test::tree;

// The built tarnwell-cli against a real FTP server: add, status, deploy and
// its exit codes, a question without an answer, scripts
// and a server that does not answer.
class TestCliDeploy : public QObject {
    Q_OBJECT

    std::unique_ptr<test::FtpServer> m_ftp;

    QString www() const { return m_ftp->homeFolder() + u"/www"_s; }
    QString record() const { return QString::fromUtf8(readFile(www() + u"/.tarnwell"_s)); }

    test::CliResult addSite(const test::CliRunner& cli, const test::GitRepository& repo,
                            const QStringList& more = {}) const {
        return cli.addFtpSite(repo, *m_ftp, u"Blog"_s, u"www/"_s, more);
    }

private slots:
    void initTestCase() {
        test::TestEnvironment::isolate();
        m_ftp = std::make_unique<test::FtpServer>();
    }

    void init() {
        TW_REQUIRE_SERVER(*m_ftp);
        // The remote folder exists, as on a real server.
        QVERIFY(m_ftp->emptyFolder(u"www"_s));
    }

    void addStatusDeployStatus() {
        test::CliRunner cli;
        test::GitRepository repo;
        const QString first = repo.commit(
            {{u"index.html"_s, "<h1>one</h1>"}, {u"old.html"_s, "old"}, {u"css/site.css"_s, "body{}"}});
        test::CliResult r = addSite(cli, repo);
        QVERIFY2(r.exitCode == 0, r.describe().constData());

        QJsonObject status = cli.json({u"status"_s, u"--json"_s}).object();
        QCOMPARE(status.value(u"state"_s).toString(), u"toDeploy"_s);
        QCOMPARE(status.value(u"files"_s).toArray().size(), 3);

        r = cli.run({u"deploy"_s});
        QVERIFY2(r.exitCode == 0, r.describe().constData());
        QVERIFY2(r.out.contains(u"Deployed site 0 \u201cBlog\u201d: commit "_s + first),
                 r.describe().constData());
        QCOMPARE(tree(www()),
                 (QStringList{u".tarnwell"_s, u"css/site.css"_s, u"index.html"_s, u"old.html"_s}));
        QVERIFY2(record().startsWith(first + u","_s) && record().endsWith(u",main"_s), qPrintable(record()));
        QCOMPARE(cli.lastDeployed(), first);

        // Nothing left: deploy says so with its own code.
        status = cli.json({u"status"_s, u"--json"_s}).object();
        QCOMPARE(status.value(u"state"_s).toString(), u"allDeployed"_s);
        QCOMPARE(status.value(u"lastDeployedCommit"_s).toString(), first);
        r = cli.run({u"deploy"_s});
        QCOMPARE(r.exitCode, 3);
        QVERIFY2(r.err.contains(u"Nothing to deploy"_s), r.describe().constData());

        // A commit that modifies, adds and deletes: exactly those go.
        repo.remove(u"old.html"_s);
        const QString second =
            repo.commit({{u"index.html"_s, "<h1>two</h1>"}, {u"new.html"_s, "new"}}, u"second"_s);
        QMap<QString, QString> changes;
        for (const QJsonValue& file :
             cli.json({u"status"_s, u"--json"_s}).object().value(u"files"_s).toArray())
            changes.insert(file[u"path"_s].toString(), file[u"change"_s].toString());
        QCOMPARE(changes, (QMap<QString, QString>{
                              {u"index.html"_s, u"M"_s}, {u"new.html"_s, u"A"_s}, {u"old.html"_s, u"D"_s}}));
        r = cli.run({u"deploy"_s, u"--quiet"_s, u"Blog"_s});
        QVERIFY2(r.exitCode == 0, r.describe().constData());
        QVERIFY(!r.err.contains(u"Uploading files"_s));
        QCOMPARE(tree(www()),
                 (QStringList{u".tarnwell"_s, u"css/site.css"_s, u"index.html"_s, u"new.html"_s}));
        QCOMPARE(readFile(www() + u"/index.html"_s), QByteArray("<h1>two</h1>"));
        QVERIFY(record().startsWith(second + u","_s));
        QCOMPARE(cli.run({u"deploy"_s}).exitCode, 3);
    }

    // The counts printed are the files sent: an always-uploaded folder's own
    // row and a file listed twice are no transfers, so the last line says
    // everything is done.
    void countsArePrintedFilesSent() {
        test::CliRunner cli;
        test::GitRepository repo;
        repo.commit({{u"index.html"_s, "x"}});
        repo.write(u"dist/app.js"_s, "built"); // built, not committed
        repo.write(u"dist/app.css"_s, "built");
        test::CliResult r =
            addSite(cli, repo, {u"--always-upload"_s, u"dist"_s, u"--always-upload"_s, u"index.html"_s});
        QVERIFY2(r.exitCode == 0, r.describe().constData());
        r = cli.run({u"deploy"_s});
        QVERIFY2(r.exitCode == 0, r.describe().constData());
        QVERIFY2(r.err.contains(u"3 of 3 files done, 0 left"_s), r.describe().constData());
        QCOMPARE(tree(www()),
                 (QStringList{u".tarnwell"_s, u"dist/app.css"_s, u"dist/app.js"_s, u"index.html"_s}));
    }

    void foreignRecordWithoutAnswerChangesNothing() {
        test::CliRunner cli;
        test::GitRepository repo;
        const QString first = repo.commit({{u"a.txt"_s, "1"}}, u"one"_s);
        QCOMPARE(addSite(cli, repo).exitCode, 0);
        test::CliResult r = cli.run({u"deploy"_s});
        QVERIFY2(r.exitCode == 0, r.describe().constData());
        const QString second = repo.commit({{u"b.txt"_s, "2"}}, u"two"_s);

        // Someone deployed another branch to the server.
        const QByteArray foreign = "deadbee,100.0,other";
        QVERIFY(m_ftp->writeFile(u"www/.tarnwell"_s, foreign));
        const qsizetype uploads = readFile(m_ftp->transferLogPath()).count("\"PUT ");

        r = cli.run({u"deploy"_s});
        QCOMPARE(r.exitCode, 4);
        QVERIFY2(r.err.contains(u"Target site was last deployed with a different branch"_s),
                 r.describe().constData());
        QVERIFY(r.err.contains(u"--force"_s));
        QVERIFY(r.err.contains(u"Nothing was transferred."_s));
        // A server-commit answer does not answer a branch question.
        QCOMPARE(cli.run({u"deploy"_s, u"--use-server-commit"_s}).exitCode, 4);
        r = cli.run({u"deploy"_s, u"--answer"_s, u"Cancel"_s});
        QCOMPARE(r.exitCode, 5);
        QVERIFY(!QFile::exists(www() + u"/b.txt"_s));
        QCOMPARE(readFile(www() + u"/.tarnwell"_s), foreign);
        QCOMPARE(readFile(m_ftp->transferLogPath()).count("\"PUT "), uploads);
        QCOMPARE(cli.lastDeployed(), first);

        r = cli.run({u"deploy"_s, u"--force"_s});
        QVERIFY2(r.exitCode == 0, r.describe().constData());
        QVERIFY(r.err.contains(u"Answered \u201cForce deploy\u201d"_s));
        QVERIFY(QFile::exists(www() + u"/b.txt"_s));
        QVERIFY(record().startsWith(second + u","_s) && record().endsWith(u",main"_s));
    }

    void scriptAndConnectionErrors() {
        test::CliRunner cli;
        test::GitRepository repo;
        repo.commit({{u"index.html"_s, "x"}}, u"one"_s);
        QCOMPARE(addSite(cli, repo, {u"--pre-deploy-local"_s, u"echo preparing\nexit 3"_s}).exitCode, 0);

        test::CliResult r = cli.run({u"deploy"_s});
        QCOMPARE(r.exitCode, 6);
        QVERIFY2(r.err.contains(u"An error occured when running script"_s), r.describe().constData());
        QVERIFY(!QFile::exists(www() + u"/index.html"_s));
        QVERIFY(!QFile::exists(www() + u"/.tarnwell"_s));

        QCOMPARE(cli.run({u"edit"_s, u"Blog"_s, u"--pre-deploy-local"_s, QString()}).exitCode, 0);

        // A server that does not answer: the record cannot be read, nothing goes.
        const QString closedPort = QString::number(test::ServerProcess::freePort());
        QCOMPARE(cli.run({u"edit"_s, u"Blog"_s, u"--port"_s, closedPort}).exitCode, 0);
        r = cli.run({u"deploy"_s});
        QCOMPARE(r.exitCode, 8);
        QVERIFY2(r.err.contains(u"An error occured!"_s), r.describe().constData());
        QVERIFY(!QFile::exists(www() + u"/index.html"_s));
        QVERIFY(cli.lastDeployed().isEmpty());
    }
};

QTEST_GUILESS_MAIN(TestCliDeploy)
#include "tst_cli_deploy.moc"
