// The window driven as a photographer drives it: keys and clicks on a real folder, checked by
// what the window shows (status bar, cells, overlays, toasts) and by the marks file on disk.
#include "testenv.h"
#include "testimages.h"
#include "testwindow.h"

#include "analysis/sharpnessanalyzer.h"
#include "app/colorchip.h"
#include "app/emptystate.h"
#include "app/filterbar.h"
#include "app/griddelegate.h"
#include "app/infopanel.h"
#include "app/markssettingspage.h"
#include "app/fileopcontroller.h"
#include "app/renamesheet.h"
#include "app/transfersheet.h"
#include "app/settingsdialog.h"
#include "app/singleinstance.h"
#include "app/singleview.h"
#include "app/toast.h"
#include "camera/camerahub.h"
#include "metadata/xmplabels.h"
#include "metadata/xmpsidecar.h"
#include "metadata/xmpstore.h"
#include "util/atomicfile.h"

#include <QAction>
#include <QCheckBox>
#include <QComboBox>
#include <QDragEnterEvent>
#include <QJsonDocument>
#include <QJsonObject>
#include <QLabel>
#include <QLineEdit>
#include <QMimeData>
#include <QPushButton>
#include <QRadioButton>
#include <QSettings>
#include <QSlider>
#include <QSpinBox>
#include <QToolButton>
#include <QTreeWidget>
#include <QtConcurrent>

#include <memory>
#include <sys/socket.h>
#include <sys/un.h>
#include <unistd.h>

namespace {

// A shoot: two RAW+JPEG pairs, six JPEGs, a video and a subfolder with two more frames.
QString makeShoot(const QString &root)
{
    for (const char *name : {"DSC_0001.NEF", "DSC_0001.JPG", "DSC_0002.NEF", "DSC_0002.JPG", "DSC_0003.jpg",
                             "DSC_0004.jpg", "DSC_0005.jpg", "DSC_0006.jpg", "DSC_0007.jpg", "DSC_0008.jpg",
                             "DSC_0009.MP4", "Ceremonia/IMG_0100.jpg", "Ceremonia/IMG_0101.jpg"})
        TestEnv::touch(root + QLatin1Char('/') + QLatin1String(name), "fake image bytes");
    return root;
}

// The window with what its status bar and cells show.
struct Session : WindowSession {
    using WindowSession::WindowSession;

    QString count() const { return window.findChild<QLabel *>(QStringLiteral("statusCount"))->text(); }
    QString selectionLabel() const
    {
        auto *l = window.findChild<QLabel *>(QStringLiteral("statusSelection"));
        return l->isVisible() ? l->text() : QString();
    }
    Photo *current() const { return state.current(); }
    QModelIndex cellOf(const Photo *p) const { return model()->index(model()->rowOf(p->id)); }

    // The marks file as it is on disk once the store has written what is pending.
    QJsonObject marksOnDisk(const QString &folder)
    {
        store.flush();
        return QJsonDocument::fromJson(TestEnv::readAll(folder + QStringLiteral("/.corvane.json")))
            .object().value(QStringLiteral("marks")).toObject();
    }
};

QJsonObject json(const QByteArray &text) { return QJsonDocument::fromJson(text).object(); }

} // namespace

class TestMainWindow : public QObject
{
    Q_OBJECT

private slots:
    void initTestCase();
    void init();
    void cleanup();

    void showsTheFolderAndItsCounts();
    void markKeysSetToggleAndPersist_data();
    void markKeysSetToggleAndPersist();
    void flagBoxClickTogglesOnlyThatShot();
    void keysMoveTheCurrentShot();
    void subfolderCellIsNotMarkedAndReturnEntersIt();
    void spaceAndReturnSwitchViews();
    void selectionGesturesAndMarksOnSelection();
    void aColourOnEveryShotIsUndoneFromTheToastOrTheKeys();
    void damagedAndUnshownFilesAreCountedAndListed();
    void filterBarHidesShotsAndClears();
    void typingInSearchFieldNeverMarks();
    void marksShowAgainInNewWindow();
    void failedWriteShowsErrorToastUntilDismissed();
    void emptyStates();
    void dropOpensFolder();
    void infoPanelShowsCurrentShot();
    void settingsApplyAtOnce();
    void marksInSidecarsAndTheExport();
    void renameFromTheSheetAndUndo();
    void moveCopyAndTrashFromTheWindowAndUndo();
    void sortMenuChangesOrder();
    void secondLaunchHandsPathsOver();
    void ctrlPlusAndMinusResizeTheCells();
    void largeFolderStaysResponsive();

private:
    std::unique_ptr<QTemporaryDir> tmp;
    QString folder;
};

void TestMainWindow::initTestCase()
{
    TestEnv::isolate();
}

void TestMainWindow::init()
{
    tmp = std::make_unique<QTemporaryDir>();
    folder = makeShoot(tmp->path() + QStringLiteral("/boda"));
    QSettings().clear();
}

void TestMainWindow::cleanup()
{
    AtomicFile::setFailureForTesting(nullptr);
    tmp.reset();
}

void TestMainWindow::showsTheFolderAndItsCounts()
{
    Session s(folder);
    QCOMPARE(s.count(), QStringLiteral("9 de 9 imágenes"));
    QCOMPARE(s.selectionLabel(), QString());
    QCOMPARE(s.window.centreWidget(), s.grid());
    QVERIFY(s.window.windowTitle().startsWith(QStringLiteral("boda")));

    // Subfolders first, then the shots; a pair is one cell with both extensions in its badge.
    GridModel *m = s.model();
    QCOMPARE(m->rowCount(), 1 + 9);
    QCOMPARE(m->index(0).data(GridModel::CellKindRole).toInt(), int(GridModel::FolderCell));
    QCOMPARE(m->index(0).data().toString(), QStringLiteral("Ceremonia"));
    const QModelIndex pair = m->index(1);
    QCOMPARE(pair.data().toString(), QStringLiteral("DSC_0001.NEF"));
    QCOMPARE(pair.data(GridModel::BadgeRole).toString(), QStringLiteral("NEF+JPG"));
    QCOMPARE(pair.data(GridModel::KindLabelRole).toString(), QStringLiteral("RAW"));
    QCOMPARE(m->index(9).data(GridModel::KindLabelRole).toString(), QStringLiteral("VÍDEO"));
    QCOMPARE(m->index(4).data(GridModel::KindLabelRole).toString(), QStringLiteral("JPG"));

    // The cursor rests on the first shot, not on the folder.
    QCOMPARE(s.state.currentIndex(), 0);
    QCOMPARE(s.grid()->currentIndex().row(), 1);
}

