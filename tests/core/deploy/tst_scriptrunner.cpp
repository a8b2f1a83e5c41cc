#include "SshServer.h"
#include "TestEnvironment.h"
#include "Traces.h"
#include "app/Preferences.h"
#include "deploy/ScriptRunner.h"

#include <QDir>
#include <QFile>
#include <QFileInfo>
#include <QTemporaryDir>
#include <QTest>

#include <csignal>
#include <fcntl.h>
#include <optional>
#include <stdlib.h>
#include <sys/ioctl.h>
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

// Makes the test process the leader of a session whose controlling terminal
// is a fresh pseudo-terminal that nobody reads, as a terminal is for a
// program started from one: a child that asks there waits for ever.
class ControllingTerminal {
public:
    ControllingTerminal() {
        m_master = ::posix_openpt(O_RDWR | O_NOCTTY);
        if (m_master < 0 || ::grantpt(m_master) != 0 || ::unlockpt(m_master) != 0)
            return;
        ::setsid();
        m_slave = ::open(::ptsname(m_master), O_RDWR);
        if (m_slave >= 0)
            ::ioctl(m_slave, TIOCSCTTY, 0);
    }
    ~ControllingTerminal() {
        if (m_slave >= 0) {
            // A session leader that lets go of its terminal gets SIGHUP.
            const auto previous = ::signal(SIGHUP, SIG_IGN);
            ::ioctl(m_slave, TIOCNOTTY);
            ::close(m_slave);
            ::signal(SIGHUP, previous);
        }
        if (m_master >= 0)
            ::close(m_master);
    }
    bool isValid() const { return m_slave >= 0; }

private:
    int m_master = -1;
    int m_slave = -1;
};

// Whether a process runs (a zombie no longer does).
bool running(qint64 pid) {
    const auto process = test::process(pid);
    return process && test::isRunning(*process);
}

// The pid a script printed as "bg <pid>".
qint64 backgroundPid(const QString& output) {
    const qsizetype at = output.indexOf(u"bg "_s);
    return at < 0 ? 0 : output.mid(at + 3).section(u'\n', 0, 0).toLongLong();
}

} // namespace

class TestScriptRunner : public QObject {
    Q_OBJECT

private slots:
    void initTestCase() { test::TestEnvironment::isolate(); }

    // A local script runs from a file of its own, in a private folder of the
    // temporary folder (only we may change an executable-by-everybody file
    // before it runs), in the base path, and leaves no litter.
    void localScriptFile() {
        QTemporaryDir base;
        ScriptRunner runner;
        runner.setBasePath(base.path());
        Outcome outcome;
        std::optional<Error> error;
        QVERIFY(runner.run(u"stat -c %a \"$0\"; echo \"$0\"; pwd"_s, &error, outcome.completion()));
        QTRY_COMPARE_WITH_TIMEOUT(outcome.calls, 1, 20000);
        QVERIFY(!outcome.error && !runner.hasError() && runner.isTerminated());
        const QStringList lines = outcome.result.split(u'\n');
        QCOMPARE(lines.size(), 4);
        QCOMPARE(lines.at(0), u"777"_s);
        const QFileInfo file(lines.at(1));
        QCOMPARE(QFileInfo(file.absolutePath()).absolutePath(), QDir::tempPath());
        const QFileInfo folder(file.absolutePath());
        QCOMPARE(folder.ownerId(), ::getuid());
        QCOMPARE(int(folder.permissions() & (QFile::ReadGroup | QFile::WriteGroup | QFile::ExeGroup |
                                             QFile::ReadOther | QFile::WriteOther | QFile::ExeOther)),
                 0);
        QCOMPARE(lines.at(2), base.path());
        QVERIFY(!QFile::exists(file.filePath()));
    }

