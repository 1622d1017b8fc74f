// The receiver under load and abuse, with real clients at once: many cameras sending together,
// two cameras sending the same name over and over, hundreds of idle connections, and hostile
// probes, while nothing may be lost, mixed up, replaced or written outside the destination.
#include "ftptestserver.h"
#include "testenv.h"

#include <QCryptographicHash>
#include <QtTest>

#include <csignal>

using FTPTest::Server;

namespace {

// A small JPEG whose bytes say who sent it.
QByteArray shot(const QByteArray &tag, int size)
{
    QByteArray body(size, '\0');
    for (int i = 0; i < size; ++i)
        body[i] = char(((i * 131 + qHash(tag)) % 250) + 1);
    return QByteArray("\xFF\xD8\xFF\xFE", 4) + char(0) + char(tag.size() + 2) + tag
           + QByteArray("\xFF\xDA\x00\x02", 4) + body + QByteArray("\xFF\xD9", 2);
}

QByteArray sha(const QByteArray &b) { return QCryptographicHash::hash(b, QCryptographicHash::Sha256); }

// A curl config that uploads each file to its remote name over one connection.
QString curlConfig(const QString &path, const QList<QPair<QString, QString>> &uploads)
{
    QFile f(path);
    if (!f.open(QIODevice::WriteOnly))
        return {};
    f.write("silent\nshow-error\nmax-time = 80\n");
    for (const auto &[file, url] : uploads)
        f.write(QStringLiteral("upload-file = \"%1\"\nurl = \"%2\"\n").arg(file, url).toUtf8());
    return path;
}

} // namespace

class TestFTPLoad : public QObject
{
    Q_OBJECT
private slots:
    void initTestCase()
    {
        TestEnv::isolate();
        ::signal(SIGPIPE, SIG_IGN);
    }

    void twentyCamerasAtOnceWhileProbed()
    {
        QTemporaryDir root, src;
        const QString dest = root.filePath("dest"), outside = root.filePath("outside");
        QVERIFY(QDir().mkpath(dest));
        QVERIFY(QDir().mkpath(outside));
        QVERIFY(QFile::link(outside, dest + "/link"));
        FTPLimits limits;
        limits.minFreeSpace = 0;
        limits.loginPause = std::chrono::milliseconds(100);
        Server s(limits, dest);

        // 20 clients × 50 files, each file its own contents.
        QHash<QString, QByteArray> expected;   // remote name → digest
        QList<QProcess *> clients;
        for (int c = 0; c < 20; ++c) {
            QList<QPair<QString, QString>> uploads;
            for (int i = 0; i < 50; ++i) {
                const QString name = QStringLiteral("C%1_%2.JPG").arg(c, 2, 10, QLatin1Char('0')).arg(i, 4, 10, QLatin1Char('0'));
                const QByteArray bytes = shot(name.toLatin1(), 20000 + (c * 50 + i) * 37);
                TestEnv::touch(src.filePath(name), bytes);
                expected.insert(name, sha(bytes));
                uploads.append({src.filePath(name), s.url(name)});
            }
            auto *p = new QProcess(this);
            p->setProcessChannelMode(QProcess::MergedChannels);
            p->start("curl", {"-K", curlConfig(src.filePath(QStringLiteral("client%1.cfg").arg(c)), uploads)});
            clients << p;
        }
        // Meanwhile: path escapes, bounces, floods and garbage from other connections.
        const QStringList probes = s.python(R"(
import threading
results = []
def escape():
    c = Raw(); c.login()
    for n in [b'../x.jpg', b'/../../x.jpg', b'link/x.jpg', b'a\\..\\x.jpg', b'x\x00.jpg', b'.x.jpg', b'link/../../x.jpg']:
        results.append(c.cmd(b'STOR ' + n)[:3])
    results.append(c.store('link/in.jpg', jpeg(b'in'))[-1][:3])
    results.append(c.cmd('MKD link/sub')[:3])
    results.append(c.cmd('RNFR link')[:3])
def bounce():
    c = Raw(); c.login()
    for a in ['PORT 192,168,1,1,0,80', 'PORT 127,0,0,1,0,22', 'EPRT |1|10.1.2.3|8080|', 'EPRT |2|::1|8080|']:
        results.append(c.cmd(a)[:3])
def flood():
    c = Raw(); c.login()
    try:
        c.send(b'NOOP ' + b'x' * (1 << 20) + b'\r\n')
    except OSError:
        pass
    results.append(c.reply()[:3])
def lonecr():
    c = Raw(); c.login()
    results.append(c.cmd(b'NOOP\rSTOR x.jpg')[:3])
    results.append(c.cmd(b'STOR a\rb.jpg')[:3])
    results.append(c.cmd(b'\x00\x00\x00')[:3])
    results.append(c.cmd(b'STOR \x00')[:3])
def guesser():
    c = Raw()
    c.cmd('USER corvane')
    results.append(c.cmd('PASS guess')[:3])
ts = [threading.Thread(target=f) for f in [escape, bounce, flood, lonecr, guesser]]
for t in ts: t.start()
for t in ts: t.join()
print(' '.join(sorted(results)))
)");
        QCOMPARE(probes, QStringList{"425 452 500 501 501 501 501 501 501 530 550 550 553 553 553 553 553 553 553 553"});
        for (QProcess *p : std::as_const(clients)) {
            QVERIFY(p->waitForFinished(85000));
            QVERIFY2(p->exitCode() == 0, p->readAll().constData());
        }
        // Every file stored once, byte for byte, under its own name.
        QStringList names = s.files();
        names.removeAll("link");
        QCOMPARE(names.size(), 1000);
        for (auto it = expected.cbegin(); it != expected.cend(); ++it)
            QVERIFY2(sha(s.read(it.key())) == it.value(), qPrintable(it.key()));
        QCOMPARE(s.eventTexts(FTPEvent::Kind::file).size(), 1000);
        QVERIFY(s.files(true).isEmpty());
        QVERIFY(QDir(outside).entryList(QDir::AllEntries | QDir::Hidden | QDir::NoDotAndDotDot).isEmpty());
        QCOMPARE(QDir(root.path()).entryList(QDir::AllEntries | QDir::Hidden | QDir::NoDotAndDotDot), QStringList({"dest", "outside"}));
        qDeleteAll(clients);
    }

