#include "ProcessSampler.h"

#include "Traces.h"

#include <QElapsedTimer>

namespace tw::test {

// Only the command and its children: other programs on this machine (other
// tests) may use the same server's password.
bool ProcessSampler::sample(qint64 ancestor, QStringList* leaks) const {
    bool curl = false;
    for (const ProcessEntry& process : QList<ProcessEntry>{{ancestor, {}}} + descendants(ancestor)) {
        QByteArray commandLine = readFile(QStringLiteral("/proc/%1/cmdline").arg(process.pid));
        for (const QByteArray& secret : m_secrets) {
            if (commandLine.contains(secret))
                leaks->append(QString::fromUtf8(commandLine.replace('\0', ' ')));
        }
        if (process.name == "curl")
            curl = true;
    }
    return curl;
}

QString ProcessSampler::Run::complaints(int exitCode) const {
    QString text;
    if (result.exitCode != exitCode)
        text += QString::fromUtf8(result.describe()) + QLatin1Char('\n');
    if (!leaks.isEmpty())
        text += QStringLiteral("secrets on command lines: ") + leaks.join(QLatin1Char('\n'));
    if (curlSamples == 0)
        text += QStringLiteral("no sample saw a curl");
    return text;
}

ProcessSampler::Run ProcessSampler::run(const CliRunner& cli, const QStringList& arguments,
                                        const Each& each) const {
    Run run;
    QProcess command;
    command.setProcessEnvironment(cli.environment());
    command.start(cli.program(), arguments);
    command.closeWriteChannel();
    if (!command.waitForStarted()) {
        run.result.crashed = true;
        run.result.err = command.errorString();
        return run;
    }
    QElapsedTimer elapsed;
    elapsed.start();
    while (command.state() != QProcess::NotRunning && elapsed.elapsed() < 120000) {
        if (sample(command.processId(), &run.leaks))
            ++run.curlSamples;
        if (each)
            each(command);
        command.waitForFinished(2);
    }
    if (command.state() != QProcess::NotRunning) {
        command.kill();
        command.waitForFinished();
        run.result.err = QStringLiteral("(did not end)\n");
    }
    run.result.crashed = command.exitStatus() != QProcess::NormalExit;
    run.result.exitCode = run.result.crashed ? -1 : command.exitCode();
    run.result.out = QString::fromUtf8(command.readAllStandardOutput());
    run.result.err += QString::fromUtf8(command.readAllStandardError());
    return run;
}

} // namespace tw::test
