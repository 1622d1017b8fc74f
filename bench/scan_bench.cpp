// Folder listing: FolderScanner::listFolder against `find -printf` (names, sizes and dates of the
// same folder, the cheapest complete listing a shell gives) on a card-sized folder of RAW+JPEG pairs.
//   scan_bench [--files N]      N files (N/2 pairs), 20000 by default
#include "model/folderscanner.h"

#include <QCoreApplication>
#include <QDir>
#include <QElapsedTimer>
#include <QFile>

#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <fcntl.h>
#include <spawn.h>
#include <sys/wait.h>
#include <unistd.h>

extern char **environ;

namespace {

constexpr int kRuns = 5;

// The folder of `files` files under the temporary folder, made once and reused by later runs.
QString benchFolder(int files)
{
    const QString dir = QDir::tempPath() + QStringLiteral("/corvane-scan-bench-%1").arg(files);
    const QString marker = dir + QStringLiteral("/.complete");
    QFile m(marker);
    if (m.open(QIODevice::ReadOnly) && m.readAll().trimmed() == QByteArray::number(files))
        return dir;
    m.close();

    std::fprintf(stderr, "scan_bench: writing %d files into %s\n", files, qPrintable(dir));
    QDir(dir).removeRecursively();
    if (!QDir().mkpath(dir))
        return {};
    const QByteArray base = QFile::encodeName(dir);
    char path[4096];
    for (int i = 1; i <= files / 2; ++i) {
        for (const char *ext : {"NEF", "JPG"}) {
            std::snprintf(path, sizeof path, "%s/DSC_%05d.%s", base.constData(), i, ext);
            const int fd = ::open(path, O_WRONLY | O_CREAT | O_TRUNC, 0644);
            if (fd < 0 || ::write(fd, ext, 3) != 3) {
                if (fd >= 0)
                    ::close(fd);
                return {};
            }
            ::close(fd);
        }
    }
    if (!m.open(QIODevice::WriteOnly) || m.write(QByteArray::number(files)) <= 0)
        return {};
    return dir;
}

// One whole `find` process, output thrown away: milliseconds, or -1.
double timeFind(const QByteArray &dir)
{
    posix_spawn_file_actions_t actions;
    posix_spawn_file_actions_init(&actions);
    posix_spawn_file_actions_addopen(&actions, STDOUT_FILENO, "/dev/null", O_WRONLY, 0);
    char *argv[] = {const_cast<char *>("find"), const_cast<char *>(dir.constData()),
                    const_cast<char *>("-maxdepth"), const_cast<char *>("1"),
                    const_cast<char *>("-printf"), const_cast<char *>("%s %T@ %p\n"), nullptr};
    QElapsedTimer timer;
    timer.start();
    pid_t pid = 0;
    const int rc = posix_spawnp(&pid, "find", &actions, nullptr, argv, environ);
    posix_spawn_file_actions_destroy(&actions);
    if (rc != 0)
        return -1;
    int status = 0;
    if (waitpid(pid, &status, 0) != pid || !WIFEXITED(status) || WEXITSTATUS(status) != 0)
        return -1;
    return timer.nsecsElapsed() / 1e6;
}

double timeScan(const QString &dir, qsizetype *items)
{
    LoadToken token;
    QElapsedTimer timer;
    timer.start();
    const ScanResult r = FolderScanner::listFolder(dir, token);
    const double ms = timer.nsecsElapsed() / 1e6;
    *items = r.items.size();
    return ms;
}

} // namespace

int main(int argc, char **argv)
{
    QCoreApplication app(argc, argv);
    int files = 20000;
    const QStringList args = app.arguments().mid(1);
    for (qsizetype i = 0; i < args.size(); ++i) {
        bool ok = false;
        if (args[i] == QLatin1String("--files") && i + 1 < args.size())
            files = args[++i].toInt(&ok);
        if (!ok || files < 2) {
            std::fprintf(stderr, "uso: scan_bench [--files N]   (N ≥ 2)\n");
            return 2;
        }
    }

    const QString dir = benchFolder(files);
    if (dir.isEmpty()) {
        std::fprintf(stderr, "scan_bench: no se pudo preparar la carpeta de prueba\n");
        return 1;
    }
    const QByteArray nativeDir = QFile::encodeName(dir);

    // Warm-up: directory entries and inodes in the cache, code paged in, for both.
    qsizetype items = 0;
    timeScan(dir, &items);
    if (timeFind(nativeDir) < 0) {
        std::fprintf(stderr, "scan_bench: find falló\n");
        return 1;
    }

    // Interleaved, so both see the same machine.
    double scan = 1e300, find = 1e300;
    for (int run = 0; run < kRuns; ++run) {
        scan = std::min(scan, timeScan(dir, &items));
        find = std::min(find, timeFind(nativeDir));
    }

    std::printf("folder: %s (%d files)\n", qPrintable(dir), files);
    std::printf("corvane listFolder: %8.2f ms  (%lld items, best of %d)\n", scan, qlonglong(items), kRuns);
    std::printf("find -printf:       %8.2f ms  (whole process, best of %d)\n", find, kRuns);
    std::printf("corvane/find = %.2f (aim ≤ 2.00)\n", scan / find);
    return 0;
}
