#include "TestEnvironment.h"
#include "Traces.h"
#include "app/Logger.h"
#include "app/Preferences.h"

#include <QDate>
#include <QDir>
#include <QFile>
#include <QFileInfo>
#include <QTest>

#include <sys/stat.h>

using namespace tw;

class TestLogger : public QObject {
    Q_OBJECT

    static QString readAll(const QString& path) { return QString::fromUtf8(test::readFile(path)); }

private slots:
    void initTestCase() { test::TestEnvironment::isolate(); }

    void init() {
        test::TestEnvironment::resetPreferences();
        QDir(Logger::sharedInstance().logDirectory()).removeRecursively();
    }

    void masking_data() {
        QTest::addColumn<QString>("text");
        QTest::addColumn<QString>("written");
        QTest::newRow("password between --user and --globoff")
            << QStringLiteral("curl --user bob:secret --globoff -T a")
            << QStringLiteral("curl --user bob:xxxxxx --globoff -T a");
        QTest::newRow("everything up to --globoff goes with the password")
            << QStringLiteral("-T a ftp://h/a --user bob:secret --progress-bar --ftp-create-dirs --globoff")
            << QStringLiteral("-T a ftp://h/a --user bob:xxxxxx --globoff");
        QTest::newRow("every occurrence of the password")
            << QStringLiteral("secret --user bob:secret --globoff secret")
            << QStringLiteral("xxxxxx --user bob:xxxxxx --globoff secret");
        QTest::newRow("no --globoff after --user")
            << QStringLiteral("--globoff --user bob:secret") << QStringLiteral("--globoff --user bob:secret");
        QTest::newRow("no password piece")
            << QStringLiteral("--user bob:--globoff") << QStringLiteral("--user bob:--globoff");
        QTest::newRow("colon inside the password: only the second piece")
            << QStringLiteral("--user bob:pa:ss --globoff")
            << QStringLiteral("--user bob:xxxxxx :ss --globoff");
        // curl's trace of an FTP login, whole or with "> " in a read of its own.
        QTest::newRow("FTP login in a trace")
            << QStringLiteral("< 331 User bob OK\r\n> PASS s3cret pass\r\n< 230 OK")
            << QStringLiteral("< 331 User bob OK\r\n> PASS xxxxxx\r\n< 230 OK");
        QTest::newRow("FTP login in the fuller trace")
            << QStringLiteral("0000: PASS s3cret\r\n") << QStringLiteral("0000: PASS xxxxxx\r\n");
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

    void debugLinesFollowThePreference() {
        Logger& logger = Logger::sharedInstance();
        logger.debugLog(QStringLiteral("hidden"));
        logger.log(QStringLiteral("always"));
        Preferences::instance().setBool(QStringLiteral("debugEnabled"), true);
        logger.debugLog(QStringLiteral("shown"));
        logger.debugLog(QString());
        Preferences::instance().setBool(QStringLiteral("debugEnabled"), false);
        logger.debugLog(QStringLiteral("hidden again"));
        QCOMPARE(readAll(logger.logFilePath()), QStringLiteral("always\nshown\n"));
    }

    void dayFilesWithPrefixAndPrivateModes() {
        Logger& logger = Logger::sharedInstance();
        const QString day = QDate::currentDate().toString(QStringLiteral("yyyy_MM_dd"));
        QCOMPARE(QFileInfo(logger.logFilePath()).fileName(), day + QStringLiteral(".log"));
        QCOMPARE(QFileInfo(logger.logFilePath(QStringLiteral("deploy"))).fileName(),
                 QStringLiteral("deploy_") + day + QStringLiteral(".log"));

        logger.log(QStringLiteral("first"), QStringLiteral("deploy"));
        logger.log(QStringLiteral("second"), QStringLiteral("deploy"));
        QCOMPARE(readAll(logger.logFilePath(QStringLiteral("deploy"))), QStringLiteral("first\nsecond\n"));
        QVERIFY(!QFile::exists(logger.logFilePath()));

        struct stat info {};
        QCOMPARE(::stat(QFile::encodeName(logger.logDirectory()).constData(), &info), 0);
        QCOMPARE(info.st_mode & 0777, 0700u);
        QCOMPARE(::stat(QFile::encodeName(logger.logFilePath(QStringLiteral("deploy"))).constData(), &info),
                 0);
        QCOMPARE(info.st_mode & 0777, 0600u);
        QVERIFY(logger.logDirectory().endsWith(QStringLiteral("/dev.tarnwell.Tarnwell")));
    }
};

QTEST_GUILESS_MAIN(TestLogger)
#include "tst_logger.moc"
