#include "ScriptRunner.h"

#include "app/Logger.h"
#include "app/Preferences.h"

#include <QDir>
#include <QFile>
#include <QFileInfo>
#include <QProcessEnvironment>
#include <QSaveFile>
#include <QUrl>
#include <QUuid>

#include <algorithm>
#include <cerrno>
#include <csignal>
#include <sys/stat.h>
#include <unistd.h>

namespace tw {

namespace {

// The folder the script files are written to: a folder of this user's own
// (mode 0700) inside the system's temporary folder. The script file itself is
// executable by everybody; in a shared /tmp another user could otherwise
// change it between writing and running. When TMPDIR names a folder that does
// not exist, Qt answers an empty path; the folder named is kept instead, so
// that writing fails there rather than in the root folder.
QString temporaryFolder() {
    QString base = QDir::tempPath();
    if (base.isEmpty())
        base = QDir::cleanPath(qEnvironmentVariable("TMPDIR", QStringLiteral("/tmp")));
    const QString folder = base + QStringLiteral("/tarnwell-scripts-") + QString::number(::getuid());
    const QByteArray path = QFile::encodeName(folder);
    if (::mkdir(path.constData(), S_IRWXU) != 0 && errno != EEXIST)
        return folder; // writing into it fails and says so
    struct stat info {};
    if (::lstat(path.constData(), &info) != 0 || !S_ISDIR(info.st_mode) || info.st_uid != ::getuid()) {
        // Someone else's folder, or not a folder: never write scripts there.
        return base + QStringLiteral("/tarnwell-scripts-unusable/") + QString::number(::getuid());
    }
    if ((info.st_mode & 0777) != S_IRWXU)
        ::chmod(path.constData(), S_IRWXU);
    return folder;
}

} // namespace

ScriptRunner::ScriptRunner(QObject* parent)
    : QObject(parent) {}

ScriptRunner::~ScriptRunner() {
    if (m_process) {
        m_process->disconnect(this);
        killProcessGroup(m_process);
        // Kills the child and waits for it.
        delete m_process;
        m_process = nullptr;
    }
    cleanUpScriptFile();
    stopAccessingFolder();
}

// Every script runs in a process group of its own (see launch): ending the
// group ends what the script started in the background too, not only the
// script's own shell.
void ScriptRunner::killProcessGroup(QProcess* process) {
    const qint64 pid = process->processId();
    if (pid > 0)
        ::kill(-static_cast<pid_t>(pid), SIGKILL);
}

void ScriptRunner::setBasePath(const QString& path) {
    m_basePath = QStringLiteral("cd ") + path + QLatin1Char('\n');
}

bool ScriptRunner::fail(ScriptRunnerError code, const QString& text, std::optional<Error>* error) {
    m_completion = nullptr;
    if (error)
        *error = Error::application(static_cast<qint64>(code), text);
    return false;
}

bool ScriptRunner::run(const QString& script, std::optional<Error>* error, Completion completion) {
    if (isRunning())
        return fail(ScriptRunnerError::CannotExecute, QStringLiteral("A script is already running"), error);
    m_output.clear();
    m_completion = std::move(completion);

    if (script.isEmpty()) {
        // A site without a local script passes the stage.
        finishRun(std::nullopt, QStringLiteral("No local script given to execute"));
        return true;
    }

    m_folderAccess.emplace();
    m_folderAccess->useLocalScriptBookmark();
    m_folderAccess->startAccessing();

    const QString content = m_sheBang + m_basePath + script;
    const QString file =
        temporaryFolder() + QLatin1Char('/') + QUuid::createUuid().toString(QUuid::WithoutBraces).toUpper();
    const QString fileUrl = QUrl::fromLocalFile(file).toString();

    QSaveFile scriptFile(file);
    const QByteArray bytes = content.toUtf8();
    if (!scriptFile.open(QIODevice::WriteOnly) || scriptFile.write(bytes) != bytes.size() ||
        !scriptFile.commit()) {
        const QString text = QStringLiteral("Cannot write to tmp file ") + fileUrl;
        Logger::sharedInstance().log(text);
        stopAccessingFolder();
        return fail(ScriptRunnerError::CannotWrite, text, error);
    }
    m_scriptFile = file;

    // Read, write and execute for everybody.
    if (::chmod(QFile::encodeName(file).constData(), 0777) != 0) {
        const QString text = QStringLiteral("Cannot execute tmp file ") + fileUrl;
        Logger::sharedInstance().log(text);
        stopAccessingFolder();
        cleanUpScriptFile();
        return fail(ScriptRunnerError::CannotExecute, text, error);
    }

    launch(file, QStringList());
    return true;
}

// The script goes to the remote shell whole, on standard input: joined into
// one command line its blank lines and "if ... then" blocks became syntax
// errors. BatchMode and -T: ssh never waits for a person at a prompt.
QStringList ScriptRunner::remoteArguments(const QString& connectionString) {
    QStringList arguments{QStringLiteral("-o"), QStringLiteral("BatchMode=yes"), QStringLiteral("-T")};
    arguments += connectionString.split(QLatin1Char(' '));
    arguments << QStringLiteral("bash") << QStringLiteral("-s");
    return arguments;
}

int ScriptRunner::timeoutSeconds() {
    const qint64 seconds = Preferences::instance().integerValue(QStringLiteral("scriptTimeout"));
    return seconds > 0 ? static_cast<int>(std::min<qint64>(seconds, 24 * 3600)) : 600;
}

bool ScriptRunner::runExternal(const QString& connectionString, const QString& script,
                               std::optional<Error>* error, Completion completion) {
    if (isRunning())
        return fail(ScriptRunnerError::CannotExecute, QStringLiteral("A script is already running"), error);
    m_completion = std::move(completion);

    if (connectionString.isEmpty()) {
        finishRun(std::nullopt, QStringLiteral("No remote host to execute script on given"));
        return true;
    }
    if (script.isEmpty()) {
        finishRun(std::nullopt, QStringLiteral("No remote script given to execute"));
        return true;
    }
    const QFileInfo client(m_SSHLaunchPath);
    if (!client.isFile() || !client.isExecutable()) {
        const QString text = QStringLiteral("Cannot execute script for remote due to permission problems");
        Logger::sharedInstance().log(text);
        return fail(ScriptRunnerError::CannotExecute, text, error);
    }

    m_output.clear();
    QByteArray input = script.toUtf8();
    if (!input.endsWith('\n'))
        input.append('\n');
    launch(m_SSHLaunchPath, remoteArguments(connectionString), input);
    return true;
}

void ScriptRunner::launch(const QString& program, const QStringList& arguments, const QByteArray& input) {
    m_isTerminated = false;
    m_hasError = false;
    m_standardOutputDecoder.resetState();
    m_standardErrorDecoder.resetState();

    // Nothing of the application's own environment reaches the script.
    QProcessEnvironment environment;
    environment.insert(
        QStringLiteral("PATH"),
        Preferences::instance().stringValue(QStringLiteral("environmentPaths")).value_or(m_defaultPaths));

    auto* process = new QProcess(this);
    m_process = process;
    // A group of its own: the time-out and an abort end everything the
    // script started. (Only async-signal-safe calls may run here.)
    process->setChildProcessModifier([] { ::setpgid(0, 0); });
    process->setProcessEnvironment(environment);
    process->setProcessChannelMode(QProcess::SeparateChannels);
    // A script that reads its input ends instead of waiting for a person.
    if (input.isEmpty())
        process->setStandardInputFile(QProcess::nullDevice());

    connect(process, &QProcess::readyReadStandardOutput, this,
            [this] { appendOutput(QProcess::StandardOutput); });
    connect(process, &QProcess::readyReadStandardError, this,
            [this] { appendOutput(QProcess::StandardError); });
    connect(process, &QProcess::finished, this, [this, process](int exitCode, QProcess::ExitStatus status) {
        if (process != m_process)
            return;
        // The completion comes after the child has ended and after the last
        // of its output has been read: QProcess reads what is left in both
        // pipes before it reports the end, and whatever it holds unread is
        // taken here.
        appendOutput(QProcess::StandardOutput);
        appendOutput(QProcess::StandardError);
        m_hasError = status != QProcess::NormalExit || exitCode != 0;
        std::optional<Error> error;
        if (status != QProcess::NormalExit) {
            error =
                Error::application(static_cast<qint64>(ScriptRunnerError::ScriptFailed),
                                   QStringLiteral("The script failed: it was stopped before it ended (%1).")
                                       .arg(process->errorString()));
        } else if (exitCode != 0) {
            error =
                Error::application(static_cast<qint64>(ScriptRunnerError::ScriptFailed),
                                   QStringLiteral("The script failed with exit status %1.").arg(exitCode));
        }
        finishRun(error, m_output);
    });
    connect(process, &QProcess::errorOccurred, this, [this, process](QProcess::ProcessError processError) {
        // Every other error is followed by finished().
        if (process != m_process || processError != QProcess::FailedToStart)
            return;
        m_hasError = true;
        finishRun(Error::application(
                      static_cast<qint64>(ScriptRunnerError::ScriptFailed),
                      QStringLiteral("The script could not be started: %1").arg(process->errorString())),
                  m_output);
    });

    m_timeout = new QTimer(process);
    m_timeout->setSingleShot(true);
    const int seconds = timeoutSeconds();
    connect(m_timeout, &QTimer::timeout, this, [this, process, seconds] {
        if (process != m_process)
            return;
        process->disconnect(this);
        killProcessGroup(process);
        process->kill();
        process->waitForFinished(5000);
        appendOutput(QProcess::StandardOutput);
        appendOutput(QProcess::StandardError);
        m_hasError = true;
        const QString minutes = seconds % 60 == 0 ? QStringLiteral("%1 minutes").arg(seconds / 60)
                                                  : QStringLiteral("%1 seconds").arg(seconds);
        finishRun(Error::application(
                      static_cast<qint64>(ScriptRunnerError::TimedOut),
                      QStringLiteral("The script did not end within %1 and was stopped.").arg(minutes)),
                  m_output);
    });
    m_timeout->start(seconds * 1000);

    process->start(program, arguments);
    if (!input.isEmpty()) {
        process->write(input);
        process->closeWriteChannel();
    }
}

void ScriptRunner::appendOutput(QProcess::ProcessChannel channel) {
    if (!m_process)
        return;
    if (channel == QProcess::StandardOutput)
        m_output += QString(m_standardOutputDecoder.decode(m_process->readAllStandardOutput()));
    else
        m_output += QString(m_standardErrorDecoder.decode(m_process->readAllStandardError()));
}

void ScriptRunner::finishRun(const std::optional<Error>& error, const QString& result) {
    if (m_timeout) {
        m_timeout->stop();
        m_timeout = nullptr; // goes with the process
    }
    if (m_process) {
        m_isTerminated = true;
        m_process->disconnect(this);
        m_process->deleteLater();
        m_process = nullptr;
    }
    stopAccessingFolder();
    cleanUpScriptFile();
    // Called once: the completion is taken out before it runs, so a
    // completion that starts the next run on this runner is fine.
    Completion completion = std::move(m_completion);
    m_completion = nullptr;
    if (completion)
        completion(result, error);
}

void ScriptRunner::cleanUpScriptFile() {
    // The script file is removed once its run is over: it holds the site's
    // script and would otherwise pile up in the temporary folder, one per run.
    if (!m_scriptFile.isEmpty()) {
        QFile::remove(m_scriptFile);
        m_scriptFile.clear();
    }
}

void ScriptRunner::stopAccessingFolder() {
    if (m_folderAccess) {
        m_folderAccess->stopAccessing();
        m_folderAccess.reset();
    }
}

} // namespace tw
