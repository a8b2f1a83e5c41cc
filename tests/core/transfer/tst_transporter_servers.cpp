// The transfer engine with the application's own curl against real servers
// on loopback, used as a deployment uses it, the results checked on the
// servers' disks: batch runs over every transport, failures and aborts, and
// where trust is at stake: TLS that must be TLS, a server that goes silent,
// every kind of SSH login, deletions that hit the uploaded files only.

#include "ImplicitTlsFtpServer.h"
#include "ServerSites.h"
#include "TestEnvironment.h"
#include "Traces.h"
#include "app/Logger.h"
#include "app/Preferences.h"
#include "transfer/TransporterFTPSConnection.h"

#include <QProcess>
#include <QScopeGuard>
#include <QSet>

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

class TestTransporterServers : public QObject {
    Q_OBJECT

private slots:
    void initTestCase() {
        TestEnvironment::isolate();
        m_ftp = std::make_unique<FtpServer>();
        TW_REQUIRE_SERVER(*m_ftp);
        m_ssh = std::make_unique<SshServer>();
        TW_REQUIRE_SERVER(*m_ssh);
    }
    void init() { TestEnvironment::resetPreferences(); }
    void cleanup() { QCOMPARE(curlDescendants(), QList<qint64>()); } // no curl left behind

    void batchMode_data() { addTransports(true); }

    // Runs of uploads three at a time (names curl would refuse or cut in a raw
    // URL among them), then deletes that take the emptied folders along; a
    // single run reading what is gone fails with curl's text.
    void batchMode() {
        QFETCH(Transport, transport);
        const QString folder = u"batch-%1"_s.arg(int(transport));
        const QString remote =
            (transport == Transport::Sftp ? m_ssh->remoteFolder() : m_ftp->homeFolder()) + u'/' + folder;
        Engine engine(transporter(transport, folder));
        RecordingDelegate& delegate = engine.delegate;

        QStringList names{u"a b#c%d.txt"_s, u"semi;type=a.txt"_s, u"what?.txt"_s, u"ü.txt"_s};
        for (int i = 0; i < 520; ++i)
            names << u"f%1/file-%2.txt"_s.arg(i % 7).arg(i);
        for (const QString& name : names)
            engine->uploadFile(localFile(folder + u'/' + name, name.toUtf8()), name);
        QVERIFY(engine.runBatch());
        QVERIFY2(engine.succeeded(), engine.failure().constData());
        QCOMPARE(delegate.count(u"complete"_s), names.size());
        QSet<TransporterFile*> completed;
        for (const auto& message : delegate.of(u"complete"_s))
            completed.insert(message.file.get());
        QCOMPARE(completed.size(), names.size());
        for (const QString& name : names)
            QCOMPARE(readFile(remote + u'/' + name), name.toUtf8());

        // All of f0 (its folder goes too), one file of f1, the odd names.
        delegate.messages.clear();
        const QStringList deleted =
            names.mid(0, 4) + names.filter(u"f0/"_s) + QStringList{u"f1/file-1.txt"_s};
        for (const QString& name : deleted)
            engine->deleteFile(name);
        QVERIFY(engine.runBatch());
        QVERIFY2(engine.succeeded(), engine.failure().constData());
        QCOMPARE(delegate.count(u"complete"_s), deleted.size());
        for (const QString& name : deleted)
            QVERIFY2(!QFileInfo::exists(remote + u'/' + name), qPrintable(name));
        QVERIFY(!QFileInfo::exists(remote + u"/f0"_s));
        QVERIFY(QFileInfo::exists(remote + u"/f1/file-8.txt"_s));

        delegate.messages.clear();
        engine->readFile(u"f1/file-1.txt"_s);
        engine->run();
        QTRY_COMPARE_WITH_TIMEOUT(engine.idle.count(), 3, 30000);
        QCOMPARE(delegate.kinds(), (QStringList{u"percent"_s, u"fail"_s, u"allWithErrors"_s}));
        QVERIFY2(delegate.messages[1].text.startsWith(u"(78) "_s), qPrintable(delegate.messages[1].text));
    }

    void fileFolderSwap_data() {
        QTest::addColumn<Transport>("transport");
        QTest::addColumn<int>("connections");
        QTest::newRow("FTP") << Transport::Passive << 3;
        QTest::newRow("FTP, one connection") << Transport::Passive << 1;
        QTest::newRow("SFTP") << Transport::Sftp << 3;
    }

