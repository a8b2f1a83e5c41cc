#pragma once

#include <QString>
#include <QStringList>

#include <functional>
#include <optional>

namespace tw {

enum class AlertStyle { Warning, Informational, Critical };

// An alert: a message, an informative text and buttons, first button first.
// No buttons means the single default button ("OK").
struct AlertRequest {
    AlertStyle style = AlertStyle::Warning;
    QString message;
    QString informativeText;
    QStringList buttons;
    // Longer text a person may want (curl's own words, a script's output):
    // shown on request ("Show Details"), never instead of the message.
    QString detailedText;
};

struct SavePanelRequest {
    QString title;
    QString nameFieldValue; // the file name offered
    QString directory;      // where the panel starts; empty: the front end decides
};

struct OpenPanelRequest {
    QString title;
    QString message;
    QString directory; // where the panel starts; empty: the front end decides
    bool canChooseFiles = true;
    bool canChooseDirectories = false;
    bool canCreateDirectories = false;
    bool allowsMultipleSelection = false;
    bool showsHiddenFiles = false;
    QStringList allowedFileTypes; // extensions without the dot; empty: any
};

// The one way the core asks the person something. The desktop window shows
// dialogs, the command line asks on the terminal, tests answer from a script.
class UserInteraction {
public:
    virtual ~UserInteraction() = default;

    // Shows the alert and waits: answers the index of the button chosen
    // (0 is the first button).
    virtual int runModal(const AlertRequest& alert) = 0;
    // Shows the alert as a sheet over the main window and returns at once;
    // the completion gets the index of the button chosen, later, on the main
    // thread.
    virtual void beginSheet(const AlertRequest& alert, std::function<void(int button)> completion) = 0;
    // The location chosen, or nothing when the person cancelled.
    virtual std::optional<QString> runSavePanel(const SavePanelRequest& panel) = 0;
    virtual std::optional<QString> runOpenPanel(const OpenPanelRequest& panel) = 0;
};

} // namespace tw
