#include "ftpsession.h"

#include "finishingqueue.h"
#include "ftpdatachannel.h"
#include "ftpreceiver.h"
#include "ftpsocket.h"
#include "imagecompleteness.h"

#include "model/filekinds.h"
#include "util/fileio.h"
#include "util/uniquefd.h"

#include <QHash>
#include <QPointer>
#include <QTcpServer>
#include <QTcpSocket>
#include <QTimer>

#include <cerrno>
#include <fcntl.h>
#include <memory>
#include <unistd.h>

namespace {

constexpr qint64 kChunk = 1048576;              // the most read from the data connection at once
constexpr int kChunksPerTurn = 8;               // then other sessions get their turn
constexpr quint64 kWriteBehind = 8 * 1048576;   // start writing to disk every 8 MiB
// Bytes that finishing a file may read on the receiver's thread (a few milliseconds' worth);
// beyond, it runs on the finishing queue.
constexpr quint64 kFinishHere = 32 * 1048576;

// A listener that hands over the plain socket of each connection.
class PassiveListener : public QTcpServer
{
public:
    using QTcpServer::QTcpServer;
    std::function<void(qintptr)> onAccept;

protected:
    void incomingConnection(qintptr fd) override
    {
        if (onAccept)
            onAccept(fd);
        else
            const UniqueFd refused{int(fd)};   // nobody takes it: closed at once
    }
};

using FTPSocket::plainAddress;

bool sameHost(const QHostAddress &a, const QHostAddress &b) { return plainAddress(a) == plainAddress(b); }

QString writeErrorText(int e)
{
    switch (e) {
    case ENOSPC:
    case EDQUOT:
    case EACCES:
    case EPERM:
    case EROFS:
        return QStringLiteral("Disco lleno o sin permiso");
    default:
        return QStringLiteral("No se pudo guardar");
    }
}

bool isTmpName(const FTPPath::Parts &file)
{
    return !file.isEmpty() && file.last().endsWith(QLatin1String(".tmp"), Qt::CaseInsensitive);
}

// Decimal digits only, without sign or blanks, within [lo, hi].
bool parseNumber(const QByteArray &text, int lo, int hi, int &value)
{
    if (text.isEmpty() || text.size() > 5)
        return false;
    for (char c : text)
        if (c < '0' || c > '9')
            return false;
    value = text.toInt();
    return value >= lo && value <= hi;
}

QString quoted(const QString &path)
{
    return QLatin1Char('"') + QString(path).replace(QLatin1Char('"'), QLatin1String("\"\"")) + QLatin1Char('"');
}

} // namespace

FTPSession::FTPSession(QTcpSocket *ctrlSocket, FTPReceiver *owner)
    : QObject(owner->anchor())
    , ctrl(ctrlSocket)
    , server(owner)
    , folder(owner->_folder)
    , user(owner->user)
    , password(owner->password.toUtf8())
{
    ctrl->setParent(this);
    _peer = plainAddress(ctrl->peerAddress());
    ip = _peer.toString();
    idle = new QTimer(this);
    idle->setSingleShot(true);
    connect(idle, &QTimer::timeout, this, [this] {
        if (closed)
            return;
        // A long upload is watched by the data watchdog instead; while the session is busy
        // (finishing a file, pausing after a wrong password) the camera waits for us.
        if (transferRunning() || busy) {
            armIdle();
            return;
        }
        reply(421, QStringLiteral("Tiempo agotado"));
        close();
    });
    dataWatch = new QTimer(this);
    dataWatch->setSingleShot(true);
    connect(dataWatch, &QTimer::timeout, this, &FTPSession::onDataWatch);
}

FTPSession::~FTPSession()
{
    close();
}

void FTPSession::start()
{
    // Qt keeps no more than the reader's own limit waiting, so a flood is seen at once.
    ctrl->setReadBufferSize(FTPCommandReader::maxBuffered + 1);
    // Replies are small and come in pairs (150, then 226): without this the second waits for the
    // camera's delayed acknowledgement of the first.
    ctrl->setSocketOption(QAbstractSocket::LowDelayOption, 1);
    connect(ctrl, &QTcpSocket::readyRead, this, &FTPSession::onControlReadable);
    connect(ctrl, &QTcpSocket::disconnected, this, &FTPSession::close);
    reply(220, QStringLiteral("Corvane listo para recibir imágenes"));
    armIdle();
}

