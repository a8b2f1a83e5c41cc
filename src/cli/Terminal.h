#pragma once

#include <QString>

#include <optional>

namespace tw::cli {

// The process's standard streams as the command line uses them: results on
// standard output; messages, questions and progress on standard error. On a
// terminal, one status line (the progress bar) can be redrawn in place;
// every other message first clears it.
class Terminal {
public:
    static Terminal& instance();

    bool inputIsTerminal() const;
    bool errorIsTerminal() const;
    // Questions may be asked: standard input and standard error are a
    // terminal and --no-input was not given.
    bool canAsk() const;
    void setNoInput(bool noInput) { m_noInput = noInput; }
    // Columns of the terminal on standard error (80 when unknown).
    int width() const;

    void out(const QString& text);
    void outLine(const QString& line) { out(line + QLatin1Char('\n')); }
    void err(const QString& text);
    void errLine(const QString& line) { err(line + QLatin1Char('\n')); }

    // Draws the status line in place (terminal only); a later err() clears it.
    void status(const QString& line);
    // Ends the status line where it is, so the next output starts below it.
    void keepStatus();
    void clearStatus();

    // One line of standard input without its line break; nothing at the end
    // of the input or when Ctrl-C interrupted the wait. Read byte by byte, so
    // the next line stays for the next reader.
    std::optional<QString> readLine();
    // Writes the prompt on standard error and reads the answer from the
    // terminal, without echo when asked to.
    std::optional<QString> ask(const QString& prompt, bool echo);

private:
    Terminal() = default;
    void write(int fd, const QByteArray& bytes);

    bool m_noInput = false;
    bool m_statusShown = false;
};

} // namespace tw::cli
