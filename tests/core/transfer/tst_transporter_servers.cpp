// The transfer engine with the application's own curl against real servers
// on loopback, used as a deployment uses it: batch runs upload and delete
// over every transport, and the results are checked on the servers' disks.
// curl's "-v" trace is read line by line, so every file of a run that went
// well completes exactly once, and a failure is reported at its file.

#include "ServerSites.h"
#include "TestEnvironment.h"
#include "Traces.h"
#include "app/Logger.h"
#include "app/Preferences.h"

#include <QScopeGuard>
#include <QSet>

using namespace Qt::StringLiterals;

namespace tw::test {

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

    void batchMode_data() {
        QTest::addColumn<Transport>("transport");
        QTest::newRow("FTP passive") << Transport::Passive;
        QTest::newRow("FTP active") << Transport::Active;
        QTest::newRow("FTP with TLS/SSL") << Transport::Tls;
        QTest::newRow("SFTP") << Transport::Sftp;
    }

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
            engine->uploadFile(m_local.write(folder + u'/' + name, name.toUtf8()), name);
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
        QSignalSpy idle(engine.transporter.get(), &Transporter::becameIdle);
        engine->run();
        QTRY_COMPARE_WITH_TIMEOUT(idle.count(), 1, 30000);
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
            engine->uploadFile(m_local.write(folder + u"/before/"_s + name, "old " + name.toUtf8()), name);
        QVERIFY(engine.runBatch());
        QVERIFY2(engine.succeeded(), engine.failure().constData());

        engine.delegate.messages.clear();
        const QString after = folder + u"/after/"_s;
        engine->uploadFile(m_local.write(after + u"a/index.html"_s, "new a/index.html"), u"a/index.html"_s);
        for (const QString& name : {u"a"_s, u"b/x.txt"_s, u"b/y/z.txt"_s, u"d/e/f.txt"_s})
            engine->deleteFile(name);
        for (const QString& name : {u"b"_s, u"d"_s, u"g/h/i.txt"_s})
            engine->uploadFile(m_local.write(after + name, "new " + name.toUtf8()), name);
        engine->deleteFile(u"g"_s);
        QVERIFY(engine.runBatch());
        QVERIFY2(engine.succeeded(), engine.failure().constData());
        QCOMPARE(engine.delegate.count(u"complete"_s), 9);
        QCOMPARE(tree(remote),
                 (QStringList{u"a/index.html"_s, u"b"_s, u"d"_s, u"g/h/i.txt"_s, u"keep.txt"_s}));
        QCOMPARE(readFile(remote + u"/a/index.html"_s), "new a/index.html");
        QCOMPARE(readFile(remote + u"/b"_s), "new b");
        QCOMPARE(readFile(remote + u"/keep.txt"_s), "old keep.txt");
    }

    // The sync root's text leaves the remote path: web/css/site.css lands as
    // css/site.css. With debug logging on, the log (command lines and curl's
    // trace of the login) holds no password.
    void syncRootAndDebugLog() {
        Preferences::instance().setBool(u"debugEnabled"_s, true);
        const auto debugOff = qScopeGuard([] { Preferences::instance().setBool(u"debugEnabled"_s, false); });
        Engine engine(transporter(Transport::Passive, u"synced"_s));
        engine->connection()->getSite()->syncRootPath = u"web"_s;
        engine->uploadFile(m_local.write(u"repo/web/css/site.css"_s, "synced"), u"web/css/site.css"_s);
        QVERIFY(engine.runBatch());
        QCOMPARE(readFile(m_ftp->homeFolder() + u"/synced/css/site.css"_s), "synced");
        QVERIFY(!QFileInfo::exists(m_ftp->homeFolder() + u"/synced/web"_s));
        const QByteArray log = readFile(Logger::sharedInstance().logFilePath());
        QVERIFY(log.contains("PASS xxxxxx"));
        QVERIFY(!log.contains(FtpServer::password().toUtf8()));
    }

    // A refused login in a batch run: curl's meter animates while the server
    // takes its seconds to refuse, every frame a chunk, so the count has run
    // past the batch when the error comes. The error counts all the same.
    void wrongPassword() {
        Engine engine(transporter(Transport::Passive, u"denied"_s, u"wrong"_s));
        engine->uploadFile(m_local.write(u"denied.txt"_s, "x"), u"denied.txt"_s);
        QVERIFY(engine.runBatch(30000));
        QCOMPARE(engine.delegate.kinds().last(), u"fail"_s);
        QCOMPARE(engine.failure(), "(67) Access denied: 530");
        QVERIFY(!QFileInfo::exists(m_ftp->homeFolder() + u"/denied/denied.txt"_s));
    }

    // An abort while the first wave of runs is under way (three at once, the
    // default): no curl is left, no completion arrives, and the server has
    // only part of the files.
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
                engine->uploadFile(m_local.write(u"several/"_s + name, name.toUtf8()), name);
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
        QCOMPARE(curlDescendants(), QList<qint64>());
    }

private:
    std::shared_ptr<Transporter> transporter(Transport transport, const QString& remotePath,
                                             const QString& password = QString()) const {
        return serverTransporter(transport, *m_ftp, *m_ssh, remotePath, password);
    }

    std::unique_ptr<FtpServer> m_ftp;
    std::unique_ptr<SshServer> m_ssh;
    LocalFiles m_local;
};

} // namespace tw::test

QTEST_GUILESS_MAIN(tw::test::TestTransporterServers)
#include "tst_transporter_servers.moc"
