#include "GitRepository.h"
#include "TestEnvironment.h"
#include "deploy/VDKQueue.h"

#include <QCoreApplication>
#include <QElapsedTimer>
#include <QFile>
#include <QPointer>
#include <QSignalSpy>
#include <QTemporaryDir>
#include <QTest>
#include <QThread>

#include <functional>
#include <memory>
#include <sys/stat.h>
#include <unistd.h>

using namespace tw;
using namespace Qt::StringLiterals;

namespace {

struct Received {
    tw::VDKQueue* queue = nullptr;
    QString name;
    QString path;
    bool onMainThread = false;
};

// A delegate that writes down what it gets and, on request, reacts to it.
class Recorder : public QObject, public VDKQueueDelegate {
public:
    QList<Received> received;
    std::function<void(tw::VDKQueue*, const QString&, const QString&)> reaction;

    void VDKQueue(tw::VDKQueue* queue, const QString& name, const QString& path) override {
        received.append(
            {queue, name, path, QThread::currentThread() == QCoreApplication::instance()->thread()});
        if (reaction)
            reaction(queue, name, path);
    }

    int count(QLatin1String name, const QString& path) const {
        int n = 0;
        for (const Received& r : received)
            n += r.name == name && r.path == path ? 1 : 0;
        return n;
    }

    QStringList names(const QString& path) const {
        QStringList list;
        for (const Received& r : received) {
            if (r.path == path)
                list.append(r.name);
        }
        return list;
    }
};

QString reflog(const test::GitRepository& repo) {
    return repo.path() + u"/.git/logs/HEAD"_s;
}

void touch(const QString& path) {
    test::runProgram(u"/usr/bin/touch"_s, {path});
}

void append(const QString& path, const QByteArray& bytes) {
    QFile file(path);
    if (file.open(QIODevice::Append))
        file.write(bytes);
}

} // namespace

class TestVDKQueue : public QObject {
    Q_OBJECT

    // A repository with one commit, so that its HEAD reflog exists.
    static std::unique_ptr<test::GitRepository> repository() {
        auto repo = std::make_unique<test::GitRepository>();
        repo->write(u"index.html"_s, "<h1>one</h1>");
        repo->commitAll(u"one"_s);
        return repo;
    }

    // A second file in the same queue: events are delivered in the order the
    // kernel reported them, so once the touch of this file has been seen,
    // every earlier event has been too.
    QTemporaryDir fenceFolder;
    QString fence() const { return fenceFolder.path() + u"/fence"_s; }

    void passFence(Recorder& recorder) {
        const int before = recorder.count(VDKQueueFileAttributesChangedNotification, fence());
        touch(fence());
        QTRY_COMPARE_WITH_TIMEOUT(recorder.count(VDKQueueFileAttributesChangedNotification, fence()),
                                  before + 1, 5000);
    }

private slots:
    void initTestCase() {
        test::TestEnvironment::isolate();
        QVERIFY(fenceFolder.isValid());
        append(fence(), "");
        QVERIFY(QFile::exists(fence()));
    }

    void commitIsAWriteOnTheMainThread() {
        auto repo = repository();
        const QString head = reflog(*repo);

        VDKQueue queue;
        QVERIFY(queue.isValid());
        Recorder recorder;
        queue.setDelegate(&recorder);
        QCOMPARE(queue.delegate(), &recorder);
        queue.addPath(head);
        queue.addPath(head); // already watched: nothing changes
        queue.addPath(fence());
        QCOMPARE(queue.numberOfWatchedPaths(), 2);

        // Only writes asked for: a commit is exactly one write.
        VDKQueue writesOnly;
        Recorder writes;
        writesOnly.setDelegate(&writes);
        writesOnly.addPath(head, VDKQueue::WriteEvent);

        repo->write(u"index.html"_s, "<h1>two</h1>");
        repo->commitAll(u"two"_s);
        QTRY_COMPARE_WITH_TIMEOUT(writes.received.size(), 1, 5000);
        QCOMPARE(writes.received.first().name, QString(VDKQueueFileWrittenToNotification));
        QCOMPARE(writes.received.first().path, head);

        // Everything asked for: git appends, so the write is also an extension.
        QTRY_COMPARE_WITH_TIMEOUT(recorder.count(VDKQueueFileWrittenToNotification, head), 1, 5000);
        passFence(recorder);
        QCOMPARE(recorder.names(head), (QStringList{QString(VDKQueueFileWrittenToNotification),
                                                    QString(VDKQueueFileSizeIncreasedNotification)}));
        for (const Received& r : std::as_const(recorder.received)) {
            QVERIFY(r.onMainThread);
            QCOMPARE(r.queue, &queue);
        }
        QCOMPARE(writes.received.size(), 1);
    }

