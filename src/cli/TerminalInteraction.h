#pragma once

#include "app/UserInteraction.h"

#include <QList>
#include <QObject>
#include <QStringList>

#include <optional>

namespace tw::cli {

class Terminal;

// Answers given on the command line before a question comes up.
struct PresetAnswers {
    QStringList buttons;          // --answer TEXT: the button of that title, wherever it appears
    bool force = false;           // --force: "Force deploy", "No, use mine"
    bool useServerCommit = false; // --use-server-commit: "Yes" (deploy from the server's commit)
    bool firstButton = false;     // --yes: the first button of any question

    bool isEmpty() const { return buttons.isEmpty() && !force && !useServerCommit && !firstButton; }
};

// The core's questions on the terminal. An alert with a "Cancel" button is a
// question: it is answered from the preset answers, else asked on the
// terminal, else left unanswered, which cancels it (nothing goes ahead) and
// says which option answers it. Any other alert is a message: it is printed
// and takes its first button. Sheets answer later, on the event loop, as a
// sheet of the window does.
class TerminalInteraction : public UserInteraction {
public:
    TerminalInteraction(Terminal& terminal, PresetAnswers answers);

    int runModal(const AlertRequest& alert) override;
    void beginSheet(const AlertRequest& alert, std::function<void(int button)> completion) override;
    // The panels answer with the location given on the command line.
    std::optional<QString> runSavePanel(const SavePanelRequest& panel) override;
    std::optional<QString> runOpenPanel(const OpenPanelRequest& panel) override;

    std::optional<QString> savePanelAnswer;
    std::optional<QString> openPanelAnswer;

    // Every alert shown, questions included, in order.
    const QList<AlertRequest>& alerts() const { return m_alerts; }
    // A question was left without an answer (and so cancelled).
    bool hadUnansweredQuestion() const { return m_unanswered; }
    // Forgets the alerts and the unanswered question (the next deployment of
    // a watch starts afresh).
    void reset();

    static bool isQuestion(const AlertRequest& alert);
    // The options that answer a button ("--force", "--answer \"Yes\"").
    static QStringList optionsFor(const AlertRequest& alert, qsizetype button);

private:
    int answer(const AlertRequest& alert);
    std::optional<int> presetAnswer(const AlertRequest& alert) const;
    std::optional<int> askOnTerminal(const AlertRequest& alert);
    void printMessage(const AlertRequest& alert);
    void printUnanswered(const AlertRequest& alert);

    Terminal& m_terminal;
    PresetAnswers m_answers;
    QList<AlertRequest> m_alerts;
    bool m_unanswered = false;
    std::optional<QString> m_lastMessage;
    QObject m_context; // queued sheet answers die with the interaction
};

} // namespace tw::cli
