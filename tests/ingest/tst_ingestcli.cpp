// `corvane ingest` as a user runs it: killed at random moments and run again, a disk refusing
// writes through a file-size limit, the plan, and bad arguments.
#include "corvanerun.h"
#include "ingest/importedrecord.h"
#include "ingesttestcard.h"
#include "testenv.h"

#include <QElapsedTimer>
#include <QJsonArray>
#include <QJsonDocument>
#include <QJsonObject>
#include <QProcess>
#include <QtTest>

#include <sys/resource.h>

namespace {

struct Planned {
    QString relPath;
    QString historyKey;
    QByteArray bytes;
};

// A card of `pairs` RAW+JPEG shots of a few megabytes, one file of each pair a little smaller.
QMap<QString, QByteArray> makeCard(const QString &root, int pairs, qint64 rawSize)
{
    QMap<QString, QByteArray> files;
    const QDateTime day(QDate(2024, 5, 18), QTime(17, 0));
    for (int i = 1; i <= pairs; ++i) {
        const QString base = QStringLiteral("DCIM/%1CANON/IMG_%2").arg(100 + i % 2).arg(i, 4, 10, QLatin1Char('0'));
        const QByteArray raw = TestCard::bytes(rawSize + 4099 * i, quint32(i));
        const QByteArray jpg = TestCard::bytes(rawSize / 2 + 977 * i, quint32(500 + i));
        files.insert(TestCard::write(root, base + ".CR2", raw, day.addSecs(7 * i)), raw);
        files.insert(TestCard::write(root, base + ".JPG", jpg, day.addSecs(7 * i)), jpg);
    }
    return files;
}

QList<Planned> planOf(const QStringList &args, const QMap<QString, QByteArray> &card)
{
    const CorvaneRun r = corvane(QStringList{"ingest"} + args + QStringList{"--dry-run", "--json"});
    QList<Planned> out;
    const QJsonArray files = QJsonDocument::fromJson(r.out).object().value("files").toArray();
    for (const QJsonValue &v : files) {
        const QJsonObject o = v.toObject();
        out.append({o.value("relPath").toString(), o.value("historyKey").toString(), card.value(o.value("src").toString())});
    }
    return out;
}

} // namespace

class TestIngestCli : public QObject
{
    Q_OBJECT

    // What must hold at every moment, killed or not: every file under its final name is a whole
    // copy of its card file, only part files are hidden, and the record lists only files that
    // stand whole on both disks.
    void checkConsistent(const QList<Planned> &plan, const QStringList &dests)
    {
        QHash<QString, const Planned *> byPath;
        for (const Planned &p : plan)
            byPath.insert(p.relPath, &p);
        for (const QString &d : dests)
            for (const QString &f : TestCard::files(d)) {
                if (QFileInfo(f).fileName().startsWith('.')) {
                    QVERIFY2(QFileInfo(f).fileName().startsWith(".corvane-") && f.endsWith(".part"), qPrintable(f));
                    continue;
                }
                QVERIFY2(byPath.contains(f), qPrintable("unexpected " + f));
                QVERIFY2(TestEnv::readAll(d + "/" + f) == byPath.value(f)->bytes, qPrintable("not whole: " + f));
            }
        const QSet<QString> recorded = ImportedRecord::load();
        for (const Planned &p : plan)
            if (recorded.contains(p.historyKey))
                for (const QString &d : dests)
                    QVERIFY2(TestEnv::readAll(d + "/" + p.relPath) == p.bytes, qPrintable("recorded but missing: " + p.relPath));
    }

    void checkComplete(const QList<Planned> &plan, const QStringList &dests)
    {
        QStringList expected;
        QSet<QString> keys;
        for (const Planned &p : plan) {
            expected << p.relPath;
            keys.insert(p.historyKey);
        }
        expected.sort();
        for (const QString &d : dests) {
            QCOMPARE(TestCard::files(d), expected);   // nothing missing, nothing twice, no part
            for (const Planned &p : plan)
                QVERIFY(TestEnv::readAll(d + "/" + p.relPath) == p.bytes);
        }
        QCOMPARE(ImportedRecord::load(), keys);
    }

private slots:
    void initTestCase()
    {
        TestEnv::isolate();
        QVERIFY2(corvaneBuilt(), "CORVANE_BIN must name the built corvane");
    }

