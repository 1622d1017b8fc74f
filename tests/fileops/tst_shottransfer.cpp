// Copying, moving and trashing shots on real files: each shot whole, nothing ever replaced, marks
// following, every operation undone, and a move between disks killed at random moments.
#include "corvanerun.h"
#include "exfatcard.h"
#include "testenv.h"

#include "fileops/fileopengine.h"
#include "fileops/fileopjournal.h"
#include "fileops/renameplan.h"
#include "fileops/shotrenamer.h"
#include "fileops/shottransfer.h"
#include "marks/marksfile.h"

#include <QDir>
#include <QElapsedTimer>
#include <QRandomGenerator>
#include <QThread>
#include <QtTest>

#include <csignal>
#include <sys/stat.h>

namespace {

QStringList names(const QString &dir) { return QDir(dir).entryList(QDir::Files | QDir::Hidden, QDir::Name); }

ShotTransfer::Shot shot(const QString &dir, const QString &base, const QStringList &exts, const QByteArray &fill = {})
{
    ShotTransfer::Shot s;
    for (const QString &e : exts)
        s.append(TestEnv::touch(dir + QLatin1Char('/') + base + QLatin1Char('.') + e, (base + e).toUtf8() + fill));
    return s;
}

void setColor(const QString &dir, const QString &key, int color)
{
    MarksMap m = MarksFile::load(dir).value_or(MarksFile{}).marks;
    m.insert(key, Marks::from(ColorClass(color), 0, false, 0, {}));
    QVERIFY(MarksFile::save(dir, m, std::nullopt).isEmpty());
}

std::optional<int> colorOf(const QString &dir, const QString &key)
{
    return MarksFile::load(dir).value_or(MarksFile{}).marks.value(key).c;
}

dev_t deviceOf(const QString &path)
{
    struct stat st {};
    return ::stat(QFile::encodeName(path).constData(), &st) == 0 ? st.st_dev : dev_t(-1);
}

// A folder on another file system than the temporary folders, when the machine has one.
QString otherDiskRoot()
{
    const QString shm = QStringLiteral("/dev/shm");
    return QFileInfo(shm).isWritable() && deviceOf(shm) != deviceOf(QDir::tempPath()) ? shm : QString();
}

} // namespace

class TestShotTransfer : public QObject
{
    Q_OBJECT
private slots:
    void initTestCase() { TestEnv::isolate(); }

    void copyKeepsShotsWholeAndNeverReplaces()
    {
        QTemporaryDir src, dst;
        const ShotTransfer::Shot a = shot(src.path(), "DSC_0001", {"NEF", "JPG", "xmp", "NEF.xmp"});
        const ShotTransfer::Shot b = shot(src.path(), "DSC_0002", {"NEF"});
        setColor(src.path(), "dsc_0001", 3);
        // Taken in another case: the whole shot takes the next free name, every file the same.
        TestEnv::touch(dst.filePath("dsc_0001.jpg"), "theirs");
        const qint64 mtime = QFileInfo(a.first()).lastModified().toSecsSinceEpoch();

        const FileOpOutcome o = ShotTransfer::copy({a, b}, dst.path(), true);
        QVERIFY2(o.ok(), qPrintable(o.body()));
        QCOMPARE(o.done, 2);
        QCOMPARE(o.files, 5);
        QCOMPARE(names(dst.path()), (QStringList{".corvane.json", "DSC_0001-2.JPG", "DSC_0001-2.NEF", "DSC_0001-2.NEF.xmp",
                                                 "DSC_0001-2.xmp", "DSC_0002.NEF", "dsc_0001.jpg"}));
        QCOMPARE(TestEnv::readAll(dst.filePath("dsc_0001.jpg")), QByteArray("theirs"));
        QCOMPARE(TestEnv::readAll(dst.filePath("DSC_0001-2.NEF")), QByteArray("DSC_0001NEF"));
        QCOMPARE(QFileInfo(dst.filePath("DSC_0001-2.NEF")).lastModified().toSecsSinceEpoch(), mtime);
        QCOMPARE(colorOf(dst.path(), "dsc_0001-2"), std::optional<int>(3));
        QCOMPARE(colorOf(src.path(), "dsc_0001"), std::optional<int>(3));
        QCOMPARE(names(src.path()).size(), 6);

        // Undo removes the copies and their marks, never what was there before.
        const FileOpOutcome back = FileOpEngine::undo(o.id);
        QCOMPARE(back.done, 2);
        QCOMPARE(names(dst.path()), QStringList{"dsc_0001.jpg"});
        QCOMPARE(names(src.path()).size(), 6);

        // A copy whose original has changed since is kept by the undo: it may be the only one left.
        const FileOpOutcome again = ShotTransfer::copy({b}, dst.path(), false);
        TestEnv::touch(b.first(), "changed meanwhile");
        const FileOpOutcome kept = FileOpEngine::undo(again.id);
        QCOMPARE(kept.kept, QStringList{"DSC_0002"});
        QVERIFY(QFileInfo::exists(dst.filePath("DSC_0002.NEF")));
    }

