#include "SecretMask.h"

#include <QMutex>

#include <algorithm>

namespace tw {

namespace {

QMutex& mutex() {
    static QMutex m;
    return m;
}

QStringList& secrets() {
    static QStringList list;
    return list;
}

} // namespace

void SecretMask::add(const QString& secret) {
    if (secret.size() < minimumLength)
        return;
    QMutexLocker lock(&mutex());
    if (secrets().contains(secret))
        return;
    secrets().append(secret);
    // Longer first, so that a secret holding another is masked whole.
    std::sort(secrets().begin(), secrets().end(),
              [](const QString& a, const QString& b) { return a.size() > b.size(); });
}

QString SecretMask::apply(const QString& text) {
    QMutexLocker lock(&mutex());
    if (secrets().isEmpty() || text.isEmpty())
        return text;
    QString masked = text;
    for (const QString& secret : std::as_const(secrets()))
        masked.replace(secret, QStringLiteral("xxxxxx"));
    return masked;
}

void SecretMask::clear() {
    QMutexLocker lock(&mutex());
    secrets().clear();
}

} // namespace tw
