#pragma once

#include <QByteArray>
#include <QList>
#include <QString>
#include <QStringList>

namespace tw::test {

// What a test looks at after the program worked: files on a server's disk
// and the processes left running.

// The file's bytes; empty when it cannot be read.
QByteArray readFile(const QString& path);
// Every file below a folder (hidden ones too), relative to it, sorted.
QStringList tree(const QString& folder);
struct ProcessEntry {
    qint64 pid = 0;
    QByteArray name; // the command name /proc/<pid>/stat gives
};
// The descendants of a process (this test when no pid is given), as /proc
// shows them now.
QList<ProcessEntry> descendants(qint64 ancestor = 0);
// The curl processes among them, as "pid (curl)" texts.
QStringList curlDescendants(qint64 ancestor = 0);

} // namespace tw::test
