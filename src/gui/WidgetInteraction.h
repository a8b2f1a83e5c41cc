#pragma once

#include "app/UserInteraction.h"

#include <QPointer>
#include <QWidget>

namespace tw {

// Asks the person through the desktop's dialogs: message boxes for alerts
// (a sheet is a window-modal box over the window), file dialogs for panels.
// Escape, or closing a box, answers its "Cancel" button, or the first button
// when it has none. The first button is the default one.
//
// A box never grows taller than the screen: a long informative text moves
// under "Show Details", its first line staying. A failure also offers "Open
// Log Folder" when a way to open it was given; that button answers as Escape
// does, after opening the folder.
class WidgetInteraction : public UserInteraction {
public:
    explicit WidgetInteraction(QWidget* window = nullptr)
        : m_window(window) {}

    void setWindow(QWidget* window) { m_window = window; }
    QWidget* window() const { return m_window; }
    void setLogFolderOpener(std::function<void()> opener) { m_openLogFolder = std::move(opener); }

    // The alert as the box shows it: a long informative text moved under the
    // details.
    static AlertRequest fitted(const AlertRequest& alert);
    // Whether the alert reports a failure: it carries details (curl's text,
    // a script's output), or says "An error occured..." or "Could not ...".
    static bool isFailure(const AlertRequest& alert);
    // The longest informative text shown as it is.
    static constexpr qsizetype maximumInformativeLength = 600;
    static constexpr qsizetype maximumInformativeLines = 8;

    int runModal(const AlertRequest& alert) override;
    void beginSheet(const AlertRequest& alert, std::function<void(int button)> completion) override;
    std::optional<QString> runSavePanel(const SavePanelRequest& panel) override;
    std::optional<QString> runOpenPanel(const OpenPanelRequest& panel) override;

private:
    QPointer<QWidget> m_window;
    std::function<void()> m_openLogFolder;
};

} // namespace tw
