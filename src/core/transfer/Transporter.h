#pragma once

#include "transfer/TransporterConnectionProtocol.h"
#include "transfer/TransporterDelegate.h"
#include "transfer/TransporterFile.h"

#include <QByteArray>
#include <QList>
#include <QObject>
#include <QProcessEnvironment>
#include <QSet>
#include <QString>
#include <QStringList>

#include <deque>
#include <memory>
#include <optional>

class QProcess;

namespace tw {

// The transfer engine: moves files between the repository and the server by
// running the application's own curl, one process per run. Callers queue
// items, start the queue in one of two modes and hear about progress and
// completion through the delegate:
//
// - single mode (run): one curl per item, at most maxSimultaneousConnectinos
//   at once. When a process ends, the next queued item is NOT started: items
//   beyond the bound wait in the queue until run() is called again.
// - batch mode (runMulti): the queued uploads go into curl runs of up to 500
//   uploads, then the deletes into runs of up to 200, one after another
//   after every upload has ended. Other items are dropped. With a bound above
//   one, up to that many upload runs go at once (see runMulti).
//
// Every curl run gets "-q" first (the person's ~/.curlrc never applies: it
// could hide every error line), a private empty home, a connect time-out and
// a low-speed limit (the preferences "connectTimeout" and "stallTimeout", in
// seconds), and its connection's configuration (the login) on its standard
// input. A run that ends with a non-zero exit status, or by a signal, without
// an error line fails what it had not finished: an exit status alone is no
// success.
//
// The engine owns its curl processes. Their output and their end arrive on
// the event loop of the thread that called run() or runMulti(), and every
// delegate message is sent there; that thread must run an event loop, and
// terminateAllTasks() belongs on it too. The delegate is not owned (see
// TransporterDelegate). One transporter serves one piece of work at a time:
// do not start a run while another one is active. Every text that leaves it
// (errorString, didFail) has the connection's secrets masked.
//
// A transporter is usually held by a std::shared_ptr (Deployer makes it so);
// then it stays alive until the delegate message being sent has returned,
// even if the delegate lets go of it. Destroying it kills its processes.
class Transporter : public QObject, public std::enable_shared_from_this<Transporter> {
    Q_OBJECT

public:
    static constexpr qsizetype uploadsPerBatch = 500;
    static constexpr qsizetype deletesPerBatch = 200;
    // Parallel upload runs take at least this many files each: below that a
    // login costs more than it saves.
    static constexpr qsizetype minimumParallelBatch = 50;

    // The curl path and its environment are taken from ToolPaths now.
    explicit Transporter(std::shared_ptr<TransporterConnectionProtocol> connection);
    ~Transporter() override;

    const QString& cURLPath() const { return m_cURLPath; }
    const std::shared_ptr<TransporterConnectionProtocol>& connection() const { return m_connection; }

    // Queueing. The remote path is the repository path with the site's sync
    // root folder taken off its start. The new item is appended and returned.
    TransporterFilePtr uploadFile(const QString& localPath, const QString& remotePath);
    TransporterFilePtr deleteFile(const QString& remotePath);
    TransporterFilePtr list(const QString& remotePath);
    TransporterFilePtr readFile(const QString& remotePath);
    // Empties the queue (nothing else).
    void clearQueue();

    // Bound on concurrent curl processes (default 3); 0 or less starts
    // nothing in single mode and one run at a time in batch mode.
    qint64 maxSimultaneousConnectinos() const { return m_maxSimultaneousConnectinos; }
    void setMaxSimultaneousConnectinos(qint64 count) { m_maxSimultaneousConnectinos = count; }
    // Not owned; may be none.
    TransporterDelegate* delegate() const { return m_delegate; }
    void setDelegate(TransporterDelegate* delegate) { m_delegate = delegate; }
    // The last error curl printed (or a batch delete's note); absent until a
    // run starts, empty text at the start of every run.
    const std::optional<QString>& errorString() const { return m_errorString; }
    void setErrorString(const std::optional<QString>& text) { m_errorString = text; }
    // The label given back with the completion of all work (default "upload").
    const QString& tag() const { return m_tag; }
    void setTag(const QString& tag) { m_tag = tag; }
    void setBatchTag(const QString& tag) { m_tag = tag; }
    // Handed unchanged to the connection with every single-mode item.
    const QString& localBasePath() const { return m_localBasePath; }
    void setLocalBasePath(const QString& path) { m_localBasePath = path; }
    // "debugEnabled" as it was at creation. Debug lines themselves read the
    // preference anew each time.
    bool debug() const { return m_debug; }
    void setDebug(bool debug) { m_debug = debug; }

