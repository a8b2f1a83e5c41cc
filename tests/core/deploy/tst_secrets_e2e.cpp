#include "FtpServer.h"
#include "GitRepository.h"
#include "Inspection.h"
#include "ScriptedDeployView.h"
#include "ServerProcess.h"
#include "SshServer.h"
#include "TestEnvironment.h"
#include "app/Preferences.h"
#include "deploy/ViewController.h"
#include "keychain/TWPasswords.h"
#include "model/Sites.h"
#include "transfer/Deployer.h"
#include "transfer/TestConnection.h"

#include <QDir>
#include <QDirIterator>
#include <QSignalSpy>
#include <QTest>
#include <QTimer>

using namespace tw;
using namespace Qt::StringLiterals;

// The password and the pass phrase are seen by nobody but curl's standard
// input: not in a file below the home (preferences, logs with debug logging
// on, temporary files), not in an alert, not in the system log, not on the
// command line or in the environment of a running curl. Real deployments
// over FTP and SFTP, a failing one and connection tests, with a real keyring.
class TestSecrets : public QObject {
    Q_OBJECT

    std::unique_ptr<test::FtpServer> m_ftp;
    std::unique_ptr<test::SshServer> m_ssh;
    std::unique_ptr<test::SystemLogCapture> m_systemLog;
    std::unique_ptr<test::GitRepository> m_repo;
    QString m_home;
    QString m_temp;

    // What was shown or ran, to be searched for the secrets.
    QStringList m_shown;
    QTimer m_sampler;
    int m_samplesWithCurl = 0;
    QStringList m_leaks;

    static QList<QByteArray> secrets() {
        return {test::FtpServer::password().toUtf8(), test::SshServer::passphrase().toUtf8()};
    }

    // Every few milliseconds while a run lasts: each running curl's command
    // line and environment.
    void sample() {
        const QStringList curls = test::curlDescendants();
        if (curls.isEmpty())
            return;
        ++m_samplesWithCurl;
        for (const QString& curl : curls) {
            const QString pid = curl.section(u' ', 0, 0);
            for (const QString& what : {u"cmdline"_s, u"environ"_s}) {
                const QByteArray bytes = test::readFile(u"/proc/"_s + pid + u'/' + what);
                for (const QByteArray& secret : secrets()) {
                    if (bytes.contains(secret))
                        m_leaks.append(what + u" of curl: "_s +
                                       QString::fromUtf8(bytes).replace(u'\0', u' '));
                }
            }
        }
    }

    void remember(const test::ScriptedDeployView& view) {
        for (const AlertRequest& alert : view.alerts)
            m_shown << alert.message << alert.informativeText << alert.detailedText << alert.buttons;
        m_shown << view.progressTexts << view.placeholder;
    }

    SitePtr ftpSite(const QString& remotePath) const {
        SitePtr site = Site::newSite();
        site->name = u"Over FTP"_s;
        site->localPath = m_repo->path();
        site->host = test::FtpServer::host();
        site->port = QString::number(m_ftp->port());
        site->username = test::FtpServer::userName();
        site->remotePath = remotePath;
        site->deployBranch = u"main"_s;
        // Typed into the editor as well: the list must not keep it.
        site->password = test::FtpServer::password();
        TWPasswords::setPassword(test::FtpServer::password(), site->siteId());
        return site;
    }

    SitePtr sftpSite() const {
        SitePtr site = Site::newSite();
        site->name = u"Over SFTP"_s;
        site->protocol = u"SFTP"_s;
        site->localPath = m_repo->path();
        site->host = test::SshServer::host();
        site->port = QString::number(m_ssh->port());
        site->username = test::SshServer::userName();
        site->sshKeyPath = m_ssh->encryptedKeyPath();
        site->remotePath = u"~/www/"_s;
        site->deployBranch = u"main"_s;
        // The key logs in; the password travels all the same.
        TWPasswords::setPassword(test::FtpServer::password(), site->siteId());
        TWPasswords::setPassphrase(test::SshServer::passphrase(), site->siteId());
        return site;
    }

    struct Run {
        DeployOutcome outcome = DeployOutcome::Failed;
        QString message;
        int samplesWithCurl = 0;
    };

    // Deploys the site as the only stored one, through the window's
    // controller, sampling the curl processes meanwhile.
    Run deploy(const SitePtr& site) {
        Sites().storeWithSites({site});
        Preferences::instance().setInteger(u"currentSiteIndex"_s, 0);
        test::ScriptedDeployView view;
        ViewController controller(view);
        controller.viewDidLoad();
        QSignalSpy ended(&controller, &ViewController::deploymentEnded);
        m_samplesWithCurl = 0;
        m_sampler.start();
        controller.deployButton();
        const bool over = QTest::qWaitFor([&] { return ended.count() > 0; }, 120000);
        m_sampler.stop();
        remember(view);
        if (!over)
            return {DeployOutcome::Failed, u"no end within 120 s"_s, m_samplesWithCurl};
        const QString message = ended.first().at(1).toString();
        m_shown << message;
        return {ended.first().at(0).value<DeployOutcome>(), message, m_samplesWithCurl};
    }

