#include "HeadSettle.h"

#include "app/Logger.h"

namespace tw {

HeadSettle::HeadSettle(LockCheck lockedRepository, QObject* parent)
    : QObject(parent)
    , m_lockedRepository(std::move(lockedRepository)) {
    m_timer.setSingleShot(true);
    m_timer.setInterval(settleMilliseconds);
    connect(&m_timer, &QTimer::timeout, this, &HeadSettle::check);
}

void HeadSettle::reflogWritten() {
    m_timer.start();
}

void HeadSettle::check() {
    if (const std::optional<QString> locked = m_lockedRepository ? m_lockedRepository() : std::nullopt) {
        if (!m_lockWait.isValid())
            m_lockWait.start();
        if (m_lockWait.elapsed() < lockWaitLimitMilliseconds) {
            m_timer.start();
            return;
        }
        Logger::sharedInstance().log(
            QStringLiteral("git's lock in %1/.git has stayed for %2 s; the files are listed anyway")
                .arg(*locked)
                .arg(lockWaitLimitMilliseconds / 1000));
    }
    m_lockWait.invalidate();
    emit settled();
}

} // namespace tw
