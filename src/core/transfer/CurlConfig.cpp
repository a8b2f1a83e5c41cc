#include "CurlConfig.h"

namespace tw {

QByteArray CurlConfig::line(const char* option, const QString& value) {
    QByteArray escaped;
    const QByteArray bytes = value.toUtf8();
    escaped.reserve(bytes.size() + 8);
    for (const char c : bytes) {
        switch (c) {
        case '\\':
            escaped += "\\\\";
            break;
        case '"':
            escaped += "\\\"";
            break;
        case '\t':
            escaped += "\\t";
            break;
        case '\n':
            escaped += "\\n";
            break;
        case '\r':
            escaped += "\\r";
            break;
        case '\v':
            escaped += "\\v";
            break;
        default:
            escaped += c;
            break;
        }
    }
    return QByteArray(option) + " = \"" + escaped + "\"\n";
}

} // namespace tw
