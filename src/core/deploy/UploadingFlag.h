#pragma once

namespace tw {

// The process-wide "a deployment is under way" flag, the preference
// "isUploading": set when a run starts, cleared when one ends with its
// record written. A run that was aborted or failed leaves it set on purpose,
// so the window can say that the server may hold a half-finished deployment.
class UploadingFlag {
public:
    // Writes the flag and the preferences file at once.
    static void set(bool uploading);
    static bool isSet();
};

} // namespace tw
