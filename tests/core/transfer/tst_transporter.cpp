// The transfer engine against the fake curl: how curl's output is read chunk
// by chunk in both modes, how runs fail, and aborts. Every scripted chunk
// reaches the engine through a read of its own.

#include "FakeCurl.h"
#include "ServerSites.h"
#include "TestEnvironment.h"
#include "app/ToolPaths.h"
#include "transfer/Transporter.h"
#include "transfer/TransporterFTPConnection.h"

#include <QSignalSpy>
#include <QTemporaryDir>
#include <QTest>

#include <memory>

using namespace Qt::StringLiterals;

namespace tw::test {

namespace {

std::shared_ptr<TransporterFTPConnection> fakeConnection() {
    return std::make_shared<TransporterFTPConnection>(siteFor(u"srv1"_s, 21, u"bob"_s, u"htdocs"_s), u"pw"_s);
}

struct FakeEngine : Engine {
    FakeEngine()
        : Engine(fakeConnection()) {}
    QList<TransporterFilePtr> uploads(int count) {
        QList<TransporterFilePtr> files;
        for (int i = 0; i < count; ++i)
            files.append(transporter->uploadFile(u"/l/%1.txt"_s.arg(i), u"%1.txt"_s.arg(i)));
        return files;
    }
};

// curl's "-v" trace of uploads that went well, as one line of a script.
QString sentMany(int first, int count) {
    QString text = u"err "_s;
    for (int i = first; i < first + count; ++i)
        text +=
            u"> STOR %1.txt\\r\\n< 150 Accepted data connection\\r\\n\\r###### 100.0%* Remembering we are "
            u"in dir\\n< 226-File successfully transferred\\r\\n* Connection #0 to host srv1 left intact\\n\\n"_s
                .arg(i);
    return text;
}

} // namespace

class TestTransporter : public QObject {
    Q_OBJECT

private slots:
    void initTestCase() { TestEnvironment::isolate(); }
    void init() {
        TestEnvironment::resetPreferences();
        m_fake = std::make_unique<FakeCurl>(); // counting from 1
        QVERIFY(m_fake->isValid());
        ToolPaths::setToolsDirectory(m_fake->folder());
    }
    void cleanup() {
        ToolPaths::setToolsDirectory(std::nullopt);
        m_fake.reset();
    }

    // How a run ends, in single mode (one curl per item) and in batch mode.
    // The error line is found however the reads cut it, beside bytes that
    // are not UTF-8, without a "(N)", or in curl's refusal of its command
    // line whatever the exit status; an exit status or a signal alone is a
    // failure too. A batch run fails at the file curl names, else at the
    // first one it had not finished, marked as not named; no completion
    // follows a failure.
    void outcome_data() {
        QTest::addColumn<bool>("batch");
        QTest::addColumn<QString>("script");
        QTest::addColumn<int>("failed");       // the files before it completed
        QTest::addColumn<QString>("failText"); // empty: success
        auto row = [](const char* name, bool batch, const QString& script, int failed, const QString& text) {
            QTest::newRow(name) << batch << script << failed << text;
        };
        row("meter, success", false, u"err   45.3%\\n\nexit 0"_s, 1, QString());
        row("error behind a meter frame", false,
            u"err \\r#=#=#     \nerr \\r#=#=#    curl: (78) The file does not exist\\n\nexit 78"_s, 0,
            u"(78) The file does not exist"_s);
        row("split over two reads", false, u"err curl: (67) Access\nerr  denied: 530\\n\nexit 67"_s, 0,
            u"(67) Access denied: 530"_s);
        row("a byte at a time", false,
            u"err c\nerr u\nerr rl: (\nerr 78) The file\nerr  does not exist\\n\nexit 78"_s, 0,
            u"(78) The file does not exist"_s);
        row("Latin-1 beside the error", false,
            u"err < 553 Fichier refus\\xe9\\n\\rcurl: (25) Failed FTP upload: 553\\n\nexit 25"_s, 0,
            u"(25) Failed FTP upload: 553"_s);
        row("no number", false, u"err curl: cannot open '/l/0.txt'\\n\nexit 26"_s, 0,
            u"cannot open '/l/0.txt'"_s);
        row("option, exit 0", false,
            u"err curl: option --pass: blank argument where content is expected\\n\nexit 0"_s, 0,
            u"option --pass: blank argument where content is expected"_s);
        row("exit status alone", false, u"exit 55"_s, 0, u"curl ended with exit status 55"_s);
        row("killed", false, u"signal 9"_s, 0, u"curl was stopped by a signal before it had done its work"_s);

        const QString firstSent = sentMany(0, 1) + u"\nerr > STOR 1.txt\\r\\n\n"_s;
        row("batch, option", true,
            u"err curl: option --pass: blank argument where content is expected\\n"
            u"curl: try 'curl --help' for more information\\n\nexit 2"_s,
            0, u"option --pass: blank argument where content is expected"_s);
        row("batch, no number", true, sentMany(0, 1) + u"\nerr curl: cannot open '/l/1.txt'\\n\nexit 26"_s, 1,
            u"cannot open '/l/1.txt'"_s);
        row("batch, exit status alone", true, firstSent + u"exit 55"_s, 1,
            u"curl ended with exit status 55 before all files were sent"_s);
        row("batch, killed", true, firstSent + u"signal 9"_s, 1,
            u"curl was stopped by a signal before all files were sent"_s);
    }

