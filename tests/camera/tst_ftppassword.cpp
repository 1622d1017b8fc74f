// The camera's password: its alphabet and length, and when a stored one is kept or replaced.
#include "camera/ftppassword.h"
#include "testenv.h"

#include <QSettings>
#include <QtTest>

class TestFTPPassword : public QObject
{
    Q_OBJECT
private slots:
    void initTestCase() { TestEnv::isolate(); }

    void drawnFromTheAlphabet()
    {
        // Characters that read alike on a camera's screen are left out.
        const QString alphabet = QString::fromLatin1(FTPPassword::kAlphabet);
        for (QChar c : QStringLiteral("ilo01"))
            QVERIFY(!alphabet.contains(c));
        QSet<QString> seen;
        for (int i = 0; i < 2000; ++i) {
            const QString p = FTPPassword::generate();
            QCOMPARE(p.size(), 10);
            seen.insert(p);
            for (QChar c : p)
                QVERIFY(alphabet.contains(c));
        }
        QCOMPARE(seen.size(), 2000);
    }

    void storedKeptOrRenewed()
    {
        QSettings settings;
        settings.remove("cam.ftpPassword");
        const auto first = FTPPassword::load(settings);
        QCOMPARE(first.password.size(), 10);
        QVERIFY(!first.renewed);   // nothing stored before: new, not renewed
        QCOMPARE(QSettings().value("cam.ftpPassword").toString(), first.password);
        QCOMPARE(FTPPassword::load(settings).password, first.password);

        settings.setValue("cam.ftpPassword", "abc123");   // a short one from an old version
        const auto renewed = FTPPassword::load(settings);
        QVERIFY(renewed.renewed);
        QCOMPARE(renewed.password.size(), 10);
        QVERIFY(renewed.password != "abc123");
        QCOMPARE(QSettings().value("cam.ftpPassword").toString(), renewed.password);

        settings.setValue("cam.ftpPassword", "my-own-long-password");
        const auto own = FTPPassword::load(settings);
        QCOMPARE(own.password, QStringLiteral("my-own-long-password"));
        QVERIFY(!own.renewed);
    }
};

QTEST_GUILESS_MAIN(TestFTPPassword)
#include "tst_ftppassword.moc"
