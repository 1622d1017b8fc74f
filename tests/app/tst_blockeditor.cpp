// The naming-pattern editor driven with clicks, keys and drops, checked by what it shows.
#include "app/blockeditor.h"
#include "testenv.h"

#include <QAbstractButton>
#include <QApplication>
#include <QComboBox>
#include <QDropEvent>
#include <QGraphicsOpacityEffect>
#include <QLabel>
#include <QLineEdit>
#include <QMimeData>
#include <QSignalSpy>
#include <QSpinBox>
#include <QTest>

using K = NameToken::Kind;

namespace {

QStringList labels(const BlockEditor &e)
{
    QStringList l;
    for (int i = 0; i < e.blockCount(); ++i)
        l << e.chipLabel(i);
    return l;
}

QStringList samples(const BlockEditor &e)
{
    QStringList l;
    for (int i = 0; i < e.blockCount(); ++i)
        l << e.chipSample(i);
    return l;
}

double opacity(QAbstractButton *b)
{
    auto *fx = qobject_cast<QGraphicsOpacityEffect *>(b->graphicsEffect());
    return fx ? fx->opacity() : 1.0;
}

void click(QAbstractButton *b)
{
    QVERIFY(b);
    QTest::mouseClick(b, Qt::LeftButton);
    QCoreApplication::processEvents();   // chips replaced by the click are deleted later
}

// A drop of block `index` at x in the row, as the row receives it at the end of a drag.
void dropBlock(BlockEditor &e, int index, int x)
{
    QMimeData mime;
    mime.setData("application/x-corvane-name-block", e.pattern().tokens[index].id.toByteArray());
    QWidget *row = e.chipRow();
    const QPointF at(x, row->height() / 2);
    QDragEnterEvent enter(at.toPoint(), Qt::MoveAction, &mime, Qt::LeftButton, Qt::NoModifier);
    QApplication::sendEvent(row, &enter);
    QVERIFY(enter.isAccepted());
    QDragMoveEvent move(at.toPoint(), Qt::MoveAction, &mime, Qt::LeftButton, Qt::NoModifier);
    QApplication::sendEvent(row, &move);
    QVERIFY(move.isAccepted());
    QDropEvent drop(at, Qt::MoveAction, &mime, Qt::LeftButton, Qt::NoModifier);
    QApplication::sendEvent(row, &drop);
    QVERIFY(drop.isAccepted());
    QCoreApplication::processEvents();
}

} // namespace

class TestBlockEditor : public QObject
{
    Q_OBJECT
    std::unique_ptr<BlockEditor> _e;

    BlockEditor &editor() { return *_e; }

private slots:
    void initTestCase() { TestEnv::isolate(); }

    void init()
    {
        _e = std::make_unique<BlockEditor>();
        NameValues v = NameValues::sample();
        v.session = QStringLiteral("Boda Marta y Luis");
        _e->setSampleValues(v);
        _e->resize(1100, 320);
        _e->show();
        QVERIFY(QTest::qWaitForWindowExposed(_e.get()));
    }
    void cleanup() { _e.reset(); }

    void showsTheDefaultPatternWithSamples()
    {
        BlockEditor &e = editor();
        QCOMPARE(e.helpLabel()->text(),
                 "Construye el nombre con bloques: añádelos con un clic, quítalos con la ✕ y arrástralos para cambiar el orden.");
        QCOMPARE(labels(e), QStringList({"Fecha", "Sesión", "Número"}));
        QCOMPARE(samples(e), QStringList({"20240518", "Boda_Marta_y_Luis", "0001"}));
        QVERIFY(!e.warningLabel()->isVisible());
        QVERIFY(!e.emptyLabel()->isVisible());
        QCOMPARE(e.exampleLabel()->text(), "Ejemplo: 20240518_Boda_Marta_y_Luis_0001.NEF");
        QCOMPARE(e.presetCombo()->currentText(), "Fecha · Sesión · Número");
        // What stands in the name is faded in the palette and says so.
        QVERIFY(!e.paletteButton(K::session)->isEnabled());
        QCOMPARE(opacity(e.paletteButton(K::session)), 0.45);
        QCOMPARE(e.paletteButton(K::session)->toolTip(), "Ya está en el nombre");
    }

    void addsFromThePaletteWithAClick()
    {
        BlockEditor &e = editor();
        QSignalSpy changed(&e, &BlockEditor::patternChanged);
        click(e.paletteButton(K::camera));
        QCOMPARE(labels(e), QStringList({"Fecha", "Sesión", "Número", "Cámara"}));
        QCOMPARE(e.chipSample(3), "NIKONZ9");
        QCOMPARE(changed.count(), 1);
        // Now faded in the palette: a click there does nothing.
        QVERIFY(!e.paletteButton(K::camera)->isEnabled());
        QTest::mouseClick(e.paletteButton(K::camera), Qt::LeftButton);
        QCOMPARE(e.blockCount(), 4);
        QCOMPARE(changed.count(), 1);
        QCOMPARE(e.presetCombo()->currentText(), "Personalizado");
    }

