// IPTC templates in the window, as a photographer uses them: made in the editor, put on the chosen
// shots and read back by exiftool, shown in the info panel and found by the search, undone from
// the toast; and chosen in the import window, put on the copies and never on the card.
#include "testenv.h"
#include "testimages.h"
#include "testwindow.h"

#include "app/importchoicespage.h"
#include "app/importsummarypage.h"
#include "app/importwindow.h"
#include "app/infopanel.h"
#include "app/iptcapplysheet.h"
#include "app/iptctemplateswindow.h"
#include "app/toast.h"
#include "metadata/iptcfile.h"
#include "metadata/iptclibrary.h"

#include <QComboBox>
#include <QDirIterator>
#include <QLabel>
#include <QLineEdit>
#include <QListWidget>
#include <QProcess>
#include <QPushButton>
#include <QStandardPaths>
#include <QToolButton>

namespace {

// One tag as exiftool reads it ("IPTC:By-line"), or what went wrong.
QString exiftool(const QString &path, const QString &tag)
{
    QProcess p;
    p.start(QStringLiteral("exiftool"), {QStringLiteral("-s3"), QStringLiteral("-sep"), QStringLiteral(", "), QLatin1Char('-') + tag, path});
    if (!p.waitForFinished(30000))
        return QStringLiteral("exiftool did not finish");
    return QString::fromUtf8(p.readAllStandardOutput()).trimmed();
}

IptcTemplate boda()
{
    IptcTemplate t;
    t.name = QStringLiteral("Boda");
    t.values[IptcField::creator] = QStringLiteral("Ana Núñez");
    t.values[IptcField::city] = QStringLiteral("Logroño");
    t.values.keywords = {QStringLiteral("boda"), QStringLiteral("señores")};
    return t;
}

} // namespace

class TestIptcWindow : public QObject
{
    Q_OBJECT
    QTemporaryDir _tmp;

private slots:
    void initTestCase()
    {
        TestEnv::isolate();
        if (QStandardPaths::findExecutable(QStringLiteral("exiftool")).isEmpty())
            QSKIP("exiftool is not installed");
    }

    void editorSavesAtOnceAndRefusesATakenName()
    {
        const QString lib = _tmp.filePath("editor.json");
        IptcTemplatesWindow w(nullptr, lib);
        w.show();
        QVERIFY(!w.nameEdit()->isEnabled());   // nothing to edit yet
        QTest::mouseClick(w.addButton(), Qt::LeftButton);
        QCOMPARE(w.list()->count(), 1);
        QCOMPARE(w.nameEdit()->text(), "Nueva plantilla");

        w.nameEdit()->setText("Prensa Logroño");
        static_cast<QLineEdit *>(w.fieldEdit(IptcField::creator))->setText("Ana Núñez");
        w.keywordsEdit()->setText("fútbol,  liga , fútbol");
        w.modeCombo(IptcField::creator)->setCurrentIndex(1);
        w.keywordModeCombo()->setCurrentIndex(1);
        // Saved a moment after the typing stops, without any button.
        QTRY_VERIFY(IptcLibrary::find("Prensa Logroño", lib).has_value());
        const IptcTemplate saved = *IptcLibrary::find("Prensa Logroño", lib);
        QCOMPARE(saved.values[IptcField::creator], "Ana Núñez");
        QCOMPARE(saved.values.keywords, QStringList({"fútbol", "liga"}));
        QCOMPARE(saved.mode(IptcField::creator), IptcTemplate::Mode::ifEmpty);
        QCOMPARE(saved.keywordMode, IptcTemplate::KeywordMode::replace);
        QCOMPARE(w.list()->item(0)->text(), "Prensa Logroño");

        // A copy keeps every field; a name already taken (in any case) is refused, kept on screen.
        QTest::mouseClick(w.duplicateButton(), Qt::LeftButton);
        QCOMPARE(w.currentName(), "Prensa Logroño (copia)");
        QCOMPARE(IptcLibrary::find(w.currentName(), lib)->values, saved.values);
        w.nameEdit()->setText("prensa logroño");
        QVERIFY(!w.saveNow());
        QCOMPARE(w.messageLabel()->text(), "Ya hay una plantilla que se llama «prensa logroño».");
        QCOMPARE(IptcLibrary::load(lib).size(), 2);
        QVERIFY(!w.close());
        w.nameEdit()->setText("Prensa 2");
        QVERIFY(w.close());
        QCOMPARE(IptcLibrary::find("Prensa 2", lib)->values, saved.values);
    }