void TestMainWindow::markKeysSetToggleAndPersist_data()
{
    QTest::addColumn<QKeySequence>("keys");
    QTest::addColumn<QByteArray>("record");   // the shot's entry in the marks file; empty: none
    QTest::newRow("colour") << QKeySequence("3") << QByteArray(R"({"c":3})");
    QTest::newRow("same colour clears") << QKeySequence("3, 3") << QByteArray();
    QTest::newRow("another colour replaces") << QKeySequence("8, 5") << QByteArray(R"({"c":5})");
    QTest::newRow("0 clears the colour") << QKeySequence("5, 0") << QByteArray();
    QTest::newRow("Alt+4 is stars, never colour") << QKeySequence("Alt+4") << QByteArray(R"({"r":4})");
    QTest::newRow("same stars clear") << QKeySequence("Alt+4, Alt+4") << QByteArray();
    QTest::newRow("other stars replace") << QKeySequence("Alt+2, Alt+5") << QByteArray(R"({"r":5})");
    QTest::newRow("Alt+0 clears stars") << QKeySequence("Alt+5, Alt+0") << QByteArray();
    QTest::newRow("flag") << QKeySequence("T") << QByteArray(R"({"t":true})");
    QTest::newRow("flag again clears") << QKeySequence("T, T") << QByteArray();
    QTest::newRow("turn right") << QKeySequence("]") << QByteArray(R"({"o":1})");
    QTest::newRow("turn left past upright") << QKeySequence("], [, [") << QByteArray(R"({"o":3})");
    QTest::newRow("back upright") << QKeySequence("], [, [, ]") << QByteArray();
}

void TestMainWindow::markKeysSetToggleAndPersist()
{
    QFETCH(QKeySequence, keys);
    QFETCH(QByteArray, record);
    Session s(folder);
    Photo *p = s.current();
    QCOMPARE(p->name(), QStringLiteral("DSC_0001.NEF"));
    for (int i = 0; i < keys.count(); ++i)
        s.press(keys[i].key(), keys[i].keyboardModifiers());

    const QJsonObject marks = s.marksOnDisk(folder);
    if (record.isEmpty())
        QVERIFY(!marks.contains(QStringLiteral("dsc_0001")));
    else
        QCOMPARE(marks.value(QStringLiteral("dsc_0001")).toObject(), json(record));
    // The cell shows what was written.
    const QJsonObject want = json(record);
    const QModelIndex cell = s.cellOf(p);
    QCOMPARE(cell.data(GridModel::ColorRole).toInt(), want.value(QStringLiteral("c")).toInt());
    QCOMPARE(cell.data(GridModel::RatingRole).toInt(), want.value(QStringLiteral("r")).toInt());
    QCOMPARE(cell.data(GridModel::TaggedRole).toBool(), want.value(QStringLiteral("t")).toBool());
    QCOMPARE(cell.data(GridModel::RotationRole).toInt(), want.value(QStringLiteral("o")).toInt());
}

void TestMainWindow::flagBoxClickTogglesOnlyThatShot()
{
    Session s(folder);
    GridView *grid = s.grid();
    Photo *third = s.model()->photoAt(3);
    const QPoint box = grid->gridDelegate()->flagRect(grid->visualRect(s.model()->index(3))).center();

    QTest::mouseClick(grid->viewport(), Qt::LeftButton, Qt::NoModifier, box);
    QVERIFY(third->tagged());
    QCOMPARE(s.state.currentIndex(), 0);   // the box is not a way to move
    QVERIFY(!s.current()->tagged());
    QCOMPARE(s.marksOnDisk(folder).value(QStringLiteral("dsc_0003")).toObject(), json(R"({"t":true})"));

    QTest::mouseClick(grid->viewport(), Qt::LeftButton, Qt::NoModifier, box);
    QVERIFY(!third->tagged());

    // A click elsewhere on the cell makes it current.
    QTest::mouseClick(grid->viewport(), Qt::LeftButton, Qt::NoModifier, grid->visualRect(s.model()->index(3)).center());
    QCOMPARE(s.current(), third);
}

void TestMainWindow::keysMoveTheCurrentShot()
{
    Session s(folder);
    GridView *grid = s.grid();
    s.press(Qt::Key_Right);
    QCOMPARE(s.state.currentIndex(), 1);
    s.press(Qt::Key_Left);
    QCOMPARE(s.state.currentIndex(), 0);

    // Down moves to the cell straight below, in the next row of the wrapped grid.
    const QRect before = grid->visualRect(grid->currentIndex());
    s.press(Qt::Key_Down);
    const QRect below = grid->visualRect(grid->currentIndex());
    QCOMPARE(below.left(), before.left());
    QCOMPARE(below.top(), before.bottom() + 1);
    QVERIFY(s.state.currentIndex() > 1);
    s.press(Qt::Key_End);
    QCOMPARE(s.state.currentIndex(), 8);
    QCOMPARE(grid->currentIndex().row(), 9);

    // From the search field, Up and Down still move through the shots.
    QTest::mouseClick(s.window.searchField(), Qt::LeftButton);
    QVERIFY(s.window.searchField()->hasFocus());
    s.press(Qt::Key_Up);
    QVERIFY(s.state.currentIndex() < 8);
}

void TestMainWindow::subfolderCellIsNotMarkedAndReturnEntersIt()
{
    Session s(folder);
    GridView *grid = s.grid();
    s.press(Qt::Key_Home);
    QCOMPARE(grid->currentIndex().row(), 0);
    QCOMPARE(grid->currentFolder(), folder + QStringLiteral("/Ceremonia"));
    QCOMPARE(s.state.currentIndex(), 0);   // AppState still names a shot…

    s.press(Qt::Key_2);
    s.press(Qt::Key_T);
    for (const PhotoPtr &p : s.state.photos())   // …but the keys do not reach it
        QVERIFY(p->colorClass() == ColorClass::none && !p->tagged());
    s.press(Qt::Key_Space);
    QCOMPARE(s.window.centreWidget(), grid);

    QSignalSpy loaded(&s.state, &AppState::loaded);
    s.press(Qt::Key_Return);
    QVERIFY(loaded.wait(5000));
    QCOMPARE(s.state.folder(), folder + QStringLiteral("/Ceremonia"));
    QCOMPARE(s.count(), QStringLiteral("2 de 2 imágenes"));
    QCOMPARE(grid->currentIndex().row(), 0);   // no subfolders here: the first shot

    // Double-click on a folder cell enters it too.
    s.press(Qt::Key_Space);   // a folder opened from the single view comes up on its grid
    QCOMPARE(s.window.centreWidget(), s.window.singleView());
    QVERIFY(s.open(folder));
    QCOMPARE(s.window.centreWidget(), grid);
    QTest::mouseDClick(grid->viewport(), Qt::LeftButton, Qt::NoModifier, grid->visualRect(s.model()->index(0)).center());
    QTRY_COMPARE(s.state.folder(), folder + QStringLiteral("/Ceremonia"));
}

