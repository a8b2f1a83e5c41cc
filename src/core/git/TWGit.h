#pragma once

#include "model/Commit.h"

#include <QString>
#include <QStringList>

#include <optional>

namespace tw {

// The branches of a repository in git's order and the one checked out.
struct BranchSummary {
    QStringList branches;
    QString current;
};

// Runs git and reads its answers. Every command is one text run by
// "/bin/sh -c" in the repository folder; its standard output is read to the
// end and split into lines. A failing command is recognised only by its empty
// output: the operations then answer nothing, false or an empty list.
class TWGit {
public:
    // The own git: the tools folder followed by "/git".
    static QString gitPath();
    // "<gitPath> <arguments>", nothing quoted.
    static QString build(const QString& arguments);

    static bool isGitDirectory(const QString& folder);
    std::optional<BranchSummary> getBranchesAtPath(const QString& folder) const;
    std::optional<QString> getGitVersion() const;
    bool isRepoDirtyAtPath(const QString& folder) const;
    // Every committed file of HEAD minus the files modified in the work tree.
    std::optional<QStringList> getAllFileAtPath(const QString& folder) const;
    // Newest first.
    std::optional<CommitList> getCommitsAtPath(const QString& folder) const;
    // Raw "letter<TAB>path" lines of the staged changes since a commit.
    std::optional<QStringList> loadFilesAtPath(const QString& folder, const QString& fromCommit,
                                               const QString& toCommit) const;
    std::optional<QStringList> loadFilesAtPath(const QString& folder, const QString& fromCommit) const;

    // Runs the command text through the shell in the folder; the output's
    // lines (the empty text after the final newline kept), or nothing when
    // the command printed nothing or could not run.
    std::optional<QStringList> runCommand(const QString& command, const QString& folder) const;

    // Commit ids come from the site list, import files and server records and
    // go into a shell command unquoted: only 4 to 40 hexadecimal digits pass.
    static bool isAcceptableCommitId(const QString& commitId);
};

} // namespace tw