    void attributeChangesAreNoWrites() {
        auto repo = repository();
        const QString head = reflog(*repo);
        VDKQueue queue;
        Recorder recorder;
        queue.setDelegate(&recorder);
        queue.addPath(head);
        queue.addPath(fence());

        touch(head);
        QTRY_COMPARE_WITH_TIMEOUT(recorder.count(VDKQueueFileAttributesChangedNotification, head), 1, 5000);
        QVERIFY(QFile::setPermissions(head, QFile::ReadOwner | QFile::WriteOwner));
        QTRY_COMPARE_WITH_TIMEOUT(recorder.count(VDKQueueFileAttributesChangedNotification, head), 2, 5000);
        passFence(recorder);
        QCOMPARE(recorder.names(head), (QStringList{QString(VDKQueueFileAttributesChangedNotification),
                                                    QString(VDKQueueFileAttributesChangedNotification)}));
    }

    void eventKindsOfAFile() {
        QTemporaryDir folder;
        const QString path = folder.path() + u"/watched"_s;
        append(path, "0123456789");
        VDKQueue queue;
        Recorder recorder;
        queue.setDelegate(&recorder);
        queue.addPath(path);

        const auto expect = [&](const QStringList& names) {
            QTRY_COMPARE_WITH_TIMEOUT(recorder.names(path), names, 5000);
            recorder.received.clear();
        };
        const QString written = VDKQueueFileWrittenToNotification;
        const QString grown = VDKQueueFileSizeIncreasedNotification;
        const QString attributes = VDKQueueFileAttributesChangedNotification;
        const QString links = VDKQueueLinkCountChangedNotification;

        // Rewritten in place, same size: a write, no extension.
        {
            QFile file(path);
            QVERIFY(file.open(QIODevice::ReadWrite));
            file.write("abcdefghij");
        }
        expect({written});
        append(path, "k");
        expect({written, grown});
        QVERIFY(::link(QFile::encodeName(path).constData(),
                       QFile::encodeName(folder.path() + u"/second name"_s).constData()) == 0);
        expect({attributes, links});
        QVERIFY(QFile::remove(folder.path() + u"/second name"_s));
        expect({attributes, links});

        // Moved away: renamed. A new file at the path is watched once it is there.
        QVERIFY(QFile::rename(path, folder.path() + u"/moved"_s));
        expect({QString(VDKQueueFileRenamedNotification)});
        append(folder.path() + u"/moved"_s, "not watched any more");
        QTRY_VERIFY_WITH_TIMEOUT(
            [&] {
                append(path, "x");
                return recorder.names(path).contains(written);
            }(),
            5000);
        QVERIFY(!recorder.names(path).contains(QString(VDKQueueFileRenamedNotification)));
        QVERIFY(QFile::setPermissions(path, QFile::ReadOwner | QFile::WriteOwner));
        QTRY_VERIFY_WITH_TIMEOUT(recorder.names(path).endsWith(attributes), 5000);
        recorder.received.clear();

        // Deleted: the file lost its name, then it is gone.
        QVERIFY(QFile::remove(path));
        expect({attributes, links, QString(VDKQueueFileDeletedNotification)});
        QCOMPARE(queue.numberOfWatchedPaths(), 1);
    }

