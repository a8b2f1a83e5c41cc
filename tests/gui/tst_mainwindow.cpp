#include "DeploySites.h"
#include "EmptyTablePlaceholder.h"
#include "FileListPanel.h"
#include "MainWindow.h"
#include "ProgressViewController.h"
#include "ServerProcess.h"
#include "SingleInstance.h"
#include "SitesSidebar.h"
#include "TestEnvironment.h"
#include "WidgetInteraction.h"
#include "WindowTesting.h"
#include "app/Preferences.h"
#include "deploy/ViewController.h"
#include "keychain/TWPasswords.h"
#include "model/SiteListActions.h"
#include "model/Sites.h"

#include <QAbstractButton>
#include <QApplication>
#include <QDir>
#include <QLabel>
#include <QLineEdit>
#include <QListView>
#include <QMenuBar>
#include <QMessageBox>
#include <QProcess>
#include <QProgressBar>
#include <QPushButton>
#include <QScreen>
#include <QSignalSpy>
#include <QSplitter>
#include <QTableView>
#include <QTemporaryDir>
#include <QTest>
#include <QTextEdit>
#include <QTimer>

using namespace tw;
using namespace Qt::StringLiterals;

using test::clickAlertButton;
using test::openAlert;
using test::siteFor;

// The main window with the real controller, real repositories and, for the
// questions, a real FTP server.
class TestMainWindow : public QObject {
    Q_OBJECT

private slots:
    void initTestCase() {
        test::TestEnvironment::isolate();
        qRegisterMetaType<DeployOutcome>();
    }
    void init() { test::TestEnvironment::resetPreferences(); }

    // Escape at the question about another branch's record is Cancel, never
    // "Force deploy", the first button. Forced, the sheet counts the files one
    // by one, its bar and the rows sent agreeing with the count; then nothing
    // is left to deploy.
    void deploymentInTheWindow() {
        test::FtpServer ftp;
        TW_REQUIRE_SERVER(ftp);
        test::GitRepository repo;
        const int total = 30;
        for (int i = 0; i < total; ++i)
            repo.write(u"pages/page%1.html"_s.arg(i), QByteArray(2048, 'x'));
        repo.commitAll(u"one"_s);
        SiteListActions::add(test::ftpSite(repo, ftp, QString()));
        QVERIFY(ftp.writeFile(u".tarnwell"_s, "abc1234,100.0,other"));
        Preferences::instance().setInteger(u"maxConnections"_s, 1);
        test::LoadedWindow window;
        QSignalSpy ended(&window.controller(), &ViewController::deploymentEnded);
        const auto outcome = [&] { return int(ended.last().at(0).value<DeployOutcome>()); };

        window.deployButton()->click();
        QTRY_VERIFY(openAlert());
        QTest::keyClick(openAlert(), Qt::Key_Escape);
        QTRY_COMPARE(ended.count(), 1);
        QCOMPARE(outcome(), int(DeployOutcome::Cancelled));
        QVERIFY(!QFile::exists(ftp.homeFolder() + u"/pages/page0.html"_s));

        QStringList counts, disagreements;
        QList<int> bars;
        connect(&window.controller(), &ViewController::progressChanged, this, [&](qsizetype done, qsizetype) {
            const ProgressViewController* sheet = window.progressSheet();
            // The same count told twice is no step.
            if (!sheet || (!counts.isEmpty() && counts.constLast() == sheet->countLabel()->text()))
                return;
            counts.append(sheet->countLabel()->text());
            bars.append(sheet->progressBar()->value());
            const qsizetype sent = std::ranges::count_if(
                *window.controller().files, [](const FilePtr& file) { return file->status == u"100%"; });
            if (sent != done)
                disagreements.append(u"%1 counted, %2 rows sent"_s.arg(done).arg(sent));
        });
        window.deployButton()->click();
        QTRY_VERIFY(openAlert());
        QVERIFY(clickAlertButton(u"Force deploy"_s));
        QTRY_COMPARE_WITH_TIMEOUT(ended.count(), 2, 60000);
        QCOMPARE(outcome(), int(DeployOutcome::Deployed));
        QCOMPARE(counts.size(), total + 1);
        for (int done = 0; done <= total; ++done) {
            QCOMPARE(counts.at(done),
                     u"%1 of %2 files \u00b7 %3 %"_s.arg(done).arg(total).arg(done * 100 / total));
            QCOMPARE(bars.at(done), done * 100 / total);
        }
        QCOMPARE(disagreements, QStringList());
        QTRY_VERIFY(!window.deployButton()->isEnabled());
    }

