// The filter rule, the sort orders and the sharpness verdict.
#include "model/sharpverdict.h"
#include "model/photo.h"
#include "model/photofilter.h"
#include "model/sortkey.h"
#include "testenv.h"

#include <QtTest>

namespace {
PhotoPtr shot(const QString &name, const QString &badge = "JPG")
{
    ScannedItem item;
    item.url = "/fotos/" + name;
    item.previewURL = item.url;
    item.files = {item.url};
    item.badge = badge;
    return std::make_shared<Photo>(item);
}
PhotoMeta meta(const QString &model, const QString &lens)
{
    PhotoMeta m;
    m.make = "Canon";
    m.model = model;
    m.lens = lens;
    return m;
}
QStringList names(const QList<PhotoPtr> &list)
{
    QStringList out;
    for (const PhotoPtr &p : list)
        out << p->name();
    return out;
}
} // namespace

class TestPhotoFilter : public QObject
{
    Q_OBJECT
private slots:
    void initTestCase() { TestEnv::isolate(); }

    // Colours, stars and "Marcadas" are driven through the window's filter bar; "Sin marcar" here.
    void untaggedHidesFlaggedShots()
    {
        auto flagged = shot("t.jpg");
        flagged->setTagged(true);
        PhotoFilter f;
        f.tag = TagFilter::untagged;
        QVERIFY(!f.passes(*flagged, SharpSensitivity::normal));
        QVERIFY(f.passes(*shot("plain.jpg"), SharpSensitivity::normal));
    }

    void burstBestShowsOnePerBurstAndEveryLoneShot()
    {
        QList<PhotoPtr> all;
        for (int i = 0; i < 5; ++i) {
            auto p = shot(QStringLiteral("burst%1.jpg").arg(i));
            p->setBurstCount(5);
            p->setBurstIndex(i);
            p->setIsBurstBest(i == 2);
            all << p;
        }
        all << shot("alone.jpg");
        PhotoFilter f;
        f.burstBestOnly = true;
        QStringList shown;
        for (const PhotoPtr &p : all)
            if (f.passes(*p, SharpSensitivity::normal))
                shown << p->name();
        QCOMPARE(shown, QStringList({"burst2.jpg", "alone.jpg"}));
    }

    // Sharp, doubtful and blurry pictures go through the window's filter in its own test.
    void sharpnessFilterHidesUnmeasuredAndFindsClosedEyes()
    {
        auto unmeasured = shot("u.jpg");
        auto sharp = shot("s.jpg");
        sharp->setSharpness(900);
        auto eyes = shot("e.jpg");
        eyes->setEyesClosed(true);
        PhotoFilter f;
        f.sharp = SharpFilter::blurry;
        QVERIFY(!f.passes(*unmeasured, SharpSensitivity::normal));
        f.sharp = SharpFilter::sharp;
        QVERIFY(!f.passes(*unmeasured, SharpSensitivity::normal));
        f.sharp = SharpFilter::eyesClosed;
        QVERIFY(f.passes(*eyes, SharpSensitivity::normal));
        QVERIFY(!f.passes(*sharp, SharpSensitivity::normal));
    }

    void facetsAreAlternativesWithinAndAndAcross()
    {
        auto a = shot("a.jpg");
        a->setMeta(meta("Canon EOS R6", "RF 50mm"));
        auto b = shot("b.jpg");
        b->setMeta(meta("Canon EOS R6", "RF 85mm"));
        auto c = shot("c.jpg");
        c->setMeta(meta("Canon EOS R6", "RF 24-70mm"));
        auto d = shot("d.jpg");
        d->setMeta(meta("Canon EOS R5", "RF 50mm"));
        auto noLens = shot("n.jpg");
        noLens->setMeta(meta("Canon EOS R6", ""));
        PhotoFilter f;
        f.meta[Facet::lens] = {"RF 50mm", "RF 85mm"};
        f.meta[Facet::camera] = {"Canon EOS R6"};
        QStringList shown;
        for (const PhotoPtr &p : {a, b, c, d, noLens})
            if (f.passes(*p, SharpSensitivity::normal))
                shown << p->name();
        QCOMPARE(shown, QStringList({"a.jpg", "b.jpg"}));
        // Counting lenses ignores the lens selection itself but keeps the camera one.
        QVERIFY(f.passes(*c, SharpSensitivity::normal, Facet::lens));
        QVERIFY(!f.passes(*d, SharpSensitivity::normal, Facet::lens));
        // An emptied facet imposes nothing, in the counting test too.
        f.meta[Facet::iso] = {};
        QVERIFY(f.passes(*a, SharpSensitivity::normal, Facet::lens));
        QVERIFY(f.passes(*a, SharpSensitivity::normal));
    }

