// The transfer engine against the fake curl: how each kind of curl process's
// output is read chunk by chunk, what the two modes start and report, and
// aborts. Every scripted chunk reaches the engine through a read of its own.

#include "FakeCurl.h"
#include "RecordingDelegate.h"
#include "TestEnvironment.h"
#include "app/Logger.h"
#include "app/Preferences.h"
#include "app/ToolPaths.h"
#include "transfer/Transporter.h"
#include "transfer/TransporterFTPConnection.h"

#include <QFile>
#include <QSignalSpy>
#include <QTemporaryDir>
#include <QTest>

#include <memory>

using namespace Qt::StringLiterals;

namespace tw::test {

namespace {

SitePtr ftpSite(const std::optional<QString>& syncRoot = std::nullopt) {
    auto site = std::make_shared<Site>();
    site->host = u"srv1"_s;
    site->port = u"21"_s;
    site->remotePath = u"htdocs"_s;
    site->username = u"bob"_s;
    site->syncRootPath = syncRoot;
    return site;
}

// A transporter with a recording delegate and a spy on becameIdle.
struct Engine {
    explicit Engine(const SitePtr& site = ftpSite())
        : transporter(
              std::make_shared<Transporter>(std::make_shared<TransporterFTPConnection>(site, u"pw"_s)))
        , idle(transporter.get(), &Transporter::becameIdle) {
        transporter->setDelegate(&delegate);
    }
    QList<TransporterFilePtr> uploads(int count) {
        QList<TransporterFilePtr> files;
        for (int i = 0; i < count; ++i)
            files.append(transporter->uploadFile(u"/l/%1.txt"_s.arg(i), u"%1.txt"_s.arg(i)));
        return files;
    }
    std::shared_ptr<Transporter> transporter;
    RecordingDelegate delegate;
    QSignalSpy idle;
};

} // namespace

class TestTransporter : public QObject {
    Q_OBJECT

private slots:
    void initTestCase() { TestEnvironment::isolate(); }
    void init();
    void cleanup();

