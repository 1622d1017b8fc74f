// Complete images told from cut ones: JPEGs written by Qt, TIFF-shaped RAWs from our writer,
// HEIC from libvips and MP4/MOV from ffmpeg, real camera files when the samples are present;
// each cut short at several points.
#include "camera/imagecompleteness.h"
#include "sampledata/tiffrawwriter.h"
#include "tangledtiff.h"
#include "testenv.h"

#include <QBuffer>
#include <QImage>
#include <QPainter>
#include <QProcess>
#include <QStandardPaths>
#include <QtTest>

using ImageCompleteness::Verdict;

namespace {

QByteArray qtJpeg(int w, int h)
{
    QImage img(w, h, QImage::Format_RGB32);
    QPainter p(&img);
    p.fillRect(img.rect(), Qt::darkCyan);
    for (int i = 0; i < 40; ++i)
        p.fillRect(QRect((i * 37) % w, (i * 53) % h, 20 + i, 10 + i), QColor::fromHsv((i * 29) % 360, 200, 220));
    p.end();
    QBuffer buf;
    buf.open(QIODevice::WriteOnly);
    img.save(&buf, "JPG", 90);
    return buf.data();
}

Verdict verdictOf(const QByteArray &bytes, TiffReader::Work *work = nullptr)
{
    QTemporaryFile f;
    if (!f.open())
        return Verdict::unknownKind;
    f.write(bytes);
    f.flush();
    return ImageCompleteness::check(f.handle(), work);
}

// The file whole, and cut at the given fractions of its size and one byte short.
void expectCompleteThenCut(const QByteArray &whole, const char *what)
{
    QVERIFY2(verdictOf(whole) == Verdict::complete, what);
    for (double f : {0.1, 0.5, 0.9}) {
        const QByteArray cut = whole.left(qsizetype(whole.size() * f));
        QVERIFY2(verdictOf(cut) == Verdict::truncated, qPrintable(QStringLiteral("%1 cut at %2").arg(what).arg(f)));
    }
    QVERIFY2(verdictOf(whole.chopped(1)) == Verdict::truncated, what);
}

} // namespace

class TestImageCompleteness : public QObject
{
    Q_OBJECT
private slots:
    void jpeg()
    {
        const QByteArray whole = qtJpeg(640, 480);
        expectCompleteThenCut(whole, "jpeg");
        QCOMPARE(verdictOf(whole.left(20)), Verdict::truncated);   // inside the header segments
        // Cameras pad after the end-of-image marker; some append a trailer of their own.
        QCOMPARE(verdictOf(whole + QByteArray(5000, '\0')), Verdict::complete);
        QCOMPARE(verdictOf(whole + "SEFT trailer of a phone maker"), Verdict::complete);
        // Two images in one file (MPF): the second ends the file.
        QCOMPARE(verdictOf(whole + qtJpeg(160, 120)), Verdict::complete);
    }

    void tiffRaws()
    {
        using TiffRawWriter::Options;
        Options o;
        o.jpeg = qtJpeg(1200, 800);
        o.sensorBytes = 400000;
        expectCompleteThenCut(TiffRawWriter::build(o), "nef");
        o.bigEndian = true;
        expectCompleteThenCut(TiffRawWriter::build(o), "big-endian");
        o.bigEndian = false;
        o.canonSignature = true;
        o.jpegRef = Options::JpegRef::Strip;
        expectCompleteThenCut(TiffRawWriter::build(o), "cr2");
        o.canonSignature = false;
        o.jpegRef = Options::JpegRef::Interchange;
        o.magic = Options::Magic::Panasonic;
        expectCompleteThenCut(TiffRawWriter::build(o), "rw2");
        o.magic = Options::Magic::OlympusRO;
        expectCompleteThenCut(TiffRawWriter::build(o), "orf");
        // An IFD chain that loops back on itself is read once, not forever.
        QByteArray loop("II*\0\x08\0\0\0\x01\0\x00\x01\x03\0\x01\0\0\0\x10\0\0\0\x08\0\0\0", 26);
        QCOMPARE(verdictOf(loop), Verdict::complete);
        QCOMPARE(verdictOf(QByteArray("II*\0\0\0\0\0", 8)), Verdict::truncated);
    }

