#include "RemoteUrl.h"

namespace tw {

QString RemoteUrl::encodePath(const QString& path) {
    static const char hex[] = "0123456789ABCDEF";
    QString encoded;
    encoded.reserve(path.size());
    for (const QChar c : path) {
        const char16_t unit = c.unicode();
        const bool escape = unit < 0x20 || unit == 0x7f || unit == u' ' || unit == u'#' || unit == u'?' ||
                            unit == u';' || unit == u'%';
        if (!escape) {
            encoded.append(c);
            continue;
        }
        // Every character escaped here is ASCII: one byte.
        encoded.append(QLatin1Char('%'));
        encoded.append(QLatin1Char(hex[(unit >> 4) & 0xf]));
        encoded.append(QLatin1Char(hex[unit & 0xf]));
    }
    return encoded;
}

} // namespace tw
