#pragma once
// One FTP data connection on a plain socket. Uploads are read straight from the socket into the
// receiver's buffer (no copy through a Qt socket buffer), and a reset connection is told apart
// from one that ended normally: a camera that vanishes mid-upload leaves nothing behind.
// Lives on the receiver's thread.
#include <QHostAddress>
#include <QObject>

#include "util/uniquefd.h"

class QSocketNotifier;

class FTPDataChannel : public QObject
{
    Q_OBJECT
public:
    // A connection accepted on the passive listener.
    explicit FTPDataChannel(int fd, QObject *parent = nullptr);
    // Starts connecting to the client (PORT, EPRT) from `local` (the control connection's own
    // address, so the camera sees the data come from where it sent its commands); connected()
    // or failed() follows.
    static FTPDataChannel *connectTo(const QHostAddress &address, quint16 port, const QHostAddress &local,
                                     QObject *parent = nullptr);
    ~FTPDataChannel() override;

    bool isConnected() const { return _connected; }
    // Turns on readable() notifications.
    void startReading();
    // Up to `size` bytes: the count; 0 at the end of the stream; -1 with `error` set to the
    // errno (EAGAIN while nothing has arrived yet, ECONNRESET when the peer reset it).
    qint64 read(char *buffer, qint64 size, int &error);
    void close();

    // The peer of an open socket, IPv4-mapped addresses turned into IPv4.
    static QHostAddress peerOf(int fd);

signals:
    void connected();
    void failed();
    void readable();

private:
    void onWritable();

    UniqueFd _fd;
    bool _connected = false;
    QSocketNotifier *_reader = nullptr;
    QSocketNotifier *_writer = nullptr;
};