void TestMainWindow::spaceAndReturnSwitchViews()
{
    Session s(folder);
    s.press(Qt::Key_Space);
    QCOMPARE(s.state.viewMode(), ViewMode::preview);
    QCOMPARE(s.window.centreWidget(), s.window.singleView());
    QVERIFY(s.window.singleView()->hasFocus());
    QVERIFY(s.window.action(QStringLiteral("viewSingle"))->isChecked());

    s.press(Qt::Key_Right);   // arrows move in the single view too
    QCOMPARE(s.state.currentIndex(), 1);
    s.press(Qt::Key_1);       // and the mark keys work there
    QCOMPARE(s.current()->colorClass(), ColorClass::c1);

    s.press(Qt::Key_Space);
    QCOMPARE(s.window.centreWidget(), s.grid());
    QCOMPARE(s.grid()->currentIndex().row(), 2);   // the grid followed

    s.press(Qt::Key_Return);
    QCOMPARE(s.window.centreWidget(), s.window.singleView());
    s.press(Qt::Key_Escape);
    QCOMPARE(s.window.centreWidget(), s.grid());
    QVERIFY(s.window.action(QStringLiteral("viewGrid"))->isChecked());

    // Double-click on a shot opens it.
    GridView *grid = s.grid();
    QTest::mouseDClick(grid->viewport(), Qt::LeftButton, Qt::NoModifier, grid->visualRect(s.model()->index(5)).center());
    QCOMPARE(s.window.centreWidget(), s.window.singleView());
    QCOMPARE(s.state.currentIndex(), 4);
}

void TestMainWindow::aColourOnEveryShotIsUndoneFromTheToastOrTheKeys()
{
    Session s(folder);
    Photo *first = s.current();
    s.press(Qt::Key_1);
    s.press(Qt::Key_A, Qt::ControlModifier);
    s.press(Qt::Key_5);
    const int n = int(s.state.visible().size());
    QAction *undo = s.window.action(QStringLiteral("undo"));
    QCOMPARE(undo->text(), QStringLiteral("Deshacer color en %1 imágenes").arg(n));
    Toast *toast = s.window.toast();
    QVERIFY(toast->isVisible());
    QCOMPARE(toast->text(), QStringLiteral("Color en %1 imágenes").arg(n));
    QVERIFY(toast->actionButton()->isVisible());
    QCOMPARE(toast->actionButton()->text(), QStringLiteral("Deshacer"));

    QTest::mouseClick(toast->actionButton(), Qt::LeftButton);
    QVERIFY(!toast->isVisible());
    QCOMPARE(first->colorClass(), ColorClass::c1);
    QCOMPARE(s.cellOf(first).data(GridModel::ColorRole).toInt(), 1);
    QVERIFY(!s.marksOnDisk(folder).contains(QStringLiteral("dsc_0003")));

    s.press(Qt::Key_Z, Qt::ControlModifier | Qt::ShiftModifier);
    QCOMPARE(first->colorClass(), ColorClass::c5);
    s.press(Qt::Key_Z, Qt::ControlModifier);
    s.press(Qt::Key_Z, Qt::ControlModifier);
    QCOMPARE(first->colorClass(), ColorClass::none);
    QVERIFY(!undo->isEnabled());
    QCOMPARE(undo->text(), QStringLiteral("Deshacer"));
    s.press(Qt::Key_Y, Qt::ControlModifier);
    QCOMPARE(first->colorClass(), ColorClass::c1);
    QCOMPARE(s.marksOnDisk(folder).value(QStringLiteral("dsc_0001")).toObject(), json(R"({"c":1})"));

    // A later change takes the offer away: its button would undo that change instead.
    s.press(Qt::Key_A, Qt::ControlModifier);
    s.press(Qt::Key_3);
    QVERIFY(toast->offersAction());
    s.press(Qt::Key_Escape);
    s.press(Qt::Key_4);
    QVERIFY(!toast->isVisible());
}

void TestMainWindow::damagedAndUnshownFilesAreCountedAndListed()
{
    // What a failed card write leaves: an empty RAW+JPEG pair and a JPEG of random bytes, beside
    // a healthy shot and two files Corvane does not show.
    QTemporaryDir dir;
    TestEnv::touch(dir.filePath("DSC_0001.NEF"), {});
    TestEnv::touch(dir.filePath("DSC_0001.JPG"), {});
    QByteArray noise(64 * 1024, '\0');
    for (int i = 0; i < noise.size(); ++i)
        noise[i] = char((i * 7919 + 13) % 251);
    TestEnv::touch(dir.filePath("DSC_0002.JPG"), noise);
    TestImages::writeJpeg(dir.filePath("DSC_0003.JPG"), 640, 480);
    TestEnv::touch(dir.filePath("notas.txt"));
    TestEnv::touch(dir.filePath("A7S_0004.HIF"));

    Session s(dir.path());
    const auto damaged = [&](const char *name) {
        for (const PhotoPtr &p : s.state.photos())
            if (p->name() == QLatin1String(name))
                return s.cellOf(p.get()).data(GridModel::DamagedRole).toBool();
        return false;
    };
    QVERIFY(damaged("DSC_0001.NEF"));
    QTRY_VERIFY_WITH_TIMEOUT(damaged("DSC_0002.JPG"), 20000);
    QTRY_VERIFY_WITH_TIMEOUT(!s.session.analyzer().isBusy(), 20000);
    QVERIFY(!damaged("DSC_0003.JPG"));

    auto *damagedLabel = s.window.findChild<QLabel *>(QStringLiteral("statusDamaged"));
    QTRY_VERIFY(damagedLabel->isVisible());
    QVERIFY(damagedLabel->text().contains(QStringLiteral("2 dañadas")));
    auto *unshown = s.window.findChild<QLabel *>(QStringLiteral("statusUnsupported"));
    QCOMPARE(unshown->text(), QStringLiteral("2 archivos que Corvane no muestra"));
    QVERIFY(unshown->toolTip().contains(QStringLiteral("A7S_0004.HIF")));
    QVERIFY(unshown->toolTip().contains(QStringLiteral("notas.txt")));

    emit damagedLabel->linkActivated(QStringLiteral("dañadas"));
    QCOMPARE(s.state.visible().size(), 2);
    QVERIFY(s.window.action(QStringLiteral("damagedOnly"))->isChecked());
    s.press(Qt::Key_Space);
    QCOMPARE(s.window.findChild<SingleView *>()->notice(), QStringLiteral("Imagen dañada: no se puede leer"));
    s.window.action(QStringLiteral("damagedOnly"))->trigger();
    QCOMPARE(s.state.visible().size(), 3);
}

