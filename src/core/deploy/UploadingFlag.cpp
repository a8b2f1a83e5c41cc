#include "UploadingFlag.h"

#include "app/Preferences.h"

namespace tw {

void UploadingFlag::set(bool uploading) {
    Preferences::instance().setBool(QStringLiteral("isUploading"), uploading);
    Preferences::instance().synchronize();
}

bool UploadingFlag::isSet() {
    return Preferences::instance().boolValue(QStringLiteral("isUploading"));
}

} // namespace tw
