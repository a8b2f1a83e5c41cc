// How much longer than curl itself a deployment's uploads take through the
// transfer engine.
//
// Starts pure-ftpd and sshd on loopback (needs root), writes 2,000 files of
// 1 KiB, and for passive FTP, active FTP and SFTP times, a few rounds each,
// median:
//   - the engine: 2,000 uploads queued and run with runMulti() until it
//     reports the end of all work (four curl runs of 500, one after another,
//     their output read and parsed as a deployment reads it);
//   - the same four curl runs with the same arguments, started one after
//     another directly, their output thrown away.
// Every round uploads into a fresh folder, checked on the server's disk and
// removed afterwards. Every run waits until the machine has at most
// --time-wait TCP connections in TIME_WAIT (8,000), since loopback ports that
// run short slow curl down more than anything measured here. Prints every round, the medians and the median
// of the rounds' ratios per mode, and last "ratio=<worst>".
//
//   transfer_batches [--files N] [--rounds N] [--time-wait N]

#include "FtpServer.h"
#include "SshServer.h"
#include "TestEnvironment.h"
#include "app/AppInfo.h"
#include "app/ToolPaths.h"
#include "transfer/Transporter.h"
#include "transfer/TransporterFTPConnection.h"
#include "transfer/TransporterSFTPConnection.h"

#include <QCoreApplication>
#include <QDir>
#include <QElapsedTimer>
#include <QEventLoop>
#include <QFile>
#include <QFileInfo>
#include <QProcess>
#include <QTemporaryDir>
#include <QTimer>

#include <algorithm>
#include <cstdio>
#include <memory>
#include <vector>

using namespace tw;

namespace {

enum class Mode { Passive, Active, Sftp };

const char* modeName(Mode mode) {
    switch (mode) {
    case Mode::Passive:
        return "passive FTP";
    case Mode::Active:
        return "active FTP";
    case Mode::Sftp:
        return "SFTP";
    }
    return "";
}

class EndOfRun : public TransporterDelegate {
public:
    bool ended = false;
    bool failed = false;
    void didCompleteAllRequests(const QString&) override { ended = true; }
    void didCompleteAllWithErrors(const QString&) override { ended = failed = true; }
    void didFail(const TransporterFilePtr&, const QString& error) override {
        std::fprintf(stderr, "failed: %s\n", qPrintable(error));
        failed = true;
    }
};

// TCP connections of this machine still in TIME_WAIT. Each upload leaves
// one behind for a minute; with tens of thousands of them loopback ports run
// short and curl waits or fails ("we ran out of ports"), whoever's they are.
int timeWaitCount() {
    QFile stat(QStringLiteral("/proc/net/sockstat"));
    if (!stat.open(QIODevice::ReadOnly))
        return 0;
    const QList<QByteArray> fields = stat.readAll().simplified().split(' ');
    const qsizetype at = fields.indexOf("tw");
    return at >= 0 && at + 1 < fields.size() ? fields.at(at + 1).toInt() : 0;
}

// Waits (at most two minutes) until few enough connections are left in
// TIME_WAIT, so that every run starts with the same room.
void waitForPorts(int limit) {
    QElapsedTimer waited;
    waited.start();
    while (timeWaitCount() > limit && waited.elapsed() < 120000) {
        QEventLoop loop;
        QTimer::singleShot(500, &loop, &QEventLoop::quit);
        loop.exec();
    }
}

double median(std::vector<double> values) {
    std::sort(values.begin(), values.end());
    const size_t middle = values.size() / 2;
    return values.size() % 2 ? values[middle] : (values[middle - 1] + values[middle]) / 2;
}

struct Setup {
    test::FtpServer* ftp = nullptr;
    test::SshServer* ssh = nullptr;
    QStringList localFiles;

    std::shared_ptr<TransporterConnectionProtocol> connection(Mode mode, const QString& folder) const {
        auto site = std::make_shared<Site>();
        site->host = QStringLiteral("127.0.0.1");
        if (mode == Mode::Sftp) {
            site->port = QString::number(ssh->port());
            site->username = test::SshServer::userName();
            site->remotePath = QStringLiteral("~/") + folder;
            site->sshKeyPath = ssh->encryptedKeyPath();
            return std::make_shared<TransporterSFTPConnection>(site, QString(),
                                                               test::SshServer::passphrase());
        }
        site->port = QString::number(ftp->port());
        site->username = test::FtpServer::userName();
        site->remotePath = folder;
        auto ftpConnection = std::make_shared<TransporterFTPConnection>(site, test::FtpServer::password());
        ftpConnection->setPassive(mode == Mode::Passive);
        return ftpConnection;
    }

    QString remoteFolder(Mode mode, const QString& folder) const {
        return (mode == Mode::Sftp ? ssh->remoteFolder() : ftp->homeFolder()) + QLatin1Char('/') + folder;
    }

    // Milliseconds, or a negative number when the run failed.
    double engine(Mode mode, const QString& folder) const {
        auto transporter = std::make_shared<Transporter>(connection(mode, folder));
        EndOfRun delegate;
        transporter->setDelegate(&delegate);
        QEventLoop loop;
        QObject::connect(transporter.get(), &Transporter::becameIdle, &loop, &QEventLoop::quit);
        QElapsedTimer timer;
        timer.start();
        for (const QString& path : localFiles)
            transporter->uploadFile(path, QFileInfo(path).fileName());
        transporter->runMulti();
        loop.exec();
        const double elapsed = static_cast<double>(timer.nsecsElapsed()) / 1e6;
        return delegate.ended && !delegate.failed ? elapsed : -1;
    }