void TestMainWindow::selectionGesturesAndMarksOnSelection()
{
    Session s(folder);
    GridView *grid = s.grid();
    s.press(Qt::Key_Right, Qt::ShiftModifier);
    s.press(Qt::Key_Right, Qt::ShiftModifier);
    QCOMPARE(s.state.selection().size(), 3);
    QCOMPARE(s.selectionLabel(), QStringLiteral("3 seleccionadas"));
    QVERIFY(grid->selectionModel()->isSelected(s.model()->index(1)));
    QVERIFY(grid->selectionModel()->isSelected(s.model()->index(3)));
    QVERIFY(!grid->selectionModel()->isSelected(s.model()->index(4)));

    s.press(Qt::Key_2);   // a mark reaches the whole selection
    for (int row = 1; row <= 3; ++row)
        QCOMPARE(s.model()->photoAt(row)->colorClass(), ColorClass::c2);
    QCOMPARE(s.model()->photoAt(4)->colorClass(), ColorClass::none);

    s.press(Qt::Key_Escape);
    QVERIFY(s.state.selection().isEmpty());
    QCOMPARE(s.selectionLabel(), QString());

    // Ctrl+click adds the clicked shot to the one under the cursor, and a second one removes it.
    const auto click = [&](int row, Qt::KeyboardModifiers mods) {
        QTest::mouseClick(grid->viewport(), Qt::LeftButton, mods, grid->visualRect(s.model()->index(row)).center());
    };
    click(1, Qt::NoModifier);
    click(5, Qt::ControlModifier);
    QCOMPARE(s.state.selection(), (QSet<QUuid>{s.model()->photoAt(1)->id, s.model()->photoAt(5)->id}));
    click(7, Qt::ControlModifier);
    click(5, Qt::ControlModifier);
    QCOMPARE(s.state.selection(), (QSet<QUuid>{s.model()->photoAt(1)->id, s.model()->photoAt(7)->id}));

    // Shift+click takes the range in reading order, across grid rows.
    click(2, Qt::NoModifier);
    click(8, Qt::ShiftModifier);
    QCOMPARE(s.state.selection().size(), 7);
    QCOMPARE(s.selectionLabel(), QStringLiteral("7 seleccionadas"));

    s.press(Qt::Key_A, Qt::ControlModifier);
    QCOMPARE(s.selectionLabel(), QStringLiteral("9 seleccionadas"));
    s.window.action(QStringLiteral("invertSelection"))->trigger();
    QCOMPARE(s.selectionLabel(), QString());

    // A plain click or arrow collapses a selection.
    s.press(Qt::Key_A, Qt::ControlModifier);
    s.press(Qt::Key_Right);
    QVERIFY(s.state.selection().isEmpty());
}

void TestMainWindow::filterBarHidesShotsAndClears()
{
    Session s(folder);
    s.press(Qt::Key_3);
    s.press(Qt::Key_Right);
    s.press(Qt::Key_3);
    s.press(Qt::Key_Right);
    s.press(Qt::Key_4);

    FilterBar *bar = s.window.filterBar();
    QVERIFY(!bar->clearButton()->isEnabled());
    QTest::mouseClick(bar->chip(3), Qt::LeftButton);
    QCOMPARE(s.count(), QStringLiteral("2 de 9 imágenes"));
    QCOMPARE(s.model()->rowCount(), 1 + 2);   // subfolders are never filtered
    QVERIFY(bar->clearButton()->isEnabled());
    QVERIFY(!bar->chip(3)->hasFocus());
    QTest::mouseClick(bar->chip(4), Qt::LeftButton);   // chips add up
    QCOMPARE(s.count(), QStringLiteral("3 de 9 imágenes"));

    QTest::mouseClick(bar->clearButton(), Qt::LeftButton);
    QCOMPARE(s.count(), QStringLiteral("9 de 9 imágenes"));
    QVERIFY(!bar->chip(3)->isChecked());

    // "Sin color" and the flag filter.
    QTest::mouseClick(bar->chip(0), Qt::LeftButton);
    QCOMPARE(s.count(), QStringLiteral("6 de 9 imágenes"));
    s.state.clearFilter();
    bar->flagCombo()->setCurrentIndex(1);   // Marcadas
    QCOMPARE(s.count(), QStringLiteral("0 de 9 imágenes"));

    // Everything hidden: the empty state offers to clear the filter.
    QCOMPARE(s.window.centreWidget(), s.window.emptyState());
    QCOMPARE(s.window.emptyState()->kind(), EmptyState::AllFiltered);
    auto *button = s.window.emptyState()->findChild<QPushButton *>(QStringLiteral("emptyAction"));
    QCOMPARE(button->text(), QStringLiteral("Quitar filtros"));
    QTest::mouseClick(button, Qt::LeftButton);
    QCOMPARE(s.count(), QStringLiteral("9 de 9 imágenes"));
    QCOMPARE(s.window.centreWidget(), s.grid());
    QCOMPARE(bar->flagCombo()->currentIndex(), 0);

    // Stars minimum.
    s.press(Qt::Key_Home);
    s.press(Qt::Key_Right);
    s.press(Qt::Key_3, Qt::AltModifier);
    bar->starCombo()->setCurrentIndex(2);
    QCOMPARE(s.count(), QStringLiteral("1 de 9 imágenes"));
}

void TestMainWindow::typingInSearchFieldNeverMarks()
{
    Session s(folder);
    QLineEdit *search = s.window.searchField();
    QTest::mouseClick(search, Qt::LeftButton);
    QVERIFY(search->hasFocus());
    for (Qt::Key k : {Qt::Key_0, Qt::Key_0, Qt::Key_3, Qt::Key_T, Qt::Key_BracketRight, Qt::Key_Space})
        s.press(k);
    s.press(Qt::Key_4, Qt::AltModifier);
    QCOMPARE(search->text(), QStringLiteral("003t] "));
    for (const PhotoPtr &p : s.state.photos())
        QVERIFY2(p->colorClass() == ColorClass::none && p->rating() == 0 && !p->tagged() && p->rotation() == 0,
                 qPrintable(p->name()));
    QCOMPARE(s.window.centreWidget(), s.grid());   // Space was typed, not a view switch

    // The words filter the grid; Escape empties the field, then gives the keys back.
    search->setText(QStringLiteral("0003"));
    QTRY_COMPARE(s.count(), QStringLiteral("1 de 9 imágenes"));
    s.press(Qt::Key_Escape);
    QVERIFY(search->text().isEmpty());
    QTRY_COMPARE(s.count(), QStringLiteral("9 de 9 imágenes"));
    s.press(Qt::Key_Escape);
    QVERIFY(!search->hasFocus());
    s.press(Qt::Key_6);
    QCOMPARE(s.current()->colorClass(), ColorClass::c6);
}

