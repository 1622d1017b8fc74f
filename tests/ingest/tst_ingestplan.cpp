// Planning an import (numbers, folders, names, uniqueness against the run and the destinations),
// finding cards, reading dates, and the imported-files record.
#include "ingest/cardfinder.h"
#include "ingest/cardscanner.h"
#include "ingest/importedrecord.h"
#include "ingest/ingestplan.h"
#include "ingest/ingeststructure.h"
#include "ingesttestcard.h"
#include "model/filekinds.h"
#include "model/folderscanner.h"
#include "testenv.h"
#include "sampledata/tiffrawwriter.h"

#include <QtTest>

namespace {

const QDateTime kDay(QDate(2024, 5, 18), QTime(14, 30, 0));

IngestItem item(const QString &path, const QDateTime &date = kDay, qint64 size = 100, const QString &camera = {})
{
    IngestItem i;
    i.url = path;
    i.size = size;
    i.date = date;
    if (!camera.isEmpty())
        i.camera = camera;
    i.groupKey = FolderScanner::groupingKey(path);
    i.isVideo = FileKinds::isVideo(path);
    return i;
}

IngestOptions renaming(const QString &session = QStringLiteral("Boda"), qint64 start = 1)
{
    IngestOptions o;
    o.structure = IngestStructure::date;
    o.session = session;
    o.rename = true;
    o.pattern = NamePattern::defaultPattern();
    o.start = start;
    o.digits = 4;
    o.skipImported = false;
    return o;
}

IngestPlan planOf(const QList<IngestItem> &items, const IngestOptions &o, const QSet<QString> &imported = {})
{
    IngestPlanner::Input in;
    in.items = items;
    in.options = o;
    in.destRoots = {QStringLiteral("/nonexistent-a"), QStringLiteral("/nonexistent-b")};
    in.imported = imported;
    in.check = IngestPlanner::DestinationCheck::none;
    return IngestPlanner::plan(in);
}

// src file name → relPath
QMap<QString, QString> pathsOf(const IngestPlan &p)
{
    QMap<QString, QString> m;
    for (const PlannedFile &f : p.files)
        m.insert(f.src.mid(f.src.indexOf(QLatin1String("/DCIM/")) + 6), f.relPath);
    return m;
}

} // namespace

class TestIngestPlan : public QObject
{
    Q_OBJECT

private slots:
    void initTestCase() { TestEnv::isolate(); }

    void pairsShareOneNumberAndName()
    {
        const QList<IngestItem> items{
            item("/c/DCIM/100/DSC_0002.NEF", kDay.addSecs(60), 300),
            item("/c/DCIM/100/DSC_0002.JPG", kDay.addSecs(61), 200),
            item("/c/DCIM/100/DSC_0001.NEF", kDay),
            item("/c/DCIM/100/MVI_0003.MOV", kDay.addSecs(120)),
        };
        const IngestPlan p = planOf(items, renaming(QStringLiteral("Boda Marta"), 7));
        const auto m = pathsOf(p);
        QCOMPARE(m.value("100/DSC_0001.NEF"), QStringLiteral("2024-05-18 Boda Marta/20240518_Boda_Marta_0007.NEF"));
        QCOMPARE(m.value("100/DSC_0002.NEF"), QStringLiteral("2024-05-18 Boda Marta/20240518_Boda_Marta_0008.NEF"));
        QCOMPARE(m.value("100/DSC_0002.JPG"), QStringLiteral("2024-05-18 Boda Marta/20240518_Boda_Marta_0008.JPG"));
        QCOMPARE(m.value("100/MVI_0003.MOV"), QStringLiteral("2024-05-18 Boda Marta/20240518_Boda_Marta_0009.MOV"));
        QCOMPARE(p.bytesTotal, qint64(300 + 200 + 100 + 100));
    }

