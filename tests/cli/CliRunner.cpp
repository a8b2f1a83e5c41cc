#include "CliRunner.h"

#include "TestEnvironment.h"

#include <QDir>
#include <QJsonDocument>
#include <QTest>

namespace tw::test {

QByteArray CliResult::describe() const {
    return "exit code " + QByteArray::number(exitCode) + (crashed ? " (crashed)" : "") + "\nstdout:\n" +
           out.toUtf8() + "\nstderr:\n" + err.toUtf8();
}

CliResult CliRunner::collect(QProcess& process) {
    CliResult result;
    result.crashed =
        process.exitStatus() != QProcess::NormalExit || process.error() == QProcess::FailedToStart;
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
    QDir().mkpath(m_folder.path() + QStringLiteral("/tmp"));
    m_environment.insert(QStringLiteral("TMPDIR"), m_folder.path() + QStringLiteral("/tmp"));
    m_environment.remove(QStringLiteral("TARNWELL_VERBOSE"));
}

QString CliRunner::program() const {
    return QStringLiteral(TARNWELL_CLI_PROGRAM);
}

void CliRunner::withoutDesktop() {
    setVariable(QStringLiteral("DBUS_SESSION_BUS_ADDRESS"), QStringLiteral("unix:path=/nonexistent/bus"));
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
    process.write(input);
    process.closeWriteChannel();
    if (!process.waitForFinished(120000)) {
        process.kill(); // reported as crashed
        process.waitForFinished();
    }
    return collect(process);
}

std::unique_ptr<QProcess> CliRunner::start(const QStringList& arguments) const {
    auto process = std::make_unique<QProcess>();
    process->setProcessEnvironment(m_environment);
    process->start(program(), arguments);
    process->closeWriteChannel();
    process->waitForStarted();
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

CliResult CliRunner::addSftpSite(const GitRepository& repo, const SshServer& server, const QString& name,
                                 const QString& key, const QStringList& more, const QByteArray& input) const {
    return run(QStringList{QStringLiteral("add"), QStringLiteral("--name"), name, QStringLiteral("--folder"),
                           repo.path(), QStringLiteral("--protocol"), QStringLiteral("SFTP"),
                           QStringLiteral("--host"), SshServer::host(), QStringLiteral("--port"),
                           QString::number(server.port()), QStringLiteral("--user"), SshServer::userName(),
                           QStringLiteral("--key"), key, QStringLiteral("--remote-path"),
                           server.remoteFolder() + QStringLiteral("/site/")} +
                   more,
               input);
}

QJsonArray CliRunner::sites() const {
    return QJsonDocument::fromJson(run({QStringLiteral("sites"), QStringLiteral("--json")}).out.toUtf8())
        .array();
}

void CliTest::initTestCase() {
    TestEnvironment::isolate();
    m_ftp = std::make_unique<FtpServer>();
}

void CliTest::init() {
    TW_REQUIRE_SERVER(*m_ftp);
}

} // namespace tw::test
