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
// - batch mode (runMulti): the queued uploads and deletes go into curl runs
//   of up to 500 uploads, then up to 200 deletes, run strictly one after
//   another. Other items are dropped.
//
// The engine owns its curl processes. Their output and their end arrive on
// the event loop of the thread that called run() or runMulti(), and every
// delegate message is sent there; that thread must run an event loop, and
// terminateAllTasks() belongs on it too. The delegate is not owned (see
// TransporterDelegate). One transporter serves one piece of work at a time:
// do not start a run while another one is active.
//
// A curl that cannot be started (its file missing or not executable) fails
// its work with a text saying so ("Could not start curl at ..."): in single
// mode the item gets didFail and the run ends with didCompleteAllWithErrors;
// in batch mode the group's first item gets didFail and the run is abandoned
// without a completion message, as after a curl error in a batch upload.
//
// A transporter is usually held by a std::shared_ptr (Deployer makes it so);
// then it stays alive until the delegate message being sent has returned,
// even if the delegate lets go of it. Destroying it kills its processes.
class Transporter : public QObject, public std::enable_shared_from_this<Transporter> {
    Q_OBJECT

public:
    static constexpr qsizetype uploadsPerBatch = 500;
    static constexpr qsizetype deletesPerBatch = 200;

    // The curl path and its environment are taken from ToolPaths now.
    explicit Transporter(std::shared_ptr<TransporterConnectionProtocol> connection);
    ~Transporter() override;

    const QString& cURLPath() const { return m_cURLPath; }
    const std::shared_ptr<TransporterConnectionProtocol>& connection() const { return m_connection; }

    // Queueing. The remote path loses every occurrence of the site's sync
    // root. The new item is appended to the queue and returned.
    TransporterFilePtr uploadFile(const QString& localPath, const QString& remotePath);
    TransporterFilePtr deleteFile(const QString& remotePath);
    TransporterFilePtr list(const QString& remotePath);
    TransporterFilePtr readFile(const QString& remotePath);
    // Empties the queue (nothing else).
    void clearQueue();

    // Bound on concurrent curl processes in single mode (default 3); 0 or
    // less starts nothing. Batch mode ignores it.
    qint64 maxSimultaneousConnectinos() const { return m_maxSimultaneousConnectinos; }
    void setMaxSimultaneousConnectinos(qint64 count) { m_maxSimultaneousConnectinos = count; }
    // Not owned; may be none.
    TransporterDelegate* delegate() const { return m_delegate; }
    void setDelegate(TransporterDelegate* delegate) { m_delegate = delegate; }
    // The last error chunk curl printed (or a batch delete's note); absent
    // until a run starts, empty text at the start of every run.
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
    // Batch processes not finished yet, the running one included.
    qsizetype queueMultiCount() const { return static_cast<qsizetype>(m_queueMulti.size()); }
    // curl processes started and not yet ended.
    qsizetype runningProcessCount() const { return m_processes.size(); }

    // The start banner of a deployment in the log (debug only).
    void putTimestamp();
    // Single mode: starts queued items up to the bound. An empty queue sends
    // nothing at all.
    void run();
    // Batch mode. An empty queue sends didCompleteAllRequests at once.
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
    friend class TransporterProbe; // tests and fuzz targets feed chunks directly

    struct Batch {
        bool isUpload = true;
        QList<TransporterFilePtr> group;
        QStringList arguments;
        qsizetype counter = 0; // which item of currentMultiQueue the next chunk is about
        QProcess* process = nullptr;
        QByteArray errorTail; // the end of standard error, for a last look when curl has ended
    };
    using BatchPtr = std::shared_ptr<Batch>;

    TransporterFilePtr enqueue(std::optional<QString> filePath, const QString& remotePath,
                               TransporterOperations operation);
    QStringList cleanedArguments(const QStringList& arguments) const;
    QProcess* startProcess(const QStringList& arguments, bool readsStandardOutput);
    void launch(const TransporterFilePtr& file);
    BatchPtr buildBatch(const QList<TransporterFilePtr>& group, bool isUpload);
    void launchBatch(const BatchPtr& batch);
    void handleBatchChunk(Batch& batch, const QByteArray& chunk);
    void catchMissedBatchError(const Batch& batch);
    void catchMissedError(const TransporterFilePtr& file, const QByteArray& errorTail);
    void singleFinished(const TransporterFilePtr& file);
    void singleFailedToStart(const TransporterFilePtr& file, const QString& reason);
    void batchFinished(const BatchPtr& batch, bool failed);
    void batchFailedToStart(const BatchPtr& batch, const QString& reason);
    void processEnded(QProcess* process);
    void terminateProcess(QProcess* process);
    QString startFailureText(QProcess* process) const;

    // The four readers of curl's output, one chunk (one read) at a time.
    void captureErrorResponse(const TransporterFilePtr& file, const QByteArray& chunk);
    void captureResult(const TransporterFilePtr& file, const QByteArray& chunk);
    void captureMultiUploadResponse(qsizetype& counter, const QByteArray& chunk);
    void captureMultiDeleteResponse(qsizetype& counter, const QByteArray& chunk);
    // Takes a single-mode item out of the pool and reports the end of all
    // work when it was the last.
    void finishOff(const TransporterFilePtr& file);

    static bool debugEnabled();
    static void writeLog(const QString& text);

    QString m_cURLPath;
    QProcessEnvironment m_environment;
    std::shared_ptr<TransporterConnectionProtocol> m_connection;
    qint64 m_maxSimultaneousConnectinos = 3;
    TransporterDelegate* m_delegate = nullptr;
    QList<TransporterFilePtr> m_queue;
    std::deque<BatchPtr> m_queueMulti;
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