void TestMainWindow::marksShowAgainInNewWindow()
{
    {
        Session s(folder);
        s.press(Qt::Key_Right);
        s.press(Qt::Key_5);
        s.press(Qt::Key_3, Qt::AltModifier);
        s.press(Qt::Key_T);
        s.window.close();   // closing writes what is pending
    }
    Session s(folder);
    Photo *second = s.model()->photoAt(2);
    QCOMPARE(second->name(), QStringLiteral("DSC_0002.NEF"));
    const QModelIndex cell = s.cellOf(second);
    QCOMPARE(cell.data(GridModel::ColorRole).toInt(), 5);
    QCOMPARE(cell.data(GridModel::RatingRole).toInt(), 3);
    QVERIFY(cell.data(GridModel::TaggedRole).toBool());
    QCOMPARE(s.model()->index(1).data(GridModel::ColorRole).toInt(), 0);
}

void TestMainWindow::failedWriteShowsErrorToastUntilDismissed()
{
    const bool root = ::geteuid() == 0;
    if (root)
        AtomicFile::setFailureForTesting("rename");   // root writes anywhere: fail the write itself
    else
        QVERIFY(QFile::setPermissions(folder, QFile::ReadOwner | QFile::ExeOwner));
    Session s(folder);
    s.press(Qt::Key_1);
    s.store.flush();
    Toast *toast = s.window.toast();
    QTRY_VERIFY(toast->isVisible());
    QVERIFY(toast->isError());
    QVERIFY2(toast->text().startsWith(QStringLiteral("No se pudieron guardar las marcas")), qPrintable(toast->text()));
    QCOMPARE(s.current()->colorClass(), ColorClass::c1);   // kept in memory

    QTest::qWait(Toast::kShowMs + 300);   // errors do not time out
    QVERIFY(toast->isVisible());
    QTest::mouseClick(toast, Qt::LeftButton);
    QVERIFY(!toast->isVisible());

    // A plain message leaves by itself.
    s.state.toast(QStringLiteral("Hecho"));
    QVERIFY(toast->isVisible() && !toast->isError());
    QTRY_VERIFY_WITH_TIMEOUT(!toast->isVisible(), Toast::kShowMs + 2000);
    if (!root)
        QFile::setPermissions(folder, QFile::ReadOwner | QFile::WriteOwner | QFile::ExeOwner);
}

void TestMainWindow::emptyStates()
{
    Session s;
    EmptyState *empty = s.window.emptyState();
    QCOMPARE(s.window.centreWidget(), empty);
    QCOMPARE(empty->title(), QStringLiteral("Abre una carpeta o suelta aquí una carpeta de imágenes"));
    QCOMPARE(s.count(), QString());
    s.press(Qt::Key_3);   // nothing to mark, nothing breaks

    const QString bare = tmp->path() + QStringLiteral("/vacia");
    QDir().mkpath(bare);
    TestEnv::touch(bare + QStringLiteral("/notas.txt"));
    QVERIFY(s.open(bare));
    QCOMPARE(s.window.centreWidget(), empty);
    QCOMPARE(empty->kind(), EmptyState::EmptyFolder);
    QCOMPARE(empty->title(), QStringLiteral("Esta carpeta no tiene imágenes"));
    QCOMPARE(s.count(), QStringLiteral("0 de 0 imágenes"));

    // A folder of subfolders only is a grid of folder cells, not "empty".
    QVERIFY(s.open(tmp->path()));
    QCOMPARE(s.window.centreWidget(), s.grid());
    QCOMPARE(s.model()->rowCount(), 2);

    if (::geteuid() != 0) {
        const QString locked = tmp->path() + QStringLiteral("/cerrada");
        QDir().mkpath(locked);
        QFile::setPermissions(locked, QFileDevice::Permissions());
        QVERIFY(s.open(locked));
        QCOMPARE(empty->kind(), EmptyState::AccessDenied);
        QCOMPARE(empty->title(), QStringLiteral("No tienes permiso para leer esta carpeta."));
        QVERIFY(!empty->detail().isEmpty());
        QFile::setPermissions(locked, QFile::ReadOwner | QFile::WriteOwner | QFile::ExeOwner);
    }
}

void TestMainWindow::dropOpensFolder()
{
    Session s;
    // A drag as the desktop delivers it: enter over the grid, then the drop.
    const auto drop = [&s](const QString &path) {
        QMimeData mime;
        mime.setUrls({QUrl::fromLocalFile(path)});
        const QPoint at = s.grid()->mapTo(&s.window, QPoint(40, 40));
        QDragEnterEvent enter(at, Qt::CopyAction, &mime, Qt::LeftButton, Qt::NoModifier);
        QApplication::sendEvent(&s.window, &enter);
        if (!enter.isAccepted())
            return false;
        QDropEvent dropped(at, Qt::CopyAction, &mime, Qt::LeftButton, Qt::NoModifier);
        QApplication::sendEvent(&s.window, &dropped);
        return dropped.isAccepted();
    };
    QSignalSpy loaded(&s.state, &AppState::loaded);
    s.window.showSettings();
    QVERIFY(drop(folder));
    QVERIFY(loaded.wait(5000));
    QVERIFY(!s.window.findChild<SettingsDialog *>() || !s.window.findChild<SettingsDialog *>()->isVisible());
    QCOMPARE(s.state.folder(), folder);
    QCOMPARE(s.count(), QStringLiteral("9 de 9 imágenes"));

    // A dropped file opens its folder with that file current.
    QVERIFY(drop(folder + QStringLiteral("/Ceremonia/IMG_0101.jpg")));
    QVERIFY(loaded.wait(5000));
    QCOMPARE(s.state.folder(), folder + QStringLiteral("/Ceremonia"));
    QCOMPARE(s.current()->name(), QStringLiteral("IMG_0101.jpg"));

    // While a long operation runs, nothing opens and a toast says why.
    s.state.setProgress(AppState::Progress{QStringLiteral("Importando"), 1, 10});
    QVERIFY(s.window.findChild<QWidget *>(QStringLiteral("statusProgress"))->isVisible());
    QCOMPARE(s.window.findChild<QLabel *>(QStringLiteral("statusProgressText"))->text(), QStringLiteral("Importando · 1 de 10"));
    drop(folder);
    QCOMPARE(s.window.toast()->text(), QStringLiteral("Termina la operación en curso y vuelve a soltar «boda»"));
    QVERIFY(s.window.toast()->isVisible());
    QCOMPARE(s.state.folder(), folder + QStringLiteral("/Ceremonia"));
    s.state.setProgress(std::nullopt);
    QVERIFY(!s.window.findChild<QWidget *>(QStringLiteral("statusProgress"))->isVisible());
}

