// The curl arguments of the connections that the servers' tests cannot
// tell apart (active mode, TLS in every kind of run, the login's quoting,
// the SFTP home folder rule, hosts in URLs), and the choice of connection
// from a site's protocol text.

#include "DeploySites.h"
#include "TestEnvironment.h"
#include "keychain/TWPasswords.h"
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

SitePtr makeSite(const std::optional<QString>& port, const std::optional<QString>& remotePath) {
    auto site = std::make_shared<Site>();
    site->version = u"2"_s; // a current record: reading its id changes nothing
    site->host = u"srv1"_s;
    site->port = port;
    site->remotePath = remotePath;
    site->username = u"bob"_s;
    return site;
}

} // namespace

class TestConnections : public QObject {
    Q_OBJECT

private slots:
    void initTestCase() { TestEnvironment::isolate(); }

    // Active mode and TLS change nothing on a server that allows both ways;
    // the login is on no command line, only in the configuration curl reads
    // from its input, quoted so that any password survives it.
    void modeEncryptionAndLogin() {
        const SitePtr site = makeSite(u"990"_s, u"www"_s);
        const QString password = u"p\"a\\ss:w0rd"_s;
        auto ftp = std::make_shared<TransporterFTPConnection>(site, password);
        auto ftps = std::make_shared<TransporterFTPSConnection>(site, password);
        auto tls = std::make_shared<TransporterFTPTLSConnection>(site, password);
        Transporter items(ftp);
        ftp->setPassive(false);
        QCOMPARE(ftp->getArgument(items.readFile(u"x"_s), QString()).last(2),
                 (QStringList{u"--ftp-port"_s, u"-"_s}));
        QCOMPARE(ftp->curlConfig(), QByteArray("user = \"bob:p\\\"a\\\\ss:w0rd\"\n"));

        // TLS is required, never merely asked for; the implicit variant
        // speaks it from the first byte, in single runs too.
        const QStringList implicit = ftps->getArgument(items.uploadFile(u"/l"_s, u"a"_s), QString());
        QCOMPARE(implicit.last(2), (QStringList{u"-k"_s, u"--ssl-reqd"_s}));
        QVERIFY(implicit.contains(u"ftps://srv1:990/www/a"_s));
        QCOMPARE(tls->getArgumentForMultiFileDelete({items.deleteFile(u"a"_s)}).last(2),
                 (QStringList{u"-k"_s, u"--ssl-reqd"_s}));

        for (TransporterConnectionProtocol* connection :
             std::initializer_list<TransporterConnectionProtocol*>{ftp.get(), ftps.get(), tls.get()}) {
            const QList<QStringList> lists{
                connection->getArgument(items.readFile(u"x"_s), QString()),
                connection->getArgumentForMultiFileUpload({items.uploadFile(u"/l"_s, u"a"_s)}),
                connection->getArgumentForMultiFileDelete(
                    {items.deleteFile(u"a"_s), items.deleteFile(u"b/c"_s)})};
            for (const QStringList& list : lists) {
                QVERIFY(!list.join(u' ').contains(password));
                QVERIFY(list.join(u' ').contains(u"-K -"_s));
            }
        }
    }

    // The pass phrase travels with the login; quote commands name the files
    // the uploads wrote: below "~" relative to the login's folder, else
    // absolute.
    void sftpLoginAndHomeFolder() {
        const SitePtr site = makeSite(u"22"_s, u"www"_s);
        auto connection = std::make_shared<TransporterSFTPConnection>(site, u"pw"_s, u"phrase"_s);
        QCOMPARE(connection->curlConfig(), QByteArray("user = \"bob:pw\"\npass = \"phrase\"\n"));

        TransporterSFTPConnection rooted(makeSite(std::nullopt, u"/~/htdocs/"_s), u"pw"_s, std::nullopt);
        QCOMPARE(rooted.quoteTarget(u"css/a.css"_s).urlPath, u"/~/"_s);
        QCOMPARE(rooted.quoteTarget(u"css/a.css"_s).commandPath, u"htdocs/css/a.css"_s);
        TransporterSFTPConnection home(makeSite(u"2"_s, u"~/www"_s), u"pw"_s, std::nullopt);
        QCOMPARE(home.quoteTarget(u"a"_s).commandPath, u"www/a"_s);
        TransporterSFTPConnection absolute(makeSite(u"2"_s, u"/srv/www"_s), u"pw"_s, std::nullopt);
        QCOMPARE(absolute.quoteTarget(u"a"_s).commandPath, u"/srv/www/a"_s);
        TransporterSFTPConnection relative(makeSite(u"2"_s, u"www"_s), u"pw"_s, std::nullopt);
        QCOMPARE(relative.quoteTarget(u"a b\"c"_s).commandPath, u"/www/a b\"c"_s);
    }