void FTPSession::close()
{
    if (closed)
        return;
    // A camera may hang up the moment it has sent a file, and the end of its data connection can
    // be read after the end of its control connection: read what is left, and a file that ended
    // whole is checked and stored as usual. Only an unfinished one is thrown away.
    if (upload && data) {
        _processing = true;   // no more commands: the camera is gone
        for (quint64 before = ~quint64(0); upload && upload->total != before;) {
            before = upload->total;
            onDataReadable();
        }
        _processing = false;
    }
    closed = true;
    idle->stop();
    dataWatch->stop();
    endTransfer();
    // The control connection outlives the session just long enough to deliver the last reply.
    QTcpSocket *socket = ctrl;
    socket->disconnect(this);
    socket->setParent(server->anchor());
    FTPSocket::closeAfterReply(socket);
    server->sessionClosed(this);
}

void FTPSession::reply(int code, const QString &text)
{
    if (closed)
        return;
    ctrl->write(QByteArray::number(code) + ' ' + text.toUtf8() + "\r\n");
    ctrl->flush();   // now, not on the next turn of the loop: the camera is waiting for it
}

void FTPSession::armIdle()
{
    idle->start(loggedIn ? server->limits().idleLoggedIn : server->limits().idleBeforeLogin);
}

// ----- Reading commands

void FTPSession::onControlReadable()
{
    char chunk[16384];
    while (!closed && ctrl->bytesAvailable() > 0) {
        const qint64 n = ctrl->read(chunk, sizeof chunk);
        if (n <= 0)
            break;
        if (!buffer.append(chunk, n)) {
            reply(500, QStringLiteral("Línea demasiado larga"));
            close();
            return;
        }
    }
    process();
}

void FTPSession::process()
{
    if (_processing)
        return;   // the loop further up the stack goes on
    _processing = true;
    while (!closed && !busy) {
        if (transferRunning()) {
            if (buffer.peekVerb() != "ABOR")
                break;   // held until the transfer ends
        }
        const auto line = buffer.nextLine();
        if (!line)
            break;
        dispatch(*line);
        if (!closed)
            armIdle();
    }
    _processing = false;
}

void FTPSession::dispatch(const QByteArray &line)
{
    static const QHash<QByteArray, Handler> table = {
        {"USER", &FTPSession::cmdUser},     {"PASS", &FTPSession::cmdPass},       {"QUIT", &FTPSession::cmdQuit},
        {"FEAT", &FTPSession::cmdFeat},     {"SYST", &FTPSession::cmdSyst},       {"AUTH", &FTPSession::cmdNoCrypto},
        {"PBSZ", &FTPSession::cmdNoCrypto}, {"PROT", &FTPSession::cmdNoCrypto},   {"OPTS", &FTPSession::cmdOk},
        {"HELP", &FTPSession::cmdHelp},     {"NOOP", &FTPSession::cmdOk},         {"TYPE", &FTPSession::cmdOk},
        {"MODE", &FTPSession::cmdOk},       {"STRU", &FTPSession::cmdOk},         {"ALLO", &FTPSession::cmdOk},
        {"PWD", &FTPSession::cmdPwd},       {"XPWD", &FTPSession::cmdPwd},        {"CWD", &FTPSession::cmdCwd},
        {"XCWD", &FTPSession::cmdCwd},      {"CDUP", &FTPSession::cmdCdup},       {"XCUP", &FTPSession::cmdCdup},
        {"MKD", &FTPSession::cmdMkd},       {"XMKD", &FTPSession::cmdMkd},        {"RMD", &FTPSession::cmdNoDelete},
        {"XRMD", &FTPSession::cmdNoDelete}, {"DELE", &FTPSession::cmdNoDelete},   {"SIZE", &FTPSession::cmdNoSuchFile},
        {"MDTM", &FTPSession::cmdNoSuchFile}, {"REST", &FTPSession::cmdRest},     {"PASV", &FTPSession::cmdPasv},
        {"EPSV", &FTPSession::cmdEpsv},     {"PORT", &FTPSession::cmdPort},       {"EPRT", &FTPSession::cmdEprt},
        {"LIST", &FTPSession::cmdList},     {"NLST", &FTPSession::cmdList},       {"MLSD", &FTPSession::cmdList},
        {"STOR", &FTPSession::cmdStor},     {"APPE", &FTPSession::cmdStor},       {"STOU", &FTPSession::cmdStor},
        {"RNFR", &FTPSession::cmdRnfr},     {"RNTO", &FTPSession::cmdRnto},       {"ABOR", &FTPSession::cmdAbor},
    };
    static const QList<QByteArray> beforeLogin = {"USER", "PASS", "QUIT", "FEAT", "SYST", "AUTH", "OPTS", "NOOP", "HELP"};

    const FTPCommandReader::Command c = FTPCommandReader::parse(line);
    if (c.verb.isEmpty()) {
        reply(501, QStringLiteral("Orden no válida"));
        return;
    }
    if (!loggedIn && !beforeLogin.contains(c.verb)) {
        reply(530, QStringLiteral("Primero el usuario y la contraseña"));
        return;
    }
    // A rename names its target in the very next command.
    if (c.verb != "RNTO")
        renameFrom.reset();
    const Handler h = table.value(c.verb);
    if (!h) {
        reply(502, QStringLiteral("No disponible"));
        return;
    }
    (this->*h)(c.argument);
}

