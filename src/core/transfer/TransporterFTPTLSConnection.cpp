#include "TransporterFTPTLSConnection.h"

namespace tw {

QString TransporterFTPTLSConnection::type() const {
    return QStringLiteral("ftps-ssl");
}

QStringList TransporterFTPTLSConnection::tlsOptions() const {
    return {QStringLiteral("-k"), QStringLiteral("--ssl-reqd")};
}

} // namespace tw
