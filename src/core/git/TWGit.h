#pragma once

#include "model/Commit.h"

#include <QByteArray>
#include <QProcessEnvironment>
#include <QString>
#include <QStringList>

#include <optional>

namespace tw {

// The branches of a repository in git's order and the one checked out.
struct BranchSummary {
    QStringList branches;
    QString current;
};

// Runs git and reads its answers. Every call runs the tools folder's git as
// a program with an argument list, in the repository folder, never a command
// text through a shell: a path with blanks or a commit id cannot change what
// runs. Every call also carries the options that make git's output ours
// whatever the person's own configuration says (colours and columns off,
// paths unquoted, no end-of-line conversion, ...), and asks with plumbing
// commands and NUL-separated output where a name may hold a tab, a line
// break or a quote: paths come back exactly as they are.
//
// A failing command answers nothing, false or an empty list; git's own
// error text goes to the debug log and the system log.
class TWGit {
public:
    // The own git: the tools folder followed by "/git".
    static QString gitPath();
    // "<gitPath> <arguments>": the command as the logs show it.
    static QString build(const QString& arguments);
    // The options every call starts with.
    static QStringList fixedOptions();
    // The environment git runs with: the program's, without the variables
    // that would point git at another repository, and without prompts.
    static QProcessEnvironment environment();

    // What one git call gave.
    struct Output {
        bool ran = false; // git started and ended by itself
        int exitCode = -1;
        QByteArray standardOutput;
        QByteArray standardError;
        bool succeeded() const { return ran && exitCode == 0; }
    };
    // Runs git with the fixed options and the arguments in the folder, the
    // input on its standard input, in environment() with the given variables
    // added. Writes the command to the system log.
    Output run(const QStringList& arguments, const QString& folder, const QByteArray& input = {},
               const QProcessEnvironment& extraVariables = {}) const;

    static bool isGitDirectory(const QString& folder);
    // Every local branch and the one checked out; nothing without a checked
    // out branch (no repository, or a detached HEAD).
    std::optional<BranchSummary> getBranchesAtPath(const QString& folder) const;
    // The branch checked out, or nothing (a detached HEAD, no repository).
    std::optional<QString> currentBranch(const QString& folder) const;
    std::optional<QString> getGitVersion() const;
    // Changes not committed: tracked files changed and untracked files, the
    // desktop's ".DS_Store" excused.
    // git is moving a ref of the repository at folder now: HEAD, the index
    // or the branch is locked. git writes HEAD's reflog before it moves the
    // branch, so whoever reads HEAD when the reflog changes waits for this.
    static bool isUpdatingRefs(const QString& folder, const QString& branch);
    bool isRepoDirtyAtPath(const QString& folder) const;
    QStringList uncommittedPaths(const QString& folder) const;
    // Every file of the commit checked out (HEAD), or of the given commit,
    // as committed.
    std::optional<QStringList> getAllFileAtPath(const QString& folder) const;
    std::optional<QStringList> getAllFileAtPath(const QString& folder, const QString& commit) const;
    // Newest first: the history of HEAD, or of the given commit.
    std::optional<CommitList> getCommitsAtPath(const QString& folder) const;
    std::optional<CommitList> getCommitsAtPath(const QString& folder, const QString& tip) const;
    // "letter<TAB>path" entries of the files that differ between two commits
    // (the second defaults to HEAD), paths as they are.
    std::optional<QStringList> loadFilesAtPath(const QString& folder, const QString& fromCommit,
                                               const QString& toCommit) const;
    std::optional<QStringList> loadFilesAtPath(const QString& folder, const QString& fromCommit) const;
    // The full id of HEAD, or nothing.
    std::optional<QString> headCommit(const QString& folder) const;
    // Whether the id names a commit of the repository (a rebase or a forced
    // push can take the last deployed one away).
    bool commitExists(const QString& folder, const QString& commitId) const;
    // Checks out a branch; false when git refused.
    bool checkout(const QString& folder, const QString& branch) const;

    // Commit ids come from the site list, import files and server records:
    // only 4 to 40 hexadecimal digits are handed to git.
    static bool isAcceptableCommitId(const QString& commitId);
    // git's NUL-separated "letter NUL path NUL ..." as "letter<TAB>path".
    static QStringList nameStatusEntries(const QByteArray& output);
    // A NUL-separated list of names.
    static QStringList nulSeparated(const QByteArray& output);
};

} // namespace tw
