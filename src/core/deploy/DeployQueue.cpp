#include "DeployQueue.h"

#include "deploy/AlwaysUploadedFolders.h"
#include "git/CommitExport.h"

#include <QFileInfo>
#include <QSet>

namespace tw {

namespace {

bool isListedUpload(const FilePtr& row) {
    return row->willUpload && !AlwaysUploadedFolders::isAlwaysUploaded(*row) && row->gitStatus != u"D";
}

} // namespace

DeployQueue::DeployQueue() = default;
DeployQueue::~DeployQueue() = default;

std::optional<QString> DeployQueue::build(Transporter& transporter, const FileList& rows,
                                          const QString& folder, const QString& commitId,
                                          const QString& commitName) {
    if (auto problem = exportCommittedContent(rows, folder, commitId, commitName))
        return problem;
    transporter.clearQueue();
    m_rowOfTransfer.clear();
    m_uploads = m_deletions = m_waiting = 0;

    QSet<QString> uploads;
    for (qsizetype row = 0; row < rows.size(); ++row) {
        const FilePtr& file = rows.at(row);
        const QString path = file->pathWithFilename.value_or(QString());
        const bool mandatory = AlwaysUploadedFolders::isAlwaysUploaded(*file);
        if (!file->willUpload) {
            if (!mandatory)
                ++m_waiting;
            continue;
        }
        if (!QFileInfo::exists(folder))
            return QStringLiteral("The repository folder %1 is gone; nothing was sent.").arg(folder);
        TransporterFilePtr transfer;
        if (file->gitStatus == u"D") {
            transfer = transporter.deleteFile(path);
            ++m_deletions;
        } else {
            // An always-uploaded folder is sent as the files found in it.
            if (mandatory && file->isDirectory(folder))
                continue;
            if (uploads.contains(path))
                continue; // listed as changed and as always uploaded: sent once
            uploads.insert(path);
            const QString local = mandatory ? folder + QLatin1Char('/') + path : m_export->pathOf(path);
            transfer = transporter.uploadFile(local, path);
            ++m_uploads;
        }
        m_rowOfTransfer.insert(transfer.get(), row);
    }
    return std::nullopt;
}

std::optional<QString> DeployQueue::exportCommittedContent(const FileList& rows, const QString& folder,
                                                           const QString& commitId,
                                                           const QString& commitName) {
    QStringList paths;
    for (const FilePtr& row : rows) {
        if (isListedUpload(row))
            paths.append(row->pathWithFilename.value_or(QString()));
    }
    m_export = std::make_unique<CommitExport>();
    if (paths.isEmpty())
        return std::nullopt; // always-uploaded paths and deletions only
    // Files listed from a commit are sent as that commit holds them, or not
    // at all: without its id they would come from the working folder, edits
    // and all, under the commit's record.
    if (commitId.isEmpty())
        return QStringLiteral("The commit %1 could not be found in the repository, so its files cannot be "
                              "read as committed. Nothing was sent.")
            .arg(commitName.isEmpty() ? QStringLiteral("listed") : commitName);
    QString error;
    if (!m_export->write(folder, commitId, paths, &error))
        return QStringLiteral("The files of commit %1 could not be read: %2. Nothing was sent.")
            .arg(commitName, error);
    return std::nullopt;
}

} // namespace tw
