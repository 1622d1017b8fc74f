#pragma once
// The FTP server that cameras push their pictures to. It accepts uploads only: it never sends a
// file, deletes or replaces anything. Each arriving file is written as a hidden temporary file in
// the destination, checked for completeness and moved to its final name.
//
// Threads: everything the server does (listener, sessions, timers, file writes, the lock-out
// book) runs on `queue`, its one thread, labelled "com.tessaly.corvane.ftp-recibir", so no locks
// are needed. The one exception is what reads a whole received file (its completeness check and
// the comparison with a same-named stored file): it runs on `finishing`, on a file no other code
// touches meanwhile, and hands its result back to `queue`. start() and stop() are called from the
// owner's thread; `onEvent` is called on `queue` and must hand its events on (the camera hub
// queues them to the GUI thread).
#include "ftpevent.h"
#include "ftplimits.h"

#include <QElapsedTimer>
#include <QHash>
#include <QHostAddress>
#include <QList>
#include <QNetworkAddressEntry>
#include <QString>
#include <atomic>
#include <chrono>
#include <functional>
#include <memory>
#include <vector>

class FinishingQueue;
class FTPSession;
class QObject;
class QTcpServer;
class QTcpSocket;
class QThread;

class FTPReceiver
{
public:
    using Event = FTPEvent;
    using Clock = std::chrono::steady_clock;

    // `port` 0 lets the system choose (tests); `address` is where to listen (every interface).
    FTPReceiver(const QString &folder, const QString &user, const QString &password, quint16 port,
                const FTPLimits &limits = {}, const QHostAddress &address = QHostAddress::Any);
    ~FTPReceiver();
    FTPReceiver(const FTPReceiver &) = delete;
    FTPReceiver &operator=(const FTPReceiver &) = delete;

    // Set before start(); called on `queue`.
    std::function<void(const Event &)> onEvent;

    // Opens the listener on `queue`; `ready` or `failed` follows through onEvent. Once only.
    void start();
    // Closes the listener and every session (unfinished temporary files are removed), lets the
    // files being finished be placed, and ends the thread. Returns when all of it is done. Called from the owner's thread, never from onEvent.
    void stop();

    // The listening port once `ready` was sent (the one the system chose for port 0).
    quint16 port() const { return _boundPort.load(); }
    QString folder() const { return _folder; }

    // The text for a listener that could not open (public for the tests of each wording).
    static QString failureText(int posixError, quint16 port, const QString &description);

private:
    friend class FTPSession;

    // ----- On `queue` only.
    void listen();
    void accept(QTcpSocket *socket);
    bool isLocalPeer(const QHostAddress &peer);
    void teardown();
    void emitEvent(const Event &event);
    bool isBlocked(const QString &ip);
    void recordFailure(const QString &ip);
    void clearFailures(const QString &ip);
    void sessionClosed(FTPSession *session);
    QObject *anchor() const { return _anchor; }
    const FTPLimits &limits() const { return _limits; }
    std::vector<char> &chunkBuffer() { return _chunk; }
    FinishingQueue &finishing() { return *_finishing; }

    QThread *queue = nullptr;
    QString _folder;
    QString user;
    QString password;
    QTcpServer *listener = nullptr;
    QList<FTPSession *> sessions;
    QHash<QString, QList<Clock::time_point>> failures;
    QHash<QString, Clock::time_point> blockedUntil;

    FTPLimits _limits;
    quint16 _port;
    QHostAddress _address;
    std::unique_ptr<FinishingQueue> _finishing;
    QObject *_anchor = nullptr;   // lives on `queue`: the context of its work and parent of its objects
    std::atomic<quint16> _boundPort{0};
    std::vector<char> _chunk;     // one upload buffer serves every session: they take turns on `queue`
    QList<QNetworkAddressEntry> _networks;   // this computer's, for isLocalPeer()
    QElapsedTimer _networksAge;
    bool _started = false;
};
