#pragma once

#include "transfer/TransporterFTPConnection.h"

namespace tw {

// The protocol choice "FTP with implicit SSL": plain FTP's argument lists
// with "-k" "--ssl-reqd" at the very end of each, on "ftps://" URLs, for a
// server that speaks TLS from the first byte (the usual port 990 set-up).
// "-k" accepts any certificate. Always passive.
//
// (On "ftp://" URLs curl asked such a server for TLS in plain text and
// waited two minutes for an answer that never came; with "--ftp-ssl" alone
// a server without TLS got the password in clear.)
class TransporterFTPSConnection : public TransporterFTPConnection {
public:
    using TransporterFTPConnection::TransporterFTPConnection;

    QString type() const override;
    QString urlPrefix() const override;

protected:
    QStringList tlsOptions() const override;
};

} // namespace tw
