#pragma once

#include <QString>

#include <optional>

namespace tw {

class Site;

// The sub-folder of the repository that a site deploys, onto the server's
// remote folder. It is a folder, matched as whole folders at the start of a
// path only: "dist" admits "dist/…", never "distribution/…" nor
// "vendor/x/dist/…"; "dist", "dist/", "/dist" and "./dist" are the same.
// Empty, absent or "/" means the whole repository.
//
// (The text used to be removed wherever it occurred in a path, so that
// "vendor/bootstrap/dist/css/bootstrap.css" landed without its inner "dist",
// and "/" removed every slash.)
class SyncRoot {
public:
    explicit SyncRoot(const std::optional<QString>& text);
    static SyncRoot of(const Site& site);

    bool isWholeRepository() const { return m_folder.isEmpty(); }
    // The folder with one trailing slash ("dist/"), or empty.
    const QString& folder() const { return m_folder; }
    // Whether a repository path lies below the folder.
    bool contains(const QString& repositoryPath) const;
    // A path below the folder, relative to it; others stay as they are.
    QString remotePath(const QString& repositoryPath) const;
    // The repository path of a path relative to the folder.
    QString repositoryPath(const QString& remotePath) const;

private:
    QString m_folder;
};

} // namespace tw
