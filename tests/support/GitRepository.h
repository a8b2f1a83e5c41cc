#pragma once

#include <QByteArray>
#include <QList>
#include <QString>
#include <QStringList>
#include <QTemporaryDir>

#include <utility>

namespace tw::test {

// A real git repository in a temporary folder, driven by the system's git.
class GitRepository {
public:
    GitRepository();
    explicit GitRepository(const QString& folder);

    QString path() const { return m_path; }
    bool isValid() const { return !m_path.isEmpty(); }

    // Writes (creating folders) relative to the repository.
    void write(const QString& relativePath, const QByteArray& content) const;
    void remove(const QString& relativePath) const;
    // Runs git with the arguments; answers standard output, trimmed.
    QString git(const QStringList& arguments) const;
    // Stages everything and commits; answers the abbreviated id.
    QString commitAll(const QString& message) const;
    // Writes the files, then commits everything.
    QString commit(const QList<std::pair<QString, QByteArray>>& files,
                   const QString& message = QStringLiteral("first")) const;
    QString head() const;

private:
    QTemporaryDir m_dir;
    QString m_path;
};

} // namespace tw::test
