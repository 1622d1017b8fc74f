// Sending to vsftpd on loopback: the upload queue against `curl -T` of the same files in one
// process, in the same run. Corvane sends under a temporary name and renames (as the queue always
// does for such a server), one transfer at a time and then two.
//   upload_bench [--files N] [--mb M] [--rounds R]     200 files of 20 MB, 2 rounds by default
// vsftpd needs root (it drops to the "ftp" user for anonymous uploads); without it nothing runs.
// To see where the time goes: UPLOAD_BENCH_DIRECT=1 sends straight under the final names (no
// rename), UPLOAD_BENCH_JOURNAL=PATH puts the queue's journal elsewhere (a tmpfs, say).
#include "vsftpdserver.h"

#include "upload/uploadqueue.h"

#include <QCoreApplication>
#include <QElapsedTimer>
#include <QRandomGenerator>
#include <QTemporaryDir>

#include <algorithm>
#include <csignal>
#include <cstdio>

namespace {

// N names for one file of M MB of noise (hard links: the page cache holds it once).
QStringList makeFiles(const QString &dir, int files, int mb)
{
    const QString source = dir + QStringLiteral("/source.jpg");
    QFile f(source);
    if (!f.open(QIODevice::WriteOnly))
        return {};
    QByteArray block(1 << 20, Qt::Uninitialized);
    QRandomGenerator rng(7);
    for (int i = 0; i < mb; ++i) {
        rng.fillRange(reinterpret_cast<quint32 *>(block.data()), block.size() / 4);
        f.write(block);
    }
    f.close();
    QStringList out;
    for (int i = 0; i < files; ++i) {
        const QString path = dir + QStringLiteral("/f%1.jpg").arg(i, 3, 10, QLatin1Char('0'));
        if (::link(QFile::encodeName(source).constData(), QFile::encodeName(path).constData()) != 0)
            return {};
        out << path;
    }
    return out;
}

void clear(const QString &dir)
{
    for (const QString &name : QDir(dir).entryList(QDir::Files | QDir::Hidden))
        QFile::remove(dir + QLatin1Char('/') + name);
    ::sync();
}

double timeCurl(const QString &dir, const QStringList &files, const QByteArray &url)
{
    const QString config = dir + QStringLiteral("/curl.conf");
    QFile f(config);
    if (!f.open(QIODevice::WriteOnly))
        return -1;
    f.write("silent\nshow-error\n");
    for (const QString &p : files)
        f.write(QStringLiteral("upload-file = \"%1\"\nurl = \"%2%3\"\n").arg(p, QString::fromUtf8(url), QFileInfo(p).fileName()).toUtf8());
    f.close();
    QElapsedTimer t;
    t.start();
    if (QProcess::execute(QStringLiteral("curl"), {QStringLiteral("-K"), config}) != 0)
        return -1;
    return t.nsecsElapsed() / 1e9;
}

double timeQueue(const QString &dir, const QStringList &files, quint16 port, int parallel)
{
    UploadServer server;
    server.id = QStringLiteral("bench");
    server.name = QStringLiteral("vsftpd");
    server.host = QStringLiteral("127.0.0.1");
    server.port = port;
    server.folder = QStringLiteral("up");
    server.tempName = !qEnvironmentVariableIsSet("UPLOAD_BENCH_DIRECT");
    UploadQueue queue(qEnvironmentVariable("UPLOAD_BENCH_JOURNAL", dir + QStringLiteral("/journal.json")));
    queue.setServerLookup([server](const QString &) { return server; });
    queue.setParallel(parallel);
    const QString id = queue.add(server.id, files);
    QObject::connect(&queue, &UploadQueue::idleNow, qApp, &QCoreApplication::quit);
    QElapsedTimer t;
    t.start();
    queue.start();
    QCoreApplication::exec();
    const double seconds = t.nsecsElapsed() / 1e9;
    const auto job = queue.job(id);
    return job && job->state == UploadJob::State::done ? seconds : -1;
}

} // namespace

int main(int argc, char **argv)
{
    QCoreApplication app(argc, argv);
    ::signal(SIGPIPE, SIG_IGN);
    int files = 200, mb = 20, rounds = 2;
    const QStringList args = app.arguments();
    for (int i = 1; i + 1 < args.size(); i += 2) {
        if (args[i] == QLatin1String("--files"))
            files = args[i + 1].toInt();
        else if (args[i] == QLatin1String("--mb"))
            mb = args[i + 1].toInt();
        else if (args[i] == QLatin1String("--rounds"))
            rounds = std::max(1, args[i + 1].toInt());
    }
    QTemporaryDir dir;
    VsftpdServer ftp;
    if (!ftp.start(dir.path() + QStringLiteral("/ftp"))) {
        std::fprintf(stderr, "upload_bench: vsftpd not started (needs root and the ftp user)\n");
        return 1;
    }
    QDir().mkpath(dir.path() + QStringLiteral("/files"));
    const QStringList paths = makeFiles(dir.path() + QStringLiteral("/files"), files, mb);
    if (paths.isEmpty())
        return 1;
    const double megabytes = double(files) * mb * 1.048576;
    std::printf("upload_bench: %d files of %d MB to vsftpd on loopback\n", files, mb);

    // Each figure is the best of `rounds`, taken in turns, so neither side gains from going first
    // (the disk is still writing out the round before).
    double curl = 1e9, one = 1e9, two = 1e9;
    const auto best = [](double &keep, double t) { keep = t <= 0 || keep <= 0 ? -1 : std::min(keep, t); };
    for (int round = 0; round < rounds; ++round) {
        best(curl, timeCurl(dir.path(), paths, ftp.url()));
        clear(ftp.upload);
        best(one, timeQueue(dir.path(), paths, ftp.port, 1));
        clear(ftp.upload);
        best(two, timeQueue(dir.path(), paths, ftp.port, 2));
        clear(ftp.upload);
    }
    if (curl <= 0 || one <= 0 || two <= 0) {
        std::fprintf(stderr, "upload_bench: a run failed\n");
        return 1;
    }
    std::printf("   curl -T          %6.2f s %7.1f MB/s\n", curl, megabytes / curl);
    std::printf("   corvane, 1 a vez %6.2f s %7.1f MB/s   corvane/curl throughput = %.2f (aim >= 0.95)\n", one,
                megabytes / one, curl / one);
    std::printf("   corvane, 2 a vez %6.2f s %7.1f MB/s   corvane/curl throughput = %.2f (aim > 1 transfer)\n", two,
                megabytes / two, curl / two);
    return 0;
}
