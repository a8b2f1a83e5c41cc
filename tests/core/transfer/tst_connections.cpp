// The curl argument lists of every connection, exactly as curl gets them,
// and the choice of connection from a site's protocol text.

#include "RecordingDelegate.h"
#include "TestEnvironment.h"
#include "keychain/TWPasswords.h"
#include "transfer/Deployer.h"
#include "transfer/RemoteUrl.h"
#include "transfer/Transporter.h"
#include "transfer/TransporterFTPConnection.h"
#include "transfer/TransporterFTPSConnection.h"
#include "transfer/TransporterFTPTLSConnection.h"
#include "transfer/TransporterSFTPConnection.h"

#include <QTest>

#include <memory>

using namespace Qt::StringLiterals;

namespace tw::test {

namespace {

SitePtr makeSite(const QString& host, const std::optional<QString>& port,
                 const std::optional<QString>& remotePath) {
    auto site = std::make_shared<Site>();
    site->version = u"2"_s; // a current record: reading its id changes nothing
    site->host = host;
    site->port = port;
    site->remotePath = remotePath;
    site->username = u"bob"_s;
    return site;
}

// Items are made by a transporter only.
struct Items {
    explicit Items(const std::shared_ptr<TransporterConnectionProtocol>& connection)
        : transporter(connection) {}
    TransporterFilePtr upload(const QString& local, const QString& remote) {
        return transporter.uploadFile(local, remote);
    }
    TransporterFilePtr remove(const QString& remote) { return transporter.deleteFile(remote); }
    TransporterFilePtr list(const QString& remote) { return transporter.list(remote); }
    TransporterFilePtr read(const QString& remote) { return transporter.readFile(remote); }
    Transporter transporter;
};

class RecordingDeployerDelegate : public DeployerDelegate {
public:
    QList<Error> errors;
    void setupTransporterDidFailWithError(const Error& error) override { errors.append(error); }
};

} // namespace

class TestConnections : public QObject {
    Q_OBJECT

private slots:
    void initTestCase() { TestEnvironment::isolate(); }
    void ftpNormalisation();
    void ftpSingleItems();
    void ftpBatches();
    void tlsVariants();
    void sftpLists();
    void sftpHomeFolderRule();
    void urlEncoding();
    void deployerChoosesTheConnection();
    void deployerRefusesAMissingUserName();
};

void TestConnections::ftpNormalisation() {
    TransporterFTPConnection a(makeSite(u"srv1/"_s, std::nullopt, u"/www"_s), u"pw"_s);
    QCOMPARE(a.host(), u"srv1/"_s);
    QCOMPARE(a.path(), u"/www/"_s);
    Items items(
        std::make_shared<TransporterFTPConnection>(makeSite(u"srv1/"_s, std::nullopt, u"/www"_s), u"pw"_s));
    QCOMPARE(a.fileUrl(*items.upload(u"/l"_s, u"a/b.txt"_s)), u"ftp://srv1//www/a/b.txt"_s);

    TransporterFTPConnection b(makeSite(u"srv1"_s, u"21"_s, u"htdocs"_s), std::nullopt);
    QCOMPARE(b.host(), u"srv1:21/"_s);
    QCOMPARE(b.path(), u"htdocs/"_s);
    QCOMPARE(b.password(), QString());
    QCOMPARE(TransporterFTPConnection(makeSite(u"h"_s, QString(), QString()), u"p"_s).host(), u"h:/"_s);
    QCOMPARE(TransporterFTPConnection(makeSite(u"h"_s, std::nullopt, QString()), u"p"_s).path(), QString());
    QCOMPARE(TransporterFTPConnection(makeSite(u"h"_s, std::nullopt, u"/"_s), u"p"_s).path(), u"/"_s);
    QCOMPARE(TransporterFTPConnection(makeSite(u"h"_s, std::nullopt, std::nullopt), u"p"_s).path(),
             QString());
    QVERIFY(b.passive());
    QCOMPARE(b.type(), u"ftp"_s);
    QCOMPARE(b.urlPrefix(), u"ftp://"_s);

    // Every occurrence of the sync root leaves the remote name.
    const SitePtr synced = makeSite(u"h"_s, std::nullopt, u"r"_s);
    synced->syncRootPath = u"site"_s;
    auto connection = std::make_shared<TransporterFTPConnection>(synced, u"p"_s);
    Items syncedItems(connection);
    const TransporterFilePtr file = syncedItems.upload(u"/l"_s, u"site/css/site.css"_s);
    QCOMPARE(file->remotePath(), u"/css/.css"_s);
    QCOMPARE(connection->remoteName(*file), u"/css/.css"_s);
}

void TestConnections::ftpSingleItems() {
    auto connection =
        std::make_shared<TransporterFTPConnection>(makeSite(u"srv1"_s, u"21"_s, u"htdocs"_s), u"p:w"_s);
    Items items(connection);
    const QString url = u"ftp://srv1:21/htdocs/css/a.css"_s;
    QCOMPARE(connection->getArgument(items.list(u"css/a.css"_s), u"/base"_s),
             (QStringList{url, u"--user"_s, u"bob:p:w"_s, u"--list-only"_s, u"--progress-bar"_s}));
    QCOMPARE(connection->localBasePath(), u"/base"_s);
    QCOMPARE(connection->getArgument(items.remove(u"css/a.css"_s), QString()),
             (QStringList{u"--user"_s, u"bob:p:w"_s, url, u"-Q"_s, u"DELE htdocs/css/a.css"_s, u"--silent"_s,
                          u"--progress-bar"_s}));
    QCOMPARE(connection->getArgument(items.read(u"css/a.css"_s), QString()),
             (QStringList{url, u"--user"_s, u"bob:p:w"_s, u"--progress-bar"_s}));
    const QStringList upload{u"-T"_s,
                             u"/l/a.css"_s,
                             url,
                             u"--user"_s,
                             u"bob:p:w"_s,
                             u"--progress-bar"_s,
                             u"--ftp-create-dirs"_s,
                             u"--globoff"_s,
                             u"--ftp-method"_s,
                             u"nocwd"_s};
    QCOMPARE(connection->getArgument(items.upload(u"/l/a.css"_s, u"css/a.css"_s), QString()), upload);

    connection->setPassive(false);
    QCOMPARE(connection->getArgument(items.upload(u"/l/a.css"_s, u"css/a.css"_s), QString()),
             (upload + QStringList{u"--ftp-port"_s, u"-"_s}));
    QCOMPARE(connection->getArgument(items.read(u"x"_s), QString()).mid(4),
             (QStringList{u"--ftp-port"_s, u"-"_s}));
}

void TestConnections::ftpBatches() {
    auto connection =
        std::make_shared<TransporterFTPConnection>(makeSite(u"srv1"_s, std::nullopt, u"www"_s), u"pw"_s);
    Items items(connection);
    const QList<TransporterFilePtr> uploads{items.upload(u"/l/a"_s, u"a"_s),
                                            items.upload(u"/l/b"_s, u"d/b"_s)};
    QCOMPARE(
        connection->getArgumentForMultiFileUpload(uploads),
        (QStringList{u"-T"_s, u"/l/a"_s, u"ftp://srv1/www/a"_s, u"-T"_s, u"/l/b"_s, u"ftp://srv1/www/d/b"_s,
                     u"--user"_s, u"bob:pw"_s, u"--ftp-create-dirs"_s, u"--globoff"_s, u"-#"_s, u"-v"_s}));

    const QList<TransporterFilePtr> deletes{items.remove(u"css/a.css"_s), items.remove(u"css/b.css"_s),
                                            items.remove(u"x/y/z/c.css"_s)};
    connection->setPassive(false);
    QCOMPARE(connection->getArgumentForMultiFileDelete(deletes), (QStringList{u"-Q"_s,
                                                                              u"*DELE www/css/a.css"_s,
                                                                              u"ftp://srv1/www/css/a.css"_s,
                                                                              u"-Q"_s,
                                                                              u"*DELE www/css/b.css"_s,
                                                                              u"ftp://srv1/www/css/b.css"_s,
                                                                              u"-Q"_s,
                                                                              u"*DELE www/x/y/z/c.css"_s,
                                                                              u"ftp://srv1/www/x/y/z/c.css"_s,
                                                                              u"-Q"_s,
                                                                              u"*RMD /www/css"_s,
                                                                              u"ftp://srv1/www/"_s,
                                                                              u"-Q"_s,
                                                                              u"*RMD /www/x/y/z"_s,
                                                                              u"ftp://srv1/www/x"_s,
                                                                              u"--ftp-port"_s,
                                                                              u"-"_s,
                                                                              u"--user"_s,
                                                                              u"bob:pw"_s,
                                                                              u"--ftp-create-dirs"_s,
                                                                              u"--globoff"_s,
                                                                              u"-#"_s,
                                                                              u"-v"_s}));
    QCOMPARE(connection->getArgumentForMultiFileUpload(uploads).mid(6, 3),
             (QStringList{u"--ftp-port"_s, u"-"_s, u"--user"_s}));
}

void TestConnections::tlsVariants() {
    const SitePtr site = makeSite(u"srv1"_s, u"990"_s, u"www"_s);
    site->passiveMode = false;
    auto ftps = std::make_shared<TransporterFTPSConnection>(site, u"pw"_s);
    auto tls = std::make_shared<TransporterFTPTLSConnection>(site, u"pw"_s);
    Items items(ftps);
    QCOMPARE(ftps->type(), u"ftps"_s);
    QCOMPARE(tls->type(), u"ftps-ssl"_s);
    QCOMPARE(ftps->getArgument(items.upload(u"/l"_s, u"a"_s), QString()).mid(8),
             (QStringList{u"--ftp-method"_s, u"nocwd"_s, u"-k"_s, u"--ftp-ssl"_s}));
    QCOMPARE(tls->getArgumentForMultiFileDelete({items.remove(u"a"_s)}).last(6),
             (QStringList{u"--ftp-create-dirs"_s, u"--globoff"_s, u"-#"_s, u"-v"_s, u"-k"_s, u"--ssl"_s}));
    QCOMPARE(tls->getArgumentForMultiFileUpload({items.upload(u"/l"_s, u"a"_s)}).first(3),
             (QStringList{u"-T"_s, u"/l"_s, u"ftp://srv1:990/www/a"_s}));
    QCOMPARE(tls->getArgument(items.read(u"a"_s), QString()).last(2), (QStringList{u"-k"_s, u"--ssl"_s}));
}

void TestConnections::sftpLists() {
    const SitePtr site = makeSite(u"srv1"_s, u"22"_s, u"www"_s);
    site->sshKeyPath = u"/keys/id"_s;
    auto connection = std::make_shared<TransporterSFTPConnection>(site, u"pw"_s, u"phrase"_s);
    Items items(connection);
    QCOMPARE(connection->type(), u"sftp"_s);
    const QStringList key{u"--key"_s, u"/keys/id"_s, u"--pass"_s, u"phrase"_s};
    const QString url = u"sftp://srv1:22/www/css/a.css"_s;
    QCOMPARE(connection->getArgument(items.upload(u"/l/a.css"_s, u"css/a.css"_s), QString()),
             (QStringList{u"-T"_s, u"/l/a.css"_s, url, u"--user"_s, u"bob:pw"_s, u"--progress-bar"_s,
                          u"--ftp-create-dirs"_s, u"-k"_s, u"--globoff"_s} +
              key));
    QCOMPARE(
        connection->getArgument(items.list(u"css/a.css"_s), QString()),
        (QStringList{url, u"--user"_s, u"bob:pw"_s, u"--list-only"_s, u"--progress-bar"_s, u"-k"_s} + key));
    QCOMPARE(connection->getArgument(items.read(u"css/a.css"_s), QString()),
             (QStringList{url, u"--user"_s, u"bob:pw"_s, u"--progress-bar"_s, u"-k"_s} + key));
    // No "~" in the remote path: the command works on the remote name alone.
    QCOMPARE(connection->getArgument(items.remove(u"css/a.css"_s), QString()),
             (QStringList{u"--user"_s, u"bob:pw"_s, u"sftp://srv1:22/"_s, u"-Q"_s, u"rm \"css/a.css\""_s,
                          u"--progress-bar"_s, u"-k"_s, u"--silent"_s} +
              key));
    QCOMPARE(connection->getArgumentForMultiFileUpload({items.upload(u"/l/a"_s, u"a"_s)}),
             (QStringList{u"-T"_s, u"/l/a"_s, u"sftp://srv1:22/www/a"_s, u"--user"_s, u"bob:pw"_s,
                          u"--progress-bar"_s, u"--ftp-create-dirs"_s, u"--globoff"_s, u"-v"_s, u"-k"_s} +
              key));

    // No key file, an empty key path, an empty pass phrase: no such arguments.
    site->sshKeyPath = std::nullopt;
    QCOMPARE(TransporterSFTPConnection(site, u"pw"_s, std::nullopt)
                 .getArgument(items.read(u"a"_s), QString())
                 .size(),
             5);
    site->sshKeyPath = QString();
    TransporterSFTPConnection empty(site, std::nullopt, QString());
    QCOMPARE(empty.passphrase(), std::nullopt);
    QCOMPARE(empty.getArgument(items.read(u"a"_s), QString()),
             (QStringList{u"sftp://srv1:22/www/a"_s, u"--user"_s, u"bob:"_s, u"--progress-bar"_s, u"-k"_s}));
}

void TestConnections::sftpHomeFolderRule() {
    const SitePtr site = makeSite(u"srv1"_s, std::nullopt, u"/~/htdocs/"_s);
    auto connection = std::make_shared<TransporterSFTPConnection>(site, u"pw"_s, std::nullopt);
    Items items(connection);
    QCOMPARE(connection->quoteTarget(u"css/a.css"_s).urlPath, u"/~/"_s);
    QCOMPARE(connection->quoteTarget(u"css/a.css"_s).commandPath, u"htdocs/css/a.css"_s);
    QCOMPARE(connection->getArgumentForMultiFileDelete(
                 {items.remove(u"css/a.css"_s), items.remove(u"css/b c.css"_s), items.remove(u"top.css"_s)}),
             (QStringList{u"-Q"_s, u"*rm \"htdocs/css/a.css\""_s, u"-Q"_s, u"*rm \"htdocs/css/b c.css\""_s,
                          u"-Q"_s, u"*rm \"htdocs/top.css\""_s, u"-Q"_s, u"*rmdir \"htdocs/css\""_s, u"-Q"_s,
                          u"*rmdir \"htdocs\""_s, u"sftp://srv1//~/"_s, u"--user"_s, u"bob:pw"_s,
                          u"--globoff"_s, u"-#"_s, u"-k"_s, u"-v"_s}));

    // "~/www" is the form that names the home folder in curl's URLs.
    TransporterSFTPConnection home(makeSite(u"h"_s, u"2"_s, u"~/www"_s), u"pw"_s, std::nullopt);
    QCOMPARE(home.quoteTarget(u"a"_s).urlPath, u"~/"_s);
    QCOMPARE(home.quoteTarget(u"a"_s).commandPath, u"www/a"_s);
    // A remote path ending in "~" and one of a single piece.
    TransporterSFTPConnection last(makeSite(u"h"_s, u"2"_s, u"/srv/~"_s), u"pw"_s, std::nullopt);
    QCOMPARE(last.quoteTarget(u"a"_s).urlPath, u"/srv/~/"_s);
    QCOMPARE(last.quoteTarget(u"a"_s).commandPath, u"a"_s);
    TransporterSFTPConnection single(makeSite(u"h"_s, u"2"_s, u"~"_s), u"pw"_s, std::nullopt);
    QCOMPARE(single.quoteTarget(u"a"_s).urlPath, QString());
}

// In URLs only: blanks, "#", "?", ";", "%" and control characters are
// encoded; quote commands and local paths keep the name as it is.
void TestConnections::urlEncoding() {
    QCOMPARE(RemoteUrl::encodePath(u"/~/a b#c%d?e;type=a\tü~.txt"_s),
             u"/~/a%20b%23c%25d%3Fe%3Btype=a%09ü~.txt"_s);
    auto connection =
        std::make_shared<TransporterFTPConnection>(makeSite(u"h"_s, std::nullopt, u"my site"_s), u"pw"_s);
    Items items(connection);
    const QStringList arguments = connection->getArgumentForMultiFileDelete({items.remove(u"a b#c%d.txt"_s)});
    QCOMPARE(arguments.mid(0, 3), (QStringList{u"-Q"_s, u"*DELE my site/a b#c%d.txt"_s,
                                               u"ftp://h/my%20site/a%20b%23c%25d.txt"_s}));
    QCOMPARE(connection->getArgument(items.upload(u"/l/a b#.txt"_s, u"a b#.txt"_s), QString()).mid(0, 3),
             (QStringList{u"-T"_s, u"/l/a b#.txt"_s, u"ftp://h/my%20site/a%20b%23.txt"_s}));
}

void TestConnections::deployerChoosesTheConnection() {
    struct Case {
        std::optional<QString> protocol;
        QString type;
    };
    const QList<Case> cases{{u"SFTP"_s, u"sftp"_s},
                            {u"FTP with implicit SSL"_s, u"ftps"_s},
                            {u"FTP with TLS/SSL"_s, u"ftps-ssl"_s},
                            {u"FTP"_s, u"ftp"_s},
                            {u"ftp"_s, u"ftp"_s},
                            {u"sftp"_s, u"ftp"_s},
                            {u"Gopher"_s, u"ftp"_s},
                            {std::nullopt, u"ftp"_s}};
    for (const Case& test : cases) {
        const SitePtr site = makeSite(u"srv1"_s, u"21"_s, u"www"_s);
        site->protocol = test.protocol;
        site->passiveMode = false;
        TWPasswords::setPassword(u"from-keychain"_s, site->siteId());
        TWPasswords::setPassphrase(u"phrase"_s, site->siteId());
        Deployer deployer(site);
        RecordingDeployerDelegate delegate;
        deployer.setDelegate(&delegate);
        QVERIFY(!deployer.getTransporter());
        deployer.setupTransporter();
        const std::shared_ptr<Transporter> transporter = deployer.getTransporter();
        QVERIFY(transporter);
        QVERIFY(delegate.errors.isEmpty());
        QCOMPARE(transporter->connection()->type(), test.type);
        QCOMPARE(transporter->connection()->getSite(), site);
        QCOMPARE(transporter->maxSimultaneousConnectinos(), 3);
        QCOMPARE(transporter->tag(), u"upload"_s);
        if (auto* ftp = dynamic_cast<TransporterFTPConnection*>(transporter->connection().get())) {
            QCOMPARE(ftp->password(), u"from-keychain"_s);
            // Only plain FTP takes the site's passive mode.
            QCOMPARE(ftp->passive(), test.type != u"ftp"_s);
        } else {
            auto* sftp = dynamic_cast<TransporterSFTPConnection*>(transporter->connection().get());
            QVERIFY(sftp);
            QCOMPARE(sftp->password(), u"from-keychain"_s);
            QCOMPARE(sftp->passphrase(), u"phrase"_s);
        }
        TWPasswords::setPassword(std::nullopt, site->siteId());
        TWPasswords::setPassphrase(std::nullopt, site->siteId());
    }

    // No password in the keychain: an empty one.
    const SitePtr site = makeSite(u"srv1"_s, u"21"_s, u"www"_s);
    Deployer deployer(site);
    deployer.setupTransporter();
    auto* ftp = dynamic_cast<TransporterFTPConnection*>(deployer.getTransporter()->connection().get());
    QVERIFY(ftp);
    QCOMPARE(ftp->password(), QString());
}

void TestConnections::deployerRefusesAMissingUserName() {
    const SitePtr site = makeSite(u"srv1"_s, u"21"_s, u"www"_s);
    site->username = std::nullopt;
    Deployer silent(site);
    silent.setupTransporter(); // no delegate: nothing said
    QVERIFY(!silent.getTransporter());

    Deployer deployer(site);
    RecordingDeployerDelegate delegate;
    deployer.setDelegate(&delegate);
    deployer.setupTransporter();
    QVERIFY(!deployer.getTransporter());
    QCOMPARE(delegate.errors.size(), 1);
    QCOMPARE(delegate.errors.first().localizedDescription,
             u"You must provide a username in the remote settings"_s);

    // A transporter made before stays; an empty user name passes.
    site->username = QString();
    deployer.setupTransporter();
    const auto first = deployer.getTransporter();
    QVERIFY(first);
    site->username = std::nullopt;
    deployer.setupTransporter();
    QCOMPARE(deployer.getTransporter(), first);
    QCOMPARE(delegate.errors.size(), 2);
}

} // namespace tw::test

QTEST_GUILESS_MAIN(tw::test::TestConnections)
#include "tst_connections.moc"
