// The camera hub on the wifi path: it starts the receiver, words its events for the window, and
// hands each arriving file to the browser, which groups it into the open folder marked new.
#include "camerabrowser.h"
#include "ftptestserver.h"
#include "testenv.h"

#include "camera/camerahub.h"

#include <QSettings>
#include <QSignalSpy>
#include <QTcpServer>
#include <QtTest>

using CameraTest::Browser;
using CameraTest::jpegBytes;

namespace {

// A hub on a loopback port the system chooses, with short time-outs.
void prepare(CameraHub &hub)
{
    hub.setListenAddress(QHostAddress::LocalHost);
    hub.setLimits(FTPTest::fastLimits());
    hub.setPort(0, false);
}

bool waitForStatus(CameraHub &hub, const QString &prefix)
{
    return QTest::qWaitFor([&] { return hub.wifiStatus().startsWith(prefix); }, 10000);
}

// prepare(), then wifi on into `dest`; true once the receiver is waiting for cameras.
bool receiveInto(CameraHub &hub, const QString &dest)
{
    prepare(hub);
    hub.setDestination(dest);
    hub.setWifiOn(true);
    return waitForStatus(hub, "Esperando");
}

int curlUpload(const CameraHub &hub, const QString &file, const QString &password)
{
    return QProcess::execute("curl", {"-sS", "-T", file,
                                      QStringLiteral("ftp://corvane:%1@127.0.0.1:%2/").arg(password).arg(hub.listeningPort())});
}
} // namespace

class TestCameraHub : public QObject
{
    Q_OBJECT
private slots:
    void initTestCase() { TestEnv::isolate(); }
    void cleanup() { QSettings().clear(); }

    void settings()
    {
        QSettings().setValue("cam.ftpPort", 2121);
        QSettings().setValue("cam.autoServer", "6f1c2a10-2f2b-4d55-9d7e-0c1f3c9b7a11");
        CameraHub hub;
        QCOMPARE(hub.port(), 2121);
        QCOMPARE(hub.user(), QStringLiteral("corvane"));
        QCOMPARE(hub.autoServer(), QStringLiteral("6f1c2a10-2f2b-4d55-9d7e-0c1f3c9b7a11"));
        QVERIFY(!hub.wifiOn());
        QVERIFY(!hub.usbOn());
        QCOMPARE(hub.wifiStatus(), QStringLiteral("Wifi apagado."));
        hub.setPort(2122);
        QCOMPARE(QSettings().value("cam.ftpPort").toInt(), 2122);
        hub.setPort(2123, false);
        QCOMPARE(QSettings().value("cam.ftpPort").toInt(), 2122);
        // Without a folder wifi stays off and says why.
        hub.setWifiOn(true);
        QVERIFY(!hub.wifiOn());
        QCOMPARE(hub.wifiStatus(), QStringLiteral("Elige primero la carpeta donde guardar las imágenes."));
    }

    void filesReachTheOpenFolderMarkedNew()
    {
        QTemporaryDir folder, src;
        TestEnv::touch(folder.filePath("DSC_0000.JPG"), jpegBytes('0'));
        Browser b;
        QVERIFY(b.open(folder.path()));
        CameraHub &hub = b.session.cameraHub();
        QCOMPARE(hub.destination(), folder.path());   // the open folder by default
        prepare(hub);
        QSignalSpy statuses(&hub, &CameraHub::wifiStatusChanged);
        hub.setWifiOn(true);
        QVERIFY(hub.wifiOn());
        QVERIFY(waitForStatus(hub, "Esperando a la cámara en el puerto "));
        QCOMPARE(hub.wifiStatus(), QStringLiteral("Esperando a la cámara en el puerto %1.").arg(hub.listeningPort()));

        const QString jpg = TestEnv::touch(src.filePath("DSC_0001.JPG"), jpegBytes('1'));
        const QString nef = TestEnv::touch(src.filePath("DSC_0001.NEF"), "raw bytes of a camera without a known layout");
        QCOMPARE(curlUpload(hub, jpg, hub.password()), 0);
        QVERIFY(QTest::qWaitFor([&] { return hub.received() == 1; }, 5000));
        QCOMPARE(hub.lastName(), QStringLiteral("DSC_0001.JPG"));
        QCOMPARE(hub.wifiStatus(), QStringLiteral("Recibida DSC_0001.JPG."));
        Photo *shot = b.shot("DSC_0001.JPG");
        QVERIFY(shot);
        QVERIFY(shot->isNew());
        QVERIFY(!b.shot("DSC_0000.JPG")->isNew());
        // The RAW that follows joins its JPEG: one shot, two files.
        QCOMPARE(curlUpload(hub, nef, hub.password()), 0);
        QVERIFY(QTest::qWaitFor([&] { return hub.received() == 2; }, 5000));
        QCOMPARE(hub.lastName(), QStringLiteral("DSC_0001.NEF"));
        QCOMPARE(b.state.photos().size(), 2);
        shot = b.shot("DSC_0001.NEF");
        QVERIFY(shot);
        QCOMPARE(shot->files().size(), 2);
        QVERIFY(shot->isNew());
        // The "new only" filter shows just the arrival.
        PhotoFilter f = b.state.filter();
        f.newOnly = true;
        b.state.setFilter(f);
        QCOMPARE(b.state.visible().size(), 1);
        QCOMPARE(b.state.visible().first()->name(), QStringLiteral("DSC_0001.NEF"));

        QStringList seen;
        for (const QList<QVariant> &args : std::as_const(statuses))
            seen << args.first().toString();
        QCOMPARE(seen, QStringList({"Abriendo el servidor FTP…",
                                    QStringLiteral("Esperando a la cámara en el puerto %1.").arg(hub.listeningPort()),
                                    "Cámara conectada desde 127.0.0.1.", "Recibida DSC_0001.JPG.",
                                    "Cámara conectada desde 127.0.0.1.", "Recibida DSC_0001.NEF."}));
        hub.setWifiOn(false);
        QCOMPARE(hub.wifiStatus(), QStringLiteral("Wifi apagado."));
        QVERIFY(curlUpload(hub, jpg, hub.password()) != 0);
    }

