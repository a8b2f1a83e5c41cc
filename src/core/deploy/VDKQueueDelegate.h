#pragma once

#include <QString>

namespace tw {

class VDKQueue;

// Receives the events of a VDKQueue, on the main thread, one call per event
// name. A delegate must also be a QObject (VDKQueue::setDelegate accepts
// nothing else): the watcher holds it weakly and never calls a delegate that
// has been destroyed.
class VDKQueueDelegate {
public:
    virtual ~VDKQueueDelegate() = default;

    // Inside this class the name VDKQueue is this function, so the watcher's
    // class is written with its namespace.
    virtual void VDKQueue(tw::VDKQueue* queue, const QString& notificationName, const QString& path) = 0;
};

} // namespace tw
