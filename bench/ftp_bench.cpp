// The FTP receiver against vsftpd: the same curl uploads N files of M MB over loopback to each
// (vsftpd is started here with a configuration of its own, on another port, into another folder),
// and the ratio of their throughputs. Then the time from the end of an upload to the shot being
// in the open folder's list (camera hub and browser state, as in the window).
//   ftp_bench [--files N] [--mb M] [--rounds R]     200 files of 20 MB, 2 rounds by default
// vsftpd needs root (it drops to the "ftp" user for anonymous uploads); without it only Corvane's
// figure is printed.
#include "camera/camerahub.h"
#include "camera/ftpreceiver.h"
#include "browser/appstate.h"
#include "browser/browsersession.h"
#include "vsftpdserver.h"

#include <QBuffer>
#include <QCoreApplication>
#include <QDir>
#include <QElapsedTimer>
#include <QFile>
#include <QImage>
#include <QProcess>
#include <QRandomGenerator>
#include <QSettings>
#include <QStandardPaths>
#include <QTcpServer>
#include <QTcpSocket>
#include <QThread>

#include <algorithm>
#include <arpa/inet.h>
#include <atomic>
#include <chrono>
#include <cmath>
#include <cstdio>
#include <netinet/in.h>
#include <pwd.h>
#include <spawn.h>
#include <sys/socket.h>
#include <sys/wait.h>
#include <thread>
#include <unistd.h>

extern char **environ;

