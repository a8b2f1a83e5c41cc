// The transfer engine where trust is at stake, against real servers: TLS that
// must be TLS, a server that goes silent, every kind of SSH login, and
// deletions that hit the uploaded files and nothing else. (That no secret
// shows is proved on whole deployments, in tst_secrets_e2e and
// tst_cli_secrets.)

#include "ImplicitTlsFtpServer.h"
#include "ServerSites.h"
#include "TestEnvironment.h"
#include "Traces.h"
#include "app/Preferences.h"
#include "transfer/TransporterFTPSConnection.h"

#include <QElapsedTimer>
#include <QProcess>
#include <QScopeGuard>

using namespace Qt::StringLiterals;

namespace tw::test {

namespace {

// A relay in front of a server on loopback that writes down everything the
// clients send (the FTP commands), so that a test counts what reached the
// server: curl's own trace comes in pieces and proves nothing about it.
bool startCommandTap(ServerProcess& tap, quint16 server, const QString& record, const QString& log) {
    const QString script = uR"(import socket, sys, threading
port, server, record = int(sys.argv[1]), int(sys.argv[2]), open(sys.argv[3], 'ab', buffering=0)
def pump(source, target, keep):
    try:
        while data := source.recv(65536):
            keep and record.write(data); target.sendall(data)
        target.shutdown(socket.SHUT_RDWR)
    except OSError: pass
listener = socket.create_server(('127.0.0.1', port))
while True:
    client, _ = listener.accept(); upstream = socket.create_connection(('127.0.0.1', server))
    for ends in ((client, upstream, True), (upstream, client, False)):
        threading.Thread(target=pump, args=ends, daemon=True).start()
)"_s;
    return tap.start(
        u"/usr/bin/python3"_s,
        [&](quint16 port) {
            return QStringList{u"-c"_s, script, QString::number(port), QString::number(server), record};
        },
        log);
}

} // namespace

class TestTransferTrust : public QObject {
    Q_OBJECT

    LocalFiles m_local;

private slots:
    void initTestCase() { TestEnvironment::isolate(); }
    void init() {
        TestEnvironment::resetPreferences();
        // Short time-outs: nothing here may wait long.
        Preferences::instance().setInteger(u"connectTimeout"_s, 3);
        Preferences::instance().setInteger(u"stallTimeout"_s, 3);
    }
    void cleanup() { QTRY_COMPARE(curlDescendants(), QList<qint64>()); } // no curl left behind

    // "FTP with implicit SSL" speaks TLS from the first byte (ftps:// URLs);
    // "FTP with TLS/SSL" requires TLS: a server without it gets no login.
    void tlsMeansTls() {
        ImplicitTlsFtpServer implicit;
        TW_REQUIRE_SERVER(implicit);
        Engine engine(std::make_shared<TransporterFTPSConnection>(
            siteFor(u"127.0.0.1"_s, implicit.port(), ImplicitTlsFtpServer::userName(), u"www/"_s),
            ImplicitTlsFtpServer::password()));
        engine->uploadFile(m_local.write(u"i/a.html"_s, "implicit"), u"sub/a.html"_s);
        engine->uploadFile(m_local.write(u"i/b.html"_s, "tls"), u"b.html"_s);
        QElapsedTimer clock;
        clock.start();
        QVERIFY(engine.runBatch());
        QVERIFY2(engine.succeeded(), engine.failure().constData());
        QCOMPARE(readFile(implicit.homeFolder() + u"/sub/a.html"_s), QByteArray("implicit"));
        QVERIFY(clock.elapsed() < 10000);

        FtpServer plain(FtpServer::Tls::Refused);
        TW_REQUIRE_SERVER(plain);
        Engine explicitTls(std::make_shared<TransporterFTPTLSConnection>(
            siteFor(u"127.0.0.1"_s, plain.port(), FtpServer::userName(), u"www/"_s), FtpServer::password()));
        explicitTls->uploadFile(m_local.write(u"c.html"_s, "never"), u"c.html"_s);
        QVERIFY(explicitTls.runBatch());
        QCOMPARE(explicitTls.delegate.count(u"fail"_s), 1);
        QVERIFY2(explicitTls.failure().startsWith("(64)"), explicitTls.failure().constData());
        QVERIFY(!QFile::exists(plain.homeFolder() + u"/www/c.html"_s));
    }

