// The "Cámara" window as a photographer uses it: open it from the main window, switch wifi on,
// let a camera (curl) send a shot, and watch the window and the grid's folder take it in.
#include "camerabrowser.h"
#include "testenv.h"

#include "app/camerawindow.h"
#include "app/mainwindow.h"
#include "camera/camerahub.h"
#include "camera/ftplimits.h"

#include <QAction>
#include <QApplication>
#include <QCheckBox>
#include <QClipboard>
#include <QLabel>
#include <QMessageBox>
#include <QProcess>
#include <QPushButton>
#include <QSettings>
#include <QSignalSpy>
#include <QSpinBox>
#include <QtTest>

using CameraTest::Browser;
using CameraTest::jpegBytes;

namespace {
// Clicks `button` on the question box that is about to come up; `text` gets the button's text.
void answer(QMessageBox::StandardButton button, QString *text = nullptr)
{
    auto *poll = new QTimer;
    poll->setInterval(10);
    QObject::connect(poll, &QTimer::timeout, poll, [poll, button, text] {
        if (auto *box = qobject_cast<QMessageBox *>(QApplication::activeModalWidget())) {
            poll->deleteLater();
            if (text)
                *text = box->button(button)->text();
            box->button(button)->click();
        }
    });
    poll->start();
}
} // namespace

class TestCameraWindow : public QObject
{
    Q_OBJECT
private slots:
    void initTestCase() { TestEnv::isolate(); }
    void cleanup() { QSettings().clear(); }

    void openedFromTheMainWindow()
    {
        QTemporaryDir folder;
        Browser b;
        QVERIFY(b.open(folder.path()));
        MainWindow window(b.session);
        window.show();
        QAction *camera = window.action("camera");
        QVERIFY(camera);
        QVERIFY(camera->isEnabled());
        QCOMPARE(camera->text(), QStringLiteral("Cámara…"));
        camera->trigger();
        auto *cw = window.findChild<CameraWindow *>();
        QVERIFY(cw);
        QVERIFY(cw->isVisible());
        QCOMPARE(cw->windowTitle(), QStringLiteral("Cámara"));
        // Ready to be typed into the camera: user, a password, the open folder as destination.
        QCOMPARE(cw->findChild<QLabel *>("user")->text(), QStringLiteral("corvane"));
        QCOMPARE(cw->passwordLabel()->text().size(), 10);
        QCOMPARE(cw->destinationLabel()->text(), folder.path());
        QCOMPARE(cw->findChild<QSpinBox *>("port")->value(), 21);
        QVERIFY(cw->findChild<QLabel *>("portHint")->isVisible());
        QVERIFY(!cw->findChild<QLabel *>("passwordRenewed")->isVisible());
        QVERIFY(!cw->wifiSwitch()->isChecked());
        QCOMPARE(cw->statusLabel()->text(), QStringLiteral("Wifi apagado."));
        // Closing it and opening it again shows the same window.
        cw->close();
        camera->trigger();
        QCOMPARE(window.findChildren<CameraWindow *>().size(), 1);
        QVERIFY(cw->isVisible());
    }

    void receivesAShotIntoTheOpenFolder()
    {
        QSettings().setValue("cam.ftpPassword", "short");
        QTemporaryDir folder, src;
        Browser b;
        QVERIFY(b.open(folder.path()));
        CameraHub &hub = b.session.cameraHub();
        hub.setListenAddress(QHostAddress::LocalHost);
        hub.setPort(0, false);
        CameraWindow cw(hub, b.state);
        cw.show();
        QVERIFY(QTest::qWaitForWindowExposed(&cw));
        // A short password from before was replaced, and the window says so.
        QVERIFY(cw.findChild<QLabel *>("passwordRenewed")->isVisible());
        QCOMPARE(cw.findChild<QLabel *>("passwordRenewed")->text(),
                 QStringLiteral("Por seguridad, la contraseña es nueva y más larga: ponla otra vez en el menú FTP de la cámara."));

        cw.copyButton()->click();
        QCOMPARE(QGuiApplication::clipboard()->text(), hub.password());
        QCOMPARE(cw.passwordLabel()->text(), hub.password());

        QTest::mouseClick(cw.wifiSwitch(), Qt::LeftButton, {}, QPoint(8, cw.wifiSwitch()->height() / 2));
        QVERIFY(cw.wifiSwitch()->isChecked());
        QVERIFY(QTest::qWaitFor([&] { return cw.statusLabel()->text().startsWith("Esperando a la cámara"); }, 10000));
        QCOMPARE(cw.statusLabel()->text(), QStringLiteral("Esperando a la cámara en el puerto %1.").arg(hub.listeningPort()));
        QCOMPARE(cw.receivedLabel()->text(), QStringLiteral("0"));

        const QString shot = TestEnv::touch(src.filePath("DSC_4821.JPG"), jpegBytes('s'));
        const QString url = QStringLiteral("ftp://corvane:%1@127.0.0.1:%2/").arg(cw.passwordLabel()->text()).arg(hub.listeningPort());
        QCOMPARE(QProcess::execute("curl", {"-sS", "-T", shot, url}), 0);
        QVERIFY(QTest::qWaitFor([&] { return cw.receivedLabel()->text() == "1"; }, 5000));
        QCOMPARE(cw.lastNameLabel()->text(), QStringLiteral("DSC_4821.JPG"));
        QCOMPARE(cw.statusLabel()->text(), QStringLiteral("Recibida DSC_4821.JPG."));
        QCOMPARE(b.state.photos().size(), 1);   // in the open folder (marked new: the hub's test)
        // The destination is the open folder: nothing to open.
        QVERIFY(!cw.openInBrowserButton()->isEnabled());

        QTest::mouseClick(cw.wifiSwitch(), Qt::LeftButton, {}, QPoint(8, cw.wifiSwitch()->height() / 2));
        QVERIFY(!hub.wifiOn());
        QCOMPARE(cw.statusLabel()->text(), QStringLiteral("Wifi apagado."));
    }