namespace {

using Clock = std::chrono::steady_clock;

// A JPEG of about `mb` megabytes (noise compresses badly: that is the point), made once.
QString sourceShot(const QString &dir, int mb)
{
    const QString path = dir + QStringLiteral("/shot-%1MB.jpg").arg(mb);
    if (QFileInfo(path).size() > 0)
        return path;
    std::fprintf(stderr, "ftp_bench: making a %d MB JPEG in %s\n", mb, qPrintable(dir));
    // Noise at quality 100 takes about 2.05 bytes a pixel.
    const int pixels = int(mb * 1e6 / 2.05);
    const int w = int(std::sqrt(pixels * 1.5)), h = pixels / w;
    QImage img(w, h, QImage::Format_RGB32);
    QRandomGenerator rng(42);
    for (int y = 0; y < h; ++y) {
        auto *line = reinterpret_cast<quint32 *>(img.scanLine(y));
        for (int x = 0; x < w; ++x)
            line[x] = rng.generate() | 0xFF000000u;
    }
    return img.save(path, "JPG", 100) ? path : QString();
}

QString curlConfig(const QString &path, const QString &source, const QString &urlBase, int files)
{
    QFile f(path);
    if (!f.open(QIODevice::WriteOnly))
        return {};
    f.write("silent\nshow-error\n");
    for (int i = 0; i < files; ++i)
        f.write(QStringLiteral("upload-file = \"%1\"\nurl = \"%2/f%3.jpg\"\n").arg(source, urlBase).arg(i, 3, 10, QLatin1Char('0')).toUtf8());
    return path;
}

// One curl process over the whole list, in active mode: seconds, or -1.
double timeCurl(const QString &config)
{
    const QByteArray path = QFile::encodeName(config);
    char *argv[] = {const_cast<char *>("curl"), const_cast<char *>("-P"), const_cast<char *>("127.0.0.1"),
                    const_cast<char *>("-K"), const_cast<char *>(path.constData()), nullptr};
    QElapsedTimer t;
    t.start();
    pid_t pid = 0;
    if (posix_spawnp(&pid, "curl", nullptr, nullptr, argv, environ) != 0)
        return -1;
    int status = 0;
    if (waitpid(pid, &status, 0) != pid || !WIFEXITED(status) || WEXITSTATUS(status) != 0)
        return -1;
    return t.nsecsElapsed() / 1e9;
}

// The files of `dir` (and of its "up" folder, where the uploads go) that have `size` bytes;
// then every one of them is removed.
int countAndClear(const QString &base, qint64 size)
{
    const QString dir = QFileInfo(base + QStringLiteral("/up")).isDir() ? base + QStringLiteral("/up") : base;
    ::sync();   // the next run starts with nothing waiting to be written
    int ok = 0;
    for (const QFileInfo &fi : QDir(dir).entryInfoList(QDir::Files))
        if (fi.size() == size)
            ++ok;
    for (const QString &name : QDir(dir).entryList(QDir::Files | QDir::Hidden))
        QFile::remove(dir + QLatin1Char('/') + name);
    ::sync();
    return ok;
}

// ----- End of upload → in the browser's list

// A camera on its own thread: blocking sockets, one control connection, EPSV for each file.
class CameraClient
{
public:
    bool connectTo(quint16 port, const QByteArray &password, const QByteArray &user = "corvane")
    {
        _ctrl = dial(port);
        if (_ctrl < 0 || !reply().startsWith("220"))
            return false;
        const QByteArray r = command("USER " + user);   // vsftpd lets anonymous in at once
        return (r.startsWith("230") || (r.startsWith("331") && command("PASS " + password).startsWith("230")))
               && command("TYPE I").startsWith("200");
    }
    // Sends one file; returns the moment the last byte was handed over and the data connection
    // closed, or nothing on failure.
    std::optional<Clock::time_point> send(const QByteArray &name, const QByteArray &bytes)
    {
        const QByteArray epsv = command("EPSV");
        const qsizetype bar = epsv.indexOf("|||");
        if (bar < 0)
            return std::nullopt;
        const int data = dial(quint16(epsv.mid(bar + 3).split('|').first().toInt()));
        if (data < 0 || !command("STOR " + name).startsWith("150"))
            return std::nullopt;
        for (qsizetype done = 0; done < bytes.size();) {
            const ssize_t n = ::send(data, bytes.constData() + done, size_t(bytes.size() - done), MSG_NOSIGNAL);
            if (n <= 0) {
                ::close(data);
                return std::nullopt;
            }
            done += n;
        }
        ::close(data);
        const auto end = Clock::now();
        if (!reply().startsWith("226"))
            return std::nullopt;
        return end;
    }
    ~CameraClient()
    {
        if (_ctrl >= 0)
            ::close(_ctrl);
    }

private:
    static int dial(quint16 port)
    {
        const int fd = ::socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0);
        sockaddr_in a{};
        a.sin_family = AF_INET;
        a.sin_port = htons(port);
        a.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
        if (::connect(fd, reinterpret_cast<sockaddr *>(&a), sizeof a) != 0) {
            ::close(fd);
            return -1;
        }
        return fd;
    }
    QByteArray command(const QByteArray &line)
    {
        const QByteArray out = line + "\r\n";
        if (::send(_ctrl, out.constData(), size_t(out.size()), MSG_NOSIGNAL) != out.size())
            return {};
        return reply();
    }
    QByteArray reply()
    {
        for (;;) {
            const qsizetype lf = _buffer.indexOf('\n');
            if (lf >= 0) {
                const QByteArray line = _buffer.left(lf + 1);
                _buffer.remove(0, lf + 1);
                return line;
            }
            char chunk[512];
            const ssize_t n = ::recv(_ctrl, chunk, sizeof chunk, 0);
            if (n <= 0)
                return {};
            _buffer.append(chunk, n);
        }
    }
    int _ctrl = -1;
    QByteArray _buffer;
};

// The bench's own camera over passive connections (EPSV, as cameras use): seconds, or -1.
double timeCamera(quint16 port, const QByteArray &user, const QByteArray &password, const QByteArray &bytes, int files)
{
    QElapsedTimer t;
    t.start();
    CameraClient c;
    if (!c.connectTo(port, password, user))
        return -1;
    for (int i = 0; i < files; ++i)
        if (!c.send(QStringLiteral("up/f%1.jpg").arg(i, 3, 10, QLatin1Char('0')).toLatin1(), bytes))
            return -1;
    return t.nsecsElapsed() / 1e9;
}

struct Latency {
    double median = -1, max = -1;
    int count = 0;
};