    // An upload built to make the walk expensive (fanning sub-IFDs, loops, 100000-value arrays read
    // again and again) costs work in proportion to its size, and is taken as it comes.
    void tangledTiff()
    {
        for (qint64 size : {qint64(0), qint64(1'600'000), qint64(3'200'000)}) {
            const QByteArray file = TangledTiff::build(size);
            TiffReader::Work work;
            QCOMPARE(verdictOf(file, &work), Verdict::unknownKind);
            const qint64 n = file.size();
            QVERIFY2(work.bytes > 0 && work.bytes <= 3 * n, qPrintable(QString::number(work.bytes)));
            QVERIFY2(work.entries <= n / 4, qPrintable(QString::number(work.entries)));
            QVERIFY2(work.ifds <= n / 32, qPrintable(QString::number(work.ifds)));
        }
        // A real RAW of the same size is checked whole, far inside that budget.
        TiffRawWriter::Options o;
        o.jpeg = qtJpeg(1200, 800);
        o.sensorBytes = 1'400'000;
        const QByteArray raw = TiffRawWriter::build(o);
        TiffReader::Work work;
        QCOMPARE(verdictOf(raw, &work), Verdict::complete);
        QVERIFY(work.bytes < 4096 && work.ifds < 16);
    }

    void isoMedia()
    {
        QTemporaryDir dir;
        const QString ffmpeg = QStandardPaths::findExecutable("ffmpeg");
        const QString vips = QStandardPaths::findExecutable("vips");
        if (ffmpeg.isEmpty() || vips.isEmpty())
            QSKIP("ffmpeg and vips make the test files");
        for (const char *ext : {"mp4", "mov"}) {
            const QString out = dir.filePath(QStringLiteral("clip.%1").arg(ext));
            QCOMPARE(QProcess::execute(ffmpeg, {"-v", "error", "-f", "lavfi", "-i", "testsrc=size=160x120:rate=10",
                                                "-t", "0.5", "-pix_fmt", "yuv420p", "-y", out}), 0);
            expectCompleteThenCut(TestEnv::readAll(out), ext);
        }
        const QString png = dir.filePath("in.png");
        QVERIFY(QImage::fromData(qtJpeg(320, 240)).save(png));
        QCOMPARE(QProcess::execute(vips, {"copy", png, dir.filePath("out.heic")}), 0);
        expectCompleteThenCut(TestEnv::readAll(dir.filePath("out.heic")), "heic");
        // A box that claims more than the file holds, and one too small to be a box.
        QCOMPARE(verdictOf(QByteArray("\0\0\0\x10" "ftypheic\0\0\0\0" "\0\0\x01\0" "mdat", 24)), Verdict::truncated);
        QCOMPARE(verdictOf(QByteArray("\0\0\0\x10" "ftypheic\0\0\0\0" "\0\0\0\x04" "mdat", 24)), Verdict::truncated);
        // Size 0: the last box runs to the end.
        QCOMPARE(verdictOf(QByteArray("\0\0\0\x10" "ftypheic\0\0\0\0" "\0\0\0\0" "mdatxxxx", 28)), Verdict::complete);
    }

    void otherKindsAreTakenAsTheyCome()
    {
        QBuffer png;
        png.open(QIODevice::WriteOnly);
        QImage(10, 10, QImage::Format_RGB32).save(&png, "PNG");
        QCOMPARE(verdictOf(png.data().left(30)), Verdict::unknownKind);
        QCOMPARE(verdictOf("plain text"), Verdict::unknownKind);
        QCOMPARE(verdictOf({}), Verdict::unknownKind);
    }

    void cameraSamples()
    {
        const QString samples = TestEnv::samples();
        if (samples.isEmpty())
            QSKIP("no sample folder");
        int checked = 0;
        for (const char *sub : {"jpeg", "heif"}) {
            const QDir dir(samples + QLatin1Char('/') + QLatin1String(sub));
            for (const QString &name : dir.entryList(QDir::Files)) {
                const QByteArray whole = TestEnv::readAll(dir.filePath(name));
                QVERIFY2(verdictOf(whole) == Verdict::complete, qPrintable(name));
                QVERIFY2(verdictOf(whole.left(whole.size() / 2)) == Verdict::truncated, qPrintable(name));
                ++checked;
            }
        }
        for (const char *name : {"exiv2_Canon-R6-pruned.CR3", "exiftool_CanonRaw.cr3", "exiftool_Nikon.nef", "exiftool_CanonRaw.cr2"}) {
            const QByteArray whole = TestEnv::readAll(samples + "/raw/" + name);
            if (whole.isEmpty())
                continue;
            QVERIFY2(verdictOf(whole) == Verdict::complete, name);
            ++checked;
        }
        for (const char *name : {"filetype_Leica-M10_truncated.dng", "filetype_truncated.cr3", "mei_Issue_419_truncated.rw2"}) {
            const QByteArray cut = TestEnv::readAll(samples + "/raw/" + name);
            if (!cut.isEmpty())
                QVERIFY2(verdictOf(cut) == Verdict::truncated, name);
        }
        QVERIFY(checked > 10);
    }
};

QTEST_GUILESS_MAIN(TestImageCompleteness)
#include "tst_imagecompleteness.moc"
