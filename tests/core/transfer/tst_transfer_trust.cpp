// The transfer engine where trust is at stake, against real servers: TLS that
// must be TLS, a server that goes silent, every kind of SSH login, deletions
// that hit the uploaded files and nothing else, and secrets that stay out of
// sight.

#include "FtpServer.h"
#include "ImplicitTlsFtpServer.h"
#include "Inspection.h"
#include "RecordingDelegate.h"
#include "ServerSites.h"
#include "SshServer.h"
#include "TestEnvironment.h"
#include "app/Logger.h"
#include "app/Preferences.h"
#include "transfer/TestConnection.h"

#include <QDir>
#include <QDirIterator>
#include <QElapsedTimer>
#include <QProcess>
#include <QScopeGuard>
#include <QSignalSpy>
#include <QTemporaryDir>
#include <QTest>

#include <functional>

using namespace Qt::StringLiterals;

namespace tw::test {

namespace {

SitePtr siteFor(const QString& host, quint16 port, const QString& user, const QString& remotePath) {
    auto site = std::make_shared<Site>();
    site->host = host;
    site->port = QString::number(port);
    site->username = user;
    site->remotePath = remotePath;
    return site;
}

bool runBatch(Transporter& transporter, int timeout = 60000) {
    QSignalSpy idle(&transporter, &Transporter::becameIdle);
    transporter.runMulti();
    return QTest::qWaitFor([&] { return idle.count() > 0; }, timeout);
}

// The command lines of this process's curl children, as /proc shows them.
QStringList curlCommandLines() {
    QStringList lines;
    for (const QString& entry : curlDescendants()) {
        const QString pid = entry.section(u' ', 0, 0);
        lines.append(QString::fromUtf8(readFile(u"/proc/"_s + pid + u"/cmdline"_s).replace('\0', ' ')));
    }
    return lines;
}

// A relay in front of a server on loopback that writes down everything the
// clients send (the FTP commands), so that a test counts what reached the
// server: curl's own trace comes in pieces and proves nothing about it.
bool startCommandTap(ServerProcess& tap, quint16 server, const QString& record, const QString& log) {
    return tap.start(
        u"/usr/bin/python3"_s,
        [&](quint16 port) {
            return QStringList{
                u"-c"_s,
                u"import socket, sys, threading\n"
                u"port, server, record = int(sys.argv[1]), int(sys.argv[2]), sys.argv[3]\n"
                u"out = open(record, 'ab', buffering=0); lock = threading.Lock()\n"
                u"def pump(source, target, keep):\n"
                u"    try:\n"
                u"        while True:\n"
                u"            data = source.recv(65536)\n"
                u"            if not data: break\n"
                u"            if keep:\n"
                u"                with lock: out.write(data)\n"
                u"            target.sendall(data)\n"
                u"    except OSError: pass\n"
                u"    for s in (source, target):\n"
                u"        try: s.shutdown(socket.SHUT_RDWR)\n"
                u"        except OSError: pass\n"
                u"s = socket.socket(); s.setsockopt(socket.SOL_SOCKET, socket.SO_REUSEADDR, 1)\n"
                u"s.bind(('127.0.0.1', port)); s.listen(16)\n"
                u"while True:\n"
                u"    client, _ = s.accept()\n"
                u"    upstream = socket.create_connection(('127.0.0.1', server))\n"
                u"    threading.Thread(target=pump, args=(client, upstream, True), daemon=True).start()\n"
                u"    threading.Thread(target=pump, args=(upstream, client, False), daemon=True).start()\n"_s,
                QString::number(port), QString::number(server), record};
        },
        log);
}

// Waits until done() holds (at most 60 s), sampling the command lines of
// this process's curl children all the while; answers how many curl
// processes the samples saw, -1 when done() never held.
int sampleCurlsUntil(const std::function<bool()>& done, QStringList& lines) {
    int seen = 0;
    QElapsedTimer clock;
    clock.start();
    while (!done()) {
        if (clock.elapsed() > 60000)
            return -1;
        const QStringList now = curlCommandLines();
        seen += int(now.size());
        lines << now;
        QTest::qWait(1);
    }
    return seen;
}

// A batch run, sampled as above.
int runSampled(Transporter& transporter, QStringList& lines) {
    QSignalSpy idle(&transporter, &Transporter::becameIdle);
    transporter.runMulti();
    return sampleCurlsUntil([&] { return idle.count() > 0; }, lines);
}

} // namespace

class TestTransferTrust : public QObject {
    Q_OBJECT

