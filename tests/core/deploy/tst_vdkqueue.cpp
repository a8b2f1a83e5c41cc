#include "GitRepository.h"
#include "TestEnvironment.h"
#include "deploy/VDKQueue.h"

#include <QCoreApplication>
#include <QFile>
#include <QTemporaryDir>
#include <QTest>
#include <QThread>

#include <sys/stat.h>

using namespace tw;
using namespace Qt::StringLiterals;

namespace {

// A delegate that writes down each event it gets as "name path", and
// whether one came from another queue or off the main thread.
class Recorder : public QObject, public VDKQueueDelegate {
public:
    explicit Recorder(tw::VDKQueue& queue)
        : m_queue(queue) {
        queue.setDelegate(this);
    }
    QStringList events;
    bool elsewhere = false;

    void VDKQueue(tw::VDKQueue* queue, const QString& name, const QString& path) override {
        events.append(name + u' ' + path);
        elsewhere |= queue != &m_queue || QThread::currentThread() != QCoreApplication::instance()->thread();
    }
    qsizetype count(QLatin1String name, const QString& path) const;

private:
    tw::VDKQueue& m_queue;
};

QString noticed(QLatin1String name, const QString& path) {
    return QString(name) + u' ' + path;
}

qsizetype Recorder::count(QLatin1String name, const QString& path) const {
    return events.count(noticed(name, path));
}

void touch(const QString& path) {
    test::runProgram(u"/usr/bin/touch"_s, {path});
}

} // namespace

class TestVDKQueue : public QObject {
    Q_OBJECT

    test::GitRepository m_repo;
    QTemporaryDir m_folder;
    QString head() const { return m_repo.path() + u"/.git/logs/HEAD"_s; }
    // A second file in the same queue: events come in the order the kernel
    // reported them, so once its touch is seen every earlier one has been.
    QString fence() const { return m_folder.filePath(u"fence"_s); }

private slots:
    void initTestCase() {
        test::TestEnvironment::isolate();
        m_repo.commit({{u"index.html"_s, "<h1>one</h1>"}}, u"one"_s);
        touch(fence());
        QVERIFY(QFile::exists(head()) && QFile::exists(fence()));
    }

    // A commit is a write (git appends, so an extension too), reported on
    // the main thread; a change of the reflog's attributes is no write.
    void commitsAreWritesAttributeChangesAreNot() {
        VDKQueue queue;
        QVERIFY(queue.isValid());
        Recorder recorder(queue);
        queue.addPath(head());
        queue.addPath(head()); // already watched: nothing changes
        queue.addPath(fence());
        QCOMPARE(queue.numberOfWatchedPaths(), 2);
        VDKQueue writesOnly;
        Recorder writes(writesOnly);
        writesOnly.addPath(head(), VDKQueue::WriteEvent);

        touch(head());
        m_repo.commit({{u"index.html"_s, "<h1>two</h1>"}}, u"two"_s);
        QTRY_COMPARE_WITH_TIMEOUT(writes.events.size(), 1, 5000);
        touch(fence());
        QTRY_COMPARE_WITH_TIMEOUT(recorder.count(VDKQueueFileAttributesChangedNotification, fence()), 1,
                                  5000);
        QCOMPARE(recorder.events.mid(0, 3),
                 (QStringList{noticed(VDKQueueFileAttributesChangedNotification, head()),
                              noticed(VDKQueueFileWrittenToNotification, head()),
                              noticed(VDKQueueFileSizeIncreasedNotification, head())}));
        QCOMPARE(recorder.events.size(), 4);
        QVERIFY(!recorder.elsewhere && !writes.elsewhere);
        QCOMPARE(writes.events, QStringList{noticed(VDKQueueFileWrittenToNotification, head())});
    }

    // git replaces the reflog file now and then: the new one is watched.
    void replacedReflogIsWatchedAgain_data() {
        QTest::addColumn<QStringList>("command");
        QTest::newRow("reflog expire")
            << QStringList{u"reflog"_s, u"expire"_s, u"--expire=now"_s, u"--all"_s};
        QTest::newRow("gc") << QStringList{u"gc"_s, u"-q"_s};
    }

    void replacedReflogIsWatchedAgain() {
        QFETCH(QStringList, command);
        VDKQueue queue;
        Recorder recorder(queue);
        queue.addPath(head());
        const auto inode = [](const QString& path) {
            struct stat status {};
            ::stat(QFile::encodeName(path).constData(), &status);
            return status.st_ino;
        };
        for (int round = 1; round <= 2; ++round) {
            const auto before = inode(head());
            m_repo.git(command);
            QVERIFY2(inode(head()) != before, "git kept the reflog file; the test shows nothing");
            QTRY_COMPARE_WITH_TIMEOUT(recorder.count(VDKQueueFileDeletedNotification, head()), round, 5000);
            QCOMPARE(queue.numberOfWatchedPaths(), 1);
            m_repo.commit({{u"index.html"_s, QByteArray::number(round)}}, u"after"_s);
            QTRY_COMPARE_WITH_TIMEOUT(recorder.count(VDKQueueFileWrittenToNotification, head()), round, 5000);
        }
    }
};

QTEST_GUILESS_MAIN(TestVDKQueue)
#include "tst_vdkqueue.moc"
