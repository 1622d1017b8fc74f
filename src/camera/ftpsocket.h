#pragma once
// What the receiver and its sessions do alike with the sockets of the network.
#include <QHostAddress>

class QTcpSocket;

namespace FTPSocket {

// The address as the rules compare it: an IPv4-mapped IPv6 address as plain IPv4, without the
// IPv6 scope.
QHostAddress plainAddress(QHostAddress address);

// Lets what was written reach the peer, then closes and deletes the socket; a peer that does not
// take it within five seconds is cut off.
void closeAfterReply(QTcpSocket *socket);

} // namespace FTPSocket
