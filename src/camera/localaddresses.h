#pragma once
// The addresses of this computer that a camera on the local network can reach: IPv4 first (what
// a camera's FTP menu takes), then IPv6 ones that are not link-local; loopback and interfaces
// that are down are left out.
#include <QStringList>

namespace LocalAddresses {
QStringList forCameras();
}