    QTemporaryDir m_local;

    QString localFile(const QString& name, const QByteArray& content) {
        const QString path = m_local.filePath(name);
        QDir().mkpath(QFileInfo(path).path());
        QFile file(path);
        if (file.open(QIODevice::WriteOnly))
            file.write(content);
        return path;
    }

private slots:
    void initTestCase() {
        TestEnvironment::isolate();
        QVERIFY(m_local.isValid());
    }
    void init() {
        TestEnvironment::resetPreferences();
        // Short time-outs: nothing here may wait long.
        Preferences::instance().setInteger(u"connectTimeout"_s, 3);
        Preferences::instance().setInteger(u"stallTimeout"_s, 3);
    }
    void cleanup() { QTRY_COMPARE(curlDescendants(), QStringList()); } // no curl left behind

    // "FTP with implicit SSL" speaks TLS from the first byte (ftps:// URLs);
    // "FTP with TLS/SSL" requires TLS: a server without it gets no login.
    void tlsMeansTls() {
        ImplicitTlsFtpServer implicit;
        TW_REQUIRE_SERVER(implicit);
        auto site = siteFor(u"127.0.0.1"_s, implicit.port(), ImplicitTlsFtpServer::userName(), u"www/"_s);
        Transporter engine(
            std::make_shared<TransporterFTPSConnection>(site, ImplicitTlsFtpServer::password()));
        RecordingDelegate delegate;
        engine.setDelegate(&delegate);
        engine.uploadFile(localFile(u"i/a.html"_s, "implicit"), u"sub/a.html"_s);
        engine.uploadFile(localFile(u"i/b.html"_s, "tls"), u"b.html"_s);
        QElapsedTimer clock;
        clock.start();
        QVERIFY(runBatch(engine));
        QCOMPARE(delegate.kinds().last(), u"all"_s);
        QCOMPARE(readFile(implicit.homeFolder() + u"/sub/a.html"_s), QByteArray("implicit"));
        QVERIFY(clock.elapsed() < 10000);

        FtpServer plain(FtpServer::Tls::Refused);
        TW_REQUIRE_SERVER(plain);
        auto plainSite = siteFor(u"127.0.0.1"_s, plain.port(), FtpServer::userName(), u"www/"_s);
        Transporter explicitTls(
            std::make_shared<TransporterFTPTLSConnection>(plainSite, FtpServer::password()));
        RecordingDelegate refused;
        explicitTls.setDelegate(&refused);
        explicitTls.uploadFile(localFile(u"c.html"_s, "never"), u"c.html"_s);
        QVERIFY(runBatch(explicitTls));
        QCOMPARE(refused.count(u"fail"_s), 1);
        QVERIFY2(refused.of(u"fail"_s).first().text.startsWith(u"(64)"_s),
                 qPrintable(refused.of(u"fail"_s).first().text));
        QVERIFY(!QFile::exists(plain.homeFolder() + u"/www/c.html"_s));
    }

