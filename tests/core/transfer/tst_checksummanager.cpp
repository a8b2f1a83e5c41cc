// The deployment record on the server and the connection test: the record's
// text, how it is read back (any text gives a commit or a clear error), the
// read time-out and the callback rules on the event loop (fake curl), and
// the whole round trip against real servers.

#include "FakeCurl.h"
#include "FtpServer.h"
#include "SshServer.h"
#include "TestEnvironment.h"
#include "app/Logger.h"
#include "app/ToolPaths.h"
#include "transfer/CheckSumManager.h"
#include "transfer/TestConnection.h"
#include "transfer/Transporter.h"
#include "transfer/TransporterFTPConnection.h"
#include "transfer/TransporterFTPTLSConnection.h"
#include "transfer/TransporterSFTPConnection.h"

#include <QDir>
#include <QFile>
#include <QFileInfo>
#include <QScopeGuard>
#include <QTemporaryDir>
#include <QTest>

#include <memory>

using namespace Qt::StringLiterals;
using namespace std::chrono_literals;

namespace tw::test {

namespace {

struct Result {
    int calls = 0;
    std::optional<QString> commit;
    std::optional<QDateTime> date;
    std::optional<QString> branch;
    std::optional<Error> error;

    CheckSumManager::Completion completion() {
        return [this](std::optional<QString> c, std::optional<QDateTime> d, std::optional<QString> b,
                      std::optional<Error> e) {
            ++calls;
            commit = c;
            date = d;
            branch = b;
            error = e;
        };
    }
};

SitePtr fakeSite() {
    auto site = std::make_shared<Site>();
    site->host = u"srv1"_s;
    site->port = u"21"_s;
    site->remotePath = u"htdocs"_s;
    site->username = u"bob"_s;
    return site;
}

QDateTime at(double seconds) {
    return QDateTime::fromMSecsSinceEpoch(qint64(seconds * 1000));
}

QByteArray contentOf(const QString& path) {
    QFile file(path);
    return file.open(QIODevice::ReadOnly) ? file.readAll() : QByteArray("<missing>");
}

// Files in the temporary folder named like a UUID.
QStringList uuidFiles() {
    QStringList names = QDir(QDir::tempPath()).entryList(QDir::Files | QDir::Hidden);
    names.removeIf([](const QString& name) { return name.size() != 36 || name.count(u'-') != 4; });
    return names;
}

} // namespace

class TestCheckSumManager : public QObject {
    Q_OBJECT

private slots:
    void initTestCase();
    void cleanup();
    void recordText();
    void parsing_data();
    void parsing();
    void recordFile();
    void readResults_data();
    void readResults();
    void oneResultPerCheck();
    void serversRoundTrip_data();
    void serversRoundTrip();
    void connectionTest();

private:
    std::shared_ptr<Transporter> fakeTransporter();
    std::unique_ptr<FakeCurl> m_fake;
    std::unique_ptr<FtpServer> m_ftp;
    std::unique_ptr<SshServer> m_ssh;
    QTemporaryDir m_temp;
};

void TestCheckSumManager::initTestCase() {
    TestEnvironment::isolate();
    // A temporary folder of our own, to look for left-over files.
    QVERIFY(m_temp.isValid());
    qputenv("TMPDIR", m_temp.path().toUtf8());
    QCOMPARE(QDir::tempPath(), m_temp.path());
}

void TestCheckSumManager::cleanup() {
    ToolPaths::setToolsDirectory(std::nullopt);
    m_fake.reset();
}

std::shared_ptr<Transporter> TestCheckSumManager::fakeTransporter() {
    m_fake = std::make_unique<FakeCurl>();
    ToolPaths::setToolsDirectory(m_fake->folder());
    return std::make_shared<Transporter>(std::make_shared<TransporterFTPConnection>(fakeSite(), u"pw"_s));
}

void TestCheckSumManager::recordText() {
    QCOMPARE(CheckSumManager::recordText(u"a1b2c3d"_s, at(86400), u"main"_s), u"a1b2c3d,86400.0,main"_s);
    QCOMPARE(CheckSumManager::recordText(u"c"_s, QDateTime::fromMSecsSinceEpoch(1700000000123), QString()),
             u"c,1700000000.123,"_s);
    QCOMPARE(CheckSumManager::formatSeconds(1e21), u"1000000000000000000000.0"_s);
}

namespace {
constexpr double now = -1e12;
}

void TestCheckSumManager::parsing_data() {
    QTest::addColumn<QString>("content");
    QTest::addColumn<QString>("commit"); // empty: no record
    QTest::addColumn<double>("seconds"); // now: the current time
    QTest::addColumn<QString>("branch");

    QTest::newRow("full") << u"a1b2c3d,86400.0,main"_s << u"a1b2c3d"_s << 86400.0 << u"main"_s;
    QTest::newRow("commit alone") << u"a1b2c3d"_s << u"a1b2c3d"_s << now << QString();
    QTest::newRow("empty piece dropped") << u"a1b2c3d,,main"_s << u"a1b2c3d"_s << 0.0 << QString();
    QTest::newRow("lenient number") << u"a, \t12.5e1xyz,b"_s << u"a"_s << 125.0 << u"b"_s;
    QTest::newRow("too large a time") << u"a,1e999,b"_s << u"a"_s << 0.0 << u"b"_s;
    QTest::newRow("arbitrary text") << u"<html>Not found</html>\n"_s << u"<html>Not found</html>\n"_s << now
                                    << QString();
    QTest::newRow("commas only") << u",,,"_s << QString() << 0.0 << QString();
    QTest::newRow("thousands of commas") << QString(100000, u',') + u"x"_s << u"x"_s << now << QString();
}

// Whatever the server holds gives a commit or nothing, never a crash.
void TestCheckSumManager::parsing() {
    QFETCH(QString, content);
    QFETCH(QString, commit);
    QFETCH(double, seconds);
    QFETCH(QString, branch);
    const QDateTime before = QDateTime::currentDateTime();
    const auto record = CheckSumManager::parseRecord(content);
    if (commit.isEmpty()) {
        QVERIFY(!record);
        return;
    }
    QVERIFY(record);
    QCOMPARE(record->commit, commit);
    QCOMPARE(record->branch, branch);
    QVERIFY(record->date.isValid());
    if (seconds == now)
        QVERIFY(record->date >= before.addSecs(-1) && record->date <= QDateTime::currentDateTime());
    else
        QCOMPARE(record->date.toMSecsSinceEpoch(), qint64(seconds * 1000));
}

void TestCheckSumManager::recordFile() {
    CheckSumManager manager(fakeTransporter());
    std::optional<CheckSumError> error;
    const auto path = manager.createDeployDataFile(u"a1b2c3d"_s, at(86400), u"main"_s, &error);
    QVERIFY(path);
    QVERIFY(!error);
    QCOMPARE(QFileInfo(*path).path(), m_temp.path());
    QCOMPARE(QFileInfo(*path).fileName().size(), 36);
    QCOMPARE(contentOf(*path), "a1b2c3d,86400.0,main");
    QVERIFY(QFile::remove(*path));

    // A temporary "folder" that is a file, and one that does not exist.
    const auto restore = qScopeGuard([this] { qputenv("TMPDIR", m_temp.path().toUtf8()); });
    QFile plain(m_temp.filePath(u"plain"_s));
    QVERIFY(plain.open(QIODevice::WriteOnly));
    plain.close();
    for (const QString& folder : {plain.fileName(), u"/nonexistent/folder"_s}) {
        qputenv("TMPDIR", folder.toUtf8());
        error.reset();
        QVERIFY(!manager.createDeployDataFile(u"a"_s, at(1), u"b"_s, &error));
        QCOMPARE(error, CheckSumError::cannotWriteFile);
        QCOMPARE(manager.upload(u"a"_s, at(1), u"b"_s), CheckSumError::uploadError);
    }
    QVERIFY(plain.remove());
    QCOMPARE(m_fake->invocationCount(), 0);
}

void TestCheckSumManager::readResults_data() {
    QTest::addColumn<QString>("script");
    QTest::addColumn<QString>("commit");
    QTest::addColumn<qint64>("code"); // 0: no error
    QTest::addColumn<QString>("errorText");
    QTest::addColumn<bool>("finished"); // content arrived (isFinished)

    const QString unknown = CheckSumManager::unknownResponseText();
    QTest::newRow("record") << u"out a1b2c3d,86400.0,main"_s << u"a1b2c3d"_s << 0ll << QString() << true;
    QTest::newRow("no record yet") << u"err \\r#=#=#     curl: (78) The file does not exist\\n\nexit 78"_s
                                   << QString() << 1ll << u"(78) The file does not exist"_s << false;
    QTest::newRow("empty record") << u"exit 0"_s << QString() << 2ll << unknown << false;
    QTest::newRow("not UTF-8") << u"out \\xff\\xfe,1,main"_s << QString() << 2ll << unknown << false;
    // A record too large for one read: the first piece decides.
    QTest::newRow("in two reads") << u"out a1b2c3d,86400.0\nout ,main"_s << u"a1b2c3d"_s << 0ll << QString()
                                  << true;
}

// The result arrives once, through the content, the error or the time-out
// (shortened here; an empty record and bytes that are not text need it); the
// timer is waited for with the event loop.
void TestCheckSumManager::readResults() {
    QFETCH(QString, script);
    QFETCH(QString, commit);
    QFETCH(qint64, code);
    QFETCH(QString, errorText);
    QFETCH(bool, finished);

    auto transporter = fakeTransporter();
    QVERIFY(m_fake->setScript(script));
    CheckSumManager manager(transporter);
    QCOMPARE(manager.readTimeout(), 8000ms);
    manager.setReadTimeout(200ms);
    Result result;
    manager.check(result.completion());
    QCOMPARE(transporter->delegate(), &manager);
    QTRY_COMPARE(result.calls, 1);
    QCOMPARE(m_fake->arguments(1), (QStringList{u"ftp://srv1:21/htdocs/.tarnwell"_s, u"--user"_s, u"bob:pw"_s,
                                                u"--progress-bar"_s}));
    if (code == 0) {
        QVERIFY(!result.error);
        QCOMPARE(result.commit, commit);
        QCOMPARE(result.date->toMSecsSinceEpoch(), 86400000ll);
    } else {
        QVERIFY(!result.commit && !result.date && !result.branch);
        QCOMPARE(result.error->code, code);
        QCOMPARE(result.error->domain, u"dev.tarnwell.Tarnwell"_s);
        QCOMPARE(result.error->localizedDescription, errorText);
    }
    if (code == 1)
        QCOMPARE(manager.lastError(), errorText);
    QCOMPARE(manager.isFinished(), finished);
    // A delivered result stops the repeating timer at its next turn.
    QTRY_VERIFY(!manager.isTimerActive());
    QTRY_COMPARE(transporter->runningProcessCount(), 0);
    QCOMPARE(result.calls, 1);
}

// isFinished is never reset: once a result came, a later check on the same
// manager that needs the time-out hears nothing.
void TestCheckSumManager::oneResultPerCheck() {
    auto transporter = fakeTransporter();
    QVERIFY(m_fake->setScript(1, u"out a,1,b"_s));
    QVERIFY(m_fake->setScript(2, u"exit 0"_s));
    auto manager = std::make_unique<CheckSumManager>(transporter);
    manager->setReadTimeout(100ms);
    Result first;
    manager->check(first.completion());
    QTRY_COMPARE(first.calls, 1);
    QTRY_VERIFY(manager->isFinished());
    Result second;
    manager->check(second.completion());
    QTRY_VERIFY(manager->isTimerActive());
    QTRY_VERIFY(!manager->isTimerActive());
    QCOMPARE(second.calls, 0);
    QCOMPARE(first.calls, 1);

    // Gone, the manager is no longer the transporter's delegate.
    manager.reset();
    QCOMPARE(transporter->delegate(), nullptr);
}

void TestCheckSumManager::serversRoundTrip_data() {
    QTest::addColumn<QString>("transport");
    QTest::newRow("FTP") << u"ftp"_s;
    QTest::newRow("FTP with TLS") << u"tls"_s;
    QTest::newRow("SFTP") << u"sftp"_s;
}

// Written, read back, and missing: curl's own texts, cleaned.
void TestCheckSumManager::serversRoundTrip() {
    QFETCH(QString, transport);
    if (!m_ftp) {
        m_ftp = std::make_unique<FtpServer>();
        m_ssh = std::make_unique<SshServer>();
    }
    TW_REQUIRE_SERVER(*m_ftp);
    TW_REQUIRE_SERVER(*m_ssh);

    auto site = std::make_shared<Site>();
    site->host = u"127.0.0.1"_s;
    std::shared_ptr<TransporterConnectionProtocol> connection;
    QString remote;
    if (transport == u"sftp"_s) {
        site->port = QString::number(m_ssh->port());
        site->username = SshServer::userName();
        site->remotePath = u"~/record"_s;
        site->sshKeyPath = m_ssh->encryptedKeyPath();
        connection = std::make_shared<TransporterSFTPConnection>(site, QString(), SshServer::passphrase());
        remote = m_ssh->remoteFolder() + u"/record"_s;
    } else {
        site->port = QString::number(m_ftp->port());
        site->username = FtpServer::userName();
        site->remotePath = u"record-"_s + transport;
        // A single FTP upload does not make the site's folder.
        QVERIFY(m_ftp->writeFile(u"record-"_s + transport + u"/.keep"_s, QByteArray()));
        if (transport == u"tls"_s)
            connection = std::make_shared<TransporterFTPTLSConnection>(site, FtpServer::password());
        else
            connection = std::make_shared<TransporterFTPConnection>(site, FtpServer::password());
        remote = m_ftp->homeFolder() + u"/record-"_s + transport;
    }
    auto transporter = std::make_shared<Transporter>(connection);

    // No record yet: code 1 with curl's "(78)".
    CheckSumManager missing(transporter);
    Result none;
    missing.check(none.completion());
    QTRY_COMPARE_WITH_TIMEOUT(none.calls, 1, 20000);
    QVERIFY(none.error);
    QCOMPARE(none.error->code, 1);
    QVERIFY2(none.error->localizedDescription.startsWith(u"(78) "_s),
             qPrintable(none.error->localizedDescription));

    const QDateTime when = QDateTime::fromMSecsSinceEpoch(1700000000250);
    CheckSumManager writer(transporter);
    QVERIFY(!writer.upload(u"0123abcd"_s, when, u"main"_s));
    QTRY_COMPARE_WITH_TIMEOUT(transporter->runningProcessCount(), 0, 20000);
    QCOMPARE(contentOf(remote + u"/.tarnwell"_s), "0123abcd,1700000000.25,main");
    QCOMPARE(uuidFiles(), QStringList());

    CheckSumManager reader(transporter);
    Result read;
    reader.check(read.completion());
    QTRY_COMPARE_WITH_TIMEOUT(read.calls, 1, 20000);
    QVERIFY(!read.error);
    QCOMPARE(read.commit, u"0123abcd"_s);
    QCOMPARE(read.date->toMSecsSinceEpoch(), when.toMSecsSinceEpoch());
    QCOMPARE(read.branch, u"main"_s);
}

// A good connection leaves an empty ".test"; a wrong password fails with
// curl's cleaned-up text.
void TestCheckSumManager::connectionTest() {
    if (!m_ftp) {
        m_ftp = std::make_unique<FtpServer>();
        m_ssh = std::make_unique<SshServer>();
    }
    TW_REQUIRE_SERVER(*m_ftp);
    TW_REQUIRE_SERVER(*m_ssh);

    auto ftpSite = std::make_shared<Site>();
    ftpSite->host = u"127.0.0.1"_s;
    ftpSite->port = QString::number(m_ftp->port());
    ftpSite->username = FtpServer::userName();
    ftpSite->remotePath = QString();
    auto sshSite = std::make_shared<Site>(*ftpSite);
    sshSite->port = QString::number(m_ssh->port());
    sshSite->username = SshServer::userName();
    sshSite->remotePath = u"~/tested"_s;
    sshSite->sshKeyPath = m_ssh->keyPath();

    TestConnection good(std::make_shared<Transporter>(
        std::make_shared<TransporterFTPConnection>(ftpSite, FtpServer::password())));
    TestConnection wrong(
        std::make_shared<Transporter>(std::make_shared<TransporterFTPConnection>(ftpSite, u"wrong"_s)));
    TestConnection sftp(std::make_shared<Transporter>(
        std::make_shared<TransporterSFTPConnection>(sshSite, QString(), std::nullopt)));
    QList<std::optional<Error>> goodResults, wrongResults, sftpResults;
    QVERIFY(!good.checkWithCompletion([&](std::optional<Error> e) { goodResults.append(e); }));
    QVERIFY(!wrong.checkWithCompletion([&](std::optional<Error> e) { wrongResults.append(e); }));
    QVERIFY(!sftp.checkWithCompletion([&](std::optional<Error> e) { sftpResults.append(e); }));
    QCOMPARE(good.transporter()->tag(), u"Upload"_s);
    QVERIFY(!good.transporter()->debug());

    QTRY_COMPARE_WITH_TIMEOUT(goodResults.size() + wrongResults.size() + sftpResults.size(), 3, 20000);
    QCOMPARE(goodResults, QList<std::optional<Error>>{std::nullopt});
    QCOMPARE(sftpResults, QList<std::optional<Error>>{std::nullopt});
    QCOMPARE(wrongResults.size(), 1);
    QCOMPARE(wrongResults.first()->code, 1);
    QCOMPARE(wrongResults.first()->localizedDescription, u"(67) Access denied: 530"_s);
    QCOMPARE(wrong.lastError(), u"(67) Access denied: 530"_s);

    const QFileInfo ftpTest(m_ftp->homeFolder() + u"/.test"_s);
    QVERIFY(ftpTest.exists());
    QCOMPARE(ftpTest.size(), 0);
    const QFileInfo sshTest(m_ssh->remoteFolder() + u"/tested/.test"_s);
    QVERIFY(sshTest.exists());
    QCOMPARE(sshTest.size(), 0);
    QTRY_COMPARE(uuidFiles(), QStringList());
}

} // namespace tw::test

QTEST_GUILESS_MAIN(tw::test::TestCheckSumManager)
#include "tst_checksummanager.moc"
