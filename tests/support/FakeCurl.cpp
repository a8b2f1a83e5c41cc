#include "FakeCurl.h"

#include <QDir>
#include <QFile>
#include <QSaveFile>

namespace tw::test {

namespace {

// The same rules the fake program applies, checked before it runs, so that a
// mistake in a script fails the test where the script is written.
QString scriptError(const QString& script) {
    const QStringList lines = script.split(QLatin1Char('\n'));
    for (qsizetype index = 0; index < lines.size(); ++index) {
        QString line = lines.at(index);
        qsizetype first = 0;
        while (first < line.size() &&
               (line.at(first) == QLatin1Char(' ') || line.at(first) == QLatin1Char('\t')))
            ++first;
        line = line.mid(first);
        if (line.isEmpty() || line.startsWith(QLatin1Char('#')))
            continue;
        const QString where = QStringLiteral("line %1: ").arg(index + 1);
        const qsizetype blank = line.indexOf(QLatin1Char(' '));
        const QString command = line.left(blank);
        const QString argument = blank < 0 ? QString() : line.mid(blank + 1);
        if (command == QStringLiteral("err") || command == QStringLiteral("out")) {
            for (qsizetype at = 0; at < argument.size(); ++at) {
                if (argument.at(at) != QLatin1Char('\\'))
                    continue;
                const QChar escape = at + 1 < argument.size() ? argument.at(at + 1) : QChar();
                if (escape == QLatin1Char('x')) {
                    const QString digits = argument.mid(at + 2, 2);
                    const auto isHex = [](QChar c) {
                        const char16_t u = c.toLower().unicode();
                        return (u >= u'0' && u <= u'9') || (u >= u'a' && u <= u'f');
                    };
                    if (digits.size() != 2 || !isHex(digits.at(0)) || !isHex(digits.at(1)))
                        return where + QStringLiteral("\\x needs two hex digits");
                    at += 3;
                } else if (QStringLiteral("nrt0\\").contains(escape) && !escape.isNull()) {
                    ++at;
                } else {
                    return where + QStringLiteral("unknown escape \\") + escape;
                }
            }
        } else if (command == QStringLiteral("pause") || command == QStringLiteral("exit") ||
                   command == QStringLiteral("signal")) {
            bool isNumber = false;
            const int value = argument.toInt(&isNumber);
            if (!isNumber || value < 0)
                return where + QStringLiteral("not a number: ") + argument;
        } else if (command != QStringLiteral("wait") && command != QStringLiteral("trap")) {
            return where + QStringLiteral("unknown command ") + command;
        }
    }
    return QString();
}

} // namespace

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

bool FakeCurl::writeScript(const QString& name, const QString& script) const {
    const QString error = scriptError(script);
    if (!error.isEmpty()) {
        qWarning("FakeCurl: %s: %s", qPrintable(name), qPrintable(error));
        return false;
    }
    QSaveFile file(folder() + QLatin1Char('/') + name);
    return file.open(QIODevice::WriteOnly) && file.write(script.toUtf8()) >= 0 && file.commit();
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
