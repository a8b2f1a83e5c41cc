#pragma once

#include "ServerProcess.h"

#include <QString>
#include <QTemporaryDir>

#include <optional>

namespace tw::test {

// A real FTP server that speaks TLS from the first byte ("implicit" TLS, the
// usual port 990 set-up): vsftpd, unpacked by scripts/setup.sh (it would
// conflict with pure-ftpd as an installed package), on a free port of
// 127.0.0.1. Anonymous logins (any password) may upload into homeFolder()
// and make folders there; a client that talks plain FTP first gets no
// answer at all.
class ImplicitTlsFtpServer {
public:
    ImplicitTlsFtpServer();
    ~ImplicitTlsFtpServer();
    ImplicitTlsFtpServer(const ImplicitTlsFtpServer&) = delete;
    ImplicitTlsFtpServer& operator=(const ImplicitTlsFtpServer&) = delete;

    std::optional<QString> skipReason() const { return m_skipReason; }
    bool isRunning() const { return m_process.isRunning(); }
    QString errorString() const;

    quint16 port() const { return m_process.port(); }
    static QString userName() { return QStringLiteral("anonymous"); }
    static QString password() { return QStringLiteral("any"); }
    // Where "/" of the sessions is on disk; uploads go below homeFolder().
    QString rootFolder() const { return m_folder.path() + QStringLiteral("/anon"); }
    // The writable folder below the root: "www".
    QString homeFolder() const { return rootFolder() + QStringLiteral("/www"); }
    QString logPath() const { return m_folder.path() + QStringLiteral("/vsftpd.log"); }

private:
    bool prepare(QString* error);

    QTemporaryDir m_folder;
    ServerProcess m_process;
    std::optional<QString> m_skipReason;
    QString m_error;
};

} // namespace tw::test
