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
        QCOMPARE(interaction.alerts.at(0).buttons, (QStringList{u"Cancel"_s, u"Delete"_s}));
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
};

QTEST_MAIN(TestSiteList)
#include "tst_sitelist.moc"
