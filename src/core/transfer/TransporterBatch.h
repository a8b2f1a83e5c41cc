#pragma once

// The inside of the transfer engine's batch mode, shared by its two source
// files; nothing else includes it.

#include "transfer/BatchOutputParser.h"
#include "transfer/CurlLines.h"
#include "transfer/Transporter.h"

#include <QProcess>

#include <memory>

namespace tw {

// One batch curl run: its files, its command line, its process and what its
// output has said so far.
struct Transporter::Batch {
    bool isUpload = true;
    QList<TransporterFilePtr> group;
    QStringList arguments;
    QProcess* process = nullptr;
    CurlLines lines;
    std::unique_ptr<BatchOutputParser> parser;
};

// Marks the process whose signal is being handled, so that a transporter
// destroyed from within a delegate message does not delete that process
// under its own feet.
class Dispatching {
public:
    Dispatching(QProcess*& slot, QProcess* process)
        : m_slot(slot)
        , m_previous(slot) {
        m_slot = process;
    }
    ~Dispatching() { m_slot = m_previous; }
    Dispatching(const Dispatching&) = delete;
    Dispatching& operator=(const Dispatching&) = delete;

private:
    QProcess*& m_slot;
    QProcess* m_previous;
};

} // namespace tw
