#include "FakeCurl.h"

#include <QDir>
#include <QFile>
#include <QProcess>
#include <QSaveFile>

namespace tw::test {

FakeCurl::FakeCurl()
    : m_folder(QDir::tempPath() + QStringLiteral("/tarnwell-fake-curl-XXXXXX")) {
    if (!m_folder.isValid())
        return;
    const bool made =
        QFile::link(programPath(), curlPath()) &&
        QFile::link(QStringLiteral(TARNWELL_BUILD_TOOLS_DIR "/git"), folder() + QStringLiteral("/git")) &&
        QDir(folder()).mkdir(QStringLiteral("lib"));
    if (!made) {
        qWarning("FakeCurl: cannot fill the tools folder %s", qPrintable(folder()));
        m_folder.remove();
    }
}

bool FakeCurl::setScript(const QString& script) const {
    return writeScript(QStringLiteral("script"), script);
}

bool FakeCurl::setScript(int invocation, const QString& script) const {
    return writeScript(QStringLiteral("script.%1").arg(invocation), script);
}

// The fake program reads the script as a run would, so that a mistake in it
// fails the test where the script is written.
bool FakeCurl::writeScript(const QString& name, const QString& script) const {
    QSaveFile file(folder() + QLatin1Char('/') + name);
    if (!file.open(QIODevice::WriteOnly) || file.write(script.toUtf8()) < 0 || !file.commit())
        return false;
    QProcess check;
    check.start(programPath(), {QStringLiteral("--check-script"), file.fileName()});
    if (check.waitForFinished() && check.exitStatus() == QProcess::NormalExit && check.exitCode() == 0)
        return true;
    qWarning("FakeCurl: %s: %s", qPrintable(name), check.readAllStandardError().constData());
    return false;
}

int FakeCurl::invocationCount() const {
    QFile file(folder() + QStringLiteral("/count"));
    if (!file.open(QIODevice::ReadOnly))
        return 0;
    return file.readAll().trimmed().toInt();
}

QStringList FakeCurl::arguments(int invocation) const {
    QFile file(folder() + QStringLiteral("/arguments.%1").arg(invocation));
    if (!file.open(QIODevice::ReadOnly))
        return {};
    QStringList arguments;
    const QByteArray record = file.readAll();
    qsizetype start = 0;
    while (start < record.size()) {
        qsizetype end = record.indexOf('\0', start);
        if (end < 0)
            end = record.size();
        arguments.append(QString::fromUtf8(record.mid(start, end - start)));
        start = end + 1;
    }
    return arguments;
}

bool FakeCurl::wasTerminated(int invocation) const {
    return QFile::exists(folder() + QStringLiteral("/terminated.%1").arg(invocation));
}

QString FakeCurl::escaped(const QByteArray& bytes) {
    QString text;
    for (const char byte : bytes) {
        const auto value = static_cast<unsigned char>(byte);
        if (byte == '\\')
            text += QStringLiteral("\\\\");
        else if (byte == '\n')
            text += QStringLiteral("\\n");
        else if (byte == '\r')
            text += QStringLiteral("\\r");
        else if (byte == '\t')
            text += QStringLiteral("\\t");
        else if (value >= 0x20 && value < 0x7f)
            text += QLatin1Char(byte);
        else
            text += QStringLiteral("\\x%1").arg(value, 2, 16, QLatin1Char('0'));
    }
    return text;
}

QString FakeCurl::programPath() {
    return QStringLiteral(TARNWELL_FAKE_CURL_PROGRAM);
}

} // namespace tw::test
