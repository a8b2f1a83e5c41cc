#pragma once

#include "transfer/TransporterFile.h"

#include <QString>
#include <QStringList>

namespace tw {

// What a Transporter tells about its work. Every message is optional to act
// on. All of them arrive on the thread that called run() or runMulti(), one
// at a time.
//
// The transporter does not own its delegate: whoever sets a delegate keeps it
// alive for as long as the transporter may still report (until the run ends
// or it is aborted), or sets another one (or none) first.
class TransporterDelegate {
public:
    virtual ~TransporterDelegate() = default;

    // 0 when a single-mode item starts, then the progress curl shows.
    virtual void didCompletePercent(const TransporterFilePtr& file, double percent) {
        Q_UNUSED(file);
        Q_UNUSED(percent);
    }
    // An item is done (in batch mode also a failed delete, and every chunk
    // with a percentage).
    virtual void didComplete(const TransporterFilePtr& file) { Q_UNUSED(file); }
    // A piece of a listing's output, split into names.
    virtual void didCompleteListing(const TransporterFilePtr& file, const QStringList& files) {
        Q_UNUSED(file);
        Q_UNUSED(files);
    }
    // A piece of a read file's content.
    virtual void didCompleteReadingFile(const TransporterFilePtr& file, const QString& content) {
        Q_UNUSED(file);
        Q_UNUSED(content);
    }
    // All work of the run is over and no error was recorded (a batch run that
    // deleted files always ends here).
    virtual void didCompleteAllRequests(const QString& tag) { Q_UNUSED(tag); }
    // All work of the run is over and an error was recorded.
    virtual void didCompleteAllWithErrors(const QString& tag) { Q_UNUSED(tag); }
    // curl reported a failure for the item; error is curl's text, cleaned up.
    virtual void didFail(const TransporterFilePtr& file, const QString& error) {
        Q_UNUSED(file);
        Q_UNUSED(error);
    }
};

} // namespace tw
