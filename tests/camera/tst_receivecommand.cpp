// corvane receive as a user runs it: the real executable, a real upload with curl, and the
// interrupt that ends it.
#include "corvanerun.h"
#include "testenv.h"

#include <QRegularExpression>
#include <QSettings>
#include <QStandardPaths>
#include <QTcpServer>
#include <QtTest>

#include <csignal>
#include <fcntl.h>
#include <sys/file.h>
#include <unistd.h>

namespace {
// Starts `corvane receive` into `dest` on a port of the system's choice; returns its FTP URL, and
// what it printed up to then in `printed`.
QString startReceive(QProcess &p, const QString &dest, QString *printed = nullptr)
{
    p.start(corvaneBin(), {"receive", "--to", dest, "--port", "0"});
    QString out;
    QRegularExpressionMatch ready;
    (void)QTest::qWaitFor([&] {
        p.waitForReadyRead(100);
        out += QString::fromUtf8(p.readAllStandardOutput());
        ready = QRegularExpression("Esperando a la cámara en el puerto (\\d+)\\.").match(out);
        return ready.hasMatch();
    }, 10000);
    if (printed)
        *printed = out;
    const QRegularExpressionMatch pw = QRegularExpression("Contraseña: ([a-z2-9]{10})\n").match(out);
    if (!ready.hasMatch() || !pw.hasMatch())
        return {};
    return QStringLiteral("ftp://corvane:%1@127.0.0.1:%2/").arg(pw.captured(1), ready.captured(1));
}

QStringList hiddenFiles(const QString &folder)
{
    return QDir(folder).entryList(QDir::Files | QDir::Hidden, QDir::Name);
}
} // namespace

class TestReceiveCommand : public QObject
{
    Q_OBJECT
private slots:
    void initTestCase()
    {
        TestEnv::isolate();
        QVERIFY2(corvaneBuilt(), "CORVANE_BIN must name the built corvane");
    }

    void receivesUntilInterrupted()
    {
        QTemporaryDir dest, src;
        QProcess p;
        QString out;
        const QString url = startReceive(p, dest.path(), &out);
        QVERIFY2(!url.isEmpty(), qPrintable(out));
        QVERIFY(out.contains(QStringLiteral("Recibiendo imágenes por wifi (FTP) en «%1»").arg(dest.path())));
        QVERIFY(out.contains("Usuario: corvane"));
        QVERIFY(out.contains("Dirección de este ordenador: "));

        const QString file = TestEnv::touch(src.filePath("IMG_0001.JPG"),
                                            QByteArray("\xFF\xD8\xFF\xFE\x00\x04xx", 8) + QByteArray(3000, 'i') + QByteArray("\xFF\xD9", 2));
        QCOMPARE(QProcess::execute("curl", {"-sS", "-T", file, url}), 0);
        QVERIFY(QTest::qWaitFor([&] {
            p.waitForReadyRead(100);
            out += QString::fromUtf8(p.readAllStandardOutput());
            return out.contains("Recibida IMG_0001.JPG.");
        }, 10000));
        QVERIFY(out.contains("Cámara conectada desde 127.0.0.1."));
        QVERIFY(QFile::exists(dest.filePath("IMG_0001.JPG")));
        // A cut JPEG is refused, and the terminal says so with the reason.
        const QString cut = TestEnv::touch(src.filePath("IMG_0002.JPG"), QByteArray("\xFF\xD8\xFF\xFE\x00\x04xx", 8) + QByteArray(3000, 'i'));
        QVERIFY(QProcess::execute("curl", {"-sS", "-T", cut, url}) != 0);
        QString errors;
        QVERIFY(QTest::qWaitFor([&] {
            p.waitForReadyRead(100);
            errors += QString::fromUtf8(p.readAllStandardError());
            return errors.contains("Rechazada: IMG_0002.JPG: imagen incompleta");
        }, 10000));

        ::kill(pid_t(p.processId()), SIGINT);
        QVERIFY(p.waitForFinished(10000));
        QCOMPARE(p.exitStatus(), QProcess::NormalExit);
        QCOMPARE(p.exitCode(), 0);
        out += QString::fromUtf8(p.readAllStandardOutput());
        QVERIFY(out.endsWith("Recibidas en esta sesión: 1\nRechazadas en esta sesión: 1\n"));
        // The port was not remembered: it was for this run only.
        QVERIFY(!QSettings().contains("cam.ftpPort"));
    }

