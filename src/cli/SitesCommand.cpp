#include "SitesCommand.h"

#include "Terminal.h"
#include "model/ArchiveValues.h"
#include "model/SiteListActions.h"
#include "model/Sites.h"

#include <QJsonArray>
#include <QJsonDocument>

namespace tw::cli {

namespace {

QString hostAndPort(const Site& site) {
    QString text = site.host.value_or(QString());
    if (site.port && !site.port->isEmpty())
        text += QLatin1Char(':') + *site.port;
    return text;
}

QString lastDeployed(const Site& site) {
    const CommitPtr& commit = site.lastCommitDeployed;
    if (!commit || !commit->sha1 || commit->sha1->isEmpty())
        return QStringLiteral("never");
    QString text = *commit->sha1;
    if (commit->deployedWhen)
        text += commit->deployedWhen->toLocalTime().toString(QStringLiteral(" (yyyy-MM-dd HH:mm)"));
    return text;
}

} // namespace

SitesCommand::SitesCommand() {
    name = QStringLiteral("sites");
    description =
        QStringLiteral("List the sites: index, name, protocol, host, branch, last deployed commit.");
    details = QStringLiteral(
        "The current site is marked with *. With --json: an array of objects with the keys index, id, name, "
        "current, protocol, host, port, user, folder, syncRoot, remotePath, branch, autoDeploy, "
        "lastDeployedCommit and lastDeployedWhen (ISO 8601); absent values are null.");
    options = {QCommandLineOption(QStringLiteral("json"), QStringLiteral("Print JSON for scripts."))};
}

QJsonObject SitesCommand::jsonFor(qsizetype index, Site& site, bool current) {
    const CommitPtr& commit = site.lastCommitDeployed;
    const bool deployed = commit && commit->sha1 && !commit->sha1->isEmpty();
    QJsonObject object;
    object.insert(QStringLiteral("index"), index);
    object.insert(QStringLiteral("id"), site.siteId());
    object.insert(QStringLiteral("name"), archive::toJson(site.name));
    object.insert(QStringLiteral("current"), current);
    object.insert(QStringLiteral("protocol"), archive::toJson(site.protocol));
    object.insert(QStringLiteral("host"), archive::toJson(site.host));
    object.insert(QStringLiteral("port"), archive::toJson(site.port));
    object.insert(QStringLiteral("user"), archive::toJson(site.username));
    object.insert(QStringLiteral("folder"), archive::toJson(site.localPath));
    object.insert(QStringLiteral("syncRoot"), archive::toJson(site.syncRootPath));
    object.insert(QStringLiteral("remotePath"), archive::toJson(site.remotePath));
    object.insert(QStringLiteral("branch"), archive::toJson(site.deployBranch));
    object.insert(QStringLiteral("autoDeploy"), site.autoDeploy);
    object.insert(QStringLiteral("lastDeployedCommit"), deployed ? QJsonValue(*commit->sha1) : QJsonValue());
    object.insert(
        QStringLiteral("lastDeployedWhen"),
        deployed && commit->deployedWhen
            ? QJsonValue(commit->deployedWhen->toOffsetFromUtc(commit->deployedWhen->offsetFromUtc())
                             .toString(Qt::ISODate))
            : QJsonValue());
    return object;
}

int SitesCommand::run(const QCommandLineParser& parser) {
    Terminal& terminal = Terminal::instance();
    const SiteList sites = Sites().loadAll().value_or(SiteList());
    const qsizetype current = SiteListActions::currentIndex();

    if (parser.isSet(QStringLiteral("json"))) {
        QJsonArray array;
        for (qsizetype i = 0; i < sites.size(); ++i)
            array.append(jsonFor(i, *sites.at(i), i == current));
        terminal.out(QString::fromUtf8(QJsonDocument(array).toJson(QJsonDocument::Indented)));
        return toInt(ExitCode::Success);
    }
    if (sites.isEmpty()) {
        terminal.errLine(QStringLiteral("No sites defined. Add one with 'tarnwell-cli add'."));
        return toInt(ExitCode::Success);
    }

    const QStringList headings{QStringLiteral("#"),        QStringLiteral("Name"),
                               QStringLiteral("Protocol"), QStringLiteral("Host"),
                               QStringLiteral("Branch"),   QStringLiteral("Last deployed")};
    QList<QStringList> rows;
    for (qsizetype i = 0; i < sites.size(); ++i) {
        const Site& site = *sites.at(i);
        rows.append({QString::number(i), site.name.value_or(QString()), site.protocol.value_or(QString()),
                     hostAndPort(site), site.deployBranch.value_or(QString()), lastDeployed(site)});
    }
    QList<qsizetype> widths;
    for (qsizetype column = 0; column < headings.size(); ++column) {
        qsizetype width = headings.at(column).size();
        for (const QStringList& row : rows)
            width = std::max(width, row.at(column).size());
        widths.append(width);
    }
    auto line = [&](const QString& mark, const QStringList& cells) {
        QString text = mark + QLatin1Char(' ');
        for (qsizetype column = 0; column < cells.size(); ++column) {
            const bool last = column == cells.size() - 1;
            text += last ? cells.at(column) : cells.at(column).leftJustified(widths.at(column) + 2);
        }
        terminal.outLine(text);
    };
    line(QStringLiteral(" "), headings);
    for (qsizetype i = 0; i < rows.size(); ++i)
        line(i == current ? QStringLiteral("*") : QStringLiteral(" "), rows.at(i));
    return toInt(ExitCode::Success);
}

} // namespace tw::cli
