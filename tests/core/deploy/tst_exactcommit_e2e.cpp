#include "DeploySites.h"
#include "Inspection.h"
#include "TestEnvironment.h"
#include "keychain/TWPasswords.h"
#include "model/Sites.h"

#include <QDir>
#include <QJsonArray>
#include <QJsonDocument>
#include <QJsonObject>
#include <QMap>
#include <QTest>

using namespace tw;
using namespace Qt::StringLiterals;

namespace {

// Names a web site may well have, and that git, curl or the servers would
// quote, cut or misread.
const QStringList oddNames{u"caf\u00e9.html"_s,     u"\u65e5\u672c\u8a9e/\u7d22\u5f15.html"_s,
                           u"with space.html"_s,    u"quote\"d.html"_s,
                           u"back\\slash.html"_s,   u"hash#and%25.html"_s,
                           u"what?and&.html"_s,     u"[brackets].html"_s,
                           u"-leading-dash.html"_s, u".well-known/security.txt"_s};

} // namespace

// After a successful deployment the server holds, file for file and byte for
// byte, the deployed commit (within the sync root, without ignored files)
// and the always-uploaded paths, whatever the names, the working folder's
// uncommitted edits and the remote folder's absence before.
class TestExactCommitEndToEnd : public QObject {
    Q_OBJECT

    std::unique_ptr<test::FtpServer> m_ftp;
    std::unique_ptr<test::SshServer> m_ssh;

    // The site as an import gives it: its always-uploaded entries unchecked
    // list entries, its last deployed commit empty.
    SitePtr importedSite(const test::GitRepository& repo, bool sftp) {
        const auto entry = [](const QString& path) {
            return QString::fromUtf8(QJsonDocument(QJsonObject{{u"name"_s, path.section(u'/', -1)},
                                                               {u"pathWithFilename"_s, path},
                                                               {u"pathOnly"_s, QString()},
                                                               {u"status"_s, QJsonValue()}})
                                         .toJson());
        };
        QJsonObject json{
            {u"name"_s, u"Shop"_s},
            {u"localPath"_s, repo.path()},
            {u"host"_s, u"127.0.0.1"_s},
            {u"syncRootPath"_s, u"dist"_s},
            {u"deployBranch"_s, u"main"_s},
            {u"lastCommitDeployed"_s, QJsonValue()},
            {u"mandatoryFiles"_s, QJsonArray{entry(u"dist/build/app.js"_s), entry(u"dist/generated"_s)}},
            {u"ignoredFiles"_s, QJsonArray{entry(u"dist/drafts/"_s)}},
            {u"preDeployScriptLocal"_s, u"mkdir -p dist/build dist/generated/deep\n"
                                        u"echo built > dist/build/app.js\n"
                                        u"echo made > dist/generated/deep/out.txt\n"_s},
        };
        if (sftp) {
            json.insert(u"protocol"_s, u"SFTP"_s);
            json.insert(u"port"_s, QString::number(m_ssh->port()));
            json.insert(u"username"_s, test::SshServer::userName());
            json.insert(u"sshKeyPath"_s, m_ssh->keyPath());
            json.insert(u"remotePath"_s, u"~/deep/www/"_s);
        } else {
            json.insert(u"protocol"_s, u"FTP"_s);
            json.insert(u"port"_s, QString::number(m_ftp->port()));
            json.insert(u"username"_s, test::FtpServer::userName());
            json.insert(u"remotePath"_s, u"deep/www/"_s);
        }
        SitePtr site = Site::initWithDict(json);
        site->generateSiteId();
        if (!sftp)
            TWPasswords::setPassword(test::FtpServer::password(), site->siteId());
        return site;
    }

    // What the server's folder must hold: every committed file below dist/
    // but the drafts, as committed, and the built files.
    static QMap<QString, QByteArray> expected(const test::GitRepository& repo) {
        QMap<QString, QByteArray> files;
        for (const QString& path : repo.git({u"ls-files"_s, u"-z"_s}).split(QChar(0), Qt::SkipEmptyParts)) {
            if (!path.startsWith(u"dist/"_s) || path.startsWith(u"dist/drafts/"_s))
                continue;
            // (No committed file here ends in a blank, which git() would trim.)
            files.insert(path.mid(5), repo.git({u"cat-file"_s, u"blob"_s, u"HEAD:"_s + path}).toUtf8());
        }
        files.insert(u"build/app.js"_s, "built\n");
        files.insert(u"generated/deep/out.txt"_s, "made\n");
        return files;
    }