    void refusalsQuittingAndTheNextStart()
    {
        QTemporaryDir open, dest, src;
        QSettings().setValue("cam.ftpPort", 0);
        {
            Browser b;
            QVERIFY(b.open(open.path()));
            MainWindow window(b.session);
            window.show();
            CameraHub &hub = b.session.cameraHub();
            hub.setListenAddress(QHostAddress::LocalHost);
            hub.setDestination(dest.path());
            window.action("camera")->trigger();
            auto *cw = window.findChild<CameraWindow *>();
            QVERIFY(!cw->refusedLabel()->isVisible());
            cw->wifiSwitch()->click();
            QVERIFY(QTest::qWaitFor([&] { return cw->statusLabel()->text().startsWith("Esperando a la cámara"); }, 10000));
            // A cut shot is refused, and the window says which one and why.
            QByteArray cut = jpegBytes('c');
            cut.chop(100);
            const QString shot = TestEnv::touch(src.filePath("DSC_0002.JPG"), cut);
            const QString url = QStringLiteral("ftp://corvane:%1@127.0.0.1:%2/").arg(hub.password()).arg(hub.listeningPort());
            QVERIFY(QProcess::execute("curl", {"-sS", "-T", shot, url}) != 0);
            QTRY_COMPARE(cw->refusedLabel()->text(), QStringLiteral("Rechazadas: 1 · DSC_0002.JPG: imagen incompleta"));
            QVERIFY(cw->refusedLabel()->isVisible());
            QCOMPARE(cw->receivedLabel()->text(), QStringLiteral("0"));
            // Quitting while receiving asks first; "No" keeps Corvane and the reception.
            QString stay, leave;
            answer(QMessageBox::No, &stay);
            QVERIFY(!window.close());
            QVERIFY(hub.wifiOn());
            answer(QMessageBox::Yes, &leave);
            QVERIFY(window.close());
            QCOMPARE(stay, QStringLiteral("Seguir recibiendo"));
            QCOMPARE(leave, QStringLiteral("Salir"));
        }
        // The next start receives again, into the same folder.
        Browser b;
        QVERIFY(b.open(open.path()));
        MainWindow window(b.session);
        QVERIFY(b.session.hasCameraHub());
        QCOMPARE(b.session.cameraHub().destination(), dest.path());
        window.action("camera")->trigger();
        auto *cw = window.findChild<CameraWindow *>();
        QVERIFY(cw->wifiSwitch()->isChecked());
        QVERIFY(QTest::qWaitFor([&] { return cw->statusLabel()->text().startsWith("Esperando a la cámara"); }, 10000));
        // Switched off, it stays off next time.
        cw->wifiSwitch()->click();
        QVERIFY(!QSettings().value("cam.wifiOn").toBool());
    }

    void anotherDestinationCanBeOpenedInTheBrowser()
    {
        QTemporaryDir open, dest;
        Browser b;
        QVERIFY(b.open(open.path()));
        CameraHub &hub = b.session.cameraHub();
        CameraWindow cw(hub, b.state);
        cw.show();
        hub.setDestination(dest.path());
        QCOMPARE(cw.destinationLabel()->text(), dest.path());
        auto *useOpen = cw.findChild<QPushButton *>("useOpenFolder");
        QVERIFY(useOpen->isEnabled());
        QVERIFY(cw.openInBrowserButton()->isEnabled());
        QSignalSpy loaded(&b.state, &AppState::loaded);
        cw.openInBrowserButton()->click();
        QVERIFY(loaded.wait(5000));
        QCOMPARE(b.state.folder(), dest.path());
        QVERIFY(!cw.openInBrowserButton()->isEnabled());
        QVERIFY(!useOpen->isEnabled());
        // Changing the port in the window keeps it for next time.
        auto *port = cw.findChild<QSpinBox *>("port");
        port->setValue(2121);
        QCOMPARE(hub.port(), 2121);
        QCOMPARE(QSettings().value("cam.ftpPort").toInt(), 2121);
        QVERIFY(!cw.findChild<QLabel *>("portHint")->isVisible());
    }
};

QTEST_MAIN(TestCameraWindow)
#include "tst_camerawindow.moc"
