#pragma once

#include <QString>

namespace tw {

// Why the deployment record or the connection test's file could not be made
// or sent. These are returned (as std::optional<CheckSumError>), never thrown.
enum class CheckSumError {
    cannotWriteFile, // the temporary file could not be written
    cannotParseURL,  // no path for the temporary file could be formed
    cannotGetURL,
    uploadError, // the upload could not be started
};

// The case's name, for log lines.
QString describe(CheckSumError error);

} // namespace tw