    void outcome() {
        QFETCH(bool, batch);
        QFETCH(QString, script);
        QFETCH(int, failed);
        QFETCH(QString, failText);
        QVERIFY(m_fake->setScript(script));
        FakeEngine engine;
        const QList<TransporterFilePtr> files = engine.uploads(batch ? 3 : 1);
        batch ? engine.transporter->runMulti() : engine.transporter->run();
        QTRY_COMPARE(engine.idle.count(), 1);
        const RecordingDelegate& delegate = engine.delegate;
        QCOMPARE(delegate.count(u"complete"_s), failed);
        for (int i = 0; i < failed; ++i)
            QCOMPARE(delegate.of(u"complete"_s).at(i).file, files[i]);
        if (failText.isEmpty()) {
            QCOMPARE(delegate.kinds().last(), u"all"_s);
            QCOMPARE(delegate.of(u"percent"_s).last().percent, 45.3);
            return;
        }
        QCOMPARE(delegate.count(u"fail"_s), 1);
        QCOMPARE(delegate.kinds().last(), batch ? u"fail"_s : u"allWithErrors"_s);
        const auto failure = delegate.of(u"fail"_s).first();
        QCOMPARE(failure.file, files[failed]);
        QCOMPARE(failure.text, failText);
        QVERIFY(failure.file->hasError());
        QCOMPARE(failure.file->failureIsUnnamed(), batch && failed == 0); // curl's refusal names no file
        QVERIFY(engine.transporter->errorString()->contains(failText.mid(5, 6)));
    }

    // A batch upload is read line by line, whatever the reads hold (the
    // real servers' tests add runs that go well). A failure is reported at
    // the file it concerns, a Latin-1 reply in the same read does not hide
    // it, and what curl still sends after it is not reported: no later file,
    // no later run, no completion.
    void batchUploadReadsLines() {
        QVERIFY(m_fake->setScript(
            1,
            sentMany(0, 1) +
                u"> STOR 1.txt\\r\\n\n"
                u"err < 553 Impossible d'\\xe9crire\\r\\n* Connection #0 to host srv1 left intact\\n\\xe9\\n"
                u"curl: (25) Failed FTP upload: 553\\n"_s +
                sentMany(2, 1).mid(4) + u"\npause 200\nexit 0"_s));
        FakeEngine engine;
        Transporter& transporter = *engine.transporter;
        const QList<TransporterFilePtr> files = engine.uploads(3);
        transporter.deleteFile(u"old.txt"_s);
        transporter.runMulti();
        QTRY_COMPARE(engine.idle.count(), 1);
        QCOMPARE(m_fake->invocationCount(), 1); // the delete batch never starts
        QCOMPARE(engine.delegate.kinds().last(), u"fail"_s);
        QCOMPARE(engine.delegate.of(u"complete"_s).size(), 1);
        QCOMPARE(engine.delegate.of(u"complete"_s).first().file, files[0]);
        QCOMPARE(engine.delegate.messages.last().file, files[1]);
        QCOMPARE(engine.delegate.messages.last().text, u"(25) Failed FTP upload: 553"_s);
        QVERIFY(!files[1]->failureIsUnnamed());
    }