Latency measureLatency(const QString &base, const QByteArray &shot, int shots)
{
    const QString folder = base + QStringLiteral("/latency");
    QDir(folder).removeRecursively();
    QDir().mkpath(folder);
    BrowserSession session;
    AppState &state = session.state();
    {
        QEventLoop loop;
        QObject::connect(&state, &AppState::loaded, &loop, &QEventLoop::quit);
        state.openFolder(folder);
        loop.exec();
    }
    CameraHub &hub = session.cameraHub();
    hub.setListenAddress(QHostAddress::LocalHost);
    hub.setPort(0, false);
    hub.setWifiOn(true);
    while (hub.listeningPort() == 0 && hub.wifiOn())
        QCoreApplication::processEvents(QEventLoop::WaitForMoreEvents, 50);
    if (!hub.wifiOn())
        return {};

    std::vector<Clock::time_point> ended(static_cast<size_t>(shots)), seen(static_cast<size_t>(shots));
    std::atomic<bool> failed{false}, done{false};
    // In the list: the moment the browser state holds the shot (checked as its lists change).
    QObject::connect(&state, &AppState::photosChanged, &state, [&] {
        const auto now = Clock::now();
        for (const PhotoPtr &p : state.photos()) {
            const int i = p->name().mid(4, 3).toInt();
            if (i >= 0 && i < shots && seen[size_t(i)] == Clock::time_point())
                seen[size_t(i)] = now;
        }
    });
    std::thread camera([&] {
        CameraClient c;
        if (!c.connectTo(hub.listeningPort(), hub.password().toUtf8()))
            failed = true;
        for (int i = 0; i < shots && !failed; ++i) {
            const auto end = c.send(QStringLiteral("DSC_%1.JPG").arg(i, 3, 10, QLatin1Char('0')).toLatin1(), shot);
            if (!end)
                failed = true;
            else
                ended[size_t(i)] = *end;
            std::this_thread::sleep_for(std::chrono::milliseconds(100));   // a camera between frames
        }
        done = true;
    });
    while (!done)
        QCoreApplication::processEvents(QEventLoop::AllEvents, 20);
    camera.join();
    QElapsedTimer settle;
    settle.start();
    while (settle.elapsed() < 500)
        QCoreApplication::processEvents(QEventLoop::AllEvents, 20);
    hub.setWifiOn(false);
    if (failed)
        return {};
    std::vector<double> ms;
    for (int i = 0; i < shots; ++i)
        if (seen[size_t(i)] != Clock::time_point())
            ms.push_back(std::chrono::duration<double, std::milli>(seen[size_t(i)] - ended[size_t(i)]).count());
    std::sort(ms.begin(), ms.end());
    Latency l;
    l.count = int(ms.size());
    if (!ms.empty()) {
        l.median = ms[ms.size() / 2];
        l.max = ms.back();
    }
    return l;
}

} // namespace

