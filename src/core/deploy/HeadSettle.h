#pragma once

#include <QElapsedTimer>
#include <QObject>
#include <QString>
#include <QTimer>

#include <functional>
#include <optional>

namespace tw {

// Waits, after HEAD's reflog was written, until git is done: git appends to
// the reflog before it moves the branch, and one commit writes it more than
// once. settled() comes once the writes have been quiet for 200 ms and no ref
// of the repository is locked, or once a lock has stayed for 10 s: such a
// lock was left behind by a git that crashed, and waiting longer would wait
// for ever (the log says so).
class HeadSettle : public QObject {
    Q_OBJECT

public:
    // Answers the repository folder while git holds one of its locks there,
    // else nothing.
    using LockCheck = std::function<std::optional<QString>()>;

    explicit HeadSettle(LockCheck lockedRepository, QObject* parent = nullptr);

    static constexpr int settleMilliseconds = 200;
    static constexpr int lockWaitLimitMilliseconds = 10000;

    // HEAD's reflog was written (again): the wait starts anew.
    void reflogWritten();

signals:
    void settled();

private:
    void check();

    LockCheck m_lockedRepository;
    QTimer m_timer;
    QElapsedTimer m_lockWait; // how long a lock has held the listing back
};

} // namespace tw
