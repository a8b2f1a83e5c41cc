#include "GitRepository.h"
#include "TestEnvironment.h"
#include "git/TWGit.h"

#include <QFile>
#include <QTest>

using namespace tw;
using namespace Qt::StringLiterals;

class TestTWGit : public QObject {
    Q_OBJECT

    TWGit git;

private slots:
    void initTestCase() {
        test::TestEnvironment::isolate();
        QVERIFY2(QFile::exists(TWGit::gitPath()), qPrintable(TWGit::gitPath()));
    }

    void dirtyCheckExcusesDesktopMetadata() {
        test::GitRepository repo;
        repo.write(u"index.html"_s, "a");
        repo.write(u"sub/page.html"_s, "b");
        repo.commitAll(u"one"_s);
        QVERIFY(!git.isRepoDirtyAtPath(repo.path()));
        repo.write(u".DS_Store"_s, "x");
        repo.write(u"sub/.DS_Store"_s, "x");
        QVERIFY(!git.isRepoDirtyAtPath(repo.path()));
        repo.write(u"index.html"_s, "changed");
        QVERIFY(git.isRepoDirtyAtPath(repo.path()));
        repo.git({u"checkout"_s, u"index.html"_s});
        repo.write(u"new.txt"_s, "untracked counts");
        QVERIFY(git.isRepoDirtyAtPath(repo.path()));
    }

    void unsafeCommitIdsRunNothing() {
        test::GitRepository repo;
        repo.write(u"a"_s, "1");
        repo.commitAll(u"one"_s);
        for (const QString& id : {u"HEAD; touch pwned"_s, u"$(touch pwned)"_s, u"abc"_s,
                                  u"0123456789abcdef0123456789abcdef01234567a"_s, u"abcg123"_s, QString()}) {
            test::SystemLogCapture log;
            QVERIFY(!git.loadFilesAtPath(repo.path(), id));
            QVERIFY(!git.loadFilesAtPath(repo.path(), repo.head(), id));
            QVERIFY(!log.contains(u"TARNWELL - command:"_s));
            QVERIFY(log.contains(u"refused"_s));
        }
        QVERIFY(!QFile::exists(repo.path() + u"/pwned"_s));
        QVERIFY(TWGit::isAcceptableCommitId(u"ABCDEF12"_s));
    }
};

QTEST_GUILESS_MAIN(TestTWGit)
#include "tst_twgit.moc"
