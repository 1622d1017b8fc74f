// The import window driven as a photographer drives it: pick the card folder and the two disks,
// choose folders and names, import, and read the summary; checked against the files on disk.
// The card is a temporary folder with a DCIM of real JPEGs (vips + exiv2) and RAW-like files.
#include "../ingest/ingesttestcard.h"
#include "testenv.h"
#include "testtools.h"

#include "app/blockeditor.h"
#include "app/importchoicespage.h"
#include "app/importprogresspage.h"
#include "app/importsummarypage.h"
#include "app/importwindow.h"
#include "app/mainwindow.h"
#include "ingest/copyrecord.h"
#include "ingest/ingestrunner.h"
#include "ingest/namepattern.h"
#include "marks/marksbook.h"
#include "marks/marksstore.h"
#include "browser/appstate.h"
#include "browser/browsersession.h"

#include <QAbstractButton>
#include <QAction>
#include <QCheckBox>
#include <QComboBox>
#include <QLabel>
#include <QLineEdit>
#include <QListWidget>
#include <QPushButton>
#include <QRegularExpression>
#include <QSemaphore>
#include <QSignalSpy>
#include <QTest>

#include <atomic>

namespace {

// A real JPEG with its capture date and camera in EXIF.
QString makePhoto(const QString &path, const char *exifDate, const char *model)
{
    QDir().mkpath(QFileInfo(path).absolutePath());
    if (QString e = TestTools::run("vips", {"black", path, "64", "48"}); !e.isEmpty())
        return e;
    return TestTools::run("exiv2", {"-M", QStringLiteral("set Exif.Photo.DateTimeOriginal %1").arg(exifDate),
                                    "-M", QStringLiteral("set Exif.Image.Model %1").arg(model), path});
}

void click(QAbstractButton *b)
{
    QVERIFY(b);
    QVERIFY2(b->isVisible() && b->isEnabled(), qPrintable(b->text()));
    // A check box takes clicks on its box and text only, not on the rest of its row.
    const QPoint at = qobject_cast<QCheckBox *>(b) ? QPoint(8, b->height() / 2) : b->rect().center();
    QTest::mouseClick(b, Qt::LeftButton, Qt::NoModifier, at);
}

const QString kDay = QStringLiteral("2024-05-18 Boda Marta y Luis");
const QString kBase = QStringLiteral("20240518_Boda_Marta_y_Luis_");

} // namespace

class TestImportWindow : public QObject
{
    Q_OBJECT
    QTemporaryDir _tmp;
    QString _card, _work, _backup;

    // What the worker-side hooks do; set by the test on the GUI thread between runs.
    std::atomic<bool> _corruptBackup{false};
    std::atomic<bool> _holdVerify{false};
    std::atomic<int> _ejects{0};
    QSemaphore _verifyEntered, _verifyRelease;

    std::unique_ptr<ImportWindow> makeWindow()
    {
        auto w = std::make_unique<ImportWindow>();
        w->choices()->setCardFinder([] { return QList<CardVolume>(); });
        w->choices()->setFolderPicker([this](const QString &title, const QString &accept, const QString &) {
            if (accept == QStringLiteral("Importar desde aquí"))
                return _card;
            if (title == QStringLiteral("Elige el disco de trabajo"))
                return _work;
            return _backup;
        });
        IngestJob::Hooks hooks;
        hooks.eject = [this](const QString &) {
            ++_ejects;
            return QString();
        };
        hooks.beforeVerify = [this](const CopyRecord &r) {
            if (_holdVerify.exchange(false)) {
                _verifyEntered.release();
                _verifyRelease.acquire();
            }
            if (_corruptBackup && r.rootIndex == 1) {
                // A byte flipped on the disk between the copy and its verification.
                QFile f(r.dst);
                if (f.open(QIODevice::ReadWrite)) {
                    QByteArray b = f.readAll();
                    b[b.size() / 2] = char(b[b.size() / 2] ^ 0x5a);
                    f.seek(0);
                    f.write(b);
                }
            }
        };
        w->runner().setHooks(hooks);
        w->runner().setProgressInterval(5);
        w->resize(1200, 860);
        w->show();
        return w;
    }

