#include "StatusCommand.h"

#include "DeploySession.h"
#include "SiteFileSession.h"
#include "SiteSelection.h"
#include "Terminal.h"
#include "model/ArchiveValues.h"

#include <QJsonArray>
#include <QJsonDocument>
#include <QJsonObject>

namespace tw::cli {

namespace {} // namespace

StatusCommand::StatusCommand() {
    name = QStringLiteral("status");
    synopsis = QStringLiteral("[SITE]");
    maximumArguments = 1;
    description = QStringLiteral("Show what a deployment would send now, or why there is nothing to send.");
    details = QStringLiteral(
        "The files are listed with git's change letters (A added, M modified, D deleted, ...). When there is "
        "no list, the reason is the text the window shows in its place.\n"
        "\n"
        "Exit code 0 when the list could be made (also when everything is deployed), 7 when it cannot: no "
        "repository, or another branch checked out.\n"
        "\n"
        "With --json: an object with the keys site (index, name), state (\"toDeploy\", \"allDeployed\", "
        "\"notRepository\", \"wrongBranch\" or \"noFolder\"), message (the text shown in place of the list, "
        "or "
        "null), deployBranch, checkedOutBranch, lastDeployedCommit, files (an array of objects with path and "
        "change), alwaysUploaded (the paths uploaded with every deployment) and notes (sentences about the "
        "list: uncommitted changes, a last deployed commit that is gone).");
    options = {QCommandLineOption(QStringLiteral("json"), QStringLiteral("Print JSON for scripts."))};
    options.append(SiteFileSession::options());
}

int StatusCommand::run(const QCommandLineParser& parser) {
    Terminal& terminal = Terminal::instance();
    SiteFileSession siteFile;
    if (const auto code = siteFile.prepare(parser, SiteFileSession::ServerRecordUse::LastDeployedCommit))
        return *code;
    const auto index = SiteSelection::resolve(parser.positionalArguments().value(0));
    if (!index)
        return toInt(ExitCode::SetupError);
    DeploySession session(SiteSelection::siteAt(*index)->siteId(), PresetAnswers(), false);
    session.load();
    ViewController& controller = session.controller();
    const SitePtr site = controller.currentSite;
    if (!site)
        return fail(ExitCode::SetupError, QStringLiteral("The site could not be loaded."));

    const std::optional<QString> problem = session.listingProblem();
    QString state;
    std::optional<QString> message;
    if (problem) {
        message = *problem;
        if (!site->localPath || site->localPath->isEmpty())
            state = QStringLiteral("noFolder");
        else if (session.view().placeholder() == TerminalDeployView::Placeholder::NotValidRepository)
            state = QStringLiteral("notRepository");
        else
            state = QStringLiteral("wrongBranch");
    } else if (controller.hasFilesToUpload()) {
        state = QStringLiteral("toDeploy");
    } else if (const qsizetype waiting = controller.waitingCount(); waiting > 0) {
        state = QStringLiteral("waiting");
        message = waiting == 1 ? QStringLiteral("1 file waits (left out of a deployment).")
                               : QStringLiteral("%1 files wait (left out of a deployment).").arg(waiting);
    } else {
        state = QStringLiteral("allDeployed");
        message = QStringLiteral("All files deployed. Good work!");
    }

    QStringList always;
    if (site->mandatoryFiles) {
        for (const FilePtr& file : *site->mandatoryFiles)
            always.append(file->pathWithFilename.value_or(QString()));
    }
    const CommitPtr& last = site->lastCommitDeployed;
    const std::optional<QString> lastSha1 =
        last && last->sha1 && !last->sha1->isEmpty() ? last->sha1 : std::optional<QString>();
    const ExitCode code = problem ? ExitCode::SetupError : ExitCode::Success;

    if (parser.isSet(QStringLiteral("json"))) {
        QJsonObject object;
        object.insert(QStringLiteral("site"),
                      QJsonObject{{QStringLiteral("index"), *index},
                                  {QStringLiteral("name"), archive::toJson(site->name)}});
        object.insert(QStringLiteral("state"), state);
        object.insert(QStringLiteral("message"), archive::toJson(message));
        object.insert(QStringLiteral("deployBranch"), archive::toJson(site->deployBranch));
        object.insert(QStringLiteral("checkedOutBranch"), archive::toJson(controller.checkOutedBranch()));
        object.insert(QStringLiteral("lastDeployedCommit"), archive::toJson(lastSha1));
        QJsonArray files;
        if (controller.files) {
            for (const FilePtr& file : *controller.files) {
                if (file->gitStatus == u"-")
                    continue; // listed under alwaysUploaded
                files.append(QJsonObject{{QStringLiteral("path"), archive::toJson(file->pathWithFilename)},
                                         {QStringLiteral("change"), archive::toJson(file->gitStatus)},
                                         {QStringLiteral("waiting"), !file->willUpload}});
            }
        }
        object.insert(QStringLiteral("files"), files);
        object.insert(QStringLiteral("alwaysUploaded"), QJsonArray::fromStringList(always));
        object.insert(QStringLiteral("notes"), QJsonArray::fromStringList(controller.listingNotes()));
        terminal.out(QString::fromUtf8(QJsonDocument(object).toJson(QJsonDocument::Indented)));
        return toInt(code);
    }

    QString heading = QStringLiteral("Site %1, branch %2, ")
                          .arg(SiteSelection::describe(*index, site), site->deployBranch.value_or(QString()));
    heading += lastSha1 ? QStringLiteral("last deployed commit %1.").arg(*lastSha1)
                        : QStringLiteral("never deployed.");
    terminal.outLine(heading);
    if (problem) {
        terminal.outLine(*problem);
        return toInt(code);
    }
    for (const QString& note : controller.listingNotes())
        terminal.outLine(QStringLiteral("Note: ") + note);
    const DeploySession::Counts counts = session.counts();
    if (counts.uploads + counts.deletions > 0) {
        const qsizetype changed = counts.uploads + counts.deletions;
        terminal.outLine(
            QStringLiteral("%1 to deploy (%2 to upload, %3 to delete):")
                .arg(changed == 1 ? QStringLiteral("1 file") : QStringLiteral("%1 files").arg(changed))
                .arg(counts.uploads)
                .arg(counts.deletions));
        for (const FilePtr& file : *controller.files) {
            if (file->willUpload && file->gitStatus != u"-")
                terminal.outLine(QStringLiteral("  %1  %2")
                                     .arg(file->gitStatus.value_or(QStringLiteral("?")), -2)
                                     .arg(file->pathWithFilename.value_or(QString())));
        }
    } else if (message) {
        terminal.outLine(*message);
    }
    if (counts.waiting > 0 && counts.uploads + counts.deletions > 0) {
        terminal.outLine(QStringLiteral("Waiting (unchecked, left out until a commit changes them):"));
        for (const FilePtr& file : *controller.files) {
            if (!file->willUpload && file->gitStatus != u"-")
                terminal.outLine(QStringLiteral("  %1  %2")
                                     .arg(file->gitStatus.value_or(QStringLiteral("?")), -2)
                                     .arg(file->pathWithFilename.value_or(QString())));
        }
    }
    if (!always.isEmpty())
        terminal.outLine(QStringLiteral("Uploaded with every deployment: ") +
                         always.join(QStringLiteral(", ")));
    return toInt(code);
}

} // namespace tw::cli
