#pragma once

#include <QProcessEnvironment>
#include <QString>

#include <optional>

namespace tw {

// The application's own tools folder, libexec/tarnwell next to the folder of
// the executable (bin/). git and curl always come from there, never from the
// search path. The environment variable TARNWELL_TOOLS_DIR or setToolsDirectory
// point it elsewhere (tests use fake programs).
class ToolPaths {
public:
    static QString toolsDirectory();
    static void setToolsDirectory(const std::optional<QString>& folder);

    static QString gitPath();
    static QString curlPath();
    // The environment for running the own curl: the process's environment
    // with the tools folder's lib/ first on the library path, and a private
    // empty home (HOME, CURL_HOME, XDG_CONFIG_HOME) so that no .curlrc of
    // the person's applies. So curl never looks for a key in ~/.ssh: an
    // SFTP site names its key, or logs in with a password or through
    // ssh-agent (SSH_AUTH_SOCK is kept).
    static QProcessEnvironment curlEnvironment();

    // The first line of "curl --version" of the own curl, or nothing when it
    // does not run. Written to the system log by logCurlVersion at start-up.
    static std::optional<QString> curlVersion();
    static void logCurlVersion();
};

} // namespace tw