    void fileTypeFacetOffersBothMembersOfAPair()
    {
        auto pair = shot("DSC_1.NEF", "NEF+JPG");
        PhotoFilter f;
        f.meta[Facet::fileType] = {"JPG"};
        QVERIFY(f.passes(*pair, SharpSensitivity::normal));
    }

    void wordsMustAllBeFoundWithoutCaseOrAccents()
    {
        auto p = shot("Boda_Ana.jpg");
        PhotoMeta m = meta("Canon EOS R6", "RF 50mm");
        m.keywords = {"Ceremonia", "Niño"};
        p->setMeta(m);
        PhotoFilter f;
        f.setText("  boda  NINO ");
        QCOMPARE(f.words, QStringList({"boda", "nino"}));
        QVERIFY(f.passes(*p, SharpSensitivity::normal));
        f.setText("boda banquete");
        QVERIFY(!f.passes(*p, SharpSensitivity::normal));
        // The cached text follows new metadata.
        m.keywords << "Banquete";
        p->setMeta(m);
        QVERIFY(f.passes(*p, SharpSensitivity::normal));
    }

    void person()
    {
        auto p = shot("a.jpg");
        const QUuid ana = QUuid::createUuid();
        PhotoFilter f;
        f.person = ana;
        QVERIFY(!f.passes(*p, SharpSensitivity::normal));
        p->personIDs.insert(ana);
        QVERIFY(f.passes(*p, SharpSensitivity::normal));
    }

    // The edges of the bands and how a face overrides the whole picture.
    void verdictTable_data()
    {
        QTest::addColumn<QString>("sensitivity");
        QTest::addColumn<double>("score");
        QTest::addColumn<double>("face");   // < 0: none
        QTest::addColumn<int>("level");
        QTest::newRow("normal 109 blurry") << "normal" << 109.0 << -1.0 << 1;
        QTest::newRow("normal 275 sharp") << "normal" << 275.0 << -1.0 << 3;
        QTest::newRow("unknown means normal") << "foo" << 200.0 << -1.0 << 2;
        QTest::newRow("face normal") << "normal" << 900.0 << 0.98 << 1;
        QTest::newRow("face loose sharp") << "loose" << 900.0 << 0.98 << 3;
        QTest::newRow("face loose band") << "loose" << 900.0 << 0.95 << 2;
        QTest::newRow("face normal no band") << "normal" << 0.0 << 1.0 << 3;
        QTest::newRow("face strict band") << "strict" << 0.0 << 1.05 << 2;
    }
    void verdictTable()
    {
        QFETCH(QString, sensitivity);
        QFETCH(double, score);
        QFETCH(double, face);
        QFETCH(int, level);
        auto p = shot("a.jpg");
        p->setSharpness(score);
        if (face >= 0)
            p->setFaceSharpness(face);
        QCOMPARE(sharpVerdict(*p, sharpSensitivityFromString(sensitivity)), level);
    }
    void verdictReasons()
    {
        auto p = shot("a.jpg");
        QCOMPARE(sharpVerdict(*p, SharpSensitivity::normal), 0);
        p->setSharpness(20);
        QVERIFY(sharpReason(*p, SharpSensitivity::normal).startsWith(QStringLiteral("Desenfocada o movida · ")));
        p->setFaceSharpness(0.5);
        QVERIFY(sharpReason(*p, SharpSensitivity::normal).startsWith(QStringLiteral("Ojos desenfocados · ")));
        p->setFaceSharpness(1.5);
        QVERIFY(sharpReason(*p, SharpSensitivity::normal).isEmpty());
    }