    // State, mostly for tests.
    bool isTerminating() const { return m_isTerminating; }
    bool hasErrors() const { return m_hasErrors; }
    const QList<TransporterFilePtr>& queue() const { return m_queue; }
    const QList<TransporterFilePtr>& connectionPool() const { return m_connectionPool; }
    // The items of the batch built last.
    const QList<TransporterFilePtr>& currentMultiQueue() const { return m_currentMultiQueue; }
    // Batch processes not finished yet, the running ones included.
    qsizetype queueMultiCount() const;
    // curl processes started and not yet ended.
    qsizetype runningProcessCount() const { return m_processes.size(); }
    // The options every curl run starts with: "-q", the time-outs.
    static QStringList commonOptions();

    // The start banner of a deployment in the log (debug only).
    void putTimestamp();
    // Single mode: starts queued items up to the bound. An empty queue sends
    // nothing at all.
    void run();
    // Batch mode. An empty queue sends didCompleteAllRequests at once. With
    // maxSimultaneousConnectinos 1 (or less) the runs are today's: groups of
    // up to 500 uploads in queue order, one after another. With a bound N
    // above one the uploads, taken folder by folder, are cut into balanced
    // runs of at most 500 (at least minimumParallelBatch each), and up to N
    // of them run at once; the deletes follow when every upload has ended.
    void runMulti();
    // Aborts: empties the queue, terminates every curl process of this
    // transporter (killed if it has not ended 5 s later) and sends no
    // completion message for them.
    void terminateAllTasks();

signals:
    // The last curl process of this transporter has ended (finished, failed
    // to start, or terminated), after its messages were sent.
    void becameIdle();

private:
    friend class TransporterProbe; // tests and fuzz targets feed output directly

    struct Batch;
    using BatchPtr = std::shared_ptr<Batch>;

    TransporterFilePtr enqueue(std::optional<QString> filePath, const QString& remotePath,
                               TransporterOperations operation);
    QStringList cleanedArguments(const QStringList& arguments) const;
    QProcess* startProcess(const QStringList& arguments, bool readsStandardOutput);
    void launchProcess(QProcess* process);
    void processEnded(QProcess* process);
    void terminateProcess(QProcess* process);
    QString startFailureText(QProcess* process) const;
    QString masked(const QString& text) const;

    // Single mode.
    void launch(const TransporterFilePtr& file);
    void singleFinished(const TransporterFilePtr& file, int exitCode, bool crashed);
    void singleFailedToStart(const TransporterFilePtr& file, const QString& reason);
    void failSingle(const TransporterFilePtr& file, const QString& text);
    // Takes a single-mode item out of the pool and reports the end of all
    // work when it was the last.
    void finishOff(const TransporterFilePtr& file);
    // The readers of a single-mode curl's output, one chunk (one read) at a
    // time: progress and errors on standard error, listings and file
    // contents on standard output.
    void captureErrorResponse(const TransporterFilePtr& file, const QByteArray& chunk);
    void captureResult(const TransporterFilePtr& file, const QByteArray& chunk);
    void errorLine(const TransporterFilePtr& file, const QString& line);

    // Batch mode.
    QList<QList<TransporterFilePtr>> uploadGroups(const QList<TransporterFilePtr>& uploads) const;
    BatchPtr buildBatch(const QList<TransporterFilePtr>& group, bool isUpload);
    void startBatches();
    void launchBatch(const BatchPtr& batch);
    // Whether the batch's output still counts: it runs, and the run has not
    // failed or been aborted.
    bool batchIsLive(const BatchPtr& batch) const;
    void batchChunk(const BatchPtr& batch, const QByteArray& chunk);
    void batchFinished(const BatchPtr& batch, int exitCode, bool crashed);
    void batchFailedToStart(const BatchPtr& batch, const QString& reason);
    void batchFailed(const BatchPtr& batch, qsizetype index, const QString& text, bool named);

    static bool debugEnabled();
    static void writeLog(const QString& text);

    QString m_cURLPath;
    QProcessEnvironment m_environment;
    std::shared_ptr<TransporterConnectionProtocol> m_connection;
    qint64 m_maxSimultaneousConnectinos = 3;
    TransporterDelegate* m_delegate = nullptr;
    QList<TransporterFilePtr> m_queue;
    std::deque<BatchPtr> m_queueMulti; // built, not yet started
    QList<BatchPtr> m_runningBatches;
    QList<TransporterFilePtr> m_currentMultiQueue;
    QList<TransporterFilePtr> m_connectionPool;
    std::optional<QString> m_errorString;
    QString m_localBasePath;
    bool m_isTerminating = false;
    bool m_hasErrors = false;
    QString m_tag = QStringLiteral("upload");
    bool m_debug = false;

    QSet<QProcess*> m_processes;
    QProcess* m_dispatching = nullptr; // the process whose signal is being handled
};

} // namespace tw