// ----- Login

void FTPSession::cmdUser(const QByteArray &arg)
{
    if (loggedIn) {
        reply(503, QStringLiteral("Ya has entrado"));
        return;
    }
    userName = QString::fromUtf8(arg);
    reply(331, QStringLiteral("Contraseña, por favor"));
}

void FTPSession::cmdPass(const QByteArray &arg)
{
    if (loggedIn) {
        reply(503, QStringLiteral("Ya has entrado"));
        return;
    }
    if (server->isBlocked(ip)) {
        reply(421, QStringLiteral("Demasiados intentos: espera unos minutos"));
        close();
        return;
    }
    if (userName.toLower() == user && arg == password) {
        loggedIn = true;
        server->clearFailures(ip);
        reply(230, QStringLiteral("Dentro"));
        server->emitEvent(FTPEvent::client(ip));
        return;
    }
    server->recordFailure(ip);
    ++failedLogins;
    // The pause holds even when the next guess is already waiting in the buffer.
    busy = true;
    QTimer::singleShot(server->limits().loginPause, this, [this] {
        if (closed)
            return;
        if (failedLogins < 3) {
            reply(530, QStringLiteral("Usuario o contraseña incorrectos"));
            busy = false;
            process();
        } else {
            reply(421, QStringLiteral("Demasiados intentos"));
            close();
        }
    });
}

void FTPSession::cmdQuit(const QByteArray &)
{
    reply(221, QStringLiteral("Hasta luego"));
    close();
}

// ----- Plain replies

void FTPSession::cmdFeat(const QByteArray &)
{
    if (!closed)
        ctrl->write("211-Funciones\r\n PASV\r\n EPSV\r\n UTF8\r\n211 Fin\r\n");
}

void FTPSession::cmdSyst(const QByteArray &) { reply(215, QStringLiteral("UNIX Type: L8")); }
void FTPSession::cmdNoCrypto(const QByteArray &) { reply(502, QStringLiteral("Sin cifrado: usa FTP normal en la cámara")); }
void FTPSession::cmdOk(const QByteArray &) { reply(200, QStringLiteral("Vale")); }
void FTPSession::cmdHelp(const QByteArray &) { reply(214, QStringLiteral("Corvane")); }
void FTPSession::cmdNoDelete(const QByteArray &) { reply(250, QStringLiteral("Vale")); }
void FTPSession::cmdNoSuchFile(const QByteArray &) { reply(550, QStringLiteral("No existe")); }

void FTPSession::cmdRest(const QByteArray &arg)
{
    // Starting from the beginning is no resumption.
    if (arg == "0")
        reply(350, QStringLiteral("Vale"));
    else
        reply(502, QStringLiteral("No se puede continuar una subida a medias"));
}

