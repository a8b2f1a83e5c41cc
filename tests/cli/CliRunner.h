#pragma once

#include "FtpServer.h"
#include "GitRepository.h"
#include "SshServer.h"

#include <QByteArray>
#include <QJsonArray>
#include <QObject>
#include <QProcess>
#include <QProcessEnvironment>
#include <QString>
#include <QStringList>
#include <QTemporaryDir>

#include <memory>

namespace tw::test {

struct CliResult {
    int exitCode = -1;
    bool crashed = false;
    QString out;
    QString err;

    // For QVERIFY2: the command's output when a check fails.
    QByteArray describe() const;
};

// Runs the built tarnwell-cli like a script would: no terminal, standard
// input given or empty, its own preferences, logs and temporary files
// (TMPDIR is folder() + "/tmp") in a temporary folder
// (the person's home stays out of it; the bus and keyring are the test's).
class CliRunner {
public:
    CliRunner();

    QString folder() const { return m_folder.path(); }
    // For starting the program in the background with the same settings.
    QString program() const;
    QProcessEnvironment environment() const { return m_environment; }
    void setEnvironment(const QProcessEnvironment& environment) { m_environment = environment; }
    void setVariable(const QString& name, const QString& value) { m_environment.insert(name, value); }
    // As in a CI job: no session bus to reach, so no secret store.
    void withoutDesktop();

    CliResult run(const QStringList& arguments, const QByteArray& input = QByteArray()) const;
    // Runs another program to its end (two minutes at most) in the folder,
    // with the environment given.
    static CliResult runProgram(const QString& program, const QStringList& arguments,
                                const QProcessEnvironment& environment, const QString& folder = QString(),
                                const QByteArray& input = QByteArray());
    // Everything a stopped process printed, and how it ended.
    static CliResult collect(QProcess& process);
    // Starts the command in the background.
    std::unique_ptr<QProcess> start(const QStringList& arguments) const;
    // Waits until the process has printed the text on standard output, which
    // output collects.
    static bool waitForOutput(QProcess& process, QByteArray& output, const QByteArray& text);

    // 'add' of a site on the FTP server, its password given on standard input.
    CliResult addFtpSite(const GitRepository& repo, const FtpServer& server, const QString& name,
                         const QString& remotePath = QStringLiteral("www/"),
                         const QStringList& more = QStringList()) const;
    // 'add' of a site on the SSH server, below its remote folder's "site/",
    // logging in with the key.
    CliResult addSftpSite(const GitRepository& repo, const SshServer& server, const QString& name,
                          const QString& key, const QStringList& more = QStringList(),
                          const QByteArray& input = QByteArray()) const;
    // The stored sites, as 'sites --json' gives them.
    QJsonArray sites() const;

private:
    QTemporaryDir m_folder;
    QProcessEnvironment m_environment;
};

// The test programs' base: an isolated home and one FTP server for all of
// their functions, which need it running.
class CliTest : public QObject {
    Q_OBJECT

protected:
    std::unique_ptr<FtpServer> m_ftp;

    QString www(const QString& folder = QStringLiteral("www")) const {
        return m_ftp->homeFolder() + u'/' + folder;
    }

private slots:
    void initTestCase();
    void init();
};

} // namespace tw::test

// Fails the test function unless the command (a CliResult) ended with the
// exit code.
#define TW_COMPARE_EXIT(code, ...)                                                                           \
    do {                                                                                                     \
        const tw::test::CliResult& twResult = (__VA_ARGS__);                                                 \
        QVERIFY2(twResult.exitCode == (code), twResult.describe().constData());                              \
    } while (false)
