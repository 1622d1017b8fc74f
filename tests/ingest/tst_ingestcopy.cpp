// Copying cards to one or two destinations through the engine itself: verification that reads the
// disk, damaged copies, refusing destinations, files already there, stale parts, the record,
// cancelling and ejecting.
#include "util/fileio.h"
#include "ingest/importedrecord.h"
#include "ingest/ingestjob.h"
#include "ingest/ingestrunner.h"
#include "ingesttestcard.h"
#include "testenv.h"

#include <QSignalSpy>
#include <QtTest>

#include <fcntl.h>
#include <sys/file.h>
#include <sys/stat.h>
#include <sys/vfs.h>
#include <unistd.h>

namespace {

struct Card {
    QString root;
    QMap<QString, QByteArray> files;   // path on the card → bytes
};

// A card of RAW+JPEG pairs and one video, camera names kept.
Card makeCard(const QString &root, int pairs, qint64 rawSize = 300000)
{
    Card c;
    c.root = root;
    const QDateTime day(QDate(2024, 5, 18), QTime(10, 0));
    for (int i = 1; i <= pairs; ++i) {
        const QString base = QStringLiteral("DCIM/100NIKON/DSC_%1").arg(i, 4, 10, QLatin1Char('0'));
        const QByteArray raw = TestCard::bytes(rawSize + i, quint32(i));
        const QByteArray jpg = TestCard::bytes(rawSize / 3 + i, quint32(1000 + i));
        c.files.insert(TestCard::write(root, base + ".NEF", raw, day.addSecs(i)), raw);
        c.files.insert(TestCard::write(root, base + ".JPG", jpg, day.addSecs(i)), jpg);
    }
    return c;
}

QString nameOf(const QString &path) { return QFileInfo(path).fileName(); }

IngestRequest request(const Card &card, const QString &a, const QString &b = {})
{
    IngestRequest r;
    r.source = card.root;
    r.working = a;
    r.backup = b;
    r.options.structure = IngestStructure::none;
    r.options.rename = false;
    r.options.skipImported = true;
    r.options.verify = true;
    return r;
}

IngestReport run(const IngestRequest &r, IngestJob::Hooks hooks = {}, CancelToken *cancel = nullptr)
{
    CancelToken own;
    return IngestJob(r, cancel ? cancel : &own, nullptr, std::move(hooks)).run();
}

// Camera names are kept (structure none): each card file must be at dest/<name>, byte for byte.
// Copies keep the card file's modification time: a shot from June is not dated the import's day.
void checkComplete(const Card &card, const QString &dest)
{
    for (auto it = card.files.begin(); it != card.files.end(); ++it) {
        const QString copy = dest + "/" + nameOf(it.key());
        QCOMPARE(TestEnv::readAll(copy), it.value());
        QCOMPARE(QFileInfo(copy).lastModified(), QFileInfo(it.key()).lastModified());
    }
    QCOMPARE(TestCard::files(dest).size(), card.files.size());
}

QString keyOf(const QString &path, const QByteArray &bytes)
{
    return ImportedRecord::historyKey(nameOf(path), bytes.size(), QFileInfo(path).lastModified());
}

bool onTmpfs(const QString &path)
{
    struct statfs s;
    return ::statfs(QFile::encodeName(path).constData(), &s) == 0 && s.f_type == 0x01021994;
}

} // namespace

class TestIngestCopy : public QObject
{
    Q_OBJECT

    QTemporaryDir *_tmp = nullptr;
    QString dir(const QString &name) const
    {
        const QString p = _tmp->path() + "/" + name;
        QDir().mkpath(p);
        return p;
    }

private slots:
    void initTestCase() { TestEnv::isolate(); }
    void init()
    {
        _tmp = new QTemporaryDir;
        QFile::remove(ImportedRecord::path());
    }
    void cleanup() { delete _tmp; }

    void twoDisksVerifiedThenNothingTwice()
    {
        const Card card = makeCard(dir("card"), 4);
        const QString a = dir("A"), b = dir("B");
        IngestReport r = run(request(card, a, b));
        QCOMPARE(r.summary.outcome, IngestOutcome::verified);
        for (const DestResult &d : r.dests) {
            QCOMPARE(d.copied, 8);
            QCOMPARE(d.verifiedOK, 8);
        }
        checkComplete(card, a);
        checkComplete(card, b);
        QSet<QString> keys;
        for (auto it = card.files.begin(); it != card.files.end(); ++it)
            keys.insert(keyOf(it.key(), it.value()));
        QCOMPARE(ImportedRecord::load(), keys);
        QCOMPARE(r.resultFolder, a);

        // The photographer renames everything at the destination: the card is still known.
        for (const QString &f : TestCard::files(a))
            QVERIFY(QFile::rename(a + "/" + f, a + "/renamed_" + f));
        r = run(request(card, a, b));
        QCOMPARE(r.summary.outcome, IngestOutcome::nothingToDo);
        QCOMPARE(r.dests[0].skipped, 8);
        QCOMPARE(TestCard::files(a).size(), 8);
    }

