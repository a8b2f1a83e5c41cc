#pragma once

#include <QString>

#include <optional>

namespace tw {

class UserInteraction;

// The "export sites" command: every stored site into one JSON file, passwords
// in plain text (after a warning). The file is owner-only (0600).
class ExportSites {
public:
    explicit ExportSites(UserInteraction& interaction);

    std::optional<QString> exportFilePath;

    void browseDirectory();

private:
    UserInteraction& m_interaction;
};

} // namespace tw
