#include "Transporter.h"

#include "app/Logger.h"
#include "app/Preferences.h"
#include "app/SecretMask.h"
#include "app/ToolPaths.h"
#include "transfer/ConnectionAddress.h"
#include "transfer/CurlLines.h"
#include "transfer/TransporterBatch.h"
#include "transfer/TransporterOutput.h"

#include <QProcess>
#include <QTimer>

#include <utility>

namespace tw {

namespace {

// How long a terminated curl gets to end before it is killed.
constexpr int killDelayMilliseconds = 5000;

// The time-outs every curl run gets, in seconds, when the preferences name
// none (or nonsense). A server that takes the connection and then says
// nothing ends the run instead of holding it for ever: 30 s is ample for a
// greeting, a TLS handshake and a login over a slow line; a transfer that
// moves no byte for 60 s has stopped (a server busy with a big file still
// reads it).
constexpr qint64 defaultConnectTimeout = 30;
constexpr qint64 defaultStallTimeout = 60;

qint64 seconds(const QString& key, qint64 fallback) {
    const qint64 value = Preferences::instance().integerValue(key);
    return value > 0 && value <= 3600 ? value : fallback;
}

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

QString Transporter::masked(const QString& text) const {
    QString result = SecretMask::apply(text);
    for (const QString& secret : m_connection->secrets()) {
        if (secret.size() >= SecretMask::minimumLength)
            result.replace(secret, QStringLiteral("xxxxxx"));
    }
    return result;
}

QStringList Transporter::commonOptions() {
    return {QStringLiteral("-q"),
            QStringLiteral("--connect-timeout"),
            QString::number(seconds(QStringLiteral("connectTimeout"), defaultConnectTimeout)),
            QStringLiteral("--speed-limit"),
            QStringLiteral("1"),
            QStringLiteral("--speed-time"),
            QString::number(seconds(QStringLiteral("stallTimeout"), defaultStallTimeout))};
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
    QStringList cleaned = commonOptions();
    cleaned.reserve(arguments.size() + cleaned.size() + 2);
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
    // Output nobody reads goes nowhere instead of piling up in a buffer.
    if (!readsStandardOutput)
        process->setStandardOutputFile(QProcess::nullDevice());
    m_processes.insert(process);
    return process;
}

// The login reaches curl on its standard input ("-K -"), which is closed
// then: it never stands on the command line, where every user of the
// machine can read it.
void Transporter::launchProcess(QProcess* process) {
    process->start(QIODevice::ReadWrite);
    const QByteArray config = m_connection->curlConfig();
    if (!config.isEmpty())
        process->write(config);
    process->closeWriteChannel();
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
    connect(process, &QProcess::readyReadStandardError, process, [this, process, weakFile] {
        const auto keep = weak_from_this().lock();
        const Dispatching dispatching(m_dispatching, process);
        const QByteArray chunk = process->readAllStandardError();
        if (!chunk.isEmpty()) {
            if (const TransporterFilePtr item = weakFile.lock())
                captureErrorResponse(item, chunk);
        }
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
    connect(process, &QProcess::finished, process,
            [this, process, weakFile](int exitCode, QProcess::ExitStatus status) {
                const auto keep = weak_from_this().lock();
                const Dispatching dispatching(m_dispatching, process);
                if (const TransporterFilePtr item = weakFile.lock()) {
                    // A last line without its line feed is read now.
                    if (const std::optional<QString> rest = item->m_errorLines.rest())
                        errorLine(item, *rest);
                    singleFinished(item, exitCode, status != QProcess::NormalExit);
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
    launchProcess(process);
}

void Transporter::singleFinished(const TransporterFilePtr& file, int exitCode, bool crashed) {
    const bool inPool = m_connectionPool.contains(file);
    // An exit status alone is no success: a curl stopped by a signal, or one
    // that failed without saying so, fails its item.
    if (inPool && !file->m_hasError && !m_isTerminating && (crashed || exitCode != 0) && !file->m_sawError) {
        failSingle(file, crashed ? QStringLiteral("curl was stopped by a signal before it had done its work")
                                 : QStringLiteral("curl ended with exit status %1").arg(exitCode));
        return;
    }
    switch (file->operation()) {
    case TransporterOperations::List:
        // A listing ends through its output only.
        break;
    case TransporterOperations::Read:
        // A read ends through its output; one that printed nothing (an empty
        // file, or bytes that are not text) and reported no error is over
        // when curl is, so the run still comes to its end.
        if (inPool)
            finishOff(file);
        break;
    default:
        if (!file->m_hasError && !m_isTerminating && m_delegate)
            m_delegate->didComplete(file);
        finishOff(file);
        break;
    }
}

// curl could not be started at all (its file is missing or not executable):
// the item fails as if curl had printed an error, with a text that says why,
// so the run still ends with didCompleteAllWithErrors.
void Transporter::singleFailedToStart(const TransporterFilePtr& file, const QString& reason) {
    writeLog(QStringLiteral("Transporter: ") + reason);
    if (m_isTerminating)
        return;
    failSingle(file, reason);
}

void Transporter::failSingle(const TransporterFilePtr& file, const QString& text) {
    m_errorString = masked(text);
    file->m_hasError = true;
    if (m_delegate)
        m_delegate->didFail(file, masked(TransporterOutput::cleanErrorText(text)));
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

// Progress comes as meter frames ("\r###  45.3%") without line ends: the
// chunk's last percentage is the item's progress. Errors are looked for in
// whole lines, whatever stands before them on the line, and in text that is
// not UTF-8 as well (decoded with replacement characters).
void Transporter::captureErrorResponse(const TransporterFilePtr& file, const QByteArray& chunk) {
    const QString text = QString::fromUtf8(chunk);
    if (debugEnabled()) {
        writeLog(QStringLiteral("--- Begin captureErrorResponse. Single ---"));
        writeLog(text);
    }
    if (const std::optional<double> percent = CurlLines::percentIn(text);
        percent && m_delegate && !file->m_hasError && !m_isTerminating)
        m_delegate->didCompletePercent(file, *percent);
    for (const QString& line : file->m_errorLines.add(chunk))
        errorLine(file, line);
}

void Transporter::errorLine(const TransporterFilePtr& file, const QString& line) {
    std::optional<QString> error = CurlLines::errorIn(line);
    if (!error && TransporterOutput::isAccessDenied(line))
        error = line;
    if (!error)
        return;
    file->m_sawError = true;
    if (m_isTerminating || file->m_hasError || !m_connectionPool.contains(file))
        return;
    failSingle(file, *error);
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

// ---------------------------------------------------------------------------
// Aborting

// Every curl of this transporter stops: those of the pool and the running
// batches, and also one whose item has failed already but which is still
// running (it printed its error and has not ended).
void Transporter::terminateAllTasks() {
    m_isTerminating = true;
    m_queue.clear();
    m_queueMulti.clear();
    m_runningBatches.clear();
    const QSet<QProcess*> processes = m_processes;
    for (QProcess* process : processes)
        terminateProcess(process);
    if (debugEnabled()) {
        writeLog(QString(68, QLatin1Char('-')));
        writeLog(QStringLiteral("Session terminated @ ") + Logger::sharedInstance().timestamp());
        writeLog(QString(68, QLatin1Char('-')));
    }
}

} // namespace tw
