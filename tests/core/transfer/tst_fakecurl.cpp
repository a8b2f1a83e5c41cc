// The fake curl that the engine's parser tests rely on: every scripted chunk
// reaches the reader through a read of its own, invocations are told apart,
// and an abort is seen.

#include "FakeCurl.h"
#include "TestEnvironment.h"
#include "app/ToolPaths.h"

#include <QFile>
#include <QProcess>
#include <QTest>
#include <QThread>

#include <memory>
#include <vector>

using namespace Qt::StringLiterals;

namespace tw::test {

class TestFakeCurl : public QObject {
    Q_OBJECT

private slots:
    void initTestCase() { TestEnvironment::isolate(); }
    void chunksArriveOneReadEach();
    void invocationsAndArguments();
    void waitsUntilTerminated();
    void badScripts();
    void standsInForTheToolsFolder();
};

void TestFakeCurl::chunksArriveOneReadEach() {
    FakeCurl fake;
    QVERIFY(fake.isValid());
    QVERIFY(fake.setScript(uR"script(
        # a meter, a listing, bytes that are not UTF-8, an error line in two
        err   0.0%\r
        err   45.3%\r
        out index.html\ncss\n
        err \xff\xfe\x20
        pause 20
        err curl: (67) Access
        err  denied: 530\n
        exit 67
    )script"_s));

    QProcess curl;
    QList<QByteArray> reads; // "E:" or "O:" and the bytes of one read
    connect(&curl, &QProcess::readyReadStandardError, this, [&] {
        reads.append("E:" + curl.readAllStandardError());
        // A slow reader must not see chunks run together.
        if (reads.size() == 1)
            QThread::msleep(100);
    });
    connect(&curl, &QProcess::readyReadStandardOutput, this,
            [&] { reads.append("O:" + curl.readAllStandardOutput()); });
    curl.start(fake.curlPath(), {u"-T"_s, u"a b"_s});
    QTRY_COMPARE(curl.state(), QProcess::NotRunning);
    QCOMPARE(curl.exitStatus(), QProcess::NormalExit);
    QCOMPARE(curl.exitCode(), 67);
    const QList<QByteArray> expected{"E:  0.0%\r",  "E:  45.3%\r",         "O:index.html\ncss\n",
                                     "E:\xff\xfe ", "E:curl: (67) Access", "E: denied: 530\n"};
    QCOMPARE(reads, expected);
}

void TestFakeCurl::invocationsAndArguments() {
    FakeCurl fake;
    QVERIFY(fake.setScript(1, u"exit 11"_s));
    QVERIFY(fake.setScript(2, u"exit 12"_s));
    QVERIFY(fake.setScript(u"exit 19"_s));

    // Started at the same time, as single mode does it.
    std::vector<std::unique_ptr<QProcess>> runs;
    const QStringList arguments{u"--user"_s, u"a:b c"_s, QString(), u"ftp://h/ü.txt"_s};
    for (int index = 0; index < 3; ++index) {
        runs.push_back(std::make_unique<QProcess>());
        runs.back()->start(fake.curlPath(), arguments);
    }
    QList<int> statuses;
    for (const auto& run : runs) {
        QVERIFY(run->waitForFinished(10000));
        statuses.append(run->exitCode());
    }
    std::sort(statuses.begin(), statuses.end());
    QCOMPARE(statuses, (QList<int>{11, 12, 19}));
    QCOMPARE(fake.invocationCount(), 3);
    for (int invocation = 1; invocation <= 3; ++invocation)
        QCOMPARE(fake.arguments(invocation), arguments);
    QVERIFY(fake.arguments(4).isEmpty());
    QVERIFY(!fake.wasTerminated(1));
}

void TestFakeCurl::waitsUntilTerminated() {
    FakeCurl fake;
    QVERIFY(fake.setScript(u"err started\nwait\nerr never\n"_s));
    QProcess curl;
    curl.start(fake.curlPath(), {u"-#"_s});
    QByteArray errors;
    QTRY_VERIFY((errors += curl.readAllStandardError()).contains("started"));
    curl.terminate();
    QVERIFY(curl.waitForFinished(5000));
    QCOMPARE(curl.exitStatus(), QProcess::CrashExit);
    QVERIFY(fake.wasTerminated(1));
    QCOMPARE(errors + curl.readAllStandardError(), "started");
}

void TestFakeCurl::badScripts() {
    FakeCurl fake;
    QTest::ignoreMessage(QtWarningMsg, "FakeCurl: script: line 2: unknown command print");
    QVERIFY(!fake.setScript(u"err ok\nprint x\n"_s));
    QTest::ignoreMessage(QtWarningMsg, "FakeCurl: script.1: line 1: unknown escape \\q");
    QVERIFY(!fake.setScript(1, u"err \\q"_s));
    QTest::ignoreMessage(QtWarningMsg, "FakeCurl: script: line 1: \\x needs two hex digits");
    QVERIFY(!fake.setScript(u"out \\x4"_s));
    QTest::ignoreMessage(QtWarningMsg, "FakeCurl: script: line 1: not a number: soon");
    QVERIFY(!fake.setScript(u"pause soon"_s));

    // A script that did not go through setScript: the fake says what is wrong.
    QFile script(fake.folder() + u"/script"_s);
    QVERIFY(script.open(QIODevice::WriteOnly));
    script.write("err fine\nshout\n");
    script.close();
    QProcess curl;
    curl.start(fake.curlPath(), {});
    QVERIFY(curl.waitForFinished(5000));
    QCOMPARE(curl.exitCode(), 98);
    QCOMPARE(curl.readAllStandardError(), "finefake curl: line 2: unknown command shout\n");
}

void TestFakeCurl::standsInForTheToolsFolder() {
    FakeCurl fake;
    QVERIFY(fake.setScript(u"out hello\n"_s));
    ToolPaths::setToolsDirectory(fake.folder());
    const auto version = ToolPaths::curlVersion();
    QProcess curl;
    curl.setProcessEnvironment(ToolPaths::curlEnvironment());
    curl.start(ToolPaths::curlPath(), {u"ftp://127.0.0.1/x"_s});
    const bool finished = curl.waitForFinished(5000);
    int gitStatus = -1;
    const QString gitVersion = runProgram(ToolPaths::gitPath(), {u"--version"_s}, QString(), &gitStatus);
    ToolPaths::setToolsDirectory(std::nullopt);

    QVERIFY(version && version->startsWith(u"curl 8.14.1"_s));
    QVERIFY(finished);
    QCOMPARE(curl.readAllStandardOutput(), "hello");
    QCOMPARE(fake.invocationCount(), 1); // the version question is not counted
    QCOMPARE(fake.arguments(1), QStringList{u"ftp://127.0.0.1/x"_s});
    QCOMPARE(gitStatus, 0);
    QVERIFY(gitVersion.startsWith(u"git version"_s));
}

} // namespace tw::test

QTEST_GUILESS_MAIN(tw::test::TestFakeCurl)
#include "tst_fakecurl.moc"
