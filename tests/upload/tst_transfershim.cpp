// The transfer functions against real servers: vsftpd on a loopback port (plain and FTPS with a
// self-signed certificate) and Corvane's own receiver (a password that is checked).
#include "testenv.h"
#include "vsftpdserver.h"

#include "camera/ftpreceiver.h"
#include "upload/transfershim.h"
#include "upload/uploadtexts.h"

#include <QtTest>

namespace {

// The receiver's defaults, but any free space will do for a test.
FTPLimits roomyLimits()
{
    FTPLimits l;
    l.minFreeSpace = 0;
    return l;
}

QByteArray pattern(qint64 size)
{
    QByteArray b(size, Qt::Uninitialized);
    for (qint64 i = 0; i < size; ++i)
        b[i] = char((i * 7 + i / 251) & 0xff);
    return b;
}

struct Call {
    int code;
    QString text;
};

Call upload(const QByteArray &url, const QByteArray &bytes, const char *temp, const char *final, int tls = 0,
            int verify = 1, corvane_progress_fn progress = nullptr, void *context = nullptr, const char *user = "",
            const char *password = "")
{
    char error[512] = {};
    const int code = corvane_upload(url.constData(), user, password, bytes.constData(), bytes.size(), temp, final,
                                    tls, 1, verify, 5, progress, context, error, sizeof error);
    return {code, QString::fromUtf8(error)};
}

// The pin of a certificate file, as `openssl` computes it (the peer for our own computation).
QByteArray pinOf(const QString &certificate)
{
    QProcess p;
    p.start(QStringLiteral("sh"), {QStringLiteral("-c"),
                                    QStringLiteral("openssl x509 -in '%1' -pubkey -noout | openssl pkey -pubin -outform der"
                                                   " | openssl dgst -sha256 -binary | base64")
                                        .arg(certificate)});
    p.waitForFinished();
    return "sha256//" + p.readAllStandardOutput().trimmed();
}

} // namespace

class TestTransferShim : public QObject
{
    Q_OBJECT
private slots:
    void initTestCase() { TestEnv::isolate(); }

    // Checked before any connection: the port below is closed, so reaching it would be error 7.
    void namesAreCheckedFirst()
    {
        const QByteArray url = "ftp://127.0.0.1:" + QByteArray::number(VsftpdServer::freePort()) + "/x";
        Call c = upload(url, "abc", ".t", "a\nb");
        QCOMPARE(c.code, -2);
        QCOMPARE(c.text, QStringLiteral("nombre no válido"));
        c = upload(url + "\r", "abc", nullptr, nullptr);
        QCOMPARE(c.code, -2);
        c = upload(url, "abc", QByteArray(1801, 't').constData(), "a");
        QCOMPARE(c.text, QStringLiteral("nombre demasiado largo"));
        c = upload(url, "abc", "t", QByteArray(1801, 'f').constData());
        QCOMPARE(c.code, -2);
        c = upload(url, "abc", QByteArray(1800, 't').constData(), QByteArray(1800, 'f').constData());
        QCOMPARE(c.code, 7);
        QCOMPARE(UploadTexts::forResult(c.code, c.text), QStringLiteral("el servidor no responde en ese puerto"));
        // A one-byte buffer still gets its terminating zero.
        char tiny[1] = {'x'};
        QCOMPARE(corvane_check(url.constData(), "", "", 0, 1, 1, 0, tiny, 1), 7);
        QCOMPARE(tiny[0], '\0');
    }

    void plainFtp()
    {
        QTemporaryDir dir;
        VsftpdServer ftp;
        if (!ftp.start(dir.path()))
            QSKIP("vsftpd needs root and the ftp user");
        const QByteArray bytes = pattern(3'000'000);

        // Under a temporary name, then renamed: byte-identical, nothing else left, progress to the end.
        qint64 last = 0, total = 0;
        struct P { qint64 *last, *total; } p{&last, &total};
        auto progress = [](void *c, int64_t sent, int64_t all) -> int {
            *static_cast<P *>(c)->last = sent;
            *static_cast<P *>(c)->total = all;
            return 0;
        };
        QCOMPARE(upload(ftp.url() + ".tmp-a", bytes, ".tmp-a", "a.jpg", 0, 1, progress, &p).code, 0);
        QCOMPARE(TestEnv::readAll(ftp.upload + "/a.jpg"), bytes);
        QCOMPARE(QDir(ftp.upload).entryList(QDir::Files | QDir::Hidden), QStringList{QStringLiteral("a.jpg")});
        QCOMPARE(last, bytes.size());
        QCOMPARE(total, bytes.size());

        // Without names: straight under the URL's name. Missing folders are made.
        QCOMPARE(upload(ftp.url(QStringLiteral("up/new/deeper")) + "b.jpg", "bee", nullptr, nullptr).code, 0);
        QCOMPARE(TestEnv::readAll(ftp.upload + "/new/deeper/b.jpg"), QByteArray("bee"));

        // The callback cancels: nothing under the final name.
        auto cancel = [](void *, int64_t sent, int64_t) -> int { return sent > 0 ? 1 : 0; };
        Call c = upload(ftp.url() + ".tmp-c", bytes, ".tmp-c", "c.jpg", 0, 1, cancel);
        QCOMPARE(c.code, UploadTexts::kCancelled);
        QVERIFY(!QFile::exists(ftp.upload + "/c.jpg"));

        // A folder that may not be written to, and the check of a good and a missing folder.
        c = upload(ftp.url(QStringLiteral("locked")) + "d.jpg", "dee", nullptr, nullptr);
        QVERIFY2(c.code == 25 || c.code == 9, qPrintable(c.text));
        QVERIFY(UploadTexts::forResult(c.code, c.text).contains(QStringLiteral("permiso")));
        char error[256];
        QCOMPARE(corvane_check(ftp.url().constData(), "", "", 0, 1, 1, 0, error, sizeof error), 0);
        QCOMPARE(corvane_check(ftp.url(QStringLiteral("nothere")).constData(), "", "", 0, 0, 1, 0, error, sizeof error), 9);
        QCOMPARE(UploadTexts::forResult(9, QString::fromUtf8(error)),
                 QStringLiteral("la carpeta no existe (se creará al enviar) o no tienes permiso"));
    }

