#include "ProgressViewController.h"

#include "RunMessages.h"
#include "deploy/NotificationHub.h"

#include <QCloseEvent>
#include <QCoreApplication>
#include <QDateTime>
#include <QHBoxLayout>
#include <QLabel>
#include <QProgressBar>
#include <QPushButton>
#include <QThread>
#include <QTimer>
#include <QVBoxLayout>

#include <charconv>
#include <cmath>

namespace tw {

namespace {

constexpr int barMinimum = 0;
constexpr int barMaximum = 100;

QString requiredText(const QVariantMap& userInfo, const QString& key, const char* notification) {
    const auto found = userInfo.constFind(key);
    if (found == userInfo.constEnd())
        qFatal("The notification \"%s\" has no value \"%s\"", notification, qUtf8Printable(key));
    return found->toString();
}

} // namespace

ProgressViewController::ProgressViewController(QWidget* parent)
    : QDialog(parent) {
    setWindowTitle(tr("Deploying"));
    setWindowModality(Qt::WindowModal);
    setMinimumWidth(440);

    m_textField = new QLabel(this);
    m_textField->setObjectName(QStringLiteral("textField"));
    QFont stageFont = m_textField->font();
    stageFont.setBold(true);
    m_textField->setFont(stageFont);

    m_progressBar = new QProgressBar(this);
    m_progressBar->setObjectName(QStringLiteral("progressBar"));
    m_progressBar->setRange(barMinimum, barMaximum);
    m_progressBar->setValue(barMinimum);
    m_progressBar->setTextVisible(false);

    m_preProgressBar = new QProgressBar(this);
    m_preProgressBar->setObjectName(QStringLiteral("preProgressBar"));
    m_preProgressBar->setRange(0, 0); // busy
    m_preProgressBar->setTextVisible(false);
    m_preProgressBar->hide();

    m_countLabel = new QLabel(this);
    m_countLabel->setObjectName(QStringLiteral("fileCountLabel"));
    m_countLabel->setTextFormat(Qt::PlainText);

    m_currentFileTextField = new QLabel(this);
    m_currentFileTextField->setObjectName(QStringLiteral("currentFileTextField"));
    m_currentFileTextField->setTextFormat(Qt::PlainText);
    m_currentFileTextField->setMinimumWidth(400);
    m_currentFileTextField->setSizePolicy(QSizePolicy::Ignored, QSizePolicy::Preferred);
    QFont fileFont = m_currentFileTextField->font();
    fileFont.setPointSizeF(fileFont.pointSizeF() * 0.9);
    m_currentFileTextField->setFont(fileFont);
    m_currentFileTextField->setTextInteractionFlags(Qt::TextSelectableByMouse);
    m_progressBar->setAccessibleName(tr("Files sent"));
    m_preProgressBar->setAccessibleName(tr("Working"));

    m_abortButton = new QPushButton(tr("Abort"), this);
    m_abortButton->setObjectName(QStringLiteral("abortButton"));
    m_abortButton->setAutoDefault(false);
    connect(m_abortButton, &QPushButton::clicked, this, &ProgressViewController::abortButtonPressed);

    auto* buttons = new QHBoxLayout;
    buttons->addStretch();
    buttons->addWidget(m_abortButton);

    auto* layout = new QVBoxLayout(this);
    layout->setContentsMargins(20, 18, 20, 14);
    layout->addWidget(m_textField);
    layout->addWidget(m_progressBar);
    layout->addWidget(m_preProgressBar);
    layout->addWidget(m_countLabel);
    layout->addWidget(m_currentFileTextField);
    layout->addSpacing(6);
    layout->addLayout(buttons);

    m_timer = new QTimer(this);
    m_timer->setInterval(defaultStallTimerInterval);
    connect(m_timer, &QTimer::timeout, this, [this] {
        ++m_timerTicks;
        runTimedCode();
    });
}

ProgressViewController::~ProgressViewController() {
    // The observers and the timer end with the sheet.
    for (const auto& connection : std::as_const(m_observers))
        disconnect(connection);
    m_timer->stop();
}

double ProgressViewController::now() const {
    if (m_clock)
        return m_clock();
    return static_cast<double>(QDateTime::currentMSecsSinceEpoch()) / 1000.0;
}

void ProgressViewController::setStallTimerInterval(int milliseconds) {
    m_timer->setInterval(milliseconds);
}

int ProgressViewController::stallTimerInterval() const {
    return m_timer->interval();
}

void ProgressViewController::present() {
    m_countDone = 0;
    m_countTotal = 0;
    m_countLabel->setText(tr("Preparing\u2026"));
    m_currentFileTextField->clear();
    show();
    raise();
    viewDidLoad();
}

bool ProgressViewController::isPresented() const {
    return isVisible();
}

void ProgressViewController::viewDidLoad() {
    QMetaObject::invokeMethod(
        this,
        [this] {
            if (m_progressBar)
                showDeterminate(false);
        },
        Qt::QueuedConnection);
    m_lastUpdate = now();
    m_timer->start();
    if (m_observing)
        return;
    m_observing = true;
    NotificationHub& hub = NotificationHub::instance();
    m_observers.append(
        connect(&hub, &NotificationHub::uploadComplete, this, &ProgressViewController::deployFinished));
    m_observers.append(
        connect(&hub, &NotificationHub::remainingStatus, this, &ProgressViewController::updateProgress));
    m_observers.append(
        connect(&hub, &NotificationHub::currentFile, this, &ProgressViewController::updateCurrentFile));
}

void ProgressViewController::onMainQueue(std::function<void()> work) {
    if (QThread::currentThread() == thread())
        work();
    else
        QMetaObject::invokeMethod(this, std::move(work), Qt::QueuedConnection);
}

void ProgressViewController::showDeterminate(bool determinate) {
    m_progressBar->setVisible(determinate);
    m_preProgressBar->setVisible(!determinate);
}

void ProgressViewController::setTextLabel(const QString& text) {
    onMainQueue([this, text] { m_textField->setText(text); });
}

void ProgressViewController::setIsIndeterminate(bool indeterminate) {
    // The argument does not matter: the sheet always turns indeterminate.
    Q_UNUSED(indeterminate);
    onMainQueue([this] { showDeterminate(false); });
}

void ProgressViewController::updateProgress(const QVariantMap& userInfo) {
    m_lastUpdate = now();
    const QString remainingText = requiredText(userInfo, QStringLiteral("remaining"), "remainingStatus");
    const QString totalText = requiredText(userInfo, QStringLiteral("total"), "remainingStatus");
    const std::optional<double> remainingFiles = parseDouble(remainingText);
    const std::optional<double> totalFiles = parseDouble(totalText);
    if (!remainingFiles)
        qFatal("The remaining file count \"%s\" is not a number", qUtf8Printable(remainingText));
    if (!totalFiles)
        qFatal("The total file count \"%s\" is not a number", qUtf8Printable(totalText));
    // With a total of 0 the fraction is not a number or infinite; the bar
    // gets that value as it is.
    const double fraction = *remainingFiles / *totalFiles;
    onMainQueue([this, fraction] {
        showDeterminate(true);
        m_textField->setText(tr("Deploying files..."));
        setProgressValue((1.0 - fraction) * 100.0);
    });
}

void ProgressViewController::updateCurrentFile(const QVariantMap& userInfo) {
    const QString path = requiredText(userInfo, QStringLiteral("currentFile"), "currentFile");
    onMainQueue([this, path] { m_currentFileTextField->setText(path); });
}

void ProgressViewController::runTimedCode() {
    if (now() - m_lastUpdate.load() <= m_stallThreshold)
        return;
    onMainQueue([this] {
        showDeterminate(false);
        m_textField->setText(tr("Deploying..."));
        m_currentFileTextField->setText(tr("Waiting for server to respond\u2026"));
    });
}

void ProgressViewController::deployFinished() {
    onMainQueue([this] {
        // Far beyond the bar's range: it shows full.
        setProgressValue(10000);
        m_currentFileTextField->clear();
        dismiss();
    });
}

void ProgressViewController::abortButtonPressed() {
    if (m_delegate)
        m_delegate->abortDeploy();
    dismiss();
}

void ProgressViewController::setDelegate(ProgressViewDelegate* delegate) {
    m_delegate = delegate;
}

void ProgressViewController::setFileCount(qsizetype done, qsizetype total) {
    m_countDone = done;
    m_countTotal = total;
    m_lastUpdate = now();
    if (total <= 0) {
        m_countLabel->setText(tr("No files to send"));
        return;
    }
    const int percent = RunMessages::percent(done, total);
    m_countLabel->setText(tr("%1 \u00b7 %2 %").arg(RunMessages::fileCount(done, total)).arg(percent));
    if (done > 0) {
        showDeterminate(true);
        m_textField->setText(tr("Deploying files..."));
    }
    m_progressBar->setValue(percent);
}

void ProgressViewController::setProgressValue(double value) {
    m_progressValue = value;
    // With a count of files the bar shows it; the finish shows it full.
    const int bar = m_countTotal > 0 && value < barMaximum
                        ? RunMessages::percent(m_countDone, m_countTotal)
                        : clampedBarValue(value, m_progressBar->minimum(), m_progressBar->maximum());
    m_progressBar->setValue(bar);
    emit progressValueChanged(value);
}

void ProgressViewController::dismiss() {
    m_timer->stop();
    if (isVisible())
        done(QDialog::Accepted);
}

void ProgressViewController::closeEvent(QCloseEvent* event) {
    // Closing the sheet (its window's close button, quitting the
    // application) aborts, as the button does.
    abortButtonPressed();
    event->accept();
}

void ProgressViewController::reject() {
    // Escape does not close a running deployment's sheet.
}

std::optional<double> ProgressViewController::parseDouble(const QString& text) {
    if (text.isEmpty() || text.front().isSpace())
        return std::nullopt;
    const QByteArray bytes = text.toUtf8();
    const char* first = bytes.constData();
    const char* last = first + bytes.size();
    double value = 0.0;
    const auto [end, error] = std::from_chars(first, last, value);
    if (error != std::errc() || end != last)
        return std::nullopt;
    return value;
}

int ProgressViewController::clampedBarValue(double value, int minimum, int maximum) {
    if (std::isnan(value))
        return minimum;
    if (value <= minimum)
        return minimum;
    if (value >= maximum)
        return maximum;
    return static_cast<int>(std::lround(value));
}

} // namespace tw
