#include "GitRepository.h"

#include <QDir>
#include <QFile>
#include <QFileInfo>
#include <QProcess>

namespace tw::test {

GitRepository::GitRepository()
    : m_path(m_dir.path()) {
    git({QStringLiteral("init"), QStringLiteral("-q"), QStringLiteral("-b"), QStringLiteral("main")});
}

GitRepository::GitRepository(const QString& folder)
    : m_path(folder) {
    m_dir.setAutoRemove(false);
    QDir().mkpath(folder);
    git({QStringLiteral("init"), QStringLiteral("-q"), QStringLiteral("-b"), QStringLiteral("main")});
}

void GitRepository::write(const QString& relativePath, const QByteArray& content) const {
    const QString full = m_path + QLatin1Char('/') + relativePath;
    QDir().mkpath(QFileInfo(full).absolutePath());
    QFile file(full);
    if (file.open(QIODevice::WriteOnly | QIODevice::Truncate))
        file.write(content);
}

void GitRepository::remove(const QString& relativePath) const {
    QFile::remove(m_path + QLatin1Char('/') + relativePath);
}

QString GitRepository::git(const QStringList& arguments) const {
    QProcess process;
    process.setWorkingDirectory(m_path);
    QProcessEnvironment environment = QProcessEnvironment::systemEnvironment();
    environment.insert(QStringLiteral("GIT_AUTHOR_NAME"), QStringLiteral("Test Author"));
    environment.insert(QStringLiteral("GIT_AUTHOR_EMAIL"), QStringLiteral("author@example.invalid"));
    environment.insert(QStringLiteral("GIT_COMMITTER_NAME"), QStringLiteral("Test Author"));
    environment.insert(QStringLiteral("GIT_COMMITTER_EMAIL"), QStringLiteral("author@example.invalid"));
    environment.insert(QStringLiteral("GIT_CONFIG_NOSYSTEM"), QStringLiteral("1"));
    process.setProcessEnvironment(environment);
    // The tests' own git reads plainly whatever the test home's configuration
    // says (it is made hostile to the program on purpose); ids are the
    // 7-digit ones the program records.
    process.start(QStringLiteral("/usr/bin/git"),
                  QStringList{QStringLiteral("-c"), QStringLiteral("core.quotepath=true"),
                              QStringLiteral("-c"), QStringLiteral("gc.auto=0"), QStringLiteral("-c"),
                              QStringLiteral("core.abbrev=7"), QStringLiteral("-c"),
                              QStringLiteral("color.ui=never"), QStringLiteral("-c"),
                              QStringLiteral("column.ui=never")} +
                      arguments);
    process.waitForFinished(120000);
    if (process.exitCode() != 0)
        qWarning("git %s: %s", qPrintable(arguments.join(QLatin1Char(' '))),
                 process.readAllStandardError().constData());
    return QString::fromUtf8(process.readAllStandardOutput()).trimmed();
}

QString GitRepository::commitAll(const QString& message) const {
    git({QStringLiteral("add"), QStringLiteral("-A")});
    git({QStringLiteral("commit"), QStringLiteral("-q"), QStringLiteral("-m"), message});
    return head();
}

QString GitRepository::commit(const QList<std::pair<QString, QByteArray>>& files,
                              const QString& message) const {
    for (const auto& [path, content] : files)
        write(path, content);
    return commitAll(message);
}

QString GitRepository::head() const {
    return git({QStringLiteral("rev-parse"), QStringLiteral("--short"), QStringLiteral("HEAD")});
}

} // namespace tw::test