    static QMap<QString, QByteArray> onServer(const QString& folder) {
        QMap<QString, QByteArray> files;
        for (const QString& path : test::tree(folder)) {
            if (path != u".tarnwell"_s)
                files.insert(path, test::readFile(folder + u'/' + path));
        }
        return files;
    }

private slots:
    void initTestCase() {
        test::TestEnvironment::isolate();
        m_ftp = std::make_unique<test::FtpServer>();
        m_ssh = std::make_unique<test::SshServer>();
    }

    void serverHoldsTheCommit_data() {
        QTest::addColumn<bool>("sftp");
        QTest::newRow("FTP") << false;
        QTest::newRow("SFTP") << true;
    }

    void serverHoldsTheCommit() {
        QFETCH(bool, sftp);
        TW_REQUIRE_SERVER(*m_ftp);
        TW_REQUIRE_SERVER(*m_ssh);
        test::TestEnvironment::resetPreferences();
        const QString www =
            sftp ? m_ssh->remoteFolder() + u"/deep/www"_s : m_ftp->homeFolder() + u"/deep/www"_s;
        QDir(sftp ? m_ssh->remoteFolder() + u"/deep"_s : m_ftp->homeFolder() + u"/deep"_s)
            .removeRecursively();

        test::GitRepository repo;
        for (const QString& name : oddNames) {
            // pure-ftpd refuses a backslash in a name (553); sshd takes it.
            if (sftp || !name.contains(u'\\'))
                repo.write(u"dist/"_s + name, name.toUtf8());
        }
        const QString first = repo.commit({{u"dist/index.html"_s, "committed index"},
                                           {u"dist/dist/nested.html"_s, "a folder named like the sync root"},
                                           {u"dist/vendor/bootstrap/dist/css/bootstrap.css"_s, "css"},
                                           {u"dist/drafts/secret.html"_s, "ignored"},
                                           {u"distribution/not-deployed.html"_s, "beside the sync root"},
                                           {u"README.md"_s, "outside"},
                                           {u".gitignore"_s, "dist/build/\ndist/generated/\n"}});
        repo.write(u"dist/index.html"_s, "edited, not committed");

        test::DeployWindow window({importedSite(repo, sftp)});
        test::DeployAttempt attempt = window.deploy();
        QVERIFY2(attempt.deployed(), qPrintable(attempt.message));
        QCOMPARE(onServer(www), expected(repo));
        QVERIFY(test::readFile(www + u"/.tarnwell"_s).startsWith(QByteArray(first.toUtf8() + ',')));

        // The next commit changes, deletes and adds odd names; the edit stays
        // uncommitted.
        repo.write(u"dist/"_s + oddNames.at(0), "changed");
        repo.remove(u"dist/"_s + oddNames.at(3));
        repo.write(u"dist/new one#2.html"_s, "new");
        repo.git(
            {u"add"_s, u"-A"_s, u"dist/caf\u00e9.html"_s, u"dist/quote\"d.html"_s, u"dist/new one#2.html"_s});
        repo.git({u"commit"_s, u"-q"_s, u"-m"_s, u"second"_s});
        const QString second = repo.head();
        window.controller.setupFileList();
        attempt = window.deploy();
        QVERIFY2(attempt.deployed(), qPrintable(attempt.message));
        QCOMPARE(onServer(www), expected(repo));
        QVERIFY(test::readFile(www + u"/.tarnwell"_s).startsWith(QByteArray(second.toUtf8() + ',')));
        QCOMPARE(Sites().loadAll()->first()->lastCommitDeployed->sha1, second);
    }
};

QTEST_GUILESS_MAIN(TestExactCommitEndToEnd)
#include "tst_exactcommit_e2e.moc"