    // The connection test as the site editor runs it; answers its error text.
    std::optional<QString> testConnection(const SitePtr& site) {
        Deployer deployer(site);
        deployer.setupTransporter();
        if (!deployer.getTransporter())
            return u"no transporter"_s;
        TestConnection test(deployer.getTransporter());
        bool done = false;
        std::optional<QString> failure;
        m_sampler.start();
        test.checkWithCompletion([&](std::optional<Error> error) {
            if (error)
                failure = error->localizedDescription;
            done = true;
        });
        const bool over = QTest::qWaitFor([&] { return done; }, 60000);
        m_sampler.stop();
        if (!over)
            return u"no end within 60 s"_s;
        if (failure)
            m_shown << *failure;
        m_shown << test.lastError();
        return failure;
    }

private slots:
    void initTestCase() {
        test::TestEnvironment::isolate();
        qRegisterMetaType<DeployOutcome>();
        m_systemLog = std::make_unique<test::SystemLogCapture>();
        // The servers keep their folders outside the home; what the program
        // puts into the temporary folder is below it, and is searched.
        m_ftp = std::make_unique<test::FtpServer>();
        m_ssh = std::make_unique<test::SshServer>();
        m_home = qEnvironmentVariable("TARNWELL_TEST_HOME");
        m_temp = m_home + u"/tmp"_s;
        QVERIFY(QDir().mkpath(m_temp));
        qputenv("TMPDIR", m_temp.toUtf8());
        QCOMPARE(QDir::tempPath(), m_temp);
        Preferences::instance().setBool(u"debugEnabled"_s, true);

        // Enough files that curl runs a while: its command line is read
        // while it runs.
        m_repo = std::make_unique<test::GitRepository>();
        for (int i = 0; i < 400; ++i)
            m_repo->write(u"pages/page-%1.html"_s.arg(i, 3, 10, QChar(u'0')), QByteArray(200, 'x'));
        m_repo->write(u"locked/inside.html"_s, "cannot go");
        m_repo->commitAll(u"first"_s);

        m_sampler.setInterval(2);
        connect(&m_sampler, &QTimer::timeout, this, &TestSecrets::sample);
    }

    void ftpDeployment() {
        TW_REQUIRE_SERVER(*m_ftp);
        QVERIFY(m_ftp->writeFile(u"www/.placeholder"_s, ""));
        const Run run = deploy(ftpSite(u"www/"_s));
        QVERIFY2(run.outcome == DeployOutcome::Deployed, qPrintable(run.message));
        QVERIFY(QFile::exists(m_ftp->homeFolder() + u"/www/pages/page-399.html"_s));
        QVERIFY2(run.samplesWithCurl > 0, "no sample saw a running curl");
    }

    void sftpDeployment() {
        TW_REQUIRE_SERVER(*m_ssh);
        QVERIFY(QDir().mkpath(m_ssh->remoteFolder() + u"/www"_s));
        const Run run = deploy(sftpSite());
        QVERIFY2(run.outcome == DeployOutcome::Deployed, qPrintable(run.message));
        QVERIFY(QFile::exists(m_ssh->remoteFolder() + u"/www/pages/page-399.html"_s));
        QVERIFY2(run.samplesWithCurl > 0, "no sample saw a running curl");
    }

    // The server refuses the files of one folder after the login: curl's
    // trace, which holds the login, is what the failure shows.
    void failingDeployment() {
        TW_REQUIRE_SERVER(*m_ftp);
        QVERIFY(m_ftp->makeUnwritable(u"refusing/locked"_s));
        const Run run = deploy(ftpSite(u"refusing/"_s));
        QVERIFY2(run.outcome == DeployOutcome::Failed, qPrintable(run.message));
        QVERIFY(m_shown.contains(u"An error occured!"_s));
        QVERIFY2(run.samplesWithCurl > 0, "no sample saw a running curl");
    }

    void connectionTests() {
        TW_REQUIRE_SERVER(*m_ftp);
        TW_REQUIRE_SERVER(*m_ssh);
        const auto ftp = testConnection(ftpSite(u"www/"_s));
        QVERIFY2(!ftp, qPrintable(ftp.value_or(QString())));
        const auto sftp = testConnection(sftpSite());
        QVERIFY2(!sftp, qPrintable(sftp.value_or(QString())));
        const auto refused = testConnection(ftpSite(u"refusing/locked/"_s));
        QVERIFY(refused);
    }

    // Last: everything the runs above left behind.
    void noSecretAnywhere() {
        QVERIFY(Preferences::instance().synchronize());
        QVERIFY2(m_leaks.isEmpty(), qPrintable(m_leaks.join(u'\n')));

        int files = 0;
        QStringList holding;
        QDirIterator walk(m_home, QDir::Files | QDir::Hidden | QDir::System | QDir::NoDotAndDotDot,
                          QDirIterator::Subdirectories);
        while (walk.hasNext()) {
            const QString path = walk.next();
            ++files;
            const QByteArray bytes = test::readFile(path);
            for (const QByteArray& secret : secrets()) {
                if (bytes.contains(secret))
                    holding.append(path);
            }
        }
        QVERIFY2(holding.isEmpty(), qPrintable(holding.join(u'\n')));
        // The walk saw the preferences and the debug log at least.
        QVERIFY(files >= 2);
        QVERIFY(QFile::exists(Preferences::instance().fileName()));

        for (const QString& text : std::as_const(m_shown) + m_systemLog->lines()) {
            for (const QByteArray& secret : secrets())
                QVERIFY2(!text.contains(QString::fromUtf8(secret)), qPrintable(text));
        }
    }
};

QTEST_GUILESS_MAIN(TestSecrets)
#include "tst_secrets_e2e.moc"
