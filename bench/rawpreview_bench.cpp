// RAW embedded previews: RawPreview::embeddedJPEG (the JPEG bytes for a 2560-pixel view, nothing
// decoded) against one `exiv2 -ep` process extracting the previews of the same files, on 24-MP
// RAWs as cameras write them (6000×4000 preview, about 13 MB each).
//   rawpreview_bench [--files N]      N RAWs, 200 by default
// glib (under libvips) names a struct member "signals", a word Qt's headers define away: it goes first.
#include <vips/vips8>

#include "sampledata/tiffrawwriter.h"
#include "imaging/rawpreview.h"

#include <QCoreApplication>
#include <QDir>
#include <QElapsedTimer>
#include <QFile>
#include <QTemporaryDir>

#include <algorithm>
#include <cstdio>
#include <fcntl.h>
#include <spawn.h>
#include <sys/wait.h>
#include <unistd.h>

extern char **environ;

namespace {

constexpr int kRuns = 3;
constexpr int kViewSize = 2560;
constexpr int kPreviews = 4;   // distinct previews, shared round-robin: encoding each takes a second

// The folder of `files` RAWs under the temporary folder, made once and reused by later runs.
QString benchFolder(int files, QStringList *paths)
{
    const QString dir = QDir::tempPath() + QStringLiteral("/corvane-rawpreview-bench-%1").arg(files);
    paths->clear();
    for (int i = 1; i <= files; ++i)
        *paths << dir + QStringLiteral("/DSC_%1.NEF").arg(i, 4, 10, QLatin1Char('0'));
    QFile m(dir + QStringLiteral("/.complete"));
    if (m.open(QIODevice::ReadOnly) && m.readAll().trimmed() == QByteArray::number(files))
        return dir;
    m.close();

    std::fprintf(stderr, "rawpreview_bench: writing %d RAWs into %s\n", files, qPrintable(dir));
    QDir(dir).removeRecursively();
    if (!QDir().mkpath(dir))
        return {};
    QList<QByteArray> raws;
    for (int k = 0; k < kPreviews; ++k) {
        TiffRawWriter::Options o = TiffRawWriter::realistic(TiffRawWriter::photoJpeg(6000, 4000, 90, k));
        o.orientation = k % 2 ? 6 : 1;
        raws << TiffRawWriter::build(o);
    }
    for (int i = 0; i < files; ++i) {
        QFile f(paths->at(i));
        const QByteArray &raw = raws[i % kPreviews];
        if (!f.open(QIODevice::WriteOnly) || f.write(raw) != raw.size())
            return {};
    }
    if (!m.open(QIODevice::WriteOnly) || m.write(QByteArray::number(files)) <= 0)
        return {};
    return dir;
}

// Reads every file once so both sides start from the page cache.
void warm(const QStringList &paths)
{
    for (const QString &p : paths) {
        QFile f(p);
        if (f.open(QIODevice::ReadOnly))
            while (!f.read(1 << 20).isEmpty()) {
            }
    }
}

// Corvane: the chosen preview's bytes for every file, in one thread. Milliseconds, or -1.
double timeCorvane(const QStringList &paths, qint64 *bytes)
{
    QElapsedTimer timer;
    timer.start();
    qint64 total = 0;
    for (const QString &p : paths) {
        const auto e = RawPreview::embeddedJPEG(p, kViewSize, 0, true, true);
        if (!e)
            return -1;
        total += e->jpeg.size();
    }
    const double ms = timer.nsecsElapsed() / 1e6;
    *bytes = total;
    return ms;
}

// One exiv2 process extracting previews of every file into `out` (`which`: "-ep" for all of
// them, "-ep2" for one). Milliseconds, or -1.
double timeExiv2(const QStringList &paths, const QString &which, const QString &out)
{
    QDir(out).removeRecursively();
    QDir().mkpath(out);
    QList<QByteArray> args{"exiv2", "-f", "-l", QFile::encodeName(out), which.toLatin1()};
    for (const QString &p : paths)
        args << QFile::encodeName(p);
    std::vector<char *> argv;
    for (QByteArray &a : args)
        argv.push_back(a.data());
    argv.push_back(nullptr);

    posix_spawn_file_actions_t actions;
    posix_spawn_file_actions_init(&actions);
    posix_spawn_file_actions_addopen(&actions, STDOUT_FILENO, "/dev/null", O_WRONLY, 0);
    posix_spawn_file_actions_addopen(&actions, STDERR_FILENO, "/dev/null", O_WRONLY, 0);
    QElapsedTimer timer;
    timer.start();
    pid_t pid = 0;
    const int rc = posix_spawnp(&pid, "exiv2", &actions, nullptr, argv.data(), environ);
    posix_spawn_file_actions_destroy(&actions);
    if (rc != 0)
        return -1;
    int status = 0;
    if (waitpid(pid, &status, 0) != pid || !WIFEXITED(status) || WEXITSTATUS(status) != 0)
        return -1;
    return timer.nsecsElapsed() / 1e6;
}

// The bytes exiv2 wrote, to check it did the same work.
qint64 folderBytes(const QString &dir)
{
    qint64 total = 0;
    for (const QFileInfo &i : QDir(dir).entryInfoList(QDir::Files))
        total += i.size();
    return total;
}

} // namespace