    // A failure in curl's words becomes a sentence with curl's text under the
    // details; a long trace never makes the alert taller than the screen; the
    // log folder is one click away.
    void failuresInWordsPeopleRead() {
        test::GitRepository repo;
        repo.commit({{u"index.html"_s, "a"}}, u"one"_s);
        SitePtr site = siteFor(repo.path(), u"Blog"_s);
        site->port = u"2121"_s;
        site->remotePath = u"www/"_s;
        SiteListActions::add(site);
        test::LoadedWindow window;

        AlertRequest failure;
        failure.message = u"An error occured!"_s;
        for (const auto& [curl, sentence] :
             {std::pair{u"(67) Access denied: 530"_s, u"The server refused the user name or password."_s},
              std::pair{u"curl: (9) Server denied you to change to the given directory"_s,
                        u"The server has no folder www/ and would not create it."_s},
              std::pair{u"curl: (7) Couldn't connect to server"_s,
                        u"Nothing answers at 127.0.0.1 port 2121."_s}}) {
            failure.informativeText = curl;
            const AlertRequest shown = window.explained(failure);
            QCOMPARE(shown.informativeText, sentence);
            QCOMPARE(shown.detailedText, curl);
        }
        failure.informativeText = u"> STOR page.html\n< 150 Accepted data connection\n"_s.repeated(2000) +
                                  u"curl: (55) Send failure: Broken pipe"_s;
        int answered = -1;
        window.beginSheet(failure, [&](int button) { answered = button; });
        QTRY_VERIFY(openAlert());
        QMessageBox* box = openAlert();
        QVERIFY(box->detailedText().endsWith(u"Broken pipe"_s));
        QTRY_VERIFY(box->height() <= box->screen()->availableGeometry().height());
        QVERIFY(clickAlertButton(u"Open Log Folder"_s));
        QTRY_COMPARE(answered, 0);
    }

    // What the window said about one site goes when another is chosen, and a
    // connection test's answer that comes after the switch is not shown for
    // the new site.
    void messagesBelongToTheirSite() {
        test::GitRepository repo;
        repo.commit({{u"index.html"_s, "a"}}, u"one"_s);
        const quint16 closed = test::ServerProcess::freePort();
        for (const QString& name : {u"First"_s, u"Second"_s}) {
            SitePtr site = siteFor(repo.path(), name);
            site->port = QString::number(closed);
            SiteListActions::add(site);
        }
        test::LoadedWindow window;
        QListView* list = window.sidebar()->listView();
        window.testConnection();
        QTRY_VERIFY_WITH_TIMEOUT(openAlert(), 20000);
        QVERIFY(clickAlertButton(u"OK"_s));
        QVERIFY(window.connectionLabel()->fullText().contains(u"Nothing answers at 127.0.0.1"_s));
        emit window.controller().deploymentEnded(DeployOutcome::Failed, QString(), RunSummary{});

        list->setCurrentIndex(list->model()->index(1, 0));
        QCOMPARE(window.controller().currentSite->name, u"Second"_s);
        QVERIFY(!window.connectionLabel()->isVisible());
        QVERIFY(!window.runResultLabel()->isVisible());

        window.testConnection();
        list->setCurrentIndex(list->model()->index(0, 0));
        QTRY_VERIFY_WITH_TIMEOUT(openAlert(), 20000);
        QCOMPARE(openAlert()->text(), u"The connection test of \u201cSecond\u201d failed"_s);
        QVERIFY(clickAlertButton(u"OK"_s));
        QVERIFY(!window.connectionLabel()->isVisible());
    }