    static bool waitSummary(ImportWindow &w)
    {
        return QTest::qWaitFor([&] { return w.page() == ImportWindow::Page::summary; }, 60000);
    }

private slots:
    void initTestCase()
    {
        TestEnv::isolate();
        QVERIFY(_tmp.isValid());
        _card = _tmp.filePath("EOS_DIGITAL");
        _work = _tmp.filePath("Trabajo");
        _backup = _tmp.filePath("Copia");
        QVERIFY(QDir().mkpath(_work) && QDir().mkpath(_backup));
        const QString dcim = _card + "/DCIM";
        QCOMPARE(makePhoto(dcim + "/100NIKON/DSC_0001.JPG", "2024:05:18 10:00:00", "NIKON Z 9"), QString());
        QCOMPARE(makePhoto(dcim + "/100NIKON/DSC_0002.JPG", "2024:05:18 10:00:05", "NIKON Z 9"), QString());
        QCOMPARE(makePhoto(dcim + "/101NIKON/DSC_0001.JPG", "2024:05:18 11:00:00", "NIKON Z 9"), QString());
        const QDateTime shot(QDate(2024, 5, 18), QTime(10, 0, 0));
        // The RAW beside the first JPEG (no EXIF we can read: its file date says when).
        TestCard::write(dcim, "100NIKON/DSC_0001.NEF", QByteArray(300000, 'r'), shot);
        TestCard::write(dcim, "100NIKON/CLIP_0003.MOV", QByteArray(200000, 'v'), shot.addSecs(60));
        TestCard::write(dcim, "100NIKON/.hidden.jpg", "x", shot);
    }

    void firstImportToTwoDisks()
    {
        auto w = makeWindow();
        ImportChoicesPage *c = w->choices();
        ImportSummaryPage *sum = w->summary();
        QVERIFY(c->noCardLabel()->isVisible());
        QCOMPARE(c->noCardLabel()->text(), "No hay ninguna tarjeta conectada.");
        QCOMPARE(c->startButton()->text(), "Elige el disco de trabajo");
        QVERIFY(!c->startButton()->isEnabled());

        // The safe options are on by default; the camera's names are kept until asked.
        QVERIFY(c->skipImportedCheck()->isChecked());
        QVERIFY(c->verifyCheck()->isChecked());
        QVERIFY(!c->videoCheck()->isChecked());
        QVERIFY(!c->renameCheck()->isChecked());
        QVERIFY(c->keepNamesLabel()->isVisible());
        QVERIFY(!c->blockEditor()->isVisible());

        // The card, then the two disks.
        click(c->chooseSourceButton());
        QTRY_VERIFY(!c->isReading());
        QCOMPARE(c->source(), _card);
        QCOMPARE(c->sourceList()->currentItem()->data(Qt::UserRole).toString(), _card);
        QVERIFY(c->sourceInfoLabel()->text().startsWith("4 imágenes · "));
        click(c->workingButton());
        QCOMPARE(c->workingEdit()->text(), _work);
        QVERIFY(!c->backupNote()->isVisible());
        click(c->backupCheck());
        QVERIFY(c->backupNote()->isVisible());
        c->backupEdit()->setFocus();
        QTest::keyClicks(c->backupEdit(), _backup);

        // Folders by date and session, names from the pattern.
        c->structureCombo()->setCurrentIndex(c->structureCombo()->findText("Fecha y sesión"));
        QTest::keyClicks(c->sessionEdit(), "Boda Marta y Luis");
        click(c->renameCheck());
        QVERIFY(c->blockEditor()->isVisible());
        QVERIFY(!c->keepNamesLabel()->isVisible());
        // The chips show the card's first shot.
        QCOMPARE(c->blockEditor()->chipSample(1), "Boda_Marta_y_Luis");
        QCOMPARE(c->blockEditor()->chipSample(0), "20240518");

        // The live preview of the first planned paths, and the start button.
        QTRY_COMPARE(c->startButton()->text(), "Importar 4 archivos · con verificación");
        QVERIFY(c->startButton()->isEnabled());
        const QString preview = c->previewLabel()->text();
        QVERIFY2(preview.contains(kDay + "/" + kBase + "0001.JPG"), qPrintable(preview));
        QVERIFY(preview.contains(kDay + "/" + kBase + "0001.NEF"));
        QVERIFY(preview.contains(kDay + "/" + kBase + "0002.JPG"));
        QVERIFY(preview.contains(kDay + "/" + kBase + "0003.JPG"));
        click(c->verifyCheck());
        QTRY_COMPARE(c->startButton()->text(), "Importar 4 archivos");
        click(c->verifyCheck());
        click(c->ejectCheck());

        // Import, watching the progress page as it goes.
        QStringList phases, counts;
        connect(&w->runner(), &IngestRunner::phaseChanged, w.get(), [&] { phases << w->progress()->phaseLabel()->text(); });
        connect(&w->runner(), &IngestRunner::progressChanged, w.get(), [&] { counts << w->progress()->filesLabel()->text(); });
        QSignalSpy opened(w.get(), &ImportWindow::openFolderRequested);
        click(c->startButton());
        QCOMPARE(w->page(), ImportWindow::Page::progress);
        QVERIFY(waitSummary(*w));
        QVERIFY2(phases.contains("Copiando…") && phases.contains("Verificando las copias…"), qPrintable(phases.join(',')));
        QVERIFY2(counts.indexOf(QRegularExpression("^\\d+ de \\d+ archivos$")) >= 0, qPrintable(counts.join(',')));

        QCOMPARE(sum->summaryTitle()->text(), "Las dos copias están hechas y verificadas");
        QCOMPARE(sum->summaryBody()->text(),
                 "Cada copia se ha leído de nuevo del disco y es idéntica, byte a byte, al original de la tarjeta (SHA-256). "
                 "Ya puedes formatear la tarjeta.");
        const QString dests = sum->destinationsText();
        QCOMPARE(dests.count("Correcta y verificada"), 2);
        QCOMPARE(dests.count("Copiadas: 4 · Ya estaban en el disco: 0"), 2);
        QCOMPARE(dests.count("Verificadas: 4"), 2);
        QVERIFY(dests.contains("Disco de trabajo: " + _work));
        QVERIFY(dests.contains("Copia de seguridad: " + _backup));
        QVERIFY(!sum->verifyNowButton()->isVisible());
        QCOMPARE(sum->ejectLabel()->text(), "Tarjeta expulsada");
        QCOMPARE(_ejects.load(), 1);
        QCOMPARE(opened.count(), 1);
        QCOMPARE(opened.first().at(0).toString(), _work + "/" + kDay);

        // Both disks hold the same four files under the chosen names, and nothing hidden (the
        // bytes are the engine's tests' business).
        const QStringList expected{kDay + "/" + kBase + "0001.JPG", kDay + "/" + kBase + "0001.NEF",
                                   kDay + "/" + kBase + "0002.JPG", kDay + "/" + kBase + "0003.JPG"};
        QCOMPARE(TestCard::files(_work), expected);
        QCOMPARE(TestCard::files(_backup), expected);

        // A second import copies nothing: the preview says so before, the summary after.
        click(sum->againButton());
        QCOMPARE(w->page(), ImportWindow::Page::setup);
        QTRY_VERIFY(!c->isReading());
        QTRY_COMPARE(c->previewLabel()->text(), "Todo lo de la tarjeta ya está importado");
        click(c->startButton());
        QVERIFY(waitSummary(*w));
        QCOMPARE(sum->summaryTitle()->text(), "Todo lo de la tarjeta ya está importado");
        QCOMPARE(TestCard::files(_work), expected);
    }

