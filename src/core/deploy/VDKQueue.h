#pragma once

#include "VDKQueueDelegate.h"

#include <QLatin1String>
#include <QObject>
#include <QPointer>
#include <QString>
#include <QStringList>

#include <atomic>
#include <concepts>
#include <cstddef>
#include <map>
#include <memory>
#include <mutex>
#include <thread>
#include <vector>

namespace tw {

class VDKQueuePathEntry;

// The names of the seven kinds of event, in the order in which they are
// checked and delivered.
inline constexpr QLatin1String VDKQueueFileRenamedNotification{"VDKQueueFileRenamedNotification"};
inline constexpr QLatin1String VDKQueueFileWrittenToNotification{"VDKQueueFileWrittenToNotification"};
inline constexpr QLatin1String VDKQueueFileDeletedNotification{"VDKQueueFileDeletedNotification"};
inline constexpr QLatin1String VDKQueueFileAttributesChangedNotification{
    "VDKQueueFileAttributesChangedNotification"};
inline constexpr QLatin1String VDKQueueFileSizeIncreasedNotification{"VDKQueueFileSizeIncreasedNotification"};
inline constexpr QLatin1String VDKQueueLinkCountChangedNotification{"VDKQueueLinkCountChangedNotification"};
inline constexpr QLatin1String VDKQueueAccessWasRevokedNotification{"VDKQueueAccessWasRevokedNotification"};

// Watches paths for changes (the deploy window watches its repository's
// .git/logs/HEAD to notice every move of HEAD). One thread of its own reads
// the kernel's events; they are delivered on the thread the VDKQueue lives in
// (the main thread), to the delegate and, when there is no delegate or
// alwaysPostNotifications is on, as the signal notificationPosted.
//
// The event kinds keep the bit values of the BSD vnode filter and are made
// from inotify events:
//
//   write             IN_MODIFY on the file.
//   extend            IN_MODIFY on the file when its size grew since the watcher
//                     last looked. inotify has no event of its own for a file
//                     growing, and comparing sizes is what tells an append
//                     (what git does to a reflog) from a rewrite in place; an
//                     append is therefore a write and an extend.
//   attribute change  IN_ATTRIB on the file (touch, chmod, chown). Never a write.
//   link count change IN_ATTRIB on the file when its link count differs from
//                     the last one seen, or when the path no longer leads to
//                     it (the name we watch it by was removed).
//   delete            IN_DELETE_SELF on the file, IN_DELETE of its name in its
//                     folder, or its name in the folder given to another file
//                     (a file moved or created over it).
//   rename            IN_MOVE_SELF on the file or IN_MOVED_FROM of its name in
//                     its folder.
//   revoke            IN_UNMOUNT (the file system went away).
//
// For a watched folder, an entry created, deleted or moved in or out of it is
// a write to the folder.
//
// Replaced files: programs that rewrite a file by writing a new one and moving
// it over the old (git does this with .git/logs/HEAD in "git gc" and "git
// reflog expire") leave a watch on the old file with nothing more to say. So
// each path is also watched through its folder: when the file at the path is
// deleted, moved away or replaced, its old watch is dropped (after the event
// above is reported) and the file that is at the path then, or that appears
// there later, is watched instead. The path stays in the watcher all along.
// A change made to the new file in the moment before it is watched is not
// seen.
//
// All members are for the main thread (the thread the object lives in).
class VDKQueue : public QObject {
    Q_OBJECT

public:
    enum Event : quint32 {
        DeleteEvent = 0x01,
        WriteEvent = 0x02,
        ExtendEvent = 0x04,
        AttributeChangeEvent = 0x08,
        LinkCountChangeEvent = 0x10,
        RenameEvent = 0x20,
        RevokeEvent = 0x40,
    };
    static constexpr quint32 AllEvents = 0x7F;

    // Starts the watcher thread. When the kernel gives no inotify instance
    // the object is not valid: it logs that and watches nothing.
    explicit VDKQueue(QObject* parent = nullptr);
    // Stops the watcher thread and waits for it; removes all paths.
    ~VDKQueue() override;

    VDKQueue(const VDKQueue&) = delete;
    VDKQueue& operator=(const VDKQueue&) = delete;

    bool isValid() const { return m_inotify >= 0; }

    // Watches the path for all seven kinds of event (mask 127), or for those
    // of the mask. A path already watched is left as it is. A path that
    // cannot be watched (no such file, no watch left) is logged to the
    // system log and not kept.
    void addPath(const QString& path);
    void addPath(const QString& path, quint32 mask);
    void removePath(const QString& path);
    void removeAllPaths();
    int numberOfWatchedPaths() const;

    VDKQueueDelegate* delegate() const;
    // The delegate is held weakly. It must be a QObject and a
    // VDKQueueDelegate; a delegate that is destroyed is never called.
    template <typename T>
    requires std::derived_from<T, QObject> && std::derived_from<T, VDKQueueDelegate>
    void setDelegate(T* delegate) { setDelegateObject(delegate, delegate); }
    void setDelegate(std::nullptr_t) { setDelegateObject(nullptr, nullptr); }

    bool alwaysPostNotifications() const { return m_alwaysPostNotifications; }
    void setAlwaysPostNotifications(bool post) { m_alwaysPostNotifications = post; }

    // The names of the event bits set in the mask, in the order of delivery.
    static QStringList notificationNames(quint32 events);

signals:
    // The workspace-wide announcement of an event.
    void notificationPosted(const QString& notificationName, const QString& path);

private:
    struct Delivery {
        QString path;
        QStringList names;
    };

    void setDelegateObject(QObject* object, VDKQueueDelegate* delegate);
    void watcherLoop();
    void readEvents(std::vector<Delivery>& deliveries);
    void deliver(const Delivery& delivery);
    bool isWatched(const QString& path) const;

    // Kernel watches, counted by the entries that use them. Under m_lock.
    qint32 acquireWatch(const QString& path);
    void releaseWatch(qint32 watch);
    void forgetWatch(qint32 watch);
    // Watches the file now at the entry's path (and its folder), if any.
    void arm(VDKQueuePathEntry& entry);
    void disarm(VDKQueuePathEntry& entry);

    int m_inotify = -1;
    int m_wakeUp = -1; // an eventfd that ends the thread's wait at once
    std::atomic<bool> m_keepWatcherThreadRunning{false};
    std::thread m_thread;

    mutable std::mutex m_lock;
    std::map<QString, std::unique_ptr<VDKQueuePathEntry>> m_watchedPathEntries;
    std::map<qint32, int> m_watchUsers;

    QPointer<QObject> m_delegateObject;
    VDKQueueDelegate* m_delegate = nullptr;
    bool m_alwaysPostNotifications = false;
};

} // namespace tw
