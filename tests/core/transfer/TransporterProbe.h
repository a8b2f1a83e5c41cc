#pragma once

#include "transfer/Transporter.h"
#include "transfer/TransporterBatch.h"

#include <QByteArray>

namespace tw {

// Feeds output to a transporter's readers without a curl process, as the
// fuzz targets do.
class TransporterProbe {
public:
    using Batch = Transporter::BatchPtr;

    static void errorChunk(Transporter& transporter, const TransporterFilePtr& file,
                           const QByteArray& chunk) {
        transporter.captureErrorResponse(file, chunk);
    }
    static void resultChunk(Transporter& transporter, const TransporterFilePtr& file,
                            const QByteArray& chunk) {
        transporter.captureResult(file, chunk);
    }
    // The queued items as one running batch (uploads or deletes), without curl.
    static Batch batch(Transporter& transporter, bool upload) {
        Batch made = transporter.buildBatch(transporter.m_queue, upload);
        transporter.m_queue.clear();
        transporter.m_runningBatches.append(made);
        return made;
    }
    static void batchChunk(Transporter& transporter, const Batch& batch, const QByteArray& chunk) {
        transporter.batchChunk(batch, chunk);
    }
    static void batchFinished(Transporter& transporter, const Batch& batch, int exitCode, bool crashed) {
        transporter.batchFinished(batch, exitCode, crashed);
    }
    // Puts the queued items in the pool, as run() would, without curl.
    static void pool(Transporter& transporter) {
        transporter.m_connectionPool.append(transporter.m_queue);
        transporter.m_queue.clear();
    }
};

} // namespace tw
