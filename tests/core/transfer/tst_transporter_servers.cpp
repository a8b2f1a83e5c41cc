// The transfer engine with the application's own curl against real servers
// on loopback, used as the application uses it: batch runs upload and delete
// over every transport, single runs upload and read, and the results are
// checked on the servers' disks.
//
// What the batch runs report on a real run: curl's "-v" trace is read line
// by line, so every file of a run that went well completes exactly once, in
// order, and a failure is reported at the file it concerns; the tests check
// the servers' disks as well.

#include "ServerSites.h"
#include "TestEnvironment.h"
#include "Traces.h"
#include "app/Logger.h"
#include "app/Preferences.h"

#include <QScopeGuard>
#include <QSet>

using namespace Qt::StringLiterals;

namespace tw::test {

namespace {

// Names that curl would refuse or cut in a raw URL, and one beyond ASCII.
const QStringList oddNames{u"a b#c%d.txt"_s, u"semi;type=a.txt"_s, u"what?.txt"_s, u"ü.txt"_s};

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

    void cleanup() { QCOMPARE(curlDescendants(), QList<qint64>()); } // no curl left behind
    void singleMode_data() { addTransports(); }
    // One curl per item, as the deployment record and the connection test use
    // it: uploads (odd names, nested folders), a read, and a read of what is not
    // there.
    void singleMode() {
        QFETCH(Transport, transport);
        const QString folder = u"single-%1"_s.arg(int(transport));
        const QString remote = remoteRoot(transport) + u'/' + folder;
        Engine engine(transporter(transport, folder));
        RecordingDelegate& delegate = engine.delegate;

        QStringList names = oddNames;
        names << u"css/site.css"_s << u"deep/er/x.js"_s;
        for (const QString& name : names)
            engine->uploadFile(m_local.write(folder + u'/' + name, "content of " + name.toUtf8()), name);
        // Single FTP uploads cannot make folders ("--ftp-method nocwd" turns
        // "--ftp-create-dirs" off): the site's folders exist already here.
        if (transport != Transport::Sftp) {
            QVERIFY(m_ftp->writeFile(folder + u"/css/.keep"_s, QByteArray()));
            QVERIFY(m_ftp->writeFile(folder + u"/deep/er/.keep"_s, QByteArray()));
        }
        QVERIFY(runSingle(engine));
        QCOMPARE(delegate.count(u"fail"_s), 0);
        QCOMPARE(delegate.count(u"complete"_s), names.size());
        // Two runs of at most three; the first leaves items queued, so only the
        // second reports the end of all work.
        QCOMPARE(delegate.count(u"all"_s), 1);
        for (const QString& name : names)
            QCOMPARE(contentOf(remote + u'/' + name), "content of " + name.toUtf8());

        delegate.messages.clear();
        engine->readFile(u"css/site.css"_s);
        QVERIFY(runSingle(engine));
        QCOMPARE(delegate.of(u"reading"_s).value(0).text, u"content of css/site.css"_s);

        delegate.messages.clear();
        engine->readFile(u"missing.txt"_s);
        QVERIFY(runSingle(engine));
        QCOMPARE(delegate.kinds(), (QStringList{u"percent"_s, u"fail"_s, u"allWithErrors"_s}));
        const QString expected =
            transport == Transport::Sftp
                ? u"(78) Could not open remote file for reading: No such file or directory"_s
                : u"(78) The file does not exist"_s;
        QCOMPARE(delegate.of(u"fail"_s).first().text, expected);
    }

