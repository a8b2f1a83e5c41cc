#pragma once

#include "app/UserInteraction.h"

#include <QPointer>
#include <QWidget>

namespace tw {

// Asks the person through the desktop's dialogs: message boxes for alerts
// (a sheet is a window-modal box over the window), file dialogs for panels.
// Escape, or closing a box, answers its "Cancel" button, or the first button
// when it has none.
class WidgetInteraction : public UserInteraction {
public:
    explicit WidgetInteraction(QWidget* window = nullptr)
        : m_window(window) {}

    void setWindow(QWidget* window) { m_window = window; }
    QWidget* window() const { return m_window; }

    int runModal(const AlertRequest& alert) override;
    void beginSheet(const AlertRequest& alert, std::function<void(int button)> completion) override;
    std::optional<QString> runSavePanel(const SavePanelRequest& panel) override;
    std::optional<QString> runOpenPanel(const OpenPanelRequest& panel) override;

private:
    QPointer<QWidget> m_window;
};

} // namespace tw
