#include "ftpdatachannel.h"

#include <QSocketNotifier>

#include <cerrno>
#include <cstring>
#include <fcntl.h>
#include <netinet/in.h>
#include <sys/socket.h>
#include <unistd.h>

namespace {
void setNonBlocking(int fd)
{
    const int flags = ::fcntl(fd, F_GETFL);
    if (flags >= 0)
        ::fcntl(fd, F_SETFL, flags | O_NONBLOCK);
}
} // namespace

FTPDataChannel::FTPDataChannel(int fd, QObject *parent)
    : QObject(parent)
    , _fd(fd)
    , _connected(fd >= 0)
{
    if (_fd)
        setNonBlocking(_fd.get());
}

namespace {
socklen_t toSockaddr(const QHostAddress &address, quint16 port, sockaddr_storage &ss)
{
    ss = {};
    if (address.protocol() == QAbstractSocket::IPv4Protocol) {
        auto *sin = reinterpret_cast<sockaddr_in *>(&ss);
        sin->sin_family = AF_INET;
        sin->sin_port = htons(port);
        sin->sin_addr.s_addr = htonl(address.toIPv4Address());
        return sizeof(sockaddr_in);
    }
    auto *sin6 = reinterpret_cast<sockaddr_in6 *>(&ss);
    sin6->sin6_family = AF_INET6;
    sin6->sin6_port = htons(port);
    const Q_IPV6ADDR a = address.toIPv6Address();
    std::memcpy(&sin6->sin6_addr, a.c, 16);
    sin6->sin6_scope_id = address.scopeId().toUInt();
    return sizeof(sockaddr_in6);
}
} // namespace

FTPDataChannel *FTPDataChannel::connectTo(const QHostAddress &address, quint16 port, const QHostAddress &local,
                                          QObject *parent)
{
    auto *channel = new FTPDataChannel(-1, parent);
    sockaddr_storage ss, from;
    const socklen_t len = toSockaddr(address, port, ss);
    channel->_fd.reset(::socket(ss.ss_family, SOCK_STREAM | SOCK_NONBLOCK | SOCK_CLOEXEC, 0));
    const int fd = channel->_fd.get();
    if (fd >= 0 && local.protocol() == address.protocol()) {
        const socklen_t fromLen = toSockaddr(local, 0, from);
        ::bind(fd, reinterpret_cast<sockaddr *>(&from), fromLen);   // on failure the system picks
    }
    if (fd < 0 || (::connect(fd, reinterpret_cast<sockaddr *>(&ss), len) != 0 && errno != EINPROGRESS)) {
        // Reported once the caller has connected to the signal.
        QMetaObject::invokeMethod(channel, &FTPDataChannel::failed, Qt::QueuedConnection);
        return channel;
    }
    channel->_writer = new QSocketNotifier(qintptr(fd), QSocketNotifier::Write, channel);
    connect(channel->_writer, &QSocketNotifier::activated, channel, &FTPDataChannel::onWritable);
    return channel;
}

FTPDataChannel::~FTPDataChannel()
{
    close();
}

void FTPDataChannel::onWritable()
{
    _writer->setEnabled(false);
    int err = 0;
    socklen_t len = sizeof err;
    if (::getsockopt(_fd.get(), SOL_SOCKET, SO_ERROR, &err, &len) != 0 || err != 0) {
        emit failed();
        return;
    }
    _connected = true;
    emit connected();
}

void FTPDataChannel::startReading()
{
    if (!_fd || _reader)
        return;
    // Wake up for a good amount of data at a time rather than for every segment (the end of the
    // stream wakes it up whatever is waiting).
    const int lowWater = 256 * 1024;
    ::setsockopt(_fd.get(), SOL_SOCKET, SO_RCVLOWAT, &lowWater, sizeof lowWater);
    _reader = new QSocketNotifier(qintptr(_fd.get()), QSocketNotifier::Read, this);
    connect(_reader, &QSocketNotifier::activated, this, &FTPDataChannel::readable);
}

qint64 FTPDataChannel::read(char *buffer, qint64 size, int &error)
{
    for (;;) {
        const ssize_t n = ::recv(_fd.get(), buffer, size_t(size), 0);
        if (n >= 0)
            return n;
        if (errno == EINTR)
            continue;
        error = errno == EWOULDBLOCK ? EAGAIN : errno;
        return -1;
    }
}

void FTPDataChannel::close()
{
    delete _reader;
    _reader = nullptr;
    delete _writer;
    _writer = nullptr;
    _fd.reset();
    _connected = false;
}

QHostAddress FTPDataChannel::peerOf(int fd)
{
    sockaddr_storage ss{};
    socklen_t len = sizeof ss;
    if (::getpeername(fd, reinterpret_cast<sockaddr *>(&ss), &len) != 0)
        return {};
    QHostAddress a(reinterpret_cast<sockaddr *>(&ss));
    bool ok = false;
    const quint32 v4 = a.toIPv4Address(&ok);
    return ok ? QHostAddress(v4) : a;
}