int main(int argc, char **argv)
{
    QCoreApplication app(argc, argv);
    if (VIPS_INIT(argv[0]) != 0)
        return 1;
    int files = 200;
    const QStringList args = app.arguments().mid(1);
    for (qsizetype i = 0; i < args.size(); ++i) {
        bool ok = false;
        if (args[i] == QLatin1String("--files") && i + 1 < args.size())
            files = args[++i].toInt(&ok);
        if (!ok || files < 1) {
            std::fprintf(stderr, "uso: rawpreview_bench [--files N]   (N ≥ 1)\n");
            return 2;
        }
    }

    QStringList paths;
    const QString dir = benchFolder(files, &paths);
    if (dir.isEmpty()) {
        std::fprintf(stderr, "rawpreview_bench: no se pudo preparar la carpeta de prueba\n");
        return 1;
    }
    QTemporaryDir out;
    if (!out.isValid())
        return 1;
    const QString outDir = out.filePath(QStringLiteral("previews"));

    warm(paths);
    qint64 bytes = 0;
    if (timeCorvane(paths, &bytes) < 0 || timeExiv2(paths, QStringLiteral("-ep2"), outDir) < 0) {
        std::fprintf(stderr, "rawpreview_bench: la extracción falló\n");
        return 1;
    }
    const qint64 exivBytes = folderBytes(outDir);

    // Interleaved, so both see the same machine. Preview 2 is the full-size JPEG (1 is IFD0's
    // uncompressed thumbnail, which exiv2 writes as a TIFF).
    double corvane = 1e300, one = 1e300, all = 1e300;
    for (int run = 0; run < kRuns; ++run) {
        corvane = std::min(corvane, timeCorvane(paths, &bytes));
        one = std::min(one, timeExiv2(paths, QStringLiteral("-ep2"), outDir));
        all = std::min(all, timeExiv2(paths, QStringLiteral("-ep"), outDir));
    }
    QDir(outDir).removeRecursively();

    std::printf("folder: %s (%d RAWs of %.1f MB)\n", qPrintable(dir), files, QFileInfo(paths[0]).size() / 1e6);
    std::printf("corvane embeddedJPEG: %9.2f ms  (%.1f MB of JPEG, best of %d)\n", corvane, bytes / 1e6, kRuns);
    std::printf("exiv2 -ep2:           %9.2f ms  (%.1f MB written, one process, best of %d)\n", one, exivBytes / 1e6, kRuns);
    std::printf("exiv2 -ep:            %9.2f ms  (every preview, one process, best of %d)\n", all, kRuns);
    std::printf("exiv2 -ep2/corvane = %.1f (aim ≥ 5.0)\n", one / corvane);
    return 0;
}
