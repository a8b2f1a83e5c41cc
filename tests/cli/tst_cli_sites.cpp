#include "CliRunner.h"
#include "GitRepository.h"
#include "TestEnvironment.h"
#include "keychain/TWPasswords.h"

#include <QDir>
#include <QFile>
#include <QJsonArray>
#include <QJsonObject>
#include <QTest>

using namespace tw;
using namespace Qt::StringLiterals;

namespace {

QByteArray readFile(const QString& path) {
    QFile file(path);
    return file.open(QIODevice::ReadOnly) ? file.readAll() : QByteArray();
}

bool writeFile(const QString& path, const QByteArray& content) {
    QFile file(path);
    return file.open(QIODevice::WriteOnly) && file.write(content) == content.size();
}

} // namespace

// The command line's site list, status and import/export, run as a script
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

    void usageErrorsAndHelp() {
        test::CliRunner cli;
        test::CliResult r = cli.run({});
        QCOMPARE(r.exitCode, 2);
        QVERIFY(r.err.contains(u"Usage: tarnwell-cli"_s));
        r = cli.run({u"frobnicate"_s});
        QCOMPARE(r.exitCode, 2);
        QVERIFY2(r.err.contains(u"Unknown command"_s), r.describe().constData());
        r = cli.run({u"deploy"_s, u"--frobnicate"_s});
        QCOMPARE(r.exitCode, 2);
        r = cli.run({u"move"_s, u"0"_s});
        QCOMPARE(r.exitCode, 2);
        QVERIFY2(r.err.contains(u"Missing argument"_s), r.describe().constData());
        // A secret is never taken as an argument.
        r = cli.run({u"add"_s, u"--name"_s, u"x"_s, u"--password"_s, u"secret"_s});
        QCOMPARE(r.exitCode, 2);

        r = cli.run({u"deploy"_s, u"--help"_s});
        QCOMPARE(r.exitCode, 0);
        QVERIFY(r.out.startsWith(u"Usage: tarnwell-cli deploy [options] [SITE]"_s));
        QVERIFY2(r.out.contains(u"    4   a question needs an answer"_s), r.describe().constData());
        QVERIFY(r.out.contains(u"--use-server-commit"_s));
        r = cli.run({u"help"_s, u"status"_s});
        QCOMPARE(r.exitCode, 0);
        QVERIFY(r.out.startsWith(u"Usage: tarnwell-cli status"_s));

        // Nothing stored yet.
        r = cli.run({u"status"_s});
        QCOMPARE(r.exitCode, 7);
        QVERIFY2(r.err.contains(u"No sites defined."_s), r.describe().constData());
        QCOMPARE(sites(cli).size(), 0);
    }

    void siteListCommands() {
        test::CliRunner cli;
        test::GitRepository repo;
        repo.write(u"index.html"_s, "x");
        repo.commitAll(u"one"_s);

        // The editor's rules and messages; nothing is stored.
        test::CliResult r = cli.run({u"add"_s, u"--name"_s, u"Blog"_s, u"--folder"_s, repo.path(),
                                     u"--user"_s, u"me"_s, u"--port"_s, u"99999"_s, u"--password-stdin"_s},
                                    "s3cret\n");
        QCOMPARE(r.exitCode, 7);
        QVERIFY2(r.err.contains(u"host: Enter the server's host name or address."_s),
                 r.describe().constData());
        QVERIFY2(r.err.contains(u"port: The port must be a number from 1 to 65535."_s),
                 r.describe().constData());
        QCOMPARE(sites(cli).size(), 0);

        r = add(cli, u"Blog"_s, repo.path());
        QVERIFY2(r.exitCode == 0, r.describe().constData());
        r = add(cli, u"Shop"_s, repo.path(), "other\n");
        QVERIFY2(r.exitCode == 0, r.describe().constData());
        QVERIFY(r.out.contains(u"tarnwell-cli use 1"_s));

        QJsonArray list = sites(cli);
        QCOMPARE(list.size(), 2);
        QJsonObject blog = list.at(0).toObject();
        QCOMPARE(blog.value(u"index"_s).toInt(), 0);
        QCOMPARE(blog.value(u"name"_s).toString(), u"Blog"_s);
        QCOMPARE(blog.value(u"protocol"_s).toString(), u"FTP"_s);
        QCOMPARE(blog.value(u"host"_s).toString(), u"ftp.example.org"_s);
        QCOMPARE(blog.value(u"user"_s).toString(), u"me"_s);
        QCOMPARE(blog.value(u"branch"_s).toString(), u"main"_s); // the branch checked out
        QCOMPARE(blog.value(u"remotePath"_s).toString(), u"www/"_s);
        QCOMPARE(blog.value(u"folder"_s).toString(), repo.path());
        QVERIFY(blog.value(u"lastDeployedCommit"_s).isNull());
        QVERIFY(blog.value(u"current"_s).toBool());
        const QString blogId = blog.value(u"id"_s).toString();
        QVERIFY(!blogId.isEmpty());
        QCOMPARE(TWPasswords::getPasswordForSite(blogId), u"s3cret"_s);
        QCOMPARE(TWPasswords::getPasswordForSite(list.at(1).toObject().value(u"id"_s).toString()),
                 u"other"_s);

        r = cli.run({u"use"_s, u"Shop"_s});
        QVERIFY2(r.exitCode == 0, r.describe().constData());
        QVERIFY(sites(cli).at(1).toObject().value(u"current"_s).toBool());

        // A copy after the original, with its own id and the same password;
        // the current site stays the same site.
        r = cli.run({u"duplicate"_s, u"0"_s});
        QVERIFY2(r.exitCode == 0, r.describe().constData());
        list = sites(cli);
        QCOMPARE(list.size(), 3);
        const QJsonObject copy = list.at(1).toObject();
        QCOMPARE(copy.value(u"name"_s).toString(), u"Blog copy"_s);
        QVERIFY(copy.value(u"id"_s).toString() != blogId);
        QCOMPARE(TWPasswords::getPasswordForSite(copy.value(u"id"_s).toString()), u"s3cret"_s);
        QVERIFY(list.at(2).toObject().value(u"current"_s).toBool());

        r = cli.run({u"move"_s, u"Shop"_s, u"0"_s});
        QVERIFY2(r.exitCode == 0, r.describe().constData());
        list = sites(cli);
        QCOMPARE(list.at(0).toObject().value(u"name"_s).toString(), u"Shop"_s);
        QVERIFY(list.at(0).toObject().value(u"current"_s).toBool());
        QCOMPARE(cli.run({u"move"_s, u"Shop"_s, u"3"_s}).exitCode, 2);

        // Removing takes the secrets along.
        r = cli.run({u"remove"_s, u"Blog copy"_s});
        QVERIFY2(r.exitCode == 0, r.describe().constData());
        QCOMPARE(sites(cli).size(), 2);
        QCOMPARE(TWPasswords::getPasswordForSite(copy.value(u"id"_s).toString()), std::nullopt);
        r = cli.run({u"remove"_s, u"Nope"_s});
        QCOMPARE(r.exitCode, 7);
        QVERIFY2(r.err.contains(u"No site is named or numbered \u201cNope\u201d"_s),
                 r.describe().constData());
        QVERIFY(r.err.contains(u"1 \u201cBlog\u201d"_s));

        // Editing keeps what is not given, with the editor's rules.
        r = cli.run({u"edit"_s, u"Blog"_s});
        QCOMPARE(r.exitCode, 2);
        r = cli.run({u"edit"_s, u"Blog"_s, u"--branch"_s, u"bad branch"_s});
        QCOMPARE(r.exitCode, 7);
        QVERIFY2(r.err.contains(u"deploy branch: \u2018bad branch\u2019 cannot be a branch name"_s),
                 r.describe().constData());
        r = cli.run({u"edit"_s, u"Blog"_s, u"--remote-path"_s, u"htdocs"_s, u"--auto-deploy"_s});
        QVERIFY2(r.exitCode == 0, r.describe().constData());
        blog = sites(cli).at(1).toObject();
        QCOMPARE(blog.value(u"remotePath"_s).toString(), u"htdocs/"_s);
        QVERIFY(blog.value(u"autoDeploy"_s).toBool());
        QCOMPARE(blog.value(u"host"_s).toString(), u"ftp.example.org"_s);
        QCOMPARE(TWPasswords::getPasswordForSite(blogId), u"s3cret"_s);
        r = cli.run({u"edit"_s, u"1"_s, u"--password-stdin"_s}, "changed\n");
        QVERIFY2(r.exitCode == 0, r.describe().constData());
        QCOMPARE(TWPasswords::getPasswordForSite(blogId), u"changed"_s);
        r = cli.run({u"edit"_s, u"1"_s, u"--no-password"_s});
        QVERIFY2(r.exitCode == 0, r.describe().constData());
        QCOMPARE(TWPasswords::getPasswordForSite(blogId), std::nullopt);
    }

    void statusSaysWhyNothingIsListed() {
        test::CliRunner cli;
        test::GitRepository repo;
        repo.write(u"index.html"_s, "x");
        repo.write(u"css/site.css"_s, "body{}");
        repo.commitAll(u"one"_s);
        QCOMPARE(add(cli, u"Blog"_s, repo.path()).exitCode, 0);

        int code = -1;
        QJsonObject status = cli.json({u"status"_s, u"--json"_s}, &code).object();
        QCOMPARE(code, 0);
        QCOMPARE(status.value(u"state"_s).toString(), u"toDeploy"_s);
        QCOMPARE(status.value(u"deployBranch"_s).toString(), u"main"_s);
        QCOMPARE(status.value(u"checkedOutBranch"_s).toString(), u"main"_s);
        QVERIFY(status.value(u"lastDeployedCommit"_s).isNull());
        QCOMPARE(status.value(u"site"_s).toObject().value(u"name"_s).toString(), u"Blog"_s);
        const QJsonArray files = status.value(u"files"_s).toArray();
        QCOMPARE(files.size(), 2);
        QStringList paths;
        for (const QJsonValue& file : files) {
            QCOMPARE(file.toObject().value(u"change"_s).toString(), u"A"_s);
            paths.append(file.toObject().value(u"path"_s).toString());
        }
        paths.sort();
        QCOMPARE(paths, (QStringList{u"css/site.css"_s, u"index.html"_s}));
        test::CliResult r = cli.run({u"status"_s, u"Blog"_s});
        QCOMPARE(r.exitCode, 0);
        QVERIFY2(r.out.contains(u"  A   index.html"_s), r.describe().constData());

        // Another branch checked out: the placeholder's text, and no list.
        repo.git({u"checkout"_s, u"-q"_s, u"-b"_s, u"feature"_s});
        status = cli.json({u"status"_s, u"--json"_s}, &code).object();
        QCOMPARE(code, 7);
        QCOMPARE(status.value(u"state"_s).toString(), u"wrongBranch"_s);
        QCOMPARE(status.value(u"checkedOutBranch"_s).toString(), u"feature"_s);
        QVERIFY(status.value(u"message"_s).toString().startsWith(u"A non-deployment branch"_s));
        QCOMPARE(status.value(u"files"_s).toArray().size(), 0);
        r = cli.run({u"deploy"_s});
        QCOMPARE(r.exitCode, 7);
        QVERIFY2(r.err.contains(u"Check out branch \u2018main\u2019"_s), r.describe().constData());
        repo.git({u"checkout"_s, u"-q"_s, u"main"_s});

        // The folder is no repository any more.
        QVERIFY(QDir(repo.path()).rename(u".git"_s, u"git-away"_s));
        r = cli.run({u"status"_s});
        QCOMPARE(r.exitCode, 7);
        QVERIFY2(r.out.contains(u"Not a valid Git repository '"_s + repo.path() + u"'."_s),
                 r.describe().constData());
        QVERIFY(QDir(repo.path()).rename(u"git-away"_s, u".git"_s));
    }

    void importExportRoundTrip() {
        test::CliRunner cli;
        test::GitRepository repo;
        repo.write(u"index.html"_s, "x");
        repo.commitAll(u"one"_s);
        QCOMPARE(add(cli, u"Blog"_s, repo.path()).exitCode, 0);
        const QString originalId = sites(cli).at(0).toObject().value(u"id"_s).toString();

        // The plain-text warning is a question: without a terminal it needs --yes.
        const QString file = cli.folder() + u"/Tarnwell.json"_s;
        test::CliResult r = cli.run({u"export"_s, file});
        QCOMPARE(r.exitCode, 4);
        QVERIFY2(r.err.contains(u"Continue export?"_s) && r.err.contains(u"--yes"_s),
                 r.describe().constData());
        QVERIFY(!QFile::exists(file));
        r = cli.run({u"export"_s, u"--yes"_s, file});
        QVERIFY2(r.exitCode == 0, r.describe().constData());
        const QJsonArray exported = QJsonDocument::fromJson(readFile(file)).array();
        QCOMPARE(exported.size(), 1);
        QCOMPARE(exported.at(0).toObject().value(u"name"_s).toString(), u"Blog"_s);
        QCOMPARE(exported.at(0).toObject().value(u"password"_s).toString(), u"s3cret"_s);
        QCOMPARE(QFile::permissions(file) & (QFileDevice::ReadGroup | QFileDevice::ReadOther), 0);

        // Another machine: the site comes back with an id of its own and its
        // password in the secret store; a second import adds it again.
        test::CliRunner other;
        r = other.run({u"import"_s, file});
        QVERIFY2(r.exitCode == 0, r.describe().constData());
        QVERIFY(r.out.contains(u"Imported 1 site"_s));
        QJsonArray imported = sites(other);
        QCOMPARE(imported.size(), 1);
        const QJsonObject site = imported.at(0).toObject();
        QCOMPARE(site.value(u"name"_s).toString(), u"Blog"_s);
        QCOMPARE(site.value(u"folder"_s).toString(), repo.path());
        QVERIFY(site.value(u"id"_s).toString() != originalId);
        QCOMPARE(TWPasswords::getPasswordForSite(site.value(u"id"_s).toString()), u"s3cret"_s);
        QCOMPARE(other.run({u"import"_s, file}).exitCode, 0);
        QCOMPARE(sites(other).size(), 2);

        // Files that hold no sites add nothing and say why.
        const QString garbage = other.folder() + u"/garbage.json"_s;
        QVERIFY(writeFile(garbage, "this is not json"));
        r = other.run({u"import"_s, garbage});
        QCOMPARE(r.exitCode, 1);
        QVERIFY2(r.err.contains(u"Could not import sites!"_s), r.describe().constData());
        const QString object = other.folder() + u"/object.json"_s;
        QVERIFY(writeFile(object, "{\"name\": \"Blog\"}"));
        r = other.run({u"import"_s, object});
        QCOMPARE(r.exitCode, 1);
        QVERIFY2(r.err.contains(u"Cannot read JSON file, seems not valid."_s), r.describe().constData());
        r = other.run({u"import"_s, other.folder() + u"/missing.json"_s});
        QCOMPARE(r.exitCode, 1);
        QCOMPARE(sites(other).size(), 2);
    }

    void setUpErrors() {
        test::CliRunner cli;
        test::GitRepository repo;
        repo.write(u"index.html"_s, "x");
        repo.commitAll(u"one"_s);

        // A site without any user name (an export file may lack the key):
        // refused before anything is sent.
        const QString file = cli.folder() + u"/nouser.json"_s;
        QVERIFY(writeFile(file, QJsonDocument(QJsonArray{QJsonObject{{u"name"_s, u"NoUser"_s},
                                                                     {u"localPath"_s, repo.path()},
                                                                     {u"host"_s, u"ftp.example.org"_s},
                                                                     {u"protocol"_s, u"FTP"_s},
                                                                     {u"deployBranch"_s, u"main"_s},
                                                                     {u"remotePath"_s, u"www/"_s}}})
                                    .toJson()));
        QCOMPARE(cli.run({u"import"_s, file}).exitCode, 0);
        test::CliResult r = cli.run({u"deploy"_s, u"NoUser"_s});
        QCOMPARE(r.exitCode, 7);
        QVERIFY2(r.err.contains(u"You must provide a username in the remote settings"_s),
                 r.describe().constData());
        QCOMPARE(cli.run({u"deploy"_s, u"Nobody"_s}).exitCode, 7);

        // Without a secret store a password cannot be kept: no site is added,
        // and no site is deployed without its password.
        QCOMPARE(add(cli, u"Blog"_s, repo.path()).exitCode, 0);
        test::CliRunner noStore;
        noStore.environment().insert(u"DBUS_SESSION_BUS_ADDRESS"_s, u"unix:path=/nonexistent"_s);
        r = add(noStore, u"Blog"_s, repo.path());
        QCOMPARE(r.exitCode, 7);
        QVERIFY2(r.err.contains(u"The password cannot be stored: no secret store can be reached"_s),
                 r.describe().constData());
        QCOMPARE(sites(noStore).size(), 0);
        cli.environment().insert(u"DBUS_SESSION_BUS_ADDRESS"_s, u"unix:path=/nonexistent"_s);
        r = cli.run({u"deploy"_s, u"Blog"_s});
        QCOMPARE(r.exitCode, 7);
        QVERIFY2(r.err.contains(u"Cannot deploy: no secret store can be reached"_s),
                 r.describe().constData());
    }
};

QTEST_GUILESS_MAIN(TestCliSites)
#include "tst_cli_sites.moc"
