#include "ImageResources.h"
#include "ScriptedInteraction.h"
#include "SiteListModel.h"
#include "SitesSidebar.h"
#include "TestEnvironment.h"
#include "app/Preferences.h"
#include "keychain/TWPasswords.h"
#include "model/SiteListActions.h"
#include "model/Sites.h"

#include <QAbstractItemModelTester>
#include <QAction>
#include <QListView>
#include <QMimeData>
#include <QSignalSpy>
#include <QTest>
#include <QToolButton>

using namespace tw;
using namespace Qt::StringLiterals;

// The sidebar's site list: every operation is stored at once, in the right
// order, and "currentSiteIndex" keeps naming the site the person chose.
class TestSiteList : public QObject {
    Q_OBJECT

    static SitePtr site(const QString& name, const QString& host = QString()) {
        SitePtr result = Site::newSite();
        result->name = name;
        if (!host.isEmpty())
            result->host = host;
        return result;
    }

    static void store(const QStringList& names) {
        SiteList sites;
        for (const QString& name : names)
            sites.append(site(name, name.toLower() + u".example.org"_s));
        Sites().storeWithSites(sites);
    }

    static QStringList storedNames() {
        QStringList names;
        for (const SitePtr& s : Sites().loadAll().value_or(SiteList()))
            names.append(s->name.value_or(QString()));
        return names;
    }

    static QStringList shownNames(const SiteListModel& model) {
        QStringList names;
        for (int row = 0; row < model.rowCount(); ++row)
            names.append(model.index(row).data().toString());
        return names;
    }

    static qsizetype current() { return SiteListActions::currentIndex(); }

private slots:
    void initTestCase() { test::TestEnvironment::isolate(); }
    void init() { test::TestEnvironment::resetPreferences(); }

    void modelShowsTheStoredList() {
        store({u"Blog"_s, u"Shop"_s});
        SiteListModel model;
        QAbstractItemModelTester tester(&model, QAbstractItemModelTester::FailureReportingMode::QtTest);
        QCOMPARE(shownNames(model), (QStringList{u"Blog"_s, u"Shop"_s}));
        QCOMPARE(model.index(1).data(SiteListModel::HostRole).toString(), u"shop.example.org"_s);
        QCOMPARE(model.siteAt(1)->siteIndex, 1);
        QVERIFY(!model.siteAt(2));

        // A site without a name still has a line.
        model.addSite(Site::newSite());
        QCOMPARE(model.index(2).data().toString(), u"Untitled site"_s);

        // The list stored by someone else (an import) shows at once.
        store({u"Imported"_s});
        QCOMPARE(shownNames(model), (QStringList{u"Imported"_s}));
    }

    void operationsPersistInOrder() {
        store({u"A"_s, u"B"_s, u"C"_s});
        TWPasswords::setPassword(u"secret-b"_s, Sites().loadAll()->at(1)->siteId());
        SiteListActions::setCurrentIndex(1); // B
        SiteListModel model;
        QAbstractItemModelTester tester(&model, QAbstractItemModelTester::FailureReportingMode::QtTest);

        // Duplicate: the copy follows its original, has its own id and the
        // same password; the current site stays B.
        const std::optional<int> copy = model.duplicateSite(1);
        QCOMPARE(copy, 2);
        QCOMPARE(storedNames(), (QStringList{u"A"_s, u"B"_s, u"B copy"_s, u"C"_s}));
        const SiteList stored = *Sites().loadAll();
        QVERIFY(stored.at(1)->siteId() != stored.at(2)->siteId());
        QCOMPARE(TWPasswords::getPasswordForSite(stored.at(2)->siteId()), u"secret-b"_s);
        QCOMPARE(current(), 1);

        // Move C to the front: B moves down one, and stays current.
        QVERIFY(model.moveSite(3, 0));
        QCOMPARE(storedNames(), (QStringList{u"C"_s, u"A"_s, u"B"_s, u"B copy"_s}));
        QCOMPARE(shownNames(model), storedNames());
        QCOMPARE(current(), 2);
        // And back down to the end.
        QVERIFY(model.moveSite(0, 3));
        QCOMPARE(storedNames(), (QStringList{u"A"_s, u"B"_s, u"B copy"_s, u"C"_s}));
        QCOMPARE(current(), 1);
        QVERIFY(!model.moveSite(0, 4));

        // Remove the copy: its secret goes with it.
        const QString copyId = stored.at(2)->siteId();
        QVERIFY(model.removeSite(2));
        QCOMPARE(storedNames(), (QStringList{u"A"_s, u"B"_s, u"C"_s}));
        QVERIFY(!TWPasswords::getPasswordForSite(copyId));
        QCOMPARE(current(), 1);

        // Add appends, stamped.
        const int added = model.addSite(site(u"D"_s));
        QCOMPARE(added, 3);
        QCOMPARE(storedNames(), (QStringList{u"A"_s, u"B"_s, u"C"_s, u"D"_s}));
        QVERIFY(Sites().loadAll()->at(3)->lastEdit().has_value());
        QCOMPARE(shownNames(model), storedNames());
    }

