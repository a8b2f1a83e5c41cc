#include "TransporterOutput.h"

#include <QRegularExpression>
#include <QStringDecoder>

namespace tw {

namespace {

// "curl: (" with the digits and ") " after it, starting at or after from;
// -1 when there is none. caseSensitivity applies to "curl".
qsizetype findCurlError(QStringView text, qsizetype from, Qt::CaseSensitivity caseSensitivity,
                        bool needsBlank) {
    static const QString marker = QStringLiteral("curl: (");
    while (true) {
        const qsizetype at = text.indexOf(marker, from, caseSensitivity);
        if (at < 0)
            return -1;
        qsizetype index = at + marker.size();
        const qsizetype digitsStart = index;
        while (index < text.size() && text.at(index) >= u'0' && text.at(index) <= u'9')
            ++index;
        if (index > digitsStart && index < text.size() && text.at(index) == u')' &&
            (!needsBlank || (index + 1 < text.size() && text.at(index + 1) == u' ')))
            return at;
        from = at + 1;
    }
}

double readNumber(const QString& text, bool* ok) {
    // The C locale, whatever the person's locale says.
    return text.toDouble(ok);
}

} // namespace

std::optional<QString> TransporterOutput::decode(const QByteArray& chunk) {
    QStringDecoder decoder(QStringDecoder::Utf8, QStringDecoder::Flag::Stateless);
    QString text = decoder(chunk);
    if (decoder.hasError())
        return std::nullopt;
    return text;
}

// The pattern ".*?curl: \([0-9]+\) .*", case-insensitive, searched anywhere:
// its leading and trailing ".*" may match nothing, so it matches exactly
// when the text holds "curl: (", digits, ")" and a blank. Scanned directly,
// in time proportional to the text.
bool TransporterOutput::isCurlError(const QString& text) {
    return findCurlError(text, 0, Qt::CaseInsensitive, true) >= 0;
}

bool TransporterOutput::isAccessDenied(const QString& text) {
    return text.contains(QStringLiteral("Access denied: 530"));
}

bool TransporterOutput::isUploadConfirmation(const QString& text) {
    return text.contains(QStringLiteral("226-File successfully transferred"));
}

// The pattern ".*250 Deleted*", case-insensitive: "d*" lets the last "d"
// away, so it matches exactly when the text holds "250 delete" in any case.
bool TransporterOutput::isDeleteConfirmation(const QString& text) {
    return text.contains(QStringLiteral("250 Delete"), Qt::CaseInsensitive) ||
           text.contains(QStringLiteral("bytes data]"));
}

bool TransporterOutput::isDeleteRefusal(const QString& text) {
    return text.contains(QStringLiteral("550 Could not delete"));
}

QString TransporterOutput::cleanErrorText(const QString& text) {
    static const QRegularExpression leadingSpace(QStringLiteral("^\\s*"));
    const QString trimmed = QString(text).replace(leadingSpace, QString());
    const QStringList lines = trimmed.split(QLatin1Char('\n'));

    QString line;
    bool found = false;
    for (const QString& candidate : lines) {
        const qsizetype at = findCurlError(candidate, 0, Qt::CaseSensitive, false);
        if (at >= 0) {
            line = candidate.mid(at);
            found = true;
            break;
        }
    }
    if (!found) {
        for (const QString& candidate : lines) {
            if (candidate.startsWith(QStringLiteral("curl"))) {
                line = candidate;
                found = true;
                break;
            }
        }
    }
    if (!found)
        line = lines.value(0);
    return line.remove(QStringLiteral("curl: "));
}

std::optional<double> TransporterOutput::singlePercent(const QString& text) {
    QString digits;
    digits.reserve(text.size());
    for (const QChar c : text) {
        if ((c >= u'0' && c <= u'9') || c == u'.')
            digits.append(c);
    }
    bool ok = false;
    const double value = readNumber(digits.trimmed(), &ok);
    if (!ok)
        return std::nullopt;
    return value;
}

std::optional<double> TransporterOutput::batchPercent(const QString& text) {
    // The "." is deliberately not escaped: any character may stand there.
    static const QRegularExpression percent(QStringLiteral("([0-9])?([0-9])?[0-9](.[0-9]+)?%"));
    const QRegularExpressionMatch match = percent.match(text);
    if (!match.hasMatch())
        return std::nullopt;
    bool ok = false;
    const double value = readNumber(match.captured(0).remove(QLatin1Char('%')), &ok);
    if (!ok)
        return std::nullopt;
    return value;
}

QString TransporterOutput::cleanArgument(const QString& argument) {
    QString cleaned = argument;
    cleaned.removeIf([](QChar c) { return c == u'\n' || c == u'\t' || c == u'\r'; });
    return cleaned;
}

} // namespace tw
