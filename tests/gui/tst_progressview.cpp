#include "ProgressViewController.h"
#include "RunMessages.h"
#include "TestEnvironment.h"
#include "deploy/NotificationHub.h"

#include <QLabel>
#include <QMainWindow>
#include <QProgressBar>
#include <QPushButton>
#include <QTest>

using namespace tw;
using namespace Qt::StringLiterals;

namespace {

class AbortCounter : public ProgressViewDelegate {
public:
    int aborts = 0;
    void abortDeploy() override { ++aborts; }
};

// What the sheet shows, in one word per bar.
bool showsDeterminate(const ProgressViewController& sheet) {
    return !sheet.progressBar()->isHidden() && sheet.preProgressBar()->isHidden();
}
bool showsIndeterminate(const ProgressViewController& sheet) {
    return sheet.progressBar()->isHidden() && !sheet.preProgressBar()->isHidden();
}

const QString waiting = u"Waiting for server to respond\u2026"_s;

} // namespace

// The progress sheet of a deployment against the notifications the deploy
// controller posts.
class TestProgressView : public QObject {
    Q_OBJECT

    QMainWindow* m_window = nullptr;
    double m_now = 1000.0;

    ProgressViewController* presentSheet() {
        auto* sheet = new ProgressViewController(m_window);
        sheet->setAttribute(Qt::WA_DeleteOnClose, false);
        sheet->setClock([this] { return m_now; });
        sheet->setStallTimerInterval(20);
        sheet->present();
        return sheet;
    }

private slots:
    void initTestCase() {
        test::TestEnvironment::isolate();
        m_window = new QMainWindow;
        m_window->resize(600, 400);
        m_window->show();
    }
    void cleanupTestCase() { delete m_window; }
    void init() { m_now = 1000.0; }

    // No progress for more than five seconds: the next tick shows the notice;
    // five seconds exactly are not enough. The next progress brings the bar
    // back.
    void stallNoticeAtTheFirstTickAfterFiveSeconds() {
        std::unique_ptr<ProgressViewController> sheet(presentSheet());
        QTRY_VERIFY(showsIndeterminate(*sheet));
        NotificationHub::instance().postRemainingStatus(3, 4);
        QVERIFY(showsDeterminate(*sheet));
        QCOMPARE(sheet->textField()->text(), u"Deploying files..."_s);
        NotificationHub::instance().postCurrentFile(u"css/site.css"_s);

        m_now += 5.0;
        const int ticks = sheet->timerTicks();
        QTRY_VERIFY(sheet->timerTicks() >= ticks + 3);
        QVERIFY(showsDeterminate(*sheet));
        QCOMPARE(sheet->currentFileTextField()->text(), u"css/site.css"_s);

        m_now += 0.01;
        QTRY_COMPARE(sheet->currentFileTextField()->text(), waiting);
        QVERIFY(showsIndeterminate(*sheet));
        QCOMPARE(sheet->textField()->text(), u"Deploying..."_s);

        // A current-file report is no progress: the notice comes back.
        NotificationHub::instance().postCurrentFile(u"index.html"_s);
        QTRY_COMPARE(sheet->currentFileTextField()->text(), waiting);

        NotificationHub::instance().postRemainingStatus(1, 4);
        QVERIFY(showsDeterminate(*sheet));
        QCOMPARE(sheet->lastUpdate(), m_now);
        QCOMPARE(sheet->progressValue(), 75.0);
    }

    void uploadCompleteFillsTheBarAndCloses() {
        std::unique_ptr<ProgressViewController> sheet(presentSheet());
        QTRY_VERIFY(showsIndeterminate(*sheet));
        NotificationHub::instance().postRemainingStatus(1, 2);
        NotificationHub::instance().postCurrentFile(u"a.html"_s);
        NotificationHub::instance().postUploadComplete();
        QCOMPARE(sheet->progressValue(), 10000.0);
        QCOMPARE(sheet->progressBar()->value(), 100);
        QVERIFY(sheet->currentFileTextField()->text().isEmpty());
        QVERIFY(!sheet->isPresented());
        // A closed sheet takes a second finish without harm.
        sheet->deployFinished();
        QVERIFY(!sheet->isPresented());
    }

