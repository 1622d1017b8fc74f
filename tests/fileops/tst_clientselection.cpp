// Reading a client's message of picks and finding the shots it names.
#include "fileops/clientselection.h"
#include "model/filenumber.h"
#include "clientpickrules.h"

#include <QtTest>

using namespace ClientSelection;

namespace {
QStringList numbers(int from, int to)
{
    QStringList out;
    for (int n = from; n <= to; ++n)
        out << QString::number(n);
    return out;
}

} // namespace

class TestClientSelection : public QObject
{
    Q_OBJECT
private slots:
    void tokens_data()
    {
        QTest::addColumn<QString>("message");
        QTest::addColumn<QStringList>("tokens");
        QTest::newRow("range") << "600-605" << numbers(600, 605);
        QTest::newRow("en dash with spaces") << "600 \u2013 605" << numbers(600, 605);
        QTest::newRow("leading zeros dropped") << "0600-0605" << numbers(600, 605);
        QTest::newRow("reversed: one token") << "605-600" << QStringList{"605-600"};
        QTest::newRow("span 399: one token") << "1-400" << QStringList{"1-400"};
        QTest::newRow("span 300 taken") << "1-301" << numbers(1, 301);
        QTest::newRow("reversed en dash: two") << "605\u2013600" << QStringList{"605", "600"};
        QTest::newRow("too long with spaces: two") << "1 - 400" << QStringList{"1", "400"};
        QTest::newRow("equal ends") << "7-7" << QStringList{"7-7"};
        QTest::newRow("glued to letters") << "x600-605" << QStringList{"x600-605"};
        QTest::newRow("seven digits") << "1234567-1234568" << QStringList{"1234567-1234568"};
        QTest::newRow("extension") << "DSC_0533.NEF" << QStringList{"dsc_0533"};
        QTest::newRow("trimmed") << "_0412-" << QStringList{"0412"};
        QTest::newRow("repeat listed once") << "415, 415 y 0415" << QStringList{"415", "0415"};
        QTest::newRow("ranges first, no repeats") << "415 y 603-607, 600-605 y 600"
                                                  << numbers(603, 607) + QStringList{"600", "601", "602", "415"};
        QTest::newRow("rest of a chain") << "600-605-610" << numbers(600, 605) + QStringList{"610"};
        QTest::newRow("the client's message")
            << "Hola! Me quedo con la 0412, 415, 433,\nDSC_0533 y de la 600 a la 605"
            << QStringList{"0412", "415", "433", "dsc_0533", "600", "605"};
        QTest::newRow("no digits") << "Hola, ¿qué tal? Todas preciosas." << QStringList{};
        QTest::newRow("accents split") << "fotó12ñ3" << QStringList{"12", "3"};
        QTest::newRow("other digits are not numbers") << "\u0663\u0664 \uff15" << QStringList{};
    }
    void tokens()
    {
        QFETCH(QString, message);
        QFETCH(QStringList, tokens);
        QCOMPARE(extractTokens(message), tokens);
    }

    // Every message of up to five characters over an alphabet that exercises both patterns.
    void scannersAgreeWithTheRegularExpressions()
    {
        const QString alphabet = QStringLiteral("07-\u2013 a_.\t");
        const int n = int(alphabet.size());
        int checked = 0;
        for (int length = 1; length <= 5; ++length) {
            int total = 1;
            for (int i = 0; i < length; ++i)
                total *= n;
            for (int code = 0; code < total; ++code) {
                QString s;
                for (int i = 0, c = code; i < length; ++i, c /= n)
                    s += alphabet[c % n];
                const QStringList expected = tokensByRegularExpressions(s);
                if (extractTokens(s) != expected)
                    QFAIL(qPrintable(QStringLiteral("«%1»: %2 instead of %3")
                                         .arg(s, extractTokens(s).join('|'), expected.join('|'))));
                ++checked;
            }
        }
        QVERIFY(checked > 60000);
        for (const QString s : {"1 -\n 300", "999999-999999x", "12345-12346_", "a-1-2", "1\v-\f2 3\r\u20134",
                                "000001-000003", "5-1 5-9", "123456-123457", "1234567-2"})
            QCOMPARE(extractTokens(s), tokensByRegularExpressions(s));
    }

