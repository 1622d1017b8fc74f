// The window showing real images through the image pipeline: thumbnails in the grid cells, the
// preview in the single view with the next one prefetched, rotation, 100 % zoom, the
// performance overlay and the Imagen settings. Checked by the pixels the window paints.
#include "testenv.h"
#include "testimages.h"
#include "testwindow.h"

#include "app/griddelegate.h"
#include "app/pipelinethumbnailsource.h"
#include "app/settingsdialog.h"
#include "app/singleview.h"
#include "imaging/diskimagecache.h"
#include "imaging/imagepipeline.h"

#include <QAction>
#include <QComboBox>
#include <QDir>
#include <QLabel>
#include <QPainter>
#include <QPushButton>
#include <QSettings>
#include <QSpinBox>

#include <memory>

namespace {

constexpr int kWaitMs = 20000;

// Each shot a flat colour with a white band across its top quarter, so a turn shows where the
// band went. Large enough that 100 % is bigger than the fitted picture.
const QList<QColor> kColours = {QColor(200, 30, 30), QColor(30, 170, 40), QColor(40, 60, 200),
                                QColor(210, 190, 20), QColor(170, 40, 170), QColor(20, 170, 170)};
const QSize kShotSize(2400, 1600);
const QColor kBand(250, 250, 250);

QString shotName(int i) { return QStringLiteral("IMG_%1.jpg").arg(i + 1, 4, 10, QLatin1Char('0')); }

void writeShots(const QString &folder)
{
    QDir().mkpath(folder);
    for (int i = 0; i < kColours.size(); ++i) {
        QImage image(kShotSize, QImage::Format_RGB32);
        image.fill(kColours[i]);
        QPainter p(&image);
        p.fillRect(QRect(0, 0, kShotSize.width(), kShotSize.height() / 4), kBand);
        p.end();
        QVERIFY(image.save(folder + QLatin1Char('/') + shotName(i), "JPEG", 90));
    }
}

bool near(const QColor &a, const QColor &b, int tolerance = 28)
{
    return qAbs(a.red() - b.red()) <= tolerance && qAbs(a.green() - b.green()) <= tolerance
           && qAbs(a.blue() - b.blue()) <= tolerance;
}

QByteArray describe(const QColor &got, const QColor &wanted)
{
    return QStringLiteral("got %1, wanted %2").arg(got.name(), wanted.name()).toUtf8();
}

// The colour at a point of a grabbed widget, in the widget's logical coordinates.
QColor colourAt(const QImage &grab, const QPointF &at)
{
    return grab.pixelColor((at * grab.devicePixelRatio()).toPoint());
}

int entriesIn(const QString &dir)
{
    return int(QDir(dir).entryList(QDir::Files | QDir::NoDotAndDotDot).size());
}

// The window showing its pictures through the shared image pipeline.
struct Session : WindowSession {
    explicit Session(const QString &folder)
        : WindowSession(folder, [](MainWindow &w) { w.usePipeline(ImagePipeline::shared()); })
    {
    }

    SingleView *single() const { return window.singleView(); }
    ThumbnailSource *source() const { return model()->thumbnailSource(); }
    const Photo &shot(int i) const { return *state.visible().at(i); }
    int colourIndex(const Photo &p) const { return int(shotNames().indexOf(p.name())); }
    static QStringList shotNames()
    {
        QStringList names;
        for (int i = 0; i < kColours.size(); ++i)
            names << shotName(i);
        return names;
    }

    // Every shot of the grid has its thumbnail in memory.
    bool gridFilled() const
    {
        for (const PhotoPtr &p : state.visible())
            if (source()->thumbnail(p->id, grid()->thumbSize()).isNull())
                return false;
        return true;
    }
    QRect thumbRectOf(int i) const
    {
        const QRect item = grid()->visualRect(model()->index(model()->rowOfVisible(i)));
        return grid()->gridDelegate()->thumbRect(item);
    }
};

// The pipeline's source, noting what the grid asks it to load.
class RecordingSource : public PipelineThumbnailSource
{
public:
    using PipelineThumbnailSource::PipelineThumbnailSource;
    void want(const QList<QUuid> &ids) override
    {
        wanted.append(ids);
        PipelineThumbnailSource::want(ids);
    }
    QList<QList<QUuid>> wanted;
};

} // namespace

class TestPipelineView : public QObject
{
    Q_OBJECT

private slots:
    void initTestCase();
    void init();
    void cleanup();

