// The browser state end to end on real folders: open, marks keys, filter, sort, arrivals.
#include "marks/marksbook.h"
#include "marks/marksstore.h"
#include "browser/appstate.h"
#include "testenv.h"

#include <QSettings>
#include <QtTest>

namespace {
QStringList visibleNames(const AppState &s)
{
    QStringList out;
    for (const PhotoPtr &p : s.visible())
        out << p->name();
    return out;
}
} // namespace

class TestAppState : public QObject
{
    Q_OBJECT

    std::unique_ptr<MarksStore> store;
    std::unique_ptr<MarksBook> book;
    std::unique_ptr<AppState> state;

    void fresh()
    {
        state.reset();
        book.reset();
        store.reset();
        store = std::make_unique<MarksStore>();
        book = std::make_unique<MarksBook>(store.get());
        state = std::make_unique<AppState>(*book);
    }
    void openAndWait(const QString &path)
    {
        QSignalSpy loaded(state.get(), &AppState::loaded);
        state->open(path);
        QVERIFY(loaded.wait(5000));
    }

private slots:
    void initTestCase() { TestEnv::isolate(); }
    void init() { fresh(); }
    void cleanup()
    {
        state.reset();
        book.reset();
        store.reset();
        QSettings().clear();
    }

    void aMissingPathOpensNothing()
    {
        QTemporaryDir dir;
        TestEnv::touch(dir.filePath("a.jpg"));
        openAndWait(dir.path());
        QSignalSpy changed(state.get(), &AppState::folderChanged);
        state->open(dir.filePath("nope"));
        QCOMPARE(changed.size(), 0);
        QCOMPARE(state->folder(), dir.path());
    }

    void advancingFromAShotThatLeavesTheFilterShowsTheNextOne()
    {
        // Culling the flagged shots with "Avanzar al marcar": unflagging one hides it, and the
        // one that followed it is next, not the one after that.
        QTemporaryDir dir;
        for (const char *n : {"a.jpg", "b.jpg", "c.jpg", "d.jpg"})
            TestEnv::touch(dir.filePath(n));
        openAndWait(dir.path());
        state->selectAll();
        state->toggleTag();
        state->clearSelection();
        PhotoFilter flagged;
        flagged.tag = TagFilter::tagged;
        state->setFilter(flagged);
        state->setAutoAdvance(true);
        state->setCurrentIndex(1);
        QCOMPARE(state->current()->name(), QStringLiteral("b.jpg"));
        state->toggleTag();
        QCOMPARE(visibleNames(*state), (QStringList{"a.jpg", "c.jpg", "d.jpg"}));
        QCOMPARE(state->current()->name(), QStringLiteral("c.jpg"));
        // A mark that keeps the shot visible still moves on.
        state->applyColorKey(2);
        QCOMPARE(state->current()->name(), QStringLiteral("d.jpg"));
    }

    void undoHistoryIsKeptPerFolder()
    {
        // The window checks undo and redo from the keys; here, a deep history survives a visit
        // to another folder and a new change forgets what was undone.
        QTemporaryDir dir;
        for (const char *n : {"a.jpg", "b.jpg"})
            TestEnv::touch(dir.filePath(n));
        openAndWait(dir.path());
        state->setCurrentIndex(1);
        state->toggleTag();
        state->undo();
        state->applyColorKey(2);
        QVERIFY(!state->canRedo());
        state->undo();
        state->toggleTag();
        for (int i = 0; i < 120; ++i)
            state->rotate(1);
        QTemporaryDir other;
        TestEnv::touch(other.filePath("x.jpg"));
        openAndWait(other.path());
        QVERIFY(!state->canUndo());
        openAndWait(dir.path());
        const auto b = [this] { return state->photos()[1]; };
        for (int i = 0; i < 119; ++i)
            state->undo();
        QCOMPARE(b()->rotation() % 4, 1);
        QCOMPARE(state->undoText(), QStringLiteral("Deshacer giro en 1 imagen"));
        state->undo();
        QCOMPARE(b()->rotation() % 4, 0);
        QCOMPARE(state->undoText(), QStringLiteral("Deshacer bandera en 1 imagen"));
    }

