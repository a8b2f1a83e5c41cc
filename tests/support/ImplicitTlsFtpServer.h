#pragma once

#include "ServerProcess.h"

#include <QString>

namespace tw::test {

// A real FTP server that speaks TLS from the first byte ("implicit" TLS, the
// usual port 990 set-up): vsftpd, unpacked by scripts/setup.sh (it would
// conflict with pure-ftpd as an installed package), on a free port of
// 127.0.0.1. Anonymous logins (any password) may upload into homeFolder()
// and make folders there; a client that talks plain FTP first gets no
// answer at all.
class ImplicitTlsFtpServer : public LoopbackServer {
public:
    ImplicitTlsFtpServer();

    static QString userName() { return QStringLiteral("anonymous"); }
    static QString password() { return QStringLiteral("any"); }
    // Where "/" of the sessions is on disk; uploads go below homeFolder().
    QString rootFolder() const { return m_folder.path() + QStringLiteral("/anon"); }
    // The writable folder below the root: "www".
    QString homeFolder() const { return rootFolder() + QStringLiteral("/www"); }

private:
    bool prepare(QString* error);
};

} // namespace tw::test