    void gridCellsShowTheirThumbnails();
    void rotationMarkTurnsPreviewAndCell();
    void gridAsksOnlyForWhatIsOnScreen();
    void singleViewShowsPreviewAndNextIsPrefetched();
    void prefetchReachesAsFarAsTheSetting();
    void zoomShowsTheFullImageAndPans();
    void performanceOverlayAndFocusPoint();
    void imageSettingsPage();
    void emptyingTheCachesClearsDiskAndMemory();

private:
    std::unique_ptr<QTemporaryDir> tmp;
    QString folder;
};

void TestPipelineView::initTestCase()
{
    TestEnv::isolate();
    QVERIFY(DiskImageCache::rootDir().startsWith(TestEnv::home().path()));
}

void TestPipelineView::init()
{
    QSettings().clear();
    tmp = std::make_unique<QTemporaryDir>();
    folder = tmp->path() + QStringLiteral("/sesion");
    writeShots(folder);
    // Every case starts from cold memory caches (new files, too: new paths).
    ImagePipeline::shared().clearMemory();
}

void TestPipelineView::cleanup()
{
    ImagePipeline::shared().waitForIdle();
    QCoreApplication::processEvents();
    tmp.reset();
}

void TestPipelineView::gridCellsShowTheirThumbnails()
{
    Session s(folder);
    QCOMPARE(s.state.visible().size(), kColours.size());
    QTRY_VERIFY_WITH_TIMEOUT(s.gridFilled(), kWaitMs);

    // Each cell paints its own photo.
    s.grid()->viewport()->repaint();
    const QImage grab = s.grid()->viewport()->grab().toImage();
    for (int i = 0; i < s.state.visible().size(); ++i) {
        const QColor wanted = kColours[s.colourIndex(s.shot(i))];
        const QColor got = colourAt(grab, s.thumbRectOf(i).center() + QPoint(0, 10));
        QVERIFY2(near(got, wanted), describe(got, wanted).constData());
    }
    // And the thumbnails went to the disk cache under the test's cache folder.
    QVERIFY(entriesIn(DiskImageCache::thumbs().dir()) >= kColours.size());
}

void TestPipelineView::rotationMarkTurnsPreviewAndCell()
{
    Session s(folder);
    const QColor colour = kColours[s.colourIndex(s.shot(0))];
    s.press(Qt::Key_Space);
    QTRY_COMPARE_WITH_TIMEOUT(s.single()->shown(), SingleView::Shown::Preview, kWaitMs);
    const QRectF before = s.single()->imageRect();
    QVERIFY(before.width() > before.height());

    s.press(Qt::Key_BracketRight);
    QCOMPARE(s.state.current()->rotation(), 1);
    s.single()->repaint();
    QImage grab = s.single()->grab().toImage();
    const QRectF r = s.single()->imageRect();
    QVERIFY(r.height() > r.width());
    QCOMPARE(qRound(r.height() / r.width() * 100), 150);
    // The band that ran along the top now runs down the right side.
    const QPointF right(r.right() - r.width() * 0.1, r.center().y());
    const QPointF left(r.left() + r.width() * 0.1, r.center().y());
    QVERIFY2(near(colourAt(grab, right), kBand), describe(colourAt(grab, right), kBand).constData());
    QVERIFY2(near(colourAt(grab, left), colour), describe(colourAt(grab, left), colour).constData());
    s.press(Qt::Key_BracketLeft);
    QCOMPARE(s.single()->imageRect(), before);

    // Turned right in the grid, the picture stands upright in its cell with the band down its right side.
    s.press(Qt::Key_BracketRight);
    s.press(Qt::Key_Space);
    QCOMPARE(s.window.centreWidget(), s.grid());
    QTRY_VERIFY_WITH_TIMEOUT(s.gridFilled(), kWaitMs);
    const QRect thumb = s.thumbRectOf(0);
    s.grid()->viewport()->repaint();
    grab = s.grid()->viewport()->grab().toImage();
    const QPoint bandSide(thumb.center().x() + thumb.height() / 3 - 6, thumb.center().y());
    const QPoint otherSide(thumb.center().x() - thumb.height() / 3 + 6, thumb.center().y());
    QVERIFY2(near(colourAt(grab, bandSide), kBand), describe(colourAt(grab, bandSide), kBand).constData());
    QVERIFY2(near(colourAt(grab, otherSide), colour), describe(colourAt(grab, otherSide), colour).constData());
    // Outside the upright picture's width, the card shows.
    const QPoint beside(thumb.left() + 3, thumb.center().y());
    QVERIFY(!near(colourAt(grab, beside), colour) && !near(colourAt(grab, beside), kBand));
}