    void verifiedOnlyWhatWasVerified()
    {
        const Card card = makeCard(dir("card"), 2);
        const QString a = dir("A"), b = dir("B");
        IngestRequest req = request(card, a);
        req.options.verify = false;
        QCOMPARE(run(req).summary.title, QStringLiteral("Copia hecha"));
        // Again onto A, now with B: A has every file already, B gets them all, verified.
        req = request(card, a, b);
        req.options.skipImported = false;
        IngestReport r = run(req);
        QCOMPARE(r.dests[0].copied, 0);
        QCOMPARE(r.dests[0].statusText(), QStringLiteral("Correcta"));
        QCOMPARE(r.dests[1].verifiedOK, 4);
        QCOMPARE(r.dests[1].statusText(), QStringLiteral("Correcta y verificada"));
    }

    void verificationReadsTheDisk()
    {
        const Card card = makeCard(dir("card"), 1, 4 << 20);
        const QString a = dir("A");
        if (onTmpfs(a))
            QSKIP("a tmpfs folder has no disk behind its pages");
        QList<qint64> resident;
        IngestJob::Hooks hooks;
        hooks.beforeVerify = [&](const CopyRecord &rec) {
            const int fd = ::open(QFile::encodeName(rec.dst).constData(), O_RDONLY);
            resident << FileIo::residentPages(fd);
            ::close(fd);
        };
        const IngestReport r = run(request(card, a), hooks);
        QCOMPARE(r.dests[0].verifiedOK, 2);
        // The copies left memory once they were on the disk, so reading them back reads the disk.
        QCOMPARE(resident, (QList<qint64>{0, 0}));
    }

    void damagedCopiesAreDeletedAndCopiedAgain()
    {
        const Card card = makeCard(dir("card"), 3);
        const QString a = dir("A"), b = dir("B");
        // Between copy and verification: one byte flipped on the backup, one copy cut short on
        // the working disk, one copy gone.
        IngestJob::Hooks hooks;
        hooks.beforeVerify = [](const CopyRecord &rec) {
            if (rec.rootIndex == 1 && rec.srcName == "DSC_0002.NEF") {
                QFile f(rec.dst);
                QVERIFY(f.open(QIODevice::ReadWrite));
                f.seek(1234);
                const char c = f.read(1).at(0);
                f.seek(1234);
                f.write(QByteArray(1, char(c ^ 0x20)));
            } else if (rec.rootIndex == 0 && rec.srcName == "DSC_0003.JPG") {
                QVERIFY(QFile::resize(rec.dst, 10));
            } else if (rec.rootIndex == 0 && rec.srcName == "DSC_0001.JPG") {
                QVERIFY(QFile::remove(rec.dst));
            }
        };
        bool ejected = false;
        hooks.eject = [&](const QString &) {
            ejected = true;
            return QString();
        };
        IngestRequest req = request(card, a, b);
        req.options.eject = true;
        IngestReport r = run(req, hooks);

        QCOMPARE(r.summary.title, QStringLiteral("Importación con problemas"));
        QVERIFY(!ejected);
        QCOMPARE(r.ejectMessage, QStringLiteral("No se ha expulsado la tarjeta: hubo errores."));
        QCOMPARE(r.dests[1].verifyBad, 1);
        QCOMPARE(r.dests[1].verifiedOK, 5);
        QCOMPARE(r.dests[1].errors,
                 QStringList{"DSC_0002.NEF: la copia NO coincide con el original; se ha borrado para volver a copiarla"});
        QCOMPARE(r.dests[0].verifyBad, 2);
        QVERIFY(r.dests[0].errors.contains(
            "DSC_0003.JPG: la copia NO coincide con el original; se ha borrado para volver a copiarla"));
        QVERIFY(r.dests[0].errors.contains(
            "DSC_0001.JPG: no se pudo leer la copia para verificarla; se ha borrado para volver a copiarla"));
        QVERIFY(!QFile::exists(b + "/DSC_0002.NEF"));
        QVERIFY(!QFile::exists(a + "/DSC_0003.JPG"));

        const QSet<QString> recorded = ImportedRecord::load();
        QCOMPARE(recorded.size(), 3);
        for (auto it = card.files.begin(); it != card.files.end(); ++it) {
            const bool bad = it.key().endsWith("DSC_0002.NEF") || it.key().endsWith("DSC_0003.JPG")
                             || it.key().endsWith("DSC_0001.JPG");
            QCOMPARE(recorded.contains(keyOf(it.key(), it.value())), !bad);
        }

        // The next import copies exactly those, each to the disk that lost it.
        r = run(request(card, a, b));
        QCOMPARE(r.summary.outcome, IngestOutcome::verified);
        QCOMPARE(r.dests[0].copied, 2);
        QCOMPARE(r.dests[1].copied, 1);
        QCOMPARE(r.dests[0].skipped, 4);
        checkComplete(card, a);
        checkComplete(card, b);
        QCOMPARE(ImportedRecord::load().size(), 6);
    }

