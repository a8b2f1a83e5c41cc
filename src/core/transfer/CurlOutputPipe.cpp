#include "CurlOutputPipe.h"

#include <QProcess>
#include <QSocketNotifier>

#include <cerrno>
#include <fcntl.h>
#include <unistd.h>

namespace tw {

CurlOutputPipe::CurlOutputPipe(std::chrono::milliseconds pace, QObject* parent)
    : QObject(parent) {
    int ends[2];
    if (::pipe2(ends, O_CLOEXEC) != 0)
        return;
    m_read = ends[0];
    m_write = ends[1];
    ::fcntl(m_read, F_SETFL, ::fcntl(m_read, F_GETFL) | O_NONBLOCK);
    // Room for a burst of curl's trace while the reader rests; the system's
    // size stays when it refuses.
    ::fcntl(m_write, F_SETPIPE_SZ, pipeSize);
    m_notifier = new QSocketNotifier(m_read, QSocketNotifier::Read, this);
    connect(m_notifier, &QSocketNotifier::activated, this, &CurlOutputPipe::readAvailable);
    m_pace.setSingleShot(true);
    m_pace.setInterval(pace);
    connect(&m_pace, &QTimer::timeout, this, [this] {
        if (!m_atEnd && m_notifier)
            m_notifier->setEnabled(true);
    });
}

CurlOutputPipe::~CurlOutputPipe() {
    delete m_notifier;
    if (m_read >= 0)
        ::close(m_read);
    closeWriteEnd();
}

void CurlOutputPipe::setPace(std::chrono::milliseconds pace) {
    m_pace.setInterval(pace);
}

void CurlOutputPipe::attachAsStandardError(QProcess* process) {
    const int write = m_write;
    // Runs in the child between fork and exec: dup2 is safe there, and the
    // copy on 2 stays open across exec while the pipe's own ends close.
    process->setChildProcessModifier([write] { ::dup2(write, STDERR_FILENO); });
}

void CurlOutputPipe::closeWriteEnd() {
    if (m_write >= 0)
        ::close(m_write);
    m_write = -1;
}

QByteArray CurlOutputPipe::readNow(bool* atEnd) {
    QByteArray data;
    char buffer[65536];
    while (true) {
        const ssize_t count = ::read(m_read, buffer, sizeof buffer);
        if (count > 0) {
            data.append(buffer, count);
            continue;
        }
        if (count == 0)
            *atEnd = true;
        else if (errno == EINTR)
            continue;
        return data;
    }
}

void CurlOutputPipe::readAvailable() {
    bool atEnd = false;
    const QByteArray chunk = readNow(&atEnd);
    m_notifier->setEnabled(false);
    if (atEnd)
        m_atEnd = true;
    else
        m_pace.start();
    if (!chunk.isEmpty())
        emit chunkRead(chunk);
}

QByteArray CurlOutputPipe::readRemaining() {
    m_pace.stop();
    if (m_notifier)
        m_notifier->setEnabled(false);
    if (m_read < 0 || m_atEnd)
        return {};
    bool atEnd = false;
    const QByteArray rest = readNow(&atEnd);
    m_atEnd = true;
    return rest;
}

} // namespace tw
