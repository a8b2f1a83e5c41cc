#include "TestEnvironment.h"
#include "app/Preferences.h"
#include "deploy/Statistics.h"

#include <QCoreApplication>
#include <QProcess>
#include <QTest>

#include <limits>

using namespace tw;
using namespace Qt::StringLiterals;

class TestStatistics : public QObject {
    Q_OBJECT

private slots:
    void initTestCase() { test::TestEnvironment::isolate(); }
    void init() { test::TestEnvironment::resetPreferences(); }

    void startDateIsWrittenOnce() {
        Preferences& preferences = Preferences::instance();
        QVERIFY(!preferences.dateValue(u"stat_since"_s));
        const QDateTime before = QDateTime::currentDateTime().addSecs(-1);
        Statistics first;
        QCOMPARE(first.totalUploadedFiles(), qint64(0));
        const auto since = preferences.dateValue(u"stat_since"_s);
        QVERIFY(since);
        QVERIFY(*since >= before && *since <= QDateTime::currentDateTime());

        // Later uses leave it as it is.
        preferences.setValue(u"stat_since"_s, QDateTime(QDate(2020, 1, 2), QTime(3, 4, 5)));
        Statistics second;
        second.addUploadedFiles(1);
        QCOMPARE(preferences.dateValue(u"stat_since"_s), QDateTime(QDate(2020, 1, 2), QTime(3, 4, 5)));
    }

    void additionsAccumulateAcrossObjects() {
        Statistics().addUploadedFiles(3);
        Statistics second;
        QCOMPARE(second.totalUploadedFiles(), qint64(3));
        second.addUploadedFiles(4);
        QCOMPARE(second.totalUploadedFiles(), qint64(7));
        QCOMPARE(Preferences::instance().integerValue(u"stat_totalFiles"_s), qint64(7));
        Statistics third;
        third.addUploadedFiles(0);
        QCOMPARE(Statistics().totalUploadedFiles(), qint64(7));

        // Beyond 32 bits, and back from the file on disk.
        Preferences::instance().setValue(u"stat_totalFiles"_s, qint64(1) << 40);
        Statistics().addUploadedFiles(5);
        Preferences::instance().synchronize();
        Preferences::instance().setFileName(Preferences::instance().fileName());
        QCOMPARE(Statistics().totalUploadedFiles(), (qint64(1) << 40) + 5);
        QCOMPARE(Statistics().totalFiles(), u"stat_totalFiles"_s);
        QCOMPARE(Statistics().since(), u"stat_since"_s);
    }

    void overflowIsFatal() {
        // The addition runs in a child copy of this program, which must die.
        QProcess child;
        QProcessEnvironment environment = QProcessEnvironment::systemEnvironment();
        environment.insert(u"TARNWELL_STATISTICS_OVERFLOW"_s, u"1"_s);
        environment.insert(u"QTEST_DISABLE_STACK_DUMP"_s, u"1"_s);
        environment.insert(u"QTEST_DISABLE_CORE_DUMP"_s, u"1"_s);
        child.setProcessEnvironment(environment);
        child.setProcessChannelMode(QProcess::MergedChannels);
        child.start(QCoreApplication::applicationFilePath(), {u"overflowingAddition"_s});
        QVERIFY(child.waitForFinished(60000));
        const QByteArray errors = child.readAllStandardOutput();
        QVERIFY2(child.exitStatus() == QProcess::CrashExit || child.exitCode() != 0, errors.constData());
        QVERIFY2(errors.contains("the count of uploaded files overflows"), errors.constData());
        QVERIFY2(!errors.contains("wrapped around"), errors.constData());
    }

    void overflowingAddition() {
        if (!qEnvironmentVariableIsSet("TARNWELL_STATISTICS_OVERFLOW"))
            QSKIP("runs only as the child of overflowIsFatal");
        Preferences::instance().setValue(u"stat_totalFiles"_s, std::numeric_limits<qint64>::max() - 1);
        Statistics statistics;
        statistics.addUploadedFiles(1);
        statistics.addUploadedFiles(1);
        qWarning("wrapped around to %lld", static_cast<long long>(statistics.totalUploadedFiles()));
    }
};

QTEST_GUILESS_MAIN(TestStatistics)
#include "tst_statistics.moc"
