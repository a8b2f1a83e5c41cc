// What the servers' tests cannot tell apart in the connections' curl
// arguments (the login's quoting, active mode, TLS required in single runs),
// and the choice of connection from a site's protocol text.

#include "ServerSites.h"
#include "TestEnvironment.h"
#include "transfer/Deployer.h"
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
    auto site = siteFor(u"srv1"_s, 990, u"bob"_s, u"www"_s);
    site->version = u"2"_s; // a current record: reading its id changes nothing
    return site;
}

} // namespace

class TestConnections : public QObject {
    Q_OBJECT

private slots:
    void initTestCase() { TestEnvironment::isolate(); }

    // The login reaches curl through its input (the command lines are
    // sampled in tst_secrets_e2e), quoted so that any password survives it.
    // Active mode and required TLS change nothing on a server that allows
    // both ways, so only the arguments show them.
    void loginModeAndEncryption() {
        const SitePtr site = makeSite();
        const QString password = u"p\"a\\ss:w0rd"_s;
        auto ftp = std::make_shared<TransporterFTPConnection>(site, password);
        QCOMPARE(ftp->curlConfig(), QByteArray("user = \"bob:p\\\"a\\\\ss:w0rd\"\n"));
        QCOMPARE(TransporterSFTPConnection(site, password, u"phrase"_s).curlConfig(),
                 QByteArray("user = \"bob:p\\\"a\\\\ss:w0rd\"\npass = \"phrase\"\n"));
        Transporter items(ftp);
        ftp->setPassive(false);
        QVERIFY(ftp->getArgument(items.readFile(u"x"_s), QString()).join(u' ').contains(u"--ftp-port -"_s));
        const QStringList implicit = TransporterFTPSConnection(site, password)
                                         .getArgument(items.uploadFile(u"/l"_s, u"a"_s), QString());
        QVERIFY(implicit.contains(u"--ssl-reqd"_s) && implicit.contains(u"ftps://srv1:990/www/a"_s));
        QVERIFY(TransporterFTPTLSConnection(site, password)
                    .getArgument(items.readFile(u"x"_s), QString())
                    .contains(u"--ssl-reqd"_s));
    }

    // The protocol text is matched exactly; anything else is plain FTP,
    // which alone takes the site's passive mode (active FTP over TLS is
    // broken in curl).
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
            Deployer deployer(site);
            deployer.setupTransporter();
            QVERIFY(deployer.getTransporter());
            const auto connection = deployer.getTransporter()->connection();
            QCOMPARE(connection->type(), type);
            if (auto* ftp = dynamic_cast<TransporterFTPConnection*>(connection.get()))
                QCOMPARE(ftp->passive(), type != u"ftp"_s);
        }
    }
};

} // namespace tw::test

QTEST_GUILESS_MAIN(tw::test::TestConnections)
#include "tst_connections.moc"
