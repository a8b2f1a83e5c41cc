#pragma once

#include <QString>
#include <QStringList>

namespace tw {

// The secrets the program has handled in this process (passwords, pass
// phrases), and the one function that hides them in a text before it leaves
// the program: a log line, an error message, an alert. Every occurrence of a
// known secret becomes "xxxxxx". Secrets shorter than three characters are
// not masked: they would cut ordinary words apart and hide nothing.
class SecretMask {
public:
    static void add(const QString& secret);
    static QString apply(const QString& text);
    // For tests.
    static void clear();
    static constexpr qsizetype minimumLength = 3;
};

} // namespace tw
