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

    void welcomeWithoutSites() {
        test::LoadedWindow window;
        QVERIFY(!window.isShowingFiles());
        QVERIFY(window.placeholder()->addSiteButton()->isVisible());
        QVERIFY(!window.placeholder()->textView()->isVisible());
        QVERIFY(!window.deployButton()->isEnabled());
        QVERIFY(!window.action(u"editSite"_s)->isEnabled());
        QVERIFY(window.lastDeploymentLabel()->text().startsWith(u"Add a site"_s));
    }

    void listsTheSelectedSite() {
        test::GitRepository first, second;
        first.commit({{u"index.html"_s, "a"}, {u"css/site.css"_s, "b"}}, u"one"_s);
        second.commit({{u"only.txt"_s, "c"}}, u"one"_s);
        SiteListActions::add(siteFor(first.path(), u"First"_s));
        SiteListActions::add(siteFor(second.path(), u"Second"_s));

        test::LoadedWindow window;
        QVERIFY(window.isShowingFiles());
        QCOMPARE(window.filePanel()->tableView()->model()->rowCount(), 2);
        QVERIFY(window.deployButton()->isEnabled());
        QVERIFY(window.lastDeploymentLabel()->text().startsWith(u"Never deployed"_s));

        // Choosing a site in the list re-lists at once.
        QListView* list = window.sidebar()->listView();
        list->setCurrentIndex(list->model()->index(1, 0));
        QCOMPARE(Preferences::instance().integerValue(u"currentSiteIndex"_s), 1);
        QCOMPARE(window.controller().currentSite->name, u"Second"_s);
        QCOMPARE(window.filePanel()->tableView()->model()->rowCount(), 1);

        // Uncommitted changes are pointed out.
        second.write(u"only.txt"_s, "changed");
        window.refresh();
        QTRY_VERIFY(window.warningLabel()->isVisible());
        QCOMPARE(window.warningLabel()->text(),
                 u"Uncommitted changes (only.txt) are not deployed: commit them first."_s);
    }

    void checkingOutTheDeployBranch() {
        test::GitRepository repo;
        repo.commit({{u"index.html"_s, "a"}}, u"one"_s);
        repo.git({u"checkout"_s, u"-q"_s, u"-b"_s, u"draft"_s});
        SiteListActions::add(siteFor(repo.path(), u"Blog"_s));

        test::LoadedWindow window;
        QPushButton* checkOut = window.placeholder()->checkOutButton();
        QTRY_VERIFY(checkOut->isVisible());
        QCOMPARE(checkOut->text(), u"Check out branch 'main'"_s);
        QVERIFY(!window.isShowingFiles());
        checkOut->click();
        // The checkout moves HEAD; the repository watcher re-lists.
        QTRY_VERIFY(window.isShowingFiles());
        QCOMPARE(window.controller().checkOutedBranch(), u"main"_s);
    }

    void questionsAnsweredInTheWindow() {
        test::FtpServer ftp;
        TW_REQUIRE_SERVER(ftp);
        test::GitRepository repo;
        repo.commit({{u"index.html"_s, "hello"}}, u"one"_s);
        SiteListActions::add(test::ftpSite(repo, ftp, QString()));
        QVERIFY(ftp.writeFile(u".tarnwell"_s, "abc1234,100.0,other"));

        test::LoadedWindow window;
        QSignalSpy ended(&window.controller(), &ViewController::deploymentEnded);

        // "Cancel" ends the attempt and sends nothing.
        window.deployButton()->click();
        QTRY_VERIFY(openAlert());
        QCOMPARE(openAlert()->text(), u"Target site was last deployed with a different branch"_s);
        QVERIFY(clickAlertButton(u"Cancel"_s));
        QTRY_COMPARE(ended.count(), 1);
        QCOMPARE(int(ended.last().at(0).value<DeployOutcome>()), int(DeployOutcome::Cancelled));
        QVERIFY(!QFile::exists(ftp.homeFolder() + u"/index.html"_s));

        // Escape is "Cancel" too, never "Force deploy", the first button.
        window.deployButton()->click();
        QTRY_VERIFY(openAlert());
        QTest::keyClick(openAlert(), Qt::Key_Escape);
        QTRY_COMPARE(ended.count(), 2);
        QCOMPARE(int(ended.last().at(0).value<DeployOutcome>()), int(DeployOutcome::Cancelled));
        QVERIFY(!QFile::exists(ftp.homeFolder() + u"/index.html"_s));

        // "Force deploy" deploys, with the progress sheet shown meanwhile.
        window.deployButton()->click();
        QTRY_VERIFY(openAlert());
        QVERIFY(clickAlertButton(u"Force deploy"_s));
        QTRY_VERIFY(window.progressSheet() && window.progressSheet()->isVisible());
        QTRY_COMPARE_WITH_TIMEOUT(ended.count(), 3, 20000);
        QCOMPARE(int(ended.last().at(0).value<DeployOutcome>()), int(DeployOutcome::Deployed));
        QTRY_VERIFY(!window.progressSheet()->isVisible());
        QVERIFY(QFile::exists(ftp.homeFolder() + u"/index.html"_s));
        QTRY_VERIFY(window.lastDeploymentLabel()->text().startsWith(u"Last deployed: "_s));
    }

    // During a real deployment the sheet counts the files one by one, its bar
    // agrees with the count, and the count with the rows marked sent.
    void progressMovesFileByFile() {
        test::FtpServer ftp;
        TW_REQUIRE_SERVER(ftp);
        test::GitRepository repo;
        const int total = 30;
        for (int i = 0; i < total; ++i)
            repo.write(u"pages/page%1.html"_s.arg(i), QByteArray(2048, 'x'));
        repo.commitAll(u"one"_s);
        SiteListActions::add(test::ftpSite(repo, ftp, QString()));
        Preferences::instance().setInteger(u"maxConnections"_s, 1);

        test::LoadedWindow window;
        QStringList counts;
        QList<int> bars;
        QStringList disagreements;
        connect(&window.controller(), &ViewController::progressChanged, this, [&](qsizetype done, qsizetype) {
            const ProgressViewController* sheet = window.progressSheet();
            if (!sheet)
                return;
            // The same count told twice is no step.
            if (!counts.isEmpty() && counts.constLast() == sheet->countLabel()->text())
                return;
            counts.append(sheet->countLabel()->text());
            bars.append(sheet->progressBar()->value());
            qsizetype sent = 0;
            for (const FilePtr& file : *window.controller().files)
                sent += file->status == u"100%" ? 1 : 0;
            if (sent != done)
                disagreements.append(u"%1 counted, %2 rows sent"_s.arg(done).arg(sent));
        });
        QSignalSpy ended(&window.controller(), &ViewController::deploymentEnded);
        window.deployButton()->click();
        QTRY_COMPARE_WITH_TIMEOUT(ended.count(), 1, 60000);
        QCOMPARE(int(ended.last().at(0).value<DeployOutcome>()), int(DeployOutcome::Deployed));

        // From nothing sent, one file at a time, to all of them.
        QCOMPARE(counts.size(), total + 1);
        for (int done = 0; done <= total; ++done) {
            QCOMPARE(counts.at(done),
                     u"%1 of %2 files \u00b7 %3 %"_s.arg(done).arg(total).arg(done * 100 / total));
            QCOMPARE(bars.at(done), done * 100 / total);
        }
        QCOMPARE(disagreements, QStringList());
    }

    // A failure in curl's words becomes a sentence with curl's text under the
    // details; a long trace never makes the alert taller than the screen, and
    // the log folder is one click away.
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
        failure.informativeText = u"(67) Access denied: 530"_s;
        AlertRequest shown = window.explained(failure);
        QCOMPARE(shown.message, u"An error occured!"_s);
        QCOMPARE(shown.informativeText, u"The server refused the user name or password."_s);
        QCOMPARE(shown.detailedText, u"(67) Access denied: 530"_s);
        failure.informativeText = u"curl: (9) Server denied you to change to the given directory"_s;
        QCOMPARE(window.explained(failure).informativeText,
                 u"The server has no folder www/ and would not create it."_s);
        failure.informativeText = u"curl: (7) Couldn't connect to server"_s;
        QCOMPARE(window.explained(failure).informativeText, u"Nothing answers at 127.0.0.1 port 2121."_s);

        QString trace;
        for (int i = 0; i < 2000; ++i)
            trace += u"> STOR page%1.html\n< 150 Accepted data connection\n"_s.arg(i);
        trace += u"curl: (55) Send failure: Broken pipe"_s;
        failure.informativeText = trace;
        int answered = -1;
        window.beginSheet(failure, [&](int button) { answered = button; });
        QTRY_VERIFY(openAlert());
        QMessageBox* box = openAlert();
        QCOMPARE(box->informativeText(), u"The connection to 127.0.0.1 broke off."_s);
        QVERIFY(box->detailedText().endsWith(u"Broken pipe"_s));
        QTRY_VERIFY(box->height() <= box->screen()->availableGeometry().height());
        QVERIFY(clickAlertButton(u"Open Log Folder"_s));
        QTRY_COMPARE(answered, 0);

        // The run's own note under curl's text stays in sight, under the
        // sentence; an alert without curl's text offers the log folder too.
        const QString unnamed = u"curl did not say which file failed; the files not marked as sent did not "
                                "reach the server."_s;
        failure.informativeText = u"Failed deleting www/old.html\n"_s + unnamed;
        shown = window.explained(failure);
        QVERIFY2(shown.informativeText.endsWith(unnamed), qPrintable(shown.informativeText));
        QVERIFY(!shown.informativeText.startsWith(unnamed));
        failure.informativeText = u"The repository folder /srv/blog is gone; nothing was sent."_s;
        answered = -1;
        window.beginSheet(failure, [&](int button) { answered = button; });
        QTRY_VERIFY(openAlert());
        QVERIFY(openAlert()->detailedText().isEmpty());
        QVERIFY(clickAlertButton(u"Open Log Folder"_s));
        QTRY_COMPARE(answered, 0);

        // Any alert's long text moves under the details.
        AlertRequest other;
        other.message = u"Something"_s;
        other.informativeText = u"line\n"_s.repeated(50);
        const AlertRequest fitted = WidgetInteraction::fitted(other);
        QCOMPARE(fitted.informativeText, u"line"_s);
        QVERIFY(fitted.detailedText.startsWith(u"line\nline"_s));
    }

    // What the window said about one site (a run, a connection test) goes
    // when another site is chosen, and a test's answer that comes after the
    // switch is not shown for the new site. The sentence is cut only between
    // words, and its tool tip keeps curl's text whatever the width.
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
        ElidedLabel* label = window.connectionLabel();
        QVERIFY(label->isVisible());
        QVERIFY2(label->fullText().contains(u"Nothing answers at 127.0.0.1"_s),
                 qPrintable(label->fullText()));
        for (const int width : {700, 560, 430, 330}) {
            window.resize(width + 300, 560);
            QTRY_VERIFY(label->width() > 0 && label->width() < width + 300);
            const QString shown = label->shownText();
            QVERIFY(!shown.isEmpty());
            if (label->isElided()) {
                const QString start = shown.chopped(1);
                QVERIFY2(label->fullText().startsWith(start) && label->fullText().at(start.size()) == u' ',
                         qPrintable(shown));
            }
            QVERIFY2(label->toolTip().contains(u"(7)"_s), qPrintable(label->toolTip()));
        }
        RunSummary summary;
        summary.total = 4;
        summary.done = 1;
        emit window.controller().deploymentEnded(DeployOutcome::Failed, QString(), summary);
        QVERIFY(window.runResultLabel()->isVisible());

        list->setCurrentIndex(list->model()->index(1, 0));
        QCOMPARE(window.controller().currentSite->name, u"Second"_s);
        QVERIFY(!window.connectionLabel()->isVisible());
        QVERIFY(!window.runResultLabel()->isVisible());

        // A test of Second answers after First is back.
        window.testConnection();
        list->setCurrentIndex(list->model()->index(0, 0));
        QTRY_VERIFY_WITH_TIMEOUT(openAlert(), 20000);
        QCOMPARE(openAlert()->text(), u"The connection test of \u201cSecond\u201d failed"_s);
        QVERIFY(clickAlertButton(u"OK"_s));
        QVERIFY(!window.connectionLabel()->isVisible());
    }

    // Deploy waits for the branch; the placeholder names both branches and
    // offers the settings; a missing folder can be chosen again.
    void placeholdersOfferTheFix() {
        test::GitRepository repo;
        repo.commit({{u"index.html"_s, "a"}}, u"one"_s);
        repo.git({u"checkout"_s, u"-q"_s, u"-b"_s, u"draft"_s});
        SiteListActions::add(siteFor(repo.path(), u"Blog"_s));
        SiteListActions::add(siteFor(repo.path() + u"/gone"_s, u"Lost"_s));
        test::LoadedWindow window;
        QTRY_VERIFY(window.placeholder()->checkOutButton()->isVisible());
        QVERIFY(!window.deployButton()->isEnabled());
        QCOMPARE(window.deployButton()->toolTip(), describe(DeployReadiness::OtherBranch));
        QTRY_VERIFY(window.placeholder()->hintView()->isVisible());
        QCOMPARE(window.placeholder()->hintView()->text(),
                 u"The branch \u201cdraft\u201d is checked out; this site deploys \u201cmain\u201d."_s);
        QVERIFY(window.placeholder()->settingsButton()->isVisible());
        QVERIFY(!window.placeholder()->chooseFolderButton()->isVisible());

        window.sidebar()->listView()->setCurrentIndex(window.sidebar()->model()->index(1, 0));
        QTRY_VERIFY(window.placeholder()->chooseFolderButton()->isVisible());
        QVERIFY(window.placeholder()->hintView()->text().contains(repo.path() + u"/gone"_s));
        QVERIFY(!window.deployButton()->isEnabled());
    }

    // The title and header name the site; a long name is cut with the whole
    // name in the tool tip and never widens the window; size, position and
    // splitter come back at the next start; the menus sit where Linux
    // users look.
    void aDesktopCitizen() {
        test::GitRepository repo;
        repo.commit({{u"index.html"_s, "a"}}, u"one"_s);
        const QString longName =
            u"The very long name of a site that a person gave it "_s.repeated(4).trimmed();
        SiteListActions::add(siteFor(repo.path(), longName));
        {
            test::LoadedWindow window;
            QCOMPARE(window.windowTitle(), longName + u" \u2014 Tarnwell"_s);
            window.resize(760, 520);
            QTRY_VERIFY(window.siteLabel()->isElided());
            QVERIFY(window.siteLabel()->toolTip().startsWith(longName));
            QVERIFY(window.siteLabel()->shownText().endsWith(u"\u2026"_s));
            QVERIFY(window.minimumSizeHint().width() < 760);
            window.splitter()->setSizes({300, 460});
            window.move(40, 30);
            QTRY_COMPARE(window.pos(), QPoint(40, 30));
            QCOMPARE(window.action(u"quit"_s)->shortcut(), QKeySequence(u"Ctrl+Q"_s));
            QStringList menus;
            for (QAction* menu : window.menuBar()->actions())
                menus.append(menu->text().remove(u'&'));
            QCOMPARE(menus, (QStringList{u"Site"_s, u"Edit"_s, u"Deploy"_s, u"View"_s, u"Help"_s}));
            QCOMPARE(window.menuBar()->actions().at(1)->menu()->actions().first(),
                     window.action(u"preferences"_s));
            QVERIFY(window.action(u"documentation"_s));
            QVERIFY(window.action(u"about"_s));
            window.close();
        }
        test::LoadedWindow again;
        QCOMPARE(again.size(), QSize(760, 520));
        QCOMPARE(again.pos(), QPoint(40, 30));
        QCOMPARE(again.splitter()->sizes().first(), 300);

        // The sidebar hidden stays hidden at the next start, and comes back.
        again.sidebar()->toggleAction()->trigger();
        QVERIFY(!again.sidebar()->isVisible());
        again.close();
        test::LoadedWindow third;
        QVERIFY(!third.sidebar()->isVisible());
        QCOMPARE(third.sidebar()->toggleAction()->text(), u"Show Sites"_s);
        third.sidebar()->toggleAction()->trigger();
        QVERIFY(third.sidebar()->isVisible());
    }

    // Tab visits the site list, its buttons, the filter, the file list and
    // Deploy, one stop each; Delete in the site list asks first, with
    // Cancel the default.
    void keyboardAlone() {
        test::GitRepository repo;
        repo.commit({{u"index.html"_s, "a"}, {u"about.html"_s, "b"}}, u"one"_s);
        SiteListActions::add(siteFor(repo.path(), u"Blog"_s));
        test::LoadedWindow window;
        QApplication::setActiveWindow(&window);
        window.sidebar()->listView()->setFocus();
        QList<QWidget*> stops{QApplication::focusWidget()};
        for (int i = 0; i < 7; ++i) {
            QTest::keyClick(QApplication::focusWidget(), Qt::Key_Tab);
            stops.append(QApplication::focusWidget());
        }
        QCOMPARE(stops.count(window.filePanel()->tableView()), 1);
        QVERIFY(stops.contains(window.filePanel()->filterField()));
        QVERIFY(stops.contains(window.deployButton()));
        // The focused row shows.
        QVERIFY(window.filePanel()->tableView()->currentIndex().isValid());

        // The question is modal: it is answered from the event loop.
        QString defaultButton;
        test::answerLater([&](QMessageBox* box) {
            defaultButton = box->defaultButton()->text();
            QTest::keyClick(box, Qt::Key_Return);
        });
        window.sidebar()->listView()->setFocus();
        QTest::keyClick(window.sidebar()->listView(), Qt::Key_Delete);
        QCOMPARE(defaultButton, u"Cancel"_s);
        QCOMPARE(Sites().total(), 1);
        test::answerLater([](QMessageBox*) { clickAlertButton(u"Delete"_s); });
        QApplication::setActiveWindow(&window);
        window.sidebar()->listView()->setFocus();
        QTest::keyClick(window.sidebar()->listView(), Qt::Key_Delete);
        QTRY_COMPARE(Sites().total(), 0);
    }

    // A second start finds the first and asks it to come to the front. A
    // socket nobody answers on is taken over; one that cannot be listened on
    // is no reason to stay away: the window opens all the same.
    void secondStartRaisesTheFirst() {
        QVERIFY(SingleInstance::defaultName().startsWith(qEnvironmentVariable("XDG_RUNTIME_DIR") + u"/"_s));
        QTemporaryDir folder;
        const QString name = folder.filePath(u"instance.socket"_s);
        SingleInstance first(name);
        QCOMPARE(first.claim(), SingleInstance::Claim::Listening);
        QSignalSpy raised(&first, &SingleInstance::activationRequested);
        SingleInstance second(name);
        QCOMPARE(second.claim(), SingleInstance::Claim::AnotherAnswered);
        QTRY_COMPARE(raised.count(), 1);

        const QString stale = folder.filePath(u"stale.socket"_s);
        QFile file(stale);
        QVERIFY(file.open(QIODevice::WriteOnly));
        file.close();
        SingleInstance afterACrash(stale);
        QCOMPARE(afterACrash.claim(), SingleInstance::Claim::Listening);

        SingleInstance nowhere(folder.filePath(u"missing/instance.socket"_s));
        QCOMPARE(nowhere.claim(), SingleInstance::Claim::Unavailable);
        QVERIFY(!nowhere.errorString().isEmpty());
    }

    // The application itself: with its socket's place taken by something it
    // cannot remove, it still opens its window instead of quitting quietly.
    void startsWhenItCannotListen() {
        QTemporaryDir runtime;
        QVERIFY(
            QFile::setPermissions(runtime.path(), QFile::ReadOwner | QFile::WriteOwner | QFile::ExeOwner));
        // A folder where the socket goes: no start can remove it or listen there.
        QVERIFY(QDir().mkpath(runtime.filePath(u"dev.tarnwell.Tarnwell.socket"_s)));
        QProcessEnvironment environment = QProcessEnvironment::systemEnvironment();
        environment.insert(u"XDG_RUNTIME_DIR"_s, runtime.path());
        environment.insert(u"ASAN_OPTIONS"_s, u"detect_leaks=0"_s);
        QProcess app;
        app.setProcessEnvironment(environment);
        app.setProcessChannelMode(QProcess::MergedChannels);
        app.start(test::TestEnvironment::binaryDirectory() + u"/bin/tarnwell"_s, QStringList());
        QVERIFY(app.waitForStarted(10000));
        QByteArray output;
        QTRY_VERIFY_WITH_TIMEOUT((output += app.readAll()).contains("could not listen"), 30000);
        QVERIFY2(!app.waitForFinished(2000), output.constData());
        QCOMPARE(app.state(), QProcess::Running);
        app.kill();
        app.waitForFinished();
    }
};

QTEST_MAIN(TestMainWindow)
#include "tst_mainwindow.moc"
