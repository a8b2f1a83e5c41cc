#include "ProgressPrinter.h"

#include "Terminal.h"
#include "deploy/NotificationHub.h"

#include <cmath>

namespace tw::cli {

namespace {

QString count(double value) {
    return QString::number(static_cast<qint64>(value));
}

} // namespace

ProgressPrinter::ProgressPrinter(Terminal& terminal, QObject* parent)
    : QObject(parent)
    , m_terminal(terminal)
    , m_bar(terminal.errorIsTerminal()) {
    m_timer.setInterval(stallCheckMilliseconds);
    connect(&m_timer, &QTimer::timeout, this, &ProgressPrinter::checkStall);
    NotificationHub& hub = NotificationHub::instance();
    connect(&hub, &NotificationHub::currentFile, this, &ProgressPrinter::currentFile);
    connect(&hub, &NotificationHub::uploadComplete, this, &ProgressPrinter::finish);
}

void ProgressPrinter::show() {
    m_shown = true;
    m_stalled = false;
    m_file.clear();
    m_remaining.reset();
    m_total.reset();
    m_lastUpdate.start();
    // Plain count lines start after a second: a short deployment needs none.
    m_lastPlainLine.start();
    m_timer.start();
    redraw();
}

void ProgressPrinter::setStage(const QString& text) {
    m_stage = text;
    if (m_bar) {
        redraw();
    } else if (text != m_printedStage) {
        m_printedStage = text;
        m_terminal.errLine(text);
    }
}

void ProgressPrinter::setIndeterminate() {
    // The counts give way to the stage alone (a script runs).
    m_remaining.reset();
    m_total.reset();
    redraw();
}

void ProgressPrinter::finish() {
    if (!m_shown)
        return;
    m_timer.stop();
    m_file.clear();
    // The display closes: on a terminal the line goes, as the window's sheet
    // does, and the outcome is said below it.
    if (m_bar)
        m_terminal.clearStatus();
    // Plain lines end with the last count printed: curl's output does not
    // confirm every file one by one, and the outcome line says what was sent.
    m_shown = false;
    m_printedStage.clear();
    m_printedRemaining.reset();
    m_total.reset();
    m_remaining.reset();
}

// The count of the run's own transfers, not the run's row counters (which
// count unchecked rows too and then never reach 0).
void ProgressPrinter::fileCount(qsizetype done, qsizetype total) {
    m_lastUpdate.start();
    if (total <= 0 || done < 0 || done > total)
        return;
    const double remaining = double(total - done);
    m_remaining = remaining;
    m_total = double(total);
    m_stalled = false;
    m_stage = QStringLiteral("Deploying files...");
    if (m_bar)
        redraw();
    else
        printPlain(remaining == 0);
}

void ProgressPrinter::currentFile(const QVariantMap& userInfo) {
    m_file = userInfo.value(NotificationHub::currentFileName()).toString();
    m_stalled = false;
    if (m_bar)
        redraw();
}

void ProgressPrinter::checkStall() {
    if (!m_shown || m_lastUpdate.elapsed() <= stallAfterMilliseconds)
        return;
    if (m_stalled)
        return; // said once per silence
    m_stalled = true;
    m_stage = QStringLiteral("Deploying...");
    m_file = QStringLiteral("Waiting for server to respond\u2026");
    m_remaining.reset();
    m_total.reset();
    if (m_bar)
        redraw();
    else
        m_terminal.errLine(m_stage + QLatin1Char(' ') + m_file);
}

void ProgressPrinter::redraw() {
    if (!m_bar || !m_shown)
        return;
    QString line = m_stage;
    if (m_total && m_remaining) {
        const int width = 20;
        const double fraction = *m_total > 0 ? 1.0 - *m_remaining / *m_total : 1.0;
        const int filled = std::isfinite(fraction) ? qBound(0, int(std::lround(fraction * width)), width) : 0;
        line += QStringLiteral(" [") + QString(filled, QLatin1Char('#')) +
                QString(width - filled, QLatin1Char('-')) + QStringLiteral("] ") + count(*m_remaining) +
                QStringLiteral(" of ") + count(*m_total) + QStringLiteral(" left");
    }
    if (!m_file.isEmpty())
        line += QStringLiteral("  ") + m_file;
    const int columns = m_terminal.width() - 1;
    if (line.size() > columns)
        line = line.left(columns - 1) + QChar(0x2026);
    m_terminal.status(line);
}

void ProgressPrinter::printPlain(bool force) {
    if (!m_total || !m_remaining)
        return;
    if (m_printedRemaining == m_remaining)
        return;
    if (!force && m_lastPlainLine.elapsed() < 1000)
        return;
    m_lastPlainLine.start();
    m_printedRemaining = m_remaining;
    const double done = *m_total - *m_remaining;
    m_terminal.errLine(QStringLiteral("  %1 of %2 files done, %3 left")
                           .arg(count(done), count(*m_total), count(*m_remaining)));
}

} // namespace tw::cli
