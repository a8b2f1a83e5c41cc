#pragma once

#include <QByteArray>
#include <QObject>
#include <QTimer>

#include <chrono>

class QProcess;
class QSocketNotifier;

namespace tw {

// The standard error of a batch curl run, read at a steady pace. With "-v"
// curl writes its trace in dozens of small pieces per file; waking for each
// of them cost a deployment a third of its time. This pipe is read when data
// is there, but after each read it rests for a few milliseconds, so each
// chunk holds what arrived meanwhile (the pipe holds far more than curl
// writes in that time, so curl never waits). The end of the process drains
// the rest at once.
class CurlOutputPipe : public QObject {
    Q_OBJECT

public:
    explicit CurlOutputPipe(std::chrono::milliseconds pace, QObject* parent = nullptr);
    ~CurlOutputPipe() override;

    static constexpr int pipeSize = 1 << 20;

    bool isValid() const { return m_read >= 0 && m_write >= 0; }
    // The rest between two reads.
    void setPace(std::chrono::milliseconds pace);
    // Makes the pipe the child's standard error; call before start().
    void attachAsStandardError(QProcess* process);
    // The parent's copy of the writing end; call once the process started
    // (or failed to), so that the end of the child is the end of the pipe.
    void closeWriteEnd();
    // What is left in the pipe once the process has ended, as one chunk.
    QByteArray readRemaining();

signals:
    void chunkRead(const QByteArray& chunk);

private:
    void readAvailable();
    QByteArray readNow(bool* atEnd);

    int m_read = -1;
    int m_write = -1;
    bool m_atEnd = false;
    QSocketNotifier* m_notifier = nullptr;
    QTimer m_pace;
};

} // namespace tw
