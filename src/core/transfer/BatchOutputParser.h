#pragma once

#include <QHash>
#include <QString>
#include <QStringList>

#include <functional>

namespace tw {

// Reads the "-v" trace of one batch curl run, line by line, and tells which
// of its files were sent, deleted or refused, and how far the one in flight
// has come.
//
// curl runs the transfers of a batch in order and ends each with "Connection
// #0 to host ... left intact" (or "Closing connection"); it reports a failed
// transfer with its error line right after that end, and goes on with the
// next transfer. So a transfer counts as sent once the next one has ended, or
// curl has ended, without an error line for it; "curl: cannot open 'FILE'"
// names the file it could not read (curl stops the whole run there); a line
// about curl's own command line ("curl: option ...", "curl: try ...") fails
// the run without naming a file.
//
// Deletions run as quote commands ("DELE path") before one transfer: each
// reply, in order, confirms or refuses the next file. A server that echoes no
// commands (SFTP) has its deletions confirmed when curl ends without an error.
//
// (Reports used to be tied to reads of curl's output, one read per file;
// curl writes its trace in dozens of reads per file, so most files were
// reported done before they were sent, and a failed one could be named
// wrongly. The lines say which file it is.)
class BatchOutputParser {
public:
    enum class Kind { Upload, Delete };

    struct Events {
        std::function<void(qsizetype index, double percent)> percent;
        // The file was sent (uploads) or confirmed deleted (deletions).
        std::function<void(qsizetype index)> completed;
        // A failure of the run: the text says what. named: curl's output
        // says which file it concerns (index); otherwise index is the first
        // file the run had not settled, and nobody can say it is the one.
        std::function<void(qsizetype index, const QString& text, bool named)> failed;
        // The server refused to delete the file (it may be gone already).
        std::function<void(qsizetype index, const QString& text)> refused;
    };

    // localFiles: the uploads' local files, for "cannot open" (empty for
    // deletions); count: the number of files of the batch.
    BatchOutputParser(Kind kind, const QStringList& localFiles, qsizetype count, Events events);

    void line(const QString& line);
    // A progress frame's percentage, for the upload in flight.
    void progress(double percent);
    // curl has ended: the files still open are settled, a non-zero exit (or
    // a signal) without an error line fails the first of them.
    void finished(int exitCode, bool crashed);

    bool hasFailed() const { return m_failed; }
    // Files reported sent (or deleted) so far.
    qsizetype completedCount() const { return m_completed; }

private:
    void complete(qsizetype index);
    void fail(qsizetype index, const QString& text, bool named = true);
    void uploadLine(const QString& line);
    void deleteLine(const QString& line);
    qsizetype firstOpen() const;

    Kind m_kind;
    qsizetype m_count;
    Events m_events;
    QHash<QString, qsizetype> m_indexOfFile;
    QList<int> m_state;       // 0 open, 1 done, 2 failed
    qsizetype m_ended = 0;    // transfers that ended (uploads)
    qsizetype m_pending = -1; // the transfer that ended last, not yet settled
    qsizetype m_replies = 0;  // delete replies seen
    bool m_awaitingDeleteReply = false;
    bool m_failed = false;
    bool m_sawError = false;
    qsizetype m_completed = 0;
};

} // namespace tw
