// The deployment record is read from the server, which anyone with access to
// it may have written: whatever bytes it holds give a commit or no record,
// never a crash. A record this program writes reads back as written.
#include "transfer/CheckSumManager.h"

#include <QByteArray>
#include <QString>

#include <cmath>
#include <cstddef>
#include <cstdint>

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    const QByteArray bytes(reinterpret_cast<const char*>(data), static_cast<qsizetype>(size));
    const QString text = QString::fromUtf8(bytes);
    if (const auto record = tw::CheckSumManager::parseRecord(text)) {
        if (record->commit.isEmpty() || record->commit.contains(QLatin1Char(',')) ||
            !record->date.isValid() || record->branch.contains(QLatin1Char(',')))
            __builtin_trap();
    }
    tw::CheckSumManager::readLenientNumber(text);

    // Written and read back: the commit and branch survive when they hold no
    // comma and are not empty; the time to the millisecond.
    const qsizetype cut = text.indexOf(QLatin1Char('|'));
    if (cut > 0) {
        QString commit = text.left(cut);
        QString branch = text.mid(cut + 1);
        commit.remove(QLatin1Char(','));
        branch.remove(QLatin1Char(','));
        const qint64 milliseconds = static_cast<qint64>(size) * 86'400'123 % 4'000'000'000'000;
        const QDateTime when = QDateTime::fromMSecsSinceEpoch(milliseconds);
        const auto back =
            tw::CheckSumManager::parseRecord(tw::CheckSumManager::recordText(commit, when, branch));
        if (!commit.isEmpty()) {
            if (!back || back->commit != commit || back->date.toMSecsSinceEpoch() != milliseconds ||
                back->branch != branch)
                __builtin_trap();
        }
    }
    return 0;
}