    void replacedReflogIsWatchedAgain_data() {
        QTest::addColumn<QStringList>("command");
        QTest::newRow("reflog expire")
            << QStringList{u"reflog"_s, u"expire"_s, u"--expire=now"_s, u"--all"_s};
        QTest::newRow("gc") << QStringList{u"gc"_s, u"-q"_s};
    }

    void replacedReflogIsWatchedAgain() {
        QFETCH(QStringList, command);
        auto repo = repository();
        const QString head = reflog(*repo);
        VDKQueue queue;
        Recorder recorder;
        queue.setDelegate(&recorder);
        queue.addPath(head);

        const auto inode = [](const QString& path) {
            struct stat status {};
            ::stat(QFile::encodeName(path).constData(), &status);
            return status.st_ino;
        };
        const auto before = inode(head);
        repo->git(command);
        QVERIFY2(inode(head) != before, "git kept the reflog file; the test shows nothing");
        QTRY_COMPARE_WITH_TIMEOUT(recorder.count(VDKQueueFileDeletedNotification, head), 1, 5000);
        QCOMPARE(queue.numberOfWatchedPaths(), 1);

        repo->write(u"index.html"_s, "<h1>after</h1>");
        repo->commitAll(u"after"_s);
        QTRY_COMPARE_WITH_TIMEOUT(recorder.count(VDKQueueFileWrittenToNotification, head), 1, 5000);

        // And once more, with the replacement replaced.
        repo->git(command);
        QTRY_COMPARE_WITH_TIMEOUT(recorder.count(VDKQueueFileDeletedNotification, head), 2, 5000);
        repo->write(u"index.html"_s, "<h1>again</h1>");
        repo->commitAll(u"again"_s);
        QTRY_COMPARE_WITH_TIMEOUT(recorder.count(VDKQueueFileWrittenToNotification, head), 2, 5000);
    }

    void removeAndAddOnEveryWrite() {
        // What the deploy window does: on a write, remove the path, add it
        // again and set itself as delegate again.
        auto repo = repository();
        const QString head = reflog(*repo);
        VDKQueue queue;
        Recorder recorder;
        recorder.reaction = [&recorder](tw::VDKQueue* q, const QString& name, const QString& path) {
            if (name != VDKQueueFileWrittenToNotification)
                return;
            q->removePath(path);
            q->addPath(path);
            q->setDelegate(&recorder);
        };
        queue.setDelegate(&recorder);
        queue.setAlwaysPostNotifications(true);
        queue.addPath(head);
        queue.addPath(fence());

        for (int i = 1; i <= 3; ++i) {
            repo->write(u"index.html"_s, QByteArray::number(i));
            repo->commitAll(u"commit "_s + QString::number(i));
            QTRY_COMPARE_WITH_TIMEOUT(recorder.count(VDKQueueFileWrittenToNotification, head), i, 5000);
        }
        passFence(recorder);
        QCOMPARE(recorder.count(VDKQueueFileWrittenToNotification, head), 3);
        QCOMPARE(queue.numberOfWatchedPaths(), 2);
    }

    void removedPathsAreSilent() {
        auto repo = repository();
        const QString head = reflog(*repo);
        VDKQueue queue;
        Recorder recorder;
        queue.setDelegate(&recorder);
        queue.addPath(head);
        queue.addPath(fence());

        queue.removePath(head);
        queue.removePath(head); // not watched: nothing happens
        QCOMPARE(queue.numberOfWatchedPaths(), 1);
        repo->write(u"index.html"_s, "2");
        repo->commitAll(u"two"_s);
        passFence(recorder);
        QVERIFY(recorder.names(head).isEmpty());

        queue.addPath(head);
        queue.removeAllPaths();
        QCOMPARE(queue.numberOfWatchedPaths(), 0);
        queue.addPath(fence());
        repo->write(u"index.html"_s, "3");
        repo->commitAll(u"three"_s);
        passFence(recorder);
        QVERIFY(recorder.names(head).isEmpty());

        // Removed before the event loop ran again: whether the watcher had
        // read the commit's event by then or not, nothing is delivered.
        queue.addPath(head);
        repo->write(u"index.html"_s, "4");
        repo->commitAll(u"four"_s);
        queue.removePath(head);
        passFence(recorder);
        QVERIFY(recorder.names(head).isEmpty());
    }