    void moveCarriesMarksAndComesBack_data()
    {
        QTest::addColumn<bool>("otherDisk");
        QTest::newRow("same disk") << false;
        QTest::newRow("another disk") << true;
    }

    void moveCarriesMarksAndComesBack()
    {
        QFETCH(bool, otherDisk);
        QTemporaryDir src;
        const QString root = otherDisk ? otherDiskRoot() : QDir::tempPath();
        if (root.isEmpty())
            QSKIP("no second file system to move to");
        QTemporaryDir dst(root + QStringLiteral("/corvane-move-XXXXXX"));
        const ShotTransfer::Shot a = shot(src.path(), "A", {"NEF", "JPG"}, QByteArray(300000, 'a'));
        const ShotTransfer::Shot b = shot(src.path(), "B", {"NEF", "JPG"});
        const ShotTransfer::Shot c = shot(src.path(), "C", {"NEF"});
        setColor(src.path(), "a", 5);
        setColor(src.path(), "c", 2);
        QFile::remove(b.last());   // another program, after the shots were chosen

        const FileOpOutcome o = ShotTransfer::move({a, b, c}, dst.path(), otherDisk);
        QCOMPARE(o.done, 2);
        QCOMPARE(o.kept, QStringList{"B"});
        QCOMPARE(o.messages, QStringList{"B.JPG: el archivo ya no está"});
        QCOMPARE(o.title(), QStringLiteral("Traslado con errores"));
        QCOMPARE(names(src.path()), QStringList{"B.NEF"});   // the marks file left with the last marks
        QCOMPARE(names(dst.path()), (QStringList{".corvane.json", "A.JPG", "A.NEF", "C.NEF"}));
        QCOMPARE(TestEnv::readAll(dst.filePath("A.NEF")), QByteArray("ANEF") + QByteArray(300000, 'a'));
        QCOMPARE(colorOf(dst.path(), "a"), std::optional<int>(5));
        QCOMPARE(colorOf(src.path(), "a"), std::nullopt);

        // The newest operation is undone when no id is given, as `corvane undo` does.
        const FileOpOutcome back = FileOpEngine::undo();
        QVERIFY2(back.ok(), qPrintable(back.body()));
        QCOMPARE(names(src.path()), (QStringList{".corvane.json", "A.JPG", "A.NEF", "B.NEF", "C.NEF"}));
        QCOMPARE(names(dst.path()), QStringList{});
        QCOMPARE(colorOf(src.path(), "c"), std::optional<int>(2));
        QCOMPARE(FileOpEngine::undo().error, QStringLiteral("No hay ninguna operación con archivos que deshacer."));
    }

    void trashAndBack()
    {
        QTemporaryDir src;
        const ShotTransfer::Shot a = shot(src.path(), "T1", {"NEF", "JPG", "xmp"});
        const ShotTransfer::Shot b = shot(src.path(), "T2", {"JPG"});
        setColor(src.path(), "t1", 1);
        const FileOpOutcome o = ShotTransfer::trash({a, b});
        QVERIFY2(o.ok(), qPrintable(o.body()));
        QCOMPARE(o.summary(), QStringLiteral("2 imágenes movidas a la papelera."));
        QCOMPARE(names(src.path()), QStringList{});   // the marks file went with its last marks
        const QString trash = qEnvironmentVariable("XDG_DATA_HOME") + QStringLiteral("/Trash");
        QVERIFY(QFileInfo::exists(trash + "/files/T1.NEF"));
        QVERIFY(QFile(trash + "/info/T1.xmp.trashinfo").open(QIODevice::ReadOnly));

        // A file that took a trashed name meanwhile stays; the shot comes back beside it.
        TestEnv::touch(src.filePath("T2.JPG"), "new");
        const FileOpOutcome back = FileOpEngine::undo(o.id);
        QCOMPARE(back.done, 2);
        QCOMPARE(back.savedAs, QStringList{src.filePath("T2-2.JPG")});
        QCOMPARE(TestEnv::readAll(src.filePath("T2.JPG")), QByteArray("new"));
        QCOMPARE(names(src.path()), (QStringList{".corvane.json", "T1.JPG", "T1.NEF", "T1.xmp", "T2-2.JPG", "T2.JPG"}));
        QCOMPARE(colorOf(src.path(), "t1"), std::optional<int>(1));
        QVERIFY(!QFileInfo::exists(trash + "/info/T1.xmp.trashinfo"));
    }

