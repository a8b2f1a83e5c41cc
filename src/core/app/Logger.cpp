#include "Logger.h"

#include "AppInfo.h"
#include "Preferences.h"
#include "SecretMask.h"

#include <QDate>
#include <QDateTime>
#include <QDir>
#include <QFile>
#include <QRegularExpression>
#include <QStandardPaths>

#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

namespace tw {

Logger& Logger::sharedInstance() {
    static Logger* logger = new Logger;
    return *logger;
}

QString Logger::timestamp() const {
    return QDateTime::currentDateTime().toString(QStringLiteral("yyyy-MM-dd HH:mm:ss"));
}

QString Logger::logDirectory() const {
    return QStandardPaths::writableLocation(QStandardPaths::AppDataLocation) + QLatin1Char('/') +
           AppInfo::identifier();
}

QString Logger::logFilePath(const std::optional<QString>& prefix) const {
    QString name;
    if (prefix)
        name = *prefix + QLatin1Char('_');
    name += QDate::currentDate().toString(QStringLiteral("yyyy_MM_dd")) + QStringLiteral(".log");
    return logDirectory() + QLatin1Char('/') + name;
}

void Logger::log(const QString& text, const std::optional<QString>& prefix) {
    write(text, prefix);
}

void Logger::debugLog(const QString& text, const std::optional<QString>& prefix) {
    if (!Preferences::instance().boolValue(QStringLiteral("debugEnabled")) || text.isEmpty())
        return;
    write(text, prefix);
}

QString Logger::maskCredentials(const QString& text) {
    static const QString user = QStringLiteral("--user");
    static const QString globoff = QStringLiteral("--globoff");
    if (text.isEmpty())
        return text;
    const qsizetype userAt = text.indexOf(user);
    if (userAt < 0)
        return text;
    const qsizetype start = userAt + user.size();
    const qsizetype end = text.indexOf(globoff, start);
    if (end < 0)
        return text;
    const QStringList pieces = text.mid(start, end - start).split(QLatin1Char(':'), Qt::SkipEmptyParts);
    if (pieces.size() < 2)
        return text;
    QString masked = text;
    masked.replace(pieces.at(1), QStringLiteral("xxxxxx "));
    return masked;
}

QString Logger::maskFtpPassword(const QString& text) {
    if (!text.contains(QLatin1String("PASS ")))
        return text;
    static const QRegularExpression pass(QStringLiteral("^(> |[0-9a-f]{4}: )?PASS [^\\r\\n]*"),
                                         QRegularExpression::MultilineOption);
    QString masked = text;
    masked.replace(pass, QStringLiteral("\\1PASS xxxxxx"));
    return masked;
}

void Logger::write(const QString& text, const std::optional<QString>& prefix) {
    QMutexLocker lock(&m_mutex);
    content = SecretMask::apply(maskFtpPassword(maskCredentials(text)));

    const QString folder = logDirectory();
    const QByteArray folderPath = QFile::encodeName(folder);
    if (!QDir(folder).exists()) {
        if (!QDir().mkpath(folder))
            std::fprintf(stderr, "Could not create directory %s: %s\n", folderPath.constData(),
                         std::strerror(errno));
        ::chmod(folderPath.constData(), S_IRWXU);
    }

    const QByteArray path = QFile::encodeName(logFilePath(prefix));
    content += QLatin1Char('\n');
    const QByteArray bytes = content.toUtf8();

    int fd = ::open(path.constData(), O_WRONLY | O_APPEND | O_CLOEXEC);
    if (fd >= 0) {
        const ssize_t written = ::write(fd, bytes.constData(), static_cast<size_t>(bytes.size()));
        Q_UNUSED(written);
        ::close(fd);
        return;
    }
    // First line of the day: write a temporary file (mkstemp makes it 0600)
    // and move it into place, so the file holds only this line.
    QByteArray temporary = path + ".XXXXXX";
    fd = ::mkstemp(temporary.data());
    if (fd < 0)
        return;
    const ssize_t written = ::write(fd, bytes.constData(), static_cast<size_t>(bytes.size()));
    ::close(fd);
    if (written != bytes.size() || ::rename(temporary.constData(), path.constData()) != 0)
        ::unlink(temporary.constData());
}

} // namespace tw
