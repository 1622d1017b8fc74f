// The grey resampler against libvips' own Lanczos-3 on the same pixels, and the properties the
// sharpness measure leans on: flat stays exactly flat, sizes are exact, edges stay in place.
#include <vips/vips8>

#include "imaging/greyresampler.h"

#include "testscenes.h"

#include <QtTest>

#include <cmath>

namespace {

QImage vipsLanczos(const QImage &grey, QSize size)
{
    QByteArray dense;
    for (int y = 0; y < grey.height(); ++y)
        dense.append(reinterpret_cast<const char *>(grey.constScanLine(y)), grey.width());
    const vips::VImage in = vips::VImage::new_from_memory(dense.data(), size_t(dense.size()), grey.width(),
                                                          grey.height(), 1, VIPS_FORMAT_UCHAR);
    const vips::VImage out = in.resize(double(size.width()) / grey.width(),
                                       vips::VImage::option()
                                           ->set("vscale", double(size.height()) / grey.height())
                                           ->set("kernel", VIPS_KERNEL_LANCZOS3))
                                 .embed(0, 0, size.width(), size.height(), vips::VImage::option()->set("extend", VIPS_EXTEND_COPY));
    size_t length = 0;
    void *pixels = out.write_to_memory(&length);
    QImage image(size, QImage::Format_Grayscale8);
    for (int y = 0; y < size.height(); ++y)
        std::memcpy(image.scanLine(y), static_cast<const uint8_t *>(pixels) + qsizetype(y) * size.width(), size_t(size.width()));
    g_free(pixels);
    return image;
}

double meanAbsDiff(const QImage &a, const QImage &b)
{
    double sum = 0;
    for (int y = 0; y < a.height(); ++y)
        for (int x = 0; x < a.width(); ++x)
            sum += std::abs(int(a.constScanLine(y)[x]) - int(b.constScanLine(y)[x]));
    return sum / (double(a.width()) * a.height());
}

} // namespace

class TestGreyResampler : public QObject
{
    Q_OBJECT

private slots:
    void initTestCase() { QVERIFY(VIPS_INIT("tst_greyresampler") == 0); }

    void agreesWithLibvips_data()
    {
        QTest::addColumn<QSize>("from");
        QTest::addColumn<QSize>("to");
        QTest::newRow("camera 1/2 scale to 1600") << QSize(3000, 2000) << QSize(1600, 1066);
        QTest::newRow("portrait, odd factors") << QSize(1299, 2001) << QSize(1039, 1600);
        QTest::newRow("slight shrink") << QSize(1700, 1100) << QSize(1600, 1035);
    }
    void agreesWithLibvips()
    {
        QFETCH(QSize, from);
        QFETCH(QSize, to);
        const QImage grey = sharpScene(from.width(), from.height()).convertToFormat(QImage::Format_Grayscale8);
        const QImage ours = GreyResampler::lanczos3(grey, to);
        QCOMPARE(ours.size(), to);
        QCOMPARE(ours.format(), QImage::Format_Grayscale8);
        const double d = meanAbsDiff(ours, vipsLanczos(grey, to));
        QVERIFY2(d < 1.5, qPrintable(QString::number(d)));
    }

    void flatStaysFlat()
    {
        QImage grey(777, 513, QImage::Format_Grayscale8);
        grey.fill(173);
        // Shrunk, and enlarged as the measure does with images under 16 pixels.
        for (const QSize size : {QSize(300, 198), QSize(16, 16)}) {
            const QImage out = GreyResampler::lanczos3(size.width() > 16 ? grey : grey.copy(0, 0, 10, 10), size);
            QCOMPARE(out.size(), size);
            for (int y = 0; y < out.height(); ++y)
                for (int x = 0; x < out.width(); ++x)
                    QCOMPARE(int(out.constScanLine(y)[x]), 173);
        }
    }

    void edgeStaysInPlace()
    {
        // Black left half, white right half: the middle grey of the edge stays in the middle.
        QImage grey(2000, 40, QImage::Format_Grayscale8);
        for (int y = 0; y < 40; ++y)
            for (int x = 0; x < 2000; ++x)
                grey.scanLine(y)[x] = x < 1000 ? 0 : 255;
        const QImage out = GreyResampler::lanczos3(grey, QSize(800, 16));
        const uint8_t *row = out.constScanLine(8);
        QVERIFY(row[395] < 20 && row[404] > 235);
        QVERIFY(std::abs(int(row[399]) + int(row[400]) - 255) < 40);
    }

    void refusesWhatItCannotDo()
    {
        QVERIFY(GreyResampler::lanczos3(QImage(), QSize(10, 10)).isNull());
        QVERIFY(GreyResampler::lanczos3(QImage(10, 10, QImage::Format_RGB32), QSize(5, 5)).isNull());
        QImage grey(10, 10, QImage::Format_Grayscale8);
        grey.fill(0);
        QVERIFY(GreyResampler::lanczos3(grey, QSize(0, 5)).isNull());
    }
};

QTEST_GUILESS_MAIN(TestGreyResampler)
#include "tst_greyresampler.moc"
