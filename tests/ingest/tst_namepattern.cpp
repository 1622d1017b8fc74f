// Naming patterns: every kind, the pattern rendering, the JSON form, the presets and the setting.
#include "ingest/namepattern.h"
#include "ingest/namevalues.h"
#include "ingest/posixdateformatter.h"
#include "testenv.h"

#include <QJsonArray>
#include <QJsonDocument>
#include <QSettings>
#include <QtConcurrent>
#include <QtTest>

using K = NameToken::Kind;

namespace {

NameValues wedding()
{
    NameValues v;
    v.date = QDateTime(QDate(2024, 5, 18), QTime(9, 5, 3));
    v.seq = 7;
    v.digits = 4;
    v.camera = QStringLiteral("NIKON Z 9");
    v.original = QStringLiteral("DSC_0001");
    v.session = QStringLiteral("Boda Marta y Luis");
    v.folder = QStringLiteral("100NIKON");
    return v;
}

NamePattern pattern(std::initializer_list<NameToken> tokens, const QString &separator = QStringLiteral("_"))
{
    NamePattern p;
    p.tokens = tokens;
    p.separator = separator;
    return p;
}

QString piece(const NameToken &t, const NameValues &v, const QString &separator = QStringLiteral("_"))
{
    return t.render(v, separator);
}

} // namespace

class TestNamePattern : public QObject
{
    Q_OBJECT
private slots:
    void initTestCase() { TestEnv::isolate(); }

    void rendersEveryKind()
    {
        const NameValues v = wedding();
        QCOMPARE(piece(NameToken(K::date), v), "20240518");
        QCOMPARE(piece(NameToken(K::date, "yyyy-MM-dd"), v), "2024-05-18");
        QCOMPARE(piece(NameToken(K::time), v), "090503");
        QCOMPARE(piece(NameToken(K::time, "HH.mm"), v), "09.05");
        QCOMPARE(piece(NameToken(K::session), v), "Boda_Marta_y_Luis");
        QCOMPARE(piece(NameToken(K::counter), v), "0007");
        QCOMPARE(piece(NameToken(K::camera), v), "NIKONZ9");
        QCOMPARE(piece(NameToken(K::original), v), "DSC_0001");
        QCOMPARE(piece(NameToken(K::text, {}, "Boda"), v), "Boda");
        QCOMPARE(piece(NameToken(K::folder), v), "100NIKON");
        // Only date and time read the format; only text reads the text.
        QCOMPARE(piece(NameToken(K::counter, "yyyy", "x"), v), "0007");
        QCOMPARE(piece(NameToken(K::session, "yyyy", "x"), v), "Boda_Marta_y_Luis");
        // The original name is not cleaned at this step (the whole name is, later).
        NameValues raw = v;
        raw.original = QStringLiteral(" a:b ");
        QCOMPARE(piece(NameToken(K::original), raw), " a:b ");
        // An invalid date gives nothing rather than a made-up one.
        raw.date = QDateTime();
        QCOMPARE(piece(NameToken(K::date), raw), "");
    }

    void counterWidth_data()
    {
        QTest::addColumn<qint64>("seq");
        QTest::addColumn<qint64>("digits");
        QTest::addColumn<QString>("expected");
        QTest::newRow("negative digits") << qint64(5) << qint64(-3) << "5";
        QTest::newRow("six") << qint64(42) << qint64(6) << "000042";
        QTest::newRow("twelve clamps to eight") << qint64(42) << qint64(12) << "00000042";
        QTest::newRow("wider number printed whole") << qint64(123456789) << qint64(4) << "123456789";
        QTest::newRow("beyond 32 bits") << qint64(9876543210) << qint64(4) << "9876543210";
        QTest::newRow("zero") << qint64(0) << qint64(3) << "000";
    }
    void counterWidth()
    {
        QFETCH(qint64, seq);
        QFETCH(qint64, digits);
        QFETCH(QString, expected);
        NameValues v = wedding();
        v.seq = seq;
        v.digits = digits;
        QCOMPARE(piece(NameToken(K::counter), v), expected);
    }

