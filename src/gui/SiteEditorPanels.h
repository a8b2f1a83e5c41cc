#pragma once

#include "app/UserInteraction.h"

#include <QString>

namespace tw {

// The file panels the site editor opens: what each asks for and where it
// starts.
class SiteEditorPanels {
public:
    // The repository folder, starting at the current one (or the home folder).
    static OpenPanelRequest repositoryFolder(const QString& current);
    // The SFTP private key, starting in ~/.ssh when there is one.
    static OpenPanelRequest privateKey();
    // A file or folder of the repository for the always-uploaded or ignored list.
    static OpenPanelRequest repositoryEntry(bool folder, const QString& repository);
};

} // namespace tw