    void numbersFollowDateThenName()
    {
        // B shot first, A and C at the same moment: B, then A, then C.
        const QList<IngestItem> items{
            item("/c/DCIM/100/C.JPG", kDay.addSecs(10)),
            item("/c/DCIM/100/A.JPG", kDay.addSecs(10)),
            item("/c/DCIM/100/B.JPG", kDay),
        };
        IngestOptions o = renaming();
        o.structure = IngestStructure::none;
        o.pattern = NamePattern::presets().at(1).pattern;   // Fecha · Número
        const auto m = pathsOf(planOf(items, o));
        QCOMPARE(m.value("100/B.JPG"), QStringLiteral("20240518_0001.JPG"));
        QCOMPARE(m.value("100/A.JPG"), QStringLiteral("20240518_0002.JPG"));
        QCOMPARE(m.value("100/C.JPG"), QStringLiteral("20240518_0003.JPG"));
    }

    void sameNamesAcrossFoldersAndCases()
    {
        // Camera names kept: 101CANON repeats 100CANON's names, and a case-sensitive card holds
        // IMG_0005.JPG beside img_0005.jpg.
        const QList<IngestItem> items{
            item("/c/DCIM/100CANON/IMG_0001.CR2"), item("/c/DCIM/100CANON/IMG_0001.JPG"),
            item("/c/DCIM/101CANON/IMG_0001.CR2"), item("/c/DCIM/101CANON/IMG_0001.JPG"),
            item("/c/DCIM/101CANON/IMG_0005.JPG", kDay.addSecs(5)), item("/c/DCIM/101CANON/img_0005.jpg", kDay.addSecs(5)),
            item("/c/DCIM/101CANON/MVI_0001.MP4"),
        };
        IngestOptions o;
        o.structure = IngestStructure::none;
        o.rename = false;
        o.skipImported = false;
        const IngestPlan p = planOf(items, o);
        const auto m = pathsOf(p);
        QCOMPARE(m.value("100CANON/IMG_0001.CR2"), QStringLiteral("IMG_0001.CR2"));
        QCOMPARE(m.value("100CANON/IMG_0001.JPG"), QStringLiteral("IMG_0001.JPG"));
        QCOMPARE(m.value("101CANON/IMG_0001.CR2"), QStringLiteral("IMG_0001-2.CR2"));
        QCOMPARE(m.value("101CANON/IMG_0001.JPG"), QStringLiteral("IMG_0001-2.JPG"));
        QCOMPARE(m.value("101CANON/IMG_0005.JPG"), QStringLiteral("IMG_0005.JPG"));
        QCOMPARE(m.value("101CANON/img_0005.jpg"), QStringLiteral("img_0005-2.jpg"));
        QCOMPARE(m.value("101CANON/MVI_0001.MP4"), QStringLiteral("MVI_0001.MP4"));
        QSet<QString> lower;
        for (const PlannedFile &f : p.files)
            lower.insert(f.relPath.toLower());
        QCOMPARE(lower.size(), p.files.size());
    }

    void wholeGroupTakesOneSuffix()
    {
        // No number and no original name in the pattern: every shot of the day renders alike.
        IngestOptions o = renaming();
        o.pattern.tokens = {NameToken(NameToken::Kind::date, QStringLiteral("yyyyMMdd")), NameToken(NameToken::Kind::session)};
        const QList<IngestItem> items{
            item("/c/DCIM/1/A.NEF"), item("/c/DCIM/1/A.JPG"), item("/c/DCIM/1/B.NEF", kDay.addSecs(1)),
            item("/c/DCIM/1/B.JPG", kDay.addSecs(1)), item("/c/DCIM/1/C.JPG", kDay.addSecs(2)),
        };
        const auto m = pathsOf(planOf(items, o));
        QCOMPARE(m.value("1/A.NEF"), QStringLiteral("2024-05-18 Boda/20240518_Boda.NEF"));
        QCOMPARE(m.value("1/A.JPG"), QStringLiteral("2024-05-18 Boda/20240518_Boda.JPG"));
        QCOMPARE(m.value("1/B.NEF"), QStringLiteral("2024-05-18 Boda/20240518_Boda-2.NEF"));
        QCOMPARE(m.value("1/B.JPG"), QStringLiteral("2024-05-18 Boda/20240518_Boda-2.JPG"));
        QCOMPARE(m.value("1/C.JPG"), QStringLiteral("2024-05-18 Boda/20240518_Boda-3.JPG"));
    }

