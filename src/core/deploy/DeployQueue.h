#pragma once

#include "model/File.h"
#include "transfer/Transporter.h"

#include <QHash>
#include <QString>

#include <memory>
#include <optional>

namespace tw {

class CommitExport;

// The transfers of one deployment run, built from the run's rows: one
// upload per checked row, one deletion per checked "D" row, each path once.
// Listed files are uploaded as they are in the deployed commit, from a
// private export of it: an uncommitted edit never reaches the server under
// the commit's name. Always-uploaded files come from the working folder
// (they are often built, not committed); an always-uploaded folder is sent
// as the files found in it (AlwaysUploadedFolders adds them as rows).
//
// The export lives as long as the queue: the run keeps it until its
// transfers have ended, and it goes (folder and files) with the run.
class DeployQueue {
public:
    DeployQueue();
    ~DeployQueue();
    DeployQueue(const DeployQueue&) = delete;
    DeployQueue& operator=(const DeployQueue&) = delete;

    // Queues the rows' transfers on the transporter (cleared first). The
    // commit is the full id whose content is sent, named in messages by
    // commitName. Answers why nothing may be sent (the folder is gone, the
    // commit cannot be read or was not resolved), or nothing.
    std::optional<QString> build(Transporter& transporter, const FileList& rows, const QString& folder,
                                 const QString& commitId, const QString& commitName);

    // The row of a transfer, or -1.
    qsizetype rowOf(const TransporterFile* transfer) const { return m_rowOfTransfer.value(transfer, -1); }
    qsizetype uploads() const { return m_uploads; }
    qsizetype deletions() const { return m_deletions; }
    // Listed files left unchecked (always-uploaded entries are not counted).
    qsizetype waiting() const { return m_waiting; }
    // What is really transferred: every upload and deletion queued.
    qsizetype transfers() const { return m_uploads + m_deletions; }

private:
    std::optional<QString> exportCommittedContent(const FileList& rows, const QString& folder,
                                                  const QString& commitId, const QString& commitName);

    std::unique_ptr<CommitExport> m_export;
    QHash<const TransporterFile*, qsizetype> m_rowOfTransfer;
    qsizetype m_uploads = 0;
    qsizetype m_deletions = 0;
    qsizetype m_waiting = 0;
};

} // namespace tw