    void verifyNowForgetsBadCopies()
    {
        const Card card = makeCard(dir("card"), 2);
        const QString a = dir("A");
        IngestRequest req = request(card, a);
        req.options.verify = false;
        IngestReport r = run(req);
        QCOMPARE(r.summary.outcome, IngestOutcome::copied);
        QCOMPARE(ImportedRecord::load().size(), 4);

        QFile f(a + "/DSC_0001.NEF");
        QVERIFY(f.open(QIODevice::ReadWrite));
        f.write("XX");
        f.close();
        CancelToken cancel;
        IngestJob::verifyNow(r, &cancel, nullptr);
        QVERIFY(r.verified);
        QCOMPARE(r.dests[0].verifiedOK, 3);
        QCOMPARE(r.dests[0].verifyBad, 1);
        QCOMPARE(r.summary.outcome, IngestOutcome::errors);
        QVERIFY(!QFile::exists(a + "/DSC_0001.NEF"));
        QCOMPARE(ImportedRecord::load().size(), 3);

        r = run(request(card, a));
        QCOMPARE(r.dests[0].copied, 1);
        checkComplete(card, a);
    }

    void nothingIsEverReplaced()
    {
        const Card card = makeCard(dir("card"), 2);
        const QString a = dir("A"), b = dir("B");
        // On A, someone else's DSC_0001.NEF; on B, the very copy of DSC_0002.NEF made earlier.
        const QByteArray foreign = TestCard::bytes(300001, 77);
        TestCard::write(a, "DSC_0001.NEF", foreign);
        const QString nef2 = card.root + "/DCIM/100NIKON/DSC_0002.NEF";
        TestCard::write(b, "DSC_0002.NEF", card.files.value(nef2));
        struct stat before;
        QCOMPARE(::stat(QFile::encodeName(b + "/DSC_0002.NEF").constData(), &before), 0);

        IngestRequest req = request(card, a, b);
        req.options.skipImported = false;
        const IngestReport r = run(req);
        QCOMPARE(r.summary.outcome, IngestOutcome::verified);
        QCOMPARE(TestEnv::readAll(a + "/DSC_0001.NEF"), foreign);
        // The whole shot moves to the next free suffix, on both disks alike.
        QCOMPARE(TestEnv::readAll(a + "/DSC_0001-2.NEF"), card.files.value(card.root + "/DCIM/100NIKON/DSC_0001.NEF"));
        QCOMPARE(TestEnv::readAll(a + "/DSC_0001-2.JPG"), card.files.value(card.root + "/DCIM/100NIKON/DSC_0001.JPG"));
        QCOMPARE(TestEnv::readAll(b + "/DSC_0001-2.NEF"), card.files.value(card.root + "/DCIM/100NIKON/DSC_0001.NEF"));
        QVERIFY(!QFile::exists(b + "/DSC_0001.NEF"));
        // The copy already on B counts as copied and is left untouched.
        struct stat after;
        QCOMPARE(::stat(QFile::encodeName(b + "/DSC_0002.NEF").constData(), &after), 0);
        QCOMPARE(after.st_ino, before.st_ino);
        QCOMPARE(after.st_mtim.tv_nsec, before.st_mtim.tv_nsec);
        QCOMPARE(r.dests[1].skipped, 1);
        QCOMPARE(r.dests[1].copied, 3);
        QCOMPARE(r.dests[0].copied, 4);
        QCOMPARE(ImportedRecord::load().size(), 4);
    }

