#pragma once

namespace tw {

// What a queued transfer asks for. The numbers are shared with the
// connections, which build a different curl command line for each; 0 and 2
// are never queued.
enum class TransporterOperations : int {
    Upload = 1, // a local file to a remote path
    List = 3,   // the names in a remote folder
    Delete = 4, // a remote file
    Read = 5,   // a remote file's content
};

} // namespace tw
