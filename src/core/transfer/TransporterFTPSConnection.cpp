#include "TransporterFTPSConnection.h"

namespace tw {

QString TransporterFTPSConnection::type() const {
    return QStringLiteral("ftps");
}

QStringList TransporterFTPSConnection::withTls(QStringList arguments) {
    arguments << QStringLiteral("-k") << QStringLiteral("--ftp-ssl");
    return arguments;
}

QStringList TransporterFTPSConnection::getArgumentForMultiFileUpload(const QList<TransporterFilePtr>& files) {
    return withTls(TransporterFTPConnection::getArgumentForMultiFileUpload(files));
}

QStringList TransporterFTPSConnection::getArgumentForMultiFileDelete(const QList<TransporterFilePtr>& files) {
    return withTls(TransporterFTPConnection::getArgumentForMultiFileDelete(files));
}

QStringList TransporterFTPSConnection::getArgument(const TransporterFilePtr& file,
                                                   const QString& localBasePath) {
    return withTls(TransporterFTPConnection::getArgument(file, localBasePath));
}

} // namespace tw
