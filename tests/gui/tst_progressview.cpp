#include "ProgressViewController.h"
#include "TestEnvironment.h"
#include "deploy/NotificationHub.h"

#include <QLabel>
#include <QMainWindow>
#include <QProcess>
#include <QProgressBar>
#include <QPushButton>
#include <QSignalSpy>
#include <QTest>
#include <QThread>

#include <cmath>
#include <limits>

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

    void startsIndeterminateAsASheet() {
        std::unique_ptr<ProgressViewController> sheet(presentSheet());
        QVERIFY(sheet->isPresented());
        QCOMPARE(sheet->windowModality(), Qt::WindowModal);
        QCOMPARE(sheet->lastUpdate(), 1000.0);
        // The switch happens on the event loop, after the sheet is up.
        QTRY_VERIFY(showsIndeterminate(*sheet));
        QCOMPARE(sheet->stallTimerInterval(), 20);
        QCOMPARE(ProgressViewController().stallTimerInterval(), 3000);
        QCOMPARE(ProgressViewController().stallThreshold(), 5.0);
    }

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

    void barFollowsRemainingStatus_data() {
        QTest::addColumn<quint64>("remaining");
        QTest::addColumn<quint64>("total");
        QTest::addColumn<double>("value");
        QTest::addColumn<int>("bar");
        QTest::newRow("start") << quint64(10) << quint64(10) << 0.0 << 0;
        QTest::newRow("a third") << quint64(2) << quint64(3) << (1.0 - 2.0 / 3.0) * 100 << 33;
        QTest::newRow("done") << quint64(0) << quint64(7) << 100.0 << 100;
        // Unchecked rows count in the total, so more can remain than exists.
        QTest::newRow("more remaining than total") << quint64(9) << quint64(3) << -200.0 << 0;
    }
    void barFollowsRemainingStatus() {
        QFETCH(quint64, remaining);
        QFETCH(quint64, total);
        QFETCH(double, value);
        QFETCH(int, bar);
        std::unique_ptr<ProgressViewController> sheet(presentSheet());
        QTRY_VERIFY(showsIndeterminate(*sheet));
        QSignalSpy values(sheet.get(), &ProgressViewController::progressValueChanged);
        NotificationHub::instance().postRemainingStatus(remaining, total);
        QCOMPARE(values.size(), 1);
        QCOMPARE(sheet->progressValue(), value);
        QCOMPARE(sheet->property("progressValue").toDouble(), value);
        QCOMPARE(sheet->progressBar()->value(), bar);
    }

    // A total of 0 gives the bar a value that is not a number (0/0) or
    // infinite (n/0), unchanged; the visible bar stays within its range.
    void zeroTotalPassesItsValueThrough() {
        std::unique_ptr<ProgressViewController> sheet(presentSheet());
        QTRY_VERIFY(showsIndeterminate(*sheet));
        NotificationHub::instance().postRemainingStatus(0, 0);
        QVERIFY(std::isnan(sheet->progressValue()));
        QCOMPARE(sheet->progressBar()->value(), 0);
        NotificationHub::instance().postRemainingStatus(3, 0);
        QVERIFY(std::isinf(sheet->progressValue()));
        QVERIFY(sheet->progressValue() < 0);
        QCOMPARE(sheet->progressBar()->value(), 0);

        QCOMPARE(ProgressViewController::clampedBarValue(std::numeric_limits<double>::infinity(), 0, 100),
                 100);
        QCOMPARE(ProgressViewController::clampedBarValue(std::numeric_limits<double>::quiet_NaN(), 0, 100),
                 0);
        QCOMPARE(ProgressViewController::clampedBarValue(10000, 0, 100), 100);
        QCOMPARE(ProgressViewController::clampedBarValue(49.6, 0, 100), 50);
    }

    void parsesWholeTextsOnly_data() {
        QTest::addColumn<QString>("text");
        QTest::addColumn<bool>("ok");
        QTest::addColumn<double>("value");
        QTest::newRow("count") << u"42"_s << true << 42.0;
        QTest::newRow("decimal") << u"2.5"_s << true << 2.5;
        QTest::newRow("exponent") << u"1e3"_s << true << 1000.0;
        QTest::newRow("empty") << QString() << false << 0.0;
        QTest::newRow("leading blank") << u" 42"_s << false << 0.0;
        QTest::newRow("leading tab") << u"\t42"_s << false << 0.0;
        QTest::newRow("trailing blank") << u"42 "_s << false << 0.0;
        QTest::newRow("trailing letters") << u"42files"_s << false << 0.0;
        QTest::newRow("decimal comma") << u"2,5"_s << false << 0.0;
        QTest::newRow("words") << u"many"_s << false << 0.0;
    }
    void parsesWholeTextsOnly() {
        QFETCH(QString, text);
        QFETCH(bool, ok);
        QFETCH(double, value);
        const std::optional<double> parsed = ProgressViewController::parseDouble(text);
        QCOMPARE(parsed.has_value(), ok);
        if (ok)
            QCOMPARE(*parsed, value);
    }

    void indeterminateWhateverTheArgument() {
        std::unique_ptr<ProgressViewController> sheet(presentSheet());
        QTRY_VERIFY(showsIndeterminate(*sheet));
        NotificationHub::instance().postRemainingStatus(1, 2);
        QVERIFY(showsDeterminate(*sheet));
        sheet->setIsIndeterminate(false);
        QVERIFY(showsIndeterminate(*sheet));
        sheet->setTextLabel(u"Running local post-scripts\u2026"_s);
        QCOMPARE(sheet->textField()->text(), u"Running local post-scripts\u2026"_s);
    }

    // Reports from another thread reach the views on the main thread.
    void reportsFromAWorkerThread() {
        std::unique_ptr<ProgressViewController> sheet(presentSheet());
        QTRY_VERIFY(showsIndeterminate(*sheet));
        QThread* worker = QThread::create([] {
            NotificationHub::instance().postCurrentFile(u"img/logo.png"_s);
            NotificationHub::instance().postRemainingStatus(1, 2);
        });
        worker->start();
        QVERIFY(worker->wait(5000));
        delete worker;
        QTRY_COMPARE(sheet->currentFileTextField()->text(), u"img/logo.png"_s);
        QTRY_COMPARE(sheet->progressValue(), 50.0);
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

    // A report without its values, or with a value that is no number, is a
    // programming error that stops the program. Checked in a child run of
    // this test program, which makes the bad report itself.
    void malformedReportsAreFatal_data() {
        QTest::addColumn<QString>("report");
        QTest::addColumn<QString>("message");
        QTest::newRow("no total") << u"noTotal"_s << u"has no value \"total\""_s;
        QTest::newRow("trailing text") << u"trailing"_s << u"\"4 files\" is not a number"_s;
        QTest::newRow("no current file") << u"noFile"_s << u"has no value \"currentFile\""_s;
    }
    void malformedReportsAreFatal() {
        QFETCH(QString, report);
        QFETCH(QString, message);
        const QString child = qEnvironmentVariable("TW_PROGRESS_FATAL_CHILD");
        if (!child.isEmpty()) {
            if (child != report)
                QSKIP("another report");
            std::unique_ptr<ProgressViewController> sheet(presentSheet());
            if (report == u"noTotal")
                emit NotificationHub::instance().remainingStatus({{u"remaining"_s, u"1"_s}});
            else if (report == u"trailing")
                emit NotificationHub::instance().remainingStatus(
                    {{u"remaining"_s, u"1"_s}, {u"total"_s, u"4 files"_s}});
            else
                emit NotificationHub::instance().currentFile({{u"file"_s, u"a"_s}});
            QFAIL("the report was taken");
        }
        QProcess process;
        QProcessEnvironment environment = QProcessEnvironment::systemEnvironment();
        environment.insert(u"TW_PROGRESS_FATAL_CHILD"_s, report);
        environment.insert(u"ASAN_OPTIONS"_s, u"detect_leaks=0:handle_abort=0"_s);
        environment.insert(u"QTEST_DISABLE_STACK_DUMP"_s, u"1"_s);
        environment.insert(u"QTEST_DISABLE_CORE_DUMP"_s, u"1"_s);
        process.setProcessEnvironment(environment);
        process.start(QCoreApplication::applicationFilePath(), {u"malformedReportsAreFatal"_s});
        QVERIFY(process.waitForFinished(60000));
        const QString errors =
            QString::fromUtf8(process.readAllStandardError() + process.readAllStandardOutput());
        QVERIFY2(process.exitStatus() == QProcess::CrashExit || process.exitCode() != 0, qPrintable(errors));
        QVERIFY2(errors.contains(message), qPrintable(errors));
        QVERIFY2(!errors.contains(u"the report was taken"_s), qPrintable(errors));
    }

    // A sheet that is gone no longer listens.
    void teardownStopsObserving() {
        ProgressViewController* sheet = presentSheet();
        delete sheet;
        NotificationHub::instance().postRemainingStatus(1, 2);
        NotificationHub::instance().postCurrentFile(u"x"_s);
        NotificationHub::instance().postUploadComplete();
        QVERIFY(true);
    }
};

QTEST_MAIN(TestProgressView)
#include "tst_progressview.moc"