    void longNamesStayWithinAFileName()
    {
        // 251 bytes of UTF-8 ("ñ" is two): with ".NEF" exactly a file name's 255.
        const QString base = QString(125, QChar(0xF1)) + QLatin1Char('a');
        IngestOptions o = renaming();
        o.rename = false;
        const QList<IngestItem> items{item("/c/DCIM/1/" + base + ".NEF"), item("/c/DCIM/2/" + base + ".NEF"),
                                      item("/c/DCIM/2/" + base + ".JPEG"), item("/c/DCIM/3/" + base + ".NEF")};
        QStringList paths = pathsOf(planOf(items, o)).values();
        paths.sort();
        // The base is cut by whole characters as much as "-2" and the extension need; a pair
        // keeps one base, cut for its longest extension.
        const QString folder = QStringLiteral("2024-05-18 Boda/");
        QStringList expected{folder + QString(124, QChar(0xF1)) + "-2.NEF", folder + QString(125, QChar(0xF1)) + ".JPEG",
                             folder + QString(125, QChar(0xF1)) + ".NEF", folder + base + ".NEF"};
        expected.sort();
        QCOMPARE(paths, expected);
    }

    void skippingKeepsEveryNumber()
    {
        const QList<IngestItem> items{item("/c/DCIM/1/A.JPG", kDay), item("/c/DCIM/1/B.JPG", kDay.addSecs(1)),
                                      item("/c/DCIM/1/C.JPG", kDay.addSecs(2))};
        IngestOptions o = renaming();
        o.skipImported = true;
        const QSet<QString> imported{ImportedRecord::historyKey("A.JPG", 100, kDay),
                                     ImportedRecord::historyKey("B.JPG", 100, kDay.addSecs(1))};
        const IngestPlan p = planOf(items, o, imported);
        QCOMPARE(p.skippedImported, 2);
        QCOMPARE(p.files.size(), 1);
        // C keeps the number it had in the first import, so a repeated run finds it by name.
        QCOMPARE(p.files.first().relPath, QStringLiteral("2024-05-18 Boda/20240518_Boda_0003.JPG"));
        o.skipImported = false;
        QCOMPARE(planOf(items, o, imported).files.size(), 3);
    }

    void emptyRenderingKeepsTheCameraName()
    {
        IngestOptions o = renaming(QString());
        o.pattern.tokens = {NameToken(NameToken::Kind::session)};
        const auto m = pathsOf(planOf({item("/c/DCIM/1/DSC_0042.NEF")}, o));
        QCOMPARE(m.value("1/DSC_0042.NEF"), QStringLiteral("2024-05-18/DSC_0042.NEF"));
    }

    void structures_data()
    {
        QTest::addColumn<QString>("raw");
        QTest::addColumn<QString>("session");
        QTest::addColumn<QString>("folder");
        QTest::newRow("none") << "none" << "Boda" << "";
        QTest::newRow("yearDate") << "yearDate" << "Boda Marta y Luis" << "2024/2024-05-18 Boda Marta y Luis";
        QTest::newRow("yearMonthDate") << "yearMonthDate" << "" << "2024/05/2024-05-18";
        QTest::newRow("date cleaned") << "date" << " ..a/b: c " << "2024-05-18 a-b- c";
        QTest::newRow("session") << "session" << "Boda" << "Boda";
        QTest::newRow("session empty") << "session" << "  " << "2024-05-18";
    }
    void structures()
    {
        QFETCH(QString, raw);
        QFETCH(QString, session);
        QFETCH(QString, folder);
        QCOMPARE(IngestStructures::folderFor(*IngestStructures::fromRawValue(raw), kDay, session), folder);
    }