    void killedAtRandomMomentsLosesNothing()
    {
        QTemporaryDir tmp;
        const QString card = tmp.path() + "/card", a = tmp.path() + "/A", b = tmp.path() + "/B";
        // Six pairs: each run fsyncs every copy and reads it back from the disk, so a run costs
        // by the file, and 26 runs of a bigger card outlast the test's time on a busy disk.
        const QMap<QString, QByteArray> files = makeCard(card, 6, 2 << 20);
        QDir().mkpath(a);
        QDir().mkpath(b);
        const QStringList args{"--from", card, "--to", a, "--backup", b, "--structure", "yearDate", "--session",
                               "Boda Marta", "--rename", "--skip-imported", "--verify"};
        const QList<Planned> plan = planOf(args, files);
        QCOMPARE(plan.size(), 12);

        // How long one whole run takes here, to spread the kills over it.
        QElapsedTimer clock;
        clock.start();
        CorvaneRun r = corvane(QStringList{"ingest"} + args);
        const qint64 runMs = qMax<qint64>(clock.elapsed(), 50);
        QCOMPARE(r.status, 0);
        checkComplete(plan, {a, b});

        QRandomGenerator gen(20240518);
        int killed = 0;
        for (int i = 0; i < 20; ++i) {
            if (i % 5 == 0) {
                // A fresh start every five kills, so kills land early in the copy as well as late.
                QDir(a).removeRecursively();
                QDir(b).removeRecursively();
                QDir().mkpath(a);
                QDir().mkpath(b);
                QFile::remove(ImportedRecord::path());
            }
            QProcess p;
            p.start(corvaneBin(), QStringList{"ingest"} + args);
            QVERIFY(p.waitForStarted());
            if (!p.waitForFinished(int(gen.bounded(runMs)))) {
                p.kill();   // SIGKILL
                ++killed;
            }
            p.waitForFinished();
            checkConsistent(plan, {a, b});
            if (i % 5 == 4) {
                r = corvane(QStringList{"ingest"} + args);
                QCOMPARE(r.status, 0);
                checkComplete(plan, {a, b});
            }
        }
        qInfo("%d of 20 runs were killed before they ended (a run takes %lld ms)", killed, runMs);
        r = corvane(QStringList{"ingest"} + args);
        QCOMPARE(r.status, 0);
        QVERIFY(r.out.contains("Todo lo de la tarjeta ya está importado"));
        checkComplete(plan, {a, b});
    }