    void renameNeverReplaces()
    {
        const QString a = dir("A");
        const QString from = TestCard::write(a, ".part1", "new"), to = TestCard::write(a, "taken", "old");
        QCOMPARE(FileIo::renameNoReplace(from, to), EEXIST);
        QCOMPARE(TestEnv::readAll(to), QByteArray("old"));
        QCOMPARE(FileIo::renameNoReplace(from, a + "/free"), 0);
        QCOMPARE(TestEnv::readAll(a + "/free"), QByteArray("new"));
    }

    void staleParts()
    {
        const Card card = makeCard(dir("card"), 1);
        const QString a = dir("A");
        const QString stale1 = TestCard::write(a, ".corvane-0b6e1f7e-0000-4000-8000-000000000001.part", "half");
        const QString stale2 = TestCard::write(a, "2024/2024-05-18/.corvane-0b6e1f7e-0000-4000-8000-000000000002.part", "half");
        // A part another import is writing right now (it holds the lock) stays.
        const QString busy = TestCard::write(a, "2024/2024-05-18/.corvane-0b6e1f7e-0000-4000-8000-000000000003.part", "busy");
        // Left in a folder this run does not write to (another day, another session).
        const QString stale3 = TestCard::write(a, "2023/2023-01-02 Otra/.corvane-0b6e1f7e-0000-4000-8000-000000000004.part", "half");
        // Deeper than this structure writes: an archive below the root is not walked.
        TestCard::write(a, "2023/2023-01-02 Otra/editadas/.corvane-0b6e1f7e-0000-4000-8000-000000000005.part", "half");
        const int fd = ::open(QFile::encodeName(busy).constData(), O_RDONLY);
        QCOMPARE(::flock(fd, LOCK_EX), 0);
        IngestRequest req = request(card, a);
        req.options.structure = IngestStructure::yearDate;
        const IngestReport r = run(req);
        ::close(fd);
        QCOMPARE(r.summary.outcome, IngestOutcome::verified);
        QVERIFY(!QFile::exists(stale1));
        QVERIFY(!QFile::exists(stale2));
        QVERIFY(!QFile::exists(stale3));
        QVERIFY(QFile::exists(busy));
        QCOMPARE(TestCard::parts(a), (QStringList{"2023/2023-01-02 Otra/editadas/.corvane-0b6e1f7e-0000-4000-8000-000000000005.part",
                                                  "2024/2024-05-18/.corvane-0b6e1f7e-0000-4000-8000-000000000003.part"}));
    }

    void aRefusingDiskFailsAloneAndTheCardStays()
    {
        const Card card = makeCard(dir("card"), 3);
        const QString a = dir("A");
        const QString notAFolder = TestCard::write(_tmp->path(), "B", "I am a file");
        int ejects = 0;
        IngestJob::Hooks hooks;
        hooks.eject = [&](const QString &) {
            ++ejects;
            return QString();
        };
        IngestRequest req = request(card, a, notAFolder);
        req.options.eject = true;
        IngestReport r = run(req, hooks);
        QCOMPARE(r.summary.title, QStringLiteral("Importación con problemas"));
        QCOMPARE(ejects, 0);
        QCOMPARE(r.dests[1].errors, QStringList{QStringLiteral("No se puede copiar en «%1»: no es una carpeta.").arg(notAFolder)});
        QCOMPARE(r.dests[1].failed, 6);
        QCOMPARE(r.dests[1].statusText(), QStringLiteral("Con errores"));
        QCOMPARE(r.dests[0].copied, 6);
        QCOMPARE(r.dests[0].verifiedOK, 6);
        QVERIFY(r.dests[0].errors.isEmpty());
        checkComplete(card, a);
        // Not on both disks, so not remembered.
        QVERIFY(ImportedRecord::load().isEmpty());

        // A folder where a day folder should go: every file of that disk fails, one line each.
        QFile::remove(notAFolder);
        const QString b = dir("B");
        TestCard::write(b, "2024", "a file in the way");
        req.options.structure = IngestStructure::yearDate;
        r = run(req, hooks);
        QCOMPARE(r.dests[1].failed, 6);
        QCOMPARE(r.dests[1].errors.size(), 6);
        QVERIFY(r.dests[1].errors.first().startsWith("DSC_0001."));
        QVERIFY(r.dests[1].errors.first().contains("no se puede crear el archivo"));
        QCOMPARE(ejects, 0);

        // Once the disk takes files, the next import fills in exactly what it lacks.
        QFile::remove(b + "/2024");
        r = run(req, hooks);
        QCOMPARE(r.summary.outcome, IngestOutcome::verified);
        QCOMPARE(r.dests[0].copied, 0);   // A took them in the run before
        QCOMPARE(r.dests[0].skipped, 6);
        QCOMPARE(r.dests[1].copied, 6);
        QCOMPARE(ejects, 1);
        QCOMPARE(r.ejectMessage, QStringLiteral("Tarjeta expulsada"));
        QCOMPARE(TestCard::parts(a), QStringList());
        QCOMPARE(TestCard::parts(b), QStringList());
    }

