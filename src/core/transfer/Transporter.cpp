#include "Transporter.h"

#include "app/AppInfo.h"
#include "app/Logger.h"
#include "app/Preferences.h"
#include "app/ToolPaths.h"
#include "transfer/ConnectionAddress.h"
#include "transfer/CurlOutputPipe.h"
#include "transfer/TransporterOutput.h"

#include <QProcess>
#include <QTimer>

#include <algorithm>
#include <utility>

namespace tw {

namespace {

// How long a terminated curl gets to end before it is killed.
constexpr int killDelayMilliseconds = 5000;
// The rest between two reads of a batch run's standard error; longer once
// the upload reader's counter has run past the batch, since from then on no
// chunk is looked at any more (only the end of the run matters).
constexpr std::chrono::milliseconds batchReadPace{10};
constexpr std::chrono::milliseconds idleReadPace{100};
// How much of a single-mode curl's standard error is kept for a last look
// when it has ended (its error line is near the end).
constexpr qsizetype keptErrorBytes = 4096;

void keepTail(QByteArray& tail, const QByteArray& chunk) {
    tail.append(chunk);
    if (tail.size() <= 2 * keptErrorBytes)
        return;
    qsizetype cut = tail.size() - keptErrorBytes;
    // Not inside a character: UTF-8 continuation bytes are 10xxxxxx.
    while (cut < tail.size() && (static_cast<unsigned char>(tail.at(cut)) & 0xC0) == 0x80)
        ++cut;
    tail.remove(0, cut);
}

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

} // namespace

Transporter::Transporter(std::shared_ptr<TransporterConnectionProtocol> connection)
    : m_cURLPath(ToolPaths::curlPath())
    , m_environment(ToolPaths::curlEnvironment())
    , m_connection(std::move(connection))
    , m_debug(debugEnabled()) {
    Q_ASSERT(m_connection);
}

Transporter::~Transporter() {
    const QSet<QProcess*> processes = std::exchange(m_processes, {});
    for (QProcess* process : processes) {
        QObject::disconnect(process, nullptr, nullptr, nullptr);
        if (process->state() != QProcess::NotRunning) {
            process->kill();
            process->waitForFinished(killDelayMilliseconds);
        }
        if (process == m_dispatching)
            process->deleteLater();
        else
            delete process;
    }
}

bool Transporter::debugEnabled() {
    return Preferences::instance().boolValue(QStringLiteral("debugEnabled"));
}

void Transporter::writeLog(const QString& text) {
    Logger::sharedInstance().log(text);
}

// ---------------------------------------------------------------------------
// Queueing

TransporterFilePtr Transporter::enqueue(std::optional<QString> filePath, const QString& remotePath,
                                        TransporterOperations operation) {
    const SitePtr site = m_connection->getSite();
    const QString remote = site ? ConnectionAddress::withoutSyncRoot(*site, remotePath) : remotePath;
    TransporterFilePtr file(new TransporterFile(std::move(filePath), remote, operation));
    m_queue.append(file);
    return file;
}

TransporterFilePtr Transporter::uploadFile(const QString& localPath, const QString& remotePath) {
    return enqueue(localPath, remotePath, TransporterOperations::Upload);
}

TransporterFilePtr Transporter::deleteFile(const QString& remotePath) {
    return enqueue(std::nullopt, remotePath, TransporterOperations::Delete);
}

TransporterFilePtr Transporter::list(const QString& remotePath) {
    return enqueue(std::nullopt, remotePath, TransporterOperations::List);
}

TransporterFilePtr Transporter::readFile(const QString& remotePath) {
    return enqueue(std::nullopt, remotePath, TransporterOperations::Read);
}

void Transporter::clearQueue() {
    m_queue.clear();
}

void Transporter::putTimestamp() {
    if (!debugEnabled())
        return;
    writeLog(QString());
    writeLog(QString(109, QLatin1Char('_')));
    writeLog(QString());
    writeLog(QStringLiteral("# SESSION STARTED @ ") + Logger::sharedInstance().timestamp());
}

QStringList Transporter::cleanedArguments(const QStringList& arguments) const {
    QStringList cleaned;
    cleaned.reserve(arguments.size() + 2);
    for (const QString& argument : arguments)
        cleaned.append(TransporterOutput::cleanArgument(argument));
    return cleaned;
}

// ---------------------------------------------------------------------------
// Processes

QProcess* Transporter::startProcess(const QStringList& arguments, bool readsStandardOutput) {
    auto* process = new QProcess;
    process->setProgram(m_cURLPath);
    process->setArguments(arguments);
    process->setProcessEnvironment(m_environment);
    process->setStandardInputFile(QProcess::nullDevice());
    // Output nobody reads goes nowhere instead of piling up in a buffer.
    if (!readsStandardOutput)
        process->setStandardOutputFile(QProcess::nullDevice());
    m_processes.insert(process);
    return process;
}

void Transporter::processEnded(QProcess* process) {
    if (!m_processes.remove(process))
        return;
    QObject::disconnect(process, nullptr, nullptr, nullptr);
    process->deleteLater();
    if (m_processes.isEmpty())
        emit becameIdle();
}

void Transporter::terminateProcess(QProcess* process) {
    if (!process || process->state() == QProcess::NotRunning)
        return;
    process->terminate();
    QTimer::singleShot(killDelayMilliseconds, process, [process] {
        if (process->state() != QProcess::NotRunning)
            process->kill();
    });
}

QString Transporter::startFailureText(QProcess* process) const {
    return QStringLiteral("Could not start curl at ") + m_cURLPath + QStringLiteral(" (") +
           process->errorString() + QLatin1Char(')');
}

// ---------------------------------------------------------------------------
// Single mode

void Transporter::run() {
    m_hasErrors = false;
    m_isTerminating = false;
    m_errorString = QString();
    if (m_queue.isEmpty())
        return;
    // The items that fit under the bound, taken before any starts: only
    // those can start, and a copy of them alone keeps a long queue from being
    // copied on every run.
    const qint64 room = m_maxSimultaneousConnectinos - m_connectionPool.size();
    if (room <= 0)
        return;
    const QList<TransporterFilePtr> snapshot = m_queue.first(std::min<qint64>(room, m_queue.size()));
    for (const TransporterFilePtr& file : snapshot) {
        if (m_connectionPool.size() >= m_maxSimultaneousConnectinos)
            break;
        launch(file);
    }
}

void Transporter::launch(const TransporterFilePtr& file) {
    m_connectionPool.append(file);
    if (!m_queue.isEmpty() && m_queue.first() == file)
        m_queue.removeFirst();
    else
        m_queue.removeOne(file);
    if (m_delegate)
        m_delegate->didCompletePercent(file, 0);

    QStringList arguments = cleanedArguments(m_connection->getArgument(file, m_localBasePath));
    if (debugEnabled()) {
        arguments.append(QStringLiteral("-vvv"));
        writeLog(QStringLiteral("----- CONNECTION STRING -----"));
        writeLog(arguments.join(QLatin1Char(' ')));
        writeLog(QStringLiteral("----- END CONNECTION STRING -----"));
    }

    const TransporterOperations operation = file->operation();
    const bool readsOutput =
        operation == TransporterOperations::List || operation == TransporterOperations::Read;
    QProcess* process = startProcess(arguments, readsOutput);
    file->m_task = process;

    // The item is held weakly: one that was let go of is simply ignored.
    const std::weak_ptr<TransporterFile> weakFile = file;
    // The end of standard error, looked at again when curl has ended.
    const auto errorTail = std::make_shared<QByteArray>();
    connect(process, &QProcess::readyReadStandardError, process, [this, process, weakFile, errorTail] {
        const auto keep = weak_from_this().lock();
        const Dispatching dispatching(m_dispatching, process);
        const QByteArray chunk = process->readAllStandardError();
        if (chunk.isEmpty())
            return;
        keepTail(*errorTail, chunk);
        if (const TransporterFilePtr item = weakFile.lock())
            captureErrorResponse(item, chunk);
    });
    if (readsOutput) {
        connect(process, &QProcess::readyReadStandardOutput, process, [this, process, weakFile] {
            const auto keep = weak_from_this().lock();
            const Dispatching dispatching(m_dispatching, process);
            const QByteArray chunk = process->readAllStandardOutput();
            if (chunk.isEmpty())
                return;
            if (const TransporterFilePtr item = weakFile.lock())
                captureResult(item, chunk);
        });
    }
    connect(process, &QProcess::finished, process, [this, process, weakFile, errorTail] {
        const auto keep = weak_from_this().lock();
        const Dispatching dispatching(m_dispatching, process);
        if (const TransporterFilePtr item = weakFile.lock()) {
            catchMissedError(item, *errorTail);
            singleFinished(item);
        }
        processEnded(process);
    });
    connect(process, &QProcess::errorOccurred, process,
            [this, process, weakFile](QProcess::ProcessError error) {
                if (error != QProcess::FailedToStart)
                    return;
                const auto keep = weak_from_this().lock();
                const Dispatching dispatching(m_dispatching, process);
                if (const TransporterFilePtr item = weakFile.lock())
                    singleFailedToStart(item, startFailureText(process));
                processEnded(process);
            });
    process->start(QIODevice::ReadOnly);
}

void Transporter::singleFinished(const TransporterFilePtr& file) {
    switch (file->operation()) {
    case TransporterOperations::List:
        // A listing ends through its output only.
        break;
    case TransporterOperations::Read:
        // A read ends through its output; one that printed nothing (an empty
        // file, or bytes that are not text) and reported no error is over
        // when curl is, so the run still comes to its end.
        if (m_connectionPool.contains(file))
            finishOff(file);
        break;
    default:
        if (!file->m_hasError && !m_isTerminating && m_delegate)
            m_delegate->didComplete(file);
        finishOff(file);
        break;
    }
}

// curl 8.14 writes its error line to standard error a byte at a time, so a
// read can end anywhere inside "curl: (78) The file does not exist" and no
// chunk need hold the whole of it; a meter frame read together with it hides
// it as well (a chunk with "%" is progress only). Either way the item would
// count as done: a failed upload as a success, a missing record as a read
// that never answers. So once curl has ended, the end of its standard error
// is read as a whole, and an error that no chunk showed fails the item now,
// as its chunk would have.
void Transporter::catchMissedError(const TransporterFilePtr& file, const QByteArray& errorTail) {
    if (file->m_hasError || m_isTerminating || !m_connectionPool.contains(file) || errorTail.isEmpty())
        return;
    // Text that is not UTF-8 is ignored here as in its chunks.
    const std::optional<QString> text = TransporterOutput::decode(errorTail);
    if (!text)
        return;
    const QStringList lines = text->split(QLatin1Char('\n'));
    for (const QString& line : lines) {
        if (!TransporterOutput::isCurlError(line) && !TransporterOutput::isAccessDenied(line))
            continue;
        m_errorString = line;
        file->m_hasError = true;
        if (m_delegate)
            m_delegate->didFail(file, TransporterOutput::cleanErrorText(line));
        finishOff(file);
        return;
    }
}

// curl could not be started at all (its file is missing or not executable):
// the item fails as if curl had printed an error, with a text that says why,
// so the run still ends with didCompleteAllWithErrors.
void Transporter::singleFailedToStart(const TransporterFilePtr& file, const QString& reason) {
    writeLog(QStringLiteral("Transporter: ") + reason);
    if (m_isTerminating)
        return;
    m_errorString = reason;
    file->m_hasError = true;
    if (m_delegate)
        m_delegate->didFail(file, reason);
    finishOff(file);
}

void Transporter::finishOff(const TransporterFilePtr& file) {
    // An item is finished off once: an error reported while its curl still
    // runs finishes it, and the end of that curl then finds nothing to do.
    const qsizetype index = m_connectionPool.indexOf(file);
    if (index < 0)
        return;
    if (file->m_hasError)
        m_hasErrors = true;
    m_connectionPool.removeAt(index);
    if (!m_queue.isEmpty())
        return;
    if (!m_connectionPool.isEmpty() || m_isTerminating || !m_delegate)
        return;
    if (m_hasErrors) {
        m_hasErrors = false;
        m_delegate->didCompleteAllWithErrors(m_tag);
        if (debugEnabled())
            writeLog(QStringLiteral("All requests for (") + m_tag +
                     QStringLiteral(") did complete, but with errors"));
    } else {
        m_delegate->didCompleteAllRequests(m_tag);
        if (debugEnabled()) {
            writeLog(QString());
            writeLog(QStringLiteral("DONE! All requests for (") + m_tag +
                     QStringLiteral(") completed successfully"));
            writeLog(QString());
        }
    }
}

// ---------------------------------------------------------------------------
// Batch mode

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

