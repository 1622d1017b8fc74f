#include "ftpreceiver.h"

#include "finishingqueue.h"
#include "ftpsession.h"
#include "ftpsocket.h"

#include "util/partfiles.h"

#include <QElapsedTimer>
#include <QNetworkInterface>
#include <QObject>
#include <QTcpServer>
#include <QTcpSocket>
#include <QThread>

#include <cerrno>

namespace {

// A connection turned away before it became a session: the reply is flushed, then it closes.
void turnAway(QTcpSocket *socket, const QByteArray &reply)
{
    socket->write(reply);
    FTPSocket::closeAfterReply(socket);
}

} // namespace

FTPReceiver::FTPReceiver(const QString &folder, const QString &user, const QString &password, quint16 port,
                         const FTPLimits &limits, const QHostAddress &address)
    : _folder(folder)
    , user(user)
    , password(password)
    , _limits(limits)
    , _port(port)
    , _address(address)
{
    queue = new QThread;
    queue->setObjectName(QStringLiteral("com.tessaly.corvane.ftp-recibir"));
    _anchor = new QObject;
    _anchor->moveToThread(queue);
    // Two, so one camera's large file does not hold the next camera's reply.
    _finishing = std::make_unique<FinishingQueue>(2);
}

FTPReceiver::~FTPReceiver()
{
    stop();
    delete _anchor;
    delete queue;
}

void FTPReceiver::start()
{
    if (_started)
        return;
    _started = true;
    queue->start();
    QMetaObject::invokeMethod(_anchor, [this] { listen(); }, Qt::QueuedConnection);
}

void FTPReceiver::stop()
{
    if (!queue->isRunning())
        return;
    QMetaObject::invokeMethod(_anchor, [this] { teardown(); }, Qt::BlockingQueuedConnection);
    // Files whose data had all arrived are placed, and their results (the `file` events) are
    // handed out on `queue` before it ends.
    _finishing->drain();
    QMetaObject::invokeMethod(_anchor, [] {}, Qt::BlockingQueuedConnection);
    queue->quit();
    queue->wait();
}

QString FTPReceiver::failureText(int posixError, quint16 port, const QString &description)
{
    if (posixError == EADDRINUSE)
        return QStringLiteral("El puerto %1 está ocupado por otra app. Prueba con otro (p. ej. 2121) y ponlo también en la cámara.").arg(port);
    if (posixError == EACCES)
        return QStringLiteral("Linux solo deja usar el puerto %1 con un permiso especial: prueba con otro (p. ej. 2121) y ponlo también en la cámara.").arg(port);
    return QStringLiteral("No se pudo abrir el servidor: ") + description;
}

void FTPReceiver::listen()
{
    // Uploads cut short by a receiver that was killed (another one, in this or another process,
    // holds its own files locked).
    PartFiles::removeStale(_folder);
    listener = new QTcpServer(_anchor);
    listener->setListenBacklogSize(256);
    QObject::connect(listener, &QTcpServer::newConnection, _anchor, [this] {
        while (listener && listener->hasPendingConnections())
            accept(listener->nextPendingConnection());
    });
    if (!listener->listen(_address, _port)) {
        int error = 0;
        switch (listener->serverError()) {
        case QAbstractSocket::AddressInUseError: error = EADDRINUSE; break;
        case QAbstractSocket::SocketAccessError: error = EACCES; break;
        default: break;
        }
        const QString text = failureText(error, _port, listener->errorString());
        delete listener;
        listener = nullptr;
        emitEvent(Event::failed(text));
        return;
    }
    _boundPort = listener->serverPort();
    emitEvent(Event::ready());
}

void FTPReceiver::accept(QTcpSocket *socket)
{
    socket->setParent(_anchor);
    const QHostAddress peer = FTPSocket::plainAddress(socket->peerAddress());
    if (!isLocalPeer(peer)) {
        turnAway(socket, "421 Solo se aceptan cámaras de la red local\r\n");
        return;
    }
    if (sessions.size() >= _limits.maxSessions) {
        turnAway(socket, "421 Demasiadas conexiones: vuelve a intentarlo en un momento\r\n");
        return;
    }
    auto *session = new FTPSession(socket, this);
    sessions.append(session);
    session->start();
}

// Cameras are on the local network: a peer must be this computer, a link-local neighbour or on
// the subnet of one of our interfaces. The interface list is read again every ten seconds, as
// joining a camera's own wifi changes it.
bool FTPReceiver::isLocalPeer(const QHostAddress &peer)
{
    if (peer.isLoopback() || peer.isLinkLocal())
        return true;
    if (!_networksAge.isValid() || _networksAge.elapsed() > 10000) {
        _networks.clear();
        for (const QNetworkInterface &i : QNetworkInterface::allInterfaces())
            if (i.flags().testFlag(QNetworkInterface::IsUp))
                _networks += i.addressEntries();
        _networksAge.start();
    }
    for (const QNetworkAddressEntry &e : std::as_const(_networks))
        if (e.prefixLength() > 0 && peer.isInSubnet(FTPSocket::plainAddress(e.ip()), e.prefixLength()))
            return true;
    return false;
}

void FTPReceiver::teardown()
{
    delete listener;
    listener = nullptr;
    const QList<FTPSession *> open = sessions;
    for (FTPSession *s : open)
        s->close();
    sessions.clear();
    // Sessions, their sockets and sockets still flushing a last reply.
    const QObjectList children = _anchor->children();
    qDeleteAll(children);
}

void FTPReceiver::emitEvent(const Event &event)
{
    if (onEvent)
        onEvent(event);
}

bool FTPReceiver::isBlocked(const QString &ip)
{
    const auto it = blockedUntil.constFind(ip);
    if (it == blockedUntil.constEnd())
        return false;
    if (*it > Clock::now())
        return true;
    blockedUntil.erase(it);
    return false;
}

void FTPReceiver::recordFailure(const QString &ip)
{
    const auto now = Clock::now();
    QList<Clock::time_point> &times = failures[ip];
    times.removeIf([&](Clock::time_point t) { return now - t >= _limits.failureWindow; });
    times.append(now);
    const qsizetype count = times.size();
    if (count == 3)
        emitEvent(Event::warning(QStringLiteral("Contraseña incorrecta varias veces desde %1. Si no es tu cámara, revisa quién está en esta red.").arg(ip)));
    if (count >= 10) {
        blockedUntil.insert(ip, now + _limits.lockout);
        failures.remove(ip);
        emitEvent(Event::warning(QStringLiteral("Bloqueada 10 minutos la dirección %1: ha fallado 10 veces la contraseña. Si no es tu cámara, alguien de esta red está intentando entrar.").arg(ip)));
    }
}

void FTPReceiver::clearFailures(const QString &ip)
{
    failures.remove(ip);
}

void FTPReceiver::sessionClosed(FTPSession *session)
{
    sessions.removeOne(session);
    session->deleteLater();
}