    void sortIsKeptAcrossRestarts()
    {
        QTemporaryDir dir;
        TestEnv::touch(dir.filePath("small.jpg"), "1");
        TestEnv::touch(dir.filePath("big.jpg"), QByteArray(1000, 'x'));
        openAndWait(dir.path());
        QSignalSpy changed(state.get(), &AppState::photosChanged);
        state->setSort(SortKey::size, true);
        QVERIFY(changed.wait(2000));
        QCOMPARE(visibleNames(*state), QStringList({"small.jpg", "big.jpg"}));
        state->setSort(SortKey::size, false);
        QVERIFY(changed.wait(2000));
        QCOMPARE(visibleNames(*state), QStringList({"big.jpg", "small.jpg"}));
        QCOMPARE(QSettings().value("sortKey").toString(), QStringLiteral("size"));
        fresh();
        QCOMPARE(state->sortKey(), SortKey::size);
        QCOMPARE(state->sortAscending(), false);
        QSettings().setValue("sortKey", "foo");
        fresh();
        QCOMPARE(state->sortKey(), SortKey::name);
    }

    void lateRawJoinsItsJpegAsNew()
    {
        QTemporaryDir dir;
        TestEnv::touch(dir.filePath("DSC_5.JPG"));
        openAndWait(dir.path());
        state->applyColorKey(2);
        const QString nef = TestEnv::touch(dir.filePath("DSC_5.NEF"));
        const QString other = TestEnv::touch(dir.filePath("DSC_6.JPG"));
        state->addFiles({nef, other, "/elsewhere/x.jpg"}, true);
        QCOMPARE(state->photos().size(), 2);
        Photo *pair = state->visible()[0].get();
        QCOMPARE(pair->badge, QStringLiteral("NEF+JPG"));
        QCOMPARE(pair->colorClass(), ColorClass::c2);   // same key, same marks
        QVERIFY(pair->isNew());
        PhotoFilter f;
        f.newOnly = true;
        state->setFilter(f);
        QCOMPARE(state->visible().size(), 2);
        state->removeFiles({nef});
        QCOMPARE(state->visible()[0]->badge, QStringLiteral("JPG"));
        state->removeFiles({dir.filePath("DSC_5.JPG")});
        QCOMPARE(visibleNames(*state), QStringList({"DSC_6.JPG"}));
    }

    void watcherShowsFilesAddedByOtherPrograms()
    {
        QTemporaryDir dir;
        TestEnv::touch(dir.filePath("a.jpg"));
        openAndWait(dir.path());
        TestEnv::touch(dir.filePath("b.jpg"));
        QTRY_COMPARE_WITH_TIMEOUT(state->photos().size(), 2, 2000);
        QFile::remove(dir.filePath("a.jpg"));
        QTRY_COMPARE_WITH_TIMEOUT(visibleNames(*state), QStringList({"b.jpg"}), 2000);
        QVERIFY(state->visible()[0]->isNew());
    }

    void deletedFolderWhileOpen()
    {
        auto dir = std::make_unique<QTemporaryDir>();
        const QString path = dir->path();
        TestEnv::touch(dir->filePath("a.jpg"));
        openAndWait(path);
        QSignalSpy toasts(state.get(), &AppState::toastRequested);
        dir.reset();
        QTRY_VERIFY_WITH_TIMEOUT(state->folderMissing(), 2000);
        QVERIFY(state->visible().isEmpty());
        QCOMPARE(toasts.size(), 1);
    }

    void recursiveOpenShowsProgressAndEveryFolder()
    {
        QTemporaryDir dir;
        TestEnv::touch(dir.filePath("a/1.jpg"));
        TestEnv::touch(dir.filePath("b/c/2.jpg"));
        QSignalSpy loaded(state.get(), &AppState::loaded);
        state->openFolder(dir.path(), {}, true);
        QVERIFY(state->progress().has_value());
        QVERIFY(loaded.wait(5000));
        QVERIFY(!state->progress().has_value());
        QCOMPARE(state->photos().size(), 2);
    }

    void facetCountsLeaveTheirOwnSelectionOut()
    {
        QTemporaryDir dir;
        for (const char *n : {"a.jpg", "b.nef", "c.nef"})
            TestEnv::touch(dir.filePath(n));
        openAndWait(dir.path());
        PhotoFilter f;
        f.meta[Facet::fileType] = {"JPG"};
        state->setFilter(f);
        QCOMPARE(state->visible().size(), 1);
        const auto counts = state->facetCounts(Facet::fileType);
        QCOMPARE(counts.value("NEF"), 2);
        QCOMPARE(counts.value("JPG"), 1);
    }
};

QTEST_GUILESS_MAIN(TestAppState)
#include "tst_appstate.moc"
