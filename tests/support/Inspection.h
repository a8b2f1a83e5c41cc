#pragma once

#include <QByteArray>
#include <QString>
#include <QStringList>

namespace tw::test {

// What a test looks at after the program worked: files on a server's disk
// and the processes left running.

// The file's bytes; empty when it cannot be read.
QByteArray readFile(const QString& path);
// Every file below a folder (hidden ones too), relative to it, sorted.
QStringList tree(const QString& folder);
// The curl processes among the descendants of a process (this test when no
// pid is given), as "pid (curl)" texts.
QStringList curlDescendants(qint64 ancestor = 0);

} // namespace tw::test
