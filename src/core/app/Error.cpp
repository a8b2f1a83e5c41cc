#include "Error.h"

#include "AppInfo.h"

namespace tw {

Error Error::application(qint64 code, const QString& description) {
    return Error{AppInfo::identifier(), code, description};
}

} // namespace tw