    // The count of files moves the bar one file at a time, and the bar and
    // the count agree whatever the remaining-files notice says.
    void countOfFilesDrivesTheBar() {
        std::unique_ptr<ProgressViewController> sheet(presentSheet());
        QCOMPARE(sheet->countLabel()->text(), u"Preparing\u2026"_s);
        sheet->setFileCount(0, 4);
        QCOMPARE(sheet->countLabel()->text(), u"0 of 4 files \u00b7 0 %"_s);
        QCOMPARE(sheet->progressBar()->value(), 0);
        for (int done = 1; done <= 4; ++done) {
            sheet->setFileCount(done, 4);
            QVERIFY(showsDeterminate(*sheet));
            QCOMPARE(sheet->progressBar()->value(), done * 25);
        }
        QCOMPARE(sheet->countLabel()->text(), u"4 of 4 files \u00b7 100 %"_s);
        // A late notice counting otherwise leaves the bar with the files.
        sheet->setFileCount(1, 4);
        NotificationHub::instance().postRemainingStatus(3, 4);
        QCOMPARE(sheet->progressValue(), 25.0);
        sheet->setFileCount(4, 4);
        NotificationHub::instance().postRemainingStatus(3, 4);
        QCOMPARE(sheet->progressBar()->value(), 100);
        // A new run starts from nothing.
        sheet->deployFinished();
        sheet->present();
        QCOMPARE(sheet->countLabel()->text(), u"Preparing\u2026"_s);
    }

    // What the window says after a run.
    void messagesAfterARun() {
        RunSummary summary;
        summary.total = 10;
        summary.done = 3;
        QCOMPARE(RunMessages::afterRun(DeployOutcome::Aborted, summary),
                 u"Deployment aborted. 3 of 10 files reached the server. The deployment record was not "
                 "written: the next deployment sends these files again."_s);
        summary.done = 0;
        QVERIFY(
            RunMessages::afterRun(DeployOutcome::Failed, summary).contains(u"No file reached the server."_s));
        summary.done = 10;
        summary.recordWritten = true;
        summary.waiting = 2;
        const QString deployed = RunMessages::afterRun(DeployOutcome::Deployed, summary);
        QCOMPARE(deployed,
                 u"Deployed: 10 files reached the server. 2 unchecked files wait for a later deployment."_s);
        QVERIFY(!deployed.contains(u"Good work"_s));
        summary.total = 1;
        summary.waiting = 1;
        QCOMPARE(RunMessages::afterRun(DeployOutcome::Deployed, summary),
                 u"Deployed: 1 file reached the server. 1 unchecked file waits for a later deployment."_s);
        QVERIFY(RunMessages::afterRun(DeployOutcome::Cancelled, summary).isEmpty());
    }

    void abortTellsTheDelegateAndCloses() {
        AbortCounter delegate;
        std::unique_ptr<ProgressViewController> sheet(presentSheet());
        sheet->setDelegate(&delegate);
        QTest::mouseClick(sheet->abortButton(), Qt::LeftButton);
        QCOMPARE(delegate.aborts, 1);
        QVERIFY(!sheet->isPresented());

        // Without a delegate (the controller is gone) the sheet still closes.
        std::unique_ptr<ProgressViewController> second(presentSheet());
        second->abortButtonPressed();
        QVERIFY(!second->isPresented());

        // Closing the window is an abort, Escape is nothing.
        std::unique_ptr<ProgressViewController> third(presentSheet());
        third->setDelegate(&delegate);
        QTest::keyClick(third.get(), Qt::Key_Escape);
        QVERIFY(third->isPresented());
        // Accepted, so quitting the application is not held up.
        QVERIFY(third->close());
        QCOMPARE(delegate.aborts, 2);
        QVERIFY(!third->isPresented());
    }
};

QTEST_MAIN(TestProgressView)
#include "tst_progressview.moc"
