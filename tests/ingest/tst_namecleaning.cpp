// Name cleaning: what user and camera text may bring into a file name, and the 200-byte limit.
#include "ingest/namecleaning.h"

#include <QtTest>

class TestNameCleaning : public QObject
{
    Q_OBJECT
private slots:
    void component_data()
    {
        QTest::addColumn<QString>("in");
        QTest::addColumn<QString>("out");
        QTest::newRow("plain") << "Boda Marta" << "Boda Marta";
        QTest::newRow("slash and colon") << "a/b:c" << "a-b-c";
        QTest::newRow("controls") << QStringLiteral("a\x01" "b\tc\nd\x7f" "e") << "abcde";
        QTest::newRow("direction marks") << QString::fromUtf8("a\u200Eb\u200Fc") << "abc";
        QTest::newRow("overrides") << QString::fromUtf8("x\u202Egpj.exe") << "xgpj.exe";
        QTest::newRow("embeddings") << QString::fromUtf8("\u202A\u202B\u202C\u202Dz") << "z";
        QTest::newRow("isolates") << QString::fromUtf8("\u2066a\u2067b\u2068c\u2069") << "abc";
        QTest::newRow("accents and punctuation kept") << QString::fromUtf8("Peña «Ñandú» ¡sí!") << QString::fromUtf8("Peña «Ñandú» ¡sí!");
        QTest::newRow("emoji kept") << QString::fromUtf8("🎉 fiesta") << QString::fromUtf8("🎉 fiesta");
        QTest::newRow("trimmed") << QString::fromUtf8(" \u00A0 a b \u3000") << "a b";
        QTest::newRow("leading dots stay") << ".x" << ".x";
        QTest::newRow("only spaces") << "   " << "";
        QTest::newRow("lone surrogate dropped") << (QString("a") + QChar(0xD800) + "b") << "ab";
    }
    void component()
    {
        QFETCH(QString, in);
        QFETCH(QString, out);
        QCOMPARE(NameCleaning::component(in), out);
    }

    void name_data()
    {
        QTest::addColumn<QString>("in");
        QTest::addColumn<QString>("out");
        QTest::newRow("hidden") << ".hidden" << "hidden";
        QTest::newRow("two dots") << "..x" << "x";
        QTest::newRow("only dots") << "..." << "";
        QTest::newRow("dots after a space") << " ..x" << "x";
        QTest::newRow("dot space dot") << ". .x" << "x";
        QTest::newRow("inner dots stay") << "a.b.c" << "a.b.c";
        QTest::newRow("climbing out") << "../../etc/passwd" << "-..-etc-passwd";
    }
    void name()
    {
        QFETCH(QString, in);
        QFETCH(QString, out);
        QCOMPARE(NameCleaning::name(in), out);
    }

    void cutsAt200BytesOnWholeCharacters()
    {
        QCOMPARE(NameCleaning::name(QString(250, 'a')), QString(200, 'a'));
        QCOMPARE(NameCleaning::name(QString(200, 'a')), QString(200, 'a'));

        // "ñ" is 2 bytes: 100 of them fit.
        const QString enye = QString::fromUtf8("ñ");
        QCOMPARE(NameCleaning::name(enye.repeated(150)), enye.repeated(100));
        // One ASCII byte first: 99 "ñ" fit (199 bytes); the 100th would be cut in half.
        const QString odd = NameCleaning::name("a" + enye.repeated(150));
        QCOMPARE(odd, "a" + enye.repeated(99));
        QCOMPARE(odd.toUtf8().size(), 199);

        // "€" is 3 bytes (66 fit, 198 bytes), an emoji 4 (50 fit, 200 bytes).
        QCOMPARE(NameCleaning::name(QString::fromUtf8("€").repeated(80)).toUtf8().size(), 198);
        const QString party = QString::fromUtf8("🎉");
        QCOMPARE(NameCleaning::name(party.repeated(60)), party.repeated(50));

        // A letter with a combining accent (e + U+0301, 3 bytes) is one character: never split.
        const QString eAcute = QString::fromUtf8("e\u0301");
        const QString cut = NameCleaning::name(eAcute.repeated(70));
        QCOMPARE(cut, eAcute.repeated(66));
        QVERIFY(QString::fromUtf8(cut.toUtf8()) == cut);   // valid UTF-8 all the way

        // The limit counts after cleaning: controls don't use up room.
        QCOMPARE(NameCleaning::name(QString(100, QChar(0x01)) + QString(200, 'b')), QString(200, 'b'));
    }
};

QTEST_GUILESS_MAIN(TestNameCleaning)
#include "tst_namecleaning.moc"