    void aFileSizeLimitFailsTheBigFilesClearly()
    {
        QTemporaryDir tmp;
        const QString card = tmp.path() + "/card", a = tmp.path() + "/A", b = tmp.path() + "/B";
        makeCard(card, 2, 1 << 20);   // 1 MB RAWs, 0.5 MB JPEGs
        const QStringList args{"ingest", "--from", card, "--to", a, "--backup", b, "--structure", "none", "--verify",
                               "--skip-imported", "--eject"};
        QFile::remove(ImportedRecord::path());

        QProcess p;
        p.setChildProcessModifier([] {
            const rlimit limit{768 * 1024, 768 * 1024};
            ::setrlimit(RLIMIT_FSIZE, &limit);
        });
        p.start(corvaneBin(), args);
        QVERIFY(p.waitForFinished(60000));
        QCOMPARE(p.exitStatus(), QProcess::NormalExit);
        QCOMPARE(p.exitCode(), 1);
        const QString out = QString::fromUtf8(p.readAllStandardOutput());
        QVERIFY2(out.startsWith("Importación con problemas\n"), qPrintable(out));
        QVERIFY(out.contains(QStringLiteral("Disco de trabajo: %1 — Con errores").arg(a)));
        QVERIFY(out.contains(QStringLiteral("Copia de seguridad: %1 — Con errores").arg(b)));
        QCOMPARE(out.count("IMG_0001.CR2: no se pudo escribir la copia: el archivo es demasiado grande para ese disco"), 2);
        QVERIFY(out.contains("No se ha expulsado la tarjeta: hubo errores."));
        // The JPEGs fit and are whole; nothing half-written is left.
        QCOMPARE(TestCard::files(a), (QStringList{"IMG_0001.JPG", "IMG_0002.JPG"}));
        QCOMPARE(TestCard::files(b), (QStringList{"IMG_0001.JPG", "IMG_0002.JPG"}));
        QCOMPARE(ImportedRecord::load().size(), 2);

        // Without the limit, the next import copies only the RAWs.
        const CorvaneRun r = corvane(args.mid(0, args.size() - 1));
        QCOMPARE(r.status, 0);
        QVERIFY(r.out.startsWith("Las dos copias están hechas y verificadas\n"));
        QVERIFY(r.out.contains("copiadas: 2 · Ya estaban en el disco: 2 · verificadas: 2"));
        QCOMPARE(TestCard::files(a).size(), 4);
    }

    void planAndArguments()
    {
        QTemporaryDir tmp;
        const QString card = tmp.path() + "/card", a = tmp.path() + "/A";
        const QMap<QString, QByteArray> files = makeCard(card, 1, 1000);
        const CorvaneRun plan = corvane({"ingest", "--from", card, "--to", a, "--rename", "--preset", "4", "--start", "12",
                                         "--digits", "3", "--structure", "yearMonthDate", "--dry-run"});
        QCOMPARE(plan.status, 0);
        QVERIFY2(plan.out.contains("→ 2024/05/2024-05-18/20240518_170007_012.CR2\n"), plan.out.constData());
        QVERIFY(plan.out.contains("2 archivos por copiar"));
        QVERIFY(!QFileInfo::exists(a));

        QCOMPARE(corvane({"ingest", "--from", card}).status, 2);
        QCOMPARE(corvane({"ingest", "--from", card, "--to", a, "--structure", "month"}).status, 2);
        QCOMPARE(corvane({"ingest", "--from", card, "--to", a, "--preset", "8"}).status, 2);
        QCOMPARE(corvane({"ingest", "--from", card, "--to", a, "--pattern", "{"}).status, 2);
        QCOMPARE(corvane({"ingest", "--from", card, "--to", a, "--digits", "0"}).status, 2);
        QCOMPARE(corvane({"ingest", "--from", tmp.path() + "/none", "--to", a}).status, 1);

        // A pattern of its own, as JSON, and the destination inside the card refused.
        const QString pattern = R"({"separator":"-","tokens":[{"id":"","kind":"camera","format":"","text":""},)"
                                R"({"id":"","kind":"original","format":"","text":""}]})";
        const CorvaneRun json = corvane({"ingest", "--from", card, "--to", a, "--rename", "--pattern", pattern,
                                         "--structure", "none", "--json"});
        QCOMPARE(json.status, 0);
        const QJsonObject o = QJsonDocument::fromJson(json.out).object();
        QCOMPARE(o.value("outcome").toString(), QStringLiteral("copied"));
        QCOMPARE(o.value("dests").toArray().first().toObject().value("copied").toInt(), 2);
        QCOMPARE(TestCard::files(a), (QStringList{"IMG_0001.CR2", "IMG_0001.JPG"}));
        const CorvaneRun inside = corvane({"ingest", "--from", card, "--to", card + "/copias"});
        QCOMPARE(inside.status, 1);
        QVERIFY(inside.out.contains("está dentro de la carpeta de origen"));
    }
};

QTEST_GUILESS_MAIN(TestIngestCli)
#include "tst_ingestcli.moc"
