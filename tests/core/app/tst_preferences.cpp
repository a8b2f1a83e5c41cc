#include "TestEnvironment.h"
#include "app/Preferences.h"

#include <QCoreApplication>
#include <QFile>
#include <QSignalSpy>
#include <QTest>

using namespace tw;

class TestPreferences : public QObject {
    Q_OBJECT

private slots:
    void initTestCase() { test::TestEnvironment::isolate(); }
    void init() { test::TestEnvironment::resetPreferences(); }

    // Defaults are not written; typed values come back as they were in a
    // second process (the command line beside the window), from a private file.
    void typedValuesSurviveAReload() {
        Preferences& p = Preferences::instance();
        QCOMPARE(p.integerValue(QStringLiteral("maxConnections")), 3);
        QVERIFY(!p.contains(QStringLiteral("maxConnections")));
        const QDateTime since = QDateTime::fromSecsSinceEpoch(1700000000);
        p.setInteger(QStringLiteral("currentSiteIndex"), -1);
        p.setValue(QStringLiteral("sites"), QByteArray("\x00\xff\x01", 3));
        p.setValue(QStringLiteral("stat_since"), since);
        QVERIFY(p.synchronize());

        p.setFileName(p.fileName());
        QCOMPARE(p.integerValue(QStringLiteral("currentSiteIndex")), -1);
        QCOMPARE(p.dataValue(QStringLiteral("sites")), QByteArray("\x00\xff\x01", 3));
        QCOMPARE(p.dateValue(QStringLiteral("stat_since")), since);
        QCOMPARE(int(QFile::permissions(p.fileName()) & (QFile::ReadGroup | QFile::ReadOther)), 0);
    }

    // Writes are saved together a moment later instead of on every turn of
    // the event loop; each later write is saved again.
    void writesAreSavedSoonAfter() {
        Preferences& p = Preferences::instance();
        // The file itself: another QSettings in this process would see the
        // values not yet saved.
        const auto onDisk = [&p] {
            QFile file(p.fileName());
            if (!file.open(QIODevice::ReadOnly))
                return qint64(-1);
            for (const QByteArray& line : file.readAll().split('\n')) {
                if (line.startsWith("stat_totalFiles="))
                    return line.mid(16).trimmed().toLongLong();
            }
            return qint64(0);
        };
        for (const qint64 count : {1, 2}) {
            for (qint64 step = 1; step <= count * 100; ++step) {
                p.setInteger(QStringLiteral("stat_totalFiles"), step);
                QCoreApplication::processEvents();
            }
            QVERIFY(onDisk() != count * 100);
            QTRY_COMPARE(onDisk(), count * 100);
        }
    }

    void changesAreSignalledOncePerChange() {
        Preferences& p = Preferences::instance();
        QSignalSpy spy(&p, &Preferences::valueChanged);
        p.setInteger(QStringLiteral("currentSiteIndex"), 2);
        p.setInteger(QStringLiteral("currentSiteIndex"), 2);
        p.remove(QStringLiteral("currentSiteIndex"));
        p.remove(QStringLiteral("currentSiteIndex"));
        QCOMPARE(spy.count(), 2);
        QCOMPARE(spy.at(0).at(0).toString(), QStringLiteral("currentSiteIndex"));
        QCOMPARE(p.integerValue(QStringLiteral("currentSiteIndex")), 0);
    }
};

QTEST_GUILESS_MAIN(TestPreferences)
#include "tst_preferences.moc"
