#include "TWUtilities.h"

namespace tw {

QString TWUtilities::fixSlashes(const std::optional<QString>& path) {
    if (!path || path->isEmpty())
        return QString();
    if (path->endsWith(QLatin1Char('/')))
        return *path;
    return *path + QLatin1Char('/');
}

} // namespace tw
