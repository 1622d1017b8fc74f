// Batch rename: the names chosen and checked before anything moves, and the renaming itself on
// real files, by the real executable killed at random moments.
#include "corvanerun.h"
#include "testenv.h"

#include "fileops/renameplan.h"
#include "fileops/shotrenamer.h"
#include "marks/marksfile.h"

#include <QDir>
#include <QElapsedTimer>
#include <QRandomGenerator>
#include <QThread>
#include <QtTest>

#include <csignal>

namespace {

RenameShot shot(const QString &dir, const QString &base, const QStringList &exts)
{
    RenameShot s;
    for (const QString &e : exts)
        s.files.append(TestEnv::touch(dir + QLatin1Char('/') + base + QLatin1Char('.') + e, (base + e).toUtf8()));
    s.mainFile = s.files.first();
    s.date = QDateTime(QDate(2024, 5, 18), QTime(14, 32, 7));
    return s;
}

QStringList names(const QString &dir) { return QDir(dir).entryList(QDir::Files | QDir::Hidden, QDir::Name); }

RenameOptions custom(const QString &templateId, const QString &text = {})
{
    RenameOptions o;
    o.mode = RenameOptions::Mode::custom;
    o.pattern = RenameTemplate::byId(templateId)->pattern(o.separator, text);
    return o;
}

} // namespace

class TestRename : public QObject
{
    Q_OBJECT
private slots:
    void initTestCase() { TestEnv::isolate(); }

    void namesAndConflicts()
    {
        QTemporaryDir dir;
        QList<RenameShot> shots;
        for (int i = 1; i <= 12; ++i)
            shots.append(shot(dir.path(), QStringLiteral("DSC_%1").arg(i, 4, 10, QLatin1Char('0')), {"nef", "jpg"}));
        const QStringList folder = names(dir.path());

        RenamePlan plan = planRename(shots, custom("number"), folder);
        QCOMPARE(plan.rows.first().newName, QStringLiteral("001"));
        QCOMPARE(plan.rows.last().newName, QStringLiteral("012"));
        QCOMPARE(plan.buttonText(), QStringLiteral("Renombrar 12 imágenes"));
        QVERIFY(plan.canRename());

        // Upper-case extensions; nothing else changes when the case is the only option.
        RenameOptions upper = custom("name-original", "");
        upper.caseOn = true;
        upper.extCase = NameCase::upper;
        plan = planRename(shots.mid(0, 1), upper, folder);
        QCOMPARE(plan.rows.first().newExts, (QStringList{"NEF", "JPG"}));
        QCOMPARE(plan.rows.first().newName, QStringLiteral("DSC_0001"));

        // A name held by a file that is not renamed blocks its row, whatever its case.
        TestEnv::touch(dir.filePath("boda_002.JPG"));
        RenameOptions simple;
        simple.name = QStringLiteral("Boda");
        plan = planRename(shots.mid(0, 3), simple, names(dir.path()));
        QCOMPARE(plan.rows[1].problem, QStringLiteral("Boda_002.jpg ya existe en la carpeta"));
        QCOMPARE(plan.footer(), QStringLiteral("Corrige el nombre en conflicto para poder renombrar."));
        QVERIFY(!plan.canRename());

        // Names that only swap among the renamed shots never block; repeats get -2, -3.
        QList<RenameShot> two = {shots[1], shots[0]};
        plan = planRename(two, custom("name-original"), names(dir.path()));
        QCOMPARE(plan.conflicts(), 0);
        plan = planRename(shots.mid(0, 3), custom("date-time"), {});
        QVERIFY(!plan.numbersRepeats);
        RenameOptions dateOnly;
        dateOnly.mode = RenameOptions::Mode::custom;
        dateOnly.pattern = NamePattern{{NameToken(NameToken::Kind::date)}, QStringLiteral("_")};
        plan = planRename(shots.mid(0, 3), dateOnly, {});
        QVERIFY(plan.numbersRepeats);
        QCOMPARE(plan.rows[2].newName, QStringLiteral("20240518-3"));
        QCOMPARE(planRename(shots.mid(0, 1), custom("name-original"), folder).footer(),
                 QStringLiteral("Con estas opciones no cambia ningún nombre."));
    }

    void swapsCyclesAndMarksFollow()
    {
        QTemporaryDir dir;
        QList<RenameShot> shots = {shot(dir.path(), "A", {"NEF", "JPG", "xmp"}), shot(dir.path(), "B", {"NEF"}),
                                   shot(dir.path(), "C", {"JPG"})};
        MarksMap marks;
        marks.insert("a", Marks::from(ColorClass::c1, 0, false, 0, {}));
        marks.insert("b", Marks::from(ColorClass::c2, 0, false, 0, {}));
        marks.insert("c", Marks::from(ColorClass::c3, 0, false, 0, {}));
        QVERIFY(MarksFile::save(dir.path(), marks, std::nullopt).isEmpty());
        // A → B, B → C, C → A: a cycle through names that all exist.
        RenamePlan plan = planRename(shots, RenameOptions{}, names(dir.path()));
        QList<RenameRow> rows;
        const QStringList to = {"B", "C", "A"};
        for (int i = 0; i < 3; ++i) {
            RenameRow r = plan.rows[i];
            r.problem.clear();
            r.moves.clear();
            for (const QString &f : shots[i].files)
                r.moves.append({f, dir.filePath(to[i] + f.mid(f.lastIndexOf(QLatin1Char('.'))))});
            r.changed = true;
            rows.append(r);
        }
        plan.rows = rows;
        const RenameOutcome o = ShotRenamer::run(plan);
        QCOMPARE(o.done, 3);
        QCOMPARE(o.files, 5);
        QCOMPARE(names(dir.path()), (QStringList{".corvane.json", "A.JPG", "B.JPG", "B.NEF", "B.xmp", "C.NEF"}));
        QCOMPARE(TestEnv::readAll(dir.filePath("B.NEF")), QByteArray("ANEF"));
        const auto after = MarksFile::load(dir.path());
        QCOMPARE(after->marks.value("b").c, std::optional<int>(1));
        QCOMPARE(after->marks.value("c").c, std::optional<int>(2));
        QCOMPARE(after->marks.value("a").c, std::optional<int>(3));

        // Undo puts every name and mark back.
        QCOMPARE(FileOpEngine::undo().done, 3);
        QCOMPARE(TestEnv::readAll(dir.filePath("A.NEF")), QByteArray("ANEF"));
        QCOMPARE(MarksFile::load(dir.path())->marks.value("a").c, std::optional<int>(1));
    }

