#include "ServerProcess.h"

#include "Traces.h"

#include <QDeadlineTimer>
#include <QDir>
#include <QFile>
#include <QRandomGenerator>
#include <QThread>

#include <arpa/inet.h>
#include <csignal>
#include <netinet/in.h>
#include <sys/prctl.h>
#include <sys/socket.h>
#include <unistd.h>

namespace tw::test {

namespace {

sockaddr_in loopback(quint16 port) {
    sockaddr_in address{};
    address.sin_family = AF_INET;
    address.sin_port = htons(port);
    address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
    return address;
}

QString logTail(const QString& logPath) {
    QFile file(logPath);
    if (!file.open(QIODevice::ReadOnly))
        return QString();
    const qint64 size = file.size();
    if (size > 2000)
        file.seek(size - 2000);
    return QString::fromUtf8(file.readAll()).trimmed();
}

} // namespace

ServerProcess::~ServerProcess() {
    stop();
}

bool ServerProcess::start(const QString& program, const std::function<QStringList(quint16)>& arguments,
                          const QString& logPath) {
    stop();
    m_error.clear();
    for (int attempt = 0; attempt < 4; ++attempt) {
        const quint16 port = freePort();
        if (port == 0) {
            m_error = QStringLiteral("the kernel gave no free port of 127.0.0.1");
            return false;
        }
        auto process = std::make_unique<QProcess>();
        process->setProgram(program);
        process->setArguments(arguments(port));
        process->setProcessChannelMode(QProcess::MergedChannels);
        process->setStandardInputFile(QProcess::nullDevice());
        process->setStandardOutputFile(logPath, QIODevice::Append);
        // The server must not outlive a test that crashes.
        process->setChildProcessModifier([] { ::prctl(PR_SET_PDEATHSIG, SIGTERM); });
        process->start();
        if (!process->waitForStarted(10000)) {
            m_error = QStringLiteral("cannot start %1: %2").arg(program, process->errorString());
            return false;
        }
        const QDeadlineTimer deadline(15000);
        bool listening = false;
        while (!deadline.hasExpired()) {
            if (acceptsConnections(port)) {
                listening = true;
                break;
            }
            if (process->waitForFinished(5))
                break;
        }
        if (listening) {
            m_process = std::move(process);
            m_port = port;
            return true;
        }
        if (process->state() != QProcess::NotRunning) {
            process->kill();
            process->waitForFinished(5000);
            m_error = QStringLiteral("%1 did not open port %2 within 15 s. Its log:\n%3")
                          .arg(program)
                          .arg(port)
                          .arg(logTail(logPath));
            return false;
        }
        // It ended at once, most likely because someone took the port in the
        // meantime: try another one.
        m_error = QStringLiteral("%1 ended at start (exit status %2). Its log:\n%3")
                      .arg(program)
                      .arg(process->exitCode())
                      .arg(logTail(logPath));
    }
    return false;
}

void ServerProcess::stop() {
    if (!m_process)
        return;
    if (m_process->state() != QProcess::NotRunning) {
        const auto pid = static_cast<pid_t>(m_process->processId());
        // Connection handlers may have left the server's process group
        // (sshd's do): find them by their parents.
        const QList<ProcessEntry> children = descendants(pid);
        ::kill(pid, SIGTERM);
        for (const ProcessEntry& child : children) {
            if (test::isRunning(child))
                ::kill(static_cast<pid_t>(child.pid), SIGTERM);
        }
        if (!m_process->waitForFinished(5000)) {
            m_process->kill();
            m_process->waitForFinished(5000);
        }
        const QDeadlineTimer deadline(2000);
        for (const ProcessEntry& child : children) {
            while (test::isRunning(child) && !deadline.hasExpired())
                QThread::msleep(2);
            if (test::isRunning(child))
                ::kill(static_cast<pid_t>(child.pid), SIGKILL);
        }
    }
    m_process.reset();
    m_port = 0;
}

bool ServerProcess::isRunning() const {
    return m_process && m_process->state() != QProcess::NotRunning;
}

quint16 ServerProcess::freePort() {
    const int fd = ::socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0);
    if (fd < 0)
        return 0;
    sockaddr_in address = loopback(0);
    socklen_t length = sizeof address;
    quint16 port = 0;
    if (::bind(fd, reinterpret_cast<sockaddr*>(&address), sizeof address) == 0 &&
        ::getsockname(fd, reinterpret_cast<sockaddr*>(&address), &length) == 0)
        port = ntohs(address.sin_port);
    ::close(fd);
    return port;
}

bool ServerProcess::isPortFree(quint16 port) {
    const int fd = ::socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0);
    if (fd < 0)
        return false;
    const int on = 1;
    ::setsockopt(fd, SOL_SOCKET, SO_REUSEADDR, &on, sizeof on);
    const sockaddr_in address = loopback(port);
    const bool free = ::bind(fd, reinterpret_cast<const sockaddr*>(&address), sizeof address) == 0;
    ::close(fd);
    return free;
}

