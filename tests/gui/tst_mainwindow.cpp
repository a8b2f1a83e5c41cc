#include "EmptyTablePlaceholder.h"
#include "FileListPanel.h"
#include "FtpServer.h"
#include "GitRepository.h"
#include "MainWindow.h"
#include "ProgressViewController.h"
#include "ServerProcess.h"
#include "SitesSidebar.h"
#include "TestEnvironment.h"
#include "app/Preferences.h"
#include "deploy/ViewController.h"
#include "keychain/TWPasswords.h"
#include "model/SiteListActions.h"
#include "model/Sites.h"

#include <QAbstractButton>
#include <QApplication>
#include <QLabel>
#include <QListView>
#include <QMessageBox>
#include <QPushButton>
#include <QSignalSpy>
#include <QTableView>
#include <QTest>

using namespace tw;
using namespace Qt::StringLiterals;

namespace {

// The alert box that is open now, if any.
QMessageBox* openAlert() {
    for (QWidget* widget : QApplication::topLevelWidgets()) {
        if (auto* box = qobject_cast<QMessageBox*>(widget); box && box->isVisible())
            return box;
    }
    return nullptr;
}

bool clickAlertButton(const QString& text) {
    QMessageBox* box = openAlert();
    if (!box)
        return false;
    for (QAbstractButton* button : box->buttons()) {
        if (button->text() == text) {
            button->click();
            return true;
        }
    }
    return false;
}

SitePtr siteFor(const QString& folder, const QString& name) {
    SitePtr site = Site::newSite();
    site->name = name;
    site->localPath = folder;
    site->host = u"127.0.0.1"_s;
    site->username = u"user"_s;
    site->deployBranch = u"main"_s;
    return site;
}

} // namespace

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
        MainWindow window;
        window.show();
        window.load();
        QVERIFY(!window.isShowingFiles());
        QVERIFY(window.placeholder()->addSiteButton()->isVisible());
        QVERIFY(!window.placeholder()->textView()->isVisible());
        QVERIFY(!window.deployButton()->isEnabled());
        QVERIFY(!window.action(u"editSite"_s)->isEnabled());
        QVERIFY(window.lastDeploymentLabel()->text().startsWith(u"Add a site"_s));
    }

    void listsTheSelectedSite() {
        test::GitRepository first, second;
        first.write(u"index.html"_s, "a");
        first.write(u"css/site.css"_s, "b");
        first.commitAll(u"one"_s);
        second.write(u"only.txt"_s, "c");
        second.commitAll(u"one"_s);
        SiteListActions::add(siteFor(first.path(), u"First"_s));
        SiteListActions::add(siteFor(second.path(), u"Second"_s));

        MainWindow window;
        window.show();
        window.load();
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
        QVERIFY(window.warningLabel()->text().contains(u"uncommitted"_s));
    }

    void checkingOutTheDeployBranch() {
        test::GitRepository repo;
        repo.write(u"index.html"_s, "a");
        repo.commitAll(u"one"_s);
        repo.git({u"checkout"_s, u"-q"_s, u"-b"_s, u"draft"_s});
        SiteListActions::add(siteFor(repo.path(), u"Blog"_s));

        MainWindow window;
        window.show();
        window.load();
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
        repo.write(u"index.html"_s, "hello");
        repo.commitAll(u"one"_s);
        SitePtr site = siteFor(repo.path(), u"Blog"_s);
        site->port = QString::number(ftp.port());
        site->username = test::FtpServer::userName();
        TWPasswords::setPassword(test::FtpServer::password(), site->siteId());
        SiteListActions::add(site);
        QVERIFY(ftp.writeFile(u".tarnwell"_s, "abc1234,100.0,other"));

        MainWindow window;
        window.show();
        window.load();
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
};

QTEST_MAIN(TestMainWindow)
#include "tst_mainwindow.moc"