    void singleErrorCapture_data();
    void singleErrorCapture();
    void emptyRuns();
    void batchUploadErrorAbortsTheRun();
    void batchDeleteParser();
    void batchGroupsAndAttribution();
    void debugLogHidesThePassword();
    void abortSingleMode();
    void missingCurl();
    void releasedDuringAMessage();

private:
    std::unique_ptr<FakeCurl> m_fake;
};

void TestTransporter::init() {
    TestEnvironment::resetPreferences();
    m_fake = std::make_unique<FakeCurl>();
    QVERIFY(m_fake->isValid());
    ToolPaths::setToolsDirectory(m_fake->folder());
}

void TestTransporter::cleanup() {
    ToolPaths::setToolsDirectory(std::nullopt);
    m_fake.reset();
}

void TestTransporter::singleErrorCapture_data() {
    QTest::addColumn<QString>("script");
    QTest::addColumn<QStringList>("kinds");
    QTest::addColumn<QList<double>>("percents");
    QTest::addColumn<QString>("failText");

    const QStringList success{u"percent"_s, u"complete"_s, u"all"_s};
    const QStringList failure{u"percent"_s, u"fail"_s, u"allWithErrors"_s};
    QTest::newRow("meter") << u"err   45.3%\\n"_s
                           << QStringList{u"percent"_s, u"percent"_s, u"complete"_s, u"all"_s}
                           << QList<double>{0, 45.3} << QString();
    QTest::newRow("error behind a meter frame")
        << u"err \\r#=#=#                  \nerr \\r#=#=#           curl: (78) The file does not exist\\n\nexit 78"_s
        << failure << QList<double>{0} << u"(78) The file does not exist"_s;
    // Chunks are read as they come: an error line cut in two is reported
    // with its first part.
    QTest::newRow("error split over two reads") << u"err curl: (67) Access\nerr  denied: 530\\n\nexit 67"_s
                                                << failure << QList<double>{0} << u"(67) Access"_s;
    // curl 8.14 writes its error line a byte at a time: when no read holds
    // the whole marker, the error is found once curl has ended.
    QTest::newRow("error line in pieces")
        << u"err c\nerr u\nerr rl: (\nerr 78) The file\nerr  does not exist\\n\nexit 78"_s << failure
        << QList<double>{0} << u"(78) The file does not exist"_s;
    // The exit status plays no part in single mode.
    QTest::newRow("exit status alone") << u"exit 55"_s << success << QList<double>{0} << QString();
}

void TestTransporter::singleErrorCapture() {
    QFETCH(QString, script);
    QFETCH(QStringList, kinds);
    QFETCH(QList<double>, percents);
    QFETCH(QString, failText);
    QVERIFY(m_fake->setScript(script));

    Engine engine;
    const TransporterFilePtr file = engine.transporter->uploadFile(u"/local/index.html"_s, u"index.html"_s);
    engine.transporter->run();
    QCOMPARE(engine.transporter->runningProcessCount(), 1);
    QVERIFY(file->task());
    QTRY_COMPARE(engine.idle.count(), 1);

    const RecordingDelegate& delegate = engine.delegate;
    QCOMPARE(delegate.kinds(), kinds);
    QList<double> seen;
    for (const auto& message : delegate.of(u"percent"_s))
        seen.append(message.percent);
    QCOMPARE(seen, percents);
    for (const auto& message : delegate.messages) {
        if (message.file)
            QCOMPARE(message.file, file); // the same object every time
    }
    QCOMPARE(file->hasError(), !failText.isEmpty());
    if (!failText.isEmpty()) {
        QCOMPARE(delegate.of(u"fail"_s).first().text, failText);
        QVERIFY(engine.transporter->errorString()->contains(failText.mid(5, 6)));
    } else {
        QCOMPARE(engine.transporter->errorString(), QString());
    }
    QCOMPARE(delegate.of(u"all"_s).value(0, delegate.of(u"allWithErrors"_s).value(0)).text, u"upload"_s);
    QVERIFY(engine.transporter->connectionPool().isEmpty());
    QCOMPARE(file->task(), nullptr);
}

// An empty single run says nothing; an empty batch run (a deploy with
// nothing to do) ends at once.
void TestTransporter::emptyRuns() {
    Engine engine;
    engine.transporter->setTag(u"deploy"_s);
    engine.transporter->run();
    QVERIFY(engine.delegate.messages.isEmpty());
    engine.transporter->runMulti();
    QCOMPARE(engine.delegate.kinds(), QStringList{u"all"_s});
    QCOMPARE(engine.delegate.messages.first().text, u"deploy"_s);
    QCOMPARE(m_fake->invocationCount(), 0);
}

// A curl error in a batch upload aborts the whole run: no later batch, no
// completion message. It does so wherever it comes: after the count has run
// past the group (with a delete queued too, the chunks are counted against
// the delete batch, built last), and in pieces that no read holds whole.
void TestTransporter::batchUploadErrorAbortsTheRun() {
    QVERIFY(m_fake->setScript(1, uR"(
        err 226-File successfully transferred\n
        err curl: (25) Failed FTP upload: 553\n
        pause 200
        exit 25
    )"_s));
    Engine engine;
    Transporter& transporter = *engine.transporter;
    const auto& messages = engine.delegate.messages;
    engine.uploads(3);
    const TransporterFilePtr old = transporter.deleteFile(u"old.txt"_s);
    transporter.runMulti();
    QTRY_COMPARE(engine.idle.count(), 1);
    QCOMPARE(m_fake->invocationCount(), 1); // the delete batch never starts
    QVERIFY(m_fake->wasTerminated(1));
    QVERIFY(transporter.isTerminating());
    QCOMPARE(engine.delegate.kinds(), (QStringList{u"complete"_s, u"fail"_s}));
    QCOMPARE(messages[0].file, old);
    QCOMPARE(messages[1].file, old);
    QCOMPARE(messages[1].text, u"(25) Failed FTP upload: 553"_s);
    QVERIFY(old->hasError());
    QCOMPARE(transporter.errorString(), u"curl: (25) Failed FTP upload: 553\n"_s);

    // Found once curl has ended, and the run still fails instead of completing.
    QVERIFY(m_fake->setScript(2, uR"(
        err 226-File successfully transferred\n
        err c
        pause 30
        err u
        pause 30
        err rl: (
        pause 30
        err 25) Failed FTP
        pause 30
        err  upload: 553\n
        exit 25
    )"_s));
    engine.delegate.messages.clear();
    engine.uploads(2);
    transporter.runMulti();
    QTRY_COMPARE(engine.idle.count(), 2);
    QCOMPARE(engine.delegate.kinds().last(), u"fail"_s);
    QCOMPARE(messages.last().text, u"(25) Failed FTP upload: 553"_s);
    QCOMPARE(transporter.errorString(), u"curl: (25) Failed FTP upload: 553\n"_s);
}

// The counter moves on only with a delete that worked; a refused delete
// still completes, is noted on its item, and the run succeeds.
void TestTransporter::batchDeleteParser() {
    QVERIFY(m_fake->setScript(uR"(
        err < 250 Deleted htdocs/a.css\n
        err \xff\n
        err < 550 Could not delete htdocs/b.css: No such file or directory\n
        err { [12 bytes data]\n
        err curl: (78) The file does not exist\n
        exit 78
    )"_s));
    Engine engine;
    QList<TransporterFilePtr> files;
    for (const QString& name : {u"a.css"_s, u"b.css"_s, u"c.css"_s})
        files.append(engine.transporter->deleteFile(name));
    engine.transporter->runMulti();
    QTRY_COMPARE(engine.idle.count(), 1);
    const auto& messages = engine.delegate.messages;
    QCOMPARE(engine.delegate.kinds(),
             (QStringList{u"complete"_s, u"complete"_s, u"complete"_s, u"complete"_s, u"all"_s}));
    QCOMPARE(messages[0].file, files[0]);
    QCOMPARE(messages[1].file, files[1]); // refused
    QCOMPARE(messages[2].file, files[1]); // then "bytes data]" for the same item
    QCOMPARE(messages[3].file, files[2]); // refused by curl
    QVERIFY(!files[0]->hasError());
    QVERIFY(files[1]->hasError());
    QVERIFY(files[2]->hasError());
    QCOMPARE(engine.transporter->errorString(), u"Failed deleting c.css. File does not exist on server? "_s);
}

// 501 uploads and 201 deletes: four curl runs, one after another, uploads
// first. Chunks are attributed to the items
// of the batch built last.
void TestTransporter::batchGroupsAndAttribution() {
    QVERIFY(m_fake->setScript(1, u"err 226-File successfully transferred\\n"_s));
    Engine engine;
    Transporter& transporter = *engine.transporter;
    engine.uploads(501);
    for (int i = 0; i < 201; ++i)
        transporter.deleteFile(u"d%1"_s.arg(i));
    transporter.runMulti();
    QVERIFY(transporter.queue().isEmpty());
    QCOMPARE(transporter.queueMultiCount(), 4);
    QCOMPARE(transporter.runningProcessCount(), 1);
    QTRY_COMPARE(engine.idle.count(), 1);
    QCOMPARE(m_fake->invocationCount(), 4);

    const QList<int> uploads{500, 1, 0, 0};
    const QList<int> deletes{0, 0, 200, 1};
    for (int run = 1; run <= 4; ++run) {
        const QStringList arguments = m_fake->arguments(run);
        QCOMPARE(arguments.count(u"-T"_s), uploads[run - 1]);
        const auto deleteCount = std::count_if(arguments.cbegin(), arguments.cend(),
                                               [](const QString& a) { return a.startsWith(u"*DELE "_s); });
        QCOMPARE(deleteCount, deletes[run - 1]);
    }
    QCOMPARE(m_fake->arguments(2).at(1), u"/l/500.txt"_s);
    QCOMPARE(engine.delegate.kinds(), (QStringList{u"complete"_s, u"all"_s}));
    QCOMPARE(engine.delegate.messages.first().file->remotePath(), u"d200"_s);
}

// Debug mode adds "-vvv" and logs the command line, its password masked.
void TestTransporter::debugLogHidesThePassword() {
    Preferences::instance().setBool(u"debugEnabled"_s, true);
    Engine engine;
    engine.transporter->uploadFile(u"/repo/a"_s, u"a"_s);
    engine.transporter->run();
    QTRY_COMPARE(engine.idle.count(), 1);
    QCOMPARE(m_fake->arguments(1).last(), u"-vvv"_s);
    QFile log(Logger::sharedInstance().logFilePath());
    QVERIFY(log.open(QIODevice::ReadOnly));
    const QByteArray text = log.readAll();
    QVERIFY(
        text.contains("----- CONNECTION STRING -----\n-T /repo/a ftp://srv1:21/htdocs/a --user bob:xxxxxx "));
    QVERIFY(!text.contains("bob:pw"));
}

// An abort leaves no curl running and sends no completion.
void TestTransporter::abortSingleMode() {
    QVERIFY(m_fake->setScript(u"err   10.0%\\r\nwait"_s));
    Engine engine;
    Transporter& transporter = *engine.transporter;
    transporter.uploadFile(u"/l/a"_s, u"a"_s);
    transporter.deleteFile(u"b"_s);
    transporter.uploadFile(u"/l/c"_s, u"c"_s);
    transporter.setMaxSimultaneousConnectinos(2);
    transporter.run();
    QTRY_COMPARE(engine.delegate.count(u"percent"_s), 4); // 0 and 10 for each
    transporter.terminateAllTasks();
    QVERIFY(transporter.queue().isEmpty());
    QTRY_COMPARE(engine.idle.count(), 1);
    QCOMPARE(transporter.runningProcessCount(), 0);
    QVERIFY(m_fake->wasTerminated(1));
    QVERIFY(m_fake->wasTerminated(2));
    QCOMPARE(m_fake->invocationCount(), 2);
    QCOMPARE(engine.delegate.kinds(), (QStringList{u"percent"_s, u"percent"_s, u"percent"_s, u"percent"_s}));
    QVERIFY(transporter.connectionPool().isEmpty());
}

// A curl that cannot be started: the item fails with a text that says why.
void TestTransporter::missingCurl() {
    QTemporaryDir empty;
    ToolPaths::setToolsDirectory(empty.path());
    Engine engine;
    const auto& messages = engine.delegate.messages;
    const TransporterFilePtr file = engine.transporter->uploadFile(u"/l/a"_s, u"a"_s);
    engine.transporter->run();
    QTRY_COMPARE(engine.idle.count(), 1);
    QCOMPARE(engine.delegate.kinds(), (QStringList{u"percent"_s, u"fail"_s, u"allWithErrors"_s}));
    QVERIFY2(messages[1].text.startsWith(u"Could not start curl at "_s + empty.path()),
             qPrintable(messages[1].text));
    QVERIFY(file->hasError());
}

// A transporter let go of by its delegate in the middle of a message.
void TestTransporter::releasedDuringAMessage() {
    QVERIFY(m_fake->setScript(u"err curl: (7) Failed to connect\\n\nexit 7"_s));
    auto transporter =
        std::make_shared<Transporter>(std::make_shared<TransporterFTPConnection>(ftpSite(), u"pw"_s));
    struct Dropper : RecordingDelegate {
        std::shared_ptr<Transporter>* owner = nullptr;
        void didFail(const TransporterFilePtr& file, const QString& error) override {
            RecordingDelegate::didFail(file, error);
            owner->reset(); // the engine must survive its own release here
        }
    } dropper;
    dropper.owner = &transporter;
    transporter->setDelegate(&dropper);
    transporter->uploadFile(u"/l/a"_s, u"a"_s);
    transporter->run();
    QTRY_VERIFY(!transporter);
    QCOMPARE(dropper.kinds(), (QStringList{u"percent"_s, u"fail"_s, u"allWithErrors"_s}));
    QTRY_COMPARE(m_fake->invocationCount(), 1);
}

} // namespace tw::test

QTEST_GUILESS_MAIN(tw::test::TestTransporter)
#include "tst_transporter.moc"
