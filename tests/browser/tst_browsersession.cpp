// A folder opened headless, as the window opens it: shots, marks, capture metadata, sharpness and
// the pipeline's tuning all arrive without a single widget.
#include "browser/appstate.h"
#include "browser/browsersession.h"
#include "camera/camerahub.h"
#include "imaging/imagepipeline.h"
#include "marks/marks.h"
#include "marks/marksfile.h"
#include "corvanerun.h"
#include "marks/marksstore.h"
#include "metadata/xmpstore.h"
#include "testenv.h"
#include "testscenes.h"

#include <QProcess>
#include <QSettings>
#include <QtTest>

namespace {
QByteArray packet(const QByteArray &attributes)
{
    return "<x:xmpmeta xmlns:x=\"adobe:ns:meta/\"><rdf:RDF xmlns:rdf=\"http://www.w3.org/1999/02/22-rdf-syntax-ns#\">"
           "<rdf:Description rdf:about=\"\" xmlns:xmp=\"http://ns.adobe.com/xap/1.0/\" " + attributes
           + "/></rdf:RDF></x:xmpmeta>\n";
}

Photo *byName(const AppState &s, const QString &name)
{
    for (const PhotoPtr &p : s.photos())
        if (p->name() == name)
            return p.get();
    return nullptr;
}
} // namespace

class TestBrowserSession : public QObject
{
    Q_OBJECT

private slots:
    void initTestCase() { TestEnv::isolate(); }
    void cleanup() { QSettings().clear(); }

    void aFolderOpensWithoutTheWindow()
    {
        QTemporaryDir dir;
        const QImage scene = sharpScene(960, 640);
        QVERIFY(scene.save(dir.filePath("DSC_0001.JPG"), "JPEG", 92));
        QVERIFY(gaussianLike(scene, 6).save(dir.filePath("DSC_0002.JPG"), "JPEG", 92));
        // Capture metadata written by a real tool, read back through exiv2 by the session.
        QCOMPARE(QProcess::execute("exiv2", {"-M", "set Exif.Image.Model Ascii Cámara de prueba",
                                             dir.filePath("DSC_0001.JPG")}), 0);
        Marks marked;
        marked.c = 3;
        QVERIFY(MarksFile::save(dir.path(), {{MarksFile::keyFor(dir.filePath("DSC_0001.JPG")), marked}}, std::nullopt).isEmpty());

        BrowserSession session(nullptr, 1);
        AppState &state = session.state();
        session.usePipeline(ImagePipeline::shared());
        QSignalSpy tuned(&session, &BrowserSession::pipelineConfigured);
        QSignalSpy loaded(&state, &AppState::loaded);
        state.openFolder(dir.path());
        QVERIFY(loaded.wait(5000));

        QCOMPARE(state.photos().size(), 2);
        Photo *sharp = byName(state, "DSC_0001.JPG");
        Photo *blurred = byName(state, "DSC_0002.JPG");
        QVERIFY(sharp && blurred);
        QCOMPARE(sharp->colorClass(), ColorClass::c3);
        QCOMPARE(blurred->colorClass(), ColorClass::none);

        QTRY_VERIFY_WITH_TIMEOUT(sharp->meta().has_value(), 5000);
        QCOMPARE(sharp->meta()->model, QStringLiteral("Cámara de prueba"));
        QTRY_VERIFY_WITH_TIMEOUT(sharp->sharpness() && blurred->sharpness(), 20000);
        QVERIFY(*sharp->sharpness() > *blurred->sharpness());
        QTRY_COMPARE_WITH_TIMEOUT(tuned.size(), 1, 5000);
        QCOMPARE(tuned.first().first().toString(), state.folder());

        // A file the camera hub reports joins the open folder, marked new, and is scored too.
        QVERIFY(scene.save(dir.filePath("DSC_0003.JPG"), "JPEG", 92));
        emit session.cameraHub().fileReceived(dir.filePath("DSC_0003.JPG"));
        Photo *arrived = byName(state, "DSC_0003.JPG");
        QVERIFY(arrived && arrived->isNew());
        QTRY_VERIFY_WITH_TIMEOUT(arrived->sharpness().has_value(), 20000);
    }