    void batchMode_data() { addTransports(); }
    // Runs of uploads, one and three at a time, then deletes that take the
    // emptied folders along. Every file completes exactly once.
    void batchMode() {
        QFETCH(Transport, transport);
        const QString folder = u"batch-%1"_s.arg(int(transport));
        const QString remote = remoteRoot(transport) + u'/' + folder;
        Engine engine(transporter(transport, folder));
        RecordingDelegate& delegate = engine.delegate;

        QStringList names = oddNames;
        for (int i = 0; i < 520; ++i)
            names << u"f%1/file-%2.txt"_s.arg(i % 7).arg(i);
        for (const QString& name : names)
            engine->uploadFile(m_local.write(folder + u'/' + name, name.toUtf8()), name);
        QVERIFY(engine.runBatch());
        QCOMPARE(delegate.kinds().last(), u"all"_s);
        QCOMPARE(delegate.count(u"fail"_s), 0);
        QCOMPARE(delegate.count(u"complete"_s), names.size());
        QSet<TransporterFile*> completed;
        for (const auto& message : delegate.of(u"complete"_s))
            completed.insert(message.file.get());
        QCOMPARE(completed.size(), names.size());
        for (const QString& name : names)
            QCOMPARE(contentOf(remote + u'/' + name), name.toUtf8());

        // Delete all of f0 (its folder goes too), one file of f1, the odd names.
        delegate.messages.clear();
        QStringList deleted = oddNames + names.filter(u"f0/"_s);
        deleted << u"f1/file-1.txt"_s;
        for (const QString& name : deleted)
            engine->deleteFile(name);
        QVERIFY(engine.runBatch());
        QCOMPARE(delegate.kinds().last(), u"all"_s);
        QCOMPARE(delegate.count(u"complete"_s), deleted.size());
        for (const QString& name : deleted)
            QVERIFY2(!QFileInfo::exists(remote + u'/' + name), qPrintable(name));
        QVERIFY(!QFileInfo::exists(remote + u"/f0"_s));
        QVERIFY(QFileInfo::exists(remote + u"/f1/file-8.txt"_s));
        QVERIFY(QFileInfo::exists(remote + u"/f2"_s));
    }

    void fileFolderSwap_data() {
        QTest::addColumn<Transport>("transport");
        QTest::addColumn<int>("connections");
        QTest::newRow("FTP") << Transport::Passive << 3;
        QTest::newRow("FTP, one connection") << Transport::Passive << 1;
        QTest::newRow("SFTP") << Transport::Sftp << 3;
    }

    // A commit that turns a file into a folder of the same name, and a folder
    // into a file: one run with the deletions and the uploads, queued in any
    // order, leaves the new forms on the server.
    void fileFolderSwap() {
        QFETCH(Transport, transport);
        QFETCH(int, connections);
        const QString folder = u"swap-%1-%2"_s.arg(int(transport)).arg(connections);
        const QString remote = remoteRoot(transport) + u'/' + folder;
        Engine engine(transporter(transport, folder));
        engine->setMaxSimultaneousConnectinos(connections);
        RecordingDelegate& delegate = engine.delegate;
        const QString local = folder + u"/before/"_s;
        for (const QString& name :
             {u"a"_s, u"b/x.txt"_s, u"b/y/z.txt"_s, u"d/e/f.txt"_s, u"g"_s, u"keep.txt"_s})
            engine->uploadFile(m_local.write(local + name, "old " + name.toUtf8()), name);
        QVERIFY(engine.runBatch());
        QCOMPARE(delegate.kinds().last(), u"all"_s);
        QVERIFY(QFileInfo(remote + u"/a"_s).isFile());
        QVERIFY(QFileInfo(remote + u"/b/y"_s).isDir());

        delegate.messages.clear();
        const QString after = folder + u"/after/"_s;
        engine->uploadFile(m_local.write(after + u"a/index.html"_s, "new a/index.html"), u"a/index.html"_s);
        engine->deleteFile(u"a"_s);
        engine->deleteFile(u"b/x.txt"_s);
        engine->uploadFile(m_local.write(after + u"b"_s, "new b"), u"b"_s);
        engine->deleteFile(u"b/y/z.txt"_s);
        engine->uploadFile(m_local.write(after + u"c.txt"_s, "new c.txt"), u"c.txt"_s);
        // Deeper: d/e/f.txt becomes d, g becomes g/h/i.txt.
        engine->deleteFile(u"d/e/f.txt"_s);
        engine->uploadFile(m_local.write(after + u"d"_s, "new d"), u"d"_s);
        engine->uploadFile(m_local.write(after + u"g/h/i.txt"_s, "new g/h/i.txt"), u"g/h/i.txt"_s);
        engine->deleteFile(u"g"_s);
        QVERIFY(engine.runBatch());
        QVERIFY2(delegate.kinds().last() == u"all"_s, qPrintable(delegate.of(u"fail"_s).value(0).text));
        QCOMPARE(delegate.count(u"complete"_s), 10);
        QCOMPARE(tree(remote),
                 (QStringList{u"a/index.html"_s, u"b"_s, u"c.txt"_s, u"d"_s, u"g/h/i.txt"_s, u"keep.txt"_s}));
        QCOMPARE(contentOf(remote + u"/a/index.html"_s), "new a/index.html");
        QCOMPARE(contentOf(remote + u"/b"_s), "new b");
        QCOMPARE(contentOf(remote + u"/keep.txt"_s), "old keep.txt");
    }

