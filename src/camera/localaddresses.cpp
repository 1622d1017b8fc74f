#include "localaddresses.h"

#include <QNetworkInterface>

namespace LocalAddresses {

QStringList forCameras()
{
    QStringList v4, v6;
    for (const QNetworkInterface &i : QNetworkInterface::allInterfaces()) {
        const auto flags = i.flags();
        if (!flags.testFlag(QNetworkInterface::IsUp) || !flags.testFlag(QNetworkInterface::IsRunning)
            || flags.testFlag(QNetworkInterface::IsLoopBack))
            continue;
        for (const QNetworkAddressEntry &e : i.addressEntries()) {
            const QHostAddress a = e.ip();
            if (a.isLoopback() || a.isLinkLocal())
                continue;
            if (a.protocol() == QAbstractSocket::IPv4Protocol)
                v4 << a.toString();
            else if (a.protocol() == QAbstractSocket::IPv6Protocol)
                v6 << a.toString();
        }
    }
    v4.removeDuplicates();
    v6.removeDuplicates();
    return v4 + v6;
}

} // namespace LocalAddresses