// ----- Folders

void FTPSession::cmdPwd(const QByteArray &)
{
    reply(257, quoted(FTPPath::display(cwd)) + QStringLiteral(" es la carpeta actual"));
}

void FTPSession::cmdCwd(const QByteArray &arg)
{
    const auto parts = FTPPath::resolveFolder(cwd, arg);
    if (!parts) {
        reply(553, QStringLiteral("Nombre no válido"));
        return;
    }
    cwd = *parts;
    reply(250, QStringLiteral("Vale"));
}

void FTPSession::cmdCdup(const QByteArray &)
{
    if (!cwd.isEmpty())
        cwd.removeLast();
    reply(250, QStringLiteral("Vale"));
}

void FTPSession::cmdMkd(const QByteArray &arg)
{
    const auto parts = FTPPath::resolveFolder(cwd, arg);
    if (!parts || parts->isEmpty() || arg.isEmpty()) {
        reply(553, QStringLiteral("Nombre no válido"));
        return;
    }
    const DestinationFolder dest(folder);
    if (!dest.openFolder(*parts, true)) {
        reply(550, QStringLiteral("No se pudo crear la carpeta"));
        return;
    }
    reply(257, quoted(FTPPath::display(*parts)) + QStringLiteral(" creada"));
}

void FTPSession::cmdRnfr(const QByteArray &arg)
{
    const auto parts = FTPPath::resolveFile(cwd, arg);
    if (!parts || !DestinationFolder(folder).isFile(*parts)) {
        reply(550, QStringLiteral("No existe"));
        return;
    }
    renameFrom = *parts;
    reply(350, QStringLiteral("¿Nombre nuevo?"));
}

void FTPSession::cmdRnto(const QByteArray &arg)
{
    if (!renameFrom) {
        reply(503, QStringLiteral("Falta RNFR"));
        return;
    }
    const FTPPath::Parts from = *renameFrom;
    renameFrom.reset();
    const auto to = FTPPath::resolveFile(cwd, arg);
    if (!to) {
        reply(553, QStringLiteral("Nombre no válido"));
        return;
    }
    const DestinationFolder dest(folder);
    QString path;
    if (dest.rename(from, *to, &path) != 0) {
        reply(553, QStringLiteral("No se pudo renombrar"));
        return;
    }
    reply(250, QStringLiteral("Renombrada"));
    // Cameras that upload under a temporary name and rename it afterwards: the shot is here now.
    // Only a file received on this connection is news; one that was in the folder is not.
    if (receivedHere.remove(dest.pathOf(from).toLower())) {
        receivedHere.insert(path.toLower());
        if (FileKinds::isMedia(path))
            server->emitEvent(FTPEvent::file(path));
    }
}

// ----- Data channel

void FTPSession::cmdPasv(const QByteArray &) { openPassive(false); }
void FTPSession::cmdEpsv(const QByteArray &) { openPassive(true); }

void FTPSession::openPassive(bool extended)
{
    dropDataChannel();
    activeTarget.reset();
    const QHostAddress local = plainAddress(ctrl->localAddress());
    auto *listener = new PassiveListener(this);
    listener->onAccept = [this](qintptr fd) { onPassiveConnection(fd); };
    if (!listener->listen(local, 0)) {
        delete listener;
        reply(425, QStringLiteral("No se pudo abrir el canal de datos"));
        return;
    }
    pasv = listener;
    const quint16 port = pasv->serverPort();
    if (extended) {
        reply(229, QStringLiteral("Modo pasivo (|||%1|)").arg(port));
        return;
    }
    bool ok = false;
    const quint32 v4 = local.toIPv4Address(&ok);
    if (!ok || local.isNull()) {
        dropDataChannel();
        reply(425, QStringLiteral("No se sabe la dirección de este Mac"));
        return;
    }
    reply(227, QStringLiteral("Modo pasivo (%1,%2,%3,%4,%5,%6)")
                   .arg(v4 >> 24).arg((v4 >> 16) & 0xFF).arg((v4 >> 8) & 0xFF).arg(v4 & 0xFF)
                   .arg(port >> 8).arg(port & 0xFF));
}

