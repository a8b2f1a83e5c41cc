#include "TestEnvironment.h"
#include "model/SecurityBookmarkManager.h"

#include <QTemporaryDir>
#include <QTest>

using namespace tw;
using namespace Qt::StringLiterals;

class TestBookmarks : public QObject {
    Q_OBJECT

private slots:
    void initTestCase() { test::TestEnvironment::isolate(); }

    void bookmarksAreStaleWhenTheFolderIsGone() {
        auto folder = std::make_unique<QTemporaryDir>();
        const QString path = folder->path();
        const auto bookmark = SecurityBookmarkManager::bookmarkFor(path);
        QVERIFY(bookmark);
        QCOMPARE(SecurityBookmarkManager::resolve(*bookmark)->path, path);
        QVERIFY(!SecurityBookmarkManager::resolve(*bookmark)->isStale);
        folder.reset();
        QVERIFY(SecurityBookmarkManager::resolve(*bookmark)->isStale);
        QVERIFY(!SecurityBookmarkManager::bookmarkFor(path));
        QVERIFY(!SecurityBookmarkManager::resolve(QByteArray()));
    }
};

QTEST_GUILESS_MAIN(TestBookmarks)
#include "tst_bookmarks.moc"
