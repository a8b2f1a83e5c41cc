#include "GitRepository.h"
#include "TestEnvironment.h"
#include "git/SiteManager.h"

#include <QDir>
#include <QFile>
#include <QTest>

using namespace tw;
using namespace Qt::StringLiterals;

namespace {

SitePtr siteAt(const std::optional<QString>& folder) {
    SitePtr site = Site::newSite();
    site->localPath = folder;
    return site;
}

void ignore(const SitePtr& site, const QStringList& paths) {
    site->ignoredFiles = std::make_shared<FileList>();
    for (const QString& path : paths)
        site->ignoredFiles->append(File::initWithPath(path));
}

// "letter path" of every file, to compare lists at a glance.
QStringList summary(const FileList& files) {
    QStringList out;
    for (const FilePtr& file : files)
        out.append(file->gitStatus.value_or(u"?"_s) + u' ' + file->pathWithFilename.value_or(u"?"_s));
    return out;
}

QStringList summary(const std::optional<FileList>& files) {
    return files ? summary(*files) : QStringList{u"<nothing>"_s};
}

} // namespace

class TestSiteManager : public QObject {
    Q_OBJECT

private slots:
    void initTestCase() { test::TestEnvironment::isolate(); }

    // Ignored entries and the sync root are folder prefixes: never a sibling
    // that shares a name's beginning, never a folder of the same name further
    // down; an empty sync root or "/" is the whole repository.
    void ignoredEntriesAndSyncRootArePrefixes() {
        SitePtr site = siteAt(u"/nowhere"_s);
        SiteManager manager(site);
        ignore(site, {u"css/"_s, u"drafts"_s});
        const QStringList ignoring{u"M\tcss/site.css"_s, u"M\tcssx/a.css"_s, u"D\tcss/old.css"_s,
                                   u"A\tdrafts2/x.html"_s, u"index.html"_s};
        QCOMPARE(summary(manager.createFileObjects(ignoring)),
                 (QStringList{u"M cssx/a.css"_s, u"A index.html"_s}));
        QVERIFY(manager.isIgnoredFile(u"drafts/post.md"_s));
        site->ignoredFiles.reset();

        const QStringList lines{u"M\tpublic/index.html"_s, u"M\tindex.html"_s, u"D\tpublic/img/a.png"_s,
                                u"M\tpublicity/b.html"_s, u"M\tsrc/public/x.html"_s};
        for (const QString& written : {u"public/"_s, u"public"_s, u"/public"_s, u"./public/"_s}) {
            site->syncRootPath = written;
            QCOMPARE(summary(manager.createFileObjects(lines)),
                     (QStringList{u"M public/index.html"_s, u"D public/img/a.png"_s}));
        }
        for (const std::optional<QString>& root :
             {std::optional<QString>(u"/"_s), std::optional<QString>(u""_s), std::optional<QString>()}) {
            site->syncRootPath = root;
            QCOMPARE(manager.createFileObjects(lines).size(), lines.size());
        }
    }

    void firstAndLaterDeployments() {
        test::GitRepository repo;
        const QString first = repo.commit({{u"index.html"_s, "one"},
                                           {u"about.html"_s, "one"},
                                           {u"css/site.css"_s, "one"},
                                           {u"old/page.html"_s, "one"}});
        SitePtr site = siteAt(repo.path());
        SiteManager manager(site);
        const QStringList everything{u"A about.html"_s, u"A css/site.css"_s, u"A index.html"_s,
                                     u"A old/page.html"_s};
        QCOMPARE(summary(manager.getAllFiles()), everything);

        // A file with uncommitted changes is listed all the same: its
        // committed content is what a deployment sends.
        repo.write(u"about.html"_s, "changed, not committed");
        QCOMPARE(manager.uncommittedPaths(), QStringList{u"about.html"_s});
        QCOMPARE(summary(manager.getAllFiles()), everything);

        repo.write(u"index.html"_s, "two");
        repo.write(u"css/new.css"_s, "two");
        repo.remove(u"old/page.html"_s);
        repo.git({u"add"_s, u"index.html"_s, u"css/new.css"_s, u"old/page.html"_s});
        repo.git({u"commit"_s, u"-q"_s, u"-m"_s, u"second"_s});

        // A later deployment sends what changed between the deployed commit
        // and HEAD: what is staged but not committed stays out.
        repo.write(u"css/site.css"_s, "staged");
        repo.git({u"add"_s, u"css/site.css"_s});
        QCOMPARE(summary(manager.loadFilesFromCommit(first)),
                 (QStringList{u"A css/new.css"_s, u"M index.html"_s, u"D old/page.html"_s}));

        // A commit the repository no longer has (after a rebase) is told
        // apart from one without changes.
        QVERIFY(manager.commitExists(first));
        QVERIFY(!manager.commitExists(u"abcdef1"_s));
    }

    void noFolderStartsNoProcess() {
        for (const std::optional<QString>& folder :
             {std::optional<QString>(), std::optional<QString>(u""_s)}) {
            test::SystemLogCapture log;
            SiteManager manager(siteAt(folder));
            QVERIFY(!manager.getAllFiles());
            QVERIFY(!manager.loadFilesFromCommit(u"abcdef1"_s));
            QVERIFY(!manager.getBranches());
            QVERIFY(!manager.isGitDirectory());
            manager.checkoutBranch(u"main"_s);
            QVERIFY2(!log.contains(u"TARNWELL - command:"_s), qPrintable(log.lines().join(u'\n')));
        }
    }

    // Names git would take but a shell would not leave alone, options and
    // forged log lines are refused before any process starts.
    void hostileBranchNamesRunNothing() {
        test::GitRepository repo;
        repo.commit({{u"index.html"_s, "one"}});
        repo.git({u"branch"_s, u"feature/x"_s});
        SiteManager manager(siteAt(repo.path()));
        for (const QString& name :
             {u"main;touch pwned"_s, u"$(touch pwned)"_s, u"-b pwned"_s, u"main\nTARNWELL - forged"_s}) {
            test::SystemLogCapture log;
            manager.checkoutBranch(name);
            QVERIFY2(!log.contains(u"TARNWELL - command:"_s), qPrintable(name));
            QCOMPARE(log.lines().size(), 1); // refused, on one line
            QVERIFY(!QFile::exists(repo.path() + u"/pwned"_s));
        }
        manager.checkoutBranch(u"feature/x"_s);
        QCOMPARE(manager.getBranches()->current, u"feature/x"_s);
    }
};

QTEST_GUILESS_MAIN(TestSiteManager)
#include "tst_sitemanager.moc"
