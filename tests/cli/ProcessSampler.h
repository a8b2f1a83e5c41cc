#pragma once

#include "CliRunner.h"

#include <QByteArrayList>
#include <QProcess>
#include <QStringList>

#include <functional>

namespace tw::test {

// Runs tarnwell-cli in the background and looks at its processes while it
// runs, as another user with 'ps' could: which command lines of it and its
// children hold one of the secrets, and how many times a curl child was
// seen at all (a sampling that saw no curl proves nothing).
class ProcessSampler {
public:
    explicit ProcessSampler(QByteArrayList secrets)
        : m_secrets(std::move(secrets)) {}

    struct Run {
        CliResult result;
        QStringList leaks;   // command lines that held a secret
        int curlSamples = 0; // samples in which a curl child of the command ran

        // What is wrong with the run, for QCOMPARE against an empty text: an
        // exit code other than the one given, a secret on a command line, or
        // no curl seen at all.
        QString complaints(int exitCode) const;
    };

    // Called after every sample with the running command (to send it a
    // signal, look at its files, ...).
    using Each = std::function<void(QProcess& command)>;

    Run run(const CliRunner& cli, const QStringList& arguments, const Each& each = nullptr) const;

private:
    QByteArrayList m_secrets;
};

} // namespace tw::test
