#include "ProcessSampler.h"

#include "Traces.h"

#include <QElapsedTimer>

namespace tw::test {

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
    const std::unique_ptr<QProcess> command = cli.start(arguments);
    QElapsedTimer elapsed;
    elapsed.start();
    while (command->state() == QProcess::Running && elapsed.elapsed() < 120000) {
        // Only the command and its children: other programs on this machine
        // (other tests) may use the same server's password.
        const qint64 pid = command->processId();
        bool curl = false;
        for (const ProcessEntry& process : QList<ProcessEntry>{{pid, {}}} + descendants(pid)) {
            QByteArray commandLine = readFile(QStringLiteral("/proc/%1/cmdline").arg(process.pid));
            for (const QByteArray& secret : m_secrets) {
                if (commandLine.contains(secret))
                    run.leaks.append(QString::fromUtf8(commandLine.replace('\0', ' ')));
            }
            curl = curl || process.name == "curl";
        }
        run.curlSamples += curl ? 1 : 0;
        if (each)
            each(*command);
        command->waitForFinished(2);
    }
    if (command->state() != QProcess::NotRunning) {
        command->kill(); // reported as crashed
        command->waitForFinished();
    }
    run.result = CliRunner::collect(*command);
    return run;
}

} // namespace tw::test
