// The transfer engine with the application's own curl against real servers
// on loopback: files are uploaded, listed, read and deleted in both modes
// over every transport, and the results are checked on the servers' disks.
//
// What the batch parsers report on a real run. They count chunks, not
// lines: the upload reader takes every chunk to be about the next item. curl
// 8.14 writes its "-v" trace in dozens of small pieces per file; the engine
// reads a batch's standard error at a steady pace (every 10 ms), so a chunk
// holds what curl wrote meanwhile. A run of 500 uploads therefore reports
// some 25 to 35 didComplete messages (one per chunk holding a meter), all for
// the first items of the batch built last; a second batch of the same run
// reports nothing. A curl error is seen only within those first chunks (a
// closed port is); a later one falls past the batch and is not seen, and the
// run ends with didCompleteAllRequests. A refused login comes after the
// server's delay of seconds, while the meter's frames run the count past the
// batch: not seen either. The delete reader moves on only with a confirmed
// delete, so over FTP it marks refusals on the items it is at; over SFTP only
// the final listing's "bytes data]" counts. The tests write these counts
// down (qInfo) and check the servers' disks instead.

#include "FtpServer.h"
#include "RecordingDelegate.h"
#include "ServerProcess.h"
#include "SshServer.h"
#include "TestEnvironment.h"
#include "app/Logger.h"
#include "app/Preferences.h"
#include "app/ToolPaths.h"
#include "transfer/Transporter.h"
#include "transfer/TransporterFTPConnection.h"
#include "transfer/TransporterFTPSConnection.h"
#include "transfer/TransporterFTPTLSConnection.h"
#include "transfer/TransporterSFTPConnection.h"

#include <QDir>
#include <QDirIterator>
#include <QFile>
#include <QFileInfo>
#include <QScopeGuard>
#include <QSignalSpy>
#include <QTemporaryDir>
#include <QTest>

#include <memory>
#include <unistd.h>

using namespace Qt::StringLiterals;

namespace tw::test {

namespace {

enum class Transport { Passive, Active, Tls, ImplicitChoice, Sftp };

QByteArray contentOf(const QString& path) {
    QFile file(path);
    return file.open(QIODevice::ReadOnly) ? file.readAll() : QByteArray("<missing>");
}

// curl processes started by this test that are still alive.
QStringList curlProcesses() {
    QStringList children;
    const QString self = QString::number(::getpid());
    const QStringList entries = QDir(u"/proc"_s).entryList(QDir::Dirs | QDir::NoDotAndDotDot);
    for (const QString& entry : entries) {
        QFile stat(u"/proc/"_s + entry + u"/stat"_s);
        if (!stat.open(QIODevice::ReadOnly))
            continue;
        const QString line = QString::fromUtf8(stat.readAll());
        const qsizetype close = line.lastIndexOf(u')');
        const QStringList fields = line.mid(close + 2).split(u' ');
        if (fields.size() > 1 && fields.at(1) == self && line.contains(u"(curl)"_s))
            children.append(line.left(close + 1));
    }
    return children;
}

// Names that curl would refuse or cut in a raw URL, and one beyond ASCII.
const QStringList oddNames{u"a b#c%d.txt"_s, u"semi;type=a.txt"_s, u"what?.txt"_s, u"ü.txt"_s};

} // namespace

class TestTransporterServers : public QObject {
    Q_OBJECT

private slots:
    void initTestCase();
    void cleanup();
    void singleMode_data();
    void singleMode();
    void batchMode_data();
    void batchMode();
    void syncRoot();
    void wrongCredentials();
    void serverNotRunning();
    void abortInTheMiddleOfABatch();

private:
    void addTransports();
    SitePtr site(Transport transport, const QString& remotePath) const;
    std::shared_ptr<Transporter> transporter(Transport transport, const QString& remotePath,
                                             const QString& password = QString()) const;
    QString remoteRoot(Transport transport) const;
    QString localFile(const QString& relative, const QByteArray& content);
    // Runs single mode until the queue is empty; false when it takes too long.
    bool runSingle(Transporter& transporter);
    bool runBatch(Transporter& transporter, int timeout = 60000);

