#pragma once

#include <QByteArray>
#include <QByteArrayList>
#include <QList>
#include <QString>
#include <QStringList>

#include <optional>

namespace tw::test {

// What a test looks at after the program worked: files on a server's disk
// and the processes left running.

// The file's bytes; empty when it cannot be read.
QByteArray readFile(const QString& path);
// Writes the whole file, making its folders as needed.
bool writeFile(const QString& path, const QByteArray& content);
// Every file below a folder (hidden ones too), relative to it, sorted.
QStringList tree(const QString& folder);
// The files below a folder (hidden ones too) whose bytes hold one of the
// texts: where a secret leaked to.
QStringList filesHolding(const QString& folder, const QByteArrayList& texts);

// One line of /proc/<pid>/stat, as far as the tests need it. The start time
// tells a process from a later one that got the same id.
struct ProcessEntry {
    qint64 pid = 0;
    QByteArray name; // the command name
    qint64 parent = 0;
    char state = '?'; // 'Z': a zombie, which runs no more
    qulonglong startTime = 0;
};
std::optional<ProcessEntry> process(qint64 pid);
// Whether the process runs (the same process: not a later one with its id,
// not a zombie).
bool isRunning(const ProcessEntry& process);
// The descendants of a process (this test when no pid is given), as /proc
// shows them now.
QList<ProcessEntry> descendants(qint64 ancestor = 0);
// The pids of the descendants whose command name is the given one ("curl").
QList<qint64> descendantsNamed(const QByteArray& name, qint64 ancestor = 0);
// The curl processes below this test.
inline QList<qint64> curlDescendants() {
    return descendantsNamed("curl");
}
// curl processes anywhere on the machine whose command line names the port
// of 127.0.0.1: what a command that has ended left behind (orphans are no
// one's descendants).
QList<qint64> curlsTalkingTo(quint16 port);

} // namespace tw::test