    // A card's file system takes "dsc_0001.jpg" and "DSC_0001.JPG" for one name: a change of case
    // alone still renames, and a name taken in another case is never replaced.
    void onACardThatIgnoresCase()
    {
        ExfatCard card(48);
        if (card.path().isEmpty())
            QSKIP("no exFAT file system can be mounted here");
        RenameShot r;
        r.files = shot(card.path(), "dsc_0001", {"nef", "jpg"});
        r.mainFile = r.files.first();
        RenameOptions upper;
        upper.mode = RenameOptions::Mode::custom;
        upper.pattern = RenameTemplate::byId("name-original")->pattern(upper.separator, {});
        upper.caseOn = true;
        upper.nameCase = NameCase::upper;
        upper.extCase = NameCase::upper;
        const RenamePlan plan = planRename({r}, upper, names(card.path()));
        QVERIFY2(plan.canRename(), qPrintable(plan.footer()));
        QCOMPARE(ShotRenamer::run(plan).done, 1);
        QCOMPARE(names(card.path()), (QStringList{"DSC_0001.JPG", "DSC_0001.NEF"}));

        QTemporaryDir src;
        const FileOpOutcome o = ShotTransfer::move({shot(src.path(), "DSC_0001", {"jpg"})}, card.path(), false);
        QVERIFY2(o.ok(), qPrintable(o.body()));
        QCOMPARE(names(card.path()), (QStringList{"DSC_0001-2.jpg", "DSC_0001.JPG", "DSC_0001.NEF"}));
        QCOMPARE(TestEnv::readAll(card.path() + "/DSC_0001.JPG"), QByteArray("dsc_0001jpg"));

        // The card fills up: the shot that does not fit is left out whole, nothing half-written.
        const QByteArray big(20 * 1024 * 1024, 'b');
        const FileOpOutcome full = ShotTransfer::copy({shot(src.path(), "B1", {"NEF"}, big), shot(src.path(), "B2", {"NEF", "JPG"}, big),
                                                       shot(src.path(), "B3", {"NEF"}, big)},
                                                      card.path(), false);
        QCOMPARE(full.done, 2);
        QCOMPARE(full.kept, QStringList{"B2"});
        QVERIFY2(full.messages.first().contains(QStringLiteral("el disco está lleno")), qPrintable(full.messages.join('\n')));
        QCOMPARE(names(card.path()), (QStringList{"B1.NEF", "B3.NEF", "DSC_0001-2.jpg", "DSC_0001.JPG", "DSC_0001.NEF"}));
    }

    // A file that cannot be moved in the middle of a batch: its shot stays whole where it was,
    // the others go, one line says why.
    void aLockedFileKeepsItsShotBack()
    {
        QTemporaryDir src, dst;
        const QList<ShotTransfer::Shot> shots = {shot(src.path(), "L1", {"NEF"}), shot(src.path(), "L2", {"NEF", "JPG"}), shot(src.path(), "L3", {"NEF"})};
        QProcess lock;
        lock.start("chattr", {"+i", shots[1].last()});
        if (!lock.waitForFinished() || lock.exitCode() != 0)
            QSKIP("chattr +i is not possible here");
        const FileOpOutcome o = ShotTransfer::move(shots, dst.path(), false);
        QProcess::execute("chattr", {"-i", shots[1].last()});
        QCOMPARE(o.done, 2);
        QCOMPARE(o.kept, QStringList{"L2"});
        QCOMPARE(o.messages, QStringList{"L2.JPG: la carpeta es de solo lectura"});
        QCOMPARE(names(src.path()), (QStringList{"L2.JPG", "L2.NEF"}));
        QCOMPARE(names(dst.path()), (QStringList{"L1.NEF", "L3.NEF"}));
    }

