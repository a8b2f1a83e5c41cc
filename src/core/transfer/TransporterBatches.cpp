// The transfer engine's batch mode: many files per curl run, several runs at
// once (see Transporter::runMulti).

#include "app/AppInfo.h"
#include "app/Logger.h"
#include "transfer/CurlOutputPipe.h"
#include "transfer/TransporterBatch.h"
#include "transfer/TransporterOutput.h"

#include <QProcess>
#include <QSet>

#include <algorithm>
#include <chrono>

namespace tw {

namespace {

// The rest between two reads of a batch run's standard error: with "-v"
// curl writes its trace in dozens of small pieces per file, and waking for
// each of them cost a deployment a third of its time.
constexpr std::chrono::milliseconds batchReadPace{10};

QString folderOf(const QString& path) {
    const qsizetype slash = path.lastIndexOf(QLatin1Char('/'));
    return slash < 0 ? QString() : path.left(slash);
}

qsizetype divideRoundingUp(qsizetype a, qsizetype b) {
    return (a + b - 1) / b;
}

} // namespace

qsizetype Transporter::queueMultiCount() const {
    return static_cast<qsizetype>(m_queueMulti.size()) + m_runningBatches.size();
}

void Transporter::runMulti() {
    m_hasErrors = false;
    m_isTerminating = false;
    m_errorString = QString();
    if (m_queue.isEmpty()) {
        if (m_delegate)
            m_delegate->didCompleteAllRequests(m_tag);
        return;
    }
    QList<TransporterFilePtr> uploads;
    QList<TransporterFilePtr> deletes;
    for (const TransporterFilePtr& file : std::as_const(m_queue)) {
        if (file->operation() == TransporterOperations::Upload)
            uploads.append(file);
        else if (file->operation() == TransporterOperations::Delete)
            deletes.append(file);
    }
    m_queue.clear();

    // A file that became a folder of the same name, or a folder that became a
    // file: its old form must go before the new one can be written, so those
    // deletions (and the folders they empty) run first.
    QSet<QString> uploaded;
    QSet<QString> uploadFolders;
    for (const TransporterFilePtr& file : std::as_const(uploads)) {
        uploaded.insert(file->remotePath());
        QString folder = folderOf(file->remotePath());
        while (!folder.isEmpty() && !uploadFolders.contains(folder)) {
            uploadFolders.insert(folder);
            folder = folderOf(folder);
        }
    }
    QList<TransporterFilePtr> first;
    QList<TransporterFilePtr> last;
    for (const TransporterFilePtr& file : std::as_const(deletes)) {
        bool conflicts = uploadFolders.contains(file->remotePath());
        for (QString folder = folderOf(file->remotePath()); !conflicts && !folder.isEmpty();
             folder = folderOf(folder))
            conflicts = uploaded.contains(folder);
        (conflicts ? first : last).append(file);
    }
    for (qsizetype start = 0; start < first.size(); start += deletesPerBatch)
        m_queueMulti.push_back(buildBatch(first.mid(start, deletesPerBatch), false));
    for (const QList<TransporterFilePtr>& group : uploadGroups(uploads))
        m_queueMulti.push_back(buildBatch(group, true));
    for (qsizetype start = 0; start < last.size(); start += deletesPerBatch)
        m_queueMulti.push_back(buildBatch(last.mid(start, deletesPerBatch), false));
    startBatches();
}

// With one connection: groups of up to 500 in queue order, as ever. With
// more: the files folder by folder (so that two runs rarely create the same
// folder), cut into runs of equal size that fill the connections in whole
// waves, at most 500 and at least minimumParallelBatch files each.
QList<QList<TransporterFilePtr>> Transporter::uploadGroups(const QList<TransporterFilePtr>& uploads) const {
    QList<QList<TransporterFilePtr>> groups;
    const qsizetype count = uploads.size();
    if (count == 0)
        return groups;
    const qsizetype connections = std::max<qint64>(1, m_maxSimultaneousConnectinos);
    if (connections == 1) {
        for (qsizetype start = 0; start < count; start += uploadsPerBatch)
            groups.append(uploads.mid(start, uploadsPerBatch));
        return groups;
    }
    QList<TransporterFilePtr> ordered = uploads;
    std::stable_sort(ordered.begin(), ordered.end(),
                     [](const TransporterFilePtr& a, const TransporterFilePtr& b) {
                         return folderOf(a->remotePath()) < folderOf(b->remotePath());
                     });
    const qsizetype least = divideRoundingUp(count, uploadsPerBatch);
    const qsizetype waves = connections * divideRoundingUp(least, connections);
    // Rounded down: 120 files make two runs of 60, never three of 40.
    const qsizetype most = std::max<qsizetype>(1, count / minimumParallelBatch);
    const qsizetype runs = std::max(least, std::min(waves, most));
    qsizetype start = 0;
    for (qsizetype run = 0; run < runs; ++run) {
        const qsizetype size = count / runs + (run < count % runs ? 1 : 0);
        groups.append(ordered.mid(start, size));
        start += size;
    }
    return groups;
}

Transporter::BatchPtr Transporter::buildBatch(const QList<TransporterFilePtr>& group, bool isUpload) {
    m_currentMultiQueue = group;
    auto batch = std::make_shared<Batch>();
    batch->isUpload = isUpload;
    batch->group = group;
    batch->arguments = cleanedArguments(isUpload ? m_connection->getArgumentForMultiFileUpload(group)
                                                 : m_connection->getArgumentForMultiFileDelete(group));
    batch->arguments << QStringLiteral("--user-agent") << AppInfo::userAgent();
    if (debugEnabled())
        writeLog(batch->arguments.join(QLatin1Char(' ')));

    QStringList localFiles;
    if (isUpload) {
        localFiles.reserve(group.size());
        for (const TransporterFilePtr& file : group)
            localFiles.append(file->filePath().value_or(QString()));
    }
    // A run that failed, was aborted or stopped for another's failure
    // reports nothing more, whatever its output still says; a delegate that
    // aborts during one message gets no further one.
    const std::weak_ptr<Batch> weakBatch = batch;
    BatchOutputParser::Events events;
    events.percent = [this, weakBatch](qsizetype index, double percent) {
        if (const BatchPtr b = weakBatch.lock(); b && m_delegate && batchIsLive(b))
            m_delegate->didCompletePercent(b->group.at(index), percent);
    };
    events.completed = [this, weakBatch](qsizetype index) {
        if (const BatchPtr b = weakBatch.lock(); b && m_delegate && batchIsLive(b))
            m_delegate->didComplete(b->group.at(index));
    };
    events.failed = [this, weakBatch](qsizetype index, const QString& text, bool named) {
        if (const BatchPtr b = weakBatch.lock())
            batchFailed(b, index, text, named);
    };
    // A refused delete counts as done and is noted on its file: the run goes
    // on and still ends well (the file may well be gone already).
    events.refused = [this, weakBatch](qsizetype index, const QString& reply) {
        const BatchPtr b = weakBatch.lock();
        if (!b || !batchIsLive(b))
            return;
        const TransporterFilePtr& file = b->group.at(index);
        if (debugEnabled())
            writeLog(QStringLiteral("Transporter delete error: ") + reply + QLatin1Char(' ') +
                     file->remotePath());
        if (m_delegate)
            m_delegate->didComplete(file);
        if (!m_isTerminating) {
            m_errorString = QStringLiteral("Failed deleting ") + file->remotePath() +
                            QStringLiteral(". File does not exist on server? ");
            file->m_hasError = true;
        }
    };
    batch->parser = std::make_unique<BatchOutputParser>(isUpload ? BatchOutputParser::Kind::Upload
                                                                 : BatchOutputParser::Kind::Delete,
                                                        localFiles, group.size(), std::move(events));
    return batch;
}

// Uploads first, up to the bound at once; the deletions after every upload
// has ended, one run at a time; then the end of all work.
void Transporter::startBatches() {
    if (m_isTerminating)
        return;
    const qsizetype connections = std::max<qint64>(1, m_maxSimultaneousConnectinos);
    while (!m_queueMulti.empty()) {
        const BatchPtr next = m_queueMulti.front();
        // Uploads run side by side; a deletion run waits for every run before
        // it, and the uploads after it wait for it.
        const bool othersRunning =
            std::any_of(m_runningBatches.cbegin(), m_runningBatches.cend(),
                        [&next](const BatchPtr& b) { return b->isUpload != next->isUpload; });
        if (othersRunning)
            return;
        if (next->isUpload ? m_runningBatches.size() >= connections : !m_runningBatches.isEmpty())
            return;
        m_queueMulti.pop_front();
        m_runningBatches.append(next);
        launchBatch(next);
        if (m_isTerminating)
            return;
    }
    if (!m_runningBatches.isEmpty())
        return;
    m_queue.clear();
    m_currentMultiQueue.clear();
    if (m_hasErrors) {
        m_hasErrors = false;
        if (m_delegate)
            m_delegate->didCompleteAllWithErrors(m_tag);
        writeLog(QStringLiteral("Transporter: didCompleteAllWithErrors. Error: ") +
                 m_errorString.value_or(QStringLiteral("(none)")) + QStringLiteral(" Tag: ") + m_tag);
    } else {
        if (m_delegate)
            m_delegate->didCompleteAllRequests(m_tag);
        writeLog(QStringLiteral("Transporter: didCompleteAllRequests. Tag: ") + m_tag);
    }
}

bool Transporter::batchIsLive(const BatchPtr& batch) const {
    return !m_isTerminating && m_runningBatches.contains(batch);
}

// Logged always (debug), read only while the run is live: once it failed or
// was stopped, what curl still writes is its aftermath.
void Transporter::batchChunk(const BatchPtr& batch, const QByteArray& chunk) {
    if (debugEnabled())
        Logger::sharedInstance().debugLog(QString::fromUtf8(chunk));
    if (!batchIsLive(batch))
        return;
    if (batch->isUpload) {
        if (const std::optional<double> percent = CurlLines::percentIn(QString::fromUtf8(chunk)))
            batch->parser->progress(*percent);
    }
    for (const QString& line : batch->lines.add(chunk)) {
        if (!batchIsLive(batch))
            break;
        batch->parser->line(line);
    }
}

void Transporter::launchBatch(const BatchPtr& batch) {
    QProcess* process = startProcess(batch->arguments, false);
    batch->process = process;
    // Standard error through a pipe read at a steady pace (see
    // CurlOutputPipe); QProcess's own pipe when that cannot be made.
    auto* pipe = new CurlOutputPipe(batchReadPace, process);
    const bool paced = pipe->isValid();
    if (paced) {
        process->setStandardErrorFile(QProcess::nullDevice());
        pipe->attachAsStandardError(process);
        connect(pipe, &CurlOutputPipe::chunkRead, process, [this, process, batch](const QByteArray& chunk) {
            const auto keep = weak_from_this().lock();
            const Dispatching dispatching(m_dispatching, process);
            batchChunk(batch, chunk);
        });
    } else {
        connect(process, &QProcess::readyReadStandardError, process, [this, process, batch] {
            const auto keep = weak_from_this().lock();
            const Dispatching dispatching(m_dispatching, process);
            const QByteArray chunk = process->readAllStandardError();
            if (!chunk.isEmpty())
                batchChunk(batch, chunk);
        });
    }
    connect(process, &QProcess::finished, process,
            [this, process, batch, pipe, paced](int exitCode, QProcess::ExitStatus status) {
                const auto keep = weak_from_this().lock();
                const Dispatching dispatching(m_dispatching, process);
                if (paced) {
                    const QByteArray rest = pipe->readRemaining();
                    if (!rest.isEmpty())
                        batchChunk(batch, rest);
                }
                batchFinished(batch, exitCode, status != QProcess::NormalExit);
                processEnded(process);
            });
    connect(process, &QProcess::errorOccurred, process, [this, process, batch](QProcess::ProcessError error) {
        if (error != QProcess::FailedToStart)
            return;
        const auto keep = weak_from_this().lock();
        const Dispatching dispatching(m_dispatching, process);
        batchFailedToStart(batch, startFailureText(process));
        processEnded(process);
    });
    launchProcess(process);
    pipe->closeWriteEnd();
}

void Transporter::batchFinished(const BatchPtr& batch, int exitCode, bool crashed) {
    if (batch->isUpload && (crashed || exitCode != 0))
        writeLog(QStringLiteral("Transporter: terminationStatus = fail"));
    if (batchIsLive(batch)) {
        if (const std::optional<QString> rest = batch->lines.rest())
            batch->parser->line(*rest);
    }
    if (batchIsLive(batch))
        batch->parser->finished(exitCode, crashed);
    if (!m_runningBatches.removeOne(batch))
        return; // aborted, or failed and abandoned
    startBatches();
}

// The run fails where its output says: the file it concerns is marked, every
// curl of the run stops, no later run starts and no completion message
// follows.
void Transporter::batchFailed(const BatchPtr& batch, qsizetype index, const QString& text, bool named) {
    const TransporterFilePtr file = batch->group.value(index < 0 ? 0 : index);
    writeLog(QStringLiteral("Transporter: ") + masked(text) + QLatin1Char(' ') +
             (file ? file->remotePath() : QString()));
    if (m_isTerminating)
        return;
    m_errorString = masked(text);
    if (file) {
        file->m_hasError = true;
        file->m_failureUnnamed = !named;
    }
    terminateAllTasks();
    if (m_delegate && file)
        m_delegate->didFail(file, masked(TransporterOutput::cleanErrorText(text)));
}

// curl could not be started: the batch fails as a curl error does, with a
// text that says why.
void Transporter::batchFailedToStart(const BatchPtr& batch, const QString& reason) {
    writeLog(QStringLiteral("Transporter: ") + reason);
    if (m_isTerminating || !m_runningBatches.contains(batch))
        return;
    batchFailed(batch, 0, reason, false);
}

} // namespace tw
