#include "GitRepository.h"
#include "TestEnvironment.h"
#include "deploy/VDKQueue.h"

#include <QCoreApplication>
#include <QFile>
#include <QTemporaryDir>
#include <QTest>
#include <QThread>

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

    void VDKQueue(tw::VDKQueue* queue, const QString& name, const QString& path) override {
        received.append(
            {queue, name, path, QThread::currentThread() == QCoreApplication::instance()->thread()});
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
        repo->commit({{u"index.html"_s, "<h1>one</h1>"}}, u"one"_s);
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

    // A commit is a write (git appends, so an extension too), reported on
    // the main thread; a change of the reflog's attributes is no write.
    void commitsAreWritesAttributeChangesAreNot() {
        auto repo = repository();
        const QString head = reflog(*repo);
        VDKQueue queue;
        QVERIFY(queue.isValid());
        Recorder recorder;
        queue.setDelegate(&recorder);
        queue.addPath(head);
        queue.addPath(head); // already watched: nothing changes
        queue.addPath(fence());
        QCOMPARE(queue.numberOfWatchedPaths(), 2);
        VDKQueue writesOnly;
        Recorder writes;
        writesOnly.setDelegate(&writes);
        writesOnly.addPath(head, VDKQueue::WriteEvent);

        touch(head);
        repo->commit({{u"index.html"_s, "<h1>two</h1>"}}, u"two"_s);
        QTRY_COMPARE_WITH_TIMEOUT(writes.received.size(), 1, 5000);
        passFence(recorder);
        QCOMPARE(recorder.names(head), (QStringList{QString(VDKQueueFileAttributesChangedNotification),
                                                    QString(VDKQueueFileWrittenToNotification),
                                                    QString(VDKQueueFileSizeIncreasedNotification)}));
        for (const Received& r : std::as_const(recorder.received)) {
            QVERIFY(r.onMainThread);
            QCOMPARE(r.queue, &queue);
        }
        QCOMPARE(writes.received.size(), 1);
        QCOMPARE(writes.received.first().name, QString(VDKQueueFileWrittenToNotification));
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

        repo->commit({{u"index.html"_s, "<h1>after</h1>"}}, u"after"_s);
        QTRY_COMPARE_WITH_TIMEOUT(recorder.count(VDKQueueFileWrittenToNotification, head), 1, 5000);

        // And once more, with the replacement replaced.
        repo->git(command);
        QTRY_COMPARE_WITH_TIMEOUT(recorder.count(VDKQueueFileDeletedNotification, head), 2, 5000);
        repo->commit({{u"index.html"_s, "<h1>again</h1>"}}, u"again"_s);
        QTRY_COMPARE_WITH_TIMEOUT(recorder.count(VDKQueueFileWrittenToNotification, head), 2, 5000);
    }
};

QTEST_GUILESS_MAIN(TestVDKQueue)
#include "tst_vdkqueue.moc"
