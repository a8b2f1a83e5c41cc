#include "TestEnvironment.h"
#include "Traces.h"
#include "app/Logger.h"
#include "app/Preferences.h"

#include <QCoreApplication>
#include <QDir>
#include <QFile>
#include <QSignalSpy>
#include <QTest>

using namespace tw;

// The preferences and the log.
class TestPreferences : public QObject {
    Q_OBJECT

    static QString readAll(const QString& path) { return QString::fromUtf8(test::readFile(path)); }

private slots:
    void initTestCase() { test::TestEnvironment::isolate(); }
    void init() {
        test::TestEnvironment::resetPreferences();
        QDir(Logger::sharedInstance().logDirectory()).removeRecursively();
    }

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
        const auto onDisk = [&p](qint64 value) {
            return test::readFile(p.fileName())
                .contains(QByteArray("stat_totalFiles=" + QByteArray::number(value) + '\n'));
        };
        for (const qint64 count : {1, 2}) {
            for (qint64 step = 1; step <= count * 100; ++step) {
                p.setInteger(QStringLiteral("stat_totalFiles"), step);
                QCoreApplication::processEvents();
            }
            QVERIFY(!onDisk(count * 100));
            QTRY_VERIFY(onDisk(count * 100));
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

    void masking_data() {
        QTest::addColumn<QString>("text");
        QTest::addColumn<QString>("written");
        QTest::newRow("everything up to --globoff goes with the password")
            << QStringLiteral("-T a ftp://h/a --user bob:secret --progress-bar --ftp-create-dirs --globoff")
            << QStringLiteral("-T a ftp://h/a --user bob:xxxxxx --globoff");
        QTest::newRow("every occurrence of the password")
            << QStringLiteral("secret --user bob:secret --globoff secret")
            << QStringLiteral("xxxxxx --user bob:xxxxxx --globoff secret");
        QTest::newRow("colon inside the password: only the second piece")
            << QStringLiteral("--user bob:pa:ss --globoff")
            << QStringLiteral("--user bob:xxxxxx :ss --globoff");
        // curl's trace of an FTP login, whole or with "> " in a read of its own.
        QTest::newRow("FTP login in a trace")
            << QStringLiteral("< 331 User bob OK\r\n> PASS s3cret pass\r\n< 230 OK")
            << QStringLiteral("< 331 User bob OK\r\n> PASS xxxxxx\r\n< 230 OK");
        QTest::newRow("PASS in a read of its own")
            << QStringLiteral("PASS s3cret\r\n") << QStringLiteral("PASS xxxxxx\r\n");
        QTest::newRow("PASS inside a line is text")
            << QStringLiteral("BYPASS this, PASS that") << QStringLiteral("BYPASS this, PASS that");
    }

    void masking() {
        QFETCH(QString, text);
        QFETCH(QString, written);
        Logger::sharedInstance().log(text);
        QCOMPARE(readAll(Logger::sharedInstance().logFilePath()), written + QLatin1Char('\n'));
    }

    // Debug lines follow the preference; each prefix has its own private
    // file in a private folder.
    void debugLinesAndPrivateFiles() {
        Logger& logger = Logger::sharedInstance();
        logger.debugLog(QStringLiteral("hidden"));
        Preferences::instance().setBool(QStringLiteral("debugEnabled"), true);
        logger.debugLog(QStringLiteral("shown"));
        Preferences::instance().setBool(QStringLiteral("debugEnabled"), false);
        logger.debugLog(QStringLiteral("hidden again"));
        logger.log(QStringLiteral("deployed"), QStringLiteral("deploy"));
        QCOMPARE(readAll(logger.logFilePath()), QStringLiteral("shown\n"));
        QCOMPARE(readAll(logger.logFilePath(QStringLiteral("deploy"))), QStringLiteral("deployed\n"));
        QCOMPARE(int(QFile::permissions(logger.logDirectory()) & (QFile::ReadGroup | QFile::ReadOther)), 0);
        QCOMPARE(int(QFile::permissions(logger.logFilePath()) & (QFile::ReadGroup | QFile::ReadOther)), 0);
    }
};

QTEST_GUILESS_MAIN(TestPreferences)
#include "tst_preferences.moc"
