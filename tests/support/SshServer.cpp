#include "SshServer.h"

#include <QDir>
#include <QFile>

namespace tw::test {

namespace {

bool writeText(const QString& path, const QByteArray& content) {
    QFile file(path);
    return file.open(QIODevice::WriteOnly | QIODevice::Truncate) && file.write(content) == content.size();
}

} // namespace

SshServer::SshServer()
    : m_folder(QDir::tempPath() + QStringLiteral("/tarnwell-ssh-XXXXXX")) {
    if (!ServerProcess::isRoot()) {
        m_skipReason =
            QStringLiteral("sshd lets only root log in here (no test user exists); run this test as root");
        return;
    }
    if (!m_folder.isValid()) {
        m_error = QStringLiteral("cannot create a temporary folder: ") + m_folder.errorString();
        return;
    }
    QString error;
    if (!prepare(&error)) {
        m_error = error;
        return;
    }
    const QString folder = m_folder.path();
    const QString configuration = folder + QStringLiteral("/sshd_config");
    const bool started = m_process.start(
        QStringLiteral("/usr/sbin/sshd"),
        [&](quint16 port) {
            const QByteArray text = QStringLiteral("Port %1\n"
                                                   "ListenAddress 127.0.0.1\n"
                                                   "HostKey %2/host_ed25519\n"
                                                   "PidFile %2/sshd.pid\n"
                                                   "AuthorizedKeysFile %2/authorized_keys\n"
                                                   "PermitRootLogin prohibit-password\n"
                                                   "PubkeyAuthentication yes\n"
                                                   "PasswordAuthentication no\n"
                                                   "KbdInteractiveAuthentication no\n"
                                                   "UsePAM no\n"
                                                   "StrictModes no\n"
                                                   "UseDNS no\n"
                                                   "PrintMotd no\n"
                                                   "Subsystem sftp internal-sftp -d %3\n")
                                        .arg(port)
                                        .arg(folder, remoteFolder())
                                        .toUtf8();
            writeText(configuration, text);
            // -D: stay in the foreground, -e: messages to standard error.
            return QStringList{QStringLiteral("-D"), QStringLiteral("-e"), QStringLiteral("-f"),
                               configuration};
        },
        logPath());
    if (!started)
        m_error = m_process.errorString();
}

SshServer::~SshServer() {
    m_process.stop();
}

QString SshServer::errorString() const {
    if (m_skipReason)
        return *m_skipReason;
    if (!m_error.isEmpty())
        return m_error;
    if (!m_process.isRunning())
        return QStringLiteral("sshd has stopped; its log: ") + logPath();
    return QString();
}

QString SshServer::connectionString() const {
    return QStringLiteral("-p %1 -i %2 -o UserKnownHostsFile=/dev/null -o StrictHostKeyChecking=no "
                          "-o BatchMode=yes -o LogLevel=ERROR %3@%4")
        .arg(port())
        .arg(keyPath(), userName(), host());
}

bool SshServer::prepare(QString* error) {
    const QString folder = m_folder.path();
    // sshd refuses to start as root without its privilege separation folder.
    if (!QDir().mkpath(QStringLiteral("/run/sshd"))) {
        *error = QStringLiteral("cannot create /run/sshd");
        return false;
    }
    if (!QDir().mkdir(remoteFolder())) {
        *error = QStringLiteral("cannot create ") + remoteFolder();
        return false;
    }
    const QString keygen = QStringLiteral("/usr/bin/ssh-keygen");
    const auto makeKey = [&](const QString& path, const QString& passphraseText) {
        // Two rounds of key derivation instead of 16: every SFTP connection
        // with the encrypted key pays for them again.
        return ServerProcess::runTool(keygen,
                                      {QStringLiteral("-q"), QStringLiteral("-t"), QStringLiteral("ed25519"),
                                       QStringLiteral("-a"), QStringLiteral("2"), QStringLiteral("-N"),
                                       passphraseText, QStringLiteral("-C"), QStringLiteral("tarnwell-test"),
                                       QStringLiteral("-f"), path},
                                      error)
            .has_value();
    };
    if (!makeKey(folder + QStringLiteral("/host_ed25519"), QString()) || !makeKey(keyPath(), QString()) ||
        !makeKey(encryptedKeyPath(), passphrase()))
        return false;
    QByteArray authorizedKeys;
    for (const QString& key : {keyPath(), encryptedKeyPath()}) {
        QFile publicKey(key + QStringLiteral(".pub"));
        if (!publicKey.open(QIODevice::ReadOnly)) {
            *error = QStringLiteral("cannot read ") + publicKey.fileName();
            return false;
        }
        authorizedKeys += publicKey.readAll();
    }
    if (!writeText(folder + QStringLiteral("/authorized_keys"), authorizedKeys)) {
        *error = QStringLiteral("cannot write the authorized keys");
        return false;
    }
    return true;
}

} // namespace tw::test
