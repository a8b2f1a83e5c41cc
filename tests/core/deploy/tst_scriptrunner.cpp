#include "TestEnvironment.h"
#include "app/Logger.h"
#include "app/Preferences.h"
#include "deploy/ScriptRunner.h"

#include <QCoreApplication>
#include <QDir>
#include <QFile>
#include <QFileInfo>
#include <QTemporaryDir>
#include <QTest>

#include <functional>
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

QString readAll(const QString& path) {
    QFile file(path);
    return file.open(QIODevice::ReadOnly) ? QString::fromUtf8(file.readAll()) : QString();
}

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

    void init() { test::TestEnvironment::resetPreferences(); }

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

    void environmentHoldsOnlyThePath() {
        QVERIFY(qEnvironmentVariableIsSet("HOME"));
        const QString script =
            u"echo \"$PATH\"; echo \"${HOME-no home}\"; echo \"${TARNWELL_TEST_HOME-none}\""_s;
        {
            ScriptRunner runner;
            Outcome outcome;
            runLocal(runner, script, outcome);
            if (QTest::currentTestFailed())
                return;
            QCOMPARE(outcome.result, u"/usr/local/bin:/usr/bin:/bin:/usr/sbin:/sbin\nno home\nnone\n"_s);
        }
        Preferences::instance().setValue(u"environmentPaths"_s, u"/opt/tools/bin:/usr/bin:/bin"_s);
        {
            ScriptRunner runner;
            Outcome outcome;
            runLocal(runner, script, outcome);
            if (QTest::currentTestFailed())
                return;
            QCOMPARE(outcome.result, u"/opt/tools/bin:/usr/bin:/bin\nno home\nnone\n"_s);
        }
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

    void everyByteOfBothChannelsBeforeTheCompletion() {
        ScriptRunner runner;
        // Much output on both pipes, and two-byte characters that the pipes
        // may split anywhere.
        Outcome outcome;
        runLocal(runner,
                 u"for i in $(seq 1 5000); do echo \"o$i\"; echo \"e$i ééé\" >&2; done; printf 'last'"_s,
                 outcome);
        if (QTest::currentTestFailed())
            return;
        QVERIFY(!outcome.error);
        QCOMPARE(outcome.result.count(u'\n'), 10000);
        // The two pipes are read as their data comes: no order between them.
        QVERIFY(outcome.result.contains(u"\no5000\n"_s));
        QVERIFY(outcome.result.contains(u"last"_s));
        QVERIFY(outcome.result.contains(u"\ne5000 ééé\n"_s));
        QCOMPARE(outcome.result.count(u"ééé"_s), 5000);
        QVERIFY(!outcome.result.contains(QChar::ReplacementCharacter));
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

    void nothingToRun() {
        ScriptRunner runner;
        runner.setSSHLaunchPath(u"/nonexistent/ssh"_s);
        const struct {
            std::function<bool(ScriptRunner::Completion)> run;
            QString text;
        } cases[] = {
            {[&](auto c) { return runner.run(QString(), nullptr, c); },
             u"No local script given to execute"_s},
            {[&](auto c) { return runner.runExternal(QString(), u"ls"_s, nullptr, c); },
             u"No remote host to execute script on given"_s},
            {[&](auto c) { return runner.runExternal(u"myserver"_s, QString(), nullptr, c); },
             u"No remote script given to execute"_s},
        };
        for (const auto& c : cases) {
            Outcome outcome;
            QVERIFY(c.run(outcome.completion()));
            QCOMPARE(outcome.calls, 1);
            QCOMPARE(outcome.result, c.text);
            QVERIFY(!outcome.error);
        }
    }

    void failuresBeforeTheStart() {
        // A client that is not executable, or not there.
        QFile plain(fakeSshFolder.path() + u"/not-executable"_s);
        QVERIFY(plain.open(QIODevice::WriteOnly));
        plain.close();
        for (const QString& client : {plain.fileName(), u"/nonexistent/ssh"_s}) {
            ScriptRunner runner;
            runner.setSSHLaunchPath(client);
            Outcome outcome;
            std::optional<Error> error;
            QVERIFY(!runner.runExternal(u"myserver"_s, u"ls"_s, &error, outcome.completion()));
            QVERIFY(error);
            QCOMPARE(error->code, 1);
            QCOMPARE(error->domain, Error::application(0, QString()).domain);
            QCoreApplication::processEvents();
            QCOMPARE(outcome.calls, 0);
            QVERIFY(readAll(Logger::sharedInstance().logFilePath())
                        .contains(u"Cannot execute script for remote due to permission problems\n"_s));
        }

        // A temporary folder that cannot be written to.
        const QByteArray temporaryFolder = qgetenv("TMPDIR");
        qputenv("TMPDIR", "/nonexistent/tmp");
        ScriptRunner runner;
        Outcome outcome;
        std::optional<Error> error;
        const bool started = runner.run(u"echo a"_s, &error, outcome.completion());
        if (temporaryFolder.isNull())
            qunsetenv("TMPDIR");
        else
            qputenv("TMPDIR", temporaryFolder);
        QVERIFY(!started);
        QVERIFY(error);
        QCOMPARE(error->code, 2);
        QVERIFY2(
            error->localizedDescription.startsWith(u"Cannot write to tmp file file:///nonexistent/tmp/"_s),
            qPrintable(error->localizedDescription));
        QVERIFY(readAll(Logger::sharedInstance().logFilePath()).contains(error->localizedDescription));
        QCoreApplication::processEvents();
        QCOMPARE(outcome.calls, 0);
    }
};

QTEST_GUILESS_MAIN(TestScriptRunner)
#include "tst_scriptrunner.moc"
