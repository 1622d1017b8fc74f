// A batch rename of 10,000 shots (RAW + JPEG + XMP: 30,000 files) through the journal, against a
// shell loop of `mv` and against one `rename.ul` process renaming the same files.
//   rename_bench        (works in $CORVANE_BENCH_DIR, else /var/tmp, in corvane-rename-bench)
#include "fileops/renameplan.h"
#include "fileops/shotrenamer.h"

#include <QCoreApplication>
#include <QDir>
#include <QElapsedTimer>
#include <QFile>
#include <QProcess>

#include <cstdio>
#include <unistd.h>

namespace {

constexpr int kShots = 10000;

void make(const QString &dir)
{
    QDir(dir).removeRecursively();
    QDir().mkpath(dir);
    for (int i = 0; i < kShots; ++i)
        for (const char *ext : {"NEF", "JPG", "xmp"}) {
            QFile f(QStringLiteral("%1/DSC_%2.%3").arg(dir).arg(i, 5, 10, QLatin1Char('0')).arg(QLatin1String(ext)));
            f.open(QIODevice::WriteOnly);
            f.write("x");
        }
    ::sync();
}

double shell(const QString &dir, const QString &script)
{
    QElapsedTimer t;
    t.start();
    QProcess p;
    p.setWorkingDirectory(dir);
    p.start(QStringLiteral("bash"), {QStringLiteral("-c"), script});
    p.waitForFinished(-1);
    ::sync();   // the same durability as the journal's renames
    return t.nsecsElapsed() / 1e6;
}

} // namespace

int main(int argc, char **argv)
{
    QCoreApplication app(argc, argv);
    QCoreApplication::setApplicationName(QStringLiteral("corvane-rename-bench"));
    const QString dir = qEnvironmentVariable("CORVANE_BENCH_DIR", QStringLiteral("/var/tmp")) + QStringLiteral("/corvane-rename-bench");

    make(dir);
    QElapsedTimer t;
    t.start();
    QList<RenameShot> shots;
    for (int i = 0; i < kShots; ++i) {
        RenameShot s;
        const QString base = QStringLiteral("%1/DSC_%2").arg(dir).arg(i, 5, 10, QLatin1Char('0'));
        s.mainFile = base + QStringLiteral(".NEF");
        s.files = {s.mainFile, base + QStringLiteral(".JPG"), base + QStringLiteral(".xmp")};
        shots.append(s);
    }
    RenameOptions o;
    o.name = QStringLiteral("Boda");
    o.digits = 5;
    const RenamePlan plan = planRename(shots, o, QDir(dir).entryList(QDir::Files));
    const RenameOutcome out = ShotRenamer::run(plan);
    const double ours = t.nsecsElapsed() / 1e6;
    if (out.done != kShots)
        std::fprintf(stderr, "renamed %d of %d\n", out.done, kShots);
    std::printf("%d shots (%d files) in %s\n", kShots, kShots * 3, qPrintable(dir));
    std::printf("corvane (plan, journal, two phases, marks): %9.1f ms\n", ours);
    std::fflush(stdout);

    make(dir);
    const double loop = shell(dir, QStringLiteral("for f in DSC_*; do mv -n -- \"$f\" \"Boda_${f#DSC_}\"; done"));
    make(dir);
    const double one = shell(dir, QStringLiteral("rename.ul DSC_ Boda_ DSC_*"));
    QDir(dir).removeRecursively();

    std::printf("shell loop of mv -n:                        %9.1f ms   corvane/loop = %.2f (aim <= 2)\n", loop, ours / loop);
    std::printf("one rename.ul process:                      %9.1f ms   corvane/rename.ul = %.2f\n", one, ours / one);
    return 0;
}