    void cameraNamesAreWhatPhotographersSay_data()
    {
        QTest::addColumn<QString>("make");
        QTest::addColumn<QString>("model");
        QTest::addColumn<QString>("name");
        QTest::newRow("canon") << "Canon" << "Canon EOS R6" << "Canon EOS R6";
        QTest::newRow("nikon") << "NIKON CORPORATION" << "NIKON Z 6_2" << "NIKON Z 6_2";
        QTest::newRow("fuji") << "FUJIFILM" << "X-T4" << "FUJIFILM X-T4";
        QTest::newRow("olympus") << "OLYMPUS OPTICAL CO.,LTD" << "E-20" << "OLYMPUS E-20";
        QTest::newRow("model only") << "" << "X100V" << "X100V";
    }
    void cameraNamesAreWhatPhotographersSay()
    {
        QFETCH(QString, make);
        QFETCH(QString, model);
        QFETCH(QString, name);
        PhotoMeta m;
        m.make = make;
        m.model = model;
        QCOMPARE(m.cameraName(), name);
    }

    void sortByNameIsNatural()
    {
        QList<PhotoPtr> list{shot("IMG_10.jpg"), shot("IMG_2.jpg"), shot("img_1.jpg")};
        sortPhotos(list, SortKey::name, true);
        QCOMPARE(names(list), QStringList({"img_1.jpg", "IMG_2.jpg", "IMG_10.jpg"}));
        sortPhotos(list, SortKey::name, false);
        QCOMPARE(names(list), QStringList({"IMG_10.jpg", "IMG_2.jpg", "img_1.jpg"}));
    }

    void missingValuesGoLastAndTiesByName()
    {
        auto a = shot("c.jpg");
        auto b = shot("b.jpg");
        auto none1 = shot("z.jpg");
        auto none2 = shot("y.jpg");
        PhotoMeta early, late;
        early.captureDate = QDateTime(QDate(2026, 6, 1), QTime(10, 0));
        late.captureDate = QDateTime(QDate(2026, 6, 1), QTime(11, 0));
        a->setMeta(late);
        b->setMeta(early);
        QList<PhotoPtr> list{none1, a, none2, b};
        sortPhotos(list, SortKey::captureDate, true);
        QCOMPARE(names(list), QStringList({"b.jpg", "c.jpg", "y.jpg", "z.jpg"}));
        sortPhotos(list, SortKey::captureDate, false);
        QCOMPARE(names(list), QStringList({"c.jpg", "b.jpg", "y.jpg", "z.jpg"}));
        // The camera clock offset moves the capture date.
        b->setTimeOffset(2 * 3600);
        sortPhotos(list, SortKey::captureDate, true);
        QCOMPARE(names(list).first(), QStringLiteral("c.jpg"));
        // Equal sizes fall back to the name.
        for (const PhotoPtr &p : list)
            p->fileSize = 10;
        sortPhotos(list, SortKey::size, false);
        QCOMPARE(names(list), QStringList({"b.jpg", "c.jpg", "y.jpg", "z.jpg"}));
    }

    void sortByDimensionsTypeAndTaste()
    {
        auto big = shot("big.jpg");
        auto small = shot("small.jpg");
        auto raw = shot("r.nef", "NEF");
        PhotoMeta m;
        m.width = 6000;
        m.height = 4000;
        big->setMeta(m);
        m.width = 600;
        m.height = 400;
        small->setMeta(m);
        QList<PhotoPtr> list{small, raw, big};
        sortPhotos(list, SortKey::dimensions, false);
        QCOMPARE(names(list), QStringList({"big.jpg", "small.jpg", "r.nef"}));
        sortPhotos(list, SortKey::type, true);
        QCOMPARE(names(list), QStringList({"big.jpg", "small.jpg", "r.nef"}));
        raw->setTasteScore(0.9);
        sortPhotos(list, SortKey::taste, true);
        QCOMPARE(names(list).first(), QStringLiteral("r.nef"));
    }
};

QTEST_GUILESS_MAIN(TestPhotoFilter)
#include "tst_photofilter.moc"