    void anotherDestinationLeavesTheBrowserAlone()
    {
        QTemporaryDir open, dest, src;
        Browser b;
        QVERIFY(b.open(open.path()));
        CameraHub &hub = b.session.cameraHub();
        QVERIFY(receiveInto(hub, dest.path()));
        QCOMPARE(curlUpload(hub, TestEnv::touch(src.filePath("A.JPG"), jpegBytes('a')), hub.password()), 0);
        QVERIFY(QTest::qWaitFor([&] { return hub.received() == 1; }, 5000));
        QVERIFY(QFile::exists(dest.filePath("A.JPG")));
        QVERIFY(b.state.photos().isEmpty());
        // Moving the destination while on restarts the receiver there.
        QTemporaryDir other;
        hub.setDestination(other.path());
        QVERIFY(waitForStatus(hub, "Esperando"));
        QCOMPARE(curlUpload(hub, src.filePath("A.JPG"), hub.password()), 0);
        QVERIFY(QTest::qWaitFor([&] { return hub.received() == 2; }, 5000));
        QVERIFY(QFile::exists(other.filePath("A.JPG")));
    }

    void aNewPasswordTakesOverAtOnce()
    {
        QTemporaryDir dest, src;
        CameraHub hub;
        QVERIFY(receiveInto(hub, dest.path()));
        const QString old = hub.password();
        const QString file = TestEnv::touch(src.filePath("A.JPG"), jpegBytes('a'));
        QCOMPARE(curlUpload(hub, file, old), 0);
        // No event loop has run since: the file's news reaches the hub after the restart below,
        // and counts all the same.

        QSignalSpy changed(&hub, &CameraHub::changed);
        hub.renewPassword();
        QVERIFY(changed.count() > 0);
        QVERIFY(hub.password() != old);
        QCOMPARE(hub.password().size(), 10);
        QCOMPARE(QSettings().value("cam.ftpPassword").toString(), hub.password());
        QVERIFY(hub.wifiOn());
        QVERIFY(waitForStatus(hub, "Esperando"));
        // The old one is refused by the restarted server, the new one is taken.
        const QString second = TestEnv::touch(src.filePath("B.JPG"), jpegBytes('b'));
        QVERIFY(curlUpload(hub, second, old) != 0);
        QCOMPARE(curlUpload(hub, second, hub.password()), 0);
        QTRY_COMPARE(hub.received(), 2);
    }

    void warningsAndFailuresBecomeTheStatus()
    {
        QTemporaryDir dest, src;
        CameraHub hub;
        QVERIFY(receiveInto(hub, dest.path()));
        const QString file = TestEnv::touch(src.filePath("A.JPG"), jpegBytes('a'));
        for (int i = 0; i < 3; ++i)
            QVERIFY(curlUpload(hub, file, "wrong") != 0);
        QVERIFY(waitForStatus(hub, "Contraseña incorrecta varias veces desde 127.0.0.1."));
        QCOMPARE(hub.received(), 0);

        // A port another program holds.
        QTcpServer holder;
        QVERIFY(holder.listen(QHostAddress::Any, 0));
        CameraHub second;
        second.setDestination(dest.path());
        second.setPort(holder.serverPort(), false);
        second.setWifiOn(true);
        QVERIFY(waitForStatus(second, "El puerto"));
        QCOMPARE(second.wifiStatus(), QStringLiteral("El puerto %1 está ocupado por otra app. Prueba con otro (p. ej. 2121) y ponlo también en la cámara.").arg(holder.serverPort()));
        QVERIFY(!second.wifiOn());
    }
};

QTEST_GUILESS_MAIN(TestCameraHub)
#include "tst_camerahub.moc"
