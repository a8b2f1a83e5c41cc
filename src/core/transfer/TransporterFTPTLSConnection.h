#pragma once

#include "transfer/TransporterFTPConnection.h"

namespace tw {

// The protocol choice "FTP with TLS/SSL": plain FTP's argument lists with
// "-k" "--ssl-reqd" at the very end of each. The URLs stay "ftp://" and curl
// asks the server for TLS on the FTP connection (AUTH TLS), and stops when
// the server has none: the login never crosses in clear. "-k" accepts any
// certificate. Always passive.
class TransporterFTPTLSConnection : public TransporterFTPConnection {
public:
    using TransporterFTPConnection::TransporterFTPConnection;

    QString type() const override;

protected:
    QStringList tlsOptions() const override;
};

} // namespace tw