void TestMainWindow::infoPanelShowsCurrentShot()
{
    Session s(folder);
    InfoPanel *info = s.window.infoPanel();
    QVERIFY(!info->isVisible());
    s.press(Qt::Key_I);
    QVERIFY(info->isVisible());
    QCOMPARE(info->value(QStringLiteral("Archivos")), QStringLiteral("DSC_0001.NEF, DSC_0001.JPG"));
    QCOMPARE(info->value(QStringLiteral("Ruta")), folder);
    QCOMPARE(info->value(QStringLiteral("Nitidez")), QStringLiteral("Sin medir"));
    QVERIFY(!info->value(QStringLiteral("Tamaño")).isEmpty());
    s.press(Qt::Key_End);
    QCOMPARE(info->value(QStringLiteral("Archivos")), QStringLiteral("DSC_0009.MP4"));

    // A blurry verdict with its reason.
    Photo *p = s.current();
    s.state.applySharpness({{p->id, {20.0, QPointF(0.5, 0.5)}}});
    QVERIFY(info->value(QStringLiteral("Nitidez")).startsWith(QStringLiteral("Desenfocada o movida")));
    QCOMPARE(s.cellOf(p).data(GridModel::SharpRole).toInt(), int(SharpBlurry));
    s.press(Qt::Key_I);
    QVERIFY(!info->isVisible());
}

void TestMainWindow::settingsApplyAtOnce()
{
    Session s(folder);
    s.press(Qt::Key_Comma, Qt::ControlModifier);
    auto *dialog = s.window.findChild<SettingsDialog *>();
    QVERIFY(dialog);
    QTRY_VERIFY(dialog->isVisible());

    // Cámara: the password wifi reception uses, shown and renewed here.
    dialog->showPage(QStringLiteral("Cámara"));
    const QString password = s.window.cameraHub().password();
    QCOMPARE(dialog->cameraPasswordLabel()->text(), password);
    QTest::mouseClick(dialog->renewPasswordButton(), Qt::LeftButton);
    QVERIFY(s.window.cameraHub().password() != password);
    QCOMPARE(dialog->cameraPasswordLabel()->text(), s.window.cameraHub().password());

    QVERIFY(!dialog->autoAdvanceBox()->isChecked());
    dialog->autoAdvanceBox()->setChecked(true);
    QVERIFY(s.state.autoAdvance());


    QComboBox *sens = dialog->sensitivityCombo();
    QCOMPARE(sens->currentText(), QStringLiteral("Normal"));
    sens->setCurrentIndex(sens->findText(QStringLiteral("Estricta")));
    QCOMPARE(s.state.sensitivity(), SharpSensitivity::strict);
    QCOMPARE(QSettings().value(QStringLiteral("sharpSensitivity")).toString(), QStringLiteral("strict"));
    dialog->close();

    // "Avanzar al marcar": one key per frame.
    s.window.activateWindow();
    QVERIFY(QTest::qWaitForWindowActive(&s.window));
    s.grid()->setFocus();
    s.press(Qt::Key_1);
    QCOMPARE(s.model()->photoAt(1)->colorClass(), ColorClass::c1);
    QCOMPARE(s.state.currentIndex(), 1);
    s.press(Qt::Key_T);
    QVERIFY(s.model()->photoAt(2)->tagged());
    QCOMPARE(s.state.currentIndex(), 2);
}

void TestMainWindow::marksInSidecarsAndTheExport()
{
    Session s(folder);
    XMPStore &xmp = s.session.sidecars();
    const auto sidecar = [&](const char *name) {
        xmp.flush();
        return XmpSidecar::read(folder + QLatin1Char('/') + QLatin1String(name), xmp.labels());
    };
    // The window's colour names are the labels written for the default list.
    for (int n = 1; n <= 8; ++n)
        QCOMPARE(s.window.action(QStringLiteral("color%1").arg(n))->text(), XmpLabels::label(n, XmpLabels::presets().first().labels));

    s.press(Qt::Key_3);   // DSC_0001, in the folder file only
    QVERIFY(!sidecar("DSC_0001.xmp"));
    s.press(Qt::Key_Comma, Qt::ControlModifier);
    auto *dialog = s.window.findChild<SettingsDialog *>();
    QVERIFY(dialog);
    dialog->showPage(QStringLiteral("Marcas"));
    MarksSettingsPage *page = dialog->marksPageWidget();
    QVERIFY(page->folderFileRadio()->isChecked());

    // Switching to sidecars writes the marks the folder has.
    page->sidecarRadio()->click();
    QCOMPARE(s.state.marksStorage(), MarksStorage::sidecar);
    QCOMPARE(QSettings().value(QStringLiteral("marksStorage")).toString(), QStringLiteral("sidecar"));
    QCOMPARE(sidecar("DSC_0001.xmp")->color, 3);
    QVERIFY(TestEnv::readAll(folder + "/DSC_0001.xmp").contains("xmp:Label=\"Verde\""));

    // From then on every mark lands in the shot's sidecar, undo included.
    dialog->hide();
    s.window.activateWindow();
    s.press(Qt::Key_Right);
    s.press(Qt::Key_4, Qt::AltModifier);
    QCOMPARE(sidecar("DSC_0002.xmp")->rating, 4);
    s.press(Qt::Key_Z, Qt::ControlModifier);
    QCOMPARE(sidecar("DSC_0002.xmp")->rating, 0);

    // Another label list: the next colour is written with its text.
    page->presetCombo()->setCurrentIndex(1);
    emit page->presetCombo()->activated(1);
    QCOMPARE(xmp.labels().at(2), QStringLiteral("Green"));
    s.press(Qt::Key_3);
    QCOMPARE(sidecar("DSC_0002.xmp")->color, 3);
    QVERIFY(TestEnv::readAll(folder + "/DSC_0002.xmp").contains("xmp:Label=\"Green\""));

    // Back to the folder file: the marks are written there, and a new mark touches no sidecar.
    page->folderFileRadio()->click();
    QCOMPARE(s.marksOnDisk(folder).value(QStringLiteral("dsc_0002")).toObject(), json(R"({"c":3})"));
    s.press(Qt::Key_Right);
    s.press(Qt::Key_1);
    QVERIFY(!sidecar("DSC_0003.xmp"));

    // The export writes every marked shot's sidecar, with a count at the end.
    QTest::mouseClick(page->exportButton(), Qt::LeftButton);
    QTRY_COMPARE(s.window.toast()->text(), QStringLiteral("Marcas de 3 imágenes exportadas a XMP."));
    QCOMPARE(sidecar("DSC_0003.xmp")->color, 1);
}