int main(int argc, char **argv)
{
    QCoreApplication app(argc, argv);
    QCoreApplication::setOrganizationName(QStringLiteral("Corvane"));
    QCoreApplication::setApplicationName(QStringLiteral("CorvaneBench"));
    int files = 200, mb = 20, rounds = 2;
    const QStringList args = app.arguments().mid(1);
    for (qsizetype i = 0; i + 1 < args.size(); i += 2) {
        const int v = args[i + 1].toInt();
        if (args[i] == QLatin1String("--files"))
            files = v;
        else if (args[i] == QLatin1String("--mb"))
            mb = v;
        else if (args[i] == QLatin1String("--rounds"))
            rounds = v;
    }
    if (files < 1 || mb < 1 || rounds < 1 || args.size() % 2) {
        std::fprintf(stderr, "uso: ftp_bench [--files N] [--mb M] [--rounds R]\n");
        return 2;
    }

    const QString base = QDir::tempPath() + QStringLiteral("/corvane-ftp-bench");
    QDir().mkpath(base);
    const QString shot = sourceShot(base, mb);
    if (shot.isEmpty()) {
        std::fprintf(stderr, "ftp_bench: no se pudo preparar la imagen de prueba\n");
        return 1;
    }
    const qint64 size = QFileInfo(shot).size();
    const double totalMB = double(size) * files / 1e6;
    QFile shotFile(shot);
    shotFile.open(QIODevice::ReadOnly);
    const QByteArray bytes = shotFile.readAll();

    // Corvane's receiver, as the camera hub runs it (its own thread), on a loopback port.
    const QString ours = base + QStringLiteral("/corvane-dest");
    QDir().mkpath(ours);
    countAndClear(ours, size);
    const QString password = QStringLiteral("benchpass42");
    FTPLimits limits;
    limits.minFreeSpace = 0;
    FTPReceiver receiver(ours, QStringLiteral("corvane"), password, 0, limits, QHostAddress::LocalHost);
    std::atomic<int> stored{0};
    receiver.onEvent = [&](const FTPEvent &e) {
        if (e.kind == FTPEvent::Kind::file)
            ++stored;
    };
    receiver.start();
    while (receiver.port() == 0)
        QThread::msleep(10);
    const QString ourConfig = curlConfig(base + QStringLiteral("/corvane.curl"), shot,
                                         QStringLiteral("ftp://corvane:%1@127.0.0.1:%2/up").arg(password).arg(receiver.port()), files);

    VsftpdServer vsftpd;   // the tests' own: the same configuration, started the same way
    const bool havePeer = vsftpd.start(base);
    const QString peerConfig = havePeer ? curlConfig(base + QStringLiteral("/vsftpd.curl"), shot,
                                                     QStringLiteral("ftp://anonymous:x@127.0.0.1:%1/up").arg(vsftpd.port), files)
                                        : QString();
    if (!havePeer)
        std::fprintf(stderr, "ftp_bench: vsftpd not started (needs root and the ftp user); Corvane alone\n");

    // Both into a folder "up". curl in active mode (-P): in passive mode curl 7.88 often waits a
    // second before it opens the data connection, when the server's EPSV reply comes at once,
    // which would measure curl. Passive mode is measured with the bench's own camera client.
    // Interleaved rounds, best of each, so both see the same machine.
    double best = 1e300, peerBest = 1e300, cam = 1e300, peerCam = 1e300;
    const auto check = [&](const char *who, double seconds, const QString &dir, double &bestSoFar) {
        const int ok = countAndClear(dir, size);
        if (seconds < 0 || ok != files) {
            std::fprintf(stderr, "ftp_bench: %s stored %d of %d\n", who, ok, files);
            return false;
        }
        bestSoFar = std::min(bestSoFar, seconds);
        if (qEnvironmentVariableIsSet("FTP_BENCH_VERBOSE"))
            std::fprintf(stderr, "  %s: %.2f s\n", who, seconds);
        return true;
    };
    // All curl rounds first: the camera client's rounds run in this process and leave it busier
    // (hundreds of its sockets closing), which slowed the next curl run against Corvane only.
    for (int r = 0; r < rounds; ++r) {
        if (!check("Corvane (curl)", timeCurl(ourConfig), ours, best))
            return 1;
        if (havePeer && !check("vsftpd (curl)", timeCurl(peerConfig), vsftpd.upload.chopped(3), peerBest))
            return 1;
    }
    for (int r = 0; r < rounds; ++r) {
        if (!check("Corvane (camera)", timeCamera(receiver.port(), "corvane", password.toUtf8(), bytes, files), ours, cam))
            return 1;
        if (havePeer && !check("vsftpd (camera)", timeCamera(vsftpd.port, "anonymous", "x", bytes, files), vsftpd.upload.chopped(3), peerCam))
            return 1;
    }
    receiver.stop();

    std::printf("%d files of %.1f MB over loopback, best of %d\n", files, size / 1e6, rounds);
    std::printf("curl -P (active):     corvane %6.2f s %7.1f MB/s", best, totalMB / best);
    if (havePeer)
        std::printf("   vsftpd %6.2f s %7.1f MB/s   corvane/vsftpd throughput = %.2f (aim >= 0.90)", peerBest,
                    totalMB / peerBest, peerBest / best);
    std::printf("\ncamera client (EPSV): corvane %6.2f s %7.1f MB/s", cam, totalMB / cam);
    if (havePeer)
        std::printf("   vsftpd %6.2f s %7.1f MB/s   corvane/vsftpd throughput = %.2f (aim >= 0.90)", peerCam,
                    totalMB / peerCam, peerCam / cam);
    std::printf("\n");

    const int shots = 30;
    const Latency l = measureLatency(base, bytes, shots);
    if (l.count != shots) {
        std::fprintf(stderr, "ftp_bench: %d of %d shots reached the list\n", l.count, shots);
        return 1;
    }
    std::printf("end of upload → in the open folder's list, %d shots of %.1f MB: median %.1f ms, max %.1f ms (aim < 200 ms)\n",
                shots, size / 1e6, l.median, l.max);
    return 0;
}