void FTPSession::onPassiveConnection(qintptr fd)
{
    // Only the camera that asked may connect, and only once.
    UniqueFd socket{int(fd)};
    if (closed || data || !sameHost(FTPDataChannel::peerOf(socket.get()), _peer))
        return;
    adoptData(new FTPDataChannel(socket.release(), this));
    if (waitingData)
        beginTransfer();
}

void FTPSession::adoptData(FTPDataChannel *channel)
{
    data = channel;
    connect(channel, &FTPDataChannel::readable, this, &FTPSession::onDataReadable);
}

void FTPSession::cmdPort(const QByteArray &arg)
{
    const QList<QByteArray> f = arg.split(',');
    int v[6] = {};
    bool ok = f.size() == 6;
    for (int i = 0; ok && i < 6; ++i)
        ok = parseNumber(f[i], 0, 255, v[i]);
    const quint16 port = quint16(v[4] * 256 + v[5]);
    const QHostAddress address(quint32(v[0]) << 24 | quint32(v[1]) << 16 | quint32(v[2]) << 8 | quint32(v[3]));
    // Never a third host, never a privileged port: the server cannot be used to reach anyone else.
    if (!ok || port < 1024 || !sameHost(address, _peer)) {
        reply(501, QStringLiteral("PORT no válido"));
        return;
    }
    dropDataChannel();
    activeTarget = Target{address, port};
    reply(200, QStringLiteral("Vale"));
}

void FTPSession::cmdEprt(const QByteArray &arg)
{
    bool ok = arg.size() >= 7 && uchar(arg[0]) >= 33 && uchar(arg[0]) <= 126;
    QList<QByteArray> f;
    if (ok) {
        f = arg.mid(1).split(arg[0]);
        ok = f.size() == 4 && f[3].isEmpty() && (f[0] == "1" || f[0] == "2");
    }
    QHostAddress address;
    int port = 0;
    if (ok) {
        for (char c : f[1])
            ok = ok && ((c >= '0' && c <= '9') || (c >= 'a' && c <= 'f') || (c >= 'A' && c <= 'F') || c == '.' || c == ':');
        ok = ok && address.setAddress(QString::fromLatin1(f[1]))
             && address.protocol() == (f[0] == "1" ? QAbstractSocket::IPv4Protocol : QAbstractSocket::IPv6Protocol)
             && parseNumber(f[2], 1024, 65535, port) && sameHost(address, _peer);
    }
    if (!ok) {
        reply(501, QStringLiteral("EPRT no válido"));
        return;
    }
    dropDataChannel();
    activeTarget = Target{plainAddress(address), quint16(port)};
    reply(200, QStringLiteral("Vale"));
}

// ----- Transfers

void FTPSession::cmdList(const QByteArray &) { startTransfer(TransferKind::list); }

void FTPSession::cmdStor(const QByteArray &arg)
{
    const auto file = FTPPath::resolveFile(cwd, arg);
    if (!file) {
        reply(553, QStringLiteral("Nombre no válido"));
        return;
    }
    startTransfer(TransferKind::store, *file);
}

void FTPSession::startTransfer(TransferKind kind, const FTPPath::Parts &file)
{
    if (!pasv && !data && !activeTarget) {
        reply(425, QStringLiteral("Usa PASV o PORT antes"));
        return;
    }
    if (kind == TransferKind::store) {
        auto dest = std::make_unique<DestinationFolder>(folder);
        if (!dest->isOpen()) {
            reply(452, writeErrorText(dest->openError()));
            return;
        }
        // Checked before a byte is written.
        const auto free = dest->freeBytes();
        if (free && *free <= server->limits().minFreeSpace) {
            reply(452, QStringLiteral("No queda espacio en el disco del Mac"));
            return;
        }
        _dest = std::move(dest);
    }
    waitingData = Transfer{kind, file};
    dataWatch->start(server->limits().dataOpen);
    if (data) {
        beginTransfer();
    } else if (activeTarget) {
        auto *channel = FTPDataChannel::connectTo(activeTarget->address, activeTarget->port,
                                                  plainAddress(ctrl->localAddress()), this);
        adoptData(channel);
        connect(channel, &FTPDataChannel::connected, this, [this] {
            if (waitingData)
                beginTransfer();
        });
        connect(channel, &FTPDataChannel::failed, this, [this] {
            if (!waitingData)
                return;
            endTransfer();
            reply(425, QStringLiteral("No se pudo conectar con la cámara"));
            process();
        });
    }
    // Otherwise the passive listener waits for the camera.
}