void TestMainWindow::renameFromTheSheetAndUndo()
{
    Session s(folder);
    s.press(Qt::Key_2);   // DSC_0001, the NEF+JPG pair, marked yellow
    s.press(Qt::Key_F2);
    RenameSheet *sheet = nullptr;
    QTRY_VERIFY((sheet = s.window.findChild<RenameSheet *>()) && sheet->isVisible());
    sheet->simpleRadio()->setChecked(true);
    QTest::keyClicks(sheet->nameField(), "Boda");
    QCOMPARE(sheet->preview()->topLevelItem(0)->text(0), QStringLiteral("DSC_0001 .NEF .JPG"));
    QCOMPARE(sheet->preview()->topLevelItem(0)->text(1), QStringLiteral("Boda_001 .NEF .JPG"));
    QCOMPARE(sheet->renameButton()->text(), QStringLiteral("Renombrar 1 imagen"));
    // A name already in the folder blocks the rename.
    TestEnv::touch(folder + "/Boda_001.jpg");
    sheet->nameField()->setText(QString());
    delete sheet;
    s.press(Qt::Key_F2);
    QTRY_VERIFY((sheet = s.window.findChild<RenameSheet *>()) && sheet->isVisible());
    QTest::keyClicks(sheet->nameField(), "Boda");
    QCOMPARE(sheet->preview()->topLevelItem(0)->text(2), QStringLiteral("Boda_001.JPG ya existe en la carpeta"));
    QVERIFY(!sheet->renameButton()->isEnabled());
    QFile::remove(folder + "/Boda_001.jpg");
    sheet->startSpin()->setValue(5);
    QVERIFY(sheet->renameButton()->isEnabled());
    QTest::mouseClick(sheet->renameButton(), Qt::LeftButton);
    QTRY_COMPARE(sheet->resultTitle()->text(), QStringLiteral("Renombrado completado"));
    QVERIFY(QFile::exists(folder + "/Boda_005.NEF") && QFile::exists(folder + "/Boda_005.JPG"));
    QTRY_VERIFY(!s.state.isLoading() && std::any_of(s.state.photos().begin(), s.state.photos().end(), [](const PhotoPtr &p) {
        return p->name() == QLatin1String("Boda_005.NEF") && p->colorClass() == ColorClass::c2;
    }));
    QCOMPARE(s.marksOnDisk(folder).value(QStringLiteral("boda_005")).toObject(), json(R"({"c":2})"));
    QCOMPARE(QSettings().value("rename.start").toInt(), 5);

    // The toast takes it back.
    QTest::mouseClick(sheet->findChildren<QPushButton *>().last(), Qt::LeftButton);   // Cerrar
    QVERIFY(s.window.toast()->offersAction());
    s.window.toast()->actionButton()->click();
    QTRY_VERIFY(QFile::exists(folder + "/DSC_0001.NEF") && QFile::exists(folder + "/DSC_0001.JPG"));
    QCOMPARE(s.marksOnDisk(folder).value(QStringLiteral("dsc_0001")).toObject(), json(R"({"c":2})"));
}

void TestMainWindow::moveCopyAndTrashFromTheWindowAndUndo()
{
    Session s(folder);
    s.press(Qt::Key_2);   // DSC_0001, the NEF+JPG pair, marked yellow
    QTemporaryDir dest;
    FileOpController *ops = s.window.fileOps();
    QSignalSpy finished(ops, &FileOpController::finished);

    s.window.action(QStringLiteral("moveTo"))->trigger();
    TransferSheet *sheet = nullptr;
    QTRY_VERIFY((sheet = s.window.findChild<TransferSheet *>()) && sheet->isVisible());
    QCOMPARE(sheet->scopeCombo()->itemText(0), QStringLiteral("La imagen actual (1)"));
    QVERIFY(sheet->scopeCombo()->findText(QStringLiteral("Color Amarillo (1)")) >= 0);
    QVERIFY(!sheet->goButton()->isEnabled() || !sheet->folderField()->text().isEmpty());
    sheet->folderField()->setText(dest.path());
    QCOMPARE(sheet->goButton()->text(), QStringLiteral("Mover 1 imagen"));
    QTest::mouseClick(sheet->goButton(), Qt::LeftButton);
    QTRY_COMPARE(finished.size(), 1);
    QVERIFY(QFile::exists(dest.filePath("DSC_0001.NEF")) && QFile::exists(dest.filePath("DSC_0001.JPG")));
    QVERIFY(!QFile::exists(folder + "/DSC_0001.NEF"));
    QCOMPARE(s.marksOnDisk(dest.path()).value(QStringLiteral("dsc_0001")).toObject(), json(R"({"c":2})"));
    QCOMPARE(s.window.toast()->text(), QStringLiteral("1 imagen movida a %1.").arg(QFileInfo(dest.path()).fileName()));
    QTRY_COMPARE(s.count(), QStringLiteral("8 de 8 imágenes"));
    QCOMPARE(s.window.action(QStringLiteral("undo"))->text(), QStringLiteral("Deshacer traslado de 1 imagen"));

    // Ctrl+Z brings it back, marks and all.
    s.press(Qt::Key_Z, Qt::ControlModifier);
    QTRY_COMPARE(finished.size(), 2);
    QVERIFY(QFile::exists(folder + "/DSC_0001.NEF") && QFile::exists(folder + "/DSC_0001.JPG"));
    QCOMPARE(s.marksOnDisk(folder).value(QStringLiteral("dsc_0001")).toObject(), json(R"({"c":2})"));
    QCOMPARE(s.window.action(QStringLiteral("undo"))->text(), QStringLiteral("Deshacer color en 1 imagen"));

    // Delete sends the current shot to the trash; the toast's "Deshacer" takes it out again.
    QTRY_VERIFY(!s.state.isLoading() && s.current());
    const QString name = s.current()->name();
    s.press(Qt::Key_Delete);
    QTRY_COMPARE(finished.size(), 3);
    QVERIFY(!QFile::exists(folder + QLatin1Char('/') + name));
    QCOMPARE(s.window.toast()->text(), QStringLiteral("1 imagen movida a la papelera."));
    s.window.toast()->actionButton()->click();
    QTRY_COMPARE(finished.size(), 4);
    QVERIFY(QFile::exists(folder + QLatin1Char('/') + name));
}