    // The commands take a shot's pair along from one of its files, and `corvane undo` takes the
    // newest operation back.
    void fromTheCommandLine()
    {
        QVERIFY(corvaneBuilt());
        QTemporaryDir src, dst;
        shot(src.path(), "P1", {"NEF", "JPG"});
        QCOMPARE(corvane({"copy", src.filePath("P1.NEF")}).status, 2);   // no --to
        const CorvaneRun copied = corvane({"copy", "--to", dst.path(), "--verify", src.filePath("P1.JPG")});
        QCOMPARE(copied.status, 0);
        QVERIFY2(copied.out.contains("Copia completada"), copied.out.constData());
        QCOMPARE(names(dst.path()), (QStringList{"P1.JPG", "P1.NEF"}));
        QCOMPARE(corvane({"trash", src.filePath("P1.NEF")}).status, 0);
        QCOMPARE(names(src.path()), QStringList{});
        QCOMPARE(corvane({"undo"}).status, 0);
        QCOMPARE(names(src.path()), (QStringList{"P1.JPG", "P1.NEF"}));
        QCOMPARE(corvane({"trash", src.filePath("nada.JPG")}).status, 1);
    }

    // `corvane move` between disks killed at random moments: after the next start every shot is
    // whole in one of the two folders, with its bytes, and no temporary is left.
    void moveSurvivesSigkill()
    {
        QVERIFY(corvaneBuilt());
        const QString other = otherDiskRoot();
        QTemporaryDir here;
        QTemporaryDir there((other.isEmpty() ? QDir::tempPath() : other) + QStringLiteral("/corvane-kill-XXXXXX"));
        const int shots = 40;
        for (int i = 0; i < shots; ++i)
            shot(here.path(), QStringLiteral("K%1").arg(i, 3, 10, QLatin1Char('0')), {"NEF", "JPG"}, QByteArray(200000, char('a' + i % 26)));
        auto *rng = QRandomGenerator::global();
        const int rounds = qEnvironmentVariableIntValue("CORVANE_CRASH_ROUNDS") > 0 ? qEnvironmentVariableIntValue("CORVANE_CRASH_ROUNDS") : 6;
        int interrupted = 0;
        for (int round = 0; round < rounds; ++round) {
            QStringList files;
            for (const QString &dir : {here.path(), there.path()})
                for (const QString &f : names(dir))
                    if (f.endsWith(QLatin1String(".NEF")) && rng->bounded(2) == 0)
                        files.append(dir + QLatin1Char('/') + f);
            if (files.isEmpty())
                continue;
            // Each file goes to the other folder; one command per direction, the first killed.
            QStringList toThere, toHere;
            for (const QString &f : files)
                (f.startsWith(here.path()) ? toThere : toHere).append(f);
            const QStringList args = toThere.isEmpty() ? QStringList{"move", "--to", here.path()} + toHere
                                                       : QStringList{"move", "--to", there.path()} + toThere;
            QProcess p;
            p.start(corvaneBin(), args);
            QVERIFY(p.waitForStarted());
            QElapsedTimer waited;
            waited.start();
            const auto begun = [&] {
                for (const QString &dir : {here.path(), there.path()})
                    if (!QDir(dir).entryList({".corvane-*"}, QDir::Files | QDir::Hidden).isEmpty())
                        return true;
                return false;
            };
            while (p.state() == QProcess::Running && waited.elapsed() < 20000 && !begun())
                QThread::usleep(500);
            QThread::usleep(rng->bounded(0, 8000));
            ::kill(pid_t(p.processId()), SIGKILL);
            p.waitForFinished();
            const FileOpJournal::Recovery r = FileOpJournal::recoverAll();
            interrupted += r.finished + r.restored > 0 ? 1 : 0;
            QVERIFY2(r.unreadable.isEmpty(), qPrintable(r.sentence()));

            QHash<QString, QStringList> where;
            for (const QString &dir : {here.path(), there.path()})
                for (const QString &f : names(dir)) {
                    QVERIFY2(!f.startsWith(QLatin1String(".corvane-")), qPrintable(f));
                    if (f != QLatin1String(".corvane.json"))
                        where[f.left(f.indexOf(QLatin1Char('.')))].append(dir + QLatin1Char('/') + f);
                }
            QCOMPARE(where.size(), shots);
            for (auto it = where.cbegin(); it != where.cend(); ++it) {
                QCOMPARE(it.value().size(), 2);
                QCOMPARE(QFileInfo(it.value()[0]).path(), QFileInfo(it.value()[1]).path());
                const int i = it.key().mid(1).toInt();
                for (const QString &f : it.value())
                    QCOMPARE(QFileInfo(f).size(), qint64(it.key().size() + 3 + 200000));
                QCOMPARE(TestEnv::readAll(it.value()[0]).back(), char('a' + i % 26));
            }
        }
        qInfo("%d of %d rounds were cut short", interrupted, rounds);
    }
};

QTEST_GUILESS_MAIN(TestShotTransfer)
#include "tst_shottransfer.moc"
