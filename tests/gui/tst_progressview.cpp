#include "ProgressViewController.h"
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
