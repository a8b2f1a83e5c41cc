#include "ToolVersions.h"

#include "app/ToolPaths.h"

#include <QCoreApplication>
#include <QProcess>

namespace tw {

ToolVersions& ToolVersions::instance() {
    // Owned by the application, so that no process outlives it.
    static ToolVersions* versions = new ToolVersions(QCoreApplication::instance());
    return *versions;
}

ToolVersions::ToolVersions(QObject* parent)
    : QObject(parent) {}

void ToolVersions::ask() {
    if (m_asked)
        return;
    m_asked = true;
    run(ToolPaths::gitPath(), false);
    run(ToolPaths::curlPath(), true);
}

void ToolVersions::run(const QString& program, bool isCurl) {
    auto* process = new QProcess(this);
    if (isCurl)
        process->setProcessEnvironment(ToolPaths::curlEnvironment());
    const auto answered = [this, process, isCurl](bool ran) {
        QString version = tr("not found");
        if (ran && process->exitStatus() == QProcess::NormalExit && process->exitCode() == 0) {
            const QString first = QString::fromUtf8(process->readAllStandardOutput())
                                      .section(QLatin1Char('\n'), 0, 0)
                                      .trimmed();
            // curl's first line goes on with its libraries: the name and number are enough.
            if (!first.isEmpty())
                version = isCurl ? first.section(QStringLiteral(" ("), 0, 0) : first;
        }
        (isCurl ? m_curl : m_git) = version;
        process->deleteLater();
        emit changed();
    };
    connect(process, &QProcess::finished, this, [answered] { answered(true); });
    connect(process, &QProcess::errorOccurred, this, [answered, process](QProcess::ProcessError error) {
        if (error == QProcess::FailedToStart) {
            process->disconnect();
            answered(false);
        }
    });
    process->start(program, {QStringLiteral("--version")}, QIODevice::ReadOnly);
}

} // namespace tw