    // Deletions are quote commands: each reply, in order, settles the next
    // file; a refused delete completes, noted on its file.
    void batchDeleteReplies() {
        QVERIFY(m_fake->setScript(1, uR"(
            err > DELE htdocs/a.css\r\n< 250 Deleted htdocs/a.css\r\n
            err > DELE htdocs/b.css\r\n< 550 Could not delete htdocs/b.css: No such file or directory\r\n
            err > DELE htdocs/c.css\r\n< 250 Deleted htdocs/c.css\r\n> RMD htdocs/x\r\n< 550 Not empty\r\n
        )"_s));
        FakeEngine engine;
        QList<TransporterFilePtr> files;
        for (const QString& name : {u"a.css"_s, u"b.css"_s, u"c.css"_s})
            files.append(engine.transporter->deleteFile(name));
        engine.transporter->runMulti();
        QTRY_COMPARE(engine.idle.count(), 1);
        QCOMPARE(engine.delegate.kinds(),
                 (QStringList{u"complete"_s, u"complete"_s, u"complete"_s, u"all"_s}));
        for (int i = 0; i < 3; ++i)
            QCOMPARE(engine.delegate.messages[i].file, files[i]);
        QVERIFY(!files[0]->hasError() && files[1]->hasError() && !files[2]->hasError());
    }

    // 2,000 files make six runs, three at once. The first fails; the others
    // are stopped, no later run starts, and what a stopped curl still writes
    // is not reported.
    void failureStopsTheOtherRuns() {
        QVERIFY(m_fake->setScript(1, u"pause 500\nerr curl: (25) Failed FTP upload: 553\\n\nexit 25"_s));
        QVERIFY(m_fake->setScript(u"trap\nwait\nerr \\r###### 50.0%\n"_s + sentMany(0, 50) + u"\nexit 0"_s));
        FakeEngine engine;
        engine.transporter->setMaxSimultaneousConnectinos(3);
        engine.uploads(2000);
        engine.transporter->runMulti();
        QCOMPARE(engine.transporter->runningProcessCount(), 3);
        QTRY_COMPARE(engine.idle.count(), 1);
        QCOMPARE(m_fake->invocationCount(), 3);
        QVERIFY(m_fake->wasTerminated(2) && m_fake->wasTerminated(3));
        QCOMPARE(engine.delegate.kinds(), QStringList{u"fail"_s});
    }

    // An abort of two single runs, one a curl that has said its error (its
    // item failed and left the pool, yet the curl still runs, stuck closing
    // its connection), leaves no curl and sends no completion; what a curl
    // still writes after it was told to stop is not reported.
    void abortSingleMode() {
        QVERIFY(m_fake->setScript(1, u"trap\nerr   10.0%\\r\nwait\nerr   50.0%\\r\nexit 0"_s));
        QVERIFY(m_fake->setScript(2, u"err curl: (7) Failed to connect\\n\nwait"_s));
        FakeEngine engine;
        engine.uploads(2);
        engine.transporter->setMaxSimultaneousConnectinos(2);
        engine.transporter->run();
        QTRY_COMPARE(engine.delegate.count(u"percent"_s) + engine.delegate.count(u"fail"_s), 4);
        QCOMPARE(engine.transporter->runningProcessCount(), 2);
        engine.transporter->terminateAllTasks();
        QTRY_COMPARE(engine.idle.count(), 1);
        QCOMPARE(engine.transporter->runningProcessCount(), 0);
        QVERIFY(m_fake->wasTerminated(1) && m_fake->wasTerminated(2));
        QCOMPARE(engine.delegate.messages.size(), 4);
    }

    // A curl that cannot be started fails its item, saying why; an empty
    // batch run (a deploy with nothing to do) ends at once.
    void missingCurlAndEmptyRun() {
        QTemporaryDir empty;
        ToolPaths::setToolsDirectory(empty.path());
        FakeEngine engine;
        engine.uploads(1);
        engine.transporter->run();
        QTRY_COMPARE(engine.idle.count(), 1);
        QCOMPARE(engine.delegate.kinds(), (QStringList{u"percent"_s, u"fail"_s, u"allWithErrors"_s}));
        QVERIFY(engine.delegate.messages[1].text.startsWith(u"Could not start curl at "_s + empty.path()));

        FakeEngine idle;
        idle.transporter->runMulti();
        QCOMPARE(idle.delegate.kinds(), QStringList{u"all"_s});
    }

    // A transporter let go of by its delegate in the middle of a message.
    void releasedDuringAMessage() {
        QVERIFY(m_fake->setScript(u"err curl: (7) Failed to connect\\n\nexit 7"_s));
        auto transporter = std::make_shared<Transporter>(fakeConnection());
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
    }

private:
    std::unique_ptr<FakeCurl> m_fake;
};

} // namespace tw::test

QTEST_GUILESS_MAIN(tw::test::TestTransporter)
#include "tst_transporter.moc"
