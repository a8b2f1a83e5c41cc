// The deployment record on the server and the connection test: the record's
// text, how it is read back (any text gives a commit or a clear error), the
// read time-out and the callback rules on the event loop (fake curl), and
// the whole round trip against real servers.

#include "FakeCurl.h"
#include "ServerSites.h"
#include "TestEnvironment.h"
#include "app/ToolPaths.h"
#include "transfer/CheckSumManager.h"
#include "transfer/TestConnection.h"

#include <QDir>
#include <QFileInfo>
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
    void initTestCase() {
        TestEnvironment::isolate();
        // A temporary folder of our own, to look for left-over files.
        QVERIFY(m_temp.isValid());
        qputenv("TMPDIR", m_temp.path().toUtf8());
        QCOMPARE(QDir::tempPath(), m_temp.path());
        m_ftp = std::make_unique<FtpServer>();
        m_ssh = std::make_unique<SshServer>();
    }

    void cleanup() {
        ToolPaths::setToolsDirectory(std::nullopt);
        m_fake.reset();
    }

    void readResults_data() {
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
        QTest::newRow("in two reads")
            << u"out a1b2c3d,86400.0\nout ,main"_s << u"a1b2c3d"_s << 0ll << QString() << true;
    }

    // The result arrives once, through the content, the error or the time-out
    // (shortened here; an empty record and bytes that are not text need it); the
    // timer is waited for with the event loop.
    void readResults() {
        QFETCH(QString, script);
        QFETCH(QString, commit);
        QFETCH(qint64, code);
        QFETCH(QString, errorText);
        QFETCH(bool, finished);

        auto transporter = fakeTransporter();
        QVERIFY(m_fake->setScript(script));
        CheckSumManager manager(transporter);
        manager.setReadTimeout(200ms);
        Result result;
        manager.check(result.completion());
        QTRY_COMPARE(result.calls, 1);
        if (code == 0) {
            QVERIFY(!result.error);
            QCOMPARE(result.commit, commit);
            QCOMPARE(result.date->toMSecsSinceEpoch(), 86400000ll);
        } else {
            QVERIFY(!result.commit && !result.date && !result.branch);
            QCOMPARE(result.error->code, code);
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

    void serversRoundTrip_data() {
        QTest::addColumn<Transport>("transport");
        QTest::newRow("FTP") << Transport::Passive;
        QTest::newRow("FTP with TLS") << Transport::Tls;
        QTest::newRow("SFTP") << Transport::Sftp;
    }

    // Written and read back; the record's temporary file goes.
    void serversRoundTrip() {
        QFETCH(Transport, transport);
        TW_REQUIRE_SERVER(*m_ftp);
        TW_REQUIRE_SERVER(*m_ssh);
        const QString folder = u"record-%1"_s.arg(int(transport));
        auto transporter = serverTransporter(transport, *m_ftp, *m_ssh, folder);
        // A single FTP upload does not make the site's folder.
        if (transport != Transport::Sftp)
            QVERIFY(m_ftp->writeFile(folder + u"/.keep"_s, QByteArray()));
        const QString remote =
            (transport == Transport::Sftp ? m_ssh->remoteFolder() : m_ftp->homeFolder()) + u'/' + folder;

        const QDateTime when = QDateTime::fromMSecsSinceEpoch(1700000000250);
        CheckSumManager writer(transporter);
        QVERIFY(!writer.upload(u"0123abcd"_s, when, u"main"_s));
        QTRY_COMPARE_WITH_TIMEOUT(transporter->runningProcessCount(), 0, 20000);
        QCOMPARE(readFile(remote + u"/.tarnwell"_s), "0123abcd,1700000000.25,main");
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
    void connectionTest() {
        TW_REQUIRE_SERVER(*m_ftp);
        TW_REQUIRE_SERVER(*m_ssh);
        TestConnection good(serverTransporter(Transport::Passive, *m_ftp, *m_ssh, QString()));
        TestConnection wrong(serverTransporter(Transport::Passive, *m_ftp, *m_ssh, QString(), u"wrong"_s));
        QList<std::optional<Error>> goodResults, wrongResults;
        QVERIFY(!good.checkWithCompletion([&](std::optional<Error> e) { goodResults.append(e); }));
        QVERIFY(!wrong.checkWithCompletion([&](std::optional<Error> e) { wrongResults.append(e); }));

        QTRY_COMPARE_WITH_TIMEOUT(goodResults.size() + wrongResults.size(), 2, 20000);
        QCOMPARE(goodResults, QList<std::optional<Error>>{std::nullopt});
        QCOMPARE(wrongResults.size(), 1);
        QCOMPARE(wrongResults.first()->code, 1);
        QCOMPARE(wrongResults.first()->localizedDescription, u"(67) Access denied: 530"_s);
        QCOMPARE(wrong.lastError(), u"(67) Access denied: 530"_s);

        const QFileInfo ftpTest(m_ftp->homeFolder() + u"/.test"_s);
        QVERIFY(ftpTest.exists());
        QCOMPARE(ftpTest.size(), 0);
        QTRY_COMPARE(uuidFiles(), QStringList());
    }

private:
    std::shared_ptr<Transporter> fakeTransporter() {
        m_fake = std::make_unique<FakeCurl>();
        ToolPaths::setToolsDirectory(m_fake->folder());
        return std::make_shared<Transporter>(std::make_shared<TransporterFTPConnection>(fakeSite(), u"pw"_s));
    }

    std::unique_ptr<FakeCurl> m_fake;
    std::unique_ptr<FtpServer> m_ftp;
    std::unique_ptr<SshServer> m_ssh;
    QTemporaryDir m_temp;
};

} // namespace tw::test

QTEST_GUILESS_MAIN(tw::test::TestCheckSumManager)
#include "tst_checksummanager.moc"
