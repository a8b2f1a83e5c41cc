#include "Terminal.h"

#include "InterruptWatcher.h"

#include <QByteArray>

#include <cerrno>
#include <sys/ioctl.h>
#include <termios.h>
#include <unistd.h>

namespace tw::cli {

Terminal& Terminal::instance() {
    static Terminal terminal;
    return terminal;
}

bool Terminal::inputIsTerminal() const {
    return ::isatty(STDIN_FILENO) == 1;
}

bool Terminal::errorIsTerminal() const {
    if (::isatty(STDERR_FILENO) != 1)
        return false;
    return qEnvironmentVariable("TERM") != u"dumb";
}

bool Terminal::canAsk() const {
    return !m_noInput && inputIsTerminal() && ::isatty(STDERR_FILENO) == 1;
}

int Terminal::width() const {
    winsize size = {};
    if (::ioctl(STDERR_FILENO, TIOCGWINSZ, &size) == 0 && size.ws_col > 10)
        return size.ws_col;
    return 80;
}

void Terminal::write(int fd, const QByteArray& bytes) {
    qsizetype done = 0;
    while (done < bytes.size()) {
        const ssize_t n = ::write(fd, bytes.constData() + done, static_cast<size_t>(bytes.size() - done));
        if (n < 0) {
            if (errno == EINTR)
                continue;
            return;
        }
        done += n;
    }
}

void Terminal::out(const QString& text) {
    write(STDOUT_FILENO, text.toUtf8());
}

void Terminal::err(const QString& text) {
    clearStatus();
    write(STDERR_FILENO, text.toUtf8());
}

void Terminal::status(const QString& line) {
    if (!errorIsTerminal())
        return;
    // Carriage return, the line, then erase what an older, longer line left.
    write(STDERR_FILENO, "\r" + line.toUtf8() + "\x1b[K");
    m_statusShown = true;
}

void Terminal::keepStatus() {
    if (!m_statusShown)
        return;
    write(STDERR_FILENO, "\n");
    m_statusShown = false;
}

void Terminal::clearStatus() {
    if (!m_statusShown)
        return;
    write(STDERR_FILENO, "\r\x1b[K");
    m_statusShown = false;
}

std::optional<QString> Terminal::readLine() {
    QByteArray line;
    for (;;) {
        char byte = 0;
        const ssize_t n = ::read(STDIN_FILENO, &byte, 1);
        if (n < 0) {
            if (errno == EINTR && !InterruptWatcher::wasInterrupted())
                continue;
            return std::nullopt;
        }
        if (n == 0) {
            if (line.isEmpty())
                return std::nullopt;
            break;
        }
        if (byte == '\n')
            break;
        line.append(byte);
    }
    if (line.endsWith('\r'))
        line.chop(1);
    return QString::fromUtf8(line);
}

std::optional<QString> Terminal::ask(const QString& prompt, bool echo) {
    err(prompt);
    termios saved = {};
    const bool hide = !echo && inputIsTerminal() && ::tcgetattr(STDIN_FILENO, &saved) == 0;
    if (hide) {
        termios quiet = saved;
        quiet.c_lflag &= ~static_cast<tcflag_t>(ECHO);
        quiet.c_lflag |= ECHONL;
        ::tcsetattr(STDIN_FILENO, TCSAFLUSH, &quiet);
    }
    const std::optional<QString> answer = readLine();
    if (hide)
        ::tcsetattr(STDIN_FILENO, TCSAFLUSH, &saved);
    if (!answer)
        write(STDERR_FILENO, "\n"); // Ctrl-C or the end of the input: the next line starts below
    return answer;
}

} // namespace tw::cli
