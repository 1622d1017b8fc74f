#pragma once
// One camera's control connection and its data connections. Commands are read one line at a
// time and each runs to its end before the next is looked at (a running transfer holds them,
// except ABOR). Lives on the receiver's thread; its timers are its children, so a session that
// is gone leaves no work behind, and each checks `closed` first. A finished upload is checked and
// placed on the receiver's finishing queue, which owns the file until it is placed or removed.
#include "destinationfolder.h"
#include "ftpcommandreader.h"
#include "ftppath.h"

#include <QElapsedTimer>
#include <QHostAddress>
#include <QObject>
#include <QSet>
#include <QString>
#include <memory>
#include <optional>

class FTPDataChannel;
class FTPReceiver;
class QTcpServer;
class QTcpSocket;
class QTimer;

class FTPSession : public QObject
{
    Q_OBJECT
public:
    FTPSession(QTcpSocket *ctrl, FTPReceiver *server);
    ~FTPSession() override;

    // Greets the client and starts reading.
    void start();
    // Closes the session: control and data connections, timers, an unfinished temporary file.
    // Idempotent; the receiver deletes the object afterwards.
    void close();
    bool isClosed() const { return closed; }

private:
    enum class TransferKind { list, store };
    struct Transfer {
        TransferKind kind = TransferKind::list;
        FTPPath::Parts file;   // store: where the client wants it
    };
    struct Upload {
        FTPPath::Parts file;
        DestinationFolder::Temp temp;
        quint64 total = 0;
        quint64 flushed = 0;      // bytes handed to the disk's write-back so far
        QElapsedTimer lastData;   // the watchdog looks at it rather than being re-armed for every chunk
    };
    struct Target {
        QHostAddress address;
        quint16 port = 0;
    };
    using Handler = void (FTPSession::*)(const QByteArray &argument);

    void reply(int code, const QString &text);
    void onControlReadable();
    void process();
    void dispatch(const QByteArray &line);
    void armIdle();
    bool transferRunning() const { return waitingData.has_value() || upload.has_value(); }

    // Commands.
    void cmdUser(const QByteArray &arg);
    void cmdPass(const QByteArray &arg);
    void cmdQuit(const QByteArray &arg);
    void cmdFeat(const QByteArray &arg);
    void cmdSyst(const QByteArray &arg);
    void cmdNoCrypto(const QByteArray &arg);
    void cmdOk(const QByteArray &arg);
    void cmdHelp(const QByteArray &arg);
    void cmdPwd(const QByteArray &arg);
    void cmdCwd(const QByteArray &arg);
    void cmdCdup(const QByteArray &arg);
    void cmdMkd(const QByteArray &arg);
    void cmdNoDelete(const QByteArray &arg);
    void cmdNoSuchFile(const QByteArray &arg);
    void cmdRest(const QByteArray &arg);
    void cmdPasv(const QByteArray &arg);
    void cmdEpsv(const QByteArray &arg);
    void cmdPort(const QByteArray &arg);
    void cmdEprt(const QByteArray &arg);
    void cmdList(const QByteArray &arg);
    void cmdStor(const QByteArray &arg);
    void cmdRnfr(const QByteArray &arg);
    void cmdRnto(const QByteArray &arg);
    void cmdAbor(const QByteArray &arg);

    // Data channel and transfers.
    void openPassive(bool extended);
    void onPassiveConnection(qintptr fd);
    void adoptData(FTPDataChannel *channel);
    void startTransfer(TransferKind kind, const FTPPath::Parts &file = {});
    void beginTransfer();
    void onDataReadable();
    void finishUpload();
    // What finishing a received file (off the receiver's thread) came to.
    struct Finished {
        bool truncated = false;
        DestinationFolder::Placed placed;
    };
    static Finished finishFile(const DestinationFolder &dest, DestinationFolder::Temp &temp, const FTPPath::Parts &file);
    // Back on the receiver's thread; `session` is null when it was closed meanwhile.
    static void finished(FTPReceiver *owner, FTPSession *session, const FTPPath::Parts &file, const Finished &f);
    void failUpload(int code, const QString &text);
    void onDataWatch();
    void dropDataChannel();
    void endTransfer();

    // Fields in the order the receiver's design gives them.
    QTcpSocket *ctrl;
    QString ip;
    FTPReceiver *server;
    QString folder;
    QString user;
    QByteArray password;
    FTPCommandReader buffer;
    QString userName;
    bool loggedIn = false;
    int failedLogins = 0;
    FTPPath::Parts cwd;
    std::optional<FTPPath::Parts> renameFrom;
    int stored = 0;
    bool busy = false;
    bool closed = false;
    QTimer *idle = nullptr;
    QTimer *dataWatch = nullptr;
    QTcpServer *pasv = nullptr;
    FTPDataChannel *data = nullptr;
    std::optional<Transfer> waitingData;
    std::optional<Target> activeTarget;

    QHostAddress _peer;                         // the control connection's peer, IPv4 when mapped
    std::unique_ptr<DestinationFolder> _dest;   // open while a file is received
    std::optional<Upload> upload;
    bool _processing = false;
    QSet<QString> receivedHere;   // paths (lower case) of the files stored on this connection
};