    void textBlocksRepeatAndAreTyped()
    {
        BlockEditor &e = editor();
        click(e.paletteButton(K::text));
        click(e.paletteButton(K::text));
        QCOMPARE(e.blockCount(), 5);
        QVERIFY(e.paletteButton(K::text)->isEnabled());
        QCOMPARE(e.chipSample(3), "(vacío)");
        // An empty text leaves no piece and no doubled separator.
        QCOMPARE(e.exampleLabel()->text(), "Ejemplo: 20240518_Boda_Marta_y_Luis_0001.NEF");

        auto *field = e.chip(3)->findChild<QLineEdit *>();
        QVERIFY(field);
        QTest::keyClicks(field, "Iglesia/San Juan");
        QCOMPARE(e.chipSample(3), "Iglesia-San Juan");
        QCOMPARE(e.pattern().tokens[3].text, "Iglesia/San Juan");
        QCOMPARE(e.exampleLabel()->text(), "Ejemplo: 20240518_Boda_Marta_y_Luis_0001_Iglesia-San Juan.NEF");
        // Typing does not rebuild the chip under the cursor.
        QCOMPARE(e.chip(3)->findChild<QLineEdit *>(), field);
        QVERIFY(field->isVisible());
    }

    void chipsShowTheirValues()
    {
        BlockEditor &e = editor();
        auto *format = e.chip(0)->findChild<QComboBox *>();
        QVERIFY(format);
        QCOMPARE(format->currentText(), "yyyyMMdd");
        format->setCurrentIndex(format->findText("yyyy-MM-dd"));
        QCOMPARE(e.chipSample(0), "2024-05-18");
        QCOMPARE(e.pattern().tokens[0].format, "yyyy-MM-dd");
        QCOMPARE(e.presetCombo()->currentText(), "Personalizado");

        // An empty session shows as such and leaves no piece in the name.
        NameValues v = e.sampleValues();
        v.session.clear();
        e.setSampleValues(v);
        QCOMPARE(e.chipSample(1), "(vacío)");
        QCOMPARE(e.exampleLabel()->text(), "Ejemplo: 2024-05-18_0001.NEF");
    }

    void removesWithTheCross()
    {
        BlockEditor &e = editor();
        click(e.removeButton(1));
        QCOMPARE(labels(e), QStringList({"Fecha", "Número"}));
        QVERIFY(e.paletteButton(K::session)->isEnabled());
        QCOMPARE(e.presetCombo()->currentText(), "Fecha · Número");

        // Without «Número» nor «Nombre original» the editor warns.
        click(e.removeButton(1));
        QVERIFY(e.warningLabel()->isVisible());
        QCOMPARE(e.warningLabel()->text(),
                 "Sin «Número» ni «Nombre original» varias imágenes tendrán el mismo nombre: Corvane añadirá -2, -3… para no sobrescribir ninguna.");
        click(e.paletteButton(K::original));
        QVERIFY(!e.warningLabel()->isVisible());

        // No blocks at all: the original name is used, and the editor says so instead.
        click(e.removeButton(1));
        click(e.removeButton(0));
        QCOMPARE(e.blockCount(), 0);
        QVERIFY(e.emptyLabel()->isVisible());
        QCOMPARE(e.emptyLabel()->text(), "Sin bloques: se usará el nombre original. Añade bloques desde abajo.");
        QVERIFY(!e.warningLabel()->isVisible());
        QCOMPARE(e.exampleLabel()->text(), "Ejemplo: DSC_0001.NEF");
        click(e.paletteButton(K::counter));
        QVERIFY(!e.emptyLabel()->isVisible());
    }

    void movesWithTheButtonsAndKeys()
    {
        BlockEditor &e = editor();
        QVERIFY(!e.moveLeftButton(0)->isEnabled());
        QVERIFY(!e.moveRightButton(2)->isEnabled());

        click(e.moveRightButton(0));
        QCOMPARE(labels(e), QStringList({"Sesión", "Fecha", "Número"}));
        click(e.moveLeftButton(2));
        QCOMPARE(labels(e), QStringList({"Sesión", "Número", "Fecha"}));
        QCOMPARE(e.exampleLabel()->text(), "Ejemplo: Boda_Marta_y_Luis_0001_20240518.NEF");

        // The keyboard: the moved chip keeps the focus, Ctrl+arrows move it, Delete removes it.
        QVERIFY(QTest::qWaitForWindowActive(&e));
        e.chip(0)->setFocus();
        QTest::keyClick(e.chip(0), Qt::Key_Right, Qt::ControlModifier);
        QCoreApplication::processEvents();
        QCOMPARE(labels(e), QStringList({"Número", "Sesión", "Fecha"}));
        QCOMPARE(QApplication::focusWidget(), e.chip(1));
        QTest::keyClick(e.chip(1), Qt::Key_Right, Qt::ControlModifier);
        QCoreApplication::processEvents();
        QCOMPARE(labels(e), QStringList({"Número", "Fecha", "Sesión"}));
        QTest::keyClick(e.chip(2), Qt::Key_Delete);
        QCoreApplication::processEvents();
        QCOMPARE(labels(e), QStringList({"Número", "Fecha"}));
    }

