#include "ftpsocket.h"

#include <QTcpSocket>
#include <QTimer>

QHostAddress FTPSocket::plainAddress(QHostAddress address)
{
    bool ok = false;
    const quint32 v4 = address.toIPv4Address(&ok);
    if (ok)
        return QHostAddress(v4);
    address.setScopeId({});
    return address;
}

void FTPSocket::closeAfterReply(QTcpSocket *socket)
{
    QObject::connect(socket, &QAbstractSocket::disconnected, socket, &QObject::deleteLater);
    socket->disconnectFromHost();
    if (socket->state() == QAbstractSocket::UnconnectedState)
        socket->deleteLater();
    else
        QTimer::singleShot(5000, socket, [socket] { socket->abort(); });
}
