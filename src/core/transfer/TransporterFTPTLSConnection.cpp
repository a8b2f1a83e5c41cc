#include "TransporterFTPTLSConnection.h"

namespace tw {

QString TransporterFTPTLSConnection::type() const {
    return QStringLiteral("ftps-ssl");
}

QStringList TransporterFTPTLSConnection::withTls(QStringList arguments) {
    arguments << QStringLiteral("-k") << QStringLiteral("--ssl");
    return arguments;
}

QStringList
TransporterFTPTLSConnection::getArgumentForMultiFileUpload(const QList<TransporterFilePtr>& files) {
    return withTls(TransporterFTPConnection::getArgumentForMultiFileUpload(files));
}

QStringList
TransporterFTPTLSConnection::getArgumentForMultiFileDelete(const QList<TransporterFilePtr>& files) {
    return withTls(TransporterFTPConnection::getArgumentForMultiFileDelete(files));
}

QStringList TransporterFTPTLSConnection::getArgument(const TransporterFilePtr& file,
                                                     const QString& localBasePath) {
    return withTls(TransporterFTPConnection::getArgument(file, localBasePath));
}

} // namespace tw
