#include "RunMessages.h"

#include <QCoreApplication>
#include <QStringList>

#include <algorithm>

namespace tw {

namespace {

QString tr(const char* text) {
    return QCoreApplication::translate("RunMessages", text);
}

QString waitingText(qsizetype waiting) {
    return waiting == 1 ? tr("1 unchecked file waits for a later deployment.")
                        : tr("%1 unchecked files wait for a later deployment.").arg(waiting);
}

} // namespace

QString RunMessages::fileCount(qsizetype done, qsizetype total) {
    return total == 1 ? tr("%1 of 1 file").arg(done) : tr("%1 of %2 files").arg(done).arg(total);
}

int RunMessages::percent(qsizetype done, qsizetype total) {
    if (total <= 0)
        return 0;
    return static_cast<int>(std::min<qsizetype>(done, total) * 100 / total);
}

QString RunMessages::notRecorded(const RunSummary& summary) {
    QString sent = summary.done == 0
                       ? tr("No file reached the server.")
                       : tr("%1 reached the server.").arg(fileCount(summary.done, summary.total));
    return sent + QLatin1Char(' ') +
           tr("The deployment record was not written: the next deployment sends these files again.");
}

QString RunMessages::takeRunNotes(QString& text) {
    static const QStringList notes = {QStringLiteral("curl did not say which file failed")};
    QStringList kept;
    QStringList taken;
    for (const QString& line : text.split(QLatin1Char('\n'))) {
        const bool isNote = std::any_of(notes.begin(), notes.end(),
                                        [&line](const QString& note) { return line.startsWith(note); });
        (isNote ? taken : kept).append(line);
    }
    text = kept.join(QLatin1Char('\n'));
    return taken.join(QLatin1Char('\n'));
}

QString RunMessages::afterRun(DeployOutcome outcome, const RunSummary& summary) {
    switch (outcome) {
    case DeployOutcome::Deployed: {
        QString text = summary.total == 0   ? tr("Deployed.")
                       : summary.total == 1 ? tr("Deployed: 1 file reached the server.")
                                            : tr("Deployed: %1 files reached the server.").arg(summary.total);
        if (summary.waiting > 0)
            text += QLatin1Char(' ') + waitingText(summary.waiting);
        return text;
    }
    case DeployOutcome::RecordNotWritten:
        return notRecorded(summary);
    case DeployOutcome::SiteNotSaved:
        return tr("%1 reached the server and the deployment record was written, but the site could not "
                  "be saved with the deployed commit.")
            .arg(fileCount(summary.done, summary.total));
    case DeployOutcome::Aborted:
        return tr("Deployment aborted.") + QLatin1Char(' ') + notRecorded(summary);
    case DeployOutcome::Failed:
    case DeployOutcome::ScriptFailed:
        if (summary.total == 0 && summary.done == 0)
            return tr("The deployment failed before any file was sent.");
        return tr("The deployment failed.") + QLatin1Char(' ') + notRecorded(summary);
    case DeployOutcome::NothingToDeploy:
        return summary.waiting > 0
                   ? tr("Nothing to deploy.") + QLatin1Char(' ') + waitingText(summary.waiting)
                   : tr("Nothing to deploy.");
    case DeployOutcome::Cancelled:
    case DeployOutcome::SetupFailed:
    case DeployOutcome::Refused:
        return QString();
    }
    return QString();
}

} // namespace tw
