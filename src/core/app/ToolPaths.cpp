#include "ToolPaths.h"

#include "SystemLog.h"

#include <QCoreApplication>
#include <QDir>
#include <QMutex>
#include <QProcess>
#include <QTemporaryDir>

namespace tw {

namespace {

QMutex& mutex() {
    static QMutex m;
    return m;
}

std::optional<QString>& overrideFolder() {
    static std::optional<QString> folder;
    return folder;
}

} // namespace

QString ToolPaths::toolsDirectory() {
    {
        QMutexLocker lock(&mutex());
        if (overrideFolder())
            return *overrideFolder();
    }
    const QString fromEnvironment = qEnvironmentVariable("TARNWELL_TOOLS_DIR");
    if (!fromEnvironment.isEmpty())
        return fromEnvironment;
    return QDir::cleanPath(QCoreApplication::applicationDirPath() + QStringLiteral("/../libexec/tarnwell"));
}

void ToolPaths::setToolsDirectory(const std::optional<QString>& folder) {
    QMutexLocker lock(&mutex());
    overrideFolder() = folder;
}

QString ToolPaths::gitPath() {
    return toolsDirectory() + QStringLiteral("/git");
}

QString ToolPaths::curlPath() {
    return toolsDirectory() + QStringLiteral("/curl");
}

// An empty folder of this process's own (0700), the home curl sees: the
// person's ~/.curlrc (and $XDG_CONFIG_HOME/.curlrc) never applies, whatever
// it holds ("silent" there would hide every error line). "-q" as curl's
// first argument says the same; this keeps it so for a curl that reads its
// configuration some other way.
static QString privateCurlHome() {
    static QTemporaryDir folder(QDir::tempPath() + QStringLiteral("/tarnwell-curl-home-XXXXXX"));
    return folder.isValid() ? folder.path() : QStringLiteral("/nonexistent");
}

QProcessEnvironment ToolPaths::curlEnvironment() {
    QProcessEnvironment environment = QProcessEnvironment::systemEnvironment();
    const QString home = privateCurlHome();
    environment.insert(QStringLiteral("HOME"), home);
    environment.insert(QStringLiteral("CURL_HOME"), home);
    environment.insert(QStringLiteral("XDG_CONFIG_HOME"), home);
    QString libraryPath = toolsDirectory() + QStringLiteral("/lib");
    const QString existing = environment.value(QStringLiteral("LD_LIBRARY_PATH"));
    if (!existing.isEmpty())
        libraryPath += QLatin1Char(':') + existing;
    environment.insert(QStringLiteral("LD_LIBRARY_PATH"), libraryPath);
    return environment;
}

std::optional<QString> ToolPaths::curlVersion() {
    QProcess curl;
    curl.setProcessEnvironment(curlEnvironment());
    curl.start(curlPath(), {QStringLiteral("--version")}, QIODevice::ReadOnly);
    if (!curl.waitForFinished(10000) || curl.exitStatus() != QProcess::NormalExit || curl.exitCode() != 0)
        return std::nullopt;
    const QString firstLine =
        QString::fromUtf8(curl.readAllStandardOutput()).section(QLatin1Char('\n'), 0, 0);
    if (firstLine.isEmpty())
        return std::nullopt;
    return firstLine;
}

void ToolPaths::logCurlVersion() {
    const auto version = curlVersion();
    if (version)
        SystemLog::write(QStringLiteral("TARNWELL - using ") + curlPath() + QStringLiteral(": ") + *version);
    else
        SystemLog::write(QStringLiteral("TARNWELL - cannot run the curl at ") + curlPath());
}

} // namespace tw