    void sessionWordsFollowTheSeparator_data()
    {
        QTest::addColumn<QString>("separator");
        QTest::addColumn<QString>("expected");
        QTest::newRow("dash") << "-" << "Boda-Marta";
        QTest::newRow("dot becomes underscore") << "." << "Boda_Marta";
        QTest::newRow("empty becomes underscore") << "" << "Boda_Marta";
        QTest::newRow("space") << " " << "Boda Marta";
        QTest::newRow("long") << "--" << "Boda--Marta";
    }
    void sessionWordsFollowTheSeparator()
    {
        QFETCH(QString, separator);
        QFETCH(QString, expected);
        NameValues v = wedding();
        v.session = QStringLiteral("  Boda   Marta ");
        QCOMPARE(piece(NameToken(K::session), v, separator), expected);
    }

    void cameraAndTextAreCleaned()
    {
        NameValues v = wedding();
        v.camera = QStringLiteral("Canon EOS R5");
        QCOMPARE(piece(NameToken(K::camera), v), "CanonEOSR5");
        v.camera = QStringLiteral(" Canon/EOS:R5\t");
        QCOMPARE(piece(NameToken(K::camera), v), "Canon-EOS-R5");
        v.camera = std::nullopt;
        QCOMPARE(piece(NameToken(K::camera), v), "");
        QCOMPARE(piece(NameToken(K::text, {}, "a/b:c"), v), "a-b-c");
        QCOMPARE(piece(NameToken(K::text, {}, "   "), v), "");
        v.folder = QStringLiteral("  2024/05  ");
        QCOMPARE(piece(NameToken(K::folder), v), "2024-05");
    }

    void rendersWholePatterns()
    {
        const NameValues v = wedding();
        QCOMPARE(NamePattern::defaultPattern().render(v), "20240518_Boda_Marta_y_Luis_0007");
        // No tokens: empty, the caller keeps the original name.
        QCOMPARE(pattern({}).render(v), "");
        // Empty pieces leave no doubled separator.
        NameValues noCamera = v;
        noCamera.camera.reset();
        noCamera.session.clear();
        QCOMPARE(pattern({NameToken(K::camera), NameToken(K::session), NameToken(K::text, {}, "  "), NameToken(K::counter)}).render(noCamera),
                 "0007");
        // The separator is used exactly as stored; an empty one concatenates.
        QCOMPARE(pattern({NameToken(K::date), NameToken(K::counter)}, "").render(v), "202405180007");
        QCOMPARE(pattern({NameToken(K::date), NameToken(K::counter)}, " - ").render(v), "20240518 - 0007");
        // The joined name is cleaned as a whole: a separator of "/" cannot make folders.
        QCOMPARE(pattern({NameToken(K::date), NameToken(K::counter)}, "/").render(v), "20240518-0007");
        // …and the original name is cleaned here, as part of the whole.
        NameValues hidden = v;
        hidden.original = QStringLiteral("..x:y");
        QCOMPARE(pattern({NameToken(K::original)}).render(hidden), "x-y");
        QCOMPARE(pattern({NameToken(K::text, {}, ".hidden")}).render(v), "hidden");
    }

    void datesIgnoreTheUserLocale()
    {
        const QLocale saved;
        QLocale::setDefault(QLocale(QLocale::Arabic, QLocale::Egypt));
        const NameValues v = wedding();
        QCOMPARE(piece(NameToken(K::date, "yyyy-MM-dd"), v), "2024-05-18");
        QCOMPARE(piece(NameToken(K::date, "d MMM yyyy"), v), "18 May 2024");
        QLocale::setDefault(QLocale(QLocale::Spanish, QLocale::Spain));
        QCOMPARE(piece(NameToken(K::date, "EEEE d 'de' MMMM"), v), "Saturday 18 de May");
        QLocale::setDefault(saved);
    }

