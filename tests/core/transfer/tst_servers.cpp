// The servers the transfer engine's tests run against, driven by the
// application's own curl exactly as the engine will drive it. What these
// tests show is what the engine's tests may rely on: where files land on the
// server's disk and which texts curl prints for each failure.

#include "FtpServer.h"
#include "SshServer.h"
#include "TestEnvironment.h"
#include "app/ToolPaths.h"

#include <QDir>
#include <QElapsedTimer>
#include <QFile>
#include <QFileInfo>
#include <QProcess>
#include <QTemporaryDir>
#include <QTest>

#include <memory>

using namespace Qt::StringLiterals;

namespace tw::test {

namespace {

struct CurlRun {
    int exitCode = -1;
    QByteArray output;
    QString errors;
};

CurlRun runCurl(const QStringList& arguments) {
    QProcess curl;
    curl.setProcessEnvironment(ToolPaths::curlEnvironment());
    curl.setStandardInputFile(QProcess::nullDevice());
    curl.start(ToolPaths::curlPath(), arguments);
    CurlRun run;
    if (!curl.waitForFinished(30000)) {
        run.errors = u"curl did not finish: "_s + curl.errorString();
        return run;
    }
    run.exitCode = curl.exitStatus() == QProcess::NormalExit ? curl.exitCode() : -1;
    run.output = curl.readAllStandardOutput();
    run.errors = QString::fromUtf8(curl.readAllStandardError());
    return run;
}

QString ftpLogin() {
    return FtpServer::userName() + u':' + FtpServer::password();
}

QByteArray contentOf(const QString& path) {
    QFile file(path);
    return file.open(QIODevice::ReadOnly) ? file.readAll() : QByteArray();
}

} // namespace

class TestServers : public QObject {
    Q_OBJECT

private slots:
    void initTestCase();
    void ftpUpload_data();
    void ftpUpload();
    void ftpSecondServerRequiringTls();
    void ftpServerTexts();
    void ftpWrongPassword();
    void sftpUpload_data();
    void sftpUpload();
    void sftpErrorsAndQuoteCommands();
    void sshConnectionString();
    void stoppingEndsSessionsAndCleansUp();

private:
    QString localFile(const QByteArray& content);
    QString ftpUrl(const FtpServer& server, const QString& path) const;
    QString sftpUrl(const QString& path) const;

