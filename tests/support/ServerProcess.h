#pragma once

#include <QProcess>
#include <QString>
#include <QStringList>
#include <QTemporaryDir>

#include <functional>
#include <memory>
#include <optional>

namespace tw::test {

// One server program run as a child of the test, in the foreground, on a
// free loopback port. Used by FtpServer and SshServer; usable on its own for
// other servers that take their port on the command line or in a file.
//
// The child gets SIGTERM when the test process dies, so a crashed test leaves
// no server behind. stop() (and the destructor) terminates the server and
// every process it started (found through /proc) and reaps the server.
class ServerProcess {
public:
    ServerProcess() = default;
    ~ServerProcess();
    ServerProcess(const ServerProcess&) = delete;
    ServerProcess& operator=(const ServerProcess&) = delete;

    // Starts program on a free port of 127.0.0.1. arguments is called with
    // the port and answers the command line (it may write configuration
    // files too). Waits until the port accepts connections (a connect loop,
    // no fixed sleep); when the server exits instead (its port was taken in
    // the meantime), tries again with another port. The server's standard
    // output and error go to logPath. Answers false with errorString() set.
    bool start(const QString& program, const std::function<QStringList(quint16 port)>& arguments,
               const QString& logPath);
    void stop();

    bool isRunning() const;
    quint16 port() const { return m_port; }
    QString errorString() const { return m_error; }

    // A port of 127.0.0.1 that nothing listens on right now (the kernel's
    // choice). 0 when the kernel gives none.
    static quint16 freePort();
    // The first of count consecutive ports that are all free now, below the
    // kernel's ephemeral range (so they do not meet the client ends of
    // connections): for a server's passive data ports. Servers that start at
    // the same time rarely pick overlapping ranges.
    static int freePortRange(int count);
    // Whether a listening socket could be bound to port of 127.0.0.1 now.
    static bool isPortFree(quint16 port);
    // Whether something accepts connections on port of 127.0.0.1.
    static bool acceptsConnections(quint16 port);
    // Runs a helper program (key generation and the like) to its end.
    // Answers its standard output, or nothing with error set when it fails.
    static std::optional<QByteArray> runTool(const QString& program, const QStringList& arguments,
                                             QString* error);
    static bool isRoot();
    // Whether a socket can listen on ::1 here.
    static bool hasIpv6Loopback();

private:
    std::unique_ptr<QProcess> m_process;
    quint16 m_port = 0;
    QString m_error;
};

} // namespace tw::test

namespace tw::test {

// What the servers of the tests share: a temporary folder of their own, the
// server's process on a free port of 127.0.0.1, and why it does not run. The
// server's own class starts it in its constructor; the process ends with the
// object.
class LoopbackServer {
public:
    LoopbackServer(const LoopbackServer&) = delete;
    LoopbackServer& operator=(const LoopbackServer&) = delete;

    // Set when this machine cannot run the server at all (not root); the
    // test should skip with this text.
    std::optional<QString> skipReason() const { return m_skipReason; }
    bool isRunning() const { return m_process.isRunning(); }
    quint16 port() const { return m_process.port(); }
    // Why the server is not running.
    QString errorString() const;
    // The server's own messages.
    QString logPath() const { return m_folder.path() + QLatin1Char('/') + m_logName; }

protected:
    // program: its name in messages; logName: its log below the folder.
    LoopbackServer(const QString& program, const QString& logName);
    // Whether the server may be prepared and started (root, a folder).
    bool canStart() const { return !m_skipReason && m_error.isEmpty(); }
    // Starts the server as ServerProcess::start does; errorString() says why not.
    void start(const QString& program, const std::function<QStringList(quint16 port)>& arguments,
               const QString& outputPath);
    // A self-signed certificate for 127.0.0.1 and its key in one file (mode
    // 0600), as TLS servers take them.
    static bool makeCertificate(const QString& path, QString* error);

    QTemporaryDir m_folder;
    ServerProcess m_process;
    std::optional<QString> m_skipReason;
    QString m_error;

private:
    QString m_program;
    QString m_logName;
};

// A server on a free port of 127.0.0.1 that takes every connection and then
// says nothing (after a greeting, when asked for one): a server gone silent.
class SilentServer {
public:
    explicit SilentServer(bool greets = false);
    bool isRunning() const { return m_process.isRunning(); }
    quint16 port() const { return m_process.port(); }
    QString errorString() const { return m_process.errorString(); }

private:
    QTemporaryDir m_folder;
    ServerProcess m_process;
};

// Whether a test that cannot get its server, root or secret store must fail
// instead of skipping: TARNWELL_REQUIRE_SERVERS=1 (CI sets it), so that a
// missing install step cannot pass as a skipped test.
bool serversRequired();
} // namespace tw::test

// Skips the test function when the server cannot run on this machine (not
// root), or fails it when servers are required; fails it when the server
// should run but did not start.
#define TW_REQUIRE_SERVER(server)                                                                            \
    do {                                                                                                     \
        if ((server).skipReason()) {                                                                         \
            if (tw::test::serversRequired())                                                                 \
                QFAIL(qPrintable(*(server).skipReason()));                                                   \
            QSKIP(qPrintable(*(server).skipReason()));                                                       \
        }                                                                                                    \
        QVERIFY2((server).isRunning(), qPrintable((server).errorString()));                                  \
    } while (false)