bool ServerProcess::acceptsConnections(quint16 port) {
    const int fd = ::socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0);
    if (fd < 0)
        return false;
    const sockaddr_in address = loopback(port);
    const bool connected = ::connect(fd, reinterpret_cast<const sockaddr*>(&address), sizeof address) == 0;
    ::close(fd);
    return connected;
}

std::optional<QByteArray> ServerProcess::runTool(const QString& program, const QStringList& arguments,
                                                 QString* error) {
    QProcess process;
    process.setStandardInputFile(QProcess::nullDevice());
    process.start(program, arguments);
    if (!process.waitForFinished(30000) || process.exitStatus() != QProcess::NormalExit ||
        process.exitCode() != 0) {
        if (error) {
            *error = QStringLiteral("%1 %2 failed: %3 %4")
                         .arg(program, arguments.join(QLatin1Char(' ')), process.errorString(),
                              QString::fromUtf8(process.readAllStandardError()).trimmed());
        }
        return std::nullopt;
    }
    return process.readAllStandardOutput();
}

bool ServerProcess::isRoot() {
    return ::geteuid() == 0;
}

int ServerProcess::freePortRange(int count) {
    constexpr int lowest = 20000;
    constexpr int highest = 32000;
    int first = lowest;
    for (int attempt = 0; attempt < 20; ++attempt) {
        first = QRandomGenerator::global()->bounded(lowest, highest - count);
        bool allFree = true;
        for (int port = first; port < first + count && allFree; ++port)
            allFree = isPortFree(static_cast<quint16>(port));
        if (allFree)
            break;
    }
    return first;
}

bool ServerProcess::hasIpv6Loopback() {
    const int fd = ::socket(AF_INET6, SOCK_STREAM, 0);
    if (fd < 0)
        return false;
    sockaddr_in6 address{};
    address.sin6_family = AF_INET6;
    address.sin6_addr = in6addr_loopback;
    const bool bound = ::bind(fd, reinterpret_cast<sockaddr*>(&address), sizeof address) == 0;
    ::close(fd);
    return bound;
}

LoopbackServer::LoopbackServer(const QString& program, const QString& logName)
    : m_folder(QDir::tempPath() + QStringLiteral("/tarnwell-") + program + QStringLiteral("-XXXXXX"))
    , m_program(program)
    , m_logName(logName) {
    if (!ServerProcess::isRoot())
        m_skipReason = program + QStringLiteral(" needs root here; run this test as root");
    else if (!m_folder.isValid())
        m_error = QStringLiteral("cannot create a temporary folder: ") + m_folder.errorString();
}

QString LoopbackServer::errorString() const {
    if (m_skipReason)
        return *m_skipReason;
    if (!m_error.isEmpty())
        return m_error;
    if (!m_process.isRunning())
        return m_program + QStringLiteral(" has stopped; its log: ") + logPath();
    return QString();
}

void LoopbackServer::start(const QString& program, const std::function<QStringList(quint16)>& arguments,
                           const QString& outputPath) {
    if (!m_process.start(program, arguments, outputPath))
        m_error = m_process.errorString();
}

bool LoopbackServer::makeCertificate(const QString& path, QString* error) {
    // An EC key takes milliseconds where RSA takes a third of a second.
    const QString certificate = path + QStringLiteral(".cert");
    if (!ServerProcess::runTool(QStringLiteral("/usr/bin/openssl"),
                                {QStringLiteral("req"), QStringLiteral("-x509"), QStringLiteral("-newkey"),
                                 QStringLiteral("ec"), QStringLiteral("-pkeyopt"),
                                 QStringLiteral("ec_paramgen_curve:prime256v1"), QStringLiteral("-nodes"),
                                 QStringLiteral("-days"), QStringLiteral("3650"), QStringLiteral("-subj"),
                                 QStringLiteral("/CN=127.0.0.1"), QStringLiteral("-keyout"), path,
                                 QStringLiteral("-out"), certificate},
                                error))
        return false;
    QFile key(path);
    QFile cert(certificate);
    if (!cert.open(QIODevice::ReadOnly) || !key.open(QIODevice::Append) || key.write(cert.readAll()) < 0 ||
        !key.setPermissions(QFileDevice::ReadOwner | QFileDevice::WriteOwner)) {
        *error = QStringLiteral("cannot join the key and the certificate in ") + path;
        return false;
    }
    return true;
}

SilentServer::SilentServer(bool greets) {
    m_process.start(
        QStringLiteral("/usr/bin/python3"),
        [greets](quint16 port) {
            return QStringList{QStringLiteral("-c"),
                               QStringLiteral("import socket, sys\n"
                                              "s = socket.socket(); s.bind(('127.0.0.1', int(sys.argv[1])))\n"
                                              "s.listen(8); held = []\n"
                                              "while True:\n"
                                              "    c, _ = s.accept(); held.append(c)\n"
                                              "    if sys.argv[2] == '1': c.sendall(b'220 hello\\r\\n')\n"),
                               QString::number(port), greets ? QStringLiteral("1") : QStringLiteral("0")};
        },
        m_folder.filePath(QStringLiteral("silent.log")));
}

bool serversRequired() {
    return qEnvironmentVariable("TARNWELL_REQUIRE_SERVERS") == QStringLiteral("1");
}

} // namespace tw::test
