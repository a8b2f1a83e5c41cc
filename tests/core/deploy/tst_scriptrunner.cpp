#include "TestEnvironment.h"
#include "deploy/ScriptRunner.h"

#include <QDir>
#include <QFile>
#include <QFileInfo>
#include <QTemporaryDir>
#include <QTest>

#include <optional>
#include <unistd.h>

using namespace tw;
using namespace Qt::StringLiterals;

namespace {

// What one run handed to its completion.
struct Outcome {
    int calls = 0;
    QString result;
    std::optional<Error> error;

    ScriptRunner::Completion completion() {
        return [this](const QString& text, const std::optional<Error>& e) {
            ++calls;
            result = text;
            error = e;
        };
    }
};

} // namespace

class TestScriptRunner : public QObject {
    Q_OBJECT

    // A stand-in for ssh that prints each argument it gets on a line of its own.
    QTemporaryDir fakeSshFolder;
    QString fakeSsh;

    // Runs a local script to its end.
    static void runLocal(ScriptRunner& runner, const QString& script, Outcome& outcome) {
        std::optional<Error> error;
        QVERIFY(runner.run(script, &error, outcome.completion()));
        QVERIFY(!error);
        QTRY_COMPARE_WITH_TIMEOUT(outcome.calls, 1, 20000);
    }

private slots:
    void initTestCase() {
        test::TestEnvironment::isolate();
        QVERIFY(fakeSshFolder.isValid());
        fakeSsh = fakeSshFolder.path() + u"/ssh"_s;
        QFile script(fakeSsh);
        QVERIFY(script.open(QIODevice::WriteOnly));
        script.write("#!/bin/sh\nfor argument in \"$@\"; do printf '[%s]\\n' \"$argument\"; done\n");
        script.close();
        QVERIFY(script.setPermissions(QFile::ReadOwner | QFile::WriteOwner | QFile::ExeOwner));
    }

    void localScriptFile() {
        QTemporaryDir base;
        ScriptRunner runner;
        runner.setBasePath(base.path());
        QCOMPARE(runner.basePath(), u"cd "_s + base.path() + u"\n"_s);

        // The script reads its own file: $0 is the temporary file itself.
        const QString script = u"cat \"$0\"; echo; stat -c %a \"$0\"; echo \"$0\"; pwd"_s;
        Outcome outcome;
        runLocal(runner, script, outcome);
        if (QTest::currentTestFailed())
            return;
        QVERIFY(!outcome.error);
        QVERIFY(!runner.hasError());
        QVERIFY(runner.isTerminated());
        const QStringList lines = outcome.result.split(u'\n');
        QCOMPARE(lines.mid(0, 3), (QStringList{u"#!/bin/bash"_s, u"cd "_s + base.path(), script}));
        QCOMPARE(lines.at(3), u"777"_s);
        const QFileInfo file(lines.at(4));
        // In a folder of our own inside the temporary folder: only we may
        // change an executable-by-everybody file before it runs.
        QCOMPARE(QFileInfo(file.absolutePath()).absolutePath(), QDir::tempPath());
        QFileInfo folder(file.absolutePath());
        QCOMPARE(folder.ownerId(), ::getuid());
        QCOMPARE(int(folder.permissions() & (QFile::ReadGroup | QFile::WriteGroup | QFile::ExeGroup |
                                             QFile::ReadOther | QFile::WriteOther | QFile::ExeOther)),
                 0);
        QCOMPARE(file.fileName().size(), 36);
        QVERIFY(file.fileName().contains(u'-'));
        QCOMPARE(lines.at(5), base.path());
        QCOMPARE(runner.output(), outcome.result);
        // No litter in the temporary folder.
        QVERIFY(!QFile::exists(file.filePath()));
    }

    void failingScript() {
        ScriptRunner runner;
        Outcome outcome;
        runLocal(runner, u"echo out; echo err >&2; exit 3"_s, outcome);
        if (QTest::currentTestFailed())
            return;
        QVERIFY(outcome.error);
        QCOMPARE(outcome.error->domain, Error::application(0, QString()).domain);
        QCOMPARE(outcome.error->code, qint64(ScriptRunnerError::ScriptFailed));
        QVERIFY2(outcome.error->localizedDescription.contains(u"exit status 3"_s),
                 qPrintable(outcome.error->localizedDescription));
        QVERIFY(outcome.result.contains(u"out\n"_s));
        QVERIFY(outcome.result.contains(u"err\n"_s));
        QVERIFY(runner.hasError());

        // The same runner runs the next script afresh.
        Outcome next;
        runLocal(runner, u"echo fine"_s, next);
        if (QTest::currentTestFailed())
            return;
        QVERIFY(!next.error);
        QCOMPARE(next.result, u"fine\n"_s);
        QVERIFY(!runner.hasError());
    }

    void remoteArguments() {
        ScriptRunner runner;
        QCOMPARE(runner.SSHLaunchPath(), u"/usr/bin/ssh"_s);
        runner.setSSHLaunchPath(fakeSsh);

        Outcome outcome;
        std::optional<Error> error;
        QVERIFY(runner.runExternal(u"-p 2222 myserver"_s, u"cd www\nls"_s, &error, outcome.completion()));
        QVERIFY(!error);
        QTRY_COMPARE_WITH_TIMEOUT(outcome.calls, 1, 20000);
        QVERIFY(!outcome.error);
        QCOMPARE(outcome.result, u"[-p]\n[2222]\n[myserver]\n[cd www;ls]\n"_s);

        // Split at every single blank, empty pieces kept; the script trimmed.
        QCOMPARE(ScriptRunner::remoteArguments(u"-p  2222 host "_s, u"\n  cd www\nls -la\n\n"_s),
                 (QStringList{u"-p"_s, QString(), u"2222"_s, u"host"_s, QString(), u"cd www;ls -la"_s}));
    }
};

QTEST_GUILESS_MAIN(TestScriptRunner)
#include "tst_scriptrunner.moc"
