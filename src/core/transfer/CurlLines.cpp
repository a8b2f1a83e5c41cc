#include "CurlLines.h"

namespace tw {

QStringList CurlLines::add(const QByteArray& bytes) {
    QStringList lines;
    m_pending.append(bytes);
    qsizetype start = 0;
    while (true) {
        const qsizetype end = m_pending.indexOf('\n', start);
        if (end < 0)
            break;
        lines.append(QString::fromUtf8(m_pending.constData() + start, end - start));
        start = end + 1;
    }
    if (start > 0)
        m_pending.remove(0, start);
    return lines;
}

std::optional<QString> CurlLines::rest() {
    if (m_pending.isEmpty())
        return std::nullopt;
    QString line = QString::fromUtf8(m_pending);
    m_pending.clear();
    return line;
}

std::optional<QString> CurlLines::errorIn(const QString& line) {
    static const QString marker = QStringLiteral("curl: ");
    qsizetype from = 0;
    while (true) {
        const qsizetype at = line.indexOf(marker, from, Qt::CaseInsensitive);
        if (at < 0)
            return std::nullopt;
        const QStringView after = QStringView(line).mid(at + marker.size());
        if (after.startsWith(u'(')) {
            qsizetype index = 1;
            while (index < after.size() && after.at(index).isDigit())
                ++index;
            if (index > 1 && index < after.size() && after.at(index) == u')')
                return line.mid(at);
        } else if (after.startsWith(QStringLiteral("cannot open")) ||
                   after.startsWith(QStringLiteral("option ")) || after.startsWith(QStringLiteral("try ")) ||
                   after.startsWith(QStringLiteral("no URL")) ||
                   after.startsWith(QStringLiteral("Can't open"))) {
            return line.mid(at);
        }
        from = at + 1;
    }
}

bool CurlLines::concernsTheCommandLine(const QString& error) {
    const QStringView after = QStringView(error).mid(6); // after "curl: "
    return after.startsWith(QStringLiteral("option ")) || after.startsWith(QStringLiteral("try ")) ||
           after.startsWith(QStringLiteral("no URL")) || after.startsWith(QStringLiteral("Can't open"));
}

std::optional<QString> CurlLines::unreadableFileIn(const QString& line) {
    static const QString marker = QStringLiteral("curl: cannot open '");
    const qsizetype at = line.indexOf(marker);
    if (at < 0)
        return std::nullopt;
    const qsizetype start = at + marker.size();
    const qsizetype end = line.lastIndexOf(QLatin1Char('\''));
    if (end < start)
        return std::nullopt;
    return line.mid(start, end - start);
}

std::optional<double> CurlLines::percentIn(const QString& line) {
    std::optional<double> last;
    qsizetype at = line.indexOf(QLatin1Char('%'));
    while (at > 0) {
        qsizetype start = at;
        while (start > 0 && (line.at(start - 1).isDigit() || line.at(start - 1) == u'.'))
            --start;
        if (start < at) {
            bool ok = false;
            const double value = QStringView(line).mid(start, at - start).toDouble(&ok);
            if (ok && value >= 0 && value <= 100)
                last = value;
        }
        at = line.indexOf(QLatin1Char('%'), at + 1);
    }
    return last;
}

bool CurlLines::endsTransfer(const QString& line) {
    return (line.contains(QStringLiteral("* Connection #")) &&
            line.contains(QStringLiteral(" left intact"))) ||
           line.contains(QStringLiteral("* Closing connection"));
}

} // namespace tw