    void choicesComeBackInANewWindow()
    {
        auto w = makeWindow();
        ImportChoicesPage *c = w->choices();
        QCOMPARE(c->workingEdit()->text(), _work);
        QVERIFY(c->backupCheck()->isChecked());
        QCOMPARE(c->backupEdit()->text(), _backup);
        QCOMPARE(c->structureCombo()->currentText(), "Fecha y sesión");
        QVERIFY(c->renameCheck()->isChecked());
        QVERIFY(c->blockEditor()->pattern().sameContent(NamePattern::defaultPattern()));
        QVERIFY(c->ejectCheck()->isChecked());
        QCOMPARE(c->blockEditor()->digits(), 4);
    }

    void verifyNowAfterACopyWithoutVerification()
    {
        auto w = makeWindow();
        ImportChoicesPage *c = w->choices();
        ImportSummaryPage *sum = w->summary();
        c->setSource(_card);
        QTRY_VERIFY(!c->isReading());
        QTest::keyClicks(c->sessionEdit(), "Boda Marta y Luis");
        click(c->videoCheck());
        QVERIFY(c->verifyCheck()->isChecked());
        click(c->verifyCheck());
        QTRY_COMPARE(c->startButton()->text(), "Importar 1 archivo");
        click(c->startButton());
        QVERIFY(waitSummary(*w));
        QCOMPARE(sum->summaryTitle()->text(), "Las dos copias están hechas");
        QVERIFY(sum->summaryBody()->text().contains("pulsa «Verificar ahora»"));
        QCOMPARE(sum->destinationsText().count("Copiadas: 1 · Ya estaban en el disco: 4"), 2);
        QVERIFY(sum->verifyNowButton()->isVisible());

        click(sum->verifyNowButton());
        QVERIFY(QTest::qWaitFor([&] { return !w->runner().busy(); }, 60000));
        QVERIFY(waitSummary(*w));
        QCOMPARE(sum->summaryTitle()->text(), "Las dos copias están hechas y verificadas");
        QCOMPARE(sum->destinationsText().count("Correcta y verificada"), 2);
        QVERIFY(!sum->verifyNowButton()->isVisible());
        QVERIFY(QFile::exists(_backup + "/" + kDay + "/" + kBase + "0003.MOV"));
    }