    void partFilesOfAKilledReceiverAreRemovedAtTheNextStart()
    {
        QTemporaryDir dest, src;
        // A part file that a live writer holds (another receiver, an import) is left alone.
        const QString held = TestEnv::touch(dest.filePath(".corvane-held.part"), "being written");
        const int heldFd = ::open(QFile::encodeName(held).constData(), O_RDONLY | O_CLOEXEC);
        QVERIFY(heldFd >= 0 && ::flock(heldFd, LOCK_EX) == 0);
        QProcess first;
        const QString url = startReceive(first, dest.path());
        QVERIFY(!url.isEmpty());
        // Killed in the middle of a slow upload: its part file stays behind.
        const QString file = TestEnv::touch(src.filePath("DSC_0001.JPG"), QByteArray("\xFF\xD8\xFF\xFE\x00\x04xx", 8) + QByteArray(400000, 'i'));
        QProcess curl;
        curl.start("curl", {"-sS", "--limit-rate", "40K", "-T", file, url});
        QVERIFY(QTest::qWaitFor([&] { return hiddenFiles(dest.path()).size() == 2; }, 10000));
        ::kill(pid_t(first.processId()), SIGKILL);
        QVERIFY(first.waitForFinished(10000));
        QVERIFY(curl.waitForFinished(10000));
        QCOMPARE(hiddenFiles(dest.path()).size(), 2);
        // The next receiver on that folder removes it before it takes any camera.
        QProcess second;
        QVERIFY(!startReceive(second, dest.path()).isEmpty());
        QCOMPARE(hiddenFiles(dest.path()), QStringList{".corvane-held.part"});
        ::kill(pid_t(second.processId()), SIGINT);
        QVERIFY(second.waitForFinished(10000));
        ::close(heldFd);
    }

    void usageAndFailures()
    {
        QCOMPARE(corvane({"receive"}).status, 2);
        QCOMPARE(corvane({"receive", "--to"}).status, 2);
        QTemporaryDir dest;
        QCOMPARE(corvane({"receive", "--to", dest.path(), "--port", "70000"}).status, 2);
        // A port that is taken: one sentence, status 1.
        QTcpServer holder;
        QVERIFY(holder.listen(QHostAddress::Any, 0));
        const CorvaneRun taken = corvane({"receive", "--to", dest.path(), "--port", QString::number(holder.serverPort())});
        QCOMPARE(taken.status, 1);
        QVERIFY(QString::fromUtf8(taken.err).contains(QStringLiteral("El puerto %1 está ocupado por otra app.").arg(holder.serverPort())));
    }

    void privilegedPortWithoutPermission()
    {
        // Port 21 as an ordinary user: as root (CI), the command runs as "nobody".
        QTemporaryDir home;
        QFile::setPermissions(home.path(), QFileDevice::ReadOwner | QFileDevice::WriteOwner | QFileDevice::ExeOwner
                                               | QFileDevice::ReadOther | QFileDevice::WriteOther | QFileDevice::ExeOther);
        QProcess p;
        QProcessEnvironment env = QProcessEnvironment::systemEnvironment();
        env.insert("XDG_CONFIG_HOME", home.path());
        p.setProcessEnvironment(env);
        const QStringList args = {"receive", "--to", home.path(), "--port", "21"};
        if (::geteuid() == 0) {
            if (QStandardPaths::findExecutable("setpriv").isEmpty())
                QSKIP("no setpriv to drop root");
            p.start("setpriv", QStringList{"--reuid=nobody", "--regid=nogroup", "--clear-groups", corvaneBin()} + args);
        } else {
            p.start(corvaneBin(), args);
        }
        QVERIFY(p.waitForFinished(10000));
        const QString err = QString::fromUtf8(p.readAllStandardError());
        if (p.exitCode() == 126 || p.exitCode() == 127 || err.contains("Permission denied"))
            QSKIP("the build folder is not open to other users");
        if (p.exitCode() == 0 || err.contains("ocupado"))
            QSKIP("this system lets anyone open port 21, or it is taken");
        QCOMPARE(p.exitCode(), 1);
        QCOMPARE(err.trimmed(), QStringLiteral("Linux solo deja usar el puerto 21 con un permiso especial: prueba con otro (p. ej. 2121) y ponlo también en la cámara."));
    }
};

QTEST_GUILESS_MAIN(TestReceiveCommand)
#include "tst_receivecommand.moc"
