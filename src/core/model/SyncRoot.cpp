#include "SyncRoot.h"

#include "model/Site.h"

namespace tw {

SyncRoot::SyncRoot(const std::optional<QString>& text) {
    QString folder = text.value_or(QString()).trimmed();
    // Leading "/" and "./", and doubled slashes, name nothing of their own.
    while (folder.startsWith(QLatin1Char('/')) || folder.startsWith(QStringLiteral("./"))) {
        folder.remove(0, folder.startsWith(QLatin1Char('/')) ? 1 : 2);
    }
    while (folder.contains(QStringLiteral("//")))
        folder.replace(QStringLiteral("//"), QStringLiteral("/"));
    if (folder == u".")
        folder.clear();
    if (!folder.isEmpty() && !folder.endsWith(QLatin1Char('/')))
        folder += QLatin1Char('/');
    m_folder = folder;
}

SyncRoot SyncRoot::of(const Site& site) {
    return SyncRoot(site.syncRootPath);
}

bool SyncRoot::contains(const QString& repositoryPath) const {
    return m_folder.isEmpty() || repositoryPath.startsWith(m_folder);
}

QString SyncRoot::remotePath(const QString& repositoryPath) const {
    if (m_folder.isEmpty() || !repositoryPath.startsWith(m_folder))
        return repositoryPath;
    return repositoryPath.mid(m_folder.size());
}

QString SyncRoot::repositoryPath(const QString& remotePath) const {
    return m_folder + remotePath;
}

} // namespace tw