    void ftpsWithSelfSignedCertificate_data()
    {
        QTest::addColumn<bool>("implicit");
        QTest::newRow("explicit") << false;
        QTest::newRow("implicit") << true;
    }
    void ftpsWithSelfSignedCertificate()
    {
        QFETCH(bool, implicit);
        QTemporaryDir dir;
        VsftpdServer ftp;
        VsftpdServer::Options o;
        o.tls = implicit ? VsftpdServer::Tls::implicitTls : VsftpdServer::Tls::explicitTls;
        if (!ftp.start(dir.path(), o))
            QSKIP("vsftpd needs root and the ftp user");
        const QByteArray url = ftp.url(QStringLiteral("up"), implicit);
        const int tls = implicit ? 0 : 1;

        Call c = upload(url + ".t1", "one", ".t1", "one.jpg", tls, 1);
        QVERIFY2(c.code == 60 || c.code == 35, qPrintable(c.text));
        QVERIFY(UploadTexts::forResult(c.code, c.text).startsWith(QStringLiteral("el certificado del servidor no es válido")));
        QVERIFY(!QFile::exists(ftp.upload + "/one.jpg"));

        QCOMPARE(upload(url + ".t2", "two", ".t2", "two.jpg", tls, 0).code, 0);
        QCOMPARE(TestEnv::readAll(ftp.upload + "/two.jpg"), QByteArray("two"));

        // The key the server shows is the certificate's; pinned, it is accepted with the CA check off.
        TransferShim::Connection conn;
        conn.url = url;
        conn.tlsMode = tls;
        const QByteArray key = TransferShim::serverKey(conn);
        QCOMPARE(key, pinOf(ftp.certificate));
        conn.url = url + ".t3";
        conn.verifyCertificate = false;
        conn.pinnedKey = key;
        QVERIFY(TransferShim::upload(conn, "three", 5, ".t3", "three.jpg", nullptr, nullptr).ok());
        QCOMPARE(TestEnv::readAll(ftp.upload + "/three.jpg"), QByteArray("three"));

        // Another certificate's key: refused, with its own line.
        QTemporaryDir other;
        VsftpdServer second;
        o.certName = QStringLiteral("someone-else");
        QVERIFY(second.start(other.path(), o));
        conn.pinnedKey = pinOf(second.certificate);
        const TransferShim::Outcome refused = TransferShim::upload(conn, "four", 4, ".t4", "four.jpg", nullptr, nullptr);
        QCOMPARE(refused.code, 90);
        QVERIFY(UploadTexts::forResult(refused.code, refused.text).contains(QStringLiteral("no es el que confiaste")));
        QVERIFY(!QFile::exists(ftp.upload + "/four.jpg"));
    }

    void passwordIsChecked()
    {
        QTemporaryDir dir;
        FTPReceiver receiver(dir.path(), QStringLiteral("corvane"), QStringLiteral("k7wq2mxr9z"), 0, roomyLimits(),
                             QHostAddress::LocalHost);
        receiver.onEvent = [](const FTPEvent &) {};
        receiver.start();
        QVERIFY(QTest::qWaitFor([&] { return receiver.port() != 0; }, 5000));
        const QByteArray url = "ftp://127.0.0.1:" + QByteArray::number(receiver.port()) + "/";
        Call c = upload(url + ".t", "abc", ".t", "a.jpg", 0, 1, nullptr, nullptr, "corvane", "wrong");
        QCOMPARE(c.code, 67);
        QCOMPARE(UploadTexts::forResult(c.code, c.text), QStringLiteral("usuario o contraseña incorrectos"));
        char error[256];
        QCOMPARE(corvane_check(url.constData(), "corvane", "k7wq2mxr9z", 0, 1, 1, 0, error, sizeof error), 0);
        receiver.stop();
    }
};

QTEST_GUILESS_MAIN(TestTransferShim)
#include "tst_transfershim.moc"
