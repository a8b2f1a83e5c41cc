#include "ConnectionAddress.h"

#include "model/SyncRoot.h"

#include <arpa/inet.h>

namespace tw {

namespace {

// An IPv6 address, with a zone ("fe80::1%eth0") or without: what curl needs
// in brackets. A name with a port ("example.org:2121") is not one.
bool isIpv6Literal(const QString& host) {
    const QByteArray address = host.section(QLatin1Char('%'), 0, 0).toLatin1();
    in6_addr parsed{};
    return !address.isEmpty() && ::inet_pton(AF_INET6, address.constData(), &parsed) == 1;
}

} // namespace

ConnectionAddress ConnectionAddress::of(const Site& site) {
    ConnectionAddress address;
    // A missing host or remote path counts as empty: curl then says what is
    // wrong with the URL.
    address.host = site.host.value_or(QString());
    if (address.host.endsWith(QLatin1Char('/')))
        address.host.chop(1);
    // An IPv6 address stands in brackets in a URL ("[::1]:21").
    if (isIpv6Literal(address.host))
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