    // A commit that turns files into folders of the same name and the
    // reverse: one run with the deletions and the uploads, queued in any
    // order, leaves the new forms on the server.
    void fileFolderSwap() {
        QFETCH(Transport, transport);
        QFETCH(int, connections);
        const QString folder = u"swap-%1-%2"_s.arg(int(transport)).arg(connections);
        const QString remote =
            (transport == Transport::Sftp ? m_ssh->remoteFolder() : m_ftp->homeFolder()) + u'/' + folder;
        Engine engine(transporter(transport, folder));
        engine->setMaxSimultaneousConnectinos(connections);
        for (const QString& name :
             {u"a"_s, u"b/x.txt"_s, u"b/y/z.txt"_s, u"d/e/f.txt"_s, u"g"_s, u"keep.txt"_s})
            engine->uploadFile(localFile(folder + u"/before/"_s + name, "old " + name.toUtf8()), name);
        QVERIFY(engine.runBatch());
        QVERIFY2(engine.succeeded(), engine.failure().constData());

        engine.delegate.messages.clear();
        const QString after = folder + u"/after/"_s;
        engine->uploadFile(localFile(after + u"a/index.html"_s, "new a/index.html"), u"a/index.html"_s);
        for (const QString& name : {u"a"_s, u"b/x.txt"_s, u"b/y/z.txt"_s, u"d/e/f.txt"_s})
            engine->deleteFile(name);
        for (const QString& name : {u"b"_s, u"d"_s, u"g/h/i.txt"_s})
            engine->uploadFile(localFile(after + name, "new " + name.toUtf8()), name);
        engine->deleteFile(u"g"_s);
        QVERIFY(engine.runBatch());
        QVERIFY2(engine.succeeded(), engine.failure().constData());
        QCOMPARE(engine.delegate.count(u"complete"_s), 9);
        QCOMPARE(tree(remote),
                 (QStringList{u"a/index.html"_s, u"b"_s, u"d"_s, u"g/h/i.txt"_s, u"keep.txt"_s}));
        QCOMPARE(readFile(remote + u"/b"_s), "new b");
        QCOMPARE(readFile(remote + u"/keep.txt"_s), "old keep.txt");
    }

    // The sync root's text leaves the remote path: web/css/site.css lands as
    // css/site.css. A refused login fails a batch run, though curl's meter
    // animates while the server takes its seconds to refuse, every frame a
    // chunk, so the count has run past the batch when the error comes. With
    // debug logging on, the log (command lines, curl's trace of the logins)
    // holds neither password.
    void syncRootRefusalAndDebugLog() {
        Preferences::instance().setBool(u"debugEnabled"_s, true);
        Engine engine(transporter(Transport::Passive, u"synced"_s));
        engine->connection()->getSite()->syncRootPath = u"web"_s;
        engine->uploadFile(localFile(u"repo/web/css/site.css"_s, "synced"), u"web/css/site.css"_s);
        QVERIFY(engine.runBatch());
        QCOMPARE(readFile(m_ftp->homeFolder() + u"/synced/css/site.css"_s), "synced");
        QVERIFY(!QFileInfo::exists(m_ftp->homeFolder() + u"/synced/web"_s));

        Engine refused(transporter(Transport::Passive, u"denied"_s, u"wrong-Pass-77"_s));
        refused->uploadFile(localFile(u"denied.txt"_s, "x"), u"denied.txt"_s);
        QVERIFY(refused.runBatch(30000));
        QCOMPARE(refused.delegate.kinds().last(), u"fail"_s);
        QCOMPARE(refused.failure(), "(67) Access denied: 530");
        const QByteArray log = readFile(Logger::sharedInstance().logFilePath());
        QCOMPARE(log.count("PASS xxxxxx"), 2);
        QVERIFY(!log.contains(FtpServer::password().toUtf8()) && !log.contains("wrong-Pass-77"));
    }

    // An abort while the first wave of runs is under way (three at once, the
    // default): no curl is left, no completion arrives, and the server has
    // only part of the files.
    void abortInTheMiddleOfABatch() {
        Engine engine(transporter(Transport::Sftp, u"aborted"_s));
        for (int i = 0; i < 1200; ++i) {
            const QString name = u"file-%1.txt"_s.arg(i);
            engine->uploadFile(localFile(u"aborted/"_s + name, QByteArray(1024, 'x')), name);
        }
        engine->runMulti();
        const QString remote = m_ssh->remoteFolder() + u"/aborted"_s;
        QTRY_VERIFY_WITH_TIMEOUT(QDir(remote).entryList(QDir::Files).size() >= 20, 30000);
        engine->terminateAllTasks();
        QTRY_COMPARE(engine.idle.count(), 1);
        QCOMPARE(engine->runningProcessCount(), 0);
        QVERIFY(QDir(remote).entryList(QDir::Files).size() < 500);
        QVERIFY(!engine.delegate.ended());
    }