    void applyToSelectionReadBackAndUndo()
    {
        QVERIFY(IptcLibrary::save(boda()).isEmpty());
        const QString dir = _tmp.filePath("carpeta");
        QStringList jpegs;
        for (const char *name : {"a.jpg", "b.jpg", "c.jpg"})
            jpegs << TestImages::writeJpeg(dir + "/" + name, 64, 48);
        const QByteArray before = TestEnv::readAll(jpegs[0]);
        // A RAW takes its texts in its sidecar; a protected file is refused and the rest go on.
        TestEnv::touch(dir + "/d.nef", QByteArray(4096, 'r'));
        QFile::setPermissions(jpegs[1], QFile::ReadOwner);

        WindowSession ws(dir);
        ws.window.action("infoPanel")->setChecked(true);
        ws.state.selectAll();
        ws.window.action("applyIptc")->trigger();
        auto *sheet = ws.window.findChild<IptcApplySheet *>();
        QVERIFY(sheet && sheet->isVisible());
        QCOMPARE(sheet->files().size(), 4);
        sheet->templateCombo()->setCurrentIndex(sheet->templateCombo()->findText("Boda"));
        QVERIFY(sheet->summaryLabel()->text().contains("Autor: Ana Núñez"));
        QCOMPARE(sheet->applyButton()->text(), "Aplicar a 4 imágenes");
        QTest::mouseClick(sheet->applyButton(), Qt::LeftButton);
        QTRY_VERIFY_WITH_TIMEOUT(ws.window.toast()->text().startsWith("Plantilla «Boda» aplicada a 3 archivos. 1 no se pudo escribir:\nb.jpg: "), 20000);
        QVERIFY(ws.window.toast()->isError());   // stays until read

        // The tools of record read it, accents and ñ intact, in the JPEG and beside the RAW.
        QCOMPARE(exiftool(jpegs[0], "IPTC:By-line"), "Ana Núñez");
        QCOMPARE(exiftool(jpegs[0], "XMP-photoshop:City"), "Logroño");
        QCOMPARE(exiftool(jpegs[2], "XMP-dc:Subject"), "boda, señores");
        QCOMPARE(exiftool(jpegs[1], "IPTC:By-line"), QString());
        QCOMPARE(exiftool(dir + "/d.xmp", "XMP-dc:Creator"), "Ana Núñez");

        // The info panel and the search see it without opening the folder again.
        QTRY_COMPARE(ws.window.infoPanel()->value("Autor"), "Ana Núñez");
        QCOMPARE(ws.window.infoPanel()->value("Palabras clave"), "boda, señores");
        ws.window.searchField()->setText("logrono");
        QTRY_COMPARE(ws.state.visible().size(), 3);
        QTRY_VERIFY(ws.state.facetCounts(Facet::creator).value("Ana Núñez") == 3);

        // Edición ▸ Deshacer (Ctrl+Z) puts each file back as it was.
        QVERIFY(ws.window.toast()->offersAction());
        QVERIFY(ws.window.action("undo")->text().startsWith("Deshacer plantilla IPTC en "));
        ws.window.action("undo")->trigger();
        QTRY_COMPARE_WITH_TIMEOUT(ws.window.toast()->text(), "Plantilla IPTC deshecha", 20000);
        QCOMPARE(TestEnv::readAll(jpegs[0]), before);
        QCOMPARE(exiftool(jpegs[2], "IPTC:By-line"), QString());
        QVERIFY(!QFileInfo::exists(dir + "/d.xmp"));
        QTRY_COMPARE(ws.state.visible().size(), 0);   // the search no longer finds them
    }

    void importPutsTheChosenTemplateOnTheCopiesOnly()
    {
        QVERIFY(IptcLibrary::save(boda()).isEmpty() || IptcLibrary::find("Boda"));
        const QString card = _tmp.filePath("CARD"), work = _tmp.filePath("Trabajo");
        QVERIFY(QDir().mkpath(work));
        const QString shot = TestImages::writeJpeg(card + "/DCIM/100CANON/IMG_0001.JPG", 64, 48);
        const QByteArray original = TestEnv::readAll(shot);

        ImportWindow w;
        ImportChoicesPage *c = w.choices();
        c->setCardFinder([] { return QList<CardVolume>(); });
        w.show();
        QComboBox *choice = c->iptcCombo();
        QCOMPARE(choice->itemText(0), "Ninguna");
        choice->setCurrentIndex(choice->findText("Boda"));
        emit choice->activated(choice->currentIndex());
        c->workingEdit()->setText(work);
        c->setSource(card);
        QTRY_VERIFY(c->startButton()->isEnabled());
        QTest::mouseClick(c->startButton(), Qt::LeftButton);
        QVERIFY(QTest::qWaitFor([&] { return w.page() == ImportWindow::Page::summary; }, 60000));
        QVERIFY(w.summary()->destinationsText().contains("Plantilla IPTC puesta en 1 copia."));

        QStringList copies;
        QDirIterator it(work, {"*.JPG"}, QDir::Files, QDirIterator::Subdirectories);
        while (it.hasNext())
            copies << it.next();
        QCOMPARE(copies.size(), 1);
        QCOMPARE(exiftool(copies[0], "IPTC:By-line"), "Ana Núñez");
        QCOMPARE(TestEnv::readAll(shot), original);

        // The choice is remembered by the next import window.
        ImportWindow again;
        QCOMPARE(again.choices()->iptcCombo()->currentText(), "Boda");
    }
};

QTEST_MAIN(TestIptcWindow)
#include "tst_iptcwindow.moc"
