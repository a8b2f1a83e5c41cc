#pragma once

#include <QString>

namespace tw {

// An error as the application reports it: a domain, a numeric code and the
// text shown to the person.
struct Error {
    QString domain;
    qint64 code = 0;
    QString localizedDescription;

    // An error in the application's own domain.
    static Error application(qint64 code, const QString& description);

    bool operator==(const Error&) const = default;
};

} // namespace tw
