#include "AlwaysUploadedFolders.h"

#include <QDir>
#include <QDirIterator>

namespace tw {

FileList AlwaysUploadedFolders::filesIn(const FileList& rows, const QString& localBase) {
    const QString prefix = localBase + QLatin1Char('/');
    FileList found;
    for (const FilePtr& row : rows) {
        if (!isAlwaysUploaded(*row) || !row->willUpload || !row->isDirectory(localBase))
            continue;
        QDirIterator walk(prefix + row->pathWithFilename.value_or(QString()),
                          QDir::Files | QDir::Hidden | QDir::System | QDir::NoDotAndDotDot,
                          QDirIterator::Subdirectories);
        while (walk.hasNext()) {
            walk.next();
            QString relative = walk.filePath();
            if (relative.startsWith(prefix))
                relative.remove(0, prefix.size());
            const FilePtr file = File::initWithPath(relative);
            file->gitStatus = letter();
            found.append(file);
        }
    }
    return found;
}

FileList AlwaysUploadedFolders::rowsOf(const Site& site, const QSet<QString>& unchecked) {
    FileList rows;
    if (!site.mandatoryFiles)
        return rows;
    for (const FilePtr& entry : std::as_const(*site.mandatoryFiles)) {
        if (!entry || !entry->pathWithFilename || entry->pathWithFilename->isEmpty())
            continue;
        const FilePtr row = File::initWithPath(*entry->pathWithFilename);
        row->gitStatus = letter();
        row->status = QString();
        row->willUpload = !unchecked.contains(*entry->pathWithFilename);
        rows.append(row);
    }
    return rows;
}

} // namespace tw
