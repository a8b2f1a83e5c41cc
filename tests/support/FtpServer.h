#pragma once

#include "ServerProcess.h"

#include <QByteArray>
#include <QString>

namespace tw::test {

// A real pure-ftpd on a free port of 127.0.0.1, started by the constructor
// (under 0.1 s) and stopped with everything it started by the destructor.
// Everything lives in its own temporary folder: one virtual user (uid and gid
// 2000, no entry in /etc/passwd) chrooted to its home folder, a self-signed
// TLS certificate, the transfer log. Several servers can run at once, also
// in other processes: each has its own port and passive port range.
//
// pure-ftpd needs root. When the test does not run as root, skipReason()
// says so and the server is not started:
//
//     FtpServer server;
//     TW_REQUIRE_SERVER(server); // QSKIP when not root, QVERIFY that it runs
//     ... ftp://127.0.0.1:<server.port()>/folder/file with
//         --user server.userName() + ":" + server.password()
//
// Paths in URLs are relative to homeFolder() (the user is chrooted there).
// Texts of this server that the transfer engine reads: "226-File successfully
// transferred" per upload, "250 Deleted <path>", "550 Could not delete
// <path>: No such file or directory"; a wrong password is answered after a
// deliberate delay of 3 to 6 s ("530 Login authentication failed").
class FtpServer : public LoopbackServer {
public:
    enum class Tls {
        Optional, // plain FTP and explicit TLS (AUTH TLS, curl's --ssl) on one port
        Required, // explicit TLS only: plain sessions are refused with 421
        Refused,  // no TLS at all: AUTH TLS is refused
    };

    explicit FtpServer(Tls tls = Tls::Optional);

    static QString host() { return QStringLiteral("127.0.0.1"); }
    static QString userName() { return QStringLiteral("webmaster"); }
    static QString password() { return QStringLiteral("Tw-secret-42"); }

    // The user's home on disk, the "/" of its FTP session.
    QString homeFolder() const { return m_folder.path() + QStringLiteral("/home"); }
    // One line per finished transfer, common log format:
    // 127.0.0.1 - webmaster [date] "PUT <home>/a/b.txt" 200 <size>
    QString transferLogPath() const { return m_folder.path() + QStringLiteral("/transfer.log"); }

    // Writes a file below the home (folders created as needed), owned by the
    // FTP user as if uploaded, so the user may replace or delete it.
    bool writeFile(const QString& relativePath, const QByteArray& content) const;
    // Removes the folder below the home with all it holds and makes it anew,
    // empty and the user's: a remote folder as a real server has it.
    bool emptyFolder(const QString& relativeFolder) const;
    // Creates the folder below the home if needed and takes away the user's
    // right to write in it: uploads into it fail with "553" (curl: (25)).
    bool makeUnwritable(const QString& relativeFolder) const;

private:
    bool prepare(QString* error);
    // Creates the folders of relativeFolder below the home that are missing,
    // owned by the user; answers the absolute path.
    std::optional<QString> makeFolders(const QString& relativeFolder) const;

    Tls m_tls;
};

} // namespace tw::test
