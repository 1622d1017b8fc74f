// The sample shoot as Corvane's own readers see it. The window's first run, the README's tour and
// anyone trying the program without a card rely on it looking like a real shoot: every shot
// decodes, every RAW's embedded preview is found, RAW+JPEG pairs group, and it never writes over
// someone's own folder.
#include "imaging/imagedecoder.h"
#include "imaging/rawpreview.h"
#include "model/filekinds.h"
#include "model/folderscanner.h"
#include "model/loadtoken.h"
#include "sampledata/sampleshoot.h"
#include "testenv.h"

#include <QDirIterator>
#include <QtTest>

class TestSampleShoot : public QObject
{
    Q_OBJECT
    QTemporaryDir _tmp;
    QString _dir;

private slots:
    void initTestCase()
    {
        TestEnv::isolate();
        ImageDecoder::initialize();
        _dir = _tmp.path() + "/Boda";
        int last = -1, total = 0;
        const QString error = SampleShoot::generate(_dir, [&](int done, int all) {
            QVERIFY(done > last);
            last = done;
            total = all;
        });
        QVERIFY2(error.isEmpty(), qPrintable(error));
        QCOMPARE(last, total);
    }

    void listsAsAShootWithPairsGrouped()
    {
        const ScanResult r = FolderScanner::listFolder(_dir, LoadToken());
        QMap<QString, int> badges;
        for (const ScannedItem &item : r.items)
            ++badges[item.badge];
        QCOMPARE(badges.value("JPG"), 24);
        QCOMPARE(badges.value("NEF+JPG"), 4);
        QCOMPARE(badges.value("CR2+JPG"), 2);
        QCOMPARE(badges.value("NEF"), 1);
        QCOMPARE(badges.value("CR2"), 1);
        QVERIFY(r.xmpKeys.contains(FolderScanner::groupingKey(_dir + "/DSC_0106.NEF")));
        QCOMPARE(r.subfolders, QStringList{_dir + "/Ceremonia"});
        QCOMPARE(r.extras, QStringList{_dir + "/notas.txt"});
        QCOMPARE(FolderScanner::listTree(_dir, LoadToken()).items.size(), r.items.size() + 4);
    }

    void everyShotDecodesAndRawsShowTheirOwnPreview()
    {
        const ScanResult tree = FolderScanner::listTree(_dir, LoadToken());
        int raws = 0;
        for (const ScannedItem &item : tree.items) {
            const ImageDecoder::Result r = ImageDecoder::decode(item.previewURL, item.previewIsRaw, 400);
            QVERIFY2(!r.image.isNull(), qPrintable(item.previewURL));
            for (const QString &file : item.files) {
                if (!FileKinds::isRaw(file))
                    continue;
                ++raws;
                // Found by the file's own structure, large enough to fill a screen: never the
                // byte search, never a LibRaw develop.
                const auto preview = RawPreview::embeddedJPEG(file, 1600, 1200, true, false);
                QVERIFY2(preview, qPrintable(file));
                QCOMPARE(preview->label, QString::fromUtf8(ImageDecoder::kRawEmbedded));
                QVERIFY(preview->longSide >= 1200);
            }
        }
        QCOMPARE(raws, 8);
    }

    void sameBytesEveryRunAndAgainInPlace()
    {
        const QString again = _tmp.path() + "/Otra";
        QVERIFY(SampleShoot::generate(again).isEmpty());
        QVERIFY(SampleShoot::generate(again).isEmpty());   // a previous sample shoot may be redone
        QDirIterator it(_dir, QDir::Files | QDir::Hidden, QDirIterator::Subdirectories);
        int compared = 0;
        while (it.hasNext()) {
            const QString path = it.next();
            const QString ext = FileKinds::extensionOf(path);
            if (ext == "mov" || ext == "heic")
                continue;   // made by outside encoders
            const QString twin = again + "/" + QDir(_dir).relativeFilePath(path);
            QVERIFY2(TestEnv::readAll(path) == TestEnv::readAll(twin), qPrintable(path));
            ++compared;
        }
        QVERIFY(compared >= 40);
    }

    void neverWritesIntoSomeoneElsesFolder()
    {
        QTemporaryDir tmp;
        TestEnv::touch(tmp.path() + "/mis-fotos/IMG_0001.JPG");
        QVERIFY(SampleShoot::generate(tmp.path() + "/mis-fotos").contains(QStringLiteral("no está vacía")));
        QCOMPARE(QDir(tmp.path() + "/mis-fotos").entryList(QDir::Files | QDir::Hidden).size(), 1);
        TestEnv::touch(tmp.path() + "/archivo");
        QVERIFY(!SampleShoot::generate(tmp.path() + "/archivo").isEmpty());
    }
};

QTEST_GUILESS_MAIN(TestSampleShoot)
#include "tst_sampleshoot.moc"