void TestPipelineView::gridAsksOnlyForWhatIsOnScreen()
{
    const QString big = tmp->path() + QStringLiteral("/grande");
    for (int i = 0; i < 240; ++i)
        QVERIFY(!TestImages::writeJpeg(big + QStringLiteral("/DSC_%1.jpg").arg(i, 4, 10, QLatin1Char('0')), 90, 60,
                                       kColours[i % kColours.size()], 85).isEmpty());
    Session s(big);
    RecordingSource source(s.state, ImagePipeline::shared());
    s.window.setThumbnailSource(&source);
    GridView *grid = s.grid();
    const auto idsOf = [&s](int first, int last) {
        QSet<QUuid> ids;
        for (int row = first; row <= last; ++row)
            if (const Photo *p = s.model()->photoAt(row))
                ids.insert(p->id);
        return ids;
    };
    const auto onScreen = [grid](int row) {
        return grid->viewport()->rect().intersects(grid->visualRect(grid->gridModel()->index(row)));
    };

    // At the top: the screen, then the next screen down; nothing further.
    QTRY_VERIFY_WITH_TIMEOUT(!source.wanted.isEmpty(), kWaitMs);
    auto [first, last] = grid->visibleRows();
    QCOMPARE(first, 0);
    QVERIFY(onScreen(last) && !onScreen(last + 1));
    int screen = last - first + 1;
    QSet<QUuid> asked(source.wanted.last().cbegin(), source.wanted.last().cend());
    QCOMPARE(asked, idsOf(0, last + screen));
    const auto screenFilled = [&s, &source, grid] {
        const auto [from, to] = grid->visibleRows();
        for (int row = from; row <= to; ++row)
            if (source.thumbnail(s.model()->photoAt(row)->id, grid->thumbSize()).isNull())
                return false;
        return true;
    };
    QTRY_VERIFY_WITH_TIMEOUT(screenFilled(), kWaitMs);

    // At the end, going down: only what is on screen, there is nothing further.
    source.wanted.clear();
    s.press(Qt::Key_End);
    QTRY_VERIFY_WITH_TIMEOUT(!source.wanted.isEmpty(), kWaitMs);
    std::tie(first, last) = grid->visibleRows();
    QCOMPARE(last, s.model()->rowCount() - 1);
    QVERIFY(onScreen(first) && !onScreen(first - 1));
    asked = QSet<QUuid>(source.wanted.last().cbegin(), source.wanted.last().cend());
    QCOMPARE(asked, idsOf(first, last));
    QTRY_VERIFY_WITH_TIMEOUT(screenFilled(), kWaitMs);
    s.grid()->viewport()->repaint();
    const QImage grab = s.grid()->viewport()->grab().toImage();
    const QRect thumb = grid->gridDelegate()->thumbRect(grid->visualRect(s.model()->index(last)));
    const QColor wanted = kColours[(s.model()->rowCount() - 1) % kColours.size()];
    QVERIFY2(near(colourAt(grab, thumb.center()), wanted), describe(colourAt(grab, thumb.center()), wanted).constData());

    // Paging back up: the screen above comes next.
    source.wanted.clear();
    s.press(Qt::Key_PageUp);
    s.press(Qt::Key_PageUp);
    QTRY_VERIFY_WITH_TIMEOUT(!source.wanted.isEmpty(), kWaitMs);
    std::tie(first, last) = grid->visibleRows();
    QVERIFY(last < s.model()->rowCount() - 1);
    screen = last - first + 1;
    asked = QSet<QUuid>(source.wanted.last().cbegin(), source.wanted.last().cend());
    QCOMPARE(asked, idsOf(qMax(0, first - screen), last));
}

