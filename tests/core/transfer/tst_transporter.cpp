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
#include <QSet>
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

// curl's "-v" trace of one upload that went well, as one line of a script.
QString sent(const QString& name) {
    return u"> STOR "_s + name +
           u"\\r\\n< 150 Accepted data connection\\r\\n\\r###### 100.0%* Remembering we are in dir\\n"
           u"< 226-File successfully transferred\\r\\n* Connection #0 to host srv1 left intact\\n\\n"_s;
}

QString sentMany(int first, int count) {
    QString text = u"err "_s;
    for (int i = first; i < first + count; ++i)
        text += sent(u"%1.txt"_s.arg(i));
    return text;
}

} // namespace

class TestTransporter : public QObject {
    Q_OBJECT

private slots:
    void initTestCase() { TestEnvironment::isolate(); }
    void init() {
        TestEnvironment::resetPreferences();
        freshFake();
        QVERIFY(m_fake->isValid());
    }

    void cleanup() {
        ToolPaths::setToolsDirectory(std::nullopt);
        m_fake.reset();
    }

    void singleErrorCapture_data() {
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
        // Lines, not reads: an error line cut in two is reported whole.
        QTest::newRow("error split over two reads")
            << u"err curl: (67) Access\nerr  denied: 530\\n\nexit 67"_s << failure << QList<double>{0}
            << u"(67) Access denied: 530"_s;
        // A server's reply that is not UTF-8 in the same read as the error line
        // does not hide it.
        QTest::newRow("Latin-1 beside the error")
            << u"err < 553 Fichier refus\\xe9\\n\\rcurl: (25) Failed FTP upload: 553\\n\nexit 25"_s << failure
            << QList<double>{0} << u"(25) Failed FTP upload: 553"_s;
        // curl's failure lines without a number are failures too.
        QTest::newRow("cannot open") << u"err curl: cannot open '/local/index.html'\\n\nexit 26"_s << failure
                                     << QList<double>{0} << u"cannot open '/local/index.html'"_s;
        // curl's refusals of its own command line: each line is a failure by
        // itself, whatever the exit status says.
        QTest::newRow("option")
            << u"err curl: option --pass: blank argument where content is expected\\n\nexit 0"_s << failure
            << QList<double>{0} << u"option --pass: blank argument where content is expected"_s;
        QTest::newRow("try") << u"err curl: try 'curl --help' for more information\\n\nexit 0"_s << failure
                             << QList<double>{0} << u"try 'curl --help' for more information"_s;
        // curl 8.14 writes its error line a byte at a time: when no read holds
        // the whole marker, the error is found once curl has ended.
        QTest::newRow("error line in pieces")
            << u"err c\nerr u\nerr rl: (\nerr 78) The file\nerr  does not exist\\n\nexit 78"_s << failure
            << QList<double>{0} << u"(78) The file does not exist"_s;
        // An exit status alone is no success.
        QTest::newRow("exit status alone")
            << u"exit 55"_s << failure << QList<double>{0} << u"curl ended with exit status 55"_s;
        QTest::newRow("killed") << u"signal 9"_s << failure << QList<double>{0}
                                << u"curl was stopped by a signal before it had done its work"_s;
        QTest::newRow("success") << u"exit 0"_s << success << QList<double>{0} << QString();
    }