void FTPSession::beginTransfer()
{
    if (!data || !data->isConnected() || !waitingData)
        return;
    dataWatch->stop();
    const Transfer t = *waitingData;
    waitingData.reset();
    if (t.kind == TransferKind::list) {
        // Nothing of the destination is shown to the network: the listing is empty.
        reply(150, QStringLiteral("Lista"));
        endTransfer();
        reply(226, QStringLiteral("Hecho"));
        process();
        return;
    }
    DestinationFolder::Temp temp = _dest->createTemp();
    if (!temp.fd) {
        const int e = errno;
        endTransfer();
        reply(452, writeErrorText(e));
        process();
        return;
    }
    Upload u;
    u.file = t.file;
    u.temp = std::move(temp);
    u.lastData.start();
    upload = std::move(u);
    reply(150, QStringLiteral("Lista"));
    dataWatch->start(server->limits().dataIdle);
    data->startReading();
    onDataReadable();   // what arrived before the 150 is waiting already, maybe the end too
}

void FTPSession::onDataReadable()
{
    if (!upload || !data)
        return;   // a connection opened ahead of its command keeps its bytes in the socket
    std::vector<char> &chunk = server->chunkBuffer();
    if (chunk.size() < size_t(kChunk))
        chunk.resize(size_t(kChunk));
    const FTPLimits &limits = server->limits();
    for (int turn = 0; turn < kChunksPerTurn; ++turn) {
        int error = 0;
        const qint64 n = data->read(chunk.data(), kChunk, error);
        if (n == 0) {
            finishUpload();
            return;
        }
        if (n < 0) {
            if (error != EAGAIN)
                failUpload(426, QStringLiteral("Conexión cortada"));
            return;
        }
        upload->total += quint64(n);
        if (upload->total > limits.maxFileSize) {
            failUpload(552, QStringLiteral("Archivo demasiado grande"));
            return;
        }
        if (!FileIo::writeFully(upload->temp.fd.get(), chunk.data(), n)) {
            failUpload(452, writeErrorText(errno));
            return;
        }
        // Let the disk start on what has arrived, so received files never pile up in memory.
        if (upload->total - upload->flushed >= kWriteBehind) {
            ::sync_file_range(upload->temp.fd.get(), off64_t(upload->flushed), off64_t(upload->total - upload->flushed), SYNC_FILE_RANGE_WRITE);
            upload->flushed = upload->total;
        }
        upload->lastData.start();
    }
}

void FTPSession::finishUpload()
{
    // The data connection ended normally: the file is checked and stored as usual, even when the
    // camera hangs up at once without waiting for the reply. A cut file is caught by the check.
    Upload u = std::move(*upload);
    upload.reset();
    dropDataChannel();
    activeTarget.reset();
    dataWatch->stop();
    if (u.total == 0) {
        _dest->discard(u.temp);
        _dest.reset();
        if (isTmpName(u.file)) {
            reply(226, QStringLiteral("Recibida"));   // cameras probe the folder with an empty .tmp
        } else {
            reply(451, QStringLiteral("Archivo vacío"));
            server->emitEvent(FTPEvent::refused(u.file.last(), QStringLiteral("Archivo vacío")));
        }
        process();
        return;
    }
    // The check and the comparison with same-named files read up to the whole file, once per
    // file compared. A small cost is paid here and answered in this same turn; a large one (a big
    // file, or many stored files of one name and size) runs off this thread, so other cameras are
    // answered meanwhile, and this session's commands wait for its reply. (Every file through the
    // other thread cost some FTP clients a second per upload: they miss a reply that comes too soon.)
    const FTPPath::Parts file = u.file;
    const FTPPath::Parts where = file.mid(0, file.size() - 1);
    if (_dest->finishingCost(where, file.last(), u.total) <= kFinishHere) {
        const Finished f = finishFile(*_dest, u.temp, file);
        _dest.reset();
        finished(server, this, file, f);
        return;
    }
    busy = true;
    const std::shared_ptr<DestinationFolder> dest(std::move(_dest));
    const auto temp = std::make_shared<DestinationFolder::Temp>(std::move(u.temp));
    FTPReceiver *owner = server;
    const auto self = std::make_shared<const QPointer<FTPSession>>(this);   // read on `queue` only
    server->finishing().post([dest, temp, file, owner, self] {
        const Finished f = finishFile(*dest, *temp, file);
        QMetaObject::invokeMethod(owner->anchor(), [owner, self, file, f] { finished(owner, *self, file, f); },
                                  Qt::QueuedConnection);
    });
}