    double bare(Mode mode, const QString& folder) const {
        // The engine's own argument lists, built beforehand.
        auto builder = std::make_shared<Transporter>(connection(mode, folder));
        QList<TransporterFilePtr> items;
        for (const QString& path : localFiles)
            items.append(builder->uploadFile(path, QFileInfo(path).fileName()));
        std::vector<QStringList> runs;
        for (qsizetype start = 0; start < items.size(); start += Transporter::uploadsPerBatch) {
            QStringList arguments = builder->connection()->getArgumentForMultiFileUpload(
                items.mid(start, Transporter::uploadsPerBatch));
            arguments << QStringLiteral("--user-agent") << AppInfo::userAgent();
            runs.push_back(arguments);
        }
        const QProcessEnvironment environment = ToolPaths::curlEnvironment();
        QElapsedTimer timer;
        timer.start();
        for (const QStringList& arguments : runs) {
            QProcess curl;
            curl.setProcessEnvironment(environment);
            curl.setStandardInputFile(QProcess::nullDevice());
            curl.setStandardOutputFile(QProcess::nullDevice());
            curl.setStandardErrorFile(QProcess::nullDevice());
            curl.start(ToolPaths::curlPath(), arguments);
            if (!curl.waitForFinished(600000))
                return -1;
        }
        return static_cast<double>(timer.nsecsElapsed()) / 1e6;
    }

    bool landed(Mode mode, const QString& folder) const {
        const QDir remote(remoteFolder(mode, folder));
        return remote.entryList(QDir::Files).size() == localFiles.size();
    }
};

} // namespace

int main(int argc, char** argv) {
    QCoreApplication application(argc, argv);
    int files = 2000;
    int rounds = 3;
    int portLimit = 8000;
    const QStringList arguments = application.arguments();
    for (qsizetype i = 1; i + 1 < arguments.size(); ++i) {
        if (arguments[i] == QStringLiteral("--files"))
            files = arguments[i + 1].toInt();
        else if (arguments[i] == QStringLiteral("--rounds"))
            rounds = arguments[i + 1].toInt();
        else if (arguments[i] == QStringLiteral("--time-wait"))
            portLimit = arguments[i + 1].toInt();
    }
    test::TestEnvironment::isolate();

    test::FtpServer ftp;
    test::SshServer ssh;
    if (ftp.skipReason() || !ftp.isRunning() || ssh.skipReason() || !ssh.isRunning()) {
        std::fprintf(stderr, "the servers do not run here: %s %s\n", qPrintable(ftp.errorString()),
                     qPrintable(ssh.errorString()));
        return 1;
    }
    QTemporaryDir local;
    Setup setup{&ftp, &ssh, {}};
    const QByteArray content(1024, 'x');
    for (int i = 0; i < files; ++i) {
        const QString path = local.filePath(QStringLiteral("file-%1.html").arg(i, 5, 10, QLatin1Char('0')));
        QFile file(path);
        if (!file.open(QIODevice::WriteOnly) || file.write(content) != content.size())
            return 1;
        setup.localFiles.append(path);
    }
    std::printf("%d files of 1 KiB, %d rounds, curl at %s\n", files, rounds,
                qPrintable(ToolPaths::curlPath()));

    double worst = 0;
    int folder = 0;
    for (const Mode mode : {Mode::Passive, Mode::Active, Mode::Sftp}) {
        std::vector<double> engineTimes;
        std::vector<double> bareTimes;
        std::vector<double> ratios;
        for (int round = 0; round < rounds; ++round) {
            // Alternate which goes first, so neither always meets a warm
            // server; the two runs of a round meet the same load.
            double times[2] = {0, 0};
            for (int turn = 0; turn < 2; ++turn) {
                const bool engineTurn = (turn == 0) == (round % 2 == 0);
                const QString name = QStringLiteral("round-%1").arg(++folder);
                waitForPorts(portLimit);
                const double elapsed = engineTurn ? setup.engine(mode, name) : setup.bare(mode, name);
                if (elapsed < 0 || !setup.landed(mode, name)) {
                    std::fprintf(stderr, "%s: the %s run failed\n", modeName(mode),
                                 engineTurn ? "engine" : "curl");
                    return 1;
                }
                times[engineTurn ? 0 : 1] = elapsed;
                QDir(setup.remoteFolder(mode, name)).removeRecursively();
            }
            engineTimes.push_back(times[0]);
            bareTimes.push_back(times[1]);
            ratios.push_back(times[0] / times[1]);
            std::printf("  %-12s round %d: engine %8.1f ms, curl alone %8.1f ms\n", modeName(mode), round + 1,
                        times[0], times[1]);
        }
        // The median of the rounds' ratios: each compares two runs made
        // back to back, so load from elsewhere on the machine weighs less.
        const double ratio = median(ratios);
        worst = std::max(worst, ratio);
        std::printf("%-12s engine %8.1f ms   curl alone %8.1f ms   (medians)   ratio %.3f\n", modeName(mode),
                    median(engineTimes), median(bareTimes), ratio);
        std::fflush(stdout);
    }
    std::printf("ratio=%.3f\n", worst);
    return 0;
}
