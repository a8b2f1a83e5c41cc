#pragma once

#include <QString>

#include <sys/types.h>

namespace tw {

// One path watched by a VDKQueue: the path as given, the kernel watch on the
// file that is there now, the watch on its folder that notices the file being
// replaced, and what the watcher last saw of the file (its identity, size and
// link count), from which it tells an extension and a link count change apart
// from a plain write or attribute change.
//
// watchedFD is the inotify watch descriptor of the file, -1 while nothing is
// watched at the path (the file was deleted and has not come back yet). An
// inotify watch keeps no file descriptor open, so a deleted file is not kept
// alive by the watcher. Watch descriptors belong to the VDKQueue, which adds
// and removes them: two entries whose paths name the same file share one.
//
// Not thread-safe: the VDKQueue touches entries only under its lock.
class VDKQueuePathEntry {
public:
    VDKQueuePathEntry(const QString& path, quint32 subscriptionFlags);

    const QString& path() const { return m_path; }
    qint32 watchedFD() const { return m_watchedFD; }
    quint32 subscriptionFlags() const { return m_subscriptionFlags; }

    void setWatchedFD(qint32 watch) { m_watchedFD = watch; }
    // The watch on the folder that holds the path, -1 when there is none.
    qint32 folderWatch() const { return m_folderWatch; }
    void setFolderWatch(qint32 watch) { m_folderWatch = watch; }

    // The folder that holds the path and the path's last component.
    const QString& folder() const { return m_folder; }
    const QString& fileName() const { return m_fileName; }

    // Remembers the file now at the path. False when nothing is there.
    bool takeSnapshot();
    // True when the path still names the file of the last snapshot.
    bool pathNamesWatchedFile() const;

    // The event bits for inotify events on the file's own watch (nameless
    // events), before the subscription is applied. Updates the snapshot.
    quint32 eventsForOwnWatch(quint32 inotifyMask);
    // The event bits for an event on the path's folder naming `name`: the
    // file at the path was deleted, moved away or replaced. Nothing for
    // events about other names.
    quint32 eventsForFolderWatch(quint32 inotifyMask, const QString& name) const;
    // The event bits for an event about a child of the path, when the path is
    // a folder: an entry added, removed or renamed in it is a write to it.
    static quint32 eventsForChild(quint32 inotifyMask);

private:
    struct Snapshot {
        dev_t device = 0;
        ino_t inode = 0;
        off_t size = 0;
        nlink_t linkCount = 0;
    };
    static bool statPath(const QString& path, Snapshot& snapshot);

    QString m_path;
    QString m_folder;
    QString m_fileName;
    qint32 m_watchedFD = -1;
    qint32 m_folderWatch = -1;
    quint32 m_subscriptionFlags = 0;
    bool m_hasSnapshot = false;
    Snapshot m_snapshot;
};

} // namespace tw
