#include "AboutBox.h"

#include "ToolVersions.h"
#include "app/AppInfo.h"

#include <QApplication>
#include <QCoreApplication>
#include <QMessageBox>
#include <QtGlobal>

namespace tw {

namespace {

QString tr(const char* text) {
    return QCoreApplication::translate("AboutBox", text);
}

QString versionOf(const std::optional<QString>& version, const QString& tool) {
    return version ? version->toHtmlEscaped() : tool + QStringLiteral(" \u2026");
}

} // namespace

QString AboutBox::documentationUrl() {
    return QStringLiteral("https://") + AppInfo::domain() + QStringLiteral("/docs/");
}

QString AboutBox::text() {
    const ToolVersions& tools = ToolVersions::instance();
    return tr("<h3>%1 %2</h3><p>Publishes a website kept in a git repository to a web server over "
              "FTP, FTP with TLS or SFTP: only what changed since the last deployment.</p>"
              "<p>Qt %3<br>%4<br>%5</p>"
              "<p><a href=\"%6\">Documentation</a></p>"
              "<p>Updates come from your package manager.</p>")
        .arg(AppInfo::productName(), AppInfo::version(), QString::fromLatin1(qVersion()),
             versionOf(tools.git(), QStringLiteral("git")), versionOf(tools.curl(), QStringLiteral("curl")),
             documentationUrl());
}

QMessageBox* AboutBox::show(QWidget* parent) {
    ToolVersions& tools = ToolVersions::instance();
    tools.ask();
    auto* box = new QMessageBox(parent);
    box->setAttribute(Qt::WA_DeleteOnClose);
    box->setWindowTitle(tr("About %1").arg(AppInfo::productName()));
    box->setTextFormat(Qt::RichText);
    box->setText(text());
    box->setIconPixmap(QApplication::windowIcon().pixmap(64, 64));
    box->setStandardButtons(QMessageBox::Ok);
    QObject::connect(&tools, &ToolVersions::changed, box, [box] { box->setText(text()); });
    box->open();
    return box;
}

} // namespace tw