    std::unique_ptr<FtpServer> m_ftp;
    std::unique_ptr<SshServer> m_ssh;
    QTemporaryDir m_local;
};

void TestTransporterServers::initTestCase() {
    TestEnvironment::isolate();
    QVERIFY(m_local.isValid());
    m_ftp = std::make_unique<FtpServer>();
    TW_REQUIRE_SERVER(*m_ftp);
    m_ssh = std::make_unique<SshServer>();
    TW_REQUIRE_SERVER(*m_ssh);
}

void TestTransporterServers::cleanup() {
    QCOMPARE(curlProcesses(), QStringList()); // no curl left behind
}

void TestTransporterServers::addTransports() {
    QTest::addColumn<Transport>("transport");
    QTest::newRow("FTP passive") << Transport::Passive;
    QTest::newRow("FTP active") << Transport::Active;
    QTest::newRow("FTP with TLS/SSL") << Transport::Tls;
    QTest::newRow("FTP with implicit SSL") << Transport::ImplicitChoice;
    QTest::newRow("SFTP") << Transport::Sftp;
}

SitePtr TestTransporterServers::site(Transport transport, const QString& remotePath) const {
    auto site = std::make_shared<Site>();
    site->host = u"127.0.0.1"_s;
    if (transport == Transport::Sftp) {
        site->port = QString::number(m_ssh->port());
        site->username = SshServer::userName();
        site->remotePath = u"~/"_s + remotePath;
        site->sshKeyPath = m_ssh->encryptedKeyPath();
    } else {
        site->port = QString::number(m_ftp->port());
        site->username = FtpServer::userName();
        site->remotePath = remotePath;
    }
    return site;
}

std::shared_ptr<Transporter> TestTransporterServers::transporter(Transport transport,
                                                                 const QString& remotePath,
                                                                 const QString& password) const {
    const SitePtr target = site(transport, remotePath);
    std::shared_ptr<TransporterConnectionProtocol> connection;
    const QString ftpPassword = password.isEmpty() ? FtpServer::password() : password;
    switch (transport) {
    case Transport::Passive:
    case Transport::Active: {
        auto ftp = std::make_shared<TransporterFTPConnection>(target, ftpPassword);
        ftp->setPassive(transport == Transport::Passive);
        connection = ftp;
        break;
    }
    case Transport::Tls:
        connection = std::make_shared<TransporterFTPTLSConnection>(target, ftpPassword);
        break;
    case Transport::ImplicitChoice:
        connection = std::make_shared<TransporterFTPSConnection>(target, ftpPassword);
        break;
    case Transport::Sftp:
        connection = std::make_shared<TransporterSFTPConnection>(
            target, QString(), password.isEmpty() ? SshServer::passphrase() : password);
        break;
    }
    return std::make_shared<Transporter>(connection);
}

QString TestTransporterServers::remoteRoot(Transport transport) const {
    return transport == Transport::Sftp ? m_ssh->remoteFolder() : m_ftp->homeFolder();
}

QString TestTransporterServers::localFile(const QString& relative, const QByteArray& content) {
    const QString path = m_local.filePath(relative);
    QDir().mkpath(QFileInfo(path).path());
    QFile file(path);
    if (!file.open(QIODevice::WriteOnly) || file.write(content) != content.size())
        qWarning("cannot write %s", qPrintable(path));
    return path;
}

bool TestTransporterServers::runSingle(Transporter& transporter) {
    QSignalSpy idle(&transporter, &Transporter::becameIdle);
    while (!transporter.queue().isEmpty()) {
        const qsizetype before = idle.count();
        transporter.run();
        if (!QTest::qWaitFor([&] { return idle.count() > before; }, 30000))
            return false;
    }
    return true;
}

bool TestTransporterServers::runBatch(Transporter& transporter, int timeout) {
    QSignalSpy idle(&transporter, &Transporter::becameIdle);
    transporter.runMulti();
    return QTest::qWaitFor([&] { return idle.count() > 0; }, timeout);
}

void TestTransporterServers::singleMode_data() {
    addTransports();
}

// One curl per item: uploads (into new folders, odd names), a listing, a
// read, a delete, and a read of what is not there.
void TestTransporterServers::singleMode() {
    QFETCH(Transport, transport);
    const QString folder = u"single-%1"_s.arg(int(transport));
    auto engine = transporter(transport, folder);
    RecordingDelegate delegate;
    engine->setDelegate(&delegate);

    QStringList names = oddNames;
    names << u"css/site.css"_s << u"deep/er/x.js"_s;
    QList<TransporterFilePtr> uploads;
    for (const QString& name : names)
        uploads.append(
            engine->uploadFile(localFile(folder + u'/' + name, "content of " + name.toUtf8()), name));
    // Single FTP uploads cannot make folders ("--ftp-method nocwd" turns
    // "--ftp-create-dirs" off): the site's folders exist already here.
    if (transport != Transport::Sftp) {
        QVERIFY(m_ftp->writeFile(folder + u"/css/.keep"_s, QByteArray()));
        QVERIFY(m_ftp->writeFile(folder + u"/deep/er/.keep"_s, QByteArray()));
    }
    QVERIFY(runSingle(*engine));
    QCOMPARE(delegate.count(u"fail"_s), 0);
    QCOMPARE(delegate.count(u"complete"_s), names.size());
    // Two runs of at most three; the first leaves items queued, so only the
    // second reports the end of all work.
    QCOMPARE(delegate.count(u"all"_s), 1);
    for (const QString& name : names)
        QCOMPARE(contentOf(remoteRoot(transport) + u'/' + folder + u'/' + name),
                 "content of " + name.toUtf8());

    delegate.messages.clear();
    engine->list(QString());
    QVERIFY(runSingle(*engine));
    QStringList listed;
    for (const auto& message : delegate.of(u"listing"_s))
        listed += message.names;
    for (const QString& name : oddNames)
        QVERIFY2(listed.contains(name), qPrintable(listed.join(u", "_s)));

    delegate.messages.clear();
    engine->readFile(u"css/site.css"_s);
    QVERIFY(runSingle(*engine));
    QCOMPARE(delegate.of(u"reading"_s).value(0).text, u"content of css/site.css"_s);
    QCOMPARE(delegate.count(u"all"_s), 1); // the meter's last frame may come after it

    delegate.messages.clear();
    engine->deleteFile(oddNames.first());
    engine->deleteFile(u"css/site.css"_s);
    QVERIFY(runSingle(*engine));
    QCOMPARE(delegate.kinds(),
             (QStringList{u"percent"_s, u"percent"_s, u"complete"_s, u"complete"_s, u"all"_s}));
    QVERIFY(!QFileInfo::exists(remoteRoot(transport) + u'/' + folder + u'/' + oddNames.first()));
    QVERIFY(!QFileInfo::exists(remoteRoot(transport) + u'/' + folder + u"/css/site.css"_s));
    QVERIFY(QFileInfo::exists(remoteRoot(transport) + u'/' + folder + u"/deep/er/x.js"_s));

    delegate.messages.clear();
    engine->readFile(u"missing.txt"_s);
    QVERIFY(runSingle(*engine));
    QCOMPARE(delegate.kinds(), (QStringList{u"percent"_s, u"fail"_s, u"allWithErrors"_s}));
    const QString expected = transport == Transport::Sftp
                                 ? u"(78) Could not open remote file for reading: No such file or directory"_s
                                 : u"(78) The file does not exist"_s;
    QCOMPARE(delegate.of(u"fail"_s).first().text, expected);

    delegate.messages.clear();
    engine->uploadFile(localFile(folder + u"/new/file.txt"_s, "new"), u"new/file.txt"_s);
    QVERIFY(runSingle(*engine));
    if (transport == Transport::Sftp) {
        QCOMPARE(delegate.kinds().last(), u"all"_s);
        QCOMPARE(contentOf(remoteRoot(transport) + u'/' + folder + u"/new/file.txt"_s), "new");
    } else {
        QCOMPARE(delegate.kinds().last(), u"allWithErrors"_s);
        QCOMPARE(delegate.of(u"fail"_s).first().text, u"(25) Failed FTP upload: 553"_s);
    }
}

void TestTransporterServers::batchMode_data() {
    addTransports();
}

// Batches of 500 uploads, then deletes that take the emptied folders along.
void TestTransporterServers::batchMode() {
    QFETCH(Transport, transport);
    const QString folder = u"batch-%1"_s.arg(int(transport));
    const QString remote = remoteRoot(transport) + u'/' + folder;
    auto engine = transporter(transport, folder);
    RecordingDelegate delegate;
    engine->setDelegate(&delegate);
    engine->setTag(u"deploy"_s);

    QStringList names = oddNames;
    for (int i = 0; i < 520; ++i)
        names << u"f%1/file-%2.txt"_s.arg(i % 7).arg(i);
    for (const QString& name : names)
        engine->uploadFile(localFile(folder + u'/' + name, name.toUtf8()), name);
    QVERIFY(runBatch(*engine));
    qInfo("upload of %lld files reported: %d complete, %d percent, %d fail, %d all, %d allWithErrors",
          names.size(), delegate.count(u"complete"_s), delegate.count(u"percent"_s),
          delegate.count(u"fail"_s), delegate.count(u"all"_s), delegate.count(u"allWithErrors"_s));
    QCOMPARE(delegate.kinds().last(), u"all"_s);
    QCOMPARE(delegate.count(u"fail"_s), 0);
    for (const QString& name : names)
        QCOMPARE(contentOf(remote + u'/' + name), name.toUtf8());

    // Delete all of f0 (its folder goes too), one file of f1, the odd names.
    delegate.messages.clear();
    QStringList deleted = oddNames;
    for (const QString& name : names) {
        if (name.startsWith(u"f0/"_s))
            deleted << name;
    }
    deleted << u"f1/file-1.txt"_s;
    for (const QString& name : deleted)
        engine->deleteFile(name);
    QVERIFY(runBatch(*engine));
    qInfo("delete of %lld files reported: %d complete, %d items marked failed, %d all", deleted.size(),
          delegate.count(u"complete"_s),
          int(std::count_if(delegate.messages.cbegin(), delegate.messages.cend(),
                            [](const auto& m) { return m.file && m.file->hasError(); })),
          delegate.count(u"all"_s));
    QCOMPARE(delegate.kinds().last(), u"all"_s);
    for (const QString& name : deleted)
        QVERIFY2(!QFileInfo::exists(remote + u'/' + name), qPrintable(name));
    QVERIFY(!QFileInfo::exists(remote + u"/f0"_s));
    QVERIFY(QFileInfo::exists(remote + u"/f1/file-8.txt"_s));
    QVERIFY(QFileInfo::exists(remote + u"/f2"_s));
}

// The sync root's text leaves the remote path: web/css/site.css lands as css/site.css.
// With debug logging on, curl's trace of the login reaches the log without
// the password.
void TestTransporterServers::syncRoot() {
    Preferences::instance().setBool(u"debugEnabled"_s, true);
    const auto debugOff = qScopeGuard([] { Preferences::instance().setBool(u"debugEnabled"_s, false); });
    const SitePtr target = site(Transport::Passive, u"synced"_s);
    target->syncRootPath = u"web"_s;
    auto engine = std::make_shared<Transporter>(
        std::make_shared<TransporterFTPConnection>(target, FtpServer::password()));
    RecordingDelegate delegate;
    engine->setDelegate(&delegate);
    engine->uploadFile(localFile(u"repo/web/css/site.css"_s, "synced"), u"web/css/site.css"_s);
    engine->uploadFile(localFile(u"repo/web/index.html"_s, "index"), u"web/index.html"_s);
    QVERIFY(runBatch(*engine));
    QCOMPARE(contentOf(m_ftp->homeFolder() + u"/synced/css/site.css"_s), "synced");
    QCOMPARE(contentOf(m_ftp->homeFolder() + u"/synced/index.html"_s), "index");
    QVERIFY(!QFileInfo::exists(m_ftp->homeFolder() + u"/synced/web"_s));
    const QByteArray log = contentOf(Logger::sharedInstance().logFilePath());
    QVERIFY(log.contains("PASS xxxxxx"));
    QVERIFY(!log.contains(FtpServer::password().toUtf8()));
}

// A refused login is reported in single and in batch mode. In a batch run
// curl's meter animates while the server takes its seconds to refuse, every
// frame a chunk, so the count has run past the batch when the error comes:
// the error counts all the same.
void TestTransporterServers::wrongCredentials() {
    auto single = transporter(Transport::Passive, u"denied"_s, u"wrong"_s);
    auto batch = transporter(Transport::Passive, u"denied"_s, u"wrong"_s);
    auto sftp = transporter(Transport::Sftp, u"denied"_s, u"wrong pass phrase"_s);
    RecordingDelegate singleDelegate, batchDelegate, sftpDelegate;
    single->setDelegate(&singleDelegate);
    batch->setDelegate(&batchDelegate);
    sftp->setDelegate(&sftpDelegate);
    const QString file = localFile(u"denied.txt"_s, "x");
    single->uploadFile(file, u"denied.txt"_s);
    batch->uploadFile(file, u"denied.txt"_s);
    sftp->uploadFile(file, u"denied.txt"_s);

    // The FTP server takes its time with a wrong password: run the three at once.
    QSignalSpy singleIdle(single.get(), &Transporter::becameIdle);
    QSignalSpy batchIdle(batch.get(), &Transporter::becameIdle);
    QSignalSpy sftpIdle(sftp.get(), &Transporter::becameIdle);
    single->run();
    batch->runMulti();
    sftp->run();
    QTRY_VERIFY_WITH_TIMEOUT(singleIdle.count() && batchIdle.count() && sftpIdle.count(), 30000);

    QCOMPARE(singleDelegate.kinds(), (QStringList{u"percent"_s, u"fail"_s, u"allWithErrors"_s}));
    QCOMPARE(singleDelegate.messages[1].text, u"(67) Access denied: 530"_s);
    QCOMPARE(sftpDelegate.kinds(), (QStringList{u"percent"_s, u"fail"_s, u"allWithErrors"_s}));
    QCOMPARE(sftpDelegate.messages[1].text, u"(67) Authentication failure"_s);
    // The batch run reports it too, however many reads the server's delay
    // cut curl's output into.
    QCOMPARE(batchDelegate.kinds().last(), u"fail"_s);
    QCOMPARE(batchDelegate.messages.last().text, u"(67) Access denied: 530"_s);
    QVERIFY(!QFileInfo::exists(m_ftp->homeFolder() + u"/denied/denied.txt"_s));
    QVERIFY(!QFileInfo::exists(m_ssh->remoteFolder() + u"/denied/denied.txt"_s));
}

void TestTransporterServers::serverNotRunning() {
    const SitePtr target = site(Transport::Passive, u"nowhere"_s);
    target->port = QString::number(ServerProcess::freePort());
    auto single = std::make_shared<Transporter>(std::make_shared<TransporterFTPConnection>(target, u"pw"_s));
    auto batch = std::make_shared<Transporter>(std::make_shared<TransporterFTPConnection>(target, u"pw"_s));
    RecordingDelegate singleDelegate, batchDelegate;
    single->setDelegate(&singleDelegate);
    batch->setDelegate(&batchDelegate);
    single->uploadFile(localFile(u"nowhere.txt"_s, "x"), u"nowhere.txt"_s);
    batch->uploadFile(localFile(u"nowhere.txt"_s, "x"), u"nowhere.txt"_s);
    QVERIFY(runSingle(*single));
    QVERIFY(runBatch(*batch));
    QCOMPARE(singleDelegate.kinds(), (QStringList{u"percent"_s, u"fail"_s, u"allWithErrors"_s}));
    QVERIFY2(singleDelegate.messages[1].text.startsWith(u"(7) Failed to connect to 127.0.0.1 port "_s),
             qPrintable(singleDelegate.messages[1].text));
    QCOMPARE(batchDelegate.kinds(), QStringList{u"fail"_s});
    QVERIFY(batchDelegate.messages[0].text.startsWith(u"(7) Failed to connect to 127.0.0.1 port "_s));
}

// An abort while the first of three batches runs: nothing runs afterwards,
// no completion arrives, and the server has only part of the files.
void TestTransporterServers::abortInTheMiddleOfABatch() {
    auto engine = transporter(Transport::Sftp, u"aborted"_s);
    RecordingDelegate delegate;
    engine->setDelegate(&delegate);
    for (int i = 0; i < 1200; ++i) {
        const QString name = u"file-%1.txt"_s.arg(i);
        engine->uploadFile(localFile(u"aborted/"_s + name, QByteArray(1024, 'x')), name);
    }
    QSignalSpy idle(engine.get(), &Transporter::becameIdle);
    engine->runMulti();
    const QString remote = m_ssh->remoteFolder() + u"/aborted"_s;
    QTRY_VERIFY_WITH_TIMEOUT(QDir(remote).entryList(QDir::Files).size() >= 20, 30000);
    engine->terminateAllTasks();
    QTRY_COMPARE(idle.count(), 1);
    QCOMPARE(engine->runningProcessCount(), 0);
    QCOMPARE(curlProcesses(), QStringList());
    const qsizetype landed = QDir(remote).entryList(QDir::Files).size();
    QVERIFY2(landed < 500, qPrintable(QString::number(landed)));
    QVERIFY(!delegate.ended());
    QVERIFY(!QFileInfo::exists(remote + u"/file-1199.txt"_s));
}

} // namespace tw::test

QTEST_GUILESS_MAIN(tw::test::TestTransporterServers)
#include "tst_transporter_servers.moc"
