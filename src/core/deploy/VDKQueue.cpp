#include "VDKQueue.h"

#include "VDKQueuePathEntry.h"
#include "app/SystemLog.h"

#include <QFile>

#include <cerrno>
#include <cstring>
#include <poll.h>
#include <sys/eventfd.h>
#include <sys/inotify.h>
#include <unistd.h>

namespace tw {

namespace {

// One mask for every kernel watch: a watch may serve as one path's file watch
// and as another path's folder watch at the same time (the kernel gives one
// watch per file and instance), so each is asked for everything and the
// events are sorted out by role.
constexpr quint32 kernelMask = IN_MODIFY | IN_ATTRIB | IN_DELETE_SELF | IN_MOVE_SELF | IN_CREATE | IN_DELETE |
                               IN_MOVED_FROM | IN_MOVED_TO;

// The events after which the file's own watch has nothing more to say about
// the path, unless the path still names the file.
constexpr quint32 finalEvents = IN_DELETE_SELF | IN_MOVE_SELF | IN_UNMOUNT;

// The events of a folder that change what one of its names stands for.
constexpr quint32 nameEvents = IN_CREATE | IN_DELETE | IN_MOVED_FROM | IN_MOVED_TO;

// How long the thread waits for events before it looks whether it is to stop.
constexpr int waitMilliseconds = 1000;

struct EventNameOrder {
    VDKQueue::Event event;
    QLatin1String name;
};

constexpr EventNameOrder eventOrder[] = {
    {VDKQueue::RenameEvent, VDKQueueFileRenamedNotification},
    {VDKQueue::WriteEvent, VDKQueueFileWrittenToNotification},
    {VDKQueue::DeleteEvent, VDKQueueFileDeletedNotification},
    {VDKQueue::AttributeChangeEvent, VDKQueueFileAttributesChangedNotification},
    {VDKQueue::ExtendEvent, VDKQueueFileSizeIncreasedNotification},
    {VDKQueue::LinkCountChangeEvent, VDKQueueLinkCountChangedNotification},
    {VDKQueue::RevokeEvent, VDKQueueAccessWasRevokedNotification},
};

QString errnoText(int error) {
    return QString::fromLocal8Bit(std::strerror(error));
}

} // namespace

VDKQueue::VDKQueue(QObject* parent)
    : QObject(parent) {
    m_inotify = inotify_init1(IN_NONBLOCK | IN_CLOEXEC);
    if (m_inotify < 0) {
        SystemLog::write(QStringLiteral("VDKQueue could not create its event queue: ") + errnoText(errno));
        return;
    }
    m_wakeUp = eventfd(0, EFD_NONBLOCK | EFD_CLOEXEC);
    m_keepWatcherThreadRunning = true;
    m_thread = std::thread([this] { watcherLoop(); });
}

VDKQueue::~VDKQueue() {
    m_keepWatcherThreadRunning = false;
    if (m_wakeUp >= 0) {
        const quint64 one = 1;
        [[maybe_unused]] const ssize_t written = ::write(m_wakeUp, &one, sizeof one);
    }
    if (m_thread.joinable())
        m_thread.join();
    removeAllPaths();
    if (m_wakeUp >= 0)
        ::close(m_wakeUp);
    if (m_inotify >= 0)
        ::close(m_inotify);
}

void VDKQueue::addPath(const QString& path) {
    addPath(path, AllEvents);
}

void VDKQueue::addPath(const QString& path, quint32 mask) {
    bool added = false;
    {
        std::lock_guard lock(m_lock);
        if (m_watchedPathEntries.count(path) != 0)
            return;
        if (isValid() && !path.isEmpty()) {
            auto entry = std::make_unique<VDKQueuePathEntry>(path, mask);
            arm(*entry);
            if (entry->watchedFD() >= 0) {
                m_watchedPathEntries.emplace(path, std::move(entry));
                added = true;
            } else {
                disarm(*entry);
            }
        }
    }
    if (!added) {
        SystemLog::write(QStringLiteral("VDKQueue tried to add the path ") + path +
                         QStringLiteral(" to watchedPathEntries, but the VDKQueuePathEntry was nil. \nIt's "
                                        "possible that the host process has hit its max open file "
                                        "descriptors limit."));
    }
}

void VDKQueue::removePath(const QString& path) {
    std::lock_guard lock(m_lock);
    const auto it = m_watchedPathEntries.find(path);
    if (it == m_watchedPathEntries.end())
        return;
    disarm(*it->second);
    m_watchedPathEntries.erase(it);
}

void VDKQueue::removeAllPaths() {
    std::lock_guard lock(m_lock);
    for (auto& [path, entry] : m_watchedPathEntries)
        disarm(*entry);
    m_watchedPathEntries.clear();
}

int VDKQueue::numberOfWatchedPaths() const {
    std::lock_guard lock(m_lock);
    return static_cast<int>(m_watchedPathEntries.size());
}

bool VDKQueue::isWatched(const QString& path) const {
    std::lock_guard lock(m_lock);
    return m_watchedPathEntries.count(path) != 0;
}

VDKQueueDelegate* VDKQueue::delegate() const {
    return m_delegateObject ? m_delegate : nullptr;
}

void VDKQueue::setDelegateObject(QObject* object, VDKQueueDelegate* delegate) {
    m_delegateObject = object;
    m_delegate = object ? delegate : nullptr;
}

QStringList VDKQueue::notificationNames(quint32 events) {
    QStringList names;
    for (const EventNameOrder& entry : eventOrder) {
        if (events & entry.event)
            names.append(QString(entry.name));
    }
    return names;
}

qint32 VDKQueue::acquireWatch(const QString& path) {
    const int watch = inotify_add_watch(m_inotify, QFile::encodeName(path).constData(), kernelMask);
    if (watch >= 0)
        ++m_watchUsers[watch];
    return watch;
}

void VDKQueue::releaseWatch(qint32 watch) {
    const auto it = m_watchUsers.find(watch);
    if (it == m_watchUsers.end())
        return;
    if (--it->second == 0) {
        inotify_rm_watch(m_inotify, watch);
        m_watchUsers.erase(it);
    }
}

void VDKQueue::forgetWatch(qint32 watch) {
    m_watchUsers.erase(watch);
}

void VDKQueue::arm(VDKQueuePathEntry& entry) {
    if (entry.folderWatch() < 0)
        entry.setFolderWatch(acquireWatch(entry.folder()));
    if (entry.watchedFD() >= 0)
        return;
    // The file can be replaced between looking at it and watching it; the
    // watch counts only when the path names the same file before and after.
    for (int attempt = 0; attempt < 3; ++attempt) {
        if (!entry.takeSnapshot())
            return;
        const qint32 watch = acquireWatch(entry.path());
        if (watch < 0)
            return;
        if (entry.pathNamesWatchedFile()) {
            entry.setWatchedFD(watch);
            return;
        }
        releaseWatch(watch);
    }
}

void VDKQueue::disarm(VDKQueuePathEntry& entry) {
    releaseWatch(entry.watchedFD());
    entry.setWatchedFD(-1);
    releaseWatch(entry.folderWatch());
    entry.setFolderWatch(-1);
}

void VDKQueue::watcherLoop() {
    while (m_keepWatcherThreadRunning) {
        pollfd descriptors[2] = {{m_inotify, POLLIN, 0}, {m_wakeUp, POLLIN, 0}};
        const int ready = ::poll(descriptors, m_wakeUp >= 0 ? 2 : 1, waitMilliseconds);
        if (ready < 0) {
            if (errno == EINTR)
                continue;
            SystemLog::write(QStringLiteral("VDKQueue stopped watching: ") + errnoText(errno));
            return;
        }
        if (ready == 0 || !(descriptors[0].revents & POLLIN))
            continue;
        std::vector<Delivery> deliveries;
        readEvents(deliveries);
        // Each event is handed to the main thread as it was read; the object
        // outlives every invocation queued here (the destructor joins this
        // thread first, and Qt drops what is still queued for a destroyed
        // object).
        for (Delivery& delivery : deliveries) {
            QMetaObject::invokeMethod(
                this, [this, delivery = std::move(delivery)] { deliver(delivery); }, Qt::QueuedConnection);
        }
    }
}

void VDKQueue::readEvents(std::vector<Delivery>& deliveries) {
    alignas(inotify_event) char buffer[16 * 1024];
    for (;;) {
        const ssize_t length = ::read(m_inotify, buffer, sizeof buffer);
        if (length <= 0)
            return; // EAGAIN: all read

        std::lock_guard lock(m_lock);
        for (ssize_t offset = 0; offset < length;) {
            const auto* event = reinterpret_cast<const inotify_event*>(buffer + offset);
            offset += static_cast<ssize_t>(sizeof(inotify_event) + event->len);
            const quint32 mask = event->mask;
            const qint32 watch = event->wd;
            const QString name = event->len > 0 ? QFile::decodeName(event->name) : QString();

            if (mask & IN_Q_OVERFLOW) {
                // Events were lost: make sure every path watches the file it
                // names now.
                for (auto& [path, entry] : m_watchedPathEntries) {
                    if (entry->watchedFD() >= 0 && !entry->pathNamesWatchedFile()) {
                        releaseWatch(entry->watchedFD());
                        entry->setWatchedFD(-1);
                    }
                    arm(*entry);
                }
                continue;
            }
            if (mask & IN_IGNORED) {
                // The kernel dropped the watch (its file is gone, or it was
                // removed here).
                forgetWatch(watch);
                for (auto& [path, entry] : m_watchedPathEntries) {
                    if (entry->watchedFD() == watch)
                        entry->setWatchedFD(-1);
                    if (entry->folderWatch() == watch)
                        entry->setFolderWatch(-1);
                    if (entry->watchedFD() < 0)
                        arm(*entry);
                }
                continue;
            }

            for (auto& [path, entry] : m_watchedPathEntries) {
                quint32 events = 0;
                if (entry->watchedFD() == watch) {
                    if (name.isEmpty()) {
                        events |= entry->eventsForOwnWatch(mask);
                        if ((mask & finalEvents) && !entry->pathNamesWatchedFile()) {
                            releaseWatch(entry->watchedFD());
                            entry->setWatchedFD(-1);
                            arm(*entry);
                        }
                    } else {
                        events |= VDKQueuePathEntry::eventsForChild(mask);
                    }
                }
                if (entry->folderWatch() == watch && (mask & nameEvents) && name == entry->fileName()) {
                    events |= entry->eventsForFolderWatch(mask, name);
                    if (entry->watchedFD() >= 0 && !entry->pathNamesWatchedFile()) {
                        releaseWatch(entry->watchedFD());
                        entry->setWatchedFD(-1);
                    }
                    arm(*entry);
                }
                events &= entry->subscriptionFlags();
                if (events != 0)
                    deliveries.push_back(Delivery{path, notificationNames(events)});
            }
        }
    }
}

void VDKQueue::deliver(const Delivery& delivery) {
    const QPointer<VDKQueue> self(this);
    for (const QString& name : delivery.names) {
        // A path removed since the event was read gets nothing more.
        if (!isWatched(delivery.path))
            return;
        VDKQueueDelegate* receiver = delegate();
        if (receiver)
            receiver->VDKQueue(this, name, delivery.path);
        if (!self)
            return;
        if (!receiver || m_alwaysPostNotifications)
            emit notificationPosted(name, delivery.path);
        if (!self)
            return;
    }
}

} // namespace tw