FTPSession::Finished FTPSession::finishFile(const DestinationFolder &dest, DestinationFolder::Temp &temp, const FTPPath::Parts &file)
{
    Finished f;
    if (ImageCompleteness::check(temp.fd.get()) == ImageCompleteness::Verdict::truncated) {
        f.truncated = true;
        dest.discard(temp);
    } else {
        // Not forced to the disk before the reply (no fsync): waiting for the disk would hold the
        // camera, whose card keeps the original; the write-behind has most of it on its way.
        f.placed = dest.place(temp, file.mid(0, file.size() - 1), file.last());
    }
    return f;
}

void FTPSession::finished(FTPReceiver *owner, FTPSession *session, const FTPPath::Parts &file, const Finished &f)
{
    const bool stored = !f.truncated && !f.placed.error && !f.placed.repeat;
    const QString refusal = f.truncated ? QStringLiteral("Imagen incompleta")
                            : f.placed.error ? writeErrorText(f.placed.error) : QString();
    if (session && !session->closed) {
        session->busy = false;
        session->armIdle();   // the camera's silence counts from this reply
        if (f.truncated)
            session->reply(451, refusal);
        else if (f.placed.error)
            session->reply(452, refusal);
        else
            session->reply(226, QStringLiteral("Recibida"));
        if (stored) {
            ++session->stored;
            session->receivedHere.insert(f.placed.path.toLower());
        }
    }
    // A repeat is already in the folder; a .tmp is not a shot yet (a rename follows). A file
    // stored after its camera hung up is reported all the same.
    if (stored && !isTmpName(file))
        owner->emitEvent(FTPEvent::file(f.placed.path));
    if (!refusal.isEmpty())
        owner->emitEvent(FTPEvent::refused(file.last(), refusal));
    if (session && !session->closed)
        session->process();
}

void FTPSession::failUpload(int code, const QString &text)
{
    if (upload)
        server->emitEvent(FTPEvent::refused(upload->file.last(), text));
    endTransfer();
    reply(code, text);
    process();
}

void FTPSession::onDataWatch()
{
    if (closed)
        return;
    if (upload) {
        // Less than the wake-up amount may be waiting (see FTPDataChannel::startReading()).
        onDataReadable();
        if (!upload)
            return;
        // Data came meanwhile: wait out the rest of the span since the last of it.
        const qint64 idleMs = std::chrono::milliseconds(server->limits().dataIdle).count();
        if (upload->lastData.elapsed() < idleMs) {
            dataWatch->start(int(idleMs - upload->lastData.elapsed()) + 1);
            return;
        }
        failUpload(426, QStringLiteral("La cámara ha dejado de enviar"));
    } else if (waitingData) {
        endTransfer();
        reply(425, QStringLiteral("La cámara no ha abierto el canal de datos"));
        process();
    }
}

void FTPSession::cmdAbor(const QByteArray &)
{
    endTransfer();
    reply(226, QStringLiteral("Cancelado"));
}

void FTPSession::dropDataChannel()
{
    if (pasv) {
        pasv->close();
        pasv->deleteLater();
        pasv = nullptr;
    }
    if (data) {
        data->close();
        data->deleteLater();
        data = nullptr;
    }
}

void FTPSession::endTransfer()
{
    dataWatch->stop();
    if (upload) {
        if (_dest)
            _dest->discard(upload->temp);
        upload.reset();
    }
    waitingData.reset();
    dropDataChannel();
    activeTarget.reset();
    _dest.reset();
}