    // A server that takes the connection and then says nothing, before or
    // after its greeting: the run ends with an error, it does not wait.
    void silentServerEndsTheRun() {
        for (const bool greets : {false, true}) {
            SilentServer silent(greets);
            QVERIFY2(silent.isRunning(), qPrintable(silent.errorString()));
            Engine engine(std::make_shared<TransporterFTPConnection>(
                siteFor(u"127.0.0.1"_s, silent.port(), u"u"_s, u"www/"_s), u"p"_s));
            engine->uploadFile(m_local.write(u"s.html"_s, "x"), u"s.html"_s);
            QElapsedTimer clock;
            clock.start();
            QVERIFY(engine.runBatch(30000));
            QCOMPARE(engine.delegate.count(u"fail"_s), 1);
            QVERIFY2(engine.failure().startsWith("(28)"), engine.failure().constData());
            QVERIFY(clock.elapsed() < 20000);
        }
    }

    // RSA, ECDSA and ed25519 keys, a pass-phrased key, and a password.
    void everyKindOfSshLogin() {
        SshServer::Options options;
        options.moreKeyTypes = true;
        options.passwordLogin = true;
        SshServer ssh(options);
        TW_REQUIRE_SERVER(ssh);
        struct Login {
            QString name;
            std::optional<QString> key;
            QString password;
            std::optional<QString> passphrase;
        };
        const QList<Login> logins{
            {u"rsa"_s, ssh.keyPath(u"rsa"_s), QString(), std::nullopt},
            {u"ecdsa"_s, ssh.keyPath(u"ecdsa"_s), QString(), std::nullopt},
            {u"ed25519"_s, ssh.keyPath(), QString(), std::nullopt},
            {u"encrypted"_s, ssh.encryptedKeyPath(), QString(), SshServer::passphrase()},
            {u"password"_s, std::nullopt, SshServer::loginPassword(), std::nullopt}};
        for (const Login& login : logins) {
            auto site = siteFor(u"127.0.0.1"_s, ssh.port(), SshServer::userName(), u"~/logins/"_s);
            site->sshKeyPath = login.key;
            Engine engine(
                std::make_shared<TransporterSFTPConnection>(site, login.password, login.passphrase));
            engine->uploadFile(m_local.write(login.name, login.name.toUtf8()), login.name + u".txt"_s);
            QVERIFY(engine.runBatch());
            QVERIFY2(engine.succeeded(),
                     qPrintable(login.name + u": "_s + QString::fromUtf8(engine.failure())));
            QCOMPARE(readFile(ssh.remoteFolder() + u"/logins/"_s + login.name + u".txt"_s),
                     login.name.toUtf8());
        }
    }

    // curl runs with a private home, yet ssh-agent still serves a site that
    // names no key.
    void sshAgent() {
        SshServer ssh;
        TW_REQUIRE_SERVER(ssh);
        QTemporaryDir folder;
        const QString socket = folder.filePath(u"agent.sock"_s);
        QProcess agent;
        agent.start(u"/usr/bin/ssh-agent"_s, {u"-D"_s, u"-a"_s, socket});
        const QByteArray agentBefore = qgetenv("SSH_AUTH_SOCK");
        const auto stopAgent = qScopeGuard([&] {
            agent.terminate();
            agent.waitForFinished();
            agentBefore.isEmpty() ? qunsetenv("SSH_AUTH_SOCK") : qputenv("SSH_AUTH_SOCK", agentBefore);
        });
        QTRY_VERIFY(QFileInfo::exists(socket));
        qputenv("SSH_AUTH_SOCK", QFile::encodeName(socket));
        QCOMPARE(QProcess::execute(u"/usr/bin/ssh-add"_s, {ssh.keyPath()}), 0);
        Engine engine(std::make_shared<TransporterSFTPConnection>(
            siteFor(u"127.0.0.1"_s, ssh.port(), SshServer::userName(), u"~/agent/"_s), QString(),
            std::nullopt));
        engine->uploadFile(m_local.write(u"agent.txt"_s, "agent"), u"agent.txt"_s);
        QVERIFY(engine.runBatch());
        QVERIFY2(engine.succeeded(), engine.failure().constData());
        QCOMPARE(readFile(ssh.remoteFolder() + u"/agent/agent.txt"_s), QByteArray("agent"));
    }

