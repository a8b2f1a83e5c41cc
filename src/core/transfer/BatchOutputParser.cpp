#include "BatchOutputParser.h"

#include "transfer/CurlLines.h"

#include <utility>

namespace tw {

BatchOutputParser::BatchOutputParser(Kind kind, const QStringList& localFiles, qsizetype count, Events events)
    : m_kind(kind)
    , m_count(count)
    , m_events(std::move(events)) {
    m_state.fill(0, count);
    for (qsizetype i = 0; i < localFiles.size(); ++i)
        m_indexOfFile.insert(localFiles.at(i), i);
}

qsizetype BatchOutputParser::firstOpen() const {
    for (qsizetype i = 0; i < m_count; ++i) {
        if (m_state.at(i) == 0)
            return i;
    }
    return -1;
}

void BatchOutputParser::complete(qsizetype index) {
    if (index < 0 || index >= m_count || m_state.at(index) != 0)
        return;
    m_state[index] = 1;
    ++m_completed;
    if (m_events.completed)
        m_events.completed(index);
}

void BatchOutputParser::fail(qsizetype index, const QString& text, bool named) {
    m_sawError = true;
    if (index < 0 || index >= m_count || m_state.at(index) != 0) {
        index = firstOpen();
        named = false;
    }
    if (index >= 0)
        m_state[index] = 2;
    if (m_failed)
        return; // the run has failed already: what follows is its aftermath
    m_failed = true;
    if (m_events.failed)
        m_events.failed(index, text, named);
}

void BatchOutputParser::line(const QString& line) {
    if (m_kind == Kind::Upload)
        uploadLine(line);
    else
        deleteLine(line);
}

void BatchOutputParser::uploadLine(const QString& line) {
    if (const std::optional<QString> error = CurlLines::errorIn(line)) {
        if (const std::optional<QString> file = CurlLines::unreadableFileIn(line)) {
            // A file curl could not read: the transfer before it went well.
            complete(m_pending);
            m_pending = -1;
            fail(m_indexOfFile.value(*file, m_ended), *error, m_indexOfFile.contains(*file));
            return;
        }
        if (CurlLines::concernsTheCommandLine(*error)) {
            // About the whole run: no file is at fault.
            fail(firstOpen(), *error, false);
            return;
        }
        fail(m_pending >= 0 ? m_pending : m_ended, *error);
        m_pending = -1;
        return;
    }
    if (CurlLines::endsTransfer(line)) {
        complete(m_pending);
        m_pending = m_ended < m_count ? m_ended : -1;
        ++m_ended;
    }
}

void BatchOutputParser::progress(double percent) {
    if (m_kind == Kind::Upload && m_events.percent && m_ended < m_count && !m_failed)
        m_events.percent(m_ended, percent);
}

void BatchOutputParser::deleteLine(const QString& line) {
    if (const std::optional<QString> error = CurlLines::errorIn(line)) {
        fail(firstOpen(), *error, false); // the commands went in one go
        return;
    }
    if (line.startsWith(QStringLiteral("> DELE "))) {
        m_awaitingDeleteReply = true;
        return;
    }
    if (line.startsWith(QStringLiteral("> "))) {
        m_awaitingDeleteReply = false; // RMD and the transfer's own commands
        return;
    }
    if (!m_awaitingDeleteReply || !line.startsWith(QStringLiteral("< ")) || line.size() < 5)
        return;
    m_awaitingDeleteReply = false;
    const qsizetype index = m_replies++;
    if (index >= m_count)
        return;
    if (line.at(2) == u'2') {
        complete(index);
    } else {
        // A refused delete (the file is gone already, say) counts as done;
        // it is noted on the file, and the run goes on.
        m_state[index] = 1;
        ++m_completed;
        if (m_events.refused)
            m_events.refused(index, line.mid(2).trimmed());
    }
}

void BatchOutputParser::finished(int exitCode, bool crashed) {
    if (!m_failed && (crashed || exitCode != 0) && !m_sawError) {
        // Stopped without a word: the transfer that ended last went well (an
        // error would have followed its end), the one in flight did not.
        const QString text =
            crashed
                ? QStringLiteral("curl was stopped by a signal before all files were sent")
                : QStringLiteral("curl ended with exit status %1 before all files were sent").arg(exitCode);
        if (m_kind == Kind::Upload) {
            complete(m_pending);
            m_pending = -1;
            fail(m_ended < m_count ? m_ended : firstOpen(), text);
        } else {
            fail(firstOpen(), text, false);
        }
    }
    if (m_failed)
        return;
    if (m_kind == Kind::Upload) {
        complete(m_pending);
        m_pending = -1;
        if (const qsizetype open = firstOpen(); open >= 0)
            fail(open, QStringLiteral("curl ended before it sent every file of its run"), false);
        return;
    }
    // Deletions no reply confirmed, on a server that echoes none: curl
    // ended well, so they ran.
    for (qsizetype i = 0; i < m_count; ++i)
        complete(i);
}

} // namespace tw
