#include "TestEnvironment.h"
#include "Traces.h"
#include "app/Logger.h"
#include "app/Preferences.h"

#include <QDir>
#include <QFile>
#include <QTest>

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

QTEST_GUILESS_MAIN(TestLogger)
#include "tst_logger.moc"
