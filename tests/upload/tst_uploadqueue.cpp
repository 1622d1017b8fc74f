// The upload queue against real servers: names that never replace what is there, failures that
// heal by themselves (a cut and a stalled data connection, from a small Python server), failures
// that do not, cancel, and a queue killed with SIGKILL that finishes after a restart.
#include "corvanerun.h"
#include "testenv.h"
#include "testimages.h"
#include "vsftpdserver.h"

#include "browser/browsersession.h"
#include "camera/camerahub.h"

#include "camera/ftpreceiver.h"
#include "upload/uploadqueue.h"
#include "upload/uploadservers.h"

#include <QtTest>
#include <csignal>

namespace {

// The receiver's defaults, but any free space will do for a test.
FTPLimits roomyLimits()
{
    FTPLimits l;
    l.minFreeSpace = 0;
    return l;
}

QByteArray pattern(qint64 size, int seed)
{
    QByteArray b(size, Qt::Uninitialized);
    for (qint64 i = 0; i < size; ++i)
        b[i] = char((i * 13 + seed + i / 509) & 0xff);
    return b;
}

UploadServer serverAt(quint16 port, const QString &folder = QStringLiteral("up"))
{
    UploadServer s;
    s.id = QStringLiteral("srv-%1").arg(port);
    s.name = QStringLiteral("prueba");
    s.host = QStringLiteral("127.0.0.1");
    s.port = port;
    s.folder = folder;
    s.lowSpeedTime = 2;
    return s;
}

bool waitIdle(UploadQueue &q, int ms = 30000) { return QTest::qWaitFor([&] { return q.idle(); }, ms); }

// What a server folder shows under final names (fragments of cut transfers keep a ".part" name).
QStringList filesIn(const QString &dir)
{
    QStringList out = QDir(dir).entryList(QDir::Files | QDir::Hidden, QDir::Name);
    out.removeIf([](const QString &n) { return n.endsWith(QLatin1String(".part")); });
    return out;
}

} // namespace

class TestUploadQueue : public QObject
{
    Q_OBJECT
private slots:
    void initTestCase()
    {
        TestEnv::isolate();
        ::signal(SIGPIPE, SIG_IGN);
    }

