// Sending from the window, offscreen, to a real vsftpd: a server set up and checked on its page,
// then "Enviar" with the flagged shots, only the JPEG of each pair, resized, the IPTC kept, and
// the queue panel that shows the job to its end.
#include "testenv.h"
#include "testimages.h"
#include "testwindow.h"
#include "vsftpdserver.h"

#include "app/serverspage.h"
#include "app/uploadqueuepanel.h"
#include "app/uploadsheet.h"
#include "app/uploadwindows.h"
#include "browser/uploadcenter.h"
#include "upload/secretstore.h"
#include "upload/uploadservers.h"

#include <QCheckBox>
#include <QComboBox>
#include <QLabel>
#include <QLineEdit>
#include <QListWidget>
#include <QPushButton>
#include <QRadioButton>
#include <QSpinBox>
#include <QTreeWidget>
#include <QtTest>

class TestUploadWindow : public QObject
{
    Q_OBJECT
private slots:
    void initTestCase()
    {
        qputenv("CORVANE_NO_SECRET_STORE", "1");
        TestEnv::isolate();
    }

    void serverSetUpAndChecked()
    {
        QTemporaryDir dir;
        VsftpdServer ftp;
        if (!ftp.start(dir.path()))
            QSKIP("vsftpd needs root and the ftp user");
        ServersPage page;
        page.nameEdit()->setText(QStringLiteral("Agencia"));
        page.hostEdit()->setText(QStringLiteral("127.0.0.1"));
        page.portSpin()->setValue(ftp.port);
        page.folderEdit()->setText(QStringLiteral("up"));
        page.passwordEdit()->setText(QStringLiteral("s3creta"));
        page.saveButton()->click();
        QCOMPARE(page.list()->count(), 1);
        const QList<UploadServer> servers = UploadServers::all();
        QCOMPARE(servers.size(), 1);
        QCOMPARE(servers[0].name, QStringLiteral("Agencia"));
        // No secret store answers here: the password is in the settings file, and the page says so.
        QCOMPARE(SecretStore::password(servers[0].id), QStringLiteral("s3creta"));
        QVERIFY(page.warningLabel()->text().contains(QStringLiteral("sin cifrar")));

        page.checkButton()->click();
        QTRY_COMPARE_WITH_TIMEOUT(page.checkLabel()->text(), QStringLiteral("Conexión correcta."), 10000);
        page.folderEdit()->setText(QStringLiteral("no/existe"));
        page.checkButton()->click();
        QTRY_COMPARE_WITH_TIMEOUT(page.checkLabel()->text(),
                                  QStringLiteral("la carpeta no existe (se creará al enviar) o no tienes permiso"), 10000);
        QVERIFY(page.trustButton()->isHidden());
        UploadServers::remove(servers[0].id);
    }

    void selfSignedCertificateOffersTrust()
    {
        QTemporaryDir dir;
        VsftpdServer ftp;
        VsftpdServer::Options o;
        o.tls = VsftpdServer::Tls::explicitTls;
        if (!ftp.start(dir.path(), o))
            QSKIP("vsftpd needs root and the ftp user");
        ServersPage page;
        page.hostEdit()->setText(QStringLiteral("127.0.0.1"));
        page.portSpin()->setValue(ftp.port);
        page.securityCombo()->setCurrentIndex(1);
        page.checkButton()->click();
        QTRY_VERIFY_WITH_TIMEOUT(page.checkLabel()->text().startsWith(QStringLiteral("el certificado del servidor no es válido")), 10000);
        QVERIFY(!page.trustButton()->isHidden());
    }

    void sendsFlaggedJpegsResized()
    {
        QTemporaryDir dir;
        VsftpdServer ftp;
        if (!ftp.start(dir.path() + "/ftp"))
            QSKIP("vsftpd needs root and the ftp user");
        UploadServer server;
        server.name = QStringLiteral("Periódico");
        server.host = QStringLiteral("127.0.0.1");
        server.port = ftp.port;
        server.folder = QStringLiteral("up/hoy");
        UploadServers::save(server);

        const QString folder = dir.path() + "/shoot";
        TestImages::writeJpeg(folder + "/a.jpg", 3000, 2000, Qt::red);
        TestEnv::touch(folder + "/a.nef", QByteArray(5000, 'r'));
        TestImages::writeJpeg(folder + "/b.jpg", 1200, 800, Qt::blue);
        QCOMPARE(QProcess::execute(QStringLiteral("exiv2"), {QStringLiteral("-M"), QStringLiteral("set Iptc.Application2.Caption String Gol en el minuto 90"),
                                                             folder + "/a.jpg"}),
                 0);

        WindowSession w(folder);
        auto *windows = w.window.findChild<UploadWindows *>();
        QVERIFY(windows);
        w.state.setCurrentIndex(0);   // a
        w.state.toggleTag();
        w.window.action(QStringLiteral("send"))->trigger();
        UploadSheet *sheet = windows->sheet();
        QVERIFY(sheet && sheet->isVisible());
        sheet->flaggedRadio()->setChecked(true);
        QVERIFY(sheet->jpegOnlyBox()->isChecked());
        sheet->resizeBox()->setChecked(true);
        sheet->longSideSpin()->setValue(1000);
        sheet->sendButton()->click();

        UploadQueuePanel *panel = windows->panel();
        QVERIFY(panel && panel->isVisible());
        QTRY_VERIFY_WITH_TIMEOUT(panel->rowText(0).contains(QStringLiteral("Enviado")), 20000);
        QCOMPARE(panel->rowText(0).left(9), QStringLiteral("Periódico"));
        QCOMPARE(QDir(ftp.upload + "/hoy").entryList(QDir::Files), QStringList{"a.jpg"});
        const QImage sent(ftp.upload + "/hoy/a.jpg");
        QCOMPARE(sent.size(), QSize(1000, 667));
        QProcess exiv2;
        exiv2.start(QStringLiteral("exiv2"), {QStringLiteral("-pi"), ftp.upload + "/hoy/a.jpg"});
        exiv2.waitForFinished();
        QVERIFY(exiv2.readAllStandardOutput().contains("Gol en el minuto 90"));
        panel->clearButton()->click();
        QCOMPARE(panel->tree()->topLevelItemCount(), 0);
    }
};

QTEST_MAIN(TestUploadWindow)
#include "tst_uploadwindow.moc"