    void aFolderRatedElsewhereOpensWithItsMarks()
    {
        QTemporaryDir dir;
        for (const char *n : {"DSC_0001.NEF", "DSC_0002.NEF", "DSC_0003.JPG"})
            TestEnv::touch(dir.filePath(n));
        const QByteArray lightroom = packet("xmp:Rating=\"4\" xmp:Label=\"Verde\""), darktable = packet("xmp:Rating=\"2\""),
                         other = packet("xmp:Rating=\"5\"");
        TestEnv::touch(dir.filePath("DSC_0001.xmp"), lightroom);
        TestEnv::touch(dir.filePath("DSC_0002.NEF.xmp"), darktable);
        TestEnv::touch(dir.filePath("DSC_0003.xmp"), other);
        Marks red;
        red.c = 1;
        QVERIFY(MarksFile::save(dir.path(), {{"dsc_0003", red}}, std::nullopt).isEmpty());

        const auto open = [&](BrowserSession &session) {
            QSignalSpy loaded(&session.state(), &AppState::loaded);
            session.state().openFolder(dir.path());
            return loaded.wait(5000);
        };
        {
            // One file per folder: a sidecar speaks for the shots the folder file leaves unmarked.
            BrowserSession session(nullptr, 1);
            QVERIFY(open(session));
            const AppState &state = session.state();
            QTRY_COMPARE_WITH_TIMEOUT(byName(state, "DSC_0001.NEF")->rating(), 4, 5000);
            QCOMPARE(byName(state, "DSC_0001.NEF")->colorClass(), ColorClass::c3);
            QTRY_COMPARE_WITH_TIMEOUT(byName(state, "DSC_0002.NEF")->rating(), 2, 5000);
            QCOMPARE(byName(state, "DSC_0003.JPG")->colorClass(), ColorClass::c1);
            QCOMPARE(byName(state, "DSC_0003.JPG")->rating(), 0);
            // Shown, not written back: neither the folder file nor a sidecar changes.
            session.store().flush();
            session.sidecars().flush();
            QCOMPARE(MarksFile::load(dir.path())->marks.keys(), QStringList{"dsc_0003"});
            QCOMPARE(TestEnv::readAll(dir.filePath("DSC_0001.xmp")), lightroom);
            QCOMPARE(TestEnv::readAll(dir.filePath("DSC_0002.NEF.xmp")), darktable);
        }
        {
            // Sidecars: the sidecar's marks win where there is one.
            QSettings().setValue("marksStorage", "sidecar");
            BrowserSession session(nullptr, 1);
            QVERIFY(open(session));
            const AppState &state = session.state();
            QTRY_COMPARE_WITH_TIMEOUT(byName(state, "DSC_0003.JPG")->rating(), 5, 5000);
            QCOMPARE(byName(state, "DSC_0003.JPG")->colorClass(), ColorClass::none);
            QCOMPARE(byName(state, "DSC_0001.NEF")->rating(), 4);
        }
    }

    void marksMadeElsewhereShowAndAreKept()
    {
        // `corvane mark` in a terminal while the folder is open: the shot shows the colour, and
        // the session's own next write keeps it.
        QVERIFY(corvaneBuilt());
        QTemporaryDir dir;
        for (const char *n : {"DSC_0001.JPG", "DSC_0002.JPG"})
            TestEnv::touch(dir.filePath(n));
        BrowserSession session(nullptr, 1);
        AppState &state = session.state();
        QSignalSpy loaded(&state, &AppState::loaded);
        state.openFolder(dir.path());
        QVERIFY(loaded.wait(5000));
        QCOMPARE(QProcess::execute(corvaneBin(), {"mark", "--color", "3", dir.filePath("DSC_0002.JPG")}), 0);
        Photo *second = byName(state, "DSC_0002.JPG");
        QTRY_COMPARE_WITH_TIMEOUT(second->colorClass(), ColorClass::c3, 1500);

        state.setCurrentIndex(0);
        state.applyRatingKey(4);
        session.store().flush();
        const auto f = MarksFile::load(dir.path());
        QCOMPARE(f->marks.value("dsc_0001").r, std::optional<int>(4));
        QCOMPARE(f->marks.value("dsc_0002").c, std::optional<int>(3));
        QCOMPARE(second->colorClass(), ColorClass::c3);
    }
};

QTEST_GUILESS_MAIN(TestBrowserSession)
#include "tst_browsersession.moc"
