#include "ScriptedInteraction.h"
#include "TestEnvironment.h"
#include "app/Preferences.h"
#include "model/SecurityBookmarkManager.h"

#include <QDir>
#include <QTemporaryDir>
#include <QTest>

using namespace tw;
using namespace Qt::StringLiterals;

class TestBookmarks : public QObject {
    Q_OBJECT

private slots:
    void initTestCase() { test::TestEnvironment::isolate(); }
    void init() { test::TestEnvironment::resetPreferences(); }

    void pickerStoresUnderTheChosenKey() {
        SecurityBookmarkManager keys;
        QVERIFY(!keys.startAccessing());

        QTemporaryDir folder;
        SecurityBookmarkManager scripts;
        scripts.useLocalScriptBookmark();
        test::ScriptedInteraction ui;
        ui.openPanelAnswer = folder.path();
        scripts.showFilePicker(ui);
        const OpenPanelRequest panel = ui.openPanels.first();
        QVERIFY(panel.canChooseDirectories && !panel.canChooseFiles && panel.showsHiddenFiles);
        QCOMPARE(panel.directory, u"/"_s);
        QCOMPARE(panel.message,
                 u"Due to security reasons you must select the root of your HD to user local scripting."_s);

        QCOMPARE(scripts.startAccessing(), folder.path());
        QVERIFY(Preferences::instance().dataValue(u"localFileBookmark"_s));
        QVERIFY(!Preferences::instance().contains(u"userPublicKeyDirectoryBookmark"_s));
        QVERIFY(!keys.startAccessing());

        // Cancelling keeps what was stored.
        test::ScriptedInteraction cancel;
        scripts.showFilePicker(cancel);
        QCOMPARE(scripts.startAccessing(), folder.path());
    }

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
