// "Selección del cliente" driven as a photographer drives it: a message typed and pasted, lines
// ticked and unticked, the colour applied to the folder and undone in one step.
#include "testenv.h"
#include "testwindow.h"

#include "app/clientpicksheet.h"
#include "marks/marks.h"
#include "marks/marksfile.h"

#include <QAction>
#include <QCheckBox>
#include <QClipboard>
#include <QComboBox>
#include <QLabel>
#include <QPlainTextEdit>
#include <QPushButton>
#include <QStackedWidget>
#include <QTreeWidget>

namespace {
QTreeWidgetItem *line(ClientPickSheet *sheet, const QString &token)
{
    const QList<QTreeWidgetItem *> found = sheet->lines()->findItems(token, Qt::MatchExactly, 0);
    return found.size() == 1 ? found.first() : nullptr;
}
} // namespace

class TestClientPickSheet : public QObject
{
    Q_OBJECT
private slots:
    void initTestCase() { TestEnv::isolate(); }

    void messageColoursAndSelectsTheShotsUndoneInOneStep()
    {
        QTemporaryDir dir;
        for (const char *name : {"DSC_0412.NEF", "_DSF0412.RAF", "DSC_0415.JPG", "DSC_0433.JPG", "DSC_0533.NEF",
                                 "DSC_0533.JPG", "DSC_0600.JPG", "DSC_0601.JPG", "DSC_0602.JPG", "DSC_0604.JPG",
                                 "DSC_0605.JPG", "DSC_0700.JPG"})
            TestEnv::touch(dir.filePath(name), "fake image bytes");
        WindowSession s(dir.path());
        QCOMPARE(s.state.photos().size(), 11);
        QHash<QString, Photo *> byName;
        for (const PhotoPtr &p : s.state.photos())
            byName.insert(p->name(), p.get());
        // A colour the client's pick overwrites and the undo must bring back.
        Marks blue;
        blue.c = 5;
        s.state.setMarks(byName["DSC_0415.JPG"], blue, QStringLiteral("color"));

        QAction *open = s.window.action("clientPick");
        QVERIFY(open->isEnabled());
        open->trigger();
        auto *sheet = s.window.findChild<ClientPickSheet *>();
        QVERIFY(sheet && sheet->isVisible());
        QCOMPARE(sheet->objectName(), QStringLiteral("seleccion-cliente"));
        QCOMPARE(sheet->windowTitle(), QStringLiteral("Selección del cliente"));
        QVERIFY(sheet->messageField()->placeholderText().startsWith(QStringLiteral("Por ejemplo:\n«Hola! Me quedo con la 0412")));
        QVERIFY(!sheet->lines()->isVisible());   // "Pega el mensaje a la izquierda" instead
        QVERIFY(!sheet->applyButton()->isEnabled());

        // Typed, then the rest pasted; the lines follow.
        QSignalSpy read(sheet, &ClientPickSheet::matchesChanged);
        QTest::keyClicks(sheet->messageField(), QStringLiteral("Hola! Me quedo con la 0412, 415, 433,"));
        sheet->messageField()->insertPlainText(QStringLiteral("\nDSC_0533.NEF y 600-605"));
        QTRY_VERIFY(!sheet->isReading());
        QVERIFY(read.count() >= 1);
        QVERIFY(sheet->lines()->isVisible());
        QCOMPARE(sheet->lines()->topLevelItemCount(), 10);
        QCOMPARE(line(sheet, "603")->text(1), QStringLiteral("No hay ninguna imagen con ese número"));
        QCOMPARE(line(sheet, "dsc_0533")->text(1), QStringLiteral("DSC_0533.NEF"));
        QTreeWidgetItem *twoBodies = line(sheet, "0412");
        QCOMPARE(twoBodies->text(1), QStringLiteral("varias con ese número"));
        QCOMPARE(twoBodies->childCount(), 2);
        QCOMPARE(twoBodies->checkState(0), Qt::Checked);
        QCOMPARE(sheet->applyButton()->text(), QStringLiteral("Aplicar a 10 imágenes"));

        // One camera's shot left out, a line off and on again.
        for (int i = 0; i < twoBodies->childCount(); ++i)
            if (twoBodies->child(i)->text(1) == QLatin1String("_DSF0412.RAF"))
                twoBodies->child(i)->setCheckState(1, Qt::Unchecked);
        QCOMPARE(sheet->applyButton()->text(), QStringLiteral("Aplicar a 9 imágenes"));
        line(sheet, "600")->setCheckState(0, Qt::Unchecked);
        QCOMPARE(sheet->applyButton()->text(), QStringLiteral("Aplicar a 8 imágenes"));
        line(sheet, "600")->setCheckState(0, Qt::Checked);

        QTest::mouseClick(sheet->copyMissingButton(), Qt::LeftButton);
        QCOMPARE(QGuiApplication::clipboard()->text(), QStringLiteral("603"));
        QCOMPARE(sheet->copiedLabel()->text(), QStringLiteral("Copiado: 1 números que no están"));

        sheet->colorChoice()->setCurrentIndex(sheet->colorChoice()->findData(2));
        sheet->filterThem()->setChecked(true);
        QTest::mouseClick(sheet->applyButton(), Qt::LeftButton);
        QTRY_VERIFY(!s.window.findChild<ClientPickSheet *>());

        const QStringList picked{"DSC_0412.NEF", "DSC_0415.JPG", "DSC_0433.JPG", "DSC_0533.NEF", "DSC_0600.JPG",
                                 "DSC_0601.JPG", "DSC_0602.JPG", "DSC_0604.JPG", "DSC_0605.JPG"};
        QSet<QUuid> pickedIds;
        for (Photo *p : std::as_const(byName)) {
            QCOMPARE(p->colorClass(), picked.contains(p->name()) ? ColorClass::c2 : ColorClass::none);
            if (picked.contains(p->name()))
                pickedIds.insert(p->id);
        }
        QCOMPARE(s.state.selection(), pickedIds);
        QCOMPARE(s.state.filter().colors, QSet<ColorClass>{ColorClass::c2});
        QCOMPARE(s.state.visible().size(), 9);

        // One undo gives every shot its colour back.
        QVERIFY(s.window.action("undo")->text().contains(QStringLiteral("selección del cliente")));
        s.window.action("undo")->trigger();
        for (Photo *p : std::as_const(byName))
            QCOMPARE(p->colorClass(), p->name() == QLatin1String("DSC_0415.JPG") ? ColorClass::c5 : ColorClass::none);
        s.store.flush();
        const auto onDisk = MarksFile::load(dir.path());
        QVERIFY(onDisk);
        QCOMPARE(onDisk->marks.keys(), QStringList{"dsc_0415"});
    }
};

QTEST_MAIN(TestClientPickSheet)
#include "tst_clientpicksheet.moc"