    // An IPv6 address stands in brackets in a URL; nothing else does, not
    // even a host typed with its port (curl then says the URL is wrong).
    void hostInTheUrl_data() {
        QTest::addColumn<QString>("host");
        QTest::addColumn<std::optional<QString>>("port");
        QTest::addColumn<QString>("url");
        QTest::newRow("IPv6") << u"::1"_s << std::optional<QString>(u"2121"_s) << u"ftp://[::1]:2121/www/a"_s;
        QTest::newRow("IPv6, no port")
            << u"2001:db8::7/"_s << std::optional<QString>() << u"ftp://[2001:db8::7]/www/a"_s;
        QTest::newRow("IPv6 in brackets")
            << u"[::1]"_s << std::optional<QString>(u"21"_s) << u"ftp://[::1]:21/www/a"_s;
        QTest::newRow("name with a port")
            << u"example.org:2121"_s << std::optional<QString>() << u"ftp://example.org:2121/www/a"_s;
        QTest::newRow("IPv4") << u"127.0.0.1"_s << std::optional<QString>(u"21"_s)
                              << u"ftp://127.0.0.1:21/www/a"_s;
    }

    void hostInTheUrl() {
        QFETCH(QString, host);
        QFETCH(std::optional<QString>, port);
        QFETCH(QString, url);
        const SitePtr site = makeSite(port, u"www"_s);
        site->host = host;
        auto connection = std::make_shared<TransporterFTPConnection>(site, u"pw"_s);
        Transporter items(connection);
        QCOMPARE(connection->fileUrl(*items.readFile(u"a"_s)), url);
    }

    // The protocol text is matched exactly; anything else is plain FTP,
    // which alone takes the site's passive mode.
    void deployerChoosesTheConnection() {
        const QList<std::pair<std::optional<QString>, QString>> cases{{u"SFTP"_s, u"sftp"_s},
                                                                      {u"FTP with implicit SSL"_s, u"ftps"_s},
                                                                      {u"FTP with TLS/SSL"_s, u"ftps-ssl"_s},
                                                                      {u"sftp"_s, u"ftp"_s},
                                                                      {std::nullopt, u"ftp"_s}};
        for (const auto& [protocol, type] : cases) {
            const SitePtr site = makeSite(u"21"_s, u"www"_s);
            site->protocol = protocol;
            site->passiveMode = false;
            TWPasswords::setPassword(u"from-keychain"_s, site->siteId());
            TWPasswords::setPassphrase(u"phrase"_s, site->siteId());
            Deployer deployer(site);
            deployer.setupTransporter();
            const std::shared_ptr<Transporter> transporter = deployer.getTransporter();
            QVERIFY(transporter);
            QCOMPARE(transporter->connection()->type(), type);
            if (auto* ftp = dynamic_cast<TransporterFTPConnection*>(transporter->connection().get())) {
                QCOMPARE(ftp->password(), u"from-keychain"_s);
                QCOMPARE(ftp->passive(), type != u"ftp"_s);
            } else {
                auto* sftp = dynamic_cast<TransporterSFTPConnection*>(transporter->connection().get());
                QVERIFY(sftp);
                QCOMPARE(sftp->password(), u"from-keychain"_s);
                QCOMPARE(sftp->passphrase(), u"phrase"_s);
            }
            TWPasswords::setPassword(std::nullopt, site->siteId());
            TWPasswords::setPassphrase(std::nullopt, site->siteId());
        }
    }

    void deployerRefusesAMissingUserName() {
        const SitePtr site = makeSite(u"21"_s, u"www"_s);
        site->username = std::nullopt;
        Deployer deployer(site);
        RecordingDeployerDelegate delegate;
        deployer.setDelegate(&delegate);
        deployer.setupTransporter();
        QVERIFY(!deployer.getTransporter());
        QCOMPARE(delegate.errors.size(), 1);
        QCOMPARE(delegate.errors.first().localizedDescription,
                 u"You must provide a username in the remote settings"_s);

        site->username = QString();
        deployer.setupTransporter();
        QVERIFY(deployer.getTransporter()); // an empty user name passes
    }
};

} // namespace tw::test

QTEST_GUILESS_MAIN(tw::test::TestConnections)
#include "tst_connections.moc"