void TestPipelineView::singleViewShowsPreviewAndNextIsPrefetched()
{
    Session s(folder);
    ImagePipeline &pipeline = ImagePipeline::shared();
    s.press(Qt::Key_Space);
    QCOMPARE(s.window.centreWidget(), s.single());
    QTRY_COMPARE_WITH_TIMEOUT(s.single()->shown(), SingleView::Shown::Preview, kWaitMs);

    // The preview is made for the view, in device pixels.
    const qreal dpr = s.single()->devicePixelRatioF();
    const int wanted = ImagePipeline::previewPixelsFor(QStringLiteral("screen"),
                                                       qRound(qMax(s.single()->width(), s.single()->height()) * dpr), 0);
    QCOMPARE(pipeline.previewPixels(), wanted);
    const ImageBoxPtr shown = pipeline.cachedPreview(s.shot(0).previewURL());
    QVERIFY(shown);
    QCOMPARE(shown->target, wanted);

    s.single()->repaint();
    QImage grab = s.single()->grab().toImage();
    QRectF r = s.single()->imageRect();
    QCOMPARE(r.width() / r.height(), 1.5);
    QColor colour = kColours[s.colourIndex(s.shot(0))];
    QVERIFY2(near(colourAt(grab, r.center()), colour), describe(colourAt(grab, r.center()), colour).constData());

    // The next shot is ready before the key is pressed, and shows at once when it is.
    const QString next = s.shot(1).previewURL();
    QTRY_VERIFY_WITH_TIMEOUT(pipeline.cachedPreview(next), kWaitMs);
    s.press(Qt::Key_Right);
    QCOMPARE(s.state.currentIndex(), 1);
    QCOMPARE(s.single()->shown(), SingleView::Shown::Preview);
    s.single()->repaint();
    grab = s.single()->grab().toImage();
    r = s.single()->imageRect();
    colour = kColours[s.colourIndex(s.shot(1))];
    QVERIFY2(near(colourAt(grab, r.center()), colour), describe(colourAt(grab, r.center()), colour).constData());

    // Resizing the window tells the pipeline the new size of the view.
    s.window.resize(1700, 1100);
    QTRY_COMPARE(pipeline.viewportLong(), qRound(qMax(s.single()->width(), s.single()->height()) * dpr));
    QTRY_VERIFY_WITH_TIMEOUT(pipeline.cachedPreview(s.shot(1).previewURL()), kWaitMs);
}

void TestPipelineView::prefetchReachesAsFarAsTheSetting()
{
    QSettings().setValue(QStringLiteral("prefetchAhead"), 2);
    Session s(folder);
    ImagePipeline &pipeline = ImagePipeline::shared();
    // On the grid only the current shot and the next one are prepared.
    pipeline.waitForIdle();
    QTRY_VERIFY_WITH_TIMEOUT(pipeline.runningPreviews().isEmpty(), kWaitMs);
    QVERIFY(pipeline.cachedPreview(s.shot(0).previewURL()));
    QVERIFY(pipeline.cachedPreview(s.shot(1).previewURL()));
    QVERIFY(!pipeline.cachedPreview(s.shot(2).previewURL()));

    // The single view looks "Precargar por delante" shots ahead, and one behind.
    s.press(Qt::Key_Space);
    s.press(Qt::Key_Right);
    QTRY_VERIFY_WITH_TIMEOUT(pipeline.runningPreviews().isEmpty() && pipeline.cachedPreview(s.shot(3).previewURL()), kWaitMs);
    QVERIFY(!pipeline.cachedPreview(s.shot(4).previewURL()));

    // Moving back turns the direction: the one behind is now ahead.
    s.press(Qt::Key_End);
    QTRY_VERIFY_WITH_TIMEOUT(pipeline.runningPreviews().isEmpty() && pipeline.cachedPreview(s.shot(5).previewURL()), kWaitMs);
    pipeline.clearMemory();
    s.press(Qt::Key_Left);   // at 4, going back: 3 and 2 ahead, 5 behind
    QTRY_VERIFY_WITH_TIMEOUT(pipeline.runningPreviews().isEmpty() && pipeline.cachedPreview(s.shot(2).previewURL()), kWaitMs);
    QVERIFY(pipeline.cachedPreview(s.shot(3).previewURL()));
    QVERIFY(pipeline.cachedPreview(s.shot(5).previewURL()));
    QVERIFY(!pipeline.cachedPreview(s.shot(1).previewURL()));
}