    // A drop is a move, whichever way the view reports it.
    void dragAndDropMoves() {
        store({u"A"_s, u"B"_s, u"C"_s});
        SiteListModel model;
        QAbstractItemModelTester tester(&model, QAbstractItemModelTester::FailureReportingMode::QtTest);
        QVERIFY(model.flags(model.index(0)) & Qt::ItemIsDragEnabled);
        QVERIFY(model.flags(QModelIndex()) & Qt::ItemIsDropEnabled);
        QVERIFY(!(model.flags(model.index(0)) & Qt::ItemIsDropEnabled));

        // Dragged A and dropped between B and C.
        std::unique_ptr<QMimeData> data(model.mimeData({model.index(0)}));
        QVERIFY(model.canDropMimeData(data.get(), Qt::MoveAction, 2, 0, QModelIndex()));
        QVERIFY(!model.canDropMimeData(data.get(), Qt::CopyAction, 2, 0, QModelIndex()));
        QVERIFY(model.dropMimeData(data.get(), Qt::MoveAction, 2, 0, QModelIndex()));
        QCOMPARE(storedNames(), (QStringList{u"B"_s, u"A"_s, u"C"_s}));

        // Dragged C and dropped below the last row: nothing changes.
        data.reset(model.mimeData({model.index(2)}));
        QVERIFY(model.dropMimeData(data.get(), Qt::MoveAction, -1, -1, QModelIndex()));
        QCOMPARE(storedNames(), (QStringList{u"B"_s, u"A"_s, u"C"_s}));

        // Dropped onto the first site: it goes before it.
        QVERIFY(model.dropMimeData(data.get(), Qt::MoveAction, -1, -1, model.index(0)));
        QCOMPARE(storedNames(), (QStringList{u"C"_s, u"B"_s, u"A"_s}));

        // The list view's own internal move.
        QVERIFY(model.moveRow(QModelIndex(), 0, QModelIndex(), 3));
        QCOMPARE(storedNames(), (QStringList{u"B"_s, u"A"_s, u"C"_s}));

        // Something else dropped does nothing.
        QMimeData text;
        text.setText(u"0"_s);
        QVERIFY(!model.dropMimeData(&text, Qt::MoveAction, 0, 0, QModelIndex()));
        QMimeData stale;
        stale.setData(SiteListModel::mimeType(), "7");
        QVERIFY(!model.dropMimeData(&stale, Qt::MoveAction, 0, 0, QModelIndex()));
        QCOMPARE(storedNames(), (QStringList{u"B"_s, u"A"_s, u"C"_s}));
    }

    void selectionWritesTheCurrentSite() {
        store({u"A"_s, u"B"_s, u"C"_s});
        SiteListActions::setCurrentIndex(2);
        test::ScriptedInteraction interaction;
        SitesSidebar sidebar(interaction);
        sidebar.show();
        QCOMPARE(sidebar.currentRow(), 2);

        QListView* list = sidebar.listView();
        list->setCurrentIndex(sidebar.model()->index(0));
        QCOMPARE(current(), 0);
        // Someone else chose a site: the sidebar follows.
        SiteListActions::setCurrentIndex(1);
        QCOMPARE(sidebar.currentRow(), 1);

        QSignalSpy edits(&sidebar, &SitesSidebar::editSiteRequested);
        QSignalSpy adds(&sidebar, &SitesSidebar::addSiteRequested);
        QVERIFY(QTest::qWaitForWindowExposed(&sidebar));
        const QPoint third = list->visualRect(sidebar.model()->index(2)).center();
        QTest::mouseClick(list->viewport(), Qt::LeftButton, {}, third);
        QCOMPARE(current(), 2);
        QTest::mouseDClick(list->viewport(), Qt::LeftButton, {}, third);
        QCOMPARE(edits.size(), 1);
        QCOMPARE(edits.at(0).at(0).toInt(), 2);
        QTest::mouseClick(sidebar.addButton(), Qt::LeftButton);
        QCOMPARE(adds.size(), 1);
    }

