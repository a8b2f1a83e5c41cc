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
    : SshServer(Options()) {}

SshServer::SshServer(Options options)
    : LoopbackServer(QStringLiteral("sshd"), QStringLiteral("sshd.log"))
    , m_options(options) {
    // (sshd lets only root log in here: no test user exists.)
    if (!canStart() || !prepare(&m_error))
        return;
    const QString folder = m_folder.path();
    const QString configuration = folder + QStringLiteral("/sshd_config");
    const bool password = m_options.passwordLogin;
    start(
        password ? QStringLiteral("/usr/bin/unshare") : QStringLiteral("/usr/sbin/sshd"),
        [&](quint16 port) {
            const QByteArray text =
                QStringLiteral("Port %1\n"
                               "ListenAddress 127.0.0.1\n"
                               "%4"
                               "HostKey %2/host_ed25519\n"
                               "PidFile %2/sshd.pid\n"
                               "AuthorizedKeysFile %2/authorized_keys\n"
                               "PermitRootLogin %5\n"
                               "PubkeyAuthentication yes\n"
                               "PasswordAuthentication %6\n"
                               "KbdInteractiveAuthentication no\n"
                               "UsePAM no\n"
                               "StrictModes no\n"
                               "UseDNS no\n"
                               "PrintMotd no\n"
                               "Subsystem sftp internal-sftp -d %3\n")
                    .arg(port)
                    .arg(folder, remoteFolder(),
                         m_options.ipv6 ? QStringLiteral("ListenAddress ::1\n") : QString(),
                         password ? QStringLiteral("yes") : QStringLiteral("prohibit-password"),
                         password ? QStringLiteral("yes") : QStringLiteral("no"))
                    .toUtf8();
            writeText(configuration, text);
            // -D: stay in the foreground, -e: messages to standard error.
            const QStringList sshd{QStringLiteral("/usr/sbin/sshd"), QStringLiteral("-D"),
                                   QStringLiteral("-e"), QStringLiteral("-f"), configuration};
            if (!password)
                return sshd.mid(1);
            // root's password comes from a shadow file that only this sshd
            // sees, bound over /etc/shadow in a mount namespace of its own.
            return QStringList{QStringLiteral("-m"),
                               QStringLiteral("--propagation"),
                               QStringLiteral("private"),
                               QStringLiteral("/bin/sh"),
                               QStringLiteral("-c"),
                               QStringLiteral("mount --bind \"$0\" /etc/shadow && exec \"$@\""),
                               folder + QStringLiteral("/shadow")} +
                   sshd;
        },
        logPath());
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
    QStringList clientKeys{keyPath(), encryptedKeyPath()};
    if (m_options.moreKeyTypes) {
        for (const auto& [type, bits] : {std::pair(QStringLiteral("rsa"), QStringLiteral("3072")),
                                         std::pair(QStringLiteral("ecdsa"), QStringLiteral("256"))}) {
            if (!ServerProcess::runTool(keygen,
                                        {QStringLiteral("-q"), QStringLiteral("-t"), type,
                                         QStringLiteral("-b"), bits, QStringLiteral("-N"), QString(),
                                         QStringLiteral("-m"), QStringLiteral("PEM"), QStringLiteral("-f"),
                                         keyPath(type)},
                                        error))
                return false;
            clientKeys.append(keyPath(type));
        }
    }
    if (m_options.passwordLogin) {
        const auto hash =
            ServerProcess::runTool(QStringLiteral("/usr/bin/openssl"),
                                   {QStringLiteral("passwd"), QStringLiteral("-6"), loginPassword()}, error);
        if (!hash || !writeText(folder + QStringLiteral("/shadow"),
                                "root:" + hash->trimmed() + ":19000:0:99999:7:::\n"))
            return false;
    }
    QByteArray authorizedKeys;
    for (const QString& key : std::as_const(clientKeys)) {
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
