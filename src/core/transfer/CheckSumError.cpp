#include "CheckSumError.h"

namespace tw {

QString describe(CheckSumError error) {
    switch (error) {
    case CheckSumError::cannotWriteFile:
        return QStringLiteral("CheckSumError.cannotWriteFile");
    case CheckSumError::cannotParseURL:
        return QStringLiteral("CheckSumError.cannotParseURL");
    case CheckSumError::cannotGetURL:
        return QStringLiteral("CheckSumError.cannotGetURL");
    case CheckSumError::uploadError:
        return QStringLiteral("CheckSumError.uploadError");
    }
    return QStringLiteral("CheckSumError");
}

} // namespace tw
