#pragma once

#include <QByteArray>
#include <QJsonDocument>
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
// input given or empty, its own preferences and logs in a temporary folder
// (the person's home stays out of it; the bus and keyring are the test's).
class CliRunner {
public:
    CliRunner();

    static QString program();
    QProcessEnvironment& environment() { return m_environment; }
    // The preferences file the command line uses.
    QString preferencesFile() const;
    QString folder() const { return m_folder.path(); }

    CliResult run(const QStringList& arguments, const QByteArray& input = QByteArray(),
                  int timeoutMilliseconds = 120000) const;
    // Starts the command line and leaves it running (watch, interrupts).
    std::unique_ptr<QProcess> start(const QStringList& arguments) const;
    // Standard output of a --json command.
    QJsonDocument json(const QStringList& arguments, int* exitCode = nullptr) const;

    // Everything a stopped process printed.
    static CliResult collect(QProcess& process);

private:
    QTemporaryDir m_folder;
    QProcessEnvironment m_environment;
};

} // namespace tw::test
