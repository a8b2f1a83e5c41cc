#include "ImplicitTlsFtpServer.h"

#include <QDir>
#include <QFile>
#include <QFileInfo>

#include <sys/stat.h>
#include <unistd.h>

namespace tw::test {

namespace {

// The unprivileged user anonymous sessions run as: one whose home exists.
constexpr uid_t sessionUser = 2; // "bin"
constexpr int passivePortCount = 50;

} // namespace

ImplicitTlsFtpServer::ImplicitTlsFtpServer()
    : LoopbackServer(QStringLiteral("vsftpd"), QStringLiteral("vsftpd.log")) {
    if (canStart() && !QFileInfo(QStringLiteral(TARNWELL_VSFTPD)).isExecutable())
        m_error = QStringLiteral("no vsftpd at " TARNWELL_VSFTPD ": run scripts/setup.sh");
    if (!canStart() || !prepare(&m_error))
        return;
    const QString folder = m_folder.path();
    const int firstPassive = ServerProcess::freePortRange(passivePortCount);
    start(
        QStringLiteral(TARNWELL_VSFTPD),
        [&](quint16 port) {
            const QString configuration = folder + QStringLiteral("/vsftpd.conf");
            QFile file(configuration);
            if (file.open(QIODevice::WriteOnly | QIODevice::Truncate)) {
                file.write(
                    QStringLiteral("listen=YES\nlisten_ipv6=NO\nlisten_address=127.0.0.1\nlisten_port=%1\n"
                                   "background=NO\nanonymous_enable=YES\nlocal_enable=NO\n"
                                   "write_enable=YES\nanon_upload_enable=YES\nanon_mkdir_write_enable=YES\n"
                                   "anon_other_write_enable=YES\nanon_umask=022\nanon_root=%2\n"
                                   "no_anon_password=YES\nftp_username=bin\nsecure_chroot_dir=%3/empty\n"
                                   "seccomp_sandbox=NO\nisolate=NO\nisolate_network=NO\n"
                                   "ssl_enable=YES\nimplicit_ssl=YES\nallow_anon_ssl=YES\n"
                                   "force_anon_logins_ssl=YES\nforce_anon_data_ssl=YES\n"
                                   "require_ssl_reuse=NO\nrsa_cert_file=%3/server.pem\n"
                                   "rsa_private_key_file=%3/server.pem\npasv_min_port=%4\n"
                                   "pasv_max_port=%5\nxferlog_enable=NO\nvsftpd_log_file=%6\n")
                        .arg(port)
                        .arg(rootFolder(), folder)
                        .arg(firstPassive)
                        .arg(firstPassive + passivePortCount - 1)
                        .arg(logPath())
                        .toUtf8());
            }
            return QStringList{configuration};
        },
        folder + QStringLiteral("/server.out"));
}

bool ImplicitTlsFtpServer::prepare(QString* error) {
    const QString folder = m_folder.path();
    if (!QDir().mkpath(folder + QStringLiteral("/empty")) || !QDir().mkpath(homeFolder())) {
        *error = QStringLiteral("cannot make the server's folders");
        return false;
    }
    ::chmod(QFile::encodeName(folder).constData(), 0755);
    // The root of the sessions stays root's (vsftpd refuses a writable one);
    // the folder below it is the session user's.
    if (::chown(QFile::encodeName(homeFolder()).constData(), sessionUser, sessionUser) != 0) {
        *error = QStringLiteral("cannot give %1 to the session user").arg(homeFolder());
        return false;
    }
    return makeCertificate(folder + QStringLiteral("/server.pem"), error);
}

} // namespace tw::test
