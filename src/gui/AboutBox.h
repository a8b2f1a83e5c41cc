#pragma once

#include <QString>

class QMessageBox;
class QWidget;

namespace tw {

// Help ▸ About: the application's version and those of Qt, git and curl, as
// the tools folder's programs report them, and the documentation link. The
// box opens at once; git's and curl's versions are asked once per run
// (ToolVersions) and filled in when they answer.
class AboutBox {
public:
    // The text of the box (rich text), with what is known of the versions now.
    static QString text();
    // Opens the box (window-modal over parent, deleted when closed).
    static QMessageBox* show(QWidget* parent);

    static QString documentationUrl();
};

} // namespace tw