    // Three runs at once, one into a folder the server refuses: the failure
    // names a file of that folder, the other runs are stopped, no completion
    // follows and no curl is left.
    void failureInOneOfSeveralRuns() {
        QVERIFY(m_ftp->makeUnwritable(u"several/b"_s));
        Engine engine(transporter(Transport::Passive, u"several"_s));
        engine->setMaxSimultaneousConnectinos(3);
        for (const QString& folder : {u"a"_s, u"b"_s, u"c"_s}) {
            for (int i = 0; i < 100; ++i) {
                const QString name = folder + u"/file-%1.txt"_s.arg(i);
                engine->uploadFile(localFile(u"several/"_s + name, name.toUtf8()), name);
            }
        }
        QVERIFY(engine.runBatch());
        const RecordingDelegate& delegate = engine.delegate;
        QCOMPARE(delegate.count(u"fail"_s), 1);
        const auto failure = delegate.of(u"fail"_s).first();
        QVERIFY2(failure.file->remotePath().startsWith(u"b/"_s), qPrintable(failure.file->remotePath()));
        QVERIFY2(failure.text.startsWith(u"(25)"_s), qPrintable(failure.text));
        QVERIFY(!delegate.ended());
        QCOMPARE(engine->runningProcessCount(), 0);
    }

    // "FTP with implicit SSL" speaks TLS from the first byte (ftps:// URLs);
    // "FTP with TLS/SSL" requires TLS: a server without it gets no login.
    void tlsMeansTls() {
        ImplicitTlsFtpServer implicit;
        TW_REQUIRE_SERVER(implicit);
        Engine engine(std::make_shared<TransporterFTPSConnection>(
            siteFor(u"127.0.0.1"_s, implicit.port(), ImplicitTlsFtpServer::userName(), u"www/"_s),
            ImplicitTlsFtpServer::password()));
        engine->uploadFile(localFile(u"i/a.html"_s, "implicit"), u"sub/a.html"_s);
        engine->uploadFile(localFile(u"i/b.html"_s, "tls"), u"b.html"_s);
        QVERIFY(engine.runBatch(10000));
        QVERIFY2(engine.succeeded(), engine.failure().constData());
        QCOMPARE(readFile(implicit.homeFolder() + u"/sub/a.html"_s), QByteArray("implicit"));

        FtpServer plain(FtpServer::Tls::Refused);
        TW_REQUIRE_SERVER(plain);
        Engine explicitTls(std::make_shared<TransporterFTPTLSConnection>(
            siteFor(u"127.0.0.1"_s, plain.port(), FtpServer::userName(), u"www/"_s), FtpServer::password()));
        explicitTls->uploadFile(localFile(u"c.html"_s, "never"), u"c.html"_s);
        QVERIFY(explicitTls.runBatch());
        QVERIFY2(explicitTls.failure().startsWith("(64)"), explicitTls.failure().constData());
        QVERIFY(!QFile::exists(plain.homeFolder() + u"/www/c.html"_s));
    }

    // A server that takes the connection and then says nothing, before or
    // after its greeting: the run ends with an error, it does not wait.
    void silentServerEndsTheRun() {
        Preferences::instance().setInteger(u"connectTimeout"_s, 3);
        Preferences::instance().setInteger(u"stallTimeout"_s, 3);
        for (const bool greets : {false, true}) {
            SilentServer silent(greets);
            QVERIFY2(silent.isRunning(), qPrintable(silent.errorString()));
            Engine engine(std::make_shared<TransporterFTPConnection>(
                siteFor(u"127.0.0.1"_s, silent.port(), u"u"_s, u"www/"_s), u"p"_s));
            engine->uploadFile(localFile(u"s.html"_s, "x"), u"s.html"_s);
            QVERIFY(engine.runBatch(20000));
            QVERIFY2(engine.failure().startsWith("(28)"), engine.failure().constData());
        }
    }

