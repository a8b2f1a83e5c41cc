#pragma once

#include "FtpServer.h"
#include "SshServer.h"
#include "Traces.h"
#include "transfer/Transporter.h"
#include "transfer/TransporterDelegate.h"
#include "transfer/TransporterFTPConnection.h"
#include "transfer/TransporterFTPTLSConnection.h"
#include "transfer/TransporterSFTPConnection.h"

#include <QSignalSpy>
#include <QTemporaryDir>
#include <QTest>

#include <memory>

namespace tw::test {

// Writes down every message a transporter sends, in order.
class RecordingDelegate : public TransporterDelegate {
public:
    struct Message {
        QString kind; // "percent", "complete", "all", "allWithErrors", "fail"
        TransporterFilePtr file;
        QString text; // the error or the tag
        double percent = -1;
    };
    QList<Message> messages;

    void didCompletePercent(const TransporterFilePtr& file, double percent) override {
        messages.append({QStringLiteral("percent"), file, QString(), percent});
    }
    void didComplete(const TransporterFilePtr& file) override { add(QStringLiteral("complete"), file); }
    void didCompleteAllRequests(const QString& tag) override { add(QStringLiteral("all"), nullptr, tag); }
    void didCompleteAllWithErrors(const QString& tag) override {
        add(QStringLiteral("allWithErrors"), nullptr, tag);
    }
    void didFail(const TransporterFilePtr& file, const QString& error) override {
        add(QStringLiteral("fail"), file, error);
    }

    QStringList kinds() const {
        QStringList list;
        for (const Message& message : messages)
            list.append(message.kind);
        return list;
    }
    int count(const QString& kind) const { return int(kinds().count(kind)); }
    QList<Message> of(const QString& kind) const {
        QList<Message> list;
        std::copy_if(messages.cbegin(), messages.cend(), std::back_inserter(list),
                     [&](const Message& message) { return message.kind == kind; });
        return list;
    }
    // Whether the run has ended with one of the two completion messages.
    bool ended() const { return count(QStringLiteral("all")) + count(QStringLiteral("allWithErrors")) > 0; }

private:
    void add(const QString& kind, const TransporterFilePtr& file, const QString& text = QString()) {
        messages.append({kind, file, text, -1});
    }
};

enum class Transport { Passive, Active, Tls, Sftp };

inline SitePtr siteFor(const QString& host, quint16 port, const QString& user, const QString& remotePath) {
    auto site = std::make_shared<Site>();
    site->host = host;
    site->port = QString::number(port);
    site->username = user;
    site->remotePath = remotePath;
    return site;
}

// A transporter to remotePath on the loopback server of a transport: below
// the FTP user's home, or below the SFTP session's folder. An empty
// password (or pass phrase) is the right one.
inline std::shared_ptr<Transporter> serverTransporter(Transport transport, const FtpServer& ftp,
                                                      const SshServer& ssh, const QString& remotePath,
                                                      const QString& password = QString()) {
    if (transport == Transport::Sftp) {
        auto site =
            siteFor(SshServer::host(), ssh.port(), SshServer::userName(), QStringLiteral("~/") + remotePath);
        site->sshKeyPath = ssh.encryptedKeyPath();
        return std::make_shared<Transporter>(std::make_shared<TransporterSFTPConnection>(
            site, QString(), password.isEmpty() ? SshServer::passphrase() : password));
    }
    auto site = siteFor(FtpServer::host(), ftp.port(), FtpServer::userName(), remotePath);
    const QString ftpPassword = password.isEmpty() ? FtpServer::password() : password;
    if (transport == Transport::Tls)
        return std::make_shared<Transporter>(
            std::make_shared<TransporterFTPTLSConnection>(site, ftpPassword));
    auto connection = std::make_shared<TransporterFTPConnection>(site, ftpPassword);
    connection->setPassive(transport == Transport::Passive);
    return std::make_shared<Transporter>(connection);
}

// A transporter with a recording delegate and a spy on becameIdle.
struct Engine {
    explicit Engine(std::shared_ptr<Transporter> made)
        : transporter(std::move(made))
        , idle(transporter.get(), &Transporter::becameIdle) {
        transporter->setDelegate(&delegate);
    }
    explicit Engine(const std::shared_ptr<TransporterConnectionProtocol>& connection)
        : Engine(std::make_shared<Transporter>(connection)) {}
    Transporter* operator->() const { return transporter.get(); }

    // A batch run of what is queued, to its end; false when it takes longer.
    bool runBatch(int timeout = 60000) {
        const qsizetype before = idle.count();
        transporter->runMulti();
        return QTest::qWaitFor([&] { return idle.count() > before; }, timeout);
    }
    // Whether the run ended well; else the failure's text, for QVERIFY2.
    bool succeeded() const {
        return delegate.kinds().value(delegate.messages.size() - 1) == QStringLiteral("all");
    }
    QByteArray failure() const { return delegate.of(QStringLiteral("fail")).value(0).text.toUtf8(); }

    std::shared_ptr<Transporter> transporter;
    RecordingDelegate delegate;
    QSignalSpy idle;
};

// Writes a file to upload (its folders made as needed) in a temporary
// folder of the test's own; answers its path.
inline QString localFile(const QString& relative, const QByteArray& content) {
    static const QTemporaryDir folder;
    const QString path = folder.filePath(relative);
    return writeFile(path, content) ? path : QString();
}

// The rows of a test run over the loopback servers' transports.
inline void addTransports(bool active) {
    QTest::addColumn<Transport>("transport");
    QTest::newRow("FTP passive") << Transport::Passive;
    if (active)
        QTest::newRow("FTP active") << Transport::Active;
    QTest::newRow("FTP with TLS/SSL") << Transport::Tls;
    QTest::newRow("SFTP") << Transport::Sftp;
}

} // namespace tw::test