    // A shot whose name is taken on the server gets "-2" for all its files; the rest keep theirs.
    void sendsWithoutReplacing()
    {
        QTemporaryDir dir;
        VsftpdServer ftp;
        if (!ftp.start(dir.path() + "/ftp"))
            QSKIP("vsftpd needs root and the ftp user");
        TestEnv::touch(ftp.upload + "/A.jpg", "theirs");
        const QStringList paths{TestEnv::touch(dir.path() + "/a.jpg", pattern(400'000, 1)),
                                TestEnv::touch(dir.path() + "/a.cr2", pattern(900'000, 2)),
                                TestEnv::touch(dir.path() + "/b.jpg", pattern(300'000, 3))};
        const UploadServer server = serverAt(ftp.port);
        UploadQueue q(dir.path() + "/journal.json");
        q.setServerLookup([&](const QString &) { return server; });
        const QString id = q.add(server.id, paths);
        q.start();
        QVERIFY(waitIdle(q));
        QCOMPARE(q.job(id)->state, UploadJob::State::done);
        QCOMPARE(filesIn(ftp.upload), (QStringList{"A.jpg", "a-2.cr2", "a-2.jpg", "b.jpg"}));
        QCOMPARE(TestEnv::readAll(ftp.upload + "/A.jpg"), QByteArray("theirs"));
        QCOMPARE(TestEnv::readAll(ftp.upload + "/a-2.cr2"), TestEnv::readAll(paths[1]));
        QCOMPARE(TestEnv::readAll(ftp.upload + "/b.jpg"), TestEnv::readAll(paths[2]));
    }

    void healsAfterNetworkFaults_data()
    {
        QTest::addColumn<QString>("mode");
        QTest::addColumn<QString>("seen");
        QTest::addColumn<int>("size");
        QTest::newRow("data connection cut") << "drop" << QString() << 2'000'000;
        // Larger than what the sockets can hold, so the sender itself stands still.
        QTest::newRow("stalled") << "stall" << "la conexión se ha quedado parada demasiado tiempo" << 16'000'000;
    }
    void healsAfterNetworkFaults()
    {
        QFETCH(QString, mode);
        QFETCH(QString, seen);
        QFETCH(int, size);
        QTemporaryDir dir;
        const QString served = dir.path() + "/served", portFile = dir.path() + "/port";
        QDir().mkpath(served);
        QProcess py;
        py.start(QStringLiteral("/usr/bin/python3"), {QStringLiteral(FAULTY_FTP), served, mode, QStringLiteral("2"), portFile});
        QVERIFY(QTest::qWaitFor([&] { return QFile::exists(portFile); }, 10000));
        const UploadServer server = serverAt(quint16(TestEnv::readAll(portFile).toInt()), QString());
        const QString path = TestEnv::touch(dir.path() + "/shot.jpg", pattern(size, 4));

        UploadQueue q(dir.path() + "/journal.json");
        q.setServerLookup([&](const QString &) { return server; });
        q.setRetryDelays({100}, 5);
        QStringList lines;
        bool halfUnderFinalName = false;
        connect(&q, &UploadQueue::changed, this, [&] {
            for (const UploadJob &j : q.jobs())
                if (!j.error.isEmpty() && !lines.contains(j.error))
                    lines << j.error;
            halfUnderFinalName = halfUnderFinalName
                                 || (QFile::exists(served + "/shot.jpg") && QFileInfo(served + "/shot.jpg").size() != size);
        });
        const QString id = q.add(server.id, {path});
        q.start();
        QVERIFY(waitIdle(q, 60000));
        QCOMPARE(q.job(id)->state, UploadJob::State::done);
        QCOMPARE(q.job(id)->files[0].attempts, 3);
        QVERIFY(!lines.isEmpty());
        if (!seen.isEmpty())
            QVERIFY2(lines.contains(seen), qPrintable(lines.join('|')));
        QVERIFY(!halfUnderFinalName);
        QCOMPARE(TestEnv::readAll(served + "/shot.jpg"), TestEnv::readAll(path));
        // The fragments of the cut transfers were taken away too.
        QTRY_COMPARE(QDir(served).entryList(QDir::Files | QDir::Hidden), QStringList{"shot.jpg"});
        py.kill();
        py.waitForFinished();
    }

    // A wrong password is said at once and not tried again; retry after fixing it sends the rest.
    void wrongPasswordFailsAtOnce()
    {
        QTemporaryDir dir;
        FTPReceiver receiver(dir.path() + "/in", QStringLiteral("corvane"), QStringLiteral("k7wq2mxr9z"), 0, roomyLimits(),
                             QHostAddress::LocalHost);
        QDir().mkpath(dir.path() + "/in");
        receiver.onEvent = [](const FTPEvent &) {};
        receiver.start();
        QVERIFY(QTest::qWaitFor([&] { return receiver.port() != 0; }, 5000));
        UploadServer server = serverAt(receiver.port(), QString());
        server.user = QStringLiteral("corvane");
        server.password = QStringLiteral("nope");
        const QString path = TestEnv::touch(dir.path() + "/x.jpg", pattern(100'000, 5));
        UploadQueue q(dir.path() + "/journal.json");
        q.setServerLookup([&](const QString &) { return server; });
        const QString id = q.add(server.id, {path});
        q.start();
        QVERIFY(waitIdle(q));
        QCOMPARE(q.job(id)->state, UploadJob::State::failed);
        QCOMPARE(q.job(id)->error, QStringLiteral("usuario o contraseña incorrectos"));
        server.password = QStringLiteral("k7wq2mxr9z");
        q.retry(id);
        QVERIFY(waitIdle(q));
        QVERIFY2(q.job(id)->state == UploadJob::State::done, qPrintable(q.job(id)->error));
        QCOMPARE(TestEnv::readAll(dir.path() + "/in/x.jpg"), TestEnv::readAll(path));
        receiver.stop();
    }

    void cancelLeavesNothingUnderTheFinalName()
    {
        QTemporaryDir dir;
        VsftpdServer ftp;
        VsftpdServer::Options o;
        o.maxRate = 400'000;
        if (!ftp.start(dir.path() + "/ftp", o))
            QSKIP("vsftpd needs root and the ftp user");
        const UploadServer server = serverAt(ftp.port);
        const QString path = TestEnv::touch(dir.path() + "/big.jpg", pattern(3'000'000, 6));
        UploadQueue q(dir.path() + "/journal.json");
        q.setServerLookup([&](const QString &) { return server; });
        const QString id = q.add(server.id, {path});
        q.start();
        QVERIFY(QTest::qWaitFor([&] { return q.job(id)->bytesDone() > 200'000; }, 20000));
        q.cancel(id);
        QVERIFY(waitIdle(q));
        QCOMPARE(q.job(id)->state, UploadJob::State::cancelled);
        QTest::qWait(300);
        QVERIFY(!QFile::exists(ftp.upload + "/big.jpg"));
    }

    // What the camera sends over wifi goes on to the server set for it, as it arrives.
    void cameraShotsAreForwarded()
    {
        QTemporaryDir dir;
        VsftpdServer ftp;
        if (!ftp.start(dir.path() + "/ftp"))
            QSKIP("vsftpd needs root and the ftp user");
        UploadServer server = serverAt(ftp.port);
        server.id.clear();
        const QString serverId = UploadServers::save(server);
        const QString shot = TestImages::writeJpeg(dir.path() + "/DSC_0001.JPG", 640, 480, Qt::green);

        BrowserSession session;
        CameraHub &hub = session.cameraHub();
        hub.setLimits(roomyLimits());
        hub.setListenAddress(QHostAddress::LocalHost);
        hub.setPort(0, false);
        hub.setDestination(dir.path() + "/in");
        hub.setAutoServer(serverId);
        hub.setWifiOn(true);
        QVERIFY(QTest::qWaitFor([&] { return hub.listeningPort() != 0; }, 5000));
        QProcess curl;
        curl.start(QStringLiteral("curl"), {QStringLiteral("-sS"), QStringLiteral("-T"), shot,
                                            QStringLiteral("ftp://corvane:%1@127.0.0.1:%2/").arg(hub.password()).arg(hub.listeningPort())});
        QVERIFY(curl.waitForFinished(10000));
        QCOMPARE(curl.exitCode(), 0);
        QVERIFY(QTest::qWaitFor([&] { return QFile::exists(ftp.upload + "/DSC_0001.JPG"); }, 15000));
        QTRY_COMPARE_WITH_TIMEOUT(TestEnv::readAll(ftp.upload + "/DSC_0001.JPG"), TestEnv::readAll(shot), 5000);
        hub.setWifiOn(false);
        hub.setAutoServer({});
    }

    // Killed mid-transfer and started again: every file arrives once, whole, under its own name.
    void survivesSigkill()
    {
        QVERIFY2(corvaneBuilt(), "CORVANE_BIN");
        QTemporaryDir dir;
        VsftpdServer ftp;
        VsftpdServer::Options o;
        o.maxRate = 3'000'000;
        if (!ftp.start(dir.path() + "/ftp", o))
            QSKIP("vsftpd needs root and the ftp user");
        UploadServer server = serverAt(ftp.port);
        server.id.clear();
        const QString serverId = UploadServers::save(server);
        QStringList paths;
        for (int i = 0; i < 8; ++i)
            paths << TestEnv::touch(dir.path() + QStringLiteral("/src/IMG_%1.jpg").arg(i), pattern(1'500'000, i));
        {
            UploadQueue q;   // the default journal, which `corvane queue --run` reads
            q.add(serverId, paths);
        }
        for (int round = 0; round < 2; ++round) {
            QProcess run;
            run.start(corvaneBin(), {QStringLiteral("queue"), QStringLiteral("--run")});
            QVERIFY(QTest::qWaitFor([&] { return filesIn(ftp.upload).size() > 2 * round + 1; }, 30000));
            QTest::qWait(150);
            ::kill(pid_t(run.processId()), SIGKILL);
            run.waitForFinished();
        }
        const CorvaneRun last = corvane({QStringLiteral("queue"), QStringLiteral("--run"), QStringLiteral("--json")});
        QCOMPARE(last.status, 0);
        QStringList expected;
        for (const QString &p : paths)
            expected << QFileInfo(p).fileName();
        QCOMPARE(filesIn(ftp.upload), expected);
        for (const QString &p : paths)
            QCOMPARE(TestEnv::readAll(ftp.upload + "/" + QFileInfo(p).fileName()), TestEnv::readAll(p));
    }
};

QTEST_GUILESS_MAIN(TestUploadQueue)
#include "tst_uploadqueue.moc"
