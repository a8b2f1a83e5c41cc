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

// The sheet shows the bar of the files, not the indeterminate one.
bool showsDeterminate(const ProgressViewController& sheet) {
    return !sheet.progressBar()->isHidden() && sheet.preProgressBar()->isHidden();
}

const QString waiting = u"Waiting for server to respond\u2026"_s;

} // namespace

// The progress sheet of a deployment against the notifications the deploy
// controller posts.
class TestProgressView : public QObject {
    Q_OBJECT

    QMainWindow m_window;
    double m_now = 1000.0;

    ProgressViewController* presentSheet() {
        auto* sheet = new ProgressViewController(&m_window);
        sheet->setAttribute(Qt::WA_DeleteOnClose, false);
        sheet->setClock([this] { return m_now; });
        sheet->setStallTimerInterval(20);
        sheet->present();
        return sheet;
    }

private slots:
    void initTestCase() {
        test::TestEnvironment::isolate();
        m_window.resize(600, 400);
        m_window.show();
    }
    void init() { m_now = 1000.0; }

    // No progress for more than five seconds: the next tick shows the
    // notice; the next progress brings the bar back.
    void stallNotice() {
        std::unique_ptr<ProgressViewController> sheet(presentSheet());
        QTRY_VERIFY(!showsDeterminate(*sheet));
        NotificationHub::instance().postRemainingStatus(3, 4);
        NotificationHub::instance().postCurrentFile(u"css/site.css"_s);
        QVERIFY(showsDeterminate(*sheet));
        m_now += 5.01;
        QTRY_COMPARE(sheet->currentFileTextField()->text(), waiting);
        QVERIFY(!showsDeterminate(*sheet));
        // A current-file report is no progress: the notice comes back.
        NotificationHub::instance().postCurrentFile(u"index.html"_s);
        QTRY_COMPARE(sheet->currentFileTextField()->text(), waiting);
        NotificationHub::instance().postRemainingStatus(1, 4);
        QVERIFY(showsDeterminate(*sheet));
    }

    // The count of files moves the bar one file at a time, whatever a late
    // remaining-files notice says; the finish fills it and closes the sheet.
    void countOfFilesDrivesTheBar() {
        std::unique_ptr<ProgressViewController> sheet(presentSheet());
        for (int done = 0; done <= 4; ++done) {
            sheet->setFileCount(done, 4);
            QCOMPARE(sheet->countLabel()->text(), u"%1 of 4 files \u00b7 %2 %"_s.arg(done).arg(done * 25));
            QCOMPARE(sheet->progressBar()->value(), done * 25);
        }
        NotificationHub::instance().postRemainingStatus(3, 4);
        QCOMPARE(sheet->progressBar()->value(), 100);
        NotificationHub::instance().postUploadComplete();
        QVERIFY(!sheet->isPresented());
        sheet->present();
        QCOMPARE(sheet->countLabel()->text(), u"Preparing\u2026"_s);
    }

    // After a run the window says how many files reached the server, whether
    // the record was written and how many unchecked files wait.
    void messagesAfterARun() {
        RunSummary summary;
        summary.total = 10;
        summary.done = 3;
        QCOMPARE(RunMessages::afterRun(DeployOutcome::Aborted, summary),
                 u"Deployment aborted. 3 of 10 files reached the server. The deployment record was not "
                 "written: the next deployment sends these files again."_s);
        summary.done = 10;
        summary.recordWritten = true;
        summary.waiting = 2;
        QCOMPARE(RunMessages::afterRun(DeployOutcome::Deployed, summary),
                 u"Deployed: 10 files reached the server. 2 unchecked files wait for a later deployment."_s);
    }

    // Abort and closing the sheet abort; Escape does nothing.
    void abortTellsTheDelegateAndCloses() {
        AbortCounter delegate;
        std::unique_ptr<ProgressViewController> sheet(presentSheet());
        sheet->setDelegate(&delegate);
        QTest::mouseClick(sheet->abortButton(), Qt::LeftButton);
        QVERIFY(!sheet->isPresented());
        sheet->present();
        QTest::keyClick(sheet.get(), Qt::Key_Escape);
        QVERIFY(sheet->isPresented());
        QVERIFY(sheet->close());
        QCOMPARE(delegate.aborts, 2);
    }
};

QTEST_MAIN(TestProgressView)
#include "tst_progressview.moc"
