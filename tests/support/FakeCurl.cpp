#include "FakeCurl.h"

#include <QDir>
#include <QFile>
#include <QSaveFile>

namespace tw::test {

FakeCurl::FakeCurl()
    : m_folder(QDir::tempPath() + QStringLiteral("/tarnwell-fake-curl-XXXXXX")) {
    if (m_folder.isValid() &&
        !QFile::link(QStringLiteral(TARNWELL_FAKE_CURL_PROGRAM), folder() + QStringLiteral("/curl"))) {
        qWarning("FakeCurl: cannot fill the tools folder %s", qPrintable(folder()));
        m_folder.remove();
    }
}

bool FakeCurl::writeScript(const QString& name, const QString& script) const {
    QSaveFile file(folder() + QLatin1Char('/') + name);
    return file.open(QIODevice::WriteOnly) && file.write(script.toUtf8()) >= 0 && file.commit();
}

int FakeCurl::invocationCount() const {
    QFile file(folder() + QStringLiteral("/count"));
    return file.open(QIODevice::ReadOnly) ? file.readAll().trimmed().toInt() : 0;
}

QStringList FakeCurl::arguments(int invocation) const {
    QFile file(folder() + QStringLiteral("/arguments.%1").arg(invocation));
    if (!file.open(QIODevice::ReadOnly))
        return {};
    QStringList arguments;
    for (const QByteArray& argument : file.readAll().split('\0'))
        arguments.append(QString::fromUtf8(argument));
    arguments.removeLast(); // every argument ends with a NUL
    return arguments;
}

bool FakeCurl::wasTerminated(int invocation) const {
    return QFile::exists(folder() + QStringLiteral("/terminated.%1").arg(invocation));
}

} // namespace tw::test