void TestMainWindow::sortMenuChangesOrder()
{
    Session s(folder);
    QVERIFY(s.window.action(QStringLiteral("sort-name"))->isChecked());
    QVERIFY(s.window.action(QStringLiteral("sortAscending"))->isChecked());
    s.window.action(QStringLiteral("sortDescending"))->trigger();
    QTRY_COMPARE(s.model()->photoAt(1)->name(), QStringLiteral("DSC_0009.MP4"));
    QCOMPARE(s.state.sortKey(), SortKey::name);
    s.window.action(QStringLiteral("sort-type"))->trigger();
    QCOMPARE(s.state.sortKey(), SortKey::type);
    QVERIFY(s.window.action(QStringLiteral("sort-type"))->isChecked());
    QVERIFY(!s.window.action(QStringLiteral("sort-name"))->isChecked());
}

void TestMainWindow::secondLaunchHandsPathsOver()
{
    const QString name = QStringLiteral("corvane-test-%1").arg(QCoreApplication::applicationPid());
    SingleInstance first(name);
    QVERIFY(!first.sendToRunning({QStringLiteral("/x")}, 300));   // nobody listens yet
    QVERIFY(first.listen());
    QSignalSpy received(&first, &SingleInstance::pathsReceived);

    // The second launch blocks while it waits for the answer: it runs off this thread.
    const QStringList paths{folder, folder + QStringLiteral("/DSC_0003.jpg"), QStringLiteral("/ruta con espacios/ñ")};
    QFuture<bool> sent = QtConcurrent::run([name, paths] { return SingleInstance(name).sendToRunning(paths); });
    QTRY_COMPARE(received.size(), 1);
    QTRY_VERIFY(sent.isFinished());
    QVERIFY(sent.result());
    QCOMPARE(received.at(0).at(0).toStringList(), paths);

    // A launch with nothing to open still reaches the running window (which then raises).
    QFuture<bool> bare = QtConcurrent::run([name] { return SingleInstance(name).sendToRunning({}); });
    QTRY_COMPARE(received.size(), 2);
    QTRY_VERIFY(bare.isFinished());
    QVERIFY(bare.result());
    QVERIFY(received.at(1).at(0).toStringList().isEmpty());

    // A crashed instance leaves its socket file behind: nobody answers, and the next launch
    // takes the name over.
    const QString staleName = name + QStringLiteral("-stale");
    const QByteArray socketPath = QFile::encodeName(QDir::tempPath() + QLatin1Char('/') + staleName);
    const int fd = ::socket(AF_UNIX, SOCK_STREAM, 0);
    sockaddr_un addr{};
    addr.sun_family = AF_UNIX;
    qstrncpy(addr.sun_path, socketPath.constData(), sizeof addr.sun_path);
    QCOMPARE(::bind(fd, reinterpret_cast<sockaddr *>(&addr), sizeof addr), 0);
    ::close(fd);
    QVERIFY(QFile::exists(QString::fromLocal8Bit(socketPath)));
    SingleInstance next(staleName);
    QVERIFY(!next.sendToRunning({folder}, 500));
    QVERIFY(next.listen());
    QSignalSpy nextReceived(&next, &SingleInstance::pathsReceived);
    QFuture<bool> later = QtConcurrent::run([staleName, f = folder] { return SingleInstance(staleName).sendToRunning({f}); });
    QTRY_COMPARE(nextReceived.size(), 1);
    QTRY_VERIFY(later.isFinished());
    QVERIFY(later.result());
}

void TestMainWindow::ctrlPlusAndMinusResizeTheCells()
{
    Session s(folder);
    GridView *grid = s.grid();
    const int before = grid->thumbSize();
    s.press(Qt::Key_Plus, Qt::ControlModifier);
    QVERIFY(grid->thumbSize() > before);
    QCOMPARE(s.window.thumbSlider()->value(), grid->thumbSize());
    QCOMPARE(QSettings().value(QStringLiteral("ui.thumbSize")).toInt(), grid->thumbSize());
    QCOMPARE(grid->gridSize().height(), grid->gridDelegate()->cellSize().height());
    s.press(Qt::Key_Minus, Qt::ControlModifier);
    QCOMPARE(grid->thumbSize(), before);
    s.window.thumbSlider()->setValue(GridView::kMinThumb);
    QCOMPARE(grid->thumbSize(), GridView::kMinThumb);
}

void TestMainWindow::largeFolderStaysResponsive()
{
    const QString big = tmp->path() + QStringLiteral("/grande");
    QDir().mkpath(big);
    for (int i = 0; i < 20000; ++i)
        TestEnv::touch(big + QStringLiteral("/IMG_%1.jpg").arg(i, 5, 10, QLatin1Char('0')));
    Session s(big);
    QCOMPARE(s.count(), QStringLiteral("20000 de 20000 imágenes"));
    GridView *grid = s.grid();
    const auto currentVisible = [grid] { return grid->viewport()->rect().intersects(grid->visualRect(grid->currentIndex())); };

    // Right after the load: End reaches the last cell (not the end of a first layout batch)
    // and shows it; paging back stays on screen.
    s.press(Qt::Key_End);
    grid->viewport()->repaint();
    QCOMPARE(s.state.currentIndex(), 19999);
    QVERIFY(currentVisible());
    for (int i = 0; i < 20; ++i) {
        s.press(Qt::Key_PageUp);
        grid->viewport()->repaint();
    }
    QVERIFY(s.state.currentIndex() < 19999);
    QVERIFY(currentVisible());
    s.press(Qt::Key_A, Qt::ControlModifier);
    grid->viewport()->repaint();
    QCOMPARE(s.selectionLabel(), QStringLiteral("20000 seleccionadas"));
    QVERIFY(grid->selectionModel()->isSelected(grid->currentIndex()));

    // One key on the whole selection.
    s.press(Qt::Key_4);
    grid->viewport()->repaint();
    QCOMPARE(s.state.photos().first()->colorClass(), ColorClass::c4);
    QCOMPARE(s.state.photos().last()->colorClass(), ColorClass::c4);
}

QTEST_MAIN(TestMainWindow)
#include "tst_mainwindow.moc"
