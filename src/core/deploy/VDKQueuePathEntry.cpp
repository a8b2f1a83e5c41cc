#include "VDKQueuePathEntry.h"

#include "VDKQueue.h"

#include <QFile>
#include <QFileInfo>

#include <sys/inotify.h>
#include <sys/stat.h>

namespace tw {

VDKQueuePathEntry::VDKQueuePathEntry(const QString& path, quint32 subscriptionFlags)
    : m_path(path)
    , m_subscriptionFlags(subscriptionFlags) {
    const QFileInfo info(path);
    m_folder = info.absolutePath();
    m_fileName = info.fileName();
}

bool VDKQueuePathEntry::statPath(const QString& path, Snapshot& snapshot) {
    struct stat status {};
    if (::stat(QFile::encodeName(path).constData(), &status) != 0)
        return false;
    snapshot.device = status.st_dev;
    snapshot.inode = status.st_ino;
    snapshot.size = status.st_size;
    snapshot.linkCount = status.st_nlink;
    return true;
}

bool VDKQueuePathEntry::takeSnapshot() {
    m_hasSnapshot = statPath(m_path, m_snapshot);
    return m_hasSnapshot;
}

bool VDKQueuePathEntry::pathNamesWatchedFile() const {
    Snapshot now;
    return m_hasSnapshot && statPath(m_path, now) && now.device == m_snapshot.device &&
           now.inode == m_snapshot.inode;
}

quint32 VDKQueuePathEntry::eventsForOwnWatch(quint32 inotifyMask) {
    // What the path names now, when that is still the watched file: the
    // sizes and link counts below are only compared for the same file.
    Snapshot now;
    const bool sameFile = m_hasSnapshot && statPath(m_path, now) && now.device == m_snapshot.device &&
                          now.inode == m_snapshot.inode;

    quint32 events = 0;
    if (inotifyMask & IN_MOVE_SELF)
        events |= VDKQueue::RenameEvent;
    if (inotifyMask & IN_MODIFY) {
        events |= VDKQueue::WriteEvent;
        if (sameFile && now.size > m_snapshot.size)
            events |= VDKQueue::ExtendEvent;
    }
    if (inotifyMask & IN_DELETE_SELF)
        events |= VDKQueue::DeleteEvent;
    if (inotifyMask & IN_ATTRIB) {
        events |= VDKQueue::AttributeChangeEvent;
        // Either the count read through the path changed, or the path no
        // longer leads to the file: it lost the name we watch it by.
        if (sameFile ? now.linkCount != m_snapshot.linkCount : m_hasSnapshot)
            events |= VDKQueue::LinkCountChangeEvent;
    }
    if (inotifyMask & IN_UNMOUNT)
        events |= VDKQueue::RevokeEvent;
    if (sameFile)
        m_snapshot = now;
    return events;
}

quint32 VDKQueuePathEntry::eventsForFolderWatch(quint32 inotifyMask, const QString& name) const {
    if (name != m_fileName || m_watchedFD < 0)
        return 0;
    if (!(inotifyMask & (IN_CREATE | IN_DELETE | IN_MOVED_FROM | IN_MOVED_TO)))
        return 0;
    // Reported once, by whichever event comes first: the folder's or the
    // file's own (the file's watch is dropped right after either).
    if (pathNamesWatchedFile())
        return 0;
    if (inotifyMask & IN_MOVED_FROM)
        return VDKQueue::RenameEvent;
    return VDKQueue::DeleteEvent;
}

quint32 VDKQueuePathEntry::eventsForChild(quint32 inotifyMask) {
    if (inotifyMask & (IN_CREATE | IN_DELETE | IN_MOVED_FROM | IN_MOVED_TO))
        return VDKQueue::WriteEvent;
    return 0;
}

} // namespace tw
