// What the servers' tests cannot tell apart in the connections' curl
// arguments (active mode, TLS required in single runs, the login kept off
// the command line and quoted), and the choice of connection from a site's
// protocol text.

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

SitePtr makeSite() {
    auto site = std::make_shared<Site>();
    site->version = u"2"_s; // a current record: reading its id changes nothing
    site->host = u"srv1"_s;
    site->port = u"990"_s;
    site->remotePath = u"www"_s;
    site->username = u"bob"_s;
    return site;
}

} // namespace

class TestConnections : public QObject {
    Q_OBJECT

private slots:
    void initTestCase() { TestEnvironment::isolate(); }

    // The login is on no command line, only in the configuration curl reads
    // from its input, quoted so that any password survives it.
    void loginModeAndEncryption() {
        const SitePtr site = makeSite();
        const QString password = u"p\"a\\ss:w0rd"_s;
        auto ftp = std::make_shared<TransporterFTPConnection>(site, password);
        auto ftps = std::make_shared<TransporterFTPSConnection>(site, password);
        auto tls = std::make_shared<TransporterFTPTLSConnection>(site, password);
        auto sftp = std::make_shared<TransporterSFTPConnection>(site, password, u"phrase"_s);
        QCOMPARE(ftp->curlConfig(), QByteArray("user = \"bob:p\\\"a\\\\ss:w0rd\"\n"));
        QCOMPARE(sftp->curlConfig(), QByteArray("user = \"bob:p\\\"a\\\\ss:w0rd\"\npass = \"phrase\"\n"));
        Transporter items(ftp);
        for (TransporterConnectionProtocol* connection :
             std::initializer_list<TransporterConnectionProtocol*>{ftp.get(), ftps.get(), tls.get(),
                                                                   sftp.get()}) {
            for (const QStringList& list :
                 {connection->getArgument(items.readFile(u"x"_s), QString()),
                  connection->getArgumentForMultiFileUpload({items.uploadFile(u"/l"_s, u"a"_s)}),
                  connection->getArgumentForMultiFileDelete({items.deleteFile(u"a"_s)})}) {
                QVERIFY(!list.join(u' ').contains(u"w0rd"_s) && !list.join(u' ').contains(u"phrase"_s));
                QVERIFY(list.join(u' ').contains(u"-K -"_s));
            }
        }
        // Active mode and required TLS change nothing on a server that allows
        // both ways, so only the arguments show them.
        ftp->setPassive(false);
        QVERIFY(ftp->getArgument(items.readFile(u"x"_s), QString()).join(u' ').contains(u"--ftp-port -"_s));
        const QStringList implicit = ftps->getArgument(items.uploadFile(u"/l"_s, u"a"_s), QString());
        QVERIFY(implicit.contains(u"--ssl-reqd"_s) && implicit.contains(u"ftps://srv1:990/www/a"_s));
        QVERIFY(tls->getArgument(items.readFile(u"x"_s), QString()).contains(u"--ssl-reqd"_s));
    }

    // The protocol text is matched exactly; anything else is plain FTP,
    // which alone takes the site's passive mode. The secrets come from the
    // secret store; a site without a user name gets no transporter.
    void deployerChoosesTheConnection() {
        const QList<std::pair<std::optional<QString>, QString>> cases{{u"SFTP"_s, u"sftp"_s},
                                                                      {u"FTP with implicit SSL"_s, u"ftps"_s},
                                                                      {u"FTP with TLS/SSL"_s, u"ftps-ssl"_s},
                                                                      {u"sftp"_s, u"ftp"_s},
                                                                      {std::nullopt, u"ftp"_s}};
        for (const auto& [protocol, type] : cases) {
            const SitePtr site = makeSite();
            site->protocol = protocol;
            site->passiveMode = false;
            TWPasswords::setPassword(u"from-keychain"_s, site->siteId());
            TWPasswords::setPassphrase(u"phrase"_s, site->siteId());
            Deployer deployer(site);
            deployer.setupTransporter();
            QVERIFY(deployer.getTransporter());
            const auto connection = deployer.getTransporter()->connection();
            QCOMPARE(connection->type(), type);
            if (auto* ftp = dynamic_cast<TransporterFTPConnection*>(connection.get())) {
                QCOMPARE(ftp->password(), u"from-keychain"_s);
                QCOMPARE(ftp->passive(), type != u"ftp"_s);
            } else {
                QCOMPARE(connection->curlConfig(),
                         QByteArray("user = \"bob:from-keychain\"\npass = \"phrase\"\n"));
            }
            TWPasswords::setPassword(std::nullopt, site->siteId());
            TWPasswords::setPassphrase(std::nullopt, site->siteId());
        }

        const SitePtr site = makeSite();
        site->username = std::nullopt;
        Deployer deployer(site);
        RecordingDeployerDelegate delegate;
        deployer.setDelegate(&delegate);
        deployer.setupTransporter();
        QVERIFY(!deployer.getTransporter());
        QCOMPARE(delegate.errors.size(), 1);
    }
};

} // namespace tw::test

QTEST_GUILESS_MAIN(tw::test::TestConnections)
#include "tst_connections.moc"
