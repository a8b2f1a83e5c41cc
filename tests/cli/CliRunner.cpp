#include "CliRunner.h"

#include <QDir>
#include <QProcess>

namespace tw::test {

QByteArray CliResult::describe() const {
    return "exit code " + QByteArray::number(exitCode) + (crashed ? " (crashed)" : "") + "\nstdout:\n" +
           out.toUtf8() + "\nstderr:\n" + err.toUtf8();
}

// Everything a stopped process printed.
static CliResult collect(QProcess& process) {
    CliResult result;
    result.crashed = process.exitStatus() != QProcess::NormalExit;
    result.exitCode = result.crashed ? -1 : process.exitCode();
    result.out = QString::fromUtf8(process.readAllStandardOutput());
    result.err = QString::fromUtf8(process.readAllStandardError());
    return result;
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

QString CliRunner::program() const {
    return QStringLiteral(TARNWELL_CLI_PROGRAM);
}

CliResult CliRunner::run(const QStringList& arguments, const QByteArray& input) const {
    QProcess process;
    process.setProcessEnvironment(m_environment);
    process.start(QStringLiteral(TARNWELL_CLI_PROGRAM), arguments);
    if (!input.isEmpty())
        process.write(input);
    process.closeWriteChannel();
    if (!process.waitForFinished(120000)) {
        process.kill();
        process.waitForFinished();
        CliResult failed = collect(process);
        failed.crashed = true;
        failed.err += QStringLiteral("\n(did not end: ") + process.errorString() + u')';
        return failed;
    }
    return collect(process);
}

QJsonDocument CliRunner::json(const QStringList& arguments) const {
    return QJsonDocument::fromJson(run(arguments).out.toUtf8());
}

} // namespace tw::test