    void duplicateAndDeleteFromTheSidebar() {
        store({u"A"_s, u"B"_s});
        SiteListActions::setCurrentIndex(0);
        test::ScriptedInteraction interaction;
        SitesSidebar sidebar(interaction);
        sidebar.show();

        // The copy becomes the site shown.
        QTest::mouseClick(sidebar.duplicateButton(), Qt::LeftButton);
        QCOMPARE(storedNames(), (QStringList{u"A"_s, u"A copy"_s, u"B"_s}));
        QCOMPARE(current(), 1);
        QCOMPARE(sidebar.currentRow(), 1);

        // Deleting asks; Cancel keeps the site.
        interaction.answers = {u"Cancel"_s};
        QTest::mouseClick(sidebar.removeButton(), Qt::LeftButton);
        QCOMPARE(interaction.alerts.size(), 1);
        QCOMPARE(interaction.alerts.at(0).message, u"Delete the site \u201cA copy\u201d?"_s);
        QCOMPARE(interaction.alerts.at(0).buttons, (QStringList{u"Delete"_s, u"Cancel"_s}));
        QCOMPARE(storedNames(), (QStringList{u"A"_s, u"A copy"_s, u"B"_s}));

        // The site after it takes its place as the current one.
        interaction.answers = {u"Delete"_s};
        QTest::mouseClick(sidebar.removeButton(), Qt::LeftButton);
        QCOMPARE(storedNames(), (QStringList{u"A"_s, u"B"_s}));
        QCOMPARE(current(), 1);
        QCOMPARE(sidebar.currentRow(), 1);
        QCOMPARE(sidebar.model()->siteAt(sidebar.currentRow())->name, u"B"_s);

        // The last site gone: nothing is selected, nothing can be deleted.
        interaction.answers = {u"Delete"_s, u"Delete"_s};
        QVERIFY(sidebar.removeSite(0));
        QVERIFY(sidebar.removeSite(0));
        QVERIFY(storedNames().isEmpty());
        QCOMPARE(sidebar.currentRow(), -1);
        QVERIFY(!sidebar.removeButton()->isEnabled());
        QVERIFY(!sidebar.duplicateButton()->isEnabled());
    }

    void collapsesAndRemembers() {
        test::ScriptedInteraction interaction;
        SitesSidebar sidebar(interaction);
        sidebar.show();
        QVERIFY(!SitesSidebar::isCollapsed());
        QVERIFY(sidebar.isVisible());
        const QImage shown = sidebar.toggleAction()->icon().pixmap(32, 32).toImage();
        QCOMPARE(shown, ImageResources::icon(u"ui-window-2-highlight"_s).pixmap(32, 32).toImage());

        sidebar.toggleAction()->trigger();
        QVERIFY(Preferences::instance().boolValue(u"sitesCollapsed"_s));
        QVERIFY(sidebar.isHidden());
        QCOMPARE(sidebar.toggleAction()->icon().pixmap(32, 32).toImage(),
                 ImageResources::icon(u"ui-window-2"_s).pixmap(32, 32).toImage());

        // A new window starts collapsed.
        SitesSidebar second(interaction);
        QVERIFY(second.isHidden());
        second.toggleSitesView();
        QVERIFY(!Preferences::instance().boolValue(u"sitesCollapsed"_s));
        QVERIFY(second.isVisible());
        QVERIFY(!sidebar.isHidden()); // both follow the preference
    }
};

QTEST_MAIN(TestSiteList)
#include "tst_sitelist.moc"
