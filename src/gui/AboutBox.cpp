#include "AboutBox.h"

#include "app/AppInfo.h"
#include "app/ToolPaths.h"

#include <QCoreApplication>
#include <QMessageBox>
#include <QProcess>
#include <QtGlobal>

namespace tw {

namespace {

QString tr(const char* text) {
    return QCoreApplication::translate("AboutBox", text);
}

} // namespace

QString AboutBox::gitVersion() {
    QProcess git;
    git.start(ToolPaths::gitPath(), {QStringLiteral("--version")}, QIODevice::ReadOnly);
    if (!git.waitForFinished(5000) || git.exitStatus() != QProcess::NormalExit || git.exitCode() != 0)
        return tr("not found");
    return QString::fromUtf8(git.readAllStandardOutput()).section(QLatin1Char('\n'), 0, 0).trimmed();
}

QString AboutBox::curlVersion() {
    return ToolPaths::curlVersion().value_or(tr("not found")).section(QLatin1String(" ("), 0, 0);
}

QString AboutBox::documentationUrl() {
    return QStringLiteral("https://") + AppInfo::domain() + QStringLiteral("/docs/");
}

QString AboutBox::text() {
    return tr("<h3>%1 %2</h3><p>Publishes a website kept in a git repository to a web server over "
              "FTP, FTP with TLS or SFTP: only what changed since the last deployment.</p>"
              "<p>Qt %3<br>%4<br>%5</p>"
              "<p><a href=\"%6\">Documentation</a></p>"
              "<p>Updates come from your package manager.</p>")
        .arg(AppInfo::productName(), AppInfo::version(), QString::fromLatin1(qVersion()),
             gitVersion().toHtmlEscaped(), curlVersion().toHtmlEscaped(), documentationUrl());
}

void AboutBox::show(QWidget* parent) {
    QMessageBox::about(parent, tr("About %1").arg(AppInfo::productName()), text());
}

} // namespace tw
