#pragma once
// Camera-sized test JPEGs shared by the benchmarks, written once under the temporary folder.
// Include after <vips/vips8>.
#include <QDir>
#include <QFile>
#include <QStringList>

#include <algorithm>
#include <cstdio>

// `files` camera-sized JPEGs with photographic detail (blurred noise over colour gradients,
// about 8 MB each), made once and reused by later runs.
inline QStringList benchJpegs(const QString &folder, int files, int width, int height)
{
    const QString dir = QDir::tempPath() + QLatin1Char('/') + folder;
    QStringList paths;
    for (int i = 1; i <= files; ++i)
        paths << dir + QStringLiteral("/DSC_%1.JPG").arg(i, 5, 10, QLatin1Char('0'));
    if (std::all_of(paths.begin(), paths.end(), [](const QString &p) { return QFile::exists(p); }))
        return paths;

    std::fprintf(stderr, "bench: writing %d JPEGs of %d×%d into %s (once)\n", files, width, height, qPrintable(dir));
    if (!QDir().mkpath(dir))
        return {};
    try {
        using vips::VImage;
        const VImage noise = VImage::gaussnoise(width, height, VImage::option()->set("sigma", 40.0)->set("mean", 128.0))
                                 .gaussblur(1.2);
        const VImage xyz = VImage::xyz(width, height);
        const VImage gradient = (xyz[0] * (255.0 / width)).bandjoin(xyz[1] * (255.0 / height)).bandjoin(xyz[0] * 0.0 + 90.0);
        const VImage base = (gradient * 0.6 + noise * 0.4).copy_memory();
        for (int i = 0; i < files; ++i) {
            if (QFile::exists(paths[i]))
                continue;
            const double shift = (i * 37) % 60 - 30;
            (base + shift).cast(VIPS_FORMAT_UCHAR)
                .copy(VImage::option()->set("interpretation", VIPS_INTERPRETATION_sRGB))
                .jpegsave(QFile::encodeName(paths[i] + QStringLiteral(".part")).constData(), VImage::option()->set("Q", 92));
            QFile::rename(paths[i] + QStringLiteral(".part"), paths[i]);
        }
    } catch (const vips::VError &e) {
        std::fprintf(stderr, "bench: %s\n", e.what());
        return {};
    }
    return paths;
}

