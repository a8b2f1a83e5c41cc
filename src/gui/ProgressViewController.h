#pragma once

#include "deploy/ProgressView.h"

#include <QDialog>
#include <QPointer>
#include <QString>
#include <QVariantMap>

#include <atomic>
#include <functional>
#include <optional>

class QLabel;
class QProgressBar;
class QPushButton;
class QTimer;

namespace tw {

// The sheet shown over the main window while a deployment runs: the stage
// text, a determinate bar (the share of files done), an indeterminate bar
// (while nothing can be measured), the file being sent and the abort button.
// It listens to the deployment's notifications on its own ("remainingStatus",
// "currentFile", "uploadComplete") and shows a stall notice when no progress
// came for a while.
//
// The sheet is window-modal over its parent. present() shows it and starts
// it (viewDidLoad); deployFinished() and the abort button close it.
class ProgressViewController : public QDialog, public ProgressView {
    Q_OBJECT
    Q_PROPERTY(double progressValue READ progressValue NOTIFY progressValueChanged)

public:
    // The clock answers absolute time in seconds.
    using Clock = std::function<double()>;

    explicit ProgressViewController(QWidget* parent = nullptr);
    ~ProgressViewController() override;

    // The names of the three notifications the sheet observes.
    const QString uploadComplete = QStringLiteral("uploadComplete");
    const QString remaining = QStringLiteral("remainingStatus");
    const QString currentFile = QStringLiteral("currentFile");

    // Shows the sheet (window-modal, not blocking) and starts it.
    void present();
    bool isPresented() const;

    // Sheet start: the indeterminate bar, the stall timer and the observers.
    void viewDidLoad();

    // ProgressView
    void setTextLabel(const QString& text) override;
    void setIsIndeterminate(bool indeterminate) override;
    void deployFinished() override;
    void setDelegate(ProgressViewDelegate* delegate) override;
    ProgressViewDelegate* delegate() const { return m_delegate; }

    // The observers of the notifications; the userInfo as posted.
    void updateProgress(const QVariantMap& userInfo);
    void updateCurrentFile(const QVariantMap& userInfo);
    // The stall check of the timer.
    void runTimedCode();
    void abortButtonPressed();

    // The bar's value as computed, (1 - remaining / total) × 100: not a
    // number or infinite when total is 0. The visible bar shows it clamped.
    double progressValue() const { return m_progressValue; }
    double lastUpdate() const { return m_lastUpdate.load(); }

    // The parts of the sheet.
    QLabel* textField() const { return m_textField; }
    QProgressBar* progressBar() const { return m_progressBar; }
    QProgressBar* preProgressBar() const { return m_preProgressBar; }
    QLabel* currentFileTextField() const { return m_currentFileTextField; }
    // "3 of 10 files · 30 %", from the run's count of files done.
    QLabel* countLabel() const { return m_countLabel; }

    // Files the run has sent and the number it is to send (the deploy
    // controller's progressChanged). Once a count is known the bar follows
    // it, so the bar and the rows' statuses agree.
    void setFileCount(qsizetype done, qsizetype total);
    QPushButton* abortButton() const { return m_abortButton; }

    // For tests: the clock (seconds), the stall timer's interval and the
    // time without progress after which the stall notice shows. Set before
    // viewDidLoad.
    void setClock(Clock clock) { m_clock = std::move(clock); }
    void setStallTimerInterval(int milliseconds);
    void setStallThreshold(double seconds) { m_stallThreshold = seconds; }
    int stallTimerInterval() const;
    double stallThreshold() const { return m_stallThreshold; }
    // How often the stall timer fired.
    int timerTicks() const { return m_timerTicks; }

    // A whole text as a number in the C locale's form; nothing for an empty
    // text, leading white space or trailing characters.
    static std::optional<double> parseDouble(const QString& text);
    // The bar's integer value for a computed one (not a number: the minimum).
    static int clampedBarValue(double value, int minimum, int maximum);

    static constexpr int defaultStallTimerInterval = 3000;
    static constexpr double defaultStallThreshold = 5.0;

signals:
    void progressValueChanged(double value);

protected:
    void closeEvent(QCloseEvent* event) override;
    void reject() override;

private:
    // Runs the work now when on the main thread, else queued to it.
    void onMainQueue(std::function<void()> work);
    void showDeterminate(bool determinate);
    void setProgressValue(double value);
    void dismiss();
    double now() const;

    QLabel* m_textField = nullptr;
    QProgressBar* m_progressBar = nullptr;
    QProgressBar* m_preProgressBar = nullptr;
    QLabel* m_currentFileTextField = nullptr;
    QLabel* m_countLabel = nullptr;
    QPushButton* m_abortButton = nullptr;
    qsizetype m_countDone = 0;
    qsizetype m_countTotal = 0;
    QTimer* m_timer = nullptr;
    ProgressViewDelegate* m_delegate = nullptr;

    std::atomic<double> m_lastUpdate{0.0};
    double m_progressValue = 0.0;
    double m_stallThreshold = defaultStallThreshold;
    int m_timerTicks = 0;
    bool m_observing = false;
    Clock m_clock;
    QList<QMetaObject::Connection> m_observers;
};

} // namespace tw
