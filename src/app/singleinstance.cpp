#include "singleinstance.h"

#include <QJsonArray>
#include <QJsonDocument>
#include <QJsonObject>
#include <QLocalServer>
#include <QLocalSocket>

#include <unistd.h>

QString SingleInstance::defaultName()
{
    return QStringLiteral("corvane-%1").arg(::getuid());
}

SingleInstance::SingleInstance(const QString &name, QObject *parent)
    : QObject(parent)
    , _name(name)
{
}

SingleInstance::~SingleInstance()
{
    if (_server)
        _server->close();
}

bool SingleInstance::sendToRunning(const QStringList &paths, int timeoutMs) const
{
    QLocalSocket socket;
    socket.connectToServer(_name);
    if (!socket.waitForConnected(timeoutMs))
        return false;
    const QJsonObject message{{QStringLiteral("open"), QJsonArray::fromStringList(paths)}};
    socket.write(QJsonDocument(message).toJson(QJsonDocument::Compact) + '\n');
    if (!socket.waitForBytesWritten(timeoutMs))
        return false;
    // Only an acknowledgement proves the paths arrived; a hung instance must not swallow them.
    while (!socket.canReadLine())
        if (!socket.waitForReadyRead(timeoutMs))
            return false;
    const bool ok = socket.readLine().trimmed() == "ok";
    socket.disconnectFromServer();
    return ok;
}

bool SingleInstance::listen()
{
    if (_server)
        return _server->isListening();
    _server = new QLocalServer(this);
    _server->setSocketOptions(QLocalServer::UserAccessOption);
    connect(_server, &QLocalServer::newConnection, this, &SingleInstance::accept);
    if (_server->listen(_name))
        return true;
    if (_server->serverError() == QAbstractSocket::AddressInUseError) {
        // Nobody answered before we got here, so the socket file is a crashed instance's.
        QLocalServer::removeServer(_name);
        return _server->listen(_name);
    }
    return false;
}

bool SingleInstance::isListening() const { return _server && _server->isListening(); }

void SingleInstance::accept()
{
    while (QLocalSocket *socket = _server->nextPendingConnection()) {
        connect(socket, &QLocalSocket::disconnected, socket, &QObject::deleteLater);
        connect(socket, &QLocalSocket::readyRead, this, [this, socket] {
            if (!socket->canReadLine()) {
                if (socket->bytesAvailable() > 1 << 20)
                    socket->abort();   // not a launch of ours
                return;
            }
            const QJsonDocument doc = QJsonDocument::fromJson(socket->readLine());
            QStringList paths;
            for (const QJsonValue &v : doc.object().value(QStringLiteral("open")).toArray())
                if (v.isString() && !v.toString().isEmpty())
                    paths << v.toString();
            socket->write("ok\n");
            socket->flush();
            emit pathsReceived(paths);
        });
    }
}