    std::unique_ptr<FtpServer> m_ftp;
    std::unique_ptr<SshServer> m_ssh;
    QTemporaryDir m_local;
    int m_localCount = 0;
};

void TestServers::initTestCase() {
    TestEnvironment::isolate();
    QVERIFY2(QFileInfo(ToolPaths::curlPath()).isExecutable(), qPrintable(ToolPaths::curlPath()));
    QVERIFY(m_local.isValid());

    QElapsedTimer timer;
    timer.start();
    m_ftp = std::make_unique<FtpServer>();
    const qint64 ftpStart = timer.restart();
    TW_REQUIRE_SERVER(*m_ftp);
    m_ssh = std::make_unique<SshServer>();
    const qint64 sshStart = timer.elapsed();
    TW_REQUIRE_SERVER(*m_ssh);
    qInfo("pure-ftpd ready after %lld ms on port %d, sshd after %lld ms on port %d", ftpStart, m_ftp->port(),
          sshStart, m_ssh->port());
}

QString TestServers::localFile(const QByteArray& content) {
    const QString path = m_local.filePath(u"file-%1.txt"_s.arg(++m_localCount));
    QFile file(path);
    if (!file.open(QIODevice::WriteOnly) || file.write(content) != content.size())
        qWarning("cannot write %s", qPrintable(path));
    return path;
}

QString TestServers::ftpUrl(const FtpServer& server, const QString& path) const {
    return u"ftp://%1:%2/%3"_s.arg(FtpServer::host()).arg(server.port()).arg(path);
}

QString TestServers::sftpUrl(const QString& path) const {
    return u"sftp://%1:%2/~/%3"_s.arg(SshServer::host()).arg(m_ssh->port()).arg(path);
}

void TestServers::ftpUpload_data() {
    QTest::addColumn<QString>("folder");
    QTest::addColumn<QStringList>("options");
    QTest::newRow("passive") << u"passive"_s << QStringList();
    QTest::newRow("active") << u"active"_s << QStringList{u"--ftp-port"_s, u"-"_s};
    QTest::newRow("TLS --ssl") << u"tls-ssl"_s << QStringList{u"-k"_s, u"--ssl"_s};
    QTest::newRow("TLS --ftp-ssl") << u"tls-ftp-ssl"_s << QStringList{u"-k"_s, u"--ftp-ssl"_s};
}

// Uploads create missing folders; the files belong to the FTP user and each
// finished upload adds a line to the transfer log.
void TestServers::ftpUpload() {
    QFETCH(QString, folder);
    QFETCH(QStringList, options);
    const QByteArray content = "uploaded " + folder.toUtf8() + '\n';
    const QString remote = folder + u"/sub/index.html"_s;
    const CurlRun run = runCurl(QStringList{u"-sS"_s, u"-T"_s, localFile(content), ftpUrl(*m_ftp, remote),
                                            u"--user"_s, ftpLogin(), u"--ftp-create-dirs"_s} +
                                options);
    QVERIFY2(run.exitCode == 0, qPrintable(run.errors));
    const QString onDisk = m_ftp->homeFolder() + u'/' + remote;
    QCOMPARE(contentOf(onDisk), content);
    QCOMPARE(QFileInfo(onDisk).ownerId(), 2000u);
    const QByteArray logLine = "\"PUT " + QFile::encodeName(onDisk) + "\" 200";
    QVERIFY(contentOf(m_ftp->transferLogPath()).contains(logLine));
}

// A second server runs beside the first, with its own port, home and passive
// ports. With TLS required it turns plain sessions away.
void TestServers::ftpSecondServerRequiringTls() {
    FtpServer second(FtpServer::Tls::Required);
    TW_REQUIRE_SERVER(second);
    QVERIFY(second.port() != m_ftp->port());
    QVERIFY(second.homeFolder() != m_ftp->homeFolder());

    const QString file = localFile("secret\n");
    CurlRun run = runCurl({u"-sS"_s, u"-T"_s, file, ftpUrl(second, u"plain.txt"_s), u"--user"_s, ftpLogin()});
    QCOMPARE(run.exitCode, 28); // the server's 421, as curl reports it
    QVERIFY2(run.errors.contains(u"curl: (28)"_s), qPrintable(run.errors));
    QVERIFY(!QFile::exists(second.homeFolder() + u"/plain.txt"_s));

    for (const QString& option : {u"--ssl"_s, u"--ftp-ssl"_s}) {
        run = runCurl({u"-sS"_s, u"-T"_s, file, ftpUrl(second, u"tls/x.txt"_s), u"--user"_s, ftpLogin(),
                       u"--ftp-create-dirs"_s, u"-k"_s, option});
        QVERIFY2(run.exitCode == 0, qPrintable(run.errors));
    }
    QCOMPARE(contentOf(second.homeFolder() + u"/tls/x.txt"_s), "secret\n");

    // The first server still serves while the second runs.
    run = runCurl({u"-sS"_s, u"-T"_s, file, ftpUrl(*m_ftp, u"while-second/x.txt"_s), u"--user"_s, ftpLogin(),
                   u"--ftp-create-dirs"_s});
    QVERIFY2(run.exitCode == 0, qPrintable(run.errors));
    QVERIFY(QFile::exists(m_ftp->homeFolder() + u"/while-second/x.txt"_s));
    QVERIFY(!QFile::exists(second.homeFolder() + u"/while-second/x.txt"_s));
}

// The replies and curl texts that the engine's output parsers look for.
void TestServers::ftpServerTexts() {
    // Reading: a missing file, and a file the test put on the server.
    CurlRun run = runCurl({u"-sS"_s, ftpUrl(*m_ftp, u"missing.txt"_s), u"--user"_s, ftpLogin()});
    QCOMPARE(run.exitCode, 78);
    QVERIFY2(run.errors.contains(u"curl: (78) The file does not exist"_s), qPrintable(run.errors));
    QVERIFY(m_ftp->writeFile(u"records/.record"_s, "abc123\n"));
    run = runCurl({u"-sS"_s, ftpUrl(*m_ftp, u"records/.record"_s), u"--user"_s, ftpLogin()});
    QCOMPARE(run.exitCode, 0);
    QCOMPARE(run.output, "abc123\n");

    // An upload into a folder the user may not write.
    QVERIFY(m_ftp->makeUnwritable(u"locked"_s));
    run = runCurl({u"-sS"_s, u"-T"_s, localFile("x"), ftpUrl(*m_ftp, u"locked/x.txt"_s), u"--user"_s,
                   ftpLogin(), u"--ftp-create-dirs"_s});
    QCOMPARE(run.exitCode, 25);
    QVERIFY2(run.errors.contains(u"curl: (25) Failed FTP upload: 553"_s), qPrintable(run.errors));
    QVERIFY(!QFile::exists(m_ftp->homeFolder() + u"/locked/x.txt"_s));

    // Two uploads in one run, verbose with the bar: one 226 reply per file.
    run = runCurl({u"-T"_s, localFile("one"), ftpUrl(*m_ftp, u"batch/one.txt"_s), u"-T"_s, localFile("two"),
                   ftpUrl(*m_ftp, u"batch/two.txt"_s), u"--user"_s, ftpLogin(), u"--ftp-create-dirs"_s,
                   u"--globoff"_s, u"-#"_s, u"-v"_s});
    QVERIFY2(run.exitCode == 0, qPrintable(run.errors));
    QCOMPARE(run.errors.count(u"226-File successfully transferred"_s), 2);
    QVERIFY(run.errors.contains(u"100.0%"_s));

    // Deleting with quote commands: one file there, one not.
    QVERIFY(m_ftp->writeFile(u"trash/old.css"_s, "old"));
    run = runCurl({u"-Q"_s, u"*DELE trash/old.css"_s, u"-Q"_s, u"*DELE trash/gone.css"_s,
                   ftpUrl(*m_ftp, QString()), u"--user"_s, ftpLogin(), u"-#"_s, u"-v"_s});
    QVERIFY2(run.exitCode == 0, qPrintable(run.errors));
    QVERIFY2(run.errors.contains(u"250 Deleted trash/old.css"_s), qPrintable(run.errors));
    QVERIFY(run.errors.contains(u"550 Could not delete trash/gone.css: No such file or directory"_s));
    QVERIFY(!QFile::exists(m_ftp->homeFolder() + u"/trash/old.css"_s));
}

// The one refused login over FTP: the server answers after 3 to 6 s.
void TestServers::ftpWrongPassword() {
    QElapsedTimer timer;
    timer.start();
    const CurlRun run = runCurl({u"-sS"_s, u"-T"_s, localFile("x"), ftpUrl(*m_ftp, u"denied.txt"_s),
                                 u"--user"_s, FtpServer::userName() + u":wrong"_s});
    QCOMPARE(run.exitCode, 67);
    QVERIFY2(run.errors.contains(u"curl: (67) Access denied: 530"_s), qPrintable(run.errors));
    qInfo("wrong password answered after %lld ms", timer.elapsed());
}

void TestServers::sftpUpload_data() {
    QTest::addColumn<QString>("folder");
    QTest::addColumn<QStringList>("keyOptions");
    QTest::newRow("encrypted key") << u"encrypted"_s
                                   << QStringList{u"--key"_s, m_ssh->encryptedKeyPath(), u"--pass"_s,
                                                  SshServer::passphrase()};
    QTest::newRow("key without pass phrase") << u"plain"_s << QStringList{u"--key"_s, m_ssh->keyPath()};
}

// "~" in the URL is the remote folder; missing folders are created.
void TestServers::sftpUpload() {
    QFETCH(QString, folder);
    QFETCH(QStringList, keyOptions);
    const QByteArray content = "over sftp " + folder.toUtf8() + '\n';
    const QString remote = folder + u"/sub/index.html"_s;
    const CurlRun run =
        runCurl(QStringList{u"-sS"_s, u"-T"_s, localFile(content), sftpUrl(remote), u"--user"_s,
                            SshServer::userName() + u':', u"--ftp-create-dirs"_s, u"-k"_s} +
                keyOptions);
    QVERIFY2(run.exitCode == 0, qPrintable(run.errors));
    QCOMPARE(contentOf(m_ssh->remoteFolder() + u'/' + remote), content);
}

void TestServers::sftpErrorsAndQuoteCommands() {
    const QStringList login{u"--user"_s, SshServer::userName() + u':', u"-k"_s, u"--key"_s, m_ssh->keyPath()};
    CurlRun run = runCurl(QStringList{u"-sS"_s, sftpUrl(u"missing.txt"_s)} + login);
    QCOMPARE(run.exitCode, 78);
    QVERIFY2(run.errors.contains(
                 u"curl: (78) Could not open remote file for reading: No such file or directory"_s),
             qPrintable(run.errors));

    run = runCurl({u"-sS"_s, sftpUrl(u"missing.txt"_s), u"--user"_s, SshServer::userName() + u':', u"-k"_s,
                   u"--key"_s, m_ssh->encryptedKeyPath(), u"--pass"_s, u"wrong"_s});
    QCOMPARE(run.exitCode, 67);
    QVERIFY2(run.errors.contains(u"curl: (67) Authentication failure"_s), qPrintable(run.errors));

    // Quote commands take paths relative to the remote folder. This curl
    // knows them in lower case only.
    QVERIFY(QDir().mkpath(m_ssh->remoteFolder() + u"/trash"_s));
    QFile old(m_ssh->remoteFolder() + u"/trash/old.css"_s);
    QVERIFY(old.open(QIODevice::WriteOnly));
    old.close();
    run = runCurl(QStringList{u"-sS"_s, sftpUrl(QString()), u"-Q"_s, u"RM \"trash/old.css\""_s} + login);
    QCOMPARE(run.exitCode, 21);
    QVERIFY2(run.errors.contains(u"curl: (21) Unknown SFTP command"_s), qPrintable(run.errors));
    QVERIFY(old.exists());
    run = runCurl(QStringList{u"-sS"_s, sftpUrl(QString()), u"-Q"_s, u"rm \"trash/old.css\""_s, u"-Q"_s,
                              u"rmdir \"trash\""_s} +
                  login);
    QVERIFY2(run.exitCode == 0, qPrintable(run.errors));
    QVERIFY(!QFileInfo::exists(m_ssh->remoteFolder() + u"/trash"_s));
}

// Remote scripts: the connection string split at blanks, the command last,
// with nothing in the environment but PATH (as the script runner does it).
void TestServers::sshConnectionString() {
    QProcess ssh;
    QProcessEnvironment environment;
    environment.insert(u"PATH"_s, u"/usr/local/bin:/usr/bin:/bin:/usr/sbin:/sbin"_s);
    ssh.setProcessEnvironment(environment);
    ssh.setStandardInputFile(QProcess::nullDevice());
    ssh.start(u"/usr/bin/ssh"_s,
              m_ssh->connectionString().split(u' ') +
                  QStringList{u"cd %1;echo from remote > marker.txt;whoami"_s.arg(m_ssh->remoteFolder())});
    QVERIFY(ssh.waitForFinished(20000));
    QVERIFY2(ssh.exitCode() == 0, ssh.readAllStandardError().constData());
    QCOMPARE(ssh.readAllStandardOutput(), "root\n");
    QCOMPARE(contentOf(m_ssh->remoteFolder() + u"/marker.txt"_s), "from remote\n");
}

// Stopping ends the sessions that are still open, and the temporary folders
// go with the servers.
void TestServers::stoppingEndsSessionsAndCleansUp() {
    auto ftp = std::make_unique<FtpServer>();
    auto ssh = std::make_unique<SshServer>();
    TW_REQUIRE_SERVER(*ftp);
    TW_REQUIRE_SERVER(*ssh);
    const quint16 ftpPort = ftp->port();
    const quint16 sshPort = ssh->port();
    const QString ftpHome = ftp->homeFolder();
    const QString sshFolder = ssh->remoteFolder();

    QProcess session;
    session.setStandardInputFile(QProcess::nullDevice());
    session.start(u"/usr/bin/ssh"_s, ssh->connectionString().split(u' ') +
                                         QStringList{u"touch %1/started; sleep 60"_s.arg(sshFolder)});
    QProcess upload;
    upload.setProcessEnvironment(ToolPaths::curlEnvironment());
    upload.setStandardInputFile(QProcess::nullDevice());
    upload.start(ToolPaths::curlPath(),
                 {u"-sS"_s, u"-T"_s, localFile(QByteArray(200000, 'x')),
                  u"ftp://%1:%2/slow/big.bin"_s.arg(FtpServer::host()).arg(ftpPort), u"--user"_s, ftpLogin(),
                  u"--ftp-create-dirs"_s, u"--limit-rate"_s, u"10k"_s});
    QTRY_VERIFY_WITH_TIMEOUT(QFile::exists(sshFolder + u"/started"_s), 10000);
    QTRY_VERIFY_WITH_TIMEOUT(QFile::exists(ftpHome + u"/slow/big.bin"_s), 10000);

    ftp.reset();
    ssh.reset();
    QVERIFY(upload.waitForFinished(5000));
    QVERIFY(upload.exitCode() != 0);
    QVERIFY(session.waitForFinished(5000));
    QVERIFY(session.exitCode() != 0);
    QVERIFY(!ServerProcess::acceptsConnections(ftpPort));
    QVERIFY(!ServerProcess::acceptsConnections(sshPort));
    QVERIFY(!QFileInfo::exists(ftpHome));
    QVERIFY(!QFileInfo::exists(sshFolder));
}

} // namespace tw::test

QTEST_GUILESS_MAIN(tw::test::TestServers)
#include "tst_servers.moc"
