#pragma once

#include <QElapsedTimer>
#include <QObject>
#include <QString>
#include <QTimer>
#include <QVariantMap>

#include <optional>

namespace tw::cli {

class Terminal;

// The progress of a deployment on standard error. On a terminal: one line
// redrawn in place with the stage, a bar, the remaining count and the current
// file. Otherwise: plain lines, the stage when it changes and the counts at
// most once a second (and the last one). It observes the deployment's
// notifications on its own, like the window's progress sheet, and says so
// when the server has been silent: every 3 seconds it looks, and after more
// than 5 seconds without progress it shows "Waiting for server to respond…".
class ProgressPrinter : public QObject {
    Q_OBJECT

public:
    explicit ProgressPrinter(Terminal& terminal, QObject* parent = nullptr);

    // The display opens (again): the stall timer starts.
    void show();
    void setStage(const QString& text);
    void setIndeterminate();
    // The bar shows full, the current file goes, the display closes.
    void finish();
    // The files the run has sent (or deleted) of all it sends.
    void fileCount(qsizetype done, qsizetype total);

    static constexpr int stallCheckMilliseconds = 3000;
    static constexpr int stallAfterMilliseconds = 5000;

private:
    void currentFile(const QVariantMap& userInfo);
    void checkStall();
    void redraw();
    void printPlain(bool force);

    Terminal& m_terminal;
    bool m_bar = false;
    bool m_shown = false;
    QString m_stage;
    QString m_printedStage;
    QString m_file;
    std::optional<double> m_remaining;
    std::optional<double> m_total;
    bool m_stalled = false;
    std::optional<double> m_printedRemaining;
    QElapsedTimer m_lastUpdate;
    QElapsedTimer m_lastPlainLine;
    QTimer m_timer;
};

} // namespace tw::cli