void TestPipelineView::zoomShowsTheFullImageAndPans()
{
    Session s(folder);
    ImagePipeline &pipeline = ImagePipeline::shared();
    s.press(Qt::Key_Space);
    QTRY_COMPARE_WITH_TIMEOUT(s.single()->shown(), SingleView::Shown::Preview, kWaitMs);
    const QRectF fitted = s.single()->imageRect();
    const qreal dpr = s.single()->devicePixelRatioF();

    QSignalSpy full(&pipeline, &ImagePipeline::fullImageReady);
    s.press(Qt::Key_Z);
    QVERIFY(s.single()->isZoomed());
    QTRY_COMPARE_WITH_TIMEOUT(s.single()->shown(), SingleView::Shown::FullImage, kWaitMs);
    QVERIFY(!full.isEmpty());
    QCOMPARE(full.last().at(0).toString(), s.state.current()->previewURL());
    // 100 %: one pixel of the photo on one pixel of the screen.
    QRectF r = s.single()->imageRect();
    QCOMPARE(r.size(), QSizeF(kShotSize) / dpr);
    QVERIFY(r.width() > fitted.width());
    // The middle of the picture stays in the middle of the view.
    const QPointF mid = QRectF(s.single()->rect()).center();
    QVERIFY(qAbs(r.center().x() - mid.x()) <= 1 && qAbs(r.center().y() - mid.y()) <= 1);

    // A drag pans.
    QTest::mousePress(s.single(), Qt::LeftButton, Qt::NoModifier, mid.toPoint());
    QTest::mouseMove(s.single(), (mid + QPointF(60, 40)).toPoint());
    QTest::mouseMove(s.single(), (mid + QPointF(120, 80)).toPoint());
    QTest::mouseRelease(s.single(), Qt::LeftButton, Qt::NoModifier, (mid + QPointF(120, 80)).toPoint());
    QVERIFY(s.single()->isZoomed());
    QCOMPARE(s.single()->imageRect().topLeft(), r.topLeft() + QPointF(120, 80));

    // Z again fits the whole picture.
    s.press(Qt::Key_Z);
    QVERIFY(!s.single()->isZoomed());
    QCOMPARE(s.single()->shown(), SingleView::Shown::Preview);
    QCOMPARE(s.single()->imageRect(), fitted);

    // A click zooms at the point clicked: that spot of the photo stays under the mouse.
    const QPoint at = (fitted.topLeft() + QPointF(fitted.width() * 0.25, fitted.height() * 0.75)).toPoint();
    QTest::mouseClick(s.single(), Qt::LeftButton, Qt::NoModifier, at);
    QVERIFY(s.single()->isZoomed());
    QTRY_COMPARE_WITH_TIMEOUT(s.single()->shown(), SingleView::Shown::FullImage, kWaitMs);
    r = s.single()->imageRect();
    const QPointF unit((at.x() - r.left()) / r.width(), (at.y() - r.top()) / r.height());
    QVERIFY2(qAbs(unit.x() - 0.25) < 0.02 && qAbs(unit.y() - 0.75) < 0.02,
             qPrintable(QStringLiteral("%1, %2").arg(unit.x()).arg(unit.y())));

    // The zoom stays on the next frame, at the same spot; Escape goes back to the grid.
    s.press(Qt::Key_Right);
    QVERIFY(s.single()->isZoomed());
    QTRY_COMPARE_WITH_TIMEOUT(s.single()->shown(), SingleView::Shown::FullImage, kWaitMs);
    QCOMPARE(s.single()->imageRect(), r);
    s.press(Qt::Key_Escape);
    QCOMPARE(s.window.centreWidget(), s.grid());
    QVERIFY(!s.single()->isZoomed());
}

void TestPipelineView::performanceOverlayAndFocusPoint()
{
    Session s(folder);
    s.press(Qt::Key_Space);
    QTRY_COMPARE_WITH_TIMEOUT(s.single()->shown(), SingleView::Shown::Preview, kWaitMs);
    s.single()->repaint();
    const QImage plain = s.single()->grab().toImage();

    s.press(Qt::Key_P);
    QVERIFY(s.window.action(QStringLiteral("performance"))->isChecked());
    QVERIFY(s.single()->performanceShown());
    const QString text = s.single()->performanceLines().join(QLatin1Char('\n'));
    QVERIFY2(text.contains(QStringLiteral("Vista previa: JPEG · ")) && text.contains(QStringLiteral(" ms")), qPrintable(text));
    s.single()->repaint();
    const QImage withOverlay = s.single()->grab().toImage();
    QVERIFY(withOverlay != plain);
    s.press(Qt::Key_P);
    QVERIFY(!s.single()->performanceShown());

    // The focus point, where the sharpness measure found it, on the picture.
    Photo *p = s.state.current();
    s.state.applySharpness({{p->id, {500.0, QPointF(0.75, 0.6)}}});
    s.single()->repaint();
    const QImage before = s.single()->grab().toImage();
    s.press(Qt::Key_F);
    QVERIFY(s.single()->focusPointShown());
    s.single()->repaint();
    const QImage after = s.single()->grab().toImage();
    const QRectF r = s.single()->imageRect();
    const QPointF point(r.left() + 0.75 * r.width(), r.top() + 0.6 * r.height());
    const qreal side = qBound(24.0, qMin(r.width(), r.height()) / 8, 72.0);
    // The bracket's top-left corner, drawn light over the photo.
    const QPointF corner = point - QPointF(side / 2, side / 2) + QPointF(1, 1);
    QVERIFY(colourAt(after, corner) != colourAt(before, corner));
    QVERIFY(near(colourAt(after, point), colourAt(before, point), 2));   // the middle stays clear
}