    // A server that takes the connection and then says nothing, before or
    // after its greeting: the run ends with an error, it does not wait.
    void silentServerEndsTheRun() {
        for (const bool greets : {false, true}) {
            // A listener that takes every connection and, at most, greets.
            QTemporaryDir folder;
            ServerProcess silent;
            QVERIFY2(
                silent.start(
                    u"/usr/bin/python3"_s,
                    [greets](quint16 port) {
                        return QStringList{
                            u"-c"_s,
                            u"import socket, sys, time\n"
                            u"s = socket.socket(); s.bind(('127.0.0.1', int(sys.argv[1]))); s.listen(8)\n"
                            u"held = []\n"
                            u"while True:\n"
                            u"    c, _ = s.accept(); held.append(c)\n"
                            u"    if sys.argv[2] == '1': c.sendall(b'220 hello\\r\\n')\n"_s,
                            QString::number(port), greets ? u"1"_s : u"0"_s};
                    },
                    folder.filePath(u"silent.log"_s)),
                qPrintable(silent.errorString()));
            auto site = siteFor(u"127.0.0.1"_s, silent.port(), u"u"_s, u"www/"_s);
            Transporter engine(std::make_shared<TransporterFTPConnection>(site, u"p"_s));
            RecordingDelegate delegate;
            engine.setDelegate(&delegate);
            engine.uploadFile(localFile(u"s.html"_s, "x"), u"s.html"_s);
            QElapsedTimer clock;
            clock.start();
            QVERIFY(runBatch(engine, 30000));
            QCOMPARE(delegate.count(u"fail"_s), 1);
            QVERIFY2(delegate.of(u"fail"_s).first().text.startsWith(u"(28)"_s),
                     qPrintable(delegate.of(u"fail"_s).first().text));
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
            Transporter engine(
                std::make_shared<TransporterSFTPConnection>(site, login.password, login.passphrase));
            RecordingDelegate delegate;
            engine.setDelegate(&delegate);
            engine.uploadFile(localFile(login.name, login.name.toUtf8()), login.name + u".txt"_s);
            QVERIFY(runBatch(engine));
            QVERIFY2(delegate.kinds().last() == u"all"_s,
                     qPrintable(login.name + u": "_s + delegate.of(u"fail"_s).value(0).text));
            QCOMPARE(readFile(ssh.remoteFolder() + u"/logins/"_s + login.name + u".txt"_s),
                     login.name.toUtf8());
        }
    }

    // curl runs with a private home: a key in the person's ~/.ssh is not
    // used by itself (a site names its key), while ssh-agent still is.
    void sshAgentAndPrivateHome() {
        SshServer ssh;
        TW_REQUIRE_SERVER(ssh);
        const QByteArray key = readFile(ssh.keyPath());
        QVERIFY(!key.isEmpty());
        const QString ownKeys = QDir::homePath() + u"/.ssh"_s;
        QVERIFY(QDir().mkpath(ownKeys));
        const auto removeKeys = qScopeGuard([&] { QDir(ownKeys).removeRecursively(); });
        for (const QString& name : {u"id_rsa"_s, u"id_ed25519"_s}) {
            QFile file(ownKeys + u'/' + name);
            QVERIFY(file.open(QIODevice::WriteOnly));
            file.write(key);
            QVERIFY(file.setPermissions(QFileDevice::ReadOwner | QFileDevice::WriteOwner));
        }
        auto site = siteFor(u"127.0.0.1"_s, ssh.port(), SshServer::userName(), u"~/agent/"_s);
        const QByteArray agentBefore = qgetenv("SSH_AUTH_SOCK");
        qunsetenv("SSH_AUTH_SOCK");
        {
            Transporter engine(std::make_shared<TransporterSFTPConnection>(site, QString(), std::nullopt));
            RecordingDelegate delegate;
            engine.setDelegate(&delegate);
            engine.uploadFile(localFile(u"agent/home.txt"_s, "home"), u"home.txt"_s);
            QVERIFY(runBatch(engine));
            QCOMPARE(delegate.count(u"fail"_s), 1);
            QCOMPARE(delegate.of(u"fail"_s).first().text, u"(67) Authentication failure"_s);
        }

        QTemporaryDir folder;
        const QString socket = folder.filePath(u"agent.sock"_s);
        QProcess agent;
        agent.start(u"/usr/bin/ssh-agent"_s, {u"-D"_s, u"-a"_s, socket});
        QVERIFY(agent.waitForStarted());
        const auto stopAgent = qScopeGuard([&] {
            agent.terminate();
            agent.waitForFinished();
            if (agentBefore.isEmpty())
                qunsetenv("SSH_AUTH_SOCK");
            else
                qputenv("SSH_AUTH_SOCK", agentBefore);
        });
        QTRY_VERIFY(QFileInfo::exists(socket));
        qputenv("SSH_AUTH_SOCK", QFile::encodeName(socket));
        QProcess add;
        add.start(u"/usr/bin/ssh-add"_s, {ownKeys + u"/id_ed25519"_s});
        QVERIFY(add.waitForFinished());
        QVERIFY2(add.exitCode() == 0, add.readAllStandardError().constData());
        Transporter engine(std::make_shared<TransporterSFTPConnection>(site, QString(), std::nullopt));
        RecordingDelegate delegate;
        engine.setDelegate(&delegate);
        engine.uploadFile(localFile(u"agent/agent.txt"_s, "agent"), u"agent.txt"_s);
        QVERIFY(runBatch(engine));
        QVERIFY2(delegate.kinds().last() == u"all"_s, qPrintable(delegate.of(u"fail"_s).value(0).text));
        QCOMPARE(readFile(ssh.remoteFolder() + u"/agent/agent.txt"_s), QByteArray("agent"));
    }

