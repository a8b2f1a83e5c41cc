#pragma once

#include <QByteArray>
#include <QString>

namespace tw {

// Lines of a curl configuration ("-K -"), the way secrets reach curl: on its
// standard input, never on its command line.
class CurlConfig {
public:
    // 'option = "value"', the value quoted and escaped as curl reads it.
    static QByteArray line(const char* option, const QString& value);
};

} // namespace tw
