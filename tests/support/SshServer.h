#pragma once

#include "ServerProcess.h"

#include <QString>

namespace tw::test {

// A real OpenSSH sshd on a free port of 127.0.0.1 for SFTP and remote
// scripts, started by the constructor (0.1 to 0.2 s) and stopped with every
// session it started by the destructor. Host key, configuration and client
// keys live in its own temporary folder; /etc/ssh is not read.
//
// root logs in with a key only (there is no password login). Two ed25519
// client keys are accepted: encryptedKeyPath(), encrypted with passphrase(),
// and keyPath() without pass phrase. SFTP sessions start in remoteFolder(),
// which is also what "~" means in curl's sftp:// URLs:
//
//     SshServer server;
//     TW_REQUIRE_SERVER(server); // QSKIP when not root, QVERIFY that it runs
//     curl -k -T file "sftp://127.0.0.1:<port>/~/www/file" --ftp-create-dirs
//          --user root: --key <encryptedKeyPath> --pass <passphrase>
//     ... the file is then <remoteFolder>/www/file
//
// Absolute SFTP paths are paths of this machine. Remote scripts run in root's
// home, so they name remoteFolder() explicitly.
class SshServer : public LoopbackServer {
public:
    // What else the server offers; each costs start-up time.
    struct Options {
        // RSA and ECDSA client keys beside the ed25519 ones (keyPath(type)).
        bool moreKeyTypes = false;
        // root may log in with loginPassword(). sshd runs in a mount
        // namespace of its own, where /etc/shadow is a file of the test's
        // (the machine's own stays as it is).
        bool passwordLogin = false;
        // Listens on ::1 too.
        bool ipv6 = false;
    };

    SshServer();
    explicit SshServer(Options options);

    static QString host() { return QStringLiteral("127.0.0.1"); }
    static QString userName() { return QStringLiteral("root"); }

    // The private key without pass phrase.
    QString keyPath() const { return m_folder.path() + QStringLiteral("/client_plain"); }
    // The private key encrypted with passphrase().
    QString encryptedKeyPath() const { return m_folder.path() + QStringLiteral("/client_encrypted"); }
    static QString passphrase() { return QStringLiteral("correct horse battery"); }
    // A key of another type ("rsa", "ecdsa"; with Options::moreKeyTypes).
    QString keyPath(const QString& type) const { return m_folder.path() + QStringLiteral("/client_") + type; }
    // root's password (with Options::passwordLogin).
    static QString loginPassword() { return QStringLiteral("Tw-ssh-login-7"); }

    // The start folder of SFTP sessions ("~" in sftp:// URLs), on disk.
    QString remoteFolder() const { return m_folder.path() + QStringLiteral("/remote"); }

    // Arguments for /usr/bin/ssh in the form the script runner takes them
    // (split at single blanks, the command appended as the last argument):
    // -p PORT -i KEY -o UserKnownHostsFile=/dev/null -o StrictHostKeyChecking=no
    // -o BatchMode=yes -o LogLevel=ERROR root@127.0.0.1
    // It uses keyPath(): ssh cannot ask for a pass phrase in batch mode.
    QString connectionString() const;

private:
    bool prepare(QString* error);

    Options m_options;
};

} // namespace tw::test
