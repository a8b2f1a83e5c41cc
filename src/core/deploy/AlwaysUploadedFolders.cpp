#include "AlwaysUploadedFolders.h"

#include <QDir>
#include <QDirIterator>

namespace tw {

FileList AlwaysUploadedFolders::filesIn(const FileList& rows, const QString& localBase) {
    const QString mandatory = QStringLiteral("-");
    const QString prefix = localBase + QLatin1Char('/');
    FileList found;
    for (const FilePtr& row : rows) {
        if (row->gitStatus != mandatory || !row->willUpload || !row->isDirectory(localBase))
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
            file->gitStatus = mandatory;
            found.append(file);
        }
    }
    return found;
}

} // namespace tw
