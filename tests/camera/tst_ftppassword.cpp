// The camera's password: its alphabet and length, how evenly it is drawn, and when a stored one
// is kept or replaced.
#include "camera/ftppassword.h"
#include "testenv.h"

#include <QSettings>
#include <QtTest>

class TestFTPPassword : public QObject
{
    Q_OBJECT
private slots:
    void initTestCase() { TestEnv::isolate(); }

    void drawnEvenlyFromTheAlphabet()
    {
        const QString alphabet = QString::fromLatin1(FTPPassword::kAlphabet);
        QCOMPARE(alphabet.size(), 31);
        for (QChar c : QStringLiteral("ilo01"))
            QVERIFY(!alphabet.contains(c));
        QHash<QChar, int> counts;
        QSet<QString> seen;
        for (int i = 0; i < 62000; ++i) {
            const QString p = FTPPassword::generate();
            QCOMPARE(p.size(), 10);
            seen.insert(p);
            for (QChar c : p) {
                QVERIFY(alphabet.contains(c));
                ++counts[c];
            }
        }
        QCOMPARE(seen.size(), 62000);
        // 620,000 characters: 20,000 expected of each (standard deviation 141). A byte taken
        // modulo 31 would give the first eight characters about 21,800 and the rest 19,370.
        QCOMPARE(counts.size(), 31);
        for (auto it = counts.cbegin(); it != counts.cend(); ++it)
            QVERIFY2(qAbs(it.value() - 20000) < 900, qPrintable(QStringLiteral("%1: %2").arg(it.key()).arg(it.value())));
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
        QCOMPARE(FTPPassword::renewalNotice(),
                 QStringLiteral("Por seguridad, la contraseña es nueva y más larga: ponla otra vez en el menú FTP de la cámara."));
    }
};

QTEST_GUILESS_MAIN(TestFTPPassword)
#include "tst_ftppassword.moc"
