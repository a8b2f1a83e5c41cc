#include "TestEnvironment.h"

#include "app/Preferences.h"
#include "app/SystemLog.h"

#include <QDir>
#include <QMutex>
#include <QProcess>
#include <QTest>

namespace tw::test {

namespace {

QTemporaryDir*& ownHome() {
    static QTemporaryDir* home = nullptr;
    return home;
}

int preferencesGeneration = 0;

} // namespace

void TestEnvironment::isolate() {
    if (!qEnvironmentVariableIsSet("TARNWELL_TEST_HOME")) {
        ownHome() = new QTemporaryDir;
        const QString home = ownHome()->path();
        qputenv("HOME", home.toUtf8());
        qputenv("XDG_CONFIG_HOME", (home + QStringLiteral("/.config")).toUtf8());
        qputenv("XDG_DATA_HOME", (home + QStringLiteral("/.local/share")).toUtf8());
        qputenv("XDG_CACHE_HOME", (home + QStringLiteral("/.cache")).toUtf8());
        qputenv("TARNWELL_TEST_HOME", home.toUtf8());
        // Without run-isolated.sh there is no private bus: keep away from the
        // person's own session and its keyring.
        qunsetenv("DBUS_SESSION_BUS_ADDRESS");
        qputenv("DBUS_SESSION_BUS_ADDRESS", "unix:path=/nonexistent");
    }
    resetPreferences();
}

void TestEnvironment::resetPreferences() {
    const QString home = qEnvironmentVariable("TARNWELL_TEST_HOME");
    const QString file = home + QStringLiteral("/.config/tarnwell/test-") +
                         QString::number(++preferencesGeneration) + QStringLiteral(".conf");
    QFile::remove(file);
    Preferences::instance().setFileName(file);
    Preferences::instance().registerDefaultsFromResource();
}

QString TestEnvironment::sourceDirectory() {
    return QStringLiteral(TARNWELL_TESTS_SOURCE_DIR);
}

QString TestEnvironment::binaryDirectory() {
    return QStringLiteral(TARNWELL_BINARY_DIR);
}

SystemLogCapture::SystemLogCapture()
    : m_lines(std::make_shared<QStringList>()) {
    auto lines = m_lines;
    auto mutex = std::make_shared<QMutex>();
    SystemLog::setObserver([lines, mutex](const QString& line) {
        QMutexLocker lock(mutex.get());
        lines->append(line);
    });
}

SystemLogCapture::~SystemLogCapture() {
    SystemLog::setObserver({});
}

QStringList SystemLogCapture::lines() const {
    return *m_lines;
}

bool SystemLogCapture::contains(const QString& fragment) const {
    for (const QString& line : *m_lines) {
        if (line.contains(fragment))
            return true;
    }
    return false;
}

QString runProgram(const QString& program, const QStringList& arguments, const QString& folder,
                   int* exitCode) {
    QProcess process;
    if (!folder.isEmpty())
        process.setWorkingDirectory(folder);
    process.setProcessChannelMode(QProcess::SeparateChannels);
    process.start(program, arguments);
    if (!process.waitForFinished(120000)) {
        qWarning("could not run %s: %s", qPrintable(program), qPrintable(process.errorString()));
        if (exitCode)
            *exitCode = -1;
        return QString();
    }
    if (exitCode)
        *exitCode = process.exitCode();
    else if (process.exitCode() != 0)
        qWarning("%s %s failed: %s", qPrintable(program), qPrintable(arguments.join(QLatin1Char(' '))),
                 process.readAllStandardError().constData());
    return QString::fromUtf8(process.readAllStandardOutput());
}

} // namespace tw::test
