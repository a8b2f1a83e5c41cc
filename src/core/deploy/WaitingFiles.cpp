#include "WaitingFiles.h"

#include "app/Preferences.h"

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

} // namespace tw
