#pragma once

#include "app/Error.h"
#include "model/SecurityBookmarkManager.h"

#include <QObject>
#include <QProcess>
#include <QString>
#include <QStringDecoder>
#include <QTimer>

#include <functional>
#include <memory>
#include <optional>

namespace tw {

// The codes of the errors a script run reports before anything runs.
enum class ScriptRunnerError {
    // The script file could not be made executable, or the ssh client is not
    // an executable file.
    CannotExecute = 1,
    // The script file could not be written.
    CannotWrite = 2,
    // The script ran and ended with a non-zero exit status, or crashed, or
    // could not be started (reported through the completion).
    ScriptFailed = 3,
    // The script did not end within the time-out and was killed.
    TimedOut = 4,
};

// Runs the scripts a site runs before and after a deployment. A local script
// runs as an executable file in the temporary folder that starts with
// "#!/bin/bash" and the base path's "cd" line; a remote script runs on the
// server through ssh: its text goes whole to "bash -s" on ssh's standard
// input, so blank lines and multi-line constructs run as written. ssh runs
// in batch mode without a terminal: a password, pass phrase or host-key
// prompt fails at once instead of waiting for a person. The child's
// environment holds only PATH, and what it prints on both channels is
// collected in output().
//
// No script runs for ever: one that has not ended after the time-out (the
// preference "scriptTimeout", in seconds, 10 minutes unless set) is killed
// and fails with a message that says so. Each script runs in a process group
// of its own, and the time-out and the runner's end kill the whole group:
// nothing the script started in the background outlives it.
//
// One run at a time; the deploy run makes one runner per stage. The child's
// output and end arrive on the event loop of the thread that started the run,
// and the completion is called there, once per run.
class ScriptRunner : public QObject {
    Q_OBJECT

public:
    // The result text (what the script printed, or why nothing ran) and,
    // when the script failed, the error.
    using Completion = std::function<void(const QString& result, const std::optional<Error>& error)>;

    explicit ScriptRunner(QObject* parent = nullptr);
    // A script still running is killed; its completion is not called.
    ~ScriptRunner() override;

    QString launchPath() const { return m_launchPath; }
    // The ssh client for remote scripts.
    QString SSHLaunchPath() const { return m_SSHLaunchPath; }
    void setSSHLaunchPath(const QString& path) { m_SSHLaunchPath = path; }
    QString sheBang() const { return m_sheBang; }
    QString defaultPaths() const { return m_defaultPaths; }
    QString output() const { return m_output; }
    bool hasError() const { return m_hasError; }
    bool isTerminated() const { return m_isTerminated; }
    bool isRunning() const { return m_process != nullptr; }

    // "cd <path>" and a line feed, the path not quoted: the second line of
    // every local script file.
    void setBasePath(const QString& path);
    QString basePath() const { return m_basePath; }

    // Runs a local script. True when the script was started or answered at
    // once (empty script); false with *error set when it could not be
    // started, and then the completion is not called.
    bool run(const QString& script, std::optional<Error>* error, Completion completion);
    // Runs a script on the server the connection string names (the ssh
    // arguments, separated by single blanks).
    bool runExternal(const QString& connectionString, const QString& script, std::optional<Error>* error,
                     Completion completion);

    // The ssh arguments of a remote script: batch mode and no terminal, the
    // connection string split at every blank (empty pieces kept), then the
    // remote command "bash -s", which reads the script from standard input.
    static QStringList remoteArguments(const QString& connectionString);

    // How long a script may run (the preference "scriptTimeout").
    static int timeoutSeconds();

private:
    bool fail(ScriptRunnerError code, const QString& text, std::optional<Error>* error);
    void launch(const QString& program, const QStringList& arguments, const QByteArray& input = {});
    void appendOutput(QProcess::ProcessChannel channel);
    void finishRun(const std::optional<Error>& error, const QString& result);
    static void killProcessGroup(QProcess* process);
    void cleanUpScriptFile();
    void stopAccessingFolder();

    QString m_launchPath = QStringLiteral("/bin/bash");
    QString m_SSHLaunchPath = QStringLiteral("/usr/bin/ssh");
    QString m_sheBang = QStringLiteral("#!/bin/bash\n");
    QString m_defaultPaths = QStringLiteral("/usr/local/bin:/usr/bin:/bin:/usr/sbin:/sbin");
    QString m_output;
    Completion m_completion;
    bool m_hasError = false;
    bool m_isTerminated = false;
    QString m_basePath;

    QProcess* m_process = nullptr;
    QTimer* m_timeout = nullptr;
    QStringDecoder m_standardOutputDecoder{QStringDecoder::Utf8};
    QStringDecoder m_standardErrorDecoder{QStringDecoder::Utf8};
    std::optional<SecurityBookmarkManager> m_folderAccess;
    QString m_scriptFile;
};

} // namespace tw
