#pragma once

#include "app/UserInteraction.h"

#include <QList>
#include <QStringList>

namespace tw::test {

// Answers the core's questions from a script, and remembers what was asked.
// Alerts are answered with the queued button titles in order (a title that is
// not among the alert's buttons fails the test); with nothing queued, the
// first button. Sheets answer later on the event loop, as a real sheet does.
class ScriptedInteraction : public UserInteraction {
public:
    QList<AlertRequest> alerts;
    QStringList answers; // button titles, used up in order
    QList<SavePanelRequest> savePanels;
    QList<OpenPanelRequest> openPanels;
    std::optional<QString> savePanelAnswer;
    std::optional<QString> openPanelAnswer;
    // Sheets stay open (unanswered) until answerHeldSheet: a question that
    // waits for the person.
    bool holdSheets = false;
    QList<std::function<void(int)>> heldSheets;
    void answerHeldSheet(int button);

    int runModal(const AlertRequest& alert) override;
    void beginSheet(const AlertRequest& alert, std::function<void(int)> completion) override;
    std::optional<QString> runSavePanel(const SavePanelRequest& panel) override;
    std::optional<QString> runOpenPanel(const OpenPanelRequest& panel) override;

    QStringList messages() const;

private:
    int answerFor(const AlertRequest& alert);
};

} // namespace tw::test
