#include "Traces.h"

#include <QCoreApplication>
#include <QDir>
#include <QDirIterator>
#include <QFile>
#include <QFileInfo>

namespace tw::test {

QByteArray readFile(const QString& path) {
    QFile file(path);
    if (!file.open(QIODevice::ReadOnly))
        return QByteArray();
    return file.readAll();
}

bool writeFile(const QString& path, const QByteArray& content) {
    QDir().mkpath(QFileInfo(path).absolutePath());
    QFile file(path);
    return file.open(QIODevice::WriteOnly | QIODevice::Truncate) && file.write(content) == content.size();
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

QStringList filesHolding(const QString& folder, const QByteArrayList& texts) {
    QStringList found;
    for (const QString& file : tree(folder)) {
        const QByteArray bytes = readFile(folder + QLatin1Char('/') + file);
        for (const QByteArray& text : texts) {
            if (bytes.contains(text)) {
                found.append(file);
                break;
            }
        }
    }
    return found;
}

std::optional<ProcessEntry> process(qint64 pid) {
    const QByteArray stat = readFile(QStringLiteral("/proc/%1/stat").arg(pid));
    // "pid (comm) state ppid ...": the name may hold blanks and parentheses.
    const qsizetype open = stat.indexOf('(');
    const qsizetype close = stat.lastIndexOf(')');
    if (open < 0 || close < open)
        return std::nullopt;
    // fields[0] is field 3 of proc(5) (state), fields[1] field 4 (parent),
    // fields[19] field 22 (start time).
    const QList<QByteArray> fields = stat.mid(close + 2).split(' ');
    if (fields.size() < 20)
        return std::nullopt;
    return ProcessEntry{pid, stat.mid(open + 1, close - open - 1), fields.at(1).toLongLong(),
                        fields.at(0).isEmpty() ? '?' : fields.at(0).at(0), fields.at(19).toULongLong()};
}

bool isRunning(const ProcessEntry& entry) {
    const auto now = process(entry.pid);
    return now && now->startTime == entry.startTime && now->state != 'Z' && now->state != 'X';
}

QList<ProcessEntry> descendants(qint64 ancestor) {
    if (ancestor == 0)
        ancestor = QCoreApplication::applicationPid();
    QList<ProcessEntry> all;
    for (const QString& entry : QDir(QStringLiteral("/proc")).entryList(QDir::Dirs | QDir::NoDotAndDotDot)) {
        bool isPid = false;
        const qint64 pid = entry.toLongLong(&isPid);
        if (const auto found = isPid ? process(pid) : std::nullopt)
            all.append(*found);
    }
    QList<ProcessEntry> found;
    QList<qint64> parents{ancestor};
    while (!parents.isEmpty()) {
        const qint64 parent = parents.takeLast();
        for (const ProcessEntry& entry : std::as_const(all)) {
            if (entry.parent == parent) {
                found.append(entry);
                parents.append(entry.pid);
            }
        }
    }
    return found;
}

QList<qint64> descendantsNamed(const QByteArray& name, qint64 ancestor) {
    QList<qint64> found;
    for (const ProcessEntry& entry : descendants(ancestor)) {
        if (entry.name == name)
            found.append(entry.pid);
    }
    return found;
}

QList<qint64> curlsTalkingTo(quint16 port) {
    QList<qint64> found;
    const QByteArray address = "127.0.0.1:" + QByteArray::number(port);
    for (const QString& entry : QDir(QStringLiteral("/proc")).entryList(QDir::Dirs | QDir::NoDotAndDotDot)) {
        const QByteArray command = readFile(QStringLiteral("/proc/") + entry + QStringLiteral("/cmdline"));
        if (command.contains("curl") && command.contains(address))
            found.append(entry.toLongLong());
    }
    return found;
}

} // namespace tw::test