    // The sync root's text leaves the remote path: web/css/site.css lands as
    // css/site.css. With debug logging on, curl's trace of the login reaches
    // the log without the password.
    void syncRoot() {
        Preferences::instance().setBool(u"debugEnabled"_s, true);
        const auto debugOff = qScopeGuard([] { Preferences::instance().setBool(u"debugEnabled"_s, false); });
        Engine engine(transporter(Transport::Passive, u"synced"_s));
        engine->connection()->getSite()->syncRootPath = u"web"_s;
        engine->uploadFile(m_local.write(u"repo/web/css/site.css"_s, "synced"), u"web/css/site.css"_s);
        engine->uploadFile(m_local.write(u"repo/web/index.html"_s, "index"), u"web/index.html"_s);
        QVERIFY(engine.runBatch());
        QCOMPARE(contentOf(m_ftp->homeFolder() + u"/synced/css/site.css"_s), "synced");
        QCOMPARE(contentOf(m_ftp->homeFolder() + u"/synced/index.html"_s), "index");
        QVERIFY(!QFileInfo::exists(m_ftp->homeFolder() + u"/synced/web"_s));
        const QByteArray log = contentOf(Logger::sharedInstance().logFilePath());
        QVERIFY(log.contains("PASS xxxxxx"));
        QVERIFY(!log.contains(FtpServer::password().toUtf8()));
    }

    // A refused login is reported, over SFTP in single mode and over FTP in
    // batch mode (the connection test covers single FTP). In a batch run
    // curl's meter animates while the server takes its seconds to refuse, every
    // frame a chunk, so the count has run past the batch when the error comes:
    // the error counts all the same.
    void wrongCredentials() {
        Engine batch(transporter(Transport::Passive, u"denied"_s, u"wrong"_s));
        Engine sftp(transporter(Transport::Sftp, u"denied"_s, u"wrong pass phrase"_s));
        const QString file = m_local.write(u"denied.txt"_s, "x");
        batch->uploadFile(file, u"denied.txt"_s);
        sftp->uploadFile(file, u"denied.txt"_s);

        // The FTP server takes its time with a wrong password: run the two at once.
        QSignalSpy batchIdle(batch.transporter.get(), &Transporter::becameIdle);
        QSignalSpy sftpIdle(sftp.transporter.get(), &Transporter::becameIdle);
        batch->runMulti();
        sftp->run();
        QTRY_VERIFY_WITH_TIMEOUT(batchIdle.count() && sftpIdle.count(), 30000);

        QCOMPARE(sftp.delegate.kinds(), (QStringList{u"percent"_s, u"fail"_s, u"allWithErrors"_s}));
        QCOMPARE(sftp.delegate.messages[1].text, u"(67) Authentication failure"_s);
        // The batch run reports it too, however many reads the server's delay
        // cut curl's output into.
        QCOMPARE(batch.delegate.kinds().last(), u"fail"_s);
        QCOMPARE(batch.delegate.messages.last().text, u"(67) Access denied: 530"_s);
        QVERIFY(!QFileInfo::exists(m_ftp->homeFolder() + u"/denied/denied.txt"_s));
        QVERIFY(!QFileInfo::exists(m_ssh->remoteFolder() + u"/denied/denied.txt"_s));
    }

