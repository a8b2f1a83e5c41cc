#pragma once

#include "model/Site.h"

#include <QCommandLineOption>
#include <QCommandLineParser>
#include <QList>
#include <QTemporaryDir>

#include <memory>
#include <optional>

namespace tw::cli {

// A command's site taken from a site file of the repository (--site-file)
// and its secrets from environment variables (--password-env, --key-env,
// --passphrase-env), for CI jobs with no desktop: the site lives in a
// private, temporary preferences file for this process alone, the user's
// stored sites and the secret store are never read nor written, and a key
// given as text goes to an owner-only file that is removed when the command
// ends (the object is destroyed on every return path, Ctrl-C included).
class SiteFileSession {
public:
    SiteFileSession() = default;
    ~SiteFileSession();
    SiteFileSession(const SiteFileSession&) = delete;
    SiteFileSession& operator=(const SiteFileSession&) = delete;

    static QList<QCommandLineOption> options();

    // What a command needs of the server before it lists the files.
    enum class ServerRecordUse { Ignore, LastDeployedCommit };

    // Reads the options. Nothing when none of them was given or all went
    // well; else the exit code, with the reason printed on standard error.
    // With LastDeployedCommit, the server's record is read first: a commit
    // of the site's branch that is in this repository's history becomes the
    // site's last deployed commit, so only what changed since is listed; a
    // record that cannot be read (no such server, a refused login) ends the
    // command with the transfer error's code, Ctrl-C with the interrupt's.
    std::optional<int> prepare(const QCommandLineParser& parser,
                               ServerRecordUse use = ServerRecordUse::Ignore);
    // --site-file was given: the one stored site is the file's, at index 0.
    bool isActive() const { return m_folder != nullptr; }

private:
    // Nothing, or the exit code with its reason printed.
    static std::optional<int> adoptServerRecord(Site& site);

    std::unique_ptr<QTemporaryDir> m_folder;
    QString m_keyFile;
};

} // namespace tw::cli