    // Hostile messages cost time in proportion to their length, never its square.
    void workStaysProportional_data()
    {
        QTest::addColumn<QString>("message");
        QTest::newRow("letters") << QString(1 << 20, QLatin1Char('a'));
        QTest::newRow("spaces after a number") << "1" + QString(1 << 20, QLatin1Char(' ')) + "-x";
        QTest::newRow("widest ranges") << QStringLiteral("0-300 ").repeated(1 << 17);
        QString many;
        for (int n = 0; n < 100000; ++n)
            many += QString::number(n * 7) + QStringLiteral(", ");
        QTest::newRow("100000 numbers") << many;
    }
    void workStaysProportional()
    {
        QFETCH(QString, message);
        Work work;
        const QStringList tokens = extractTokens(message, &work);
        QVERIFY(work.steps <= 70 * (message.size() + 1));
        QVERIFY(tokens.size() <= message.size());
    }

    void numberOfAName_data()
    {
        QTest::addColumn<QString>("name");
        QTest::addColumn<int>("number");   // -1: none
        QTest::newRow("camera name") << "DSC_0533" << 533;
        QTest::newRow("plain") << "533" << 533;
        QTest::newRow("leading zero") << "0533" << 533;
        QTest::newRow("last run") << "IMG_20240518_0012" << 12;
        QTest::newRow("last nine digits") << "foto123456789012" << 456789012;
        QTest::newRow("refused range") << "605-600" << 600;
        QTest::newRow("zeros") << "_DSF0000" << 0;
        QTest::newRow("letters after") << "DSC_0412a" << 412;
        QTest::newRow("no digits") << "portada" << -1;
        QTest::newRow("other digits") << "foto\u0663" << -1;
    }
    void numberOfAName()
    {
        QFETCH(QString, name);
        QFETCH(int, number);
        QCOMPARE(fileNumber(name).value_or(-1), number);
    }

    // Two bodies at one wedding share numbers; names, extensions and spellings find the shots.
    void tokensDesignateShots()
    {
        const QUuid dsc412 = QUuid::createUuid(), dsf412 = QUuid::createUuid(), dsc533 = QUuid::createUuid(),
                    img600 = QUuid::createUuid(), cover = QUuid::createUuid();
        const PhotoIndex index({{dsc412, "/boda/DSC_0412.NEF"},
                                {dsf412, "/boda/_DSF0412.RAF"},
                                {dsc533, "/boda/DSC_0533.NEF"},
                                {img600, "/boda/IMG_0600.JPG"},
                                {cover, "/boda/portada.jpg"}});
        const QList<ClientMatch> lines = match(extractTokens(u"0412, DSC_0412.NEF, 412, DSC_0533.NEF 600-601 portada"), index);
        QStringList tokens;
        for (const ClientMatch &m : lines)
            tokens << m.token;
        QCOMPARE(tokens, (QStringList{"600", "601", "0412", "dsc_0412", "412", "dsc_0533", }));
        QCOMPARE(lines[0].photos, QList<QUuid>{img600});
        QVERIFY(lines[1].photos.isEmpty());
        QCOMPARE(QSet<QUuid>(lines[2].photos.cbegin(), lines[2].photos.cend()), (QSet<QUuid>{dsc412, dsf412}));
        QCOMPARE(lines[3].photos, QList<QUuid>{dsc412});   // the name beats the number
        QCOMPARE(lines[4].photos, lines[2].photos);
        QCOMPARE(lines[5].photos, QList<QUuid>{dsc533});
        QCOMPARE(missingTokens(lines), QStringList{"601"});
        for (const ClientMatch &m : lines)
            QVERIFY(m.include);

        QCOMPARE(chosenPhotos(lines).size(), 4);
        QList<ClientMatch> some = lines;
        some[2].include = some[4].include = false;
        QCOMPARE(chosenPhotos(some), (QList<QUuid>{img600, dsc412, dsc533}));
        QCOMPARE(chosenPhotos(lines, {dsf412, img600}), (QList<QUuid>{dsc412, dsc533}));
    }
};

QTEST_GUILESS_MAIN(TestClientSelection)
#include "tst_clientselection.moc"