    // Deploy waits for the branch; the placeholder offers to check it out;
    // a missing folder can be chosen again.
    void placeholdersOfferTheFix() {
        test::GitRepository repo;
        repo.commit({{u"index.html"_s, "a"}}, u"one"_s);
        repo.git({u"checkout"_s, u"-q"_s, u"-b"_s, u"draft"_s});
        SiteListActions::add(siteFor(repo.path(), u"Blog"_s));
        SiteListActions::add(siteFor(repo.path() + u"/gone"_s, u"Lost"_s));
        SiteListActions::setCurrentIndex(1);
        test::LoadedWindow window;
        QTRY_VERIFY(window.placeholder()->chooseFolderButton()->isVisible());
        QVERIFY(!window.deployButton()->isEnabled());

        window.sidebar()->listView()->setCurrentIndex(window.sidebar()->model()->index(0, 0));
        QTRY_VERIFY(window.placeholder()->checkOutButton()->isVisible());
        QVERIFY(!window.deployButton()->isEnabled());
        QVERIFY(window.placeholder()->settingsButton()->isVisible());
        window.placeholder()->checkOutButton()->click();
        // The checkout moves HEAD; the repository watcher re-lists.
        QTRY_VERIFY(window.isShowingFiles());
        QVERIFY(window.deployButton()->isEnabled());
    }

    // A long site name is cut in the header and never widens the window;
    // size, position and splitter come back at the next start.
    void aDesktopCitizen() {
        test::GitRepository repo;
        repo.commit({{u"index.html"_s, "a"}}, u"one"_s);
        const QString longName =
            u"The very long name of a site that a person gave it "_s.repeated(4).trimmed();
        SiteListActions::add(siteFor(repo.path(), longName));
        {
            test::LoadedWindow window;
            window.resize(760, 520);
            QTRY_VERIFY(window.siteLabel()->isElided());
            QVERIFY(window.siteLabel()->toolTip().startsWith(longName));
            QVERIFY(window.minimumSizeHint().width() < 760);
            window.splitter()->setSizes({300, 460});
            window.move(40, 30);
            QTRY_COMPARE(window.pos(), QPoint(40, 30));
            window.close();
        }
        test::LoadedWindow again;
        QCOMPARE(again.size(), QSize(760, 520));
        QCOMPARE(again.pos(), QPoint(40, 30));
        QCOMPARE(again.splitter()->sizes().first(), 300);
    }

    // A second start finds the first and asks it to come to the front.
    void secondStartRaisesTheFirst() {
        QTemporaryDir folder;
        const QString name = folder.filePath(u"instance.socket"_s);
        SingleInstance first(name);
        QCOMPARE(first.claim(), SingleInstance::Claim::Listening);
        QSignalSpy raised(&first, &SingleInstance::activationRequested);
        SingleInstance second(name);
        QCOMPARE(second.claim(), SingleInstance::Claim::AnotherAnswered);
        QTRY_COMPARE(raised.count(), 1);
    }

    // With its socket's place taken by a folder it cannot remove, the
    // application still opens its window instead of quitting quietly.
    void startsWhenItCannotListen() {
        QTemporaryDir runtime;
        QVERIFY(QDir().mkpath(runtime.filePath(u"dev.tarnwell.Tarnwell.socket"_s)));
        QProcessEnvironment environment = QProcessEnvironment::systemEnvironment();
        environment.insert(u"XDG_RUNTIME_DIR"_s, runtime.path());
        environment.insert(u"ASAN_OPTIONS"_s, u"detect_leaks=0"_s);
        QProcess app;
        app.setProcessEnvironment(environment);
        app.setProcessChannelMode(QProcess::MergedChannels);
        app.start(test::TestEnvironment::binaryDirectory() + u"/bin/tarnwell"_s, QStringList());
        QByteArray output;
        QTRY_VERIFY_WITH_TIMEOUT((output += app.readAll()).contains("could not listen"), 30000);
        QVERIFY2(!app.waitForFinished(2000), output.constData());
        app.kill();
        app.waitForFinished();
    }
};

QTEST_MAIN(TestMainWindow)
#include "tst_mainwindow.moc"
