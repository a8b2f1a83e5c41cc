#include "CliRunner.h"

#include "TestEnvironment.h"

#include <QDir>
#include <QJsonArray>
#include <QJsonObject>
#include <QTest>

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

void CliRunner::withoutDesktop() {
    setVariable(QStringLiteral("DBUS_SESSION_BUS_ADDRESS"), QStringLiteral("unix:path=/nonexistent/bus"));
    const QString temp = folder() + QStringLiteral("/tmp");
    QDir().mkpath(temp);
    setVariable(QStringLiteral("TMPDIR"), temp);
}

CliResult CliRunner::run(const QStringList& arguments, const QByteArray& input) const {
    return runProgram(program(), arguments, m_environment, QString(), input);
}

CliResult CliRunner::runProgram(const QString& program, const QStringList& arguments,
                                const QProcessEnvironment& environment, const QString& folder,
                                const QByteArray& input) {
    QProcess process;
    process.setProcessEnvironment(environment);
    process.setWorkingDirectory(folder);
    process.start(program, arguments);
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

std::unique_ptr<QProcess> CliRunner::start(const QStringList& arguments) const {
    auto process = std::make_unique<QProcess>();
    process->setProcessEnvironment(m_environment);
    process->start(program(), arguments);
    process->closeWriteChannel();
    return process;
}

bool CliRunner::waitForOutput(QProcess& process, QByteArray& output, const QByteArray& text) {
    return QTest::qWaitFor(
               [&] {
                   output += process.readAllStandardOutput();
                   return output.contains(text) || process.state() == QProcess::NotRunning;
               },
               30000) &&
           output.contains(text);
}

CliResult CliRunner::addFtpSite(const GitRepository& repo, const FtpServer& server, const QString& name,
                                const QString& remotePath, const QStringList& more) const {
    return run(QStringList{QStringLiteral("add"), QStringLiteral("--name"), name, QStringLiteral("--folder"),
                           repo.path(), QStringLiteral("--host"), FtpServer::host(), QStringLiteral("--port"),
                           QString::number(server.port()), QStringLiteral("--user"), FtpServer::userName(),
                           QStringLiteral("--remote-path"), remotePath, QStringLiteral("--password-stdin")} +
                   more,
               FtpServer::password().toUtf8() + '\n');
}

QString CliRunner::lastDeployed(int index) const {
    return json({QStringLiteral("sites"), QStringLiteral("--json")})
        .array()
        .at(index)
        .toObject()
        .value(QStringLiteral("lastDeployedCommit"))
        .toString();
}

void CliTest::initTestCase() {
    TestEnvironment::isolate();
    m_ftp = std::make_unique<FtpServer>();
}

void CliTest::init() {
    TW_REQUIRE_SERVER(*m_ftp);
}

} // namespace tw::test
