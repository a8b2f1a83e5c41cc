#pragma once

#include <QByteArray>
#include <QJsonDocument>
#include <QProcessEnvironment>
#include <QString>
#include <QStringList>
#include <QTemporaryDir>

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

    QString folder() const { return m_folder.path(); }
    // For starting the program in the background with the same settings.
    QString program() const;
    QProcessEnvironment environment() const { return m_environment; }
    void setEnvironment(const QProcessEnvironment& environment) { m_environment = environment; }

    CliResult run(const QStringList& arguments, const QByteArray& input = QByteArray()) const;
    // Standard output of a --json command.
    QJsonDocument json(const QStringList& arguments) const;

private:
    QTemporaryDir m_folder;
    QProcessEnvironment m_environment;
};

} // namespace tw::test
