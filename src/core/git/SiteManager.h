#pragma once

#include "app/Error.h"
#include "git/SiteManagerDelegate.h"
#include "git/TWGit.h"
#include "model/File.h"
#include "model/Site.h"

#include <QString>
#include <QStringList>

#include <optional>

namespace tw {

// Codes of the errors a SiteManager hands to its delegate (application domain).
enum class SiteManagerError {
    // No bookmark could be made of the folder given for recovery.
    CannotBookmarkFolder = 300,
    // The site has no folder bookmark, or it cannot be read.
    CannotResolveBookmark = 301,
};

// One site's view of its repository: is it a repository, is it dirty, which
// branches and commits it has and, above all, which files a deployment sends.
// Git's change lines become File records here; ignored files and files
// outside the site's sync root are dropped.
//
// Every operation but isGitDirectory first finds the folder through
// resolveBookmark. A site without a folder makes every operation answer
// nothing (false for the yes/no ones) without starting any process. Nothing
// here throws: failures are nothing, false or an empty list.
//
// File lists are built for repositories of 100,000 files: one pass over git's
// lines, ignored entries tested by prefix, texts shared rather than copied.
class SiteManager {
public:
    explicit SiteManager(SitePtr site);

    std::optional<Error> lastError; // not set by the operations below
    SitePtr site;
    TWGit git;
    // Not owned. Whoever sets it (the main window, the site editor) outlives
    // the manager or clears the pointer first.
    SiteManagerDelegate* delegate = nullptr;

    // The repository folder: the site's localPath, or nothing when the site
    // has none (an empty text counts as none: it would mean "wherever the
    // program happens to run").
    std::optional<QString> resolveBookmark() const;
    // Access to the folder needs no ending here; kept so every operation ends
    // the same way.
    void stopAccessingSecurityScopedResource(const QString& folder) const;

    // Looks at localPath directly, without resolveBookmark.
    bool isGitDirectory() const;
    bool isRepoDirty() const;
    // The paths with uncommitted changes (not deployed: commit them first).
    QStringList uncommittedPaths() const;
    std::optional<BranchSummary> getBranches() const;
    // The branch checked out, or nothing (a detached HEAD, no repository).
    std::optional<QString> currentBranch() const;
    std::optional<CommitList> getCommits() const;
    // The history of one commit (a full id), newest first.
    std::optional<CommitList> getCommits(const QString& tip) const;
    // The full id of HEAD, or nothing.
    std::optional<QString> headCommit() const;
    // Whether the id names a commit of the repository.
    bool commitExists(const QString& commitId) const;
    // The raw "letter<TAB>path" entries of what differs between two commits.
    std::optional<QStringList> changedPathsBetween(const QString& fromCommit, const QString& toCommit) const;
    // The files that differ between a commit and HEAD, or the given commit
    // (a later deployment).
    std::optional<FileList> loadFilesFromCommit(const QString& commit) const;
    std::optional<FileList> loadFilesFromCommit(const QString& commit, const QString& toCommit) const;
    // Every file of HEAD, or of the given commit, as committed (a first
    // deployment).
    std::optional<FileList> getAllFiles() const;
    std::optional<FileList> getAllFiles(const QString& commit) const;
    // Checks out the branch with the own git. A name git would refuse, or one
    // holding shell metacharacters or white space, is never run: nothing
    // happens and the system log says why.
    void checkoutBranch(const QString& branchName) const;
    bool localPathExists() const;

    // "letter<TAB>path" entries, or bare paths (change letter "A"), into File
    // records in the entries' order, without ignored files and files outside
    // the sync root. The path is everything after the first tab, exactly as
    // it is (names come from git unquoted).
    FileList createFileObjects(const QStringList& lines) const;
    // True when the path begins with the path of any ignored entry: css
    // ignores css2/site.css too, and an entry with an empty path ignores all.
    bool isIgnoredFile(const QString& path) const;
    // True without a sync root (absent, empty or "/"); otherwise whether the
    // folder part lies in the sync root folder, as whole folders ("dist"
    // admits "dist/css/", never "distribution/"). A file at the top of the
    // repository lies outside any sync root. Each test against a sync root
    // writes a line to the system log.
    bool isInsideSyncRoot(const QString& folderPart) const;

    std::optional<SiteList> loadAllSites() const;
    // The site at "currentSiteIndex", or null when the index is not below the
    // number of sites (a negative index, taken as unsigned, never is).
    SitePtr loadCurrentSite() const;

    // The folder of the site's stored bookmark, checked against a folder the
    // person gave. Tells the delegate when no bookmark can be made of that
    // folder or the stored one cannot be read (siteManagerDidFailWithError),
    // or when the stored one is stale (fileBookmarkIsStale); then nothing.
    std::optional<QString> tryRecoverBookmark(const QString& folder);

    // Whether a branch name may go into the checkout command: git's own rules
    // for branch names, and no shell metacharacter or white space. Without
    // it, *why says what is wrong.
    static bool isAcceptableBranchName(const QString& branchName, QString* why = nullptr);

private:
    void fail(SiteManagerError code, const QString& description);
};

} // namespace tw
