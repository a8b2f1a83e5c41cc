#include "Inspection.h"

#include <QCoreApplication>
#include <QDir>
#include <QDirIterator>
#include <QFile>
#include <QHash>

namespace tw::test {

QByteArray readFile(const QString& path) {
    QFile file(path);
    if (!file.open(QIODevice::ReadOnly))
        return QByteArray();
    return file.readAll();
}

QStringList tree(const QString& folder) {
    QStringList files;
    QDirIterator walk(folder, QDir::Files | QDir::Hidden | QDir::System | QDir::NoDotAndDotDot,
                      QDirIterator::Subdirectories);
    while (walk.hasNext())
        files.append(QDir(folder).relativeFilePath(walk.next()));
    files.sort();
    return files;
}

QList<ProcessEntry> descendants(qint64 ancestor) {
    if (ancestor == 0)
        ancestor = QCoreApplication::applicationPid();
    // pid -> (parent, command) from /proc/<pid>/stat: "pid (comm) state ppid ...".
    QHash<qint64, std::pair<qint64, QByteArray>> processes;
    const QStringList entries = QDir(QStringLiteral("/proc")).entryList(QDir::Dirs | QDir::NoDotAndDotDot);
    for (const QString& entry : entries) {
        bool isPid = false;
        const qint64 pid = entry.toLongLong(&isPid);
        if (!isPid)
            continue;
        const QByteArray stat = readFile(QStringLiteral("/proc/") + entry + QStringLiteral("/stat"));
        const qsizetype open = stat.indexOf('(');
        const qsizetype close = stat.lastIndexOf(')');
        if (open < 0 || close < open)
            continue;
        const QList<QByteArray> fields = stat.mid(close + 2).split(' ');
        if (fields.size() < 2)
            continue;
        processes.insert(pid, {fields.at(1).toLongLong(), stat.mid(open + 1, close - open - 1)});
    }
    QList<ProcessEntry> found;
    for (auto it = processes.cbegin(); it != processes.cend(); ++it) {
        for (qint64 parent = it->first; parent > 1 && processes.contains(parent);
             parent = processes.value(parent).first) {
            if (parent == ancestor) {
                found.append({it.key(), it->second});
                break;
            }
        }
    }
    return found;
}

QStringList curlDescendants(qint64 ancestor) {
    QStringList found;
    for (const ProcessEntry& process : descendants(ancestor)) {
        if (process.name == "curl")
            found.append(QString::number(process.pid) + QStringLiteral(" (curl)"));
    }
    found.sort();
    return found;
}

} // namespace tw::test