    void notificationsWithoutDelegate() {
        QTemporaryDir folder;
        const QString path = folder.path() + u"/file"_s;
        append(path, "a");

        VDKQueue queue;
        QSignalSpy posted(&queue, &VDKQueue::notificationPosted);
        queue.addPath(path, VDKQueue::WriteEvent);
        append(path, "b");
        QTRY_COMPARE_WITH_TIMEOUT(posted.size(), 1, 5000);
        QCOMPARE(posted.first().at(0).toString(), QString(VDKQueueFileWrittenToNotification));
        QCOMPARE(posted.first().at(1).toString(), path);

        // With a delegate, only the delegate; with alwaysPostNotifications, both.
        Recorder recorder;
        queue.setDelegate(&recorder);
        append(path, "c");
        QTRY_COMPARE_WITH_TIMEOUT(recorder.received.size(), 1, 5000);
        QCOMPARE(posted.size(), 1);
        queue.setAlwaysPostNotifications(true);
        QVERIFY(queue.alwaysPostNotifications());
        append(path, "d");
        QTRY_COMPARE_WITH_TIMEOUT(posted.size(), 2, 5000);
        QCOMPARE(recorder.received.size(), 2);

        // A delegate that is gone is never called: the watcher then has none.
        auto gone = std::make_unique<Recorder>();
        queue.setDelegate(gone.get());
        queue.setAlwaysPostNotifications(false);
        gone.reset();
        QCOMPARE(queue.delegate(), nullptr);
        append(path, "e");
        QTRY_COMPARE_WITH_TIMEOUT(posted.size(), 3, 5000);
        queue.setDelegate(nullptr);
        QCOMPARE(queue.delegate(), nullptr);
    }

    void missingPathIsLoggedAndNotWatched() {
        test::SystemLogCapture log;
        VDKQueue queue;
        QTemporaryDir folder;
        const QString missing = folder.path() + u"/.git/logs/HEAD"_s;
        queue.addPath(missing);
        QCOMPARE(queue.numberOfWatchedPaths(), 0);
        QCOMPARE(log.lines(),
                 QStringList{u"VDKQueue tried to add the path "_s + missing +
                             u" to watchedPathEntries, but the VDKQueuePathEntry was nil. \nIt's possible "
                             u"that the host process has hit its max open file descriptors limit."_s});
    }

    void destroyedWithPathsAndPendingEvents() {
        auto repo = repository();
        const QString head = reflog(*repo);
        Recorder recorder;
        QElapsedTimer clock;
        {
            VDKQueue queue;
            queue.setDelegate(&recorder);
            queue.addPath(head);
            queue.addPath(fence());
            repo->write(u"index.html"_s, "2");
            repo->commitAll(u"two"_s);
            clock.start();
        }
        // The thread is woken, not waited for until its next look.
        QVERIFY2(clock.elapsed() < 900, qPrintable(QString::number(clock.elapsed())));
        QCoreApplication::processEvents();
        QVERIFY(recorder.received.isEmpty());

        // Destroyed from inside its own delivery.
        auto* queue = new VDKQueue;
        QPointer<VDKQueue> alive(queue);
        queue->setDelegate(&recorder);
        recorder.reaction = [](tw::VDKQueue* q, const QString&, const QString&) { delete q; };
        queue->addPath(head, VDKQueue::WriteEvent | VDKQueue::ExtendEvent);
        repo->write(u"index.html"_s, "3");
        repo->commitAll(u"three"_s);
        QTRY_VERIFY_WITH_TIMEOUT(!alive, 5000);
        QCOMPARE(recorder.received.size(), 1);
    }
};

QTEST_GUILESS_MAIN(TestVDKQueue)
#include "tst_vdkqueue.moc"
