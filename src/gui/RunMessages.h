#pragma once

#include "deploy/DeployOutcome.h"
#include "deploy/RunSummary.h"

#include <QString>

namespace tw {

// What the window says about a deployment: the count on the progress sheet
// and the line under the file list once a run has ended.
class RunMessages {
public:
    // "3 of 10 files".
    static QString fileCount(qsizetype done, qsizetype total);
    // Whole per cent of the files done (0 when there are none).
    static int percent(qsizetype done, qsizetype total);
    // How many files reached the server and that the record was not written.
    static QString notRecorded(const RunSummary& summary);
    // The deployment's own notes below curl's text in a failure ("curl did
    // not say which file failed; ..."): taken out of text and answered, so
    // that the window shows them under its sentence, not among curl's lines.
    static QString takeRunNotes(QString& text);
    // The line after a run; empty when the run asked nothing of the server.
    static QString afterRun(DeployOutcome outcome, const RunSummary& summary);
};

} // namespace tw
