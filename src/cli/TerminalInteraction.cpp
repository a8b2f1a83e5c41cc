#include "TerminalInteraction.h"

#include "InterruptWatcher.h"
#include "Terminal.h"

#include <QMetaObject>

namespace tw::cli {

namespace {

const QString kCancel = QStringLiteral("Cancel");

// Button titles compare without case and with "…" and "..." alike.
QString comparable(QString title) {
    title.replace(QChar(0x2026), QStringLiteral("..."));
    return title.trimmed().toCaseFolded();
}

qsizetype buttonIndex(const AlertRequest& alert, const QString& title) {
    const QString wanted = comparable(title);
    for (qsizetype i = 0; i < alert.buttons.size(); ++i) {
        if (comparable(alert.buttons.at(i)) == wanted)
            return i;
    }
    return -1;
}

QString indented(const QString& text) {
    QString result;
    const QStringList lines = text.trimmed().split(QLatin1Char('\n'));
    for (const QString& line : lines)
        result += QStringLiteral("  ") + line.trimmed() + QLatin1Char('\n');
    return result;
}

} // namespace

TerminalInteraction::TerminalInteraction(Terminal& terminal, PresetAnswers answers)
    : m_terminal(terminal)
    , m_answers(std::move(answers)) {}

bool TerminalInteraction::isQuestion(const AlertRequest& alert) {
    return buttonIndex(alert, kCancel) >= 0;
}

QStringList TerminalInteraction::optionsFor(const AlertRequest& alert, qsizetype button) {
    QStringList options;
    const QString title = alert.buttons.value(button);
    if (title == u"Force deploy" || title == u"No, use mine")
        options.append(QStringLiteral("--force"));
    if (title == u"Yes")
        options.append(QStringLiteral("--use-server-commit"));
    if (button == 0)
        options.append(QStringLiteral("--yes"));
    options.append(QStringLiteral("--answer \"%1\"").arg(title));
    return options;
}

void TerminalInteraction::reset() {
    m_alerts.clear();
    m_unanswered = false;
    m_lastMessage.reset();
}

int TerminalInteraction::runModal(const AlertRequest& alert) {
    return answer(alert);
}

void TerminalInteraction::beginSheet(const AlertRequest& alert, std::function<void(int)> completion) {
    const int button = answer(alert);
    QMetaObject::invokeMethod(
        &m_context, [completion = std::move(completion), button] { completion(button); },
        Qt::QueuedConnection);
}

std::optional<QString> TerminalInteraction::runSavePanel(const SavePanelRequest&) {
    return savePanelAnswer;
}

std::optional<QString> TerminalInteraction::runOpenPanel(const OpenPanelRequest&) {
    return openPanelAnswer;
}

int TerminalInteraction::answer(const AlertRequest& alert) {
    m_alerts.append(alert);
    if (!isQuestion(alert)) {
        printMessage(alert);
        return 0;
    }
    m_lastMessage.reset();
    if (const auto preset = presetAnswer(alert)) {
        m_terminal.errLine(alert.message);
        if (!alert.informativeText.isEmpty())
            m_terminal.err(indented(alert.informativeText));
        m_terminal.errLine(
            QStringLiteral("Answered \u201c%1\u201d (given in advance).").arg(alert.buttons.at(*preset)));
        return *preset;
    }
    if (m_terminal.canAsk() && !InterruptWatcher::wasInterrupted()) {
        if (const auto asked = askOnTerminal(alert))
            return *asked;
        if (InterruptWatcher::wasInterrupted())
            return static_cast<int>(buttonIndex(alert, kCancel));
    }
    printUnanswered(alert);
    m_unanswered = true;
    return static_cast<int>(buttonIndex(alert, kCancel));
}

std::optional<int> TerminalInteraction::presetAnswer(const AlertRequest& alert) const {
    for (const QString& title : m_answers.buttons) {
        const qsizetype index = buttonIndex(alert, title);
        if (index >= 0)
            return static_cast<int>(index);
    }
    if (m_answers.force) {
        for (const QString& title : {QStringLiteral("Force deploy"), QStringLiteral("No, use mine")}) {
            const qsizetype index = buttonIndex(alert, title);
            if (index >= 0)
                return static_cast<int>(index);
        }
    }
    if (m_answers.useServerCommit) {
        const qsizetype index = buttonIndex(alert, QStringLiteral("Yes"));
        if (index >= 0)
            return static_cast<int>(index);
    }
    if (m_answers.firstButton && !alert.buttons.isEmpty())
        return 0;
    return std::nullopt;
}

std::optional<int> TerminalInteraction::askOnTerminal(const AlertRequest& alert) {
    QString text = QLatin1Char('\n') + alert.message + QLatin1Char('\n');
    if (!alert.informativeText.isEmpty())
        text += indented(alert.informativeText);
    for (qsizetype i = 0; i < alert.buttons.size(); ++i)
        text += QStringLiteral("  [%1] %2\n").arg(i + 1).arg(alert.buttons.at(i));
    m_terminal.err(text);
    const QString prompt = QStringLiteral("Your choice (1-%1): ").arg(alert.buttons.size());
    for (;;) {
        const std::optional<QString> reply = m_terminal.ask(prompt, true);
        if (!reply)
            return std::nullopt;
        bool isNumber = false;
        const int number = reply->trimmed().toInt(&isNumber);
        if (isNumber && number >= 1 && number <= alert.buttons.size())
            return number - 1;
        const qsizetype byTitle = buttonIndex(alert, *reply);
        if (byTitle >= 0)
            return static_cast<int>(byTitle);
        m_terminal.errLine(QStringLiteral("Type a number from 1 to %1.").arg(alert.buttons.size()));
    }
}

void TerminalInteraction::printMessage(const AlertRequest& alert) {
    // The controller may report one failure twice (a file, then the whole
    // queue): say it once.
    const QString text = alert.message + QLatin1Char('\n') + alert.informativeText;
    if (m_lastMessage == text)
        return;
    m_lastMessage = text;
    m_terminal.errLine(alert.message);
    if (!alert.informativeText.isEmpty())
        m_terminal.err(indented(alert.informativeText));
}

void TerminalInteraction::printUnanswered(const AlertRequest& alert) {
    QString text = alert.message + QLatin1Char('\n');
    if (!alert.informativeText.isEmpty())
        text += indented(alert.informativeText);
    QStringList titles;
    for (const QString& button : alert.buttons)
        titles.append(QStringLiteral("\u201c") + button + QStringLiteral("\u201d"));
    text += QStringLiteral("This question (%1) needs an answer, and there is no terminal to ask on.\n")
                .arg(titles.join(QStringLiteral(", ")));
    text += QStringLiteral("Answer it in advance with:\n");
    for (qsizetype i = 0; i < alert.buttons.size(); ++i) {
        if (alert.buttons.at(i) == kCancel)
            continue;
        text += QStringLiteral("  %1  for \u201c%2\u201d\n")
                    .arg(optionsFor(alert, i).join(QStringLiteral(" or ")), alert.buttons.at(i));
    }
    text += QStringLiteral("Without an answer it counts as \u201cCancel\u201d.\n");
    m_terminal.err(text);
}

} // namespace tw::cli
