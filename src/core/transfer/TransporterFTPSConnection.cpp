#include "TransporterFTPSConnection.h"

namespace tw {

QString TransporterFTPSConnection::type() const {
    return QStringLiteral("ftps");
}

QStringList TransporterFTPSConnection::tlsOptions() const {
    return {QStringLiteral("-k"), QStringLiteral("--ftp-ssl")};
}

} // namespace tw