    void destinationsAreChecked()
    {
        QTemporaryDir tmp;
        const QString card = tmp.path() + "/card", a = tmp.path() + "/A", b = tmp.path() + "/B";
        const QByteArray one = TestCard::bytes(5000, 1), two = TestCard::bytes(5000, 2), three = TestCard::bytes(7000, 3);
        QList<IngestItem> items{item(TestCard::write(card, "DCIM/1/ONE.JPG", one), kDay, one.size()),
                                item(TestCard::write(card, "DCIM/1/TWO.JPG", two), kDay.addSecs(1), two.size()),
                                item(TestCard::write(card, "DCIM/1/THREE.JPG", three), kDay.addSecs(2), three.size())};
        // ONE is already on both disks (a crash after its copies); TWO's name holds other bytes
        // of the same size on B; THREE is on A under another case.
        TestCard::write(a, "ONE.JPG", one);
        TestCard::write(b, "ONE.JPG", one);
        TestCard::write(b, "TWO.JPG", TestCard::bytes(5000, 99));
        TestCard::write(a, "three.jpg", three);

        IngestPlanner::Input in;
        in.items = items;
        in.options.structure = IngestStructure::none;
        in.options.rename = false;
        in.options.skipImported = false;
        in.destRoots = {a, b};
        in.check = IngestPlanner::DestinationCheck::full;
        const IngestPlan p = IngestPlanner::plan(in);

        QCOMPARE(p.presentKeys, QStringList{ImportedRecord::historyKey("ONE.JPG", one.size(), kDay)});
        QCOMPARE(p.present, (QList<int>{2, 1}));
        QCOMPARE(p.files.size(), 2);
        QCOMPARE(p.files[0].relPath, QStringLiteral("TWO-2.JPG"));
        QCOMPARE(p.files[0].presentIn, 0u);
        QCOMPARE(p.files[1].relPath, QStringLiteral("THREE.JPG"));
        QVERIFY(p.files[1].presentOn(0));
        QVERIFY(!p.files[1].presentOn(1));
        QCOMPARE(p.toCopy(0), 1);
        QCOMPARE(p.toCopy(1), 2);
    }

    void cardsAreMountedVolumesWithDcim()
    {
        QTemporaryDir tmp;
        const QString media = tmp.path() + "/media";
        QDir().mkpath(media + "/ana/EOS_DIGITAL/dcim/100CANON");
        QDir().mkpath(media + "/ana/BACKUP/Fotos");
        QDir().mkpath(tmp.path() + "/elsewhere/DCIM");
        QDir().mkpath(media + "/ana/SYSTEM/DCIM");
        QList<MountInfo> mounts{
            {"/", "", "/dev/vda1", true, true},
            {media + "/ana/SYSTEM", "", "/dev/vda1", false, true},          // the root disk again
            {media + "/ana/EOS_DIGITAL", "EOS_DIGITAL", "/dev/sdb1", false, true},
            {media + "/ana/BACKUP", "Backup", "/dev/sdc1", false, true},     // no DCIM
            {tmp.path() + "/elsewhere", "", "/dev/sdd1", false, true},     // not where cards mount
        };
        const QList<CardVolume> cards = CardFinder::findCards(mounts, {media});
        QCOMPARE(cards.size(), 1);
        QCOMPARE(cards.first().root, media + "/ana/EOS_DIGITAL");
        QCOMPARE(cards.first().name, QStringLiteral("EOS_DIGITAL"));
        QCOMPARE(cards.first().device, QStringLiteral("/dev/sdb1"));
        mounts[2].ready = false;
        QVERIFY(CardFinder::findCards(mounts, {media}).isEmpty());
        QVERIFY(CardFinder::isRemovableMountPoint("/run/media/ana/CARD"));
        QVERIFY(!CardFinder::isRemovableMountPoint("/mediafiles/x"));
    }

