#include "Statistics.h"

#include "app/Preferences.h"

#include <QDateTime>

namespace tw {

Statistics::Statistics() {
    Preferences& preferences = Preferences::instance();
    m_totalUploadedFiles = preferences.integerValue(m_totalFiles);
    if (!preferences.value(m_since).isValid())
        preferences.setValue(m_since, QDateTime::currentDateTime());
}

void Statistics::addUploadedFiles(qint64 count) {
    qint64 sum = 0;
    if (__builtin_add_overflow(m_totalUploadedFiles, count, &sum)) {
        qFatal("Statistics: the count of uploaded files overflows (%lld + %lld)",
               static_cast<long long>(m_totalUploadedFiles), static_cast<long long>(count));
    }
    m_totalUploadedFiles = sum;
    Preferences::instance().setValue(m_totalFiles, sum);
}

} // namespace tw