    for (qsizetype start = 0; start < uploads.size(); start += uploadsPerBatch)
        m_queueMulti.push_back(buildBatch(uploads.mid(start, uploadsPerBatch), true));
    for (qsizetype start = 0; start < deletes.size(); start += deletesPerBatch)
        m_queueMulti.push_back(buildBatch(deletes.mid(start, deletesPerBatch), false));
    if (!m_queueMulti.empty())
        launchBatch(m_queueMulti.front());
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
    return batch;
}

void Transporter::handleBatchChunk(Batch& batch, const QByteArray& chunk) {
    if (batch.isUpload) {
        keepTail(batch.errorTail, chunk);
        captureMultiUploadResponse(batch.counter, chunk);
    } else {
        captureMultiDeleteResponse(batch.counter, chunk);
    }
}

// A batch upload's error line can be cut between two reads as well; once
// curl has ended, the end of its standard error is read as a whole and an
// error that no chunk showed aborts the run as its chunk would have.
void Transporter::catchMissedBatchError(const Batch& batch) {
    if (!batch.isUpload || m_isTerminating || batch.errorTail.isEmpty())
        return;
    const std::optional<QString> text = TransporterOutput::decode(batch.errorTail);
    if (!text)
        return;
    const QStringList lines = text->split(QLatin1Char('\n'));
    for (qsizetype i = 0; i < lines.size(); ++i) {
        if (!TransporterOutput::isCurlError(lines.at(i)))
            continue;
        // The whole line is one chunk now, its line end kept as a read
        // would have; the count has long run out.
        const QString line = i + 1 < lines.size() ? lines.at(i) + QLatin1Char('\n') : lines.at(i);
        qsizetype pastTheGroup = m_currentMultiQueue.size();
        captureMultiUploadResponse(pastTheGroup, line.toUtf8());
        return;
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
        connect(pipe, &CurlOutputPipe::chunkRead, process,
                [this, process, batch, pipe](const QByteArray& chunk) {
                    const auto keep = weak_from_this().lock();
                    const Dispatching dispatching(m_dispatching, process);
                    handleBatchChunk(*batch, chunk);
                    if (batch->isUpload && batch->counter >= m_currentMultiQueue.size())
                        pipe->setPace(idleReadPace);
                });
    } else {
        connect(process, &QProcess::readyReadStandardError, process, [this, process, batch] {
            const auto keep = weak_from_this().lock();
            const Dispatching dispatching(m_dispatching, process);
            const QByteArray chunk = process->readAllStandardError();
            if (!chunk.isEmpty())
                handleBatchChunk(*batch, chunk);
        });
    }
    connect(process, &QProcess::finished, process,
            [this, process, batch, pipe, paced](int exitCode, QProcess::ExitStatus status) {
                const auto keep = weak_from_this().lock();
                const Dispatching dispatching(m_dispatching, process);
                if (paced) {
                    const QByteArray rest = pipe->readRemaining();
                    if (!rest.isEmpty())
                        handleBatchChunk(*batch, rest);
                }
                catchMissedBatchError(*batch);
                batchFinished(batch, status != QProcess::NormalExit || exitCode != 0);
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
    process->start(QIODevice::ReadOnly);
    pipe->closeWriteEnd();
}

void Transporter::batchFinished(const BatchPtr& batch, bool failed) {
    if (batch->isUpload && failed)
        writeLog(QStringLiteral("Transporter: terminationStatus = fail"));
    const auto found = std::find(m_queueMulti.begin(), m_queueMulti.end(), batch);
    if (found == m_queueMulti.end())
        return; // aborted
    m_queueMulti.erase(found);
    if (!m_queueMulti.empty()) {
        launchBatch(m_queueMulti.front());
        return;
    }
    m_queue.clear();
    m_currentMultiQueue.clear();
    if (!batch->isUpload) {
        // Failed deletes are noted on their items only: the run succeeds.
        m_hasErrors = false;
        if (m_delegate)
            m_delegate->didCompleteAllRequests(m_tag);
        return;
    }
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

// curl could not be started: the batch fails as a curl error in a batch
// upload does. The group's first item gets didFail with a text that says
// why, and the run is abandoned without a completion message.
void Transporter::batchFailedToStart(const BatchPtr& batch, const QString& reason) {
    writeLog(QStringLiteral("Transporter: ") + reason);
    if (m_isTerminating)
        return;
    if (std::find(m_queueMulti.begin(), m_queueMulti.end(), batch) == m_queueMulti.end())
        return;
    m_errorString = reason;
    const TransporterFilePtr file = batch->group.value(0);
    if (file)
        file->m_hasError = true;
    terminateAllTasks();
    if (m_delegate && file)
        m_delegate->didFail(file, reason);
}

// ---------------------------------------------------------------------------
// Aborting

void Transporter::terminateAllTasks() {
    m_isTerminating = true;
    m_queue.clear();
    for (const TransporterFilePtr& file : std::as_const(m_connectionPool)) {
        if (QProcess* process = file->task())
            terminateProcess(process);
    }
    if (!m_queueMulti.empty()) {
        terminateProcess(m_queueMulti.front()->process);
        m_queueMulti.clear();
    }
    if (debugEnabled()) {
        writeLog(QString(68, QLatin1Char('-')));
        writeLog(QStringLiteral("Session terminated @ ") + Logger::sharedInstance().timestamp());
        writeLog(QString(68, QLatin1Char('-')));
    }
}

// ---------------------------------------------------------------------------
// Reading curl's output

void Transporter::captureErrorResponse(const TransporterFilePtr& file, const QByteArray& chunk) {
    const std::optional<QString> text = TransporterOutput::decode(chunk);
    if (!text)
        return;
    const bool debug = debugEnabled();
    if (debug) {
        writeLog(QStringLiteral("--- Begin captureErrorResponse. Single ---"));
        writeLog(*text);
    }
    const QString trimmed = text->trimmed();
    if (trimmed.contains(QLatin1Char('%'))) {
        const std::optional<double> percent = TransporterOutput::singlePercent(trimmed);
        if (percent && m_delegate)
            m_delegate->didCompletePercent(file, *percent);
        return;
    }
    if (debug)
        Logger::sharedInstance().debugLog(trimmed);
    if (!TransporterOutput::isCurlError(trimmed) && !TransporterOutput::isAccessDenied(trimmed))
        return;
    if (m_isTerminating)
        return;
    m_errorString = *text;
    file->m_hasError = true;
    if (m_delegate)
        m_delegate->didFail(file, TransporterOutput::cleanErrorText(*text));
    finishOff(file);
}

void Transporter::captureResult(const TransporterFilePtr& file, const QByteArray& chunk) {
    if (file->m_hasError)
        return;
    const TransporterOperations operation = file->operation();
    if (operation != TransporterOperations::List && operation != TransporterOperations::Read)
        return;
    const std::optional<QString> text = TransporterOutput::decode(chunk);
    if (!text)
        return;
    if (debugEnabled())
        Logger::sharedInstance().debugLog(*text);
    if (m_isTerminating)
        return;
    if (operation == TransporterOperations::List) {
        const QStringList names = text->chopped(text->isEmpty() ? 0 : 1).split(QLatin1Char('\n'));
        if (m_delegate)
            m_delegate->didCompleteListing(file, names);
    } else if (m_delegate) {
        m_delegate->didCompleteReadingFile(file, *text);
    }
    if (!file->m_hasError && m_delegate)
        m_delegate->didComplete(file);
    finishOff(file);
}

// One chunk is taken to be about one item: the counter moves on with every
// chunk, whatever it holds (with curl's verbose output an item gets many
// chunks, so the counter soon runs past the batch and later chunks are not
// looked at).
void Transporter::captureMultiUploadResponse(qsizetype& counter, const QByteArray& chunk) {
    const qsizetype index = counter++;
    if (m_currentMultiQueue.isEmpty())
        return;
    const bool counted = index >= 0 && index < m_currentMultiQueue.size();
    const std::optional<QString> text = TransporterOutput::decode(chunk);
    if (!text)
        return;
    const bool debug = debugEnabled();
    if (debug && counted)
        Logger::sharedInstance().debugLog(*text);

    // A curl error fails the run whatever the count says. The count assumes
    // one chunk per file, but curl 8.14 writes its trace in dozens of reads
    // per file, so the count runs past the group long before the end, and
    // the error can follow a meter frame in the same read. Read by the count
    // alone, a refused upload would end as a success and the server's record
    // would claim files that never arrived. Past the group, the error goes to
    // the group's last item.
    if (TransporterOutput::isCurlError(*text)) {
        const TransporterFilePtr file = counted ? m_currentMultiQueue.at(index) : m_currentMultiQueue.last();
        writeLog(QStringLiteral("Transporter: ") + *text + QLatin1Char(' ') + file->remotePath());
        if (m_isTerminating)
            return;
        m_errorString = *text;
        file->m_hasError = true;
        m_isTerminating = true;
        terminateAllTasks();
        if (m_delegate)
            m_delegate->didFail(file, TransporterOutput::cleanErrorText(*text));
        return;
    }
    if (!counted)
        return;
    const TransporterFilePtr file = m_currentMultiQueue.at(index);
    if (text->contains(QLatin1Char('%'))) {
        const std::optional<double> percent = TransporterOutput::batchPercent(*text);
        if (percent && m_delegate) {
            m_delegate->didCompletePercent(file, *percent);
            m_delegate->didComplete(file);
        }
        return;
    }
    if (TransporterOutput::isUploadConfirmation(*text)) {
        if (debug)
            writeLog(QStringLiteral("Transporter: curlComplete ") + *text + QLatin1Char(' ') +
                     file->remotePath());
        if (m_delegate)
            m_delegate->didComplete(file);
    }
}

// The counter moves on only with a delete that worked: failures and other
// chunks stay with the same item.
void Transporter::captureMultiDeleteResponse(qsizetype& counter, const QByteArray& chunk) {
    if (counter < 0 || counter >= m_currentMultiQueue.size())
        return;
    const TransporterFilePtr file = m_currentMultiQueue.at(counter);
    const std::optional<QString> text = TransporterOutput::decode(chunk);
    if (!text)
        return;
    const bool debug = debugEnabled();
    if (debug)
        Logger::sharedInstance().debugLog(*text);
    if (TransporterOutput::isDeleteConfirmation(*text)) {
        ++counter;
        if (debug)
            writeLog(file->remotePath() + QStringLiteral(" -- ") + *text);
        if (m_delegate)
            m_delegate->didComplete(file);
        return;
    }
    if (!TransporterOutput::isCurlError(*text) && !TransporterOutput::isDeleteRefusal(*text))
        return;
    if (debug)
        writeLog(QStringLiteral("Transporter delete error: ") + *text + QLatin1Char(' ') +
                 file->remotePath());
    // A failed delete counts as done; the run is neither aborted nor failed.
    if (m_delegate)
        m_delegate->didComplete(file);
    if (!m_isTerminating) {
        m_errorString = QStringLiteral("Failed deleting ") + file->remotePath() +
                        QStringLiteral(". File does not exist on server? ");
        file->m_hasError = true;
    }
}

} // namespace tw