    void singleErrorCapture() {
        QFETCH(QString, script);
        QFETCH(QStringList, kinds);
        QFETCH(QList<double>, percents);
        QFETCH(QString, failText);
        QVERIFY(m_fake->setScript(script));

        Engine engine;
        const TransporterFilePtr file =
            engine.transporter->uploadFile(u"/local/index.html"_s, u"index.html"_s);
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
            QVERIFY(!delegate.of(u"fail"_s).first().text.contains(u'\n'));
        } else {
            QCOMPARE(engine.transporter->errorString(), QString());
        }
        QCOMPARE(delegate.of(u"all"_s).value(0, delegate.of(u"allWithErrors"_s).value(0)).text, u"upload"_s);
        QVERIFY(engine.transporter->connectionPool().isEmpty());
        QCOMPARE(file->task(), nullptr);
    }

    // An empty single run says nothing; an empty batch run (a deploy with
    // nothing to do) ends at once.
    void emptyRuns() {
        Engine engine;
        engine.transporter->setTag(u"deploy"_s);
        engine.transporter->run();
        QVERIFY(engine.delegate.messages.isEmpty());
        engine.transporter->runMulti();
        QCOMPARE(engine.delegate.kinds(), QStringList{u"all"_s});
        QCOMPARE(engine.delegate.messages.first().text, u"deploy"_s);
        QCOMPARE(m_fake->invocationCount(), 0);
    }

    // A batch upload is read line by line, whatever the reads hold: every file
    // completes once, in order, and a failure is reported at the file it
    // concerns, with a Latin-1 reply in the same read not hiding it. The failure
    // ends the run: no later batch, no completion message.
    void batchUploadReadsLines() {
        QVERIFY(m_fake->setScript(
            1, u"err "_s + sent(u"0.txt"_s) + u"> STOR 1.txt\\r\\n"_s + u"\n"_s +
                   u"err < 553 Impossible d'\\xe9crire\\r\\n* Connection #0 to host srv1 left "
                   u"intact\\n\\xe9\\xe9\\ncurl: (25) Failed FTP upload: 553\\n\n"
                   u"pause 200\n"
                   u"exit 0"_s));
        Engine engine;
        Transporter& transporter = *engine.transporter;
        const QList<TransporterFilePtr> files = engine.uploads(3);
        transporter.deleteFile(u"old.txt"_s);
        transporter.runMulti();
        QTRY_COMPARE(engine.idle.count(), 1);
        QCOMPARE(m_fake->invocationCount(), 1); // the delete batch never starts
        QVERIFY(transporter.isTerminating());
        QCOMPARE(engine.delegate.of(u"complete"_s).size(), 1);
        QCOMPARE(engine.delegate.of(u"complete"_s).first().file, files[0]);
        QCOMPARE(engine.delegate.of(u"fail"_s).size(), 1);
        QCOMPARE(engine.delegate.of(u"fail"_s).first().file, files[1]);
        QCOMPARE(engine.delegate.of(u"fail"_s).first().text, u"(25) Failed FTP upload: 553"_s);
        QVERIFY(!files[1]->failureIsUnnamed()); // curl's lines name it
        QVERIFY(files[1]->hasError());
        QVERIFY(!files[0]->hasError());
        QCOMPARE(engine.delegate.count(u"all"_s) + engine.delegate.count(u"allWithErrors"_s), 0);

        // Every file of a run that went well completes exactly once, also when
        // one read holds many files and another cuts a line.
        QVERIFY(m_fake->setScript(2, sentMany(0, 3) + u"\nerr "_s + sent(u"3.txt"_s).left(30) + u"\nerr "_s +
                                         sent(u"3.txt"_s).mid(30) + u"\nexit 0"_s));
        engine.delegate.messages.clear();
        const QList<TransporterFilePtr> more = engine.uploads(4);
        transporter.runMulti();
        QTRY_COMPARE(engine.idle.count(), 2);
        QCOMPARE(engine.delegate.of(u"complete"_s).size(), 4);
        for (int i = 0; i < 4; ++i)
            QCOMPARE(engine.delegate.of(u"complete"_s).at(i).file, more[i]);
        QCOMPARE(engine.delegate.kinds().last(), u"all"_s);
    }

    // Deletions are quote commands: each reply, in order, settles the next file.
    // A refused delete still completes and is noted on its file; the run ends
    // well. A failed login fails it.
    void batchDeleteReplies() {
        QVERIFY(m_fake->setScript(1, uR"(
            err > DELE htdocs/a.css\r\n< 250 Deleted htdocs/a.css\r\n
            err > DELE htdocs/b.css\r\n< 550 Could not delete htdocs/b.css: No such file or directory\r\n
            err > DELE htdocs/c.css\r\n< 250 Deleted htdocs/c.css\r\n> RMD htdocs/x\r\n< 550 Not empty\r\n
            exit 0
        )"_s));
        QVERIFY(m_fake->setScript(2, u"err curl: (67) Access denied: 530\\n\nexit 67"_s));
        Engine engine;
        QList<TransporterFilePtr> files;
        for (const QString& name : {u"a.css"_s, u"b.css"_s, u"c.css"_s})
            files.append(engine.transporter->deleteFile(name));
        engine.transporter->runMulti();
        QTRY_COMPARE(engine.idle.count(), 1);
        QCOMPARE(engine.delegate.kinds(),
                 (QStringList{u"complete"_s, u"complete"_s, u"complete"_s, u"all"_s}));
        for (int i = 0; i < 3; ++i)
            QCOMPARE(engine.delegate.messages[i].file, files[i]);
        QVERIFY(!files[0]->hasError());
        QVERIFY(files[1]->hasError());
        QCOMPARE(engine.transporter->errorString(),
                 u"Failed deleting b.css. File does not exist on server? "_s);

        engine.delegate.messages.clear();
        engine.transporter->deleteFile(u"d.css"_s);
        engine.transporter->runMulti();
        QTRY_COMPARE(engine.idle.count(), 2);
        QCOMPARE(engine.delegate.kinds(), QStringList{u"fail"_s});
        QCOMPARE(engine.delegate.messages.first().text, u"(67) Access denied: 530"_s);
        // The commands went in one go: curl's output cannot say which file.
        QVERIFY(engine.delegate.messages.first().file->failureIsUnnamed());
    }

    // With one connection: runs of 500 uploads, then of 200 deletes, one after
    // another, in queue order. With three: balanced runs, folder by folder, at
    // most three at once, at least 50 files each, the deletes after every upload.
    void batchRunsSequentialAndParallel() {
        {
            QVERIFY(m_fake->setScript(1, sentMany(0, 500)));
            QVERIFY(m_fake->setScript(2, sentMany(500, 1)));
            Engine engine;
            Transporter& transporter = *engine.transporter;
            transporter.setMaxSimultaneousConnectinos(1);
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
                QCOMPARE(arguments.first(), u"-q"_s);
                QCOMPARE(arguments.count(u"-T"_s), uploads[run - 1]);
                const auto deleteCount =
                    std::count_if(arguments.cbegin(), arguments.cend(),
                                  [](const QString& a) { return a.startsWith(u"*DELE "_s); });
                QCOMPARE(deleteCount, deletes[run - 1]);
            }
            QCOMPARE(m_fake->arguments(2).at(m_fake->arguments(2).indexOf(u"-T"_s) + 1), u"/l/500.txt"_s);
            QCOMPARE(engine.delegate.count(u"complete"_s), 501 + 201);
            QCOMPARE(engine.delegate.kinds().last(), u"all"_s);
        }
        {
            // 2,000 files in 20 folders: runs of 333 or 334, three at a time.
            // The fake sends no file: the first run to end fails, and stops the
            // others.
            freshFake();
            QVERIFY(m_fake->setScript(u"pause 100\nexit 0"_s));
            Engine engine;
            Transporter& transporter = *engine.transporter;
            transporter.setMaxSimultaneousConnectinos(3);
            for (int i = 0; i < 2000; ++i)
                transporter.uploadFile(u"/l/%1"_s.arg(i), u"f%1/%2.txt"_s.arg(i % 20).arg(i));
            transporter.deleteFile(u"gone.txt"_s);
            transporter.runMulti();
            QCOMPARE(transporter.runningProcessCount(), 3);
            QCOMPARE(transporter.queueMultiCount(), 7); // six upload runs and the delete run
            QTRY_COMPARE(engine.idle.count(), 1);
            QCOMPARE(m_fake->invocationCount(), 3);
            QStringList sizes;
            QSet<QString> folders;
            for (int run = 1; run <= m_fake->invocationCount(); ++run) {
                const QStringList arguments = m_fake->arguments(run);
                sizes.append(QString::number(arguments.count(u"-T"_s)));
                QSet<QString> own;
                for (const QString& argument : arguments) {
                    if (argument.startsWith(u"ftp://"_s))
                        own.insert(argument.section(u'/', -2, -2));
                }
                folders.unite(own);
                QVERIFY(own.size() <= 5); // whole folders, rarely split
            }
            sizes.sort(); // the three start at once, in any order on a busy machine
            QCOMPARE(sizes, (QStringList{u"333"_s, u"334"_s, u"334"_s}));
            QCOMPARE(engine.delegate.count(u"fail"_s), 1);
            QCOMPARE(engine.delegate.count(u"all"_s) + engine.delegate.count(u"allWithErrors"_s), 0);
        }
        {
            // No run below 50 files: 120 files make two runs of 60, not three
            // of 40; 49 files one run.
            for (const auto& [count, sizes] :
                 {std::pair{120, QStringList{u"60"_s, u"60"_s}}, std::pair{49, QStringList{u"49"_s}}}) {
                freshFake();
                QVERIFY(m_fake->setScript(u"pause 100\nexit 0"_s));
                Engine engine;
                engine.transporter->setMaxSimultaneousConnectinos(3);
                engine.uploads(count);
                engine.transporter->runMulti();
                QCOMPARE(engine.transporter->runningProcessCount(), sizes.size());
                QTRY_COMPARE(engine.idle.count(), 1);
                QStringList seen;
                for (int run = 1; run <= m_fake->invocationCount(); ++run)
                    seen.append(QString::number(m_fake->arguments(run).count(u"-T"_s)));
                QCOMPARE(seen, sizes);
            }
        }
    }

    // How a batch run fails: at the file curl's output names, or, when its
    // lines concern the whole run (curl refusing its own command line) or say
    // nothing at all, at the first file it had not finished, marked as not named.
    // An exit status or a signal alone is a failure. The files sent before
    // stand; nothing after the failure completes, and no completion follows.
    void batchFailures_data() {
        QTest::addColumn<bool>("upload");
        QTest::addColumn<QString>("script");
        QTest::addColumn<int>("completed"); // the first files of the run
        QTest::addColumn<int>("failed");
        QTest::addColumn<QString>("failText");
        QTest::addColumn<bool>("unnamed");

        const QString firstSent = sentMany(0, 1) + u"\nerr > STOR 1.txt\\r\\n\n"_s;
        QTest::newRow("option") << true
                                << u"err curl: option --pass: blank argument where content is expected\\n"
                                   u"curl: try 'curl --help' for more information\\n\nexit 2"_s
                                << 0 << 0 << u"option --pass: blank argument where content is expected"_s
                                << true;
        QTest::newRow("try alone") << true << u"err curl: try 'curl --help' for more information\\n\nexit 0"_s
                                   << 0 << 0 << u"try 'curl --help' for more information"_s << true;
        QTest::newRow("cannot open") << true
                                     << sentMany(0, 1) + u"\nerr curl: cannot open '/l/1.txt'\\n\nexit 26"_s
                                     << 1 << 1 << u"cannot open '/l/1.txt'"_s << false;
        QTest::newRow("exit status alone")
            << true << firstSent + u"exit 55"_s << 1 << 1
            << u"curl ended with exit status 55 before all files were sent"_s << false;
        QTest::newRow("no output, an exit status")
            << true << u"exit 7"_s << 0 << 0 << u"curl ended with exit status 7 before all files were sent"_s
            << false;
        QTest::newRow("killed") << true << firstSent + u"signal 9"_s << 1 << 1
                                << u"curl was stopped by a signal before all files were sent"_s << false;
        QTest::newRow("deletions, exit status alone")
            << false << u"err > DELE htdocs/0.txt\\r\\n< 250 Deleted htdocs/0.txt\\r\\n\nexit 56"_s << 1 << 1
            << u"curl ended with exit status 56 before all files were sent"_s << true;
    }

    void batchFailures() {
        QFETCH(bool, upload);
        QFETCH(QString, script);
        QFETCH(int, completed);
        QFETCH(int, failed);
        QFETCH(QString, failText);
        QFETCH(bool, unnamed);
        QVERIFY(m_fake->setScript(script));
        Engine engine;
        QList<TransporterFilePtr> files;
        if (upload) {
            files = engine.uploads(3);
        } else {
            for (int i = 0; i < 3; ++i)
                files.append(engine.transporter->deleteFile(u"%1.txt"_s.arg(i)));
        }
        engine.transporter->runMulti();
        QTRY_COMPARE(engine.idle.count(), 1);

        const RecordingDelegate& delegate = engine.delegate;
        QCOMPARE(delegate.count(u"complete"_s), completed);
        for (int i = 0; i < completed; ++i)
            QCOMPARE(delegate.of(u"complete"_s).at(i).file, files[i]);
        QCOMPARE(delegate.count(u"fail"_s), 1);
        QCOMPARE(delegate.kinds().last(), u"fail"_s);
        const auto failure = delegate.of(u"fail"_s).first();
        QCOMPARE(failure.file, files[failed]);
        QCOMPARE(failure.text, failText);
        QCOMPARE(failure.file->failureIsUnnamed(), unnamed);
        QVERIFY(failure.file->hasError());
        QVERIFY(engine.transporter->errorString()->contains(failText));
        QVERIFY(!delegate.ended());
    }

    // Debug mode adds "-vvv" and logs the command line, its password masked.
    void debugLogHidesThePassword() {
        Preferences::instance().setBool(u"debugEnabled"_s, true);
        Engine engine;
        engine.transporter->uploadFile(u"/repo/a"_s, u"a"_s);
        engine.transporter->run();
        QTRY_COMPARE(engine.idle.count(), 1);
        QCOMPARE(m_fake->arguments(1).last(), u"-vvv"_s);
        QFile log(Logger::sharedInstance().logFilePath());
        QVERIFY(log.open(QIODevice::ReadOnly));
        const QByteArray text = log.readAll();
        // The login is no part of the command line: curl reads it from its input.
        QVERIFY(text.contains("-T /repo/a ftp://srv1:21/htdocs/a -K - "));
        QVERIFY(!text.contains("bob:pw"));
    }

    // Once a batch run has failed, nothing more is reported: not the files
    // curl still sent after the failed one (it goes on with the next), in the
    // same read or later, nor what another run, stopped because of the failure,
    // still wrote.
    void nothingAfterAFailure() {
        QVERIFY(m_fake->setScript(1, sentMany(0, 1) +
                                         u"> STOR 1.txt\\r\\n< 553 Can't open that file\\r\\n"
                                         u"* Connection #0 to host srv1 left intact\\ncurl: (25) Failed FTP "
                                         u"upload: 553\\n"_s +
                                         sentMany(2, 2).mid(4) + u"\nexit 25"_s));
        {
            Engine engine;
            const QList<TransporterFilePtr> files = engine.uploads(4);
            engine.transporter->runMulti();
            QTRY_COMPARE(engine.idle.count(), 1);
            QCOMPARE(engine.delegate.kinds().last(), u"fail"_s);
            QCOMPARE(engine.delegate.messages.last().file, files[1]);
            QCOMPARE(engine.delegate.count(u"complete"_s), 1);
            QCOMPARE(engine.delegate.of(u"complete"_s).first().file, files[0]);
        }

        // Two runs at once: the first fails (after the second has started), the
        // second goes on writing after it was told to stop.
        freshFake();
        QVERIFY(m_fake->setScript(1, u"pause 500\nerr curl: (25) Failed FTP upload: 553\\n\nexit 25"_s));
        QVERIFY(
            m_fake->setScript(2, u"trap\nwait\nerr \\r###### 50.0%\n"_s + sentMany(0, 50) + u"\nexit 0"_s));
        Engine engine;
        engine.transporter->setMaxSimultaneousConnectinos(3);
        engine.uploads(100);
        engine.transporter->runMulti();
        QCOMPARE(engine.transporter->runningProcessCount(), 2);
        QTRY_COMPARE(engine.idle.count(), 1);
        QVERIFY(m_fake->wasTerminated(2));
        QCOMPARE(engine.delegate.kinds(), QStringList{u"fail"_s});
    }

    // An abort leaves no curl running and sends no completion; what a curl
    // still writes after it was told to stop is not reported.
    void abortSingleMode() {
        QVERIFY(m_fake->setScript(u"trap\nerr   10.0%\\r\nwait\nerr   50.0%\\r\nexit 0"_s));
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
        QCOMPARE(engine.delegate.kinds(),
                 (QStringList{u"percent"_s, u"percent"_s, u"percent"_s, u"percent"_s}));
        QVERIFY(transporter.connectionPool().isEmpty());
    }

    // A curl that said its error has failed its item, which leaves the pool,
    // yet it may still run (stuck closing its connection, say): an abort stops
    // it all the same.
    void abortStopsAFailedItemsCurl() {
        QVERIFY(m_fake->setScript(u"err curl: (7) Failed to connect\\n\nwait"_s));
        Engine engine;
        engine.transporter->uploadFile(u"/l/a"_s, u"a"_s);
        engine.transporter->run();
        QTRY_COMPARE(engine.delegate.count(u"allWithErrors"_s), 1);
        QCOMPARE(engine.transporter->runningProcessCount(), 1);
        engine.transporter->terminateAllTasks();
        QTRY_COMPARE(engine.idle.count(), 1);
        QVERIFY(m_fake->wasTerminated(1));
    }

    // A curl that cannot be started: the item fails with a text that says why.
    void missingCurl() {
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
    void releasedDuringAMessage() {
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

private:
    // A new fake curl, counting from 1, as the engine's curl.
    void freshFake() {
        m_fake = std::make_unique<FakeCurl>();
        ToolPaths::setToolsDirectory(m_fake->folder());
    }

    std::unique_ptr<FakeCurl> m_fake;
};

} // namespace tw::test

QTEST_GUILESS_MAIN(tw::test::TestTransporter)
#include "tst_transporter.moc"