    // A remote script reaches the server's shell whole: blank lines and
    // multi-line constructs run as written, and what it prints comes back;
    // a failing one reports its exit status and its output.
    void remoteScriptRunsAsWritten() {
        test::SshServer server;
        TW_REQUIRE_SERVER(server);
        ScriptRunner runner;
        Outcome outcome;
        std::optional<Error> error;
        const QString script = u"cd "_s + server.remoteFolder() +
                               u"\n\nif [ -d . ]; then\n  echo \"in $(basename \"$PWD\")\"\nfi\n"
                               u"for n in 1 2; do\n  echo \"n=$n\"\ndone\n"_s;
        QVERIFY(runner.runExternal(server.connectionString(), script, &error, outcome.completion()));
        QVERIFY(!error);
        QTRY_COMPARE_WITH_TIMEOUT(outcome.calls, 1, 20000);
        QVERIFY2(!outcome.error, qPrintable(outcome.result));
        QCOMPARE(outcome.result, u"in remote\nn=1\nn=2\n"_s);

        Outcome failing;
        QVERIFY(runner.runExternal(server.connectionString(), u"echo before\nexit 4\n"_s, &error,
                                   failing.completion()));
        QTRY_COMPARE_WITH_TIMEOUT(failing.calls, 1, 20000);
        QVERIFY(failing.error);
        QVERIFY2(failing.error->localizedDescription.contains(u"exit status 4"_s),
                 qPrintable(failing.error->localizedDescription));
        QCOMPARE(failing.result, u"before\n"_s);
    }

    // ssh never waits for a person: with a terminal to ask on, an unknown
    // host key would be a question nobody answers; it fails at once instead.
    void remoteLoginNeverPrompts() {
        test::SshServer server;
        TW_REQUIRE_SERVER(server);
        ControllingTerminal terminal;
        QVERIFY2(terminal.isValid(), "no pseudo-terminal to act as the controlling terminal");
        ScriptRunner runner;
        Outcome outcome;
        std::optional<Error> error;
        const QString connection = u"-p "_s + QString::number(server.port()) + u" -i "_s + server.keyPath() +
                                   u" -o UserKnownHostsFile=/dev/null -o StrictHostKeyChecking=ask"
                                   u" root@127.0.0.1"_s;
        QVERIFY(runner.runExternal(connection, u"echo never"_s, &error, outcome.completion()));
        QTRY_COMPARE_WITH_TIMEOUT(outcome.calls, 1, 15000);
        QVERIFY(outcome.error);
        QVERIFY2(outcome.result.contains(u"Host key verification failed"_s), qPrintable(outcome.result));
    }

    // A script that does not end is stopped after the time-out and says so;
    // what it started in the background ends with it, at the time-out and
    // when the run is abandoned (an abort destroys the runner).
    void scriptTimeOutEndsEverythingItStarted() {
        test::TestEnvironment::resetPreferences();
        Preferences::instance().setInteger(u"scriptTimeout"_s, 1);
        const QString script = u"echo started; sleep 300 & echo \"bg $!\"; sleep 300"_s;
        {
            ScriptRunner runner;
            Outcome outcome;
            std::optional<Error> error;
            QVERIFY(runner.run(script, &error, outcome.completion()));
            QTRY_COMPARE_WITH_TIMEOUT(outcome.calls, 1, 20000);
            QVERIFY(outcome.error);
            QCOMPARE(outcome.error->code, qint64(ScriptRunnerError::TimedOut));
            QVERIFY2(outcome.error->localizedDescription.contains(u"1 seconds"_s),
                     qPrintable(outcome.error->localizedDescription));
            QVERIFY(outcome.result.startsWith(u"started\n"_s));
            const qint64 pid = backgroundPid(outcome.result);
            QVERIFY2(pid > 0, qPrintable(outcome.result));
            QTRY_VERIFY_WITH_TIMEOUT(!running(pid), 5000);
        }
        Preferences::instance().remove(u"scriptTimeout"_s);
        qint64 pid = 0;
        {
            ScriptRunner runner;
            Outcome outcome;
            std::optional<Error> error;
            QVERIFY(runner.run(script, &error, outcome.completion()));
            QTRY_VERIFY_WITH_TIMEOUT((pid = backgroundPid(runner.output())) > 0, 20000);
            QVERIFY(running(pid));
        }
        QTRY_VERIFY_WITH_TIMEOUT(!running(pid), 5000);
    }
};

QTEST_GUILESS_MAIN(TestScriptRunner)
#include "tst_scriptrunner.moc"