    void aVanishedFileLeavesItsShotAndTheOthersGoOn()
    {
        QTemporaryDir dir;
        QList<RenameShot> shots = {shot(dir.path(), "X1", {"NEF", "JPG"}), shot(dir.path(), "X2", {"NEF", "JPG"})};
        RenameOptions o;
        o.name = QStringLiteral("Boda");
        const RenamePlan plan = planRename(shots, o, names(dir.path()));
        QFile::remove(dir.filePath("X1.JPG"));   // another program, between preview and rename
        const RenameOutcome out = ShotRenamer::run(plan);
        QCOMPARE(out.done, 1);
        QCOMPARE(out.kept, QStringList{"X1"});
        QCOMPARE(out.title(), QStringLiteral("Renombrado con errores"));
        QVERIFY(out.body().contains(QStringLiteral("1 imagen no se ha podido renombrar y conserva X1")));
        QCOMPARE(names(dir.path()), (QStringList{"Boda_002.JPG", "Boda_002.NEF", "X1.NEF"}));
    }

    // The command killed at random moments: after the next start every shot has all its files
    // under one name, old or new, nothing lost or overwritten, marks on the right shots.
    void survivesSigkillAnywhere()
    {
        QVERIFY(corvaneBuilt());
        QTemporaryDir dir;
        QStringList mains;
        MarksMap marks;
        for (int i = 1; i <= 200; ++i) {
            const QString base = QStringLiteral("DSC_%1").arg(i, 4, 10, QLatin1Char('0'));
            for (const char *e : {".NEF", ".JPG", ".xmp"})
                TestEnv::touch(dir.filePath(base + QLatin1String(e)), (base + QLatin1String(e)).toUtf8());
            mains.append(dir.filePath(base + QStringLiteral(".NEF")));
            marks.insert(base.toLower(), Marks::from(ColorClass(1 + i % 8), 0, false, 0, {}));
        }
        QVERIFY(MarksFile::save(dir.path(), marks, std::nullopt).isEmpty());
        auto *rng = QRandomGenerator::global();
        int interrupted = 0;   // rounds whose kill landed inside the renaming
        const int rounds = qEnvironmentVariableIntValue("CORVANE_CRASH_ROUNDS") > 0 ? qEnvironmentVariableIntValue("CORVANE_CRASH_ROUNDS") : 12;
        for (int round = 0; round < rounds; ++round) {
            // Each round renames to the other name set, so every round has work to cut short.
            QStringList files;
            for (const QString &f : names(dir.path()))
                if (f.endsWith(QLatin1String(".NEF")))
                    files.append(dir.filePath(f));
            const QString name = round % 2 ? QStringLiteral("Boda") : QStringLiteral("Fiesta");
            QProcess p;
            p.start(corvaneBin(), QStringList{"rename", "--name", name} + files);
            QVERIFY(p.waitForStarted());
            // Killed once it has begun taking names, a random moment later.
            QElapsedTimer waited;
            waited.start();
            while (p.state() == QProcess::Running && waited.elapsed() < 20000
                   && QDir(dir.path()).entryList({"*.renaming"}, QDir::Files | QDir::Hidden).isEmpty())
                QThread::usleep(1000);
            QThread::usleep(rng->bounded(0, 15000));
            ::kill(pid_t(p.processId()), SIGKILL);
            p.waitForFinished();
            // The next start puts things right (a dry run also recovers first).
            const CorvaneRun next = corvane({"rename", "--dry-run", "--name", "x", files.first()});
            if (next.err.contains("mitad de un renombrado"))
                ++interrupted;

            const QStringList now = names(dir.path());
            QVERIFY2(now.size() == 601, qPrintable(QStringLiteral("round %1: %2 files, first %3").arg(round).arg(now.size()).arg(now.mid(0, 3).join(' '))));
            QHash<QString, QStringList> byBase;
            for (const QString &f : now)
                if (f != QLatin1String(".corvane.json"))
                    byBase[f.left(f.indexOf(QLatin1Char('.')))].append(f.mid(f.indexOf(QLatin1Char('.'))));
            QCOMPARE(byBase.size(), 200);
            const auto m = MarksFile::load(dir.path());
            for (auto it = byBase.cbegin(); it != byBase.cend(); ++it) {
                QCOMPARE(it.value().size(), 3);
                // Contents never mixed: the NEF's bytes name the shot's first name.
                const QByteArray original = TestEnv::readAll(dir.filePath(it.key() + ".NEF"));
                QVERIFY2(original.startsWith("DSC_"), qPrintable(it.key()));
                const int n = original.mid(4, 4).toInt();
                QCOMPARE(m->marks.value(it.key().toLower()).c, std::optional<int>(1 + n % 8));
            }
        }
        QVERIFY2(interrupted > 0, "no kill landed inside a rename");
    }
};

QTEST_GUILESS_MAIN(TestRename)
#include "tst_rename.moc"
