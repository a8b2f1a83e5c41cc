#include "CliRunner.h"
#include "TestEnvironment.h"
#include "Traces.h"

#include <QJsonArray>
#include <QTest>

using namespace tw;
using namespace Qt::StringLiterals;

// The command line's usage errors and broken imports, run as a script
// would run them: the built program, no terminal, exit codes and output.
// No server is needed here (see tst_cli_deploy).
class TestCliSites : public QObject {
    Q_OBJECT

    // Adds a site with a password; answers the exit code.
    static test::CliResult add(const test::CliRunner& cli, const QString& name, const QString& folder,
                               const QByteArray& password = "s3cret\n") {
        return cli.run({u"add"_s, u"--name"_s, name, u"--folder"_s, folder, u"--host"_s, u"ftp.example.org"_s,
                        u"--user"_s, u"me"_s, u"--remote-path"_s, u"www"_s, u"--password-stdin"_s},
                       password);
    }

    static QJsonArray sites(const test::CliRunner& cli) {
        return cli.json({u"sites"_s, u"--json"_s}).array();
    }

private slots:
    void initTestCase() { test::TestEnvironment::isolate(); }

    void usageErrorsAndNoSites() {
        test::CliRunner cli;
        test::CliResult r = cli.run({});
        QCOMPARE(r.exitCode, 2);
        QVERIFY(r.err.contains(u"Usage: tarnwell-cli"_s));
        r = cli.run({u"frobnicate"_s});
        QCOMPARE(r.exitCode, 2);
        QVERIFY2(r.err.contains(u"Unknown command"_s), r.describe().constData());
        r = cli.run({u"deploy"_s, u"--frobnicate"_s});
        QCOMPARE(r.exitCode, 2);
        // A secret is never taken as an argument.
        r = cli.run({u"add"_s, u"--name"_s, u"x"_s, u"--password"_s, u"secret"_s});
        QCOMPARE(r.exitCode, 2);

        // Nothing stored yet.
        r = cli.run({u"status"_s});
        QCOMPARE(r.exitCode, 7);
        QVERIFY2(r.err.contains(u"No sites defined."_s), r.describe().constData());
        QCOMPARE(sites(cli).size(), 0);
    }

    void brokenImportsAddNothing() {
        test::CliRunner cli;
        test::GitRepository repo;
        repo.commit({{u"index.html"_s, "x"}}, u"one"_s);
        QCOMPARE(add(cli, u"Blog"_s, repo.path()).exitCode, 0);
        // Files that hold no sites add nothing, lose nothing and say why.
        const QString garbage = cli.folder() + u"/garbage.json"_s;
        QVERIFY(test::writeFile(garbage, "this is not json"));
        test::CliResult r = cli.run({u"import"_s, garbage});
        QCOMPARE(r.exitCode, 1);
        QVERIFY2(r.err.contains(u"Could not import sites!"_s), r.describe().constData());
        r = cli.run({u"import"_s, cli.folder() + u"/missing.json"_s});
        QCOMPARE(r.exitCode, 1);
        QCOMPARE(sites(cli).size(), 1);
    }
};

QTEST_GUILESS_MAIN(TestCliSites)
#include "tst_cli_sites.moc"