    void runnerReportsAndCancels()
    {
        // One large file, cancelled in the middle of its copy.
        const QString cardRoot = dir("card");
        const QByteArray big = TestCard::bytes(48 << 20, 9);
        TestCard::write(cardRoot, "DCIM/100/MVI_0001.MP4", big);
        TestCard::write(cardRoot, "DCIM/100/DSC_0000.JPG", TestCard::bytes(1000, 8),
                        QDateTime(QDate(2020, 1, 1), QTime(0, 0)));
        const QString a = dir("A"), b = dir("B");
        IngestRequest req;
        req.source = cardRoot;
        req.working = a;
        req.backup = b;
        req.options.structure = IngestStructure::none;
        req.options.video = true;
        req.options.verify = true;

        IngestRunner runner;
        runner.setProgressInterval(5);
        // The worker waits, after the video's first chunk, until the screen has cancelled.
        QSemaphore cancelled;
        std::atomic<bool> waitOnce{true};
        IngestJob::Hooks hooks;
        hooks.chunkCopied = [&](const QString &name, qint64 bytes) {
            if (name == "MVI_0001.MP4" && bytes == 8 << 20 && waitOnce.exchange(false))
                QVERIFY(cancelled.tryAcquire(1, 20000));
        };
        runner.setHooks(hooks);
        QList<IngestPhase> phases;
        bool cancelOnce = true;
        connect(&runner, &IngestRunner::phaseChanged, this, [&](IngestPhase p) { phases << p; });
        connect(&runner, &IngestRunner::progressChanged, this, [&] {
            if (cancelOnce && runner.phase() == IngestPhase::copying && runner.currentName() == "MVI_0001.MP4"
                && runner.bytesDone() > 1000 && runner.bytesDone() < runner.bytesTotal()) {
                cancelOnce = false;
                runner.cancel();
                cancelled.release();
            }
        });
        QSignalSpy finished(&runner, &IngestRunner::finished);
        QVERIFY(runner.start(req));
        QVERIFY(!runner.start(req));
        QVERIFY(finished.wait(30000));

        QVERIFY(runner.cancelled());
        QCOMPARE(runner.summary().title, QStringLiteral("Importación cancelada"));
        QCOMPARE(phases.first(), IngestPhase::scanning);
        QVERIFY(phases.contains(IngestPhase::copying));
        QVERIFY(!phases.contains(IngestPhase::verifying));
        QCOMPARE(phases.last(), IngestPhase::finished);
        QCOMPARE(runner.total(), 2);
        QCOMPARE(runner.bytesTotal(), qint64(big.size() + 1000));
        // The finished JPEG stays and is remembered; the half video is gone and is not.
        QVERIFY(QFile::exists(a + "/DSC_0000.JPG"));
        QVERIFY(!QFile::exists(a + "/MVI_0001.MP4"));
        QCOMPARE(TestCard::parts(a), QStringList());
        QCOMPARE(TestCard::parts(b), QStringList());
        const QSet<QString> recorded = ImportedRecord::load();
        QCOMPARE(recorded.size(), 1);
        QVERIFY(recorded.values().first().startsWith("DSC_0000.JPG|1000|"));

        // Go on where it stopped.
        QVERIFY(runner.start(req));
        QVERIFY(finished.wait(30000));
        QCOMPARE(runner.summary().title, QStringLiteral("Las dos copias están hechas y verificadas"));
        QCOMPARE(runner.copied(), 1);
        QCOMPARE(runner.skipped(), 1);
        QCOMPARE(runner.verifiedCount(), 2);
        QCOMPARE(TestEnv::readAll(b + "/MVI_0001.MP4"), big);
    }
};

QTEST_GUILESS_MAIN(TestIngestCopy)
#include "tst_ingestcopy.moc"
