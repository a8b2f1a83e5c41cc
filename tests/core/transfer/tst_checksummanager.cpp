// The deployment record on the server and the connection test: how the
// record is read back (any text gives a commit or a clear error, once) with
// the fake curl, and the round trip against real servers.

#include "FakeCurl.h"
#include "ServerSites.h"
#include "TestEnvironment.h"
#include "app/ToolPaths.h"
#include "transfer/CheckSumManager.h"
#include "transfer/TestConnection.h"

#include <QDir>
#include <QTemporaryDir>
#include <QTest>

#include <memory>

using namespace Qt::StringLiterals;
using namespace std::chrono_literals;

namespace tw::test {

namespace {

// What a read of the record delivered, and how often.
struct Result {
    int calls = 0;
    std::optional<QString> commit;
    std::optional<QDateTime> date;
    std::optional<QString> branch;
    std::optional<Error> error;

    CheckSumManager::Completion completion() {
        return [this](auto c, auto d, auto b, auto e) {
            ++calls;
            std::tie(commit, date, branch, error) = std::tie(c, d, b, e);
        };
    }
};

} // namespace

class TestCheckSumManager : public QObject {
    Q_OBJECT

private slots:
    void initTestCase() {
        TestEnvironment::isolate();
        // A temporary folder of our own, to look for left-over files.
        QVERIFY(m_temp.isValid());
        qputenv("TMPDIR", m_temp.path().toUtf8());
        m_ftp = std::make_unique<FtpServer>();
        m_ssh = std::make_unique<SshServer>();
    }
    void cleanup() { ToolPaths::setToolsDirectory(std::nullopt); }

    void readResults_data() {
        QTest::addColumn<QString>("script");
        QTest::addColumn<QString>("commit"); // empty: an error
        QTest::addColumn<QString>("errorText");
        const QString unknown = CheckSumManager::unknownResponseText();
        QTest::newRow("record") << u"out a1b2c3d,86400.0,main"_s << u"a1b2c3d"_s << QString();
        QTest::newRow("no record yet") << u"err \\r#=#=#     curl: (78) The file does not exist\\n\nexit 78"_s
                                       << QString() << u"(78) The file does not exist"_s;
        QTest::newRow("empty record") << u"exit 0"_s << QString() << unknown;
        QTest::newRow("not UTF-8") << u"out \\xff\\xfe,1,main"_s << QString() << unknown;
        // A record too large for one read: the first piece decides.
        QTest::newRow("in two reads") << u"out a1b2c3d,86400.0\nout ,main"_s << u"a1b2c3d"_s << QString();
    }

    // The result arrives once, through the content, the error or the time-out
    // (shortened here; an empty record and bytes that are not text need it).
    void readResults() {
        QFETCH(QString, script);
        QFETCH(QString, commit);
        QFETCH(QString, errorText);
        FakeCurl fake;
        ToolPaths::setToolsDirectory(fake.folder());
        QVERIFY(fake.setScript(script));
        auto transporter = std::make_shared<Transporter>(
            std::make_shared<TransporterFTPConnection>(siteFor(u"srv1"_s, 21, u"bob"_s, QString()), u"pw"_s));
        CheckSumManager manager(transporter);
        manager.setReadTimeout(200ms);
        Result result;
        manager.check(result.completion());
        QTRY_COMPARE(result.calls, 1);
        QCOMPARE(result.commit.value_or(QString()), commit);
        QCOMPARE(result.error ? result.error->localizedDescription : QString(), errorText);
        if (!commit.isEmpty())
            QCOMPARE(result.date->toMSecsSinceEpoch(), 86400000ll);
        QTRY_VERIFY(!manager.isTimerActive());
        QTRY_COMPARE(transporter->runningProcessCount(), 0);
        QCOMPARE(result.calls, 1);
    }

    void serversRoundTrip_data() { addTransports(false); }

    // The record written and read back, and a connection test that passes;
    // their temporary files go.
    void serversRoundTrip() {
        QFETCH(Transport, transport);
        TW_REQUIRE_SERVER(*m_ftp);
        TW_REQUIRE_SERVER(*m_ssh);
        const QString folder = u"record-%1"_s.arg(int(transport));
        auto transporter = serverTransporter(transport, *m_ftp, *m_ssh, folder);
        if (transport != Transport::Sftp) // a single FTP upload does not make the site's folder
            QVERIFY(m_ftp->writeFile(folder + u"/.keep"_s, QByteArray()));
        const QString remote =
            (transport == Transport::Sftp ? m_ssh->remoteFolder() : m_ftp->homeFolder()) + u'/' + folder;

        const QDateTime when = QDateTime::fromMSecsSinceEpoch(1700000000250);
        CheckSumManager writer(transporter);
        QVERIFY(!writer.upload(u"0123abcd"_s, when, u"main"_s));
        QTRY_COMPARE_WITH_TIMEOUT(transporter->runningProcessCount(), 0, 20000);
        QCOMPARE(readFile(remote + u"/.tarnwell"_s), "0123abcd,1700000000.25,main");

        CheckSumManager reader(transporter);
        Result read;
        reader.check(read.completion());
        QTRY_COMPARE_WITH_TIMEOUT(read.calls, 1, 20000);
        QVERIFY(!read.error);
        QCOMPARE(read.commit, u"0123abcd"_s);
        QCOMPARE(read.date, when);
        QCOMPARE(read.branch, u"main"_s);

        TestConnection test(serverTransporter(transport, *m_ftp, *m_ssh, folder));
        QList<std::optional<Error>> results;
        QVERIFY(!test.checkWithCompletion([&](std::optional<Error> e) { results.append(e); }));
        QTRY_COMPARE_WITH_TIMEOUT(results, QList<std::optional<Error>>{std::nullopt}, 20000);
        QTRY_COMPARE(QDir(m_temp.path()).entryList(QDir::Files | QDir::Hidden), QStringList());
    }

private:
    std::unique_ptr<FtpServer> m_ftp;
    std::unique_ptr<SshServer> m_ssh;
    QTemporaryDir m_temp;
};

} // namespace tw::test

QTEST_GUILESS_MAIN(tw::test::TestCheckSumManager)
#include "tst_checksummanager.moc"
