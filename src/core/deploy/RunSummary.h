#pragma once

#include <QMetaType>
#include <QString>
#include <QStringList>

namespace tw {

// What one deployment attempt did, for the messages after it: how many files
// reached the server, how many the person left out, and whether the server's
// record names the deployed commit now.
struct RunSummary {
    qsizetype total = 0;     // uploads and deletions the run was to make
    qsizetype done = 0;      // of those, the ones curl reported as done
    qsizetype waiting = 0;   // listed files left unchecked: they wait for a later deployment
    qsizetype uploads = 0;   // of total, the uploads
    qsizetype deletions = 0; // of total, the deletions
    bool recordWritten = false;
    QString commit;           // the commit deployed (as the record names it)
    QStringList waitingFiles; // the paths of the waiting files, once the record is written
};

} // namespace tw

Q_DECLARE_METATYPE(tw::RunSummary)
