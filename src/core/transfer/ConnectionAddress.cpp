#include "ConnectionAddress.h"

#include "model/SyncRoot.h"

namespace tw {

ConnectionAddress ConnectionAddress::of(const Site& site) {
    ConnectionAddress address;
    // A missing host or remote path counts as empty: curl then says what is
    // wrong with the URL.
    address.host = site.host.value_or(QString());
    if (address.host.endsWith(QLatin1Char('/')))
        address.host.chop(1);
    // An IPv6 address stands in brackets in a URL ("[::1]:21").
    if (address.host.contains(QLatin1Char(':')) && !address.host.startsWith(QLatin1Char('[')))
        address.host = QLatin1Char('[') + address.host + QLatin1Char(']');
    address.path = site.remotePath.value_or(QString());
    if (!address.path.isEmpty() && !address.path.endsWith(QLatin1Char('/')))
        address.path += QLatin1Char('/');
    if (site.port) {
        address.port = *site.port;
        address.host += QLatin1Char(':') + address.port;
    }
    address.host += QLatin1Char('/');
    return address;
}

QString ConnectionAddress::withoutSyncRoot(const Site& site, const QString& text) {
    return SyncRoot::of(site).remotePath(text);
}

} // namespace tw
