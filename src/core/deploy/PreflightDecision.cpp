#include "PreflightDecision.h"

#include <array>

namespace tw {

namespace {

// The questions' texts, one row each. "%1" is the server's branch or commit,
// "%2" the site's branch. The wording (misspellings included) is the
// program's own and is kept as it stands.
struct QuestionText {
    PreflightQuestion question;
    const char16_t* message;
    const char16_t* informative;
    std::array<const char16_t*, 3> buttons; // first button first; nullptr ends the list
};

constexpr std::array<QuestionText, 4> questionTexts{{
    {PreflightQuestion::WrongBranch,
     u"Target site was last deployed with a different branch",
     u"Last target site deployment was done using branch \"%1\". Change your settings before deploying "
     u"or force deployment with your current branch %2 (not recommended).",
     {u"Force deploy", u"Cancel", nullptr}},
    {PreflightQuestion::UnknownCommit,
     u"Last deployed commit on target site is unknown. Are you sure to continue?",
     u"Be sure you have pulled all resources if you have any remote repositories.",
     {u"Force deploy", u"Cancel", nullptr}},
    {PreflightQuestion::LaterCommit,
     u"Last deployed commit on target site is later. Are you sure to continue?",
     u"The last deployed commit on the target site is %1. Would you like to deploy from this commit "
     u"instead?",
     {u"Cancel", u"Yes", u"No, use mine"}},
    {PreflightQuestion::EarlierCommit,
     u"Last commit on target site is earlier",
     u"The last deployed commit target site is a earlier commit (%1). Would you like to deploy from this "
     u"commit instead?",
     {u"Cancel", u"Yes", u"No, use mine"}},
}};

const QuestionText& textOf(PreflightQuestion question) {
    for (const QuestionText& row : questionTexts) {
        if (row.question == question)
            return row;
    }
    return questionTexts.front();
}

qsizetype indexOf(const QStringList& commits, const std::optional<QString>& commit) {
    if (!commit)
        return -1;
    return commits.indexOf(*commit);
}

} // namespace

ServerRecord ServerRecord::found(const QString& commit, const std::optional<QString>& branch) {
    ServerRecord record;
    record.kind = Kind::Found;
    record.commit = commit;
    record.branch = branch;
    return record;
}

ServerRecord ServerRecord::missing() {
    return ServerRecord();
}

ServerRecord ServerRecord::failed(const Error& error) {
    ServerRecord record;
    record.kind = Kind::Failed;
    record.error = error;
    return record;
}

ServerRecord ServerRecord::fromReadError(const Error& error) {
    const QString& text = error.localizedDescription;
    // "(9)": an FTP server would not change into the remote folder, which a
    // first deployment creates. A folder the login may not enter or create
    // makes the uploads fail with their own message.
    if (text.startsWith(QStringLiteral("(78)")) || text.startsWith(QStringLiteral("(9)")))
        return missing();
    return failed(error);
}

AlertRequest PreflightDecision::alertFor(PreflightQuestion question, const QString& server,
                                         const QString& deployBranch) {
    const QuestionText& row = textOf(question);
    AlertRequest alert;
    alert.style = AlertStyle::Warning;
    alert.message = QString::fromUtf16(row.message);
    QString informative = QString::fromUtf16(row.informative);
    if (informative.contains(QStringLiteral("%2")))
        informative = informative.arg(server, deployBranch);
    else if (informative.contains(QStringLiteral("%1")))
        informative = informative.arg(server);
    alert.informativeText = informative;
    for (const char16_t* button : row.buttons) {
        if (button)
            alert.buttons.append(QString::fromUtf16(button));
    }
    return alert;
}

PreflightDecision PreflightDecision::decide(const ServerRecord& record,
                                            const std::optional<QString>& localCommit,
                                            const QString& deployBranch, const QStringList& commits) {
    PreflightDecision decision;
    switch (record.kind) {
    case ServerRecord::Kind::Missing:
        return decision; // a first deployment here
    case ServerRecord::Kind::Failed:
        decision.action = Action::Fail;
        decision.error = record.error;
        return decision;
    case ServerRecord::Kind::Found:
        break;
    }
    decision.serverCommit = record.commit;
    if (record.commit == localCommit)
        return decision;

    const auto ask = [&](PreflightQuestion asked, const QString& server) {
        decision.action = Action::Ask;
        decision.question = asked;
        decision.alert = alertFor(asked, server, deployBranch);
        return decision;
    };
    // A record without a branch counts as another branch; the branch is
    // asked about first, whatever the commit.
    if (record.branch != deployBranch)
        return ask(PreflightQuestion::WrongBranch, record.branch.value_or(QString()));

    const qsizetype serverIndex = indexOf(commits, record.commit);
    if (serverIndex < 0)
        return ask(PreflightQuestion::UnknownCommit, record.commit);
    // Newest first: a smaller index is a later commit. A last deployed commit
    // that is not in the list counts as the oldest of all.
    qsizetype localIndex = indexOf(commits, localCommit);
    if (localIndex < 0)
        localIndex = commits.size();
    if (serverIndex == localIndex) {
        decision.action = Action::AlreadyThere;
        return decision;
    }
    return ask(serverIndex < localIndex ? PreflightQuestion::LaterCommit : PreflightQuestion::EarlierCommit,
               record.commit);
}

PreflightDecision::Answer PreflightDecision::answer(PreflightQuestion question, int button) {
    switch (question) {
    case PreflightQuestion::WrongBranch:
    case PreflightQuestion::UnknownCommit:
        return button == 0 ? Answer::ForceDeploy : Answer::Cancel;
    case PreflightQuestion::LaterCommit:
    case PreflightQuestion::EarlierCommit:
        if (button == 1)
            return Answer::UseServerCommit;
        if (button == 2)
            return Answer::ForceDeploy;
        return Answer::Cancel;
    }
    return Answer::Cancel;
}

} // namespace tw
