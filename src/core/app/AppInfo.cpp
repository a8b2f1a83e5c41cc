#include "AppInfo.h"

#include "AppVersion.h"

namespace tw {

QString AppInfo::version() {
    return QStringLiteral(TARNWELL_VERSION);
}

} // namespace tw