    void reordersByDragging()
    {
        BlockEditor &e = editor();
        QWidget *row = e.chipRow();
        // The first chip dropped after the last one.
        dropBlock(e, 0, e.chip(2)->geometry().right() + 2);
        QCOMPARE(labels(e), QStringList({"Sesión", "Número", "Fecha"}));
        QApplication::processEvents();
        // The last one dropped before the first one.
        dropBlock(e, 2, e.chip(0)->geometry().left() + 2);
        QCOMPARE(labels(e), QStringList({"Fecha", "Sesión", "Número"}));
        // Between the first two: just right of the first chip's middle.
        dropBlock(e, 2, e.chip(0)->geometry().center().x() + 3);
        QCOMPARE(labels(e), QStringList({"Fecha", "Número", "Sesión"}));
        // Dropped where it already is: nothing changes.
        QSignalSpy changed(&e, &BlockEditor::patternChanged);
        dropBlock(e, 1, e.chip(1)->geometry().center().x());
        QCOMPARE(changed.count(), 0);

        // Something that is not one of our blocks is refused.
        QMimeData foreign;
        foreign.setText("Fecha");
        QDragEnterEvent enter(QPoint(5, 5), Qt::MoveAction, &foreign, Qt::LeftButton, Qt::NoModifier);
        QApplication::sendEvent(row, &enter);
        QVERIFY(!enter.isAccepted());
    }

    void numberStartAndDigits()
    {
        BlockEditor &e = editor();
        QSpinBox *digits = e.digitsSpin();
        QCOMPARE(digits->text(), "Cifras: 4");
        QSignalSpy digitsSpy(&e, &BlockEditor::digitsChanged);
        digits->setFocus();
        for (int i = 0; i < 4; ++i)
            QTest::keyClick(digits, Qt::Key_Up);
        QCOMPARE(digits->text(), "Cifras: 6");
        QCOMPARE(e.digits(), 6);
        QCOMPARE(digitsSpy.count(), 2);
        QCOMPARE(e.chipSample(2), "000001");
        for (int i = 0; i < 8; ++i)
            QTest::keyClick(digits, Qt::Key_Down);
        QCOMPARE(digits->text(), "Cifras: 1");
        QCOMPARE(e.chipSample(2), "1");

        QSignalSpy startSpy(&e, &BlockEditor::startChanged);
        e.startSpin()->selectAll();
        QTest::keyClicks(e.startSpin(), "120");
        QCOMPARE(e.start(), 120);
        QCOMPARE(startSpy.last().at(0).toLongLong(), 120);
        QCOMPARE(e.chipSample(2), "120");
        // Set by the owner (restoring settings): no change signals.
        QSignalSpy edited(&e, &BlockEditor::edited);
        e.setDigits(9);
        QCOMPARE(e.digits(), 6);
        e.setStart(5);
        QCOMPARE(e.chipSample(2), "000005");
        QCOMPARE(edited.count(), 0);
    }

    void presetsAndSeparator()
    {
        BlockEditor &e = editor();
        QComboBox *presets = e.presetCombo();
        presets->setFocus();
        // Down in a closed list picks the next preset, as a user choosing from it does.
        QTest::keyClick(presets, Qt::Key_Down);
        QCOMPARE(presets->currentText(), "Fecha · Número");
        QCOMPARE(labels(e), QStringList({"Fecha", "Número"}));
        const QUuid firstId = e.pattern().tokens[0].id;
        for (int i = 0; i < 5; ++i)
            QTest::keyClick(presets, Qt::Key_Down);
        QCOMPARE(presets->currentText(), "Solo el nombre original");
        QCOMPARE(labels(e), QStringList({"Nombre original"}));
        QTest::keyClick(presets, Qt::Key_Up);
        QCOMPARE(labels(e), QStringList({"Cámara", "Fecha", "Número"}));
        QVERIFY(e.pattern().tokens[1].id != firstId);   // fresh blocks

        QComboBox *sep = e.separatorCombo();
        sep->setFocus();
        QTest::keyClick(sep, Qt::Key_Down);
        QCOMPARE(e.pattern().separator, "-");
        QCOMPARE(e.exampleLabel()->text(), "Ejemplo: NIKONZ9-20240518-0001.NEF");
        QCOMPARE(presets->currentText(), "Personalizado");

        // A pattern from elsewhere with an unusual separator shows it.
        NamePattern odd = NamePattern::defaultPattern();
        odd.separator = "~";
        e.setPattern(odd);
        QCOMPARE(sep->currentData().toString(), "~");
        QCOMPARE(e.exampleLabel()->text(), "Ejemplo: 20240518~Boda~Marta~y~Luis~0001.NEF");
    }
};

QTEST_MAIN(TestBlockEditor)
#include "tst_blockeditor.moc"
