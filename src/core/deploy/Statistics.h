#pragma once

#include <QString>

namespace tw {

// A lifetime count of uploaded files and the date it counts from, kept in
// the preferences ("stat_totalFiles", "stat_since"). Each object reads the
// count once, when it is made, and adds to that copy: make one object per
// addition.
class Statistics {
public:
    // Reads the count; on first use also stores the current date as the
    // start of counting.
    Statistics();

    QString totalFiles() const { return m_totalFiles; }
    QString since() const { return m_since; }
    qint64 totalUploadedFiles() const { return m_totalUploadedFiles; }

    // Adds to the count and stores the sum (not forced to disk). A sum beyond
    // the range of a signed 64-bit integer ends the program.
    void addUploadedFiles(qint64 count);

private:
    QString m_totalFiles = QStringLiteral("stat_totalFiles");
    QString m_since = QStringLiteral("stat_since");
    qint64 m_totalUploadedFiles = 0;
};

} // namespace tw
