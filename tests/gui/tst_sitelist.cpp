#include "ScriptedInteraction.h"
#include "SiteListModel.h"
#include "SitesSidebar.h"
#include "TestEnvironment.h"
#include "keychain/TWPasswords.h"
#include "model/SiteListActions.h"
#include "model/Sites.h"

#include <QAbstractItemModelTester>
#include <QTest>
#include <QToolButton>

using namespace tw;
using namespace Qt::StringLiterals;

// The sidebar's site list: every operation is stored at once, in the right
// order, and "currentSiteIndex" keeps naming the site the person chose.
class TestSiteList : public QObject {
    Q_OBJECT

    static void store(const QStringList& names) {
        SiteList sites;
        for (const QString& name : names) {
            sites.append(Site::newSite());
            sites.last()->name = name;
        }
        Sites().storeWithSites(sites);
    }

    static QStringList storedNames() {
        QStringList names;
        for (const SitePtr& s : Sites().loadAll().value_or(SiteList()))
            names.append(s->name.value_or(QString()));
        return names;
    }

    static qsizetype current() { return SiteListActions::currentIndex(); }

private slots:
    void initTestCase() { test::TestEnvironment::isolate(); }
    void init() { test::TestEnvironment::resetPreferences(); }

    void operationsPersistInOrder() {
        store({u"A"_s, u"B"_s, u"C"_s});
        TWPasswords::setPassword(u"secret-b"_s, Sites().loadAll()->at(1)->siteId());
        SiteListActions::setCurrentIndex(1); // B
        test::ScriptedInteraction interaction;
        SitesSidebar sidebar(interaction);
        sidebar.show();
        SiteListModel& model = *sidebar.model();
        QAbstractItemModelTester tester(&model, QAbstractItemModelTester::FailureReportingMode::QtTest);

        // The copy follows its original with its own id and the same
        // password, and becomes the site shown.
        QTest::mouseClick(sidebar.duplicateButton(), Qt::LeftButton);
        const SiteList stored = *Sites().loadAll();
        QCOMPARE(storedNames(), (QStringList{u"A"_s, u"B"_s, u"B copy"_s, u"C"_s}));
        QVERIFY(stored.at(1)->siteId() != stored.at(2)->siteId());
        QCOMPARE(TWPasswords::getPasswordForSite(stored.at(2)->siteId()), u"secret-b"_s);
        QCOMPARE(current(), 2);

        // A move keeps the copy current.
        QVERIFY(model.moveSite(0, 3));
        QCOMPARE(storedNames(), (QStringList{u"B"_s, u"B copy"_s, u"C"_s, u"A"_s}));
        QCOMPARE(current(), 1);

        // Deleting asks, Cancel first; after Delete the next site takes the
        // copy's place, and its secret goes with it.
        interaction.answers = {u"Cancel"_s, u"Delete"_s};
        QTest::mouseClick(sidebar.removeButton(), Qt::LeftButton);
        QCOMPARE(interaction.alerts.at(0).buttons.first(), u"Cancel"_s);
        QCOMPARE(Sites().total(), 4);
        QTest::mouseClick(sidebar.removeButton(), Qt::LeftButton);
        QCOMPARE(storedNames(), (QStringList{u"B"_s, u"C"_s, u"A"_s}));
        QVERIFY(!TWPasswords::getPasswordForSite(stored.at(2)->siteId()));
        QCOMPARE(current(), 1);
        QCOMPARE(sidebar.currentRow(), 1);

        interaction.answers = {u"Delete"_s, u"Delete"_s, u"Delete"_s};
        for (int i = 0; i < 3; ++i)
            QVERIFY(sidebar.removeSite(0));
        QCOMPARE(sidebar.currentRow(), -1);
        QVERIFY(!sidebar.removeButton()->isEnabled());
    }
};

QTEST_MAIN(TestSiteList)
#include "tst_sitelist.moc"
