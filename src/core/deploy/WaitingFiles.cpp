#include "WaitingFiles.h"

#include "app/Preferences.h"
#include "git/SiteManager.h"

#include <QSet>
#include <QVariantMap>

namespace tw {

namespace {

const QString kWaitingFiles = QStringLiteral("waitingFiles");

} // namespace

// Stored as one map of site ids to lists of "letter<TAB>commit<TAB>path"
// texts: a path may hold anything but a line of its own is not needed.
WaitingFiles::Entries WaitingFiles::of(const QString& siteId) {
    Entries entries;
    const QVariantMap all = Preferences::instance().value(kWaitingFiles).toMap();
    const QStringList lines = all.value(siteId).toStringList();
    for (const QString& line : lines) {
        const qsizetype first = line.indexOf(QLatin1Char('\t'));
        const qsizetype second = first < 0 ? -1 : line.indexOf(QLatin1Char('\t'), first + 1);
        if (second < 0)
            continue;
        entries.insert(line.mid(second + 1),
                       Entry{line.left(first), line.mid(first + 1, second - first - 1)});
    }
    return entries;
}

void WaitingFiles::set(const QString& siteId, const Entries& entries) {
    QVariantMap all = Preferences::instance().value(kWaitingFiles).toMap();
    if (entries.isEmpty()) {
        if (!all.contains(siteId))
            return;
        all.remove(siteId);
    } else {
        QStringList lines;
        lines.reserve(entries.size());
        for (auto it = entries.cbegin(); it != entries.cend(); ++it)
            lines.append(it->letter + QLatin1Char('\t') + it->commit + QLatin1Char('\t') + it.key());
        lines.sort();
        all.insert(siteId, lines);
    }
    Preferences::instance().setValue(kWaitingFiles, all);
}

void WaitingFiles::remember(const QString& siteId, const FileList& rows, const QString& listedCommit) {
    Entries waiting = of(siteId);
    for (const FilePtr& file : rows) {
        const QString path = file->pathWithFilename.value_or(QString());
        if (file->willUpload)
            waiting.remove(path);
        else
            waiting.insert(path, Entry{file->gitStatus.value_or(QStringLiteral("M")), listedCommit});
    }
    set(siteId, waiting);
}

void WaitingFiles::mergeInto(FileList& list, const SitePtr& site, const QString& listedCommit) {
    const QString siteId = site->siteId();
    Entries waiting = of(siteId);
    if (!waiting.isEmpty() && !listedCommit.isEmpty()) {
        SiteManager manager(site);
        QHash<QString, QSet<QString>> changedSince; // by the commit a file was unchecked at
        const qsizetype before = waiting.size();
        for (auto it = waiting.begin(); it != waiting.end();) {
            if (it->commit == listedCommit) {
                ++it;
                continue;
            }
            if (!changedSince.contains(it->commit)) {
                QSet<QString> changed;
                const auto lines = manager.changedPathsBetween(it->commit, listedCommit);
                for (const FilePtr& file : manager.createFileObjects(lines.value_or(QStringList())))
                    changed.insert(file->pathWithFilename.value_or(QString()));
                changedSince.insert(it->commit, changed);
            }
            if (changedSince.value(it->commit).contains(it.key()))
                it = waiting.erase(it);
            else
                ++it;
        }
        if (waiting.size() != before)
            set(siteId, waiting);
    }
    QSet<QString> listed;
    for (const FilePtr& file : std::as_const(list)) {
        const QString path = file->pathWithFilename.value_or(QString());
        listed.insert(path);
        if (waiting.contains(path))
            file->willUpload = false;
    }
    for (auto it = waiting.cbegin(); it != waiting.cend(); ++it) {
        if (listed.contains(it.key()))
            continue;
        const FilePtr file = File::initWithPath(it.key());
        file->gitStatus = it->letter;
        file->willUpload = false;
        list.append(file);
    }
}

} // namespace tw