    // An abort while the first wave of runs is under way (three at once, the
    // default number of connections): no curl is left, nothing runs afterwards,
    // no completion arrives, and the server has only part of the files.
    void abortInTheMiddleOfABatch() {
        Engine engine(transporter(Transport::Sftp, u"aborted"_s));
        for (int i = 0; i < 1200; ++i) {
            const QString name = u"file-%1.txt"_s.arg(i);
            engine->uploadFile(m_local.write(u"aborted/"_s + name, QByteArray(1024, 'x')), name);
        }
        QSignalSpy idle(engine.transporter.get(), &Transporter::becameIdle);
        engine->runMulti();
        const QString remote = m_ssh->remoteFolder() + u"/aborted"_s;
        QTRY_VERIFY_WITH_TIMEOUT(QDir(remote).entryList(QDir::Files).size() >= 20, 30000);
        engine->terminateAllTasks();
        QTRY_COMPARE(idle.count(), 1);
        QCOMPARE(engine->runningProcessCount(), 0);
        QCOMPARE(curlDescendants(), QList<qint64>());
        const qsizetype landed = QDir(remote).entryList(QDir::Files).size();
        QVERIFY2(landed < 500, qPrintable(QString::number(landed)));
        QVERIFY(!engine.delegate.ended());
        QVERIFY(!QFileInfo::exists(remote + u"/file-1199.txt"_s));
    }

    // Three runs at once, one of them into a folder the server refuses: the
    // failure names a file of that folder, the other runs are stopped (a failed
    // deployment writes no record, so nothing is gained by finishing them), no
    // completion message follows and no curl is left.
    void failureInOneOfSeveralRuns() {
        QVERIFY(m_ftp->makeUnwritable(u"several/b"_s));
        Engine engine(transporter(Transport::Passive, u"several"_s));
        engine->setMaxSimultaneousConnectinos(3);
        RecordingDelegate& delegate = engine.delegate;
        QStringList names;
        for (const QString& folder : {u"a"_s, u"b"_s, u"c"_s}) {
            for (int i = 0; i < 100; ++i)
                names << folder + u"/file-%1.txt"_s.arg(i);
        }
        for (const QString& name : std::as_const(names))
            engine->uploadFile(m_local.write(u"several/"_s + name, name.toUtf8()), name);
        QVERIFY(engine.runBatch());
        QCOMPARE(delegate.count(u"fail"_s), 1);
        const auto failure = delegate.of(u"fail"_s).first();
        QVERIFY2(failure.file->remotePath().startsWith(u"b/"_s), qPrintable(failure.file->remotePath()));
        QVERIFY2(failure.text.startsWith(u"(25)"_s), qPrintable(failure.text));
        QVERIFY(!delegate.ended());
        QCOMPARE(engine->runningProcessCount(), 0);
        QCOMPARE(curlDescendants(), QList<qint64>());
        QCOMPARE(QDir(m_ftp->homeFolder() + u"/several/b"_s).entryList(QDir::Files).size(), 0);
    }

private:
    void addTransports() {
        QTest::addColumn<Transport>("transport");
        QTest::newRow("FTP passive") << Transport::Passive;
        QTest::newRow("FTP active") << Transport::Active;
        QTest::newRow("FTP with TLS/SSL") << Transport::Tls;
        QTest::newRow("SFTP") << Transport::Sftp;
    }

    std::shared_ptr<Transporter> transporter(Transport transport, const QString& remotePath,
                                             const QString& password = QString()) const {
        return serverTransporter(transport, *m_ftp, *m_ssh, remotePath, password);
    }
    QString remoteRoot(Transport transport) const {
        return transport == Transport::Sftp ? m_ssh->remoteFolder() : m_ftp->homeFolder();
    }
    // Runs single mode until the queue is empty; false when it takes too long.
    static bool runSingle(Engine& engine) {
        QSignalSpy idle(engine.transporter.get(), &Transporter::becameIdle);
        while (!engine->queue().isEmpty()) {
            const qsizetype before = idle.count();
            engine->run();
            if (!QTest::qWaitFor([&] { return idle.count() > before; }, 30000))
                return false;
        }
        return true;
    }

    std::unique_ptr<FtpServer> m_ftp;
    std::unique_ptr<SshServer> m_ssh;
    LocalFiles m_local;
};

} // namespace tw::test

QTEST_GUILESS_MAIN(tw::test::TestTransporterServers)
#include "tst_transporter_servers.moc"
