#include "CliRunner.h"

#include <QDir>

namespace tw::test {

QByteArray CliResult::describe() const {
    return "exit code " + QByteArray::number(exitCode) + (crashed ? " (crashed)" : "") + "\nstdout:\n" +
           out.toUtf8() + "\nstderr:\n" + err.toUtf8();
}

CliRunner::CliRunner()
    : m_folder(QDir::tempPath() + QStringLiteral("/tarnwell-cli-test-XXXXXX"))
    , m_environment(QProcessEnvironment::systemEnvironment()) {
    const QString config = m_folder.path() + QStringLiteral("/config");
    const QString data = m_folder.path() + QStringLiteral("/data");
    QDir().mkpath(config);
    QDir().mkpath(data);
    m_environment.insert(QStringLiteral("XDG_CONFIG_HOME"), config);
    m_environment.insert(QStringLiteral("XDG_DATA_HOME"), data);
    m_environment.remove(QStringLiteral("TARNWELL_VERBOSE"));
}

QString CliRunner::program() {
    return QStringLiteral(TARNWELL_CLI_PROGRAM);
}

QString CliRunner::preferencesFile() const {
    return m_folder.path() + QStringLiteral("/config/tarnwell/tarnwell.conf");
}

CliResult CliRunner::collect(QProcess& process) {
    CliResult result;
    result.crashed = process.exitStatus() != QProcess::NormalExit;
    result.exitCode = result.crashed ? -1 : process.exitCode();
    result.out = QString::fromUtf8(process.readAllStandardOutput());
    result.err = QString::fromUtf8(process.readAllStandardError());
    return result;
}

CliResult CliRunner::run(const QStringList& arguments, const QByteArray& input,
                         int timeoutMilliseconds) const {
    QProcess process;
    process.setProcessEnvironment(m_environment);
    process.start(program(), arguments);
    if (!process.waitForStarted()) {
        CliResult failed;
        failed.err =
            QStringLiteral("cannot start ") + program() + QStringLiteral(": ") + process.errorString();
        return failed;
    }
    if (!input.isEmpty())
        process.write(input);
    process.closeWriteChannel();
    if (!process.waitForFinished(timeoutMilliseconds)) {
        process.kill();
        process.waitForFinished();
        CliResult failed = collect(process);
        failed.crashed = true;
        failed.err += QStringLiteral("\n(did not end in time)");
        return failed;
    }
    return collect(process);
}

std::unique_ptr<QProcess> CliRunner::start(const QStringList& arguments) const {
    auto process = std::make_unique<QProcess>();
    process->setProcessEnvironment(m_environment);
    process->start(program(), arguments);
    process->waitForStarted();
    process->closeWriteChannel();
    return process;
}

QJsonDocument CliRunner::json(const QStringList& arguments, int* exitCode) const {
    const CliResult result = run(arguments);
    if (exitCode)
        *exitCode = result.exitCode;
    return QJsonDocument::fromJson(result.out.toUtf8());
}

} // namespace tw::test
