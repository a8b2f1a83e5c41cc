#include "CliRunner.h"

#include "TestEnvironment.h"

#include <QDir>
#include <QJsonDocument>
#include <QTest>

using namespace Qt::StringLiterals;

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
    : m_folder(QDir::tempPath() + u"/tarnwell-cli-test-XXXXXX"_s)
    , m_environment(QProcessEnvironment::systemEnvironment()) {
    for (const auto& [variable, name] :
         {std::pair(u"XDG_CONFIG_HOME"_s, u"/config"_s), std::pair(u"XDG_DATA_HOME"_s, u"/data"_s),
          std::pair(u"TMPDIR"_s, u"/tmp"_s)}) {
        QDir().mkpath(folder() + name);
        m_environment.insert(variable, folder() + name);
    }
    m_environment.remove(u"TARNWELL_VERBOSE"_s);
}

QString CliRunner::program() const {
    return QStringLiteral(TARNWELL_CLI_PROGRAM);
}

void CliRunner::withoutDesktop() {
    setVariable(u"DBUS_SESSION_BUS_ADDRESS"_s, u"unix:path=/nonexistent/bus"_s);
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
    return run(QStringList{u"add"_s, u"--name"_s, name, u"--folder"_s, repo.path(), u"--host"_s,
                           FtpServer::host(), u"--port"_s, QString::number(server.port()), u"--user"_s,
                           FtpServer::userName(), u"--remote-path"_s, remotePath, u"--password-stdin"_s} +
                   more,
               FtpServer::password().toUtf8() + '\n');
}

CliResult CliRunner::addSftpSite(const GitRepository& repo, const SshServer& server, const QString& name,
                                 const QString& key, const QStringList& more, const QByteArray& input) const {
    return run(QStringList{u"add"_s, u"--name"_s, name, u"--folder"_s, repo.path(), u"--protocol"_s,
                           u"SFTP"_s, u"--host"_s, SshServer::host(), u"--port"_s,
                           QString::number(server.port()), u"--user"_s, SshServer::userName(), u"--key"_s,
                           key, u"--remote-path"_s, server.remoteFolder() + u"/site/"_s} +
                   more,
               input);
}

QJsonArray CliRunner::sites() const {
    return QJsonDocument::fromJson(run({u"sites"_s, u"--json"_s}).out.toUtf8()).array();
}

void CliTest::initTestCase() {
    TestEnvironment::isolate();
    m_ftp = std::make_unique<FtpServer>();
}

void CliTest::init() {
    TW_REQUIRE_SERVER(*m_ftp);
}

} // namespace tw::test
