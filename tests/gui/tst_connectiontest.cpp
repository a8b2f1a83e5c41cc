#include "FtpServer.h"
#include "ScriptedInteraction.h"
#include "SiteConnectionTester.h"
#include "SiteEditorDialog.h"
#include "TestEnvironment.h"
#include "keychain/TWPasswords.h"

#include <QComboBox>
#include <QFile>
#include <QLineEdit>
#include <QPushButton>
#include <QSignalSpy>
#include <QTest>

using namespace tw;
using namespace Qt::StringLiterals;

// The editor's "Test Connection" against a real FTP server on loopback.
class TestConnectionTest : public QObject {
    Q_OBJECT

    test::FtpServer m_server;

private slots:
    void initTestCase() { test::TestEnvironment::isolate(); }

    void editorReportsTheServersAnswer() {
        TW_REQUIRE_SERVER(m_server);
        test::ScriptedInteraction interaction;
        SiteEditorDialog editor(nullptr, interaction);
        editor.show();
        editor.hostField()->setText(test::FtpServer::host());
        editor.portField()->setText(QString::number(m_server.port()));
        editor.usernameField()->setText(test::FtpServer::userName());
        editor.passwordField()->setText(test::FtpServer::password());
        editor.remotePathField()->setText(u"/"_s);
        QSignalSpy finished(&editor, &SiteEditorDialog::connectionTestFinished);

        QTest::mouseClick(editor.testConnectionButton(), Qt::LeftButton);
        QTRY_COMPARE_WITH_TIMEOUT(finished.size(), 1, 30000);
        QVERIFY2(finished.at(0).at(0).toBool(), qPrintable(editor.connectionTestResult()));
        QVERIFY(QFile::exists(m_server.homeFolder() + u"/.test"_s));
        QCOMPARE(SiteConnectionTester::running(), 0);

        // A wrong password: the server's refusal, as curl reports it.
        editor.passwordField()->setText(u"wrong"_s);
        QTest::mouseClick(editor.testConnectionButton(), Qt::LeftButton);
        QTRY_COMPARE_WITH_TIMEOUT(finished.size(), 2, 30000);
        QVERIFY(!finished.at(1).at(0).toBool());
        QVERIFY2(editor.connectionTestResult().contains(u"530"_s), qPrintable(editor.connectionTestResult()));
        QCOMPARE(SiteConnectionTester::running(), 0);
    }

    // No engine can be made without a user name: said at once, on the event loop.
    void setupFailureIsReported() {
        SitePtr site = Site::newSite();
        site->host = u"127.0.0.1"_s;
        std::optional<QString> answer;
        bool answered = false;
        SiteConnectionTester::start(site, [&](const std::optional<QString>& error) {
            answered = true;
            answer = error;
        });
        QVERIFY(!answered);
        QTRY_VERIFY(answered);
        QCOMPARE(answer, u"You must provide a username in the remote settings"_s);
        QCOMPARE(SiteConnectionTester::running(), 0);
    }
};

QTEST_MAIN(TestConnectionTest)
#include "tst_connectiontest.moc"
