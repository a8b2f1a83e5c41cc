#include "TestEnvironment.h"
#include "app/Preferences.h"
#include "deploy/Statistics.h"

#include <QDateTime>
#include <QTest>

using namespace tw;
using namespace Qt::StringLiterals;

// The lifetime count of uploaded files kept in the preferences.
class TestStatistics : public QObject {
    Q_OBJECT

private slots:
    void initTestCase() { test::TestEnvironment::isolate(); }
    void init() { test::TestEnvironment::resetPreferences(); }

    // The count adds up over runs; the start date is written once.
    void countsFromTheFirstUse() {
        QVERIFY(!Preferences::instance().value(u"stat_since"_s).isValid());
        const QDateTime before = QDateTime::currentDateTime().addSecs(-1);
        Statistics().addUploadedFiles(5);
        const QDateTime since = Preferences::instance().value(u"stat_since"_s).toDateTime();
        QVERIFY(since >= before);
        Statistics().addUploadedFiles(7);
        QCOMPARE(Statistics().totalUploadedFiles(), 12);
        QCOMPARE(Preferences::instance().value(u"stat_since"_s).toDateTime(), since);
    }
};

QTEST_GUILESS_MAIN(TestStatistics)
#include "tst_statistics.moc"