    void scanReadsExifThenFileDates()
    {
        QTemporaryDir tmp;
        const QString card = tmp.path() + "/card";
        TiffRawWriter::Options raw;
        raw.date = QDateTime(QDate(2023, 7, 1), QTime(18, 5, 9));
        raw.model = "NIKON Z 9";
        raw.sensorBytes = 4096;
        raw.thumbWidth = 0;
        TestCard::write(card, "DCIM/100NCZ_9/DSC_0001.NEF", TiffRawWriter::build(raw));
        const QDateTime old(QDate(2020, 1, 2), QTime(3, 4, 5));
        TestCard::write(card, "DCIM/100NCZ_9/DSC_0001.JPG", TestCard::bytes(300, 4), old);
        TestCard::write(card, "DCIM/100NCZ_9/MOV_0002.MOV", TestCard::bytes(300, 5), old);
        TestCard::write(card, "DCIM/100NCZ_9/.hidden.JPG", TestCard::bytes(10, 6));
        TestCard::write(card, "DCIM/.trash/X.JPG", TestCard::bytes(10, 7));
        TestCard::write(card, "DCIM/100NCZ_9/notes.txt", "x");

        CardScan s = CardScanner::scan(card, false);
        QVERIFY(s.error.isEmpty());
        QCOMPARE(s.items.size(), 2);
        const IngestItem &jpg = s.items[0].url.endsWith("JPG") ? s.items[0] : s.items[1];
        const IngestItem &nef = s.items[0].url.endsWith("NEF") ? s.items[0] : s.items[1];
        QCOMPARE(nef.date, raw.date);
        QCOMPARE(nef.camera.value_or(QString()), QStringLiteral("NIKON Z 9"));
        QCOMPARE(jpg.date, old);
        QVERIFY(!jpg.camera);
        QCOMPARE(jpg.groupKey, nef.groupKey);

        s = CardScanner::scan(card, true);
        QCOMPARE(s.items.size(), 3);
        QVERIFY(!CardScanner::scan(tmp.path() + "/nothing", false).error.isEmpty());
    }

    void scanReusesWhatWasReadBefore()
    {
        // The window's preview read the card; at "Importar" only what changed since is read again.
        QTemporaryDir tmp;
        const QString card = tmp.path() + "/card";
        const QDateTime old(QDate(2020, 1, 2), QTime(3, 4, 5));
        const QString a = TestCard::write(card, "DCIM/100CANON/IMG_0001.JPG", TestCard::bytes(300, 1), old);
        const QString b = TestCard::write(card, "DCIM/100CANON/IMG_0002.JPG", TestCard::bytes(300, 2), old);
        const CardScan before = CardScanner::scan(card, false);
        QCOMPARE(before.items.size(), 2);

        QHash<QString, IngestItem> known;
        for (IngestItem item : before.items) {
            item.date = QDateTime(QDate(1999, 9, 9), QTime(9, 9, 9));   // marks what was reused
            known.insert(item.url, item);
        }
        TestCard::write(card, "DCIM/100CANON/IMG_0002.JPG", TestCard::bytes(400, 3), old);   // shot over: new size
        TestCard::write(card, "DCIM/100CANON/IMG_0003.JPG", TestCard::bytes(300, 4), old);   // new on the card
        const CardScan after = CardScanner::scan(card, false, nullptr, {}, &known);
        QCOMPARE(after.items.size(), 3);
        for (const IngestItem &item : after.items)
            QCOMPARE(item.date.date().year(), item.url == a ? 1999 : 2020);
        QVERIFY(known.contains(b));
    }

    void recordKeepsKeysAndADamagedOneOffersAllAgain()
    {
        QTemporaryDir tmp;
        const QString file = tmp.path() + "/Corvane/importadas.json";
        QVERIFY(ImportedRecord::load(file).isEmpty());
        QVERIFY(ImportedRecord::add({"a|1|2", "b|3|4"}, file).isEmpty());
        QVERIFY(ImportedRecord::add({"c|5|6"}, file).isEmpty());
        QVERIFY(ImportedRecord::remove({"a|1|2"}, file).isEmpty());
        QCOMPARE(ImportedRecord::load(file), (QSet<QString>{"b|3|4", "c|5|6"}));
        // A damaged record offers everything again.
        TestCard::write(tmp.path(), "Corvane/importadas.json", "[\"b|3|4\", ");
        QVERIFY(ImportedRecord::load(file).isEmpty());
    }
};

QTEST_GUILESS_MAIN(TestIngestPlan)
#include "tst_ingestplan.moc"
