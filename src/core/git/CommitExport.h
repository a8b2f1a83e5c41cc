#pragma once

#include <QString>
#include <QStringList>
#include <QTemporaryDir>

#include <memory>
#include <optional>

namespace tw {

// Files of a repository as they are in one commit, written into a private
// temporary folder (0700) for a deployment to upload: as a checkout of that
// commit writes them (content filters such as a large-file store's smudge
// filter and end-of-line attributes apply; the person's core.autocrlf does
// not), whatever the working folder holds: uncommitted edits never reach the
// server under a commit's name. The folder and its files go when the object
// does.
//
// A symbolic link in the commit is exported as the file it points to within
// the same commit; a link that leads out of the commit, or to no file of it,
// is exported as its own text (what git stores for it), so that no file from
// outside the repository is ever sent. Submodules have no content here.
class CommitExport {
public:
    CommitExport();
    ~CommitExport();
    CommitExport(const CommitExport&) = delete;
    CommitExport& operator=(const CommitExport&) = delete;

    // Writes the files at the given repository paths as they are in the
    // commit. False with *error set when git cannot be asked, a path is no
    // file of the commit, or a file cannot be written.
    bool write(const QString& repository, const QString& commit, const QStringList& paths, QString* error);

    QString folder() const;
    // Where the exported file of a repository path is.
    QString pathOf(const QString& repositoryPath) const;

private:
    std::unique_ptr<QTemporaryDir> m_folder;
};

} // namespace tw
