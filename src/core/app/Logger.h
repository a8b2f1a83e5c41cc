#pragma once

#include <QMutex>
#include <QString>

#include <optional>

namespace tw {

// The application's daily log files, in the data folder
// (~/.local/share/tarnwell/<identifier>/yyyy_MM_dd.log, or
// <prefix>_yyyy_MM_dd.log). Files are owner-only (0600) in an owner-only
// folder (0700): they hold command lines and server replies. Credentials that
// follow "--user" in a curl command line are masked before writing.
class Logger {
public:
    static Logger& sharedInstance();

    // Always writes.
    void log(const QString& text, const std::optional<QString>& prefix = std::nullopt);
    // Writes only while the preference "debugEnabled" is on (read anew for
    // every call) and the text is not empty.
    void debugLog(const QString& text, const std::optional<QString>& prefix = std::nullopt);

    // The current local time as "yyyy-MM-dd HH:mm:ss".
    QString timestamp() const;

    QString logDirectory() const;
    QString logFilePath(const std::optional<QString>& prefix = std::nullopt) const;

    static QString maskCredentials(const QString& text);
    // curl's debug trace of an FTP login holds the password in clear, as the
    // line "> PASS <password>" (the "> " often comes in a read of its own),
    // or "0000: PASS <password>" in its fuller trace.
    // Such lines are written as "PASS xxxxxx".
    static QString maskFtpPassword(const QString& text);

private:
    Logger() = default;
    void write(const QString& text, const std::optional<QString>& prefix);

    QMutex m_mutex;
    QString content;
};

} // namespace tw
