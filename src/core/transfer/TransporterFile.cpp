#include "TransporterFile.h"

#include <utility>

namespace tw {

TransporterFile::TransporterFile(std::optional<QString> filePath, QString remotePath,
                                 TransporterOperations operation)
    : m_filePath(std::move(filePath))
    , m_remotePath(std::move(remotePath))
    , m_operation(operation) {}

} // namespace tw
