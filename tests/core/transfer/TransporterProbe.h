#pragma once

#include "transfer/Transporter.h"

#include <QByteArray>

namespace tw {

// Feeds chunks to a transporter's output readers without a curl process, as
// the fuzz targets do.
class TransporterProbe {
public:
    static void errorChunk(Transporter& transporter, const TransporterFilePtr& file,
                           const QByteArray& chunk) {
        transporter.captureErrorResponse(file, chunk);
    }
    static void resultChunk(Transporter& transporter, const TransporterFilePtr& file,
                            const QByteArray& chunk) {
        transporter.captureResult(file, chunk);
    }
    static void uploadChunk(Transporter& transporter, qsizetype& counter, const QByteArray& chunk) {
        transporter.captureMultiUploadResponse(counter, chunk);
    }
    static void deleteChunk(Transporter& transporter, qsizetype& counter, const QByteArray& chunk) {
        transporter.captureMultiDeleteResponse(counter, chunk);
    }
    // Makes the queued items the batch being read and takes them from the queue.
    static void setBatch(Transporter& transporter) {
        transporter.m_currentMultiQueue = transporter.m_queue;
        transporter.m_queue.clear();
    }
    // Puts the queued items in the pool, as run() would, without curl.
    static void pool(Transporter& transporter) {
        transporter.m_connectionPool.append(transporter.m_queue);
        transporter.m_queue.clear();
    }
};

} // namespace tw
