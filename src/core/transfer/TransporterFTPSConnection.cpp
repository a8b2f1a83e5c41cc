#include "TransporterFTPSConnection.h"

namespace tw {

QString TransporterFTPSConnection::type() const {
    return QStringLiteral("ftps");
}

QString TransporterFTPSConnection::urlPrefix() const {
    return QStringLiteral("ftps://");
}

QStringList TransporterFTPSConnection::tlsOptions() const {
    return {QStringLiteral("-k"), QStringLiteral("--ssl-reqd")};
}

} // namespace tw