    void unicodeDatePatterns_data()
    {
        QTest::addColumn<QString>("format");
        QTest::addColumn<QString>("expected");
        // 2024-05-18 09:05:03.042, a Saturday
        QTest::newRow("two-digit year") << "yyMMdd" << "240518";
        QTest::newRow("single letters") << "y-M-d H:m:s" << "2024-5-18 9:5:3";
        QTest::newRow("12 hour") << "hh:mm a" << "09:05 AM";
        QTest::newRow("month names") << "MMM MMMM MMMMM" << "May May M";
        QTest::newRow("weekdays") << "E EEEE EEEEE" << "Sat Saturday S";
        QTest::newRow("day of year") << "DDD" << "139";
        QTest::newRow("quarter") << "QQQ" << "Q2";
        QTest::newRow("fraction") << "ss.SSS" << "03.042";
        QTest::newRow("quoted literal") << "yyyy'T'HH'h'" << "2024T09h";
        QTest::newRow("escaped quote") << "HH''mm" << "09'05";
        QTest::newRow("week of year (Sunday weeks)") << "w" << "20";
        QTest::newRow("punctuation kept") << "yyyy.MM.dd_HH-mm" << "2024.05.18_09-05";
    }
    void unicodeDatePatterns()
    {
        QFETCH(QString, format);
        QFETCH(QString, expected);
        const QDateTime d(QDate(2024, 5, 18), QTime(9, 5, 3, 42));
        QCOMPARE(PosixDateFormatter::formatDate(d, format), expected);
    }

    void weekYearTurnsWithTheWeek()
    {
        // 2024-12-31 is a Tuesday: its Sunday-based week holds 2025-01-01, so it is week 1 of 2025.
        QCOMPARE(PosixDateFormatter::formatDate(QDateTime(QDate(2024, 12, 31), QTime(12, 0)), "Y-w"), "2025-1");
        QCOMPARE(PosixDateFormatter::formatDate(QDateTime(QDate(2024, 12, 28), QTime(12, 0)), "Y-w"), "2024-52");
    }

    void formattersAreCachedAndSharedAcrossThreads()
    {
        const auto a = PosixDateFormatter::forFormat("yyyy'x'MM");
        QCOMPARE(PosixDateFormatter::forFormat("yyyy'x'MM").get(), a.get());
        const int before = PosixDateFormatter::cacheSize();
        // Many threads asking for the same few formats at once: one formatter per format, and
        // every rendering right.
        QList<int> jobs(400);
        std::iota(jobs.begin(), jobs.end(), 0);
        const QDateTime d(QDate(2024, 5, 18), QTime(9, 5, 3));
        const QList<bool> ok = QtConcurrent::blockingMapped(jobs, [d](int i) {
            const QString fmt = QStringLiteral("'t%1'yyyy").arg(i % 5);
            return PosixDateFormatter::formatDate(d, fmt) == QStringLiteral("t%1").arg(i % 5) + "2024";
        });
        QVERIFY(std::all_of(ok.begin(), ok.end(), [](bool b) { return b; }));
        QCOMPARE(PosixDateFormatter::cacheSize(), before + 5);
    }

    void jsonRoundTrip()
    {
        NamePattern p = pattern({NameToken(K::date, "yyyy-MM-dd"), NameToken(K::text, {}, "Boda «MyL»"), NameToken(K::counter)}, "-");
        const QString json = p.toJsonText();
        const QJsonObject o = QJsonDocument::fromJson(json.toUtf8()).object();
        QCOMPARE(o.value("separator").toString(), "-");
        const QJsonArray tokens = o.value("tokens").toArray();
        QCOMPARE(tokens.size(), 3);
        const QJsonObject counter = tokens[2].toObject();
        QCOMPARE(counter.value("kind").toString(), "counter");
        // format and text are present also when empty; the id is the UUID's standard form.
        QVERIFY(counter.contains("format") && counter.value("format").toString().isEmpty());
        QVERIFY(counter.contains("text") && counter.value("text").toString().isEmpty());
        QCOMPARE(QUuid::fromString(counter.value("id").toString()), p.tokens[2].id);
        QVERIFY(!counter.value("id").toString().startsWith('{'));

        const auto back = NamePattern::fromJsonText(json);
        QVERIFY(back);
        QCOMPARE(*back, p);   // ids included
    }

