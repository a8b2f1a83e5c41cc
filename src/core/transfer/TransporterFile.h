#pragma once

#include "transfer/CurlLines.h"
#include "transfer/TransporterOperations.h"

#include <QPointer>
#include <QProcess>
#include <QString>

#include <memory>
#include <optional>

namespace tw {

class TransporterFile;
using TransporterFilePtr = std::shared_ptr<TransporterFile>;

// One queued transfer. Only the Transporter creates them; the same object
// sits in the transporter's lists and comes back with every delegate message
// about it, so delegates compare items by pointer.
class TransporterFile {
public:
    TransporterFile(const TransporterFile&) = delete;
    TransporterFile& operator=(const TransporterFile&) = delete;

    // The local file of an upload; absent for every other operation.
    const std::optional<QString>& filePath() const { return m_filePath; }
    // The remote path with the site's sync root taken out, fixed when the
    // item was queued.
    const QString& remotePath() const { return m_remotePath; }
    TransporterOperations operation() const { return m_operation; }

    // For the user interface; the transporter never sets them.
    bool isUploading() const { return m_isUploading; }
    void setIsUploading(bool uploading) { m_isUploading = uploading; }
    double progress() const { return m_progress; }
    void setProgress(double progress) { m_progress = progress; }

    // Set when curl reported a failure for this item.
    bool hasError() const { return m_hasError; }
    // The failure was put on this item because its run failed without
    // naming a file (the first item the run had not finished): it may not be
    // the one at fault.
    bool failureIsUnnamed() const { return m_failureUnnamed; }
    // The curl process of this item in single mode while it exists; batch
    // runs never set it.
    QProcess* task() const { return m_task.data(); }

private:
    friend class Transporter;
    TransporterFile(std::optional<QString> filePath, QString remotePath, TransporterOperations operation);

    std::optional<QString> m_filePath;
    QString m_remotePath;
    TransporterOperations m_operation;
    bool m_isUploading = false;
    double m_progress = 0;
    bool m_hasError = false;
    bool m_failureUnnamed = false;
    QPointer<QProcess> m_task;
    CurlLines m_errorLines;  // a single-mode curl's standard error, as lines
    bool m_sawError = false; // curl printed an error line for it
};

} // namespace tw
