#pragma once

#include "app/Error.h"
#include "app/UserInteraction.h"

#include <QString>
#include <QStringList>

#include <optional>

namespace tw {

// What the server's deployment record said when it was read before a run.
struct ServerRecord {
    enum class Kind {
        Found,   // a record with at least a commit
        Missing, // no record yet: a first deployment here
        Failed,  // the read failed for another reason
    };
    Kind kind = Kind::Missing;
    QString commit;                // Found
    std::optional<QString> branch; // Found; a record without a branch names none
    Error error;                   // Failed

    static ServerRecord found(const QString& commit, const std::optional<QString>& branch);
    static ServerRecord missing();
    static ServerRecord failed(const Error& error);
    // The reading of a failed record read: curl's "(78)" (no such file) and
    // "(9)" (the remote folder does not exist yet) mean there is no record,
    // anything else is a failure.
    static ServerRecord fromReadError(const Error& error);
};

// The questions asked when the record disagrees with the local history.
enum class PreflightQuestion {
    WrongBranch,   // the server was last deployed from another branch
    UnknownCommit, // the server's commit is not in the local history
    LaterCommit,   // the server has a later commit than the site remembers
    EarlierCommit, // the server has an earlier commit than the site remembers
};

// What to do with a run once the server's record has been read, decided from
// the record and the local history alone (no server, no person), and what an
// answer to each question means. The dialogs' texts live in one table here.
struct PreflightDecision {
    enum class Action {
        Deploy,      // go on with the run
        Fail,        // "An error occured!" with the read's error
        Ask,         // ask the question first
        AlreadyThere // the server holds the site's commit under another name: nothing to ask, no run
    };
    enum class Answer {
        ForceDeploy,     // deploy the listed files without further checks
        UseServerCommit, // take the server's commit as the last deployed one, then deploy
        Cancel,
    };

    Action action = Action::Deploy;
    PreflightQuestion question = PreflightQuestion::WrongBranch;
    AlertRequest alert; // Ask
    Error error;        // Fail
    QString serverCommit;

    // localCommit: the site's last deployed commit (none when never
    // deployed); commits: the repository's commits, newest first.
    static PreflightDecision decide(const ServerRecord& record, const std::optional<QString>& localCommit,
                                    const QString& deployBranch, const QStringList& commits);
    // The meaning of the button chosen (0 is the first) for a question.
    static Answer answer(PreflightQuestion question, int button);
    // The question's alert: its message, informative text (with the given
    // branch or commit and the site's branch filled in) and buttons.
    static AlertRequest alertFor(PreflightQuestion question, const QString& server,
                                 const QString& deployBranch);
};

} // namespace tw