    void twoCamerasOneName()
    {
        QTemporaryDir src;
        FTPLimits limits;
        limits.minFreeSpace = 0;
        Server s(limits);
        QSet<QByteArray> sent;
        QList<QProcess *> clients;
        for (int c = 0; c < 2; ++c) {
            QList<QPair<QString, QString>> uploads;
            for (int i = 0; i < 200; ++i) {
                const QString file = src.filePath(QStringLiteral("c%1_%2.jpg").arg(c).arg(i));
                // Same size for all: telling them apart takes a look at the bytes.
                const QByteArray bytes = shot(QStringLiteral("%1-%2").arg(c).arg(i, 3, 10, QLatin1Char('0')).toLatin1(), 30000);
                TestEnv::touch(file, bytes);
                sent.insert(sha(bytes));
                uploads.append({file, s.url("IMG_0001.JPG")});
            }
            auto *p = new QProcess(this);
            p->setProcessChannelMode(QProcess::MergedChannels);
            p->start("curl", {"-K", curlConfig(src.filePath(QStringLiteral("c%1.cfg").arg(c)), uploads)});
            clients << p;
        }
        for (QProcess *p : std::as_const(clients)) {
            QVERIFY(p->waitForFinished(85000));
            QVERIFY2(p->exitCode() == 0, p->readAll().constData());
        }
        QCOMPARE(sent.size(), 400);
        const QStringList names = s.files();
        QCOMPARE(names.size(), 400);
        QSet<QByteArray> stored;
        for (const QString &n : names) {
            QVERIFY(n == "IMG_0001.JPG" || QRegularExpression("^IMG_0001-([2-9]|[1-9]\\d|[1-3]\\d\\d|400)\\.JPG$").match(n).hasMatch());
            stored.insert(sha(s.read(n)));
        }
        QCOMPARE(stored, sent);
        qDeleteAll(clients);
    }

    void idleConnectionsDoNotStopACamera()
    {
        FTPLimits limits;
        limits.minFreeSpace = 0;
        Server s(limits);
        QTemporaryDir src;
        const QString file = TestEnv::touch(src.filePath("DSC_0001.JPG"), shot("real camera", 2000000));
        // 200 connections that log in (or not) and then say nothing.
        QProcess idlers;
        idlers.setProcessEnvironment(s.environment());
        idlers.start(FTPTest::python3(), {"-c", R"(
from ftpprobe import *
import sys, time
held = []
for i in range(200):
    c = Raw()
    if i % 2:
        c.login()
    held.append(c)
print('holding', len(held), flush=True)
sys.stdin.readline()
print(sum(1 for c in held if c.cmd('NOOP').startswith('200')), flush=True)
)"});
        QVERIFY(QTest::qWaitFor([&] { return idlers.canReadLine() || (!idlers.waitForReadyRead(100) && idlers.state() != QProcess::Running); }, 30000));
        QCOMPARE(idlers.readLine().trimmed(), QByteArray("holding 200"));
        // A real upload still goes through at once (5 s is the bound a camera must see).
        QByteArray log;
        QCOMPARE(s.run("curl", {"-sS", "--max-time", "5", "-T", file, s.url()}, &log), 0);
        QCOMPARE(s.read("DSC_0001.JPG"), shot("real camera", 2000000));
        // And the idle ones are all still served.
        idlers.write("\n");
        QVERIFY(idlers.waitForFinished(30000));
        QCOMPARE(idlers.readAll().trimmed(), QByteArray("200"));
    }
};

QTEST_GUILESS_MAIN(TestFTPLoad)
#include "tst_ftpload.moc"