    void decodesLeniently()
    {
        // Lower-case UUIDs and missing format/text are accepted; a missing id gets a fresh one.
        const auto p = NamePattern::fromJsonText(
            R"({"separator":"_","tokens":[{"id":"e621e1f8-c36c-495a-93fc-0c247a3e6e5f","kind":"date","format":"yyyy"},{"kind":"counter"}]})");
        QVERIFY(p);
        QCOMPARE(p->tokens.size(), 2);
        QCOMPARE(p->tokens[0].id, QUuid::fromString(QStringLiteral("E621E1F8-C36C-495A-93FC-0C247A3E6E5F")));
        QCOMPARE(p->tokens[0].format, "yyyy");
        QVERIFY(!p->tokens[1].id.isNull());
        QCOMPARE(p->tokens[1].text, "");
    }

    void refusesWhatItCannotRepresent_data()
    {
        QTest::addColumn<QString>("json");
        QTest::newRow("not json") << "hola";
        QTest::newRow("empty") << "";
        QTest::newRow("array") << "[]";
        QTest::newRow("no separator") << R"({"tokens":[]})";
        QTest::newRow("separator not a string") << R"({"tokens":[],"separator":1})";
        QTest::newRow("tokens not an array") << R"({"tokens":{},"separator":"_"})";
        QTest::newRow("unknown kind") << R"({"tokens":[{"kind":"lens"}],"separator":"_"})";
        QTest::newRow("token not an object") << R"({"tokens":["date"],"separator":"_"})";
    }
    void refusesWhatItCannotRepresent()
    {
        QFETCH(QString, json);
        QVERIFY(!NamePattern::fromJsonText(json));
    }

    void presets()
    {
        const auto presets = NamePattern::presets();
        // Every preset names each shot of a card apart.
        for (const auto &preset : presets)
            QVERIFY2(!preset.pattern.mayRepeatNames(), qPrintable(preset.title));
        QVERIFY(presets[0].pattern.sameContent(NamePattern::defaultPattern()));
        // Every application of a preset gets fresh ids.
        QVERIFY(NamePattern::presets()[0].pattern.tokens[0].id != presets[0].pattern.tokens[0].id);
        QVERIFY(presets[0].pattern != NamePattern::defaultPattern());
    }

    void settingFallsBackToTheDefault()
    {
        QSettings s;
        s.remove("ingest.namePattern");
        QVERIFY(NamePattern::load(s).sameContent(NamePattern::defaultPattern()));

        const NamePattern custom = pattern({NameToken(K::camera), NameToken(K::text, {}, "x")}, "-");
        custom.save(s);
        s.sync();
        QCOMPARE(s.value("ingest.namePattern").toString(), custom.toJsonText());
        QCOMPARE(NamePattern::load(QSettings()), custom);

        s.setValue("ingest.namePattern", R"({"tokens":[{"kind":"nope"}],"separator":"_"})");
        QVERIFY(NamePattern::load(s).sameContent(NamePattern::defaultPattern()));
        s.setValue("ingest.namePattern", 42);
        QVERIFY(NamePattern::load(s).sameContent(NamePattern::defaultPattern()));
        // Another family keeps its own key.
        custom.save(s, "rename.namePattern");
        QCOMPARE(NamePattern::load(s, "rename.namePattern"), custom);
    }
};

QTEST_GUILESS_MAIN(TestNamePattern)
#include "tst_namepattern.moc"