void TestPipelineView::imageSettingsPage()
{
    Session s(folder);
    s.press(Qt::Key_Comma, Qt::ControlModifier);
    auto *dialog = s.window.findChild<SettingsDialog *>();
    QVERIFY(dialog);
    dialog->showPage(QStringLiteral("Imagen"));

    // Each choice takes effect at once.
    QComboBox *resolution = dialog->previewResolutionCombo();
    resolution->setCurrentIndex(resolution->findText(QStringLiteral("3840")));
    QCOMPARE(ImagePipeline::shared().previewPixels(), 3840);
    dialog->prefetchAheadSpin()->setValue(6);
    QCOMPARE(QSettings().value(QStringLiteral("prefetchAhead")).toInt(), 6);
    QSpinBox *days = dialog->cacheDaysSpin();
    days->setValue(0);
    QCOMPARE(days->text(), QStringLiteral("sin límite de días"));
    QCOMPARE(DiskImageCache::cacheDaysSetting(), 0);
}

void TestPipelineView::emptyingTheCachesClearsDiskAndMemory()
{
    // A preview only reaches the disk when it was slow to make: put one there by hand.
    const QString thumbsDir = DiskImageCache::thumbs().dir();
    const QString previewsDir = DiskImageCache::previews().dir();
    Session s(folder);
    QTRY_VERIFY_WITH_TIMEOUT(s.gridFilled(), kWaitMs);
    QImage stored(64, 64, QImage::Format_RGB32);
    stored.fill(Qt::gray);
    QVERIFY(DiskImageCache::previews().store(stored, *DiskImageCache::diskKey(s.shot(0).previewURL(), 4096)));
    QVERIFY(entriesIn(thumbsDir) >= kColours.size());
    QVERIFY(entriesIn(previewsDir) >= 1);

    s.window.showSettings();
    auto *dialog = s.window.findChild<SettingsDialog *>();
    QVERIFY(dialog);
    dialog->showPage(QStringLiteral("Imagen"));
    QLabel *sizes = dialog->cacheSizesLabel();
    QTRY_VERIFY_WITH_TIMEOUT(sizes->text().startsWith(QStringLiteral("Miniaturas: ")), kWaitMs);
    QVERIFY2(sizes->text().contains(QStringLiteral(" · Vistas previas: ")), qPrintable(sizes->text()));
    QVERIFY2(!sizes->text().startsWith(QStringLiteral("Miniaturas: 0 bytes")), qPrintable(sizes->text()));

    // What is on disk at the moment the window hears the caches are empty.
    int thumbsLeft = -1, previewsLeft = -1;
    bool memoryLeft = true;
    connect(dialog, &SettingsDialog::cachesEmptied, this, [&] {
        thumbsLeft = entriesIn(thumbsDir);
        previewsLeft = entriesIn(previewsDir);
    });
    // Connected after the window's own handler, so memory is already cleared here.
    connect(dialog, &SettingsDialog::cachesEmptied, this, [&] {
        memoryLeft = bool(ImagePipeline::shared().cachedThumbnail(s.shot(0).previewURL()));
    });
    QSignalSpy shownAgain(dialog, &SettingsDialog::cacheSizesShown);
    QTest::mouseClick(dialog->emptyCachesButton(), Qt::LeftButton);
    QTRY_VERIFY_WITH_TIMEOUT(!shownAgain.isEmpty(), kWaitMs);
    QCOMPARE(thumbsLeft, 0);
    QCOMPARE(previewsLeft, 0);
    QVERIFY(!memoryLeft);
    QVERIFY(dialog->emptyCachesButton()->isEnabled());
    QVERIFY2(sizes->text().startsWith(QStringLiteral("Miniaturas: ")), qPrintable(sizes->text()));

    // The grid asks again for what it shows.
    QTRY_VERIFY_WITH_TIMEOUT(s.gridFilled(), kWaitMs);
}

QTEST_MAIN(TestPipelineView)
#include "tst_pipelineview.moc"