    void aCorruptCopyIsReportedAndCopiedAgain()
    {
        const QString photo = _card + "/DCIM/101NIKON/DSC_0005.JPG";
        QCOMPARE(makePhoto(photo, "2024:05:18 12:00:00", "NIKON Z 9"), QString());
        auto w = makeWindow();
        ImportChoicesPage *c = w->choices();
        ImportSummaryPage *sum = w->summary();
        c->setSource(_card);
        QTRY_VERIFY(!c->isReading());
        QTest::keyClicks(c->sessionEdit(), "Boda Marta y Luis");
        QVERIFY(!c->verifyCheck()->isChecked());   // as the last import left it
        click(c->verifyCheck());
        QTRY_COMPARE(c->startButton()->text(), "Importar 1 archivo · con verificación");
        _corruptBackup = true;
        const int ejects = _ejects;
        click(c->startButton());
        QVERIFY(waitSummary(*w));
        _corruptBackup = false;
        QCOMPARE(sum->summaryTitle()->text(), "Importación con problemas");
        const QString dests = sum->destinationsText();
        QVERIFY2(dests.contains("la copia NO coincide con el original; se ha borrado para volver a copiarla"), qPrintable(dests));
        QCOMPARE(dests.count("Correcta y verificada"), 1);   // the working disk
        QCOMPARE(_ejects.load(), ejects);                   // never with errors
        const QString name = kDay + "/" + kBase + "0005.JPG";
        QVERIFY(QFile::exists(_work + "/" + name));
        QVERIFY(!QFile::exists(_backup + "/" + name));

        // The next import copies just that file again.
        click(sum->againButton());
        QTRY_VERIFY(!c->isReading());
        QTRY_COMPARE(c->startButton()->text(), "Importar 1 archivo · con verificación");
        click(c->startButton());
        QVERIFY(waitSummary(*w));
        QCOMPARE(sum->summaryTitle()->text(), "Las dos copias están hechas y verificadas");
        QCOMPARE(TestEnv::readAll(_backup + "/" + name), TestEnv::readAll(photo));
    }

    void cancelLeavesNoHalfCopies()
    {
        QCOMPARE(makePhoto(_card + "/DCIM/101NIKON/DSC_0006.JPG", "2024:05:18 13:00:00", "NIKON Z 9"), QString());
        auto w = makeWindow();
        ImportChoicesPage *c = w->choices();
        ImportSummaryPage *sum = w->summary();
        c->setSource(_card);
        QTRY_VERIFY(!c->isReading());
        QTRY_COMPARE(c->startButton()->text(), "Importar 1 archivo · con verificación");
        _holdVerify = true;
        click(c->startButton());
        // Held at the verification: cancel from the window, then let the worker go on.
        QVERIFY(QTest::qWaitFor([&] { return _verifyEntered.tryAcquire(); }, 60000));
        QTRY_COMPARE(w->progress()->phaseLabel()->text(), "Verificando las copias…");
        click(w->progress()->cancelButton());
        QVERIFY(!w->progress()->cancelButton()->isEnabled());
        _verifyRelease.release();
        QVERIFY(waitSummary(*w));
        QCOMPARE(sum->summaryTitle()->text(), "Importación cancelada");
        QVERIFY(!sum->verifyNowButton()->isVisible());
        for (const QString &root : {_work, _backup})
            for (const QString &f : TestCard::files(root))
                QVERIFY2(!QFileInfo(f).fileName().startsWith('.'), qPrintable(f));
    }

    void theMainWindowOpensItAndShowsTheResult()
    {
        BrowserSession session;
        AppState &state = session.state();
        MainWindow window(session);
        window.show();
        QAction *import = window.action("import");
        QVERIFY(import && import->isEnabled());
        QCOMPARE(import->text(), "Importar imágenes…");
        QCOMPARE(import->shortcut(), QKeySequence(Qt::CTRL | Qt::Key_I));
        import->trigger();
        auto *w = window.findChild<ImportWindow *>();
        QVERIFY(w);
        QVERIFY(w->isVisible());
        QVERIFY(w->isWindow());
        // One window for the session: the action brings the same one back.
        w->close();
        import->trigger();
        QCOMPARE(window.findChildren<ImportWindow *>().size(), 1);
        QVERIFY(w->isVisible());

        // "Abrir la carpeta en Corvane al terminar" opens the result in the browser.
        QSignalSpy loaded(&state, &AppState::loaded);
        emit w->openFolderRequested(_work + "/" + kDay);
        QVERIFY(loaded.wait(10000));
        QCOMPARE(state.folder(), _work + "/" + kDay);
        QVERIFY(state.photos().size() >= 5);
        // Handing the main window a folder closes its dialogs, never the import window.
        window.closeSheets();
        QVERIFY(w->isVisible());
        w->close();
    }
};

QTEST_MAIN(TestImportWindow)
#include "tst_importwindow.moc"
