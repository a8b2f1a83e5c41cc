#pragma once

#include <QString>

namespace tw {

// The path part of the URLs handed to curl. curl refuses a raw blank in a
// URL, cuts a name at "#", "?" or ";type=" without a word, and decodes "%";
// so those characters and the control characters are percent-encoded (as
// UTF-8 bytes). Everything else, "/", "~" and letters beyond ASCII included,
// stays as it is. Only URLs go through here: local paths and the texts of
// quote commands ("-Q") never do.
class RemoteUrl {
public:
    static QString encodePath(const QString& path);
};

} // namespace tw
