#pragma once

#include "git/CommitTree.h"

#include <QByteArray>
#include <QHash>
#include <QSet>
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
//
// Where: a memory-backed folder ($XDG_RUNTIME_DIR, else /dev/shm) when the
// files are small beside its free space and no content filter can make them
// grow, else the temporary folder. Creating tens of thousands of files on a
// disk's file system costs seconds (more so right after as many were
// removed); in memory a tenth of that.
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

    // The export's folder: empty until write() has made it.
    QString folder() const;
    // Where the exported file of a repository path is.
    QString pathOf(const QString& repositoryPath) const;

    // The folders an export may go to, the memory-backed ones first (those
    // that exist), and the name every export folder of this process starts
    // with in them.
    static QStringList places();
    static QString folderPrefix();

private:
    bool writeLinks(const QHash<QString, QString>& linkTargets, const QHash<QString, QByteArray>& linkTexts,
                    const QSet<QString>& exported, const QString& targetsFolder, QString* problem) const;

    std::unique_ptr<QTemporaryDir> m_folder;
};

} // namespace tw