    // RSA, ECDSA and ed25519 keys (a pass-phrased one is the servers'
    // default), a password, a host given as an IPv6 address, and ssh-agent
    // for a site that names no key: curl runs with a private home, yet the
    // agent still serves it.
    void everyKindOfSshLogin() {
        SshServer::Options options;
        options.moreKeyTypes = options.passwordLogin = true;
        options.ipv6 = ServerProcess::hasIpv6Loopback();
        QVERIFY2(options.ipv6 || !serversRequired(), "no IPv6 loopback (::1), and servers are required");
        SshServer ssh(options);
        TW_REQUIRE_SERVER(ssh);
        QTemporaryDir folder;
        const QString socket = folder.filePath(u"agent"_s);
        QProcess agent;
        const QByteArray agentBefore = qgetenv("SSH_AUTH_SOCK");
        const auto stopAgent = qScopeGuard([&] {
            agent.terminate();
            agent.waitForFinished();
            agentBefore.isEmpty() ? qunsetenv("SSH_AUTH_SOCK") : qputenv("SSH_AUTH_SOCK", agentBefore);
        });
        const QList<std::tuple<QString, std::optional<QString>, QString>> logins{
            {u"rsa"_s, ssh.keyPath(u"rsa"_s), QString()},
            {u"ecdsa"_s, ssh.keyPath(u"ecdsa"_s), QString()},
            {u"ipv6"_s, ssh.keyPath(), QString()},
            {u"password"_s, std::nullopt, SshServer::loginPassword()},
            {u"agent"_s, std::nullopt, QString()}};
        for (const auto& [name, key, password] : logins) {
            if (name == u"ipv6"_s && !options.ipv6)
                continue;
            if (name == u"agent"_s) {
                agent.start(u"/usr/bin/ssh-agent"_s, {u"-D"_s, u"-a"_s, socket});
                QTRY_VERIFY(QFileInfo::exists(socket));
                qputenv("SSH_AUTH_SOCK", QFile::encodeName(socket));
                QCOMPARE(QProcess::execute(u"/usr/bin/ssh-add"_s, {ssh.keyPath()}), 0);
            }
            const QString host = name == u"ipv6"_s ? u"::1"_s : u"127.0.0.1"_s;
            auto site = siteFor(host, ssh.port(), SshServer::userName(), u"~/logins/"_s);
            site->sshKeyPath = key;
            Engine engine(std::make_shared<TransporterSFTPConnection>(site, password, std::nullopt));
            engine->uploadFile(localFile(name, name.toUtf8()), name + u".txt"_s);
            QVERIFY(engine.runBatch());
            QVERIFY2(engine.succeeded(), qPrintable(name + u": "_s + QString::fromUtf8(engine.failure())));
            QCOMPARE(readFile(ssh.remoteFolder() + u"/logins/"_s + name + u".txt"_s), name.toUtf8());
        }
    }

    // SFTP deletes hit the files the uploads wrote, under an absolute remote
    // path as under "~/"; a file of the same name in the login's own folder
    // stays.
    void sftpDeletesHitTheUploadedFiles() {
        const SshServer& ssh = *m_ssh;
        QVERIFY(writeFile(ssh.remoteFolder() + u"/css/a.css"_s, "decoy"));
        for (const QString& remotePath : QStringList{ssh.remoteFolder() + u"/absolute/"_s, u"~/home/"_s}) {
            const QString onDisk = remotePath.startsWith(u'~') ? ssh.remoteFolder() + u"/home"_s : remotePath;
            auto site = siteFor(u"127.0.0.1"_s, ssh.port(), SshServer::userName(), remotePath);
            site->sshKeyPath = ssh.keyPath();
            Engine engine(std::make_shared<TransporterSFTPConnection>(site, QString(), std::nullopt));
            engine->uploadFile(localFile(u"a.css"_s, "real"), u"css/a.css"_s);
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
        const FtpServer& ftp = *m_ftp;
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
        // The emptied folders go by the uploads' path form, relative to the
        // login: on a server without a chroot "/www/..." names another folder.
        QCOMPARE(commands.count("\r\nRMD www/d0/deep\r\n"), 1);
        QVERIFY(!commands.contains("RMD /"));
    }

private:
    std::shared_ptr<Transporter> transporter(Transport transport, const QString& remotePath,
                                             const QString& password = QString()) const {
        return serverTransporter(transport, *m_ftp, *m_ssh, remotePath, password);
    }

    std::unique_ptr<FtpServer> m_ftp;
    std::unique_ptr<SshServer> m_ssh;
};

} // namespace tw::test

QTEST_GUILESS_MAIN(tw::test::TestTransporterServers)
#include "tst_transporter_servers.moc"
