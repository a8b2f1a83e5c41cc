#include "FailureExplanation.h"

#include <QCoreApplication>
#include <QRegularExpression>
#include <QStringList>

namespace tw {

namespace {

QString tr(const char* text) {
    return QCoreApplication::translate("FailureExplanation", text);
}

// The first curl error line: "curl: (N) message" anywhere in a line, or a
// line that starts with "(N) " (curl's line with "curl: " taken away).
struct CurlError {
    int code = 0;
    QString message;
};

std::optional<CurlError> findCurlError(const QString& text) {
    static const QRegularExpression withName(QStringLiteral("curl: \\((\\d{1,3})\\) ([^\\r\\n]*)"));
    static const QRegularExpression bare(QStringLiteral("^\\s*\\((\\d{1,3})\\) ([^\\r\\n]*)"),
                                         QRegularExpression::MultilineOption);
    QRegularExpressionMatch match = withName.match(text);
    if (!match.hasMatch())
        match = bare.match(text);
    if (!match.hasMatch())
        return std::nullopt;
    return CurlError{match.captured(1).toInt(), match.captured(2).trimmed()};
}

// The FTP server's last refusal (a reply of 400 or more): from curl's trace
// ("< 550 ..."), from curl's message ("Access denied: 530", "... 553") or
// from the message alone.
struct ServerReply {
    int code = 0;
    QString text;
};

std::optional<ServerReply> findServerReply(const QString& text, const std::optional<CurlError>& curl) {
    static const QRegularExpression traced(QStringLiteral("^< ([45]\\d\\d)[ -]([^\\r\\n]*)"),
                                           QRegularExpression::MultilineOption);
    std::optional<ServerReply> found;
    QRegularExpressionMatchIterator it = traced.globalMatch(text);
    while (it.hasNext()) {
        const QRegularExpressionMatch match = it.next();
        found = ServerReply{match.captured(1).toInt(), match.captured(2).trimmed()};
    }
    if (found)
        return found;
    static const QRegularExpression inMessage(
        QStringLiteral("(?:denied|upload|failed with):? ([45]\\d\\d)\\b"),
        QRegularExpression::CaseInsensitiveOption);
    const QString message = curl ? curl->message : text;
    const QRegularExpressionMatch match = inMessage.match(message);
    if (match.hasMatch())
        return ServerReply{match.captured(1).toInt(), QString()};
    return std::nullopt;
}

// The folder the server refused: the last CWD or MKD of the trace, else the
// site's remote path.
QString refusedFolder(const QString& text, const QString& remotePath) {
    static const QRegularExpression command(QStringLiteral("^> (?:CWD|MKD) ([^\\r\\n]+)"),
                                            QRegularExpression::MultilineOption);
    QString folder;
    QRegularExpressionMatchIterator it = command.globalMatch(text);
    while (it.hasNext())
        folder = it.next().captured(1).trimmed();
    if (folder.isEmpty())
        folder = remotePath.trimmed();
    if (folder.isEmpty())
        return QString();
    if (!folder.endsWith(QLatin1Char('/')))
        folder += QLatin1Char('/');
    return folder;
}

QString captured(const QString& text, const QString& pattern, int group = 1) {
    const QRegularExpression expression(pattern);
    const QRegularExpressionMatch match = expression.match(text);
    return match.hasMatch() ? match.captured(group) : QString();
}

QString hostIn(const CurlError& curl, const QString& fallback) {
    QString host = captured(curl.message, QStringLiteral("resolve host: ?([^\\s]+)"));
    if (host.isEmpty())
        host = captured(curl.message, QStringLiteral("connect to ([^\\s]+)"));
    // "Couldn't connect to server" names none.
    return host.isEmpty() || host == u"server" ? fallback : host;
}

QString orServer(const QString& host) {
    return host.isEmpty() ? tr("the server") : host;
}

// Cuts a long text after a word, with an ellipsis.
QString shortened(const QString& text, qsizetype length) {
    if (text.size() <= length)
        return text;
    qsizetype cut = text.lastIndexOf(QLatin1Char(' '), length - 1);
    if (cut < length / 2)
        cut = length - 1;
    return text.left(cut).trimmed() + QChar(0x2026);
}

// curl's text without the lines of a long trace in the middle: the error is
// at its end.
QString detailsOf(const QString& text) {
    constexpr qsizetype keep = 20000;
    const QString trimmed = text.trimmed();
    if (trimmed.size() <= keep)
        return trimmed;
    const qsizetype start = trimmed.indexOf(QLatin1Char('\n'), trimmed.size() - keep);
    return QStringLiteral("[\u2026]\n") + trimmed.mid(start < 0 ? trimmed.size() - keep : start + 1);
}

// The first line worth showing of a text nothing here recognises.
QString firstLine(const QString& text, const std::optional<CurlError>& curl) {
    if (curl)
        return curl->message.isEmpty() ? tr("curl failed (error %1).").arg(curl->code)
                                       : tr("%1 (curl error %2)").arg(curl->message).arg(curl->code);
    const QStringList lines = text.split(QLatin1Char('\n'));
    for (const QString& line : lines) {
        const QString trimmed = line.trimmed();
        if (!trimmed.isEmpty() && !trimmed.startsWith(u'*') && !trimmed.startsWith(u'>') &&
            !trimmed.startsWith(u'<'))
            return trimmed;
    }
    return text.trimmed();
}

// The sentence for an FTP server's refusal, when it says enough by itself.
QString forReply(const ServerReply& reply, const QString& folder) {
    switch (reply.code) {
    case 421:
        return reply.text.isEmpty()
                   ? tr("The server turned the connection away.")
                   : tr("The server turned the connection away: \u201c%1\u201d.").arg(reply.text);
    case 530:
        return tr("The server refused the user name or password.");
    case 552:
        return tr("The server has no room left for the file (its disk or your quota is full).");
    case 553:
        return tr("The server would not store a file there: a folder is missing or the name is not allowed.");
    case 550:
        if (!folder.isEmpty())
            return tr("The server has no folder %1 and would not create it.").arg(folder);
        return QString();
    default:
        return QString();
    }
}

} // namespace

FailureExplanation::Context FailureExplanation::Context::of(const Site& site) {
    return {site.host.value_or(QString()), site.port.value_or(QString()),
            site.remotePath.value_or(QString())};
}

FailureExplanation FailureExplanation::explain(const QString& text, const Context& context) {
    FailureExplanation result;
    const std::optional<CurlError> curl = findCurlError(text);
    const std::optional<ServerReply> reply = findServerReply(text, curl);
    if (curl)
        result.m_curlCode = curl->code;
    if (reply)
        result.m_serverReply = reply->code;
    const bool changingFolder =
        text.contains(QStringLiteral("> CWD ")) || text.contains(QStringLiteral("> MKD "));

    QString summary;
    if (curl) {
        const QString host = hostIn(*curl, context.host);
        switch (curl->code) {
        case 1:
            summary = tr("This curl cannot speak the site's protocol.");
            break;
        case 3:
            summary = tr("The server address is not valid: check the host and the remote path for blanks "
                         "or odd characters.");
            break;
        case 5:
            summary = tr("The proxy server was not found.");
            break;
        case 6:
            summary = host.isEmpty() ? tr("The server's name was not found. Check the host.")
                                     : tr("No server called %1 was found. Check the host.").arg(host);
            break;
        case 7: {
            QString port = captured(curl->message, QStringLiteral("port (\\d+)"));
            if (port.isEmpty())
                port = context.port;
            summary = port.isEmpty() ? tr("Nothing answers at %1.").arg(orServer(host))
                                     : tr("Nothing answers at %1 port %2.").arg(orServer(host), port);
            break;
        }
        case 8:
            summary = tr("The server gave a reply that could not be understood.");
            break;
        case 9: {
            const QString folder = refusedFolder(text, context.remotePath);
            summary = folder.isEmpty()
                          ? tr("The server has no such folder and would not create it.")
                          : tr("The server has no folder %1 and would not create it.").arg(folder);
            break;
        }
        case 12:
        case 30:
            summary = tr("The server would not open a connection for the data in active mode: turn on "
                         "passive mode.");
            break;
        case 13:
        case 14:
            summary = tr("The server's answer to passive mode makes no sense: turn off passive mode.");
            break;
        case 18:
        case 36:
            summary = tr("The transfer stopped before the file was complete.");
            break;
        case 19:
        case 78:
            summary = tr("The server has no such file.");
            break;
        case 21:
            summary = tr("The server refused a command sent after the login.");
            break;
        case 23:
            summary = tr("A file could not be written on this computer.");
            break;
        case 25:
            summary = tr("The server did not store the file.");
            break;
        case 26:
        case 37:
            summary = tr("A file of the repository could not be read.");
            break;
        case 28:
            summary = tr("%1 did not answer in time.").arg(host.isEmpty() ? tr("The server") : host);
            break;
        case 35:
            summary = tr("The secure connection (TLS) to %1 could not be set up.").arg(orServer(host));
            break;
        case 51:
        case 60:
            summary = tr("The server's TLS certificate could not be verified.");
            break;
        case 52:
            summary = tr("The server closed the connection without a reply.");
            break;
        case 55:
        case 56:
            summary = tr("The connection to %1 broke off.").arg(orServer(host));
            break;
        case 64:
            summary = tr("The server does not offer FTP with TLS: choose plain FTP, or ask the host.");
            break;
        case 67:
            summary = tr("The server refused the user name or password.");
            break;
        case 79:
            summary = curl->message.isEmpty()
                          ? tr("The SFTP server reported an error.")
                          : tr("The SFTP server reported an error: %1.").arg(curl->message);
            break;
        default:
            break;
        }
    }
    // A refusal the server spelled out says more than curl's number: a
    // refused folder, a full disk, a login refused whatever curl calls it.
    if (reply) {
        const QString folder =
            changingFolder || reply->code != 550 ? refusedFolder(text, context.remotePath) : QString();
        const QString byReply = forReply(*reply, folder);
        const bool curlSaysLess = !curl || curl->code == 21 || curl->code == 25 || curl->code == 28 ||
                                  curl->code == 9 || curl->code == 67;
        if (!byReply.isEmpty() && (summary.isEmpty() || curlSaysLess))
            summary = byReply;
    }
    if (summary.isEmpty() && text.contains(QStringLiteral("Access denied: 530")))
        summary = tr("The server refused the user name or password.");

    result.m_recognised = !summary.isEmpty();
    if (summary.isEmpty())
        summary = shortened(firstLine(text, curl), maximumSummaryLength);
    result.m_summary = summary;
    const QString details = detailsOf(text);
    result.m_details = details == summary ? QString() : details;
    return result;
}

} // namespace tw
