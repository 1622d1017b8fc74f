// A template applied to 500 JPEGs of 10 MB by Corvane, against exiftool writing the same fields
// (IIM in UTF-8 and XMP) to the same files in one process with -overwrite_original. Each side gets
// fresh copies of the files and a `sync` first, so neither pays for the other's writes.
//   iptc_bench [FILES]   (works in $CORVANE_BENCH_DIR, else $TMPDIR, in corvane-iptc-bench)
#include "metadata/iptcbatch.h"

#include <QCoreApplication>
#include <QDir>
#include <QElapsedTimer>
#include <QFile>
#include <QProcess>
#include <QStandardPaths>

#include <cstdio>

namespace {

IptcTemplate benchTemplate()
{
    IptcTemplate t;
    t.name = QStringLiteral("Prensa");
    t.values[IptcField::creator] = QStringLiteral("Ana Núñez Peña");
    t.values[IptcField::creditLine] = QStringLiteral("Ana Núñez / Agencia Año");
    t.values[IptcField::copyrightNotice] = QStringLiteral("© 2026 Ana Núñez");
    t.values[IptcField::headline] = QStringLiteral("Final de Copa en Logroño");
    t.values[IptcField::description] = QStringLiteral("Celebración en Las Gaunas tras el último partido del año.");
    t.values[IptcField::city] = QStringLiteral("Logroño");
    t.values[IptcField::country] = QStringLiteral("España");
    t.values[IptcField::countryCode] = QStringLiteral("ESP");
    t.values.keywords = {QStringLiteral("fútbol"), QStringLiteral("Logroño"), QStringLiteral("campeón")};
    return t;
}

QStringList exiftoolArgs(const IptcTemplate &t)
{
    const auto v = [&t](IptcField f) { return t.values[f]; };
    QStringList a{"-q", "-overwrite_original", "-charset", "iptc=UTF8", "-IPTC:CodedCharacterSet=UTF8",
                  "-IPTC:By-line=" + v(IptcField::creator), "-XMP-dc:Creator=" + v(IptcField::creator),
                  "-IPTC:Credit=" + v(IptcField::creditLine), "-XMP-photoshop:Credit=" + v(IptcField::creditLine),
                  "-IPTC:CopyrightNotice=" + v(IptcField::copyrightNotice), "-XMP-dc:Rights=" + v(IptcField::copyrightNotice),
                  "-IPTC:Headline=" + v(IptcField::headline), "-XMP-photoshop:Headline=" + v(IptcField::headline),
                  "-IPTC:Caption-Abstract=" + v(IptcField::description), "-XMP-dc:Description=" + v(IptcField::description),
                  "-IPTC:City=" + v(IptcField::city), "-XMP-photoshop:City=" + v(IptcField::city),
                  "-IPTC:Country-PrimaryLocationName=" + v(IptcField::country), "-XMP-photoshop:Country=" + v(IptcField::country),
                  "-IPTC:Country-PrimaryLocationCode=" + v(IptcField::countryCode), "-XMP-iptcCore:CountryCode=" + v(IptcField::countryCode)};
    for (const QString &k : t.values.keywords)
        a << "-IPTC:Keywords+=" + k << "-XMP-dc:Subject+=" + k;
    return a;
}

QStringList copies(const QString &master, const QString &dir, int n)
{
    QDir(dir).removeRecursively();
    QDir().mkpath(dir);
    QStringList files;
    for (int i = 0; i < n; ++i) {
        const QString f = QStringLiteral("%1/IMG_%2.jpg").arg(dir).arg(i, 4, 10, QLatin1Char('0'));
        QFile::copy(master, f);
        files.append(f);
    }
    QProcess::execute(QStringLiteral("sync"), {});
    return files;
}

} // namespace

int main(int argc, char **argv)
{
    QCoreApplication app(argc, argv);
    const int n = argc > 1 ? QString::fromLocal8Bit(argv[1]).toInt() : 500;
    QString base = qEnvironmentVariable("CORVANE_BENCH_DIR", QDir::tempPath());
    const QString root = base + QStringLiteral("/corvane-iptc-bench");
    QDir().mkpath(root);
    const QString master = root + QStringLiteral("/master.jpg");
    if (!QFile::exists(master)
        && QProcess::execute(QStringLiteral("vips"), {"gaussnoise", master + "[Q=97]", "3900", "2900"}) != 0) {
        std::fprintf(stderr, "vips could not make the test image\n");
        return 1;
    }
    const double mb = double(QFileInfo(master).size()) / 1e6;
    const IptcTemplate t = benchTemplate();

    const QStringList ours = copies(master, root + QStringLiteral("/corvane"), n);
    QElapsedTimer clock;
    clock.start();
    const IptcBatch::Outcome o = IptcBatch::apply(t, ours);
    const double corvaneMs = clock.nsecsElapsed() / 1e6;
    if (o.written != n)
        std::fprintf(stderr, "corvane wrote %d of %d: %s\n", o.written, n, qPrintable(o.messages.value(0)));
    QDir(root + QStringLiteral("/corvane")).removeRecursively();

    const QStringList theirs = copies(master, root + QStringLiteral("/exiftool"), n);
    clock.restart();
    const int status = QProcess::execute(QStringLiteral("exiftool"), exiftoolArgs(t) + theirs);
    const double exiftoolMs = clock.nsecsElapsed() / 1e6;
    // exiftool leaves its files to the system to flush; the same files on the disk, for comparison.
    QProcess::execute(QStringLiteral("sync"), {});
    const double exiftoolSyncedMs = clock.nsecsElapsed() / 1e6;
    if (status != 0)
        std::fprintf(stderr, "exiftool failed (%d)\n", status);
    QDir(root + QStringLiteral("/exiftool")).removeRecursively();

    std::printf("IPTC template on %d JPEGs of %.1f MB\n", n, mb);
    std::printf("  corvane (synced before rename): %9.0f ms\n", corvaneMs);
    std::printf("  exiftool -overwrite_original:   %9.0f ms\n", exiftoolMs);
    std::printf("  exiftool, then sync:            %9.0f ms\n", exiftoolSyncedMs);
    std::printf("  ratio: %.2fx faster (aim >= 2x); %.2fx against exiftool with sync\n", exiftoolMs / corvaneMs,
                exiftoolSyncedMs / corvaneMs);
    return 0;
}