    // SFTP deletes hit the files the uploads wrote, under an absolute remote
    // path as under "~/"; a file of the same name in the login's own folder
    // stays.
    void sftpDeletesHitTheUploadedFiles() {
        SshServer ssh;
        TW_REQUIRE_SERVER(ssh);
        QVERIFY(QDir().mkpath(ssh.remoteFolder() + u"/css"_s));
        QFile decoy(ssh.remoteFolder() + u"/css/a.css"_s);
        QVERIFY(decoy.open(QIODevice::WriteOnly));
        decoy.write("decoy");
        decoy.close();
        for (const QString& remotePath : QStringList{ssh.remoteFolder() + u"/absolute/"_s, u"~/home/"_s}) {
            const QString onDisk = remotePath.startsWith(u'~') ? ssh.remoteFolder() + u"/home"_s : remotePath;
            auto site = siteFor(u"127.0.0.1"_s, ssh.port(), SshServer::userName(), remotePath);
            site->sshKeyPath = ssh.keyPath();
            Transporter engine(std::make_shared<TransporterSFTPConnection>(site, QString(), std::nullopt));
            RecordingDelegate delegate;
            engine.setDelegate(&delegate);
            engine.uploadFile(localFile(u"a.css"_s, "real"), u"css/a.css"_s);
            QVERIFY(runBatch(engine));
            QCOMPARE(readFile(onDisk + u"/css/a.css"_s), QByteArray("real"));
            engine.deleteFile(u"css/a.css"_s);
            QVERIFY(runBatch(engine));
            QCOMPARE(delegate.kinds().last(), u"all"_s);
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
        auto site = siteFor(u"127.0.0.1"_s, tap.port(), FtpServer::userName(), u"www/"_s);
        Transporter engine(std::make_shared<TransporterFTPConnection>(site, FtpServer::password()));
        RecordingDelegate delegate;
        engine.setDelegate(&delegate);
        for (const QString& name : names)
            engine.deleteFile(name);
        QVERIFY(runBatch(engine));
        QCOMPARE(delegate.count(u"complete"_s), 200);
        QCOMPARE(delegate.kinds().last(), u"all"_s);
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
        Transporter engine(std::make_shared<TransporterSFTPConnection>(site, QString(), std::nullopt));
        RecordingDelegate delegate;
        engine.setDelegate(&delegate);
        engine.uploadFile(localFile(u"six.txt"_s, "v6"), u"six.txt"_s);
        QVERIFY(runBatch(engine));
        QCOMPARE(delegate.kinds().last(), u"all"_s);
        QCOMPARE(readFile(ssh.remoteFolder() + u"/six/six.txt"_s), QByteArray("v6"));
    }

    // A distinctive password and pass phrase, debug logging on: a run that
    // works, one that fails and a connection test show neither in a file of
    // the home, an error text or a curl command line.
    void secretsStayOutOfSight() {
        Preferences::instance().setBool(u"debugEnabled"_s, true);
        const QString passphrase = u"Phrase-Never-Shown-91"_s;
        SshServer ssh;
        TW_REQUIRE_SERVER(ssh);
        FtpServer ftp;
        TW_REQUIRE_SERVER(ftp);
        QStringList commandLines;
        QStringList texts;

        // Every part samples curl's command line while curl runs, and must
        // have seen it.
        auto ftpSite = siteFor(u"127.0.0.1"_s, ftp.port(), FtpServer::userName(), u"www/"_s);
        {
            Transporter engine(std::make_shared<TransporterFTPConnection>(ftpSite, FtpServer::password()));
            RecordingDelegate delegate;
            engine.setDelegate(&delegate);
            for (int i = 0; i < 50; ++i)
                engine.uploadFile(localFile(u"s/%1.txt"_s.arg(i), "x"), u"%1.txt"_s.arg(i));
            QVERIFY(runSampled(engine, commandLines) > 0);
            QCOMPARE(delegate.kinds().last(), u"all"_s);
            QVERIFY(ftp.makeUnwritable(u"www/locked"_s));
            engine.uploadFile(localFile(u"s/x.txt"_s, "x"), u"locked/x.txt"_s);
            QVERIFY(runSampled(engine, commandLines) > 0);
            QCOMPARE(delegate.count(u"fail"_s), 1);
            texts << delegate.of(u"fail"_s).first().text << engine.errorString().value_or(QString());
        }
        {
            auto transporter = std::make_shared<Transporter>(
                std::make_shared<TransporterFTPConnection>(ftpSite, FtpServer::password()));
            TestConnection test(transporter);
            std::optional<std::optional<Error>> outcome;
            test.checkWithCompletion([&](std::optional<Error> error) { outcome = error; });
            QVERIFY(sampleCurlsUntil([&] { return outcome.has_value(); }, commandLines) > 0);
            QVERIFY(!*outcome);
        }
        {
            auto site = siteFor(u"127.0.0.1"_s, ssh.port(), SshServer::userName(), u"~/s/"_s);
            site->sshKeyPath = ssh.encryptedKeyPath();
            // The wrong pass phrase: the run fails, and says so without it.
            Transporter engine(std::make_shared<TransporterSFTPConnection>(site, QString(), passphrase));
            RecordingDelegate delegate;
            engine.setDelegate(&delegate);
            engine.uploadFile(localFile(u"p.txt"_s, "x"), u"p.txt"_s);
            QVERIFY(runSampled(engine, commandLines) > 0);
            QCOMPARE(delegate.count(u"fail"_s), 1);
            texts << delegate.of(u"fail"_s).first().text << engine.errorString().value_or(QString());
        }
        QVERIFY(!commandLines.isEmpty());
        for (const QString& secret : {FtpServer::password(), passphrase}) {
            for (const QString& line : std::as_const(commandLines))
                QVERIFY2(!line.contains(secret), qPrintable(line));
            for (const QString& text : std::as_const(texts))
                QVERIFY2(!text.contains(secret), qPrintable(text));
            QDirIterator files(QDir::homePath(), QDir::Files | QDir::Hidden, QDirIterator::Subdirectories);
            while (files.hasNext()) {
                const QString path = files.next();
                QVERIFY2(!readFile(path).contains(secret.toUtf8()), qPrintable(path));
            }
        }
    }
};

} // namespace tw::test

QTEST_GUILESS_MAIN(tw::test::TestTransferTrust)
#include "tst_transfer_trust.moc"
