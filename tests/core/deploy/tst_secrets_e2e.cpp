#include "DeploySites.h"
#include "TestEnvironment.h"
#include "Traces.h"
#include "app/Preferences.h"
#include "keychain/TWPasswords.h"
#include "transfer/Deployer.h"
#include "transfer/TestConnection.h"

#include <QDir>
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

    static QByteArrayList secrets() {
        return {test::FtpServer::password().toUtf8(), test::SshServer::passphrase().toUtf8()};
    }

    // Every few milliseconds while a run lasts: each running curl's command
    // line and environment.
    void sample() {
        const QList<qint64> curls = test::curlDescendants();
        if (curls.isEmpty())
            return;
        ++m_samplesWithCurl;
        for (const qint64 pid : curls) {
            for (const QString& what : {u"cmdline"_s, u"environ"_s}) {
                const QByteArray bytes = test::readFile(u"/proc/%1/"_s.arg(pid) + what);
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
        SitePtr site = test::ftpSite(*m_repo, *m_ftp, remotePath);
        // Typed into the editor as well: the list must not keep it.
        site->password = test::FtpServer::password();
        return site;
    }

    SitePtr sftpSite() const {
        SitePtr site = test::sftpSite(*m_repo, *m_ssh);
        // The key logs in; the password travels all the same.
        TWPasswords::setPassword(test::FtpServer::password(), site->siteId());
        return site;
    }

    // Deploys the site as the only stored one, through the window's
    // controller, sampling the curl processes meanwhile.
    test::DeployAttempt deploy(const SitePtr& site) {
        test::DeployWindow window({site});
        m_samplesWithCurl = 0;
        m_sampler.start();
        const test::DeployAttempt attempt = window.deploy();
        m_sampler.stop();
        remember(window.view);
        m_shown << attempt.message;
        return attempt;
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
        m_repo->commit({{u"locked/inside.html"_s, "cannot go"}});

        m_sampler.setInterval(2);
        connect(&m_sampler, &QTimer::timeout, this, &TestSecrets::sample);
    }

    // Deployments over FTP and SFTP, and one the server refuses after the
    // login: curl's trace, which holds the login, is what the failure shows.
    void deployments_data() {
        QTest::addColumn<QString>("kind");
        QTest::newRow("FTP") << u"FTP"_s;
        QTest::newRow("SFTP") << u"SFTP"_s;
        QTest::newRow("refused") << u"refused"_s;
    }
    void deployments() {
        QFETCH(QString, kind);
        TW_REQUIRE_SERVER(*m_ftp);
        TW_REQUIRE_SERVER(*m_ssh);
        QVERIFY(m_ftp->emptyFolder(u"www"_s));
        QVERIFY(QDir().mkpath(m_ssh->remoteFolder() + u"/www"_s));
        QVERIFY(m_ftp->makeUnwritable(u"refusing/locked"_s));
        const test::DeployAttempt run = deploy(kind == u"SFTP"_s      ? sftpSite()
                                               : kind == u"refused"_s ? ftpSite(u"refusing/"_s)
                                                                      : ftpSite(u"www/"_s));
        QCOMPARE(run.outcome, kind == u"refused"_s ? DeployOutcome::Failed : DeployOutcome::Deployed);
        if (kind == u"refused"_s)
            QVERIFY(m_shown.contains(u"An error occured!"_s));
        else
            QVERIFY(QFile::exists((kind == u"SFTP"_s ? m_ssh->remoteFolder() : m_ftp->homeFolder()) +
                                  u"/www/pages/page-399.html"_s));
        QVERIFY2(m_samplesWithCurl > 0, "no sample saw a running curl");
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

        QCOMPARE(test::filesHolding(m_home, secrets()), QStringList());
        // The search saw the preferences and the debug log at least.
        QVERIFY(test::tree(m_home).size() >= 2);
        QVERIFY(QFile::exists(Preferences::instance().fileName()));

        for (const QString& text : std::as_const(m_shown) + m_systemLog->lines()) {
            for (const QByteArray& secret : secrets())
                QVERIFY2(!text.contains(QString::fromUtf8(secret)), qPrintable(text));
        }
    }
};

QTEST_GUILESS_MAIN(TestSecrets)
#include "tst_secrets_e2e.moc"
