#include "ProcessSampler.h"

#include "Inspection.h"

#include <QDir>
#include <QElapsedTimer>
#include <QHash>

namespace tw::test {

namespace {

struct Entry {
    qint64 parent = 0;
    QByteArray name;
    QByteArray commandLine;
};

// Every process of the machine now: parent, command name, command line.
QHash<qint64, Entry> processes() {
    QHash<qint64, Entry> all;
    const QStringList entries = QDir(QStringLiteral("/proc")).entryList(QDir::Dirs | QDir::NoDotAndDotDot);
    for (const QString& entry : entries) {
        bool isPid = false;
        const qint64 pid = entry.toLongLong(&isPid);
        if (!isPid)
            continue;
        const QString folder = QStringLiteral("/proc/") + entry;
        const QByteArray stat = readFile(folder + QStringLiteral("/stat"));
        const qsizetype open = stat.indexOf('(');
        const qsizetype close = stat.lastIndexOf(')');
        if (open < 0 || close < open)
            continue;
        const QList<QByteArray> fields = stat.mid(close + 2).split(' ');
        if (fields.size() < 2)
            continue;
        all.insert(pid, {fields.at(1).toLongLong(), stat.mid(open + 1, close - open - 1),
                         readFile(folder + QStringLiteral("/cmdline"))});
    }
    return all;
}

bool descendsFrom(const QHash<qint64, Entry>& all, qint64 pid, qint64 ancestor) {
    for (qint64 parent = all.value(pid).parent; parent > 1 && all.contains(parent);
         parent = all.value(parent).parent) {
        if (parent == ancestor)
            return true;
    }
    return false;
}

} // namespace

bool ProcessSampler::sample(qint64 ancestor, QStringList* leaks) const {
    const QHash<qint64, Entry> all = processes();
    bool curl = false;
    for (auto it = all.cbegin(); it != all.cend(); ++it) {
        // Only the command and its children: other programs on this machine
        // (other tests) may use the same server's password.
        const bool ours = it.key() == ancestor || descendsFrom(all, it.key(), ancestor);
        if (!ours)
            continue;
        for (const QByteArray& secret : m_secrets) {
            if (it->commandLine.contains(secret)) {
                QByteArray shown = it->commandLine;
                leaks->append(QString::fromUtf8(shown.replace('\0', ' ')));
            }
        }
        if (it->name == "curl" && it.key() != ancestor)
            curl = true;
    }
    return curl;
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

QList<qint64> descendantsNamed(qint64 ancestor, const QByteArray& name) {
    const QHash<qint64, Entry> all = processes();
    QList<qint64> found;
    for (auto it = all.cbegin(); it != all.cend(); ++it) {
        if (it->name == name && descendsFrom(all, it.key(), ancestor))
            found.append(it.key());
    }
    return found;
}

} // namespace tw::test