    // SFTP deletes hit the files the uploads wrote, under an absolute remote
    // path as under "~/"; a file of the same name in the login's own folder
    // stays.
    void sftpDeletesHitTheUploadedFiles() {
        SshServer ssh;
        TW_REQUIRE_SERVER(ssh);
        QVERIFY(writeFile(ssh.remoteFolder() + u"/css/a.css"_s, "decoy"));
        for (const QString& remotePath : QStringList{ssh.remoteFolder() + u"/absolute/"_s, u"~/home/"_s}) {
            const QString onDisk = remotePath.startsWith(u'~') ? ssh.remoteFolder() + u"/home"_s : remotePath;
            auto site = siteFor(u"127.0.0.1"_s, ssh.port(), SshServer::userName(), remotePath);
            site->sshKeyPath = ssh.keyPath();
            Engine engine(std::make_shared<TransporterSFTPConnection>(site, QString(), std::nullopt));
            engine->uploadFile(m_local.write(u"a.css"_s, "real"), u"css/a.css"_s);
            QVERIFY(engine.runBatch());
            QCOMPARE(readFile(onDisk + u"/css/a.css"_s), QByteArray("real"));
            engine->deleteFile(u"css/a.css"_s);
            QVERIFY(engine.runBatch());
            QVERIFY2(engine.succeeded(), engine.failure().constData());
            QVERIFY(!QFile::exists(onDisk + u"/css/a.css"_s));
            QVERIFY(!QFile::exists(onDisk + u"/css"_s)); // emptied, removed
            QCOMPARE(readFile(ssh.remoteFolder() + u"/css/a.css"_s), QByteArray("decoy"));
        }
    }

    // 200 deletions: each DELE reaches the server once (curl sends a run's
    // quote commands before every transfer of it), and the folders they
    // empty go, parents too.
    void ftpDeletesSentOnce() {
        FtpServer ftp;
        TW_REQUIRE_SERVER(ftp);
        QTemporaryDir folder;
        const QString record = folder.filePath(u"commands"_s);
        ServerProcess tap;
        QVERIFY2(startCommandTap(tap, ftp.port(), record, folder.filePath(u"tap.log"_s)),
                 qPrintable(tap.errorString()));
        QStringList names;
        for (int i = 0; i < 200; ++i) {
            names << u"d%1/deep/f%2.txt"_s.arg(i % 4).arg(i);
            QVERIFY(ftp.writeFile(u"www/"_s + names.last(), "x"));
        }
        QVERIFY(ftp.writeFile(u"www/keep.txt"_s, "stays"));
        Engine engine(std::make_shared<TransporterFTPConnection>(
            siteFor(u"127.0.0.1"_s, tap.port(), FtpServer::userName(), u"www/"_s), FtpServer::password()));
        for (const QString& name : names)
            engine->deleteFile(name);
        QVERIFY(engine.runBatch());
        QCOMPARE(engine.delegate.count(u"complete"_s), 200);
        QVERIFY2(engine.succeeded(), engine.failure().constData());
        QCOMPARE(tree(ftp.homeFolder() + u"/www"_s), QStringList{u"keep.txt"_s});
        QVERIFY(!QFile::exists(ftp.homeFolder() + u"/www/d0"_s));
        const QByteArray commands = readFile(record);
        QCOMPARE(commands.count("\r\nDELE "), 200);
        for (const QString& name : std::as_const(names))
            QCOMPARE(commands.count(QByteArray("DELE www/" + name.toUtf8() + "\r\n")), 1);
        // The emptied folders go by the uploads' path form, relative to the
        // login: on a server without a chroot "/www/..." names another folder.
        QCOMPARE(commands.count("\r\nRMD www/d0/deep\r\n"), 1);
        QVERIFY(!commands.contains("RMD /"));
    }

    // A host given as an IPv6 address.
    void ipv6Host() {
        if (!ServerProcess::hasIpv6Loopback()) {
            if (serversRequired())
                QFAIL("this machine has no IPv6 loopback (::1), and servers are required");
            QSKIP("this machine has no IPv6 loopback");
        }
        SshServer::Options options;
        options.ipv6 = true;
        SshServer ssh(options);
        TW_REQUIRE_SERVER(ssh);
        auto site = siteFor(u"::1"_s, ssh.port(), SshServer::userName(), u"~/six/"_s);
        site->sshKeyPath = ssh.keyPath();
        Engine engine(std::make_shared<TransporterSFTPConnection>(site, QString(), std::nullopt));
        engine->uploadFile(m_local.write(u"six.txt"_s, "v6"), u"six.txt"_s);
        QVERIFY(engine.runBatch());
        QVERIFY2(engine.succeeded(), engine.failure().constData());
        QCOMPARE(readFile(ssh.remoteFolder() + u"/six/six.txt"_s), QByteArray("v6"));
    }
};

} // namespace tw::test

QTEST_GUILESS_MAIN(tw::test::TestTransferTrust)
#include "tst_transfer_trust.moc"
