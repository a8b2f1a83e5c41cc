#include "ScriptedInteraction.h"

#include <QCoreApplication>
#include <QMetaObject>
#include <QTest>

namespace tw::test {

int ScriptedInteraction::answerFor(const AlertRequest& alert) {
    alerts.append(alert);
    if (answers.isEmpty())
        return 0;
    const QString title = answers.takeFirst();
    const QStringList buttons = alert.buttons.isEmpty() ? QStringList{QStringLiteral("OK")} : alert.buttons;
    const qsizetype index = buttons.indexOf(title);
    if (index < 0) {
        qWarning("scripted answer '%s' is not a button of '%s' (%s)", qPrintable(title),
                 qPrintable(alert.message), qPrintable(buttons.join(QStringLiteral(", "))));
        return 0;
    }
    return static_cast<int>(index);
}

int ScriptedInteraction::runModal(const AlertRequest& alert) {
    return answerFor(alert);
}

void ScriptedInteraction::beginSheet(const AlertRequest& alert, std::function<void(int)> completion) {
    if (holdSheets) {
        alerts.append(alert);
        heldSheets.append(std::move(completion));
        return;
    }
    const int answer = answerFor(alert);
    QMetaObject::invokeMethod(
        QCoreApplication::instance(), [completion, answer] { completion(answer); }, Qt::QueuedConnection);
}

void ScriptedInteraction::answerHeldSheet(int button) {
    if (heldSheets.isEmpty())
        return;
    const std::function<void(int)> completion = heldSheets.takeFirst();
    completion(button);
}

std::optional<QString> ScriptedInteraction::runSavePanel(const SavePanelRequest& panel) {
    savePanels.append(panel);
    return savePanelAnswer;
}

std::optional<QString> ScriptedInteraction::runOpenPanel(const OpenPanelRequest& panel) {
    openPanels.append(panel);
    return openPanelAnswer;
}

QStringList ScriptedInteraction::messages() const {
    QStringList result;
    for (const AlertRequest& alert : alerts)
        result.append(alert.message);
    return result;
}

} // namespace tw::test
