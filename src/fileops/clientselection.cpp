#include "clientselection.h"

#include "model/filekinds.h"
#include "model/filenumber.h"

#include <QSet>

#include <optional>

#include <vector>

// The two patterns this reads are, as regular expressions,
//   ranges:  (?<![A-Za-z0-9_])(\d{1,6})\s*[-–]\s*(\d{1,6})(?![A-Za-z0-9_])
//   tokens:  [A-Za-z_\-]*\d+[A-Za-z0-9_\-]*
// Both are scanned by hand: a backtracking engine takes quadratic time on the second one over a
// long run of letters, and a pasted message can be anything. The tests hold the scanners to
// QRegularExpression's reading of the same patterns (ASCII \d and \s).

namespace ClientSelection {
namespace {

constexpr int kMaxDigits = 6;
constexpr int kNumberLimit = 1000000;   // every number of up to six digits

bool isDigit(QChar c) { return c.unicode() >= u'0' && c.unicode() <= u'9'; }
bool isLetter(QChar c)
{
    const char16_t u = c.unicode();
    return (u >= u'a' && u <= u'z') || (u >= u'A' && u <= u'Z');
}
// What a number of a range may not touch: letters, digits and "_".
bool isWordChar(QChar c) { return isLetter(c) || isDigit(c) || c == u'_'; }
// What a single token is made of: those and "-".
bool isTokenChar(QChar c) { return isWordChar(c) || c == u'-'; }
// Tab, line feed, vertical tab, form feed, carriage return and space.
bool isSpace(QChar c) { return c == u' ' || (c.unicode() >= 9 && c.unicode() <= 13); }
bool isDash(QChar c) { return c == u'-' || c == u'\u2013'; }

// A number in decimal. QString::number goes through the locale machinery, which a message of
// long ranges would pay up to a million times.
QString decimal(int n)
{
    char16_t digits[10];
    int i = 10;
    do {
        digits[--i] = char16_t(u'0' + n % 10);
        n /= 10;
    } while (n > 0);
    return QString(reinterpret_cast<const QChar *>(digits + i), 10 - i);
}

// The ordered list without repeats. Numbers written plainly (what ranges produce) are remembered
// in a bit per value, so a message of long ranges costs a bit per number, not a string.
class TokenList
{
public:
    void addNumber(int n)
    {
        if (_numbers.empty())
            _numbers.resize(kNumberLimit);
        if (_numbers[size_t(n)])
            return;
        _numbers[size_t(n)] = true;
        _tokens.append(decimal(n));
    }

    void add(const QString &token)
    {
        if (const int n = plainNumber(token); n >= 0)
            return addNumber(n);
        if (!_seen.contains(token)) {
            _seen.insert(token);
            _tokens.append(token);
        }
    }

    QStringList take() { return std::move(_tokens); }

private:
    // The value of "0" … "999999" written without leading zeros; -1 for anything else.
    static int plainNumber(const QString &t)
    {
        if (t.isEmpty() || t.size() > kMaxDigits || (t.size() > 1 && t[0] == u'0'))
            return -1;
        int n = 0;
        for (QChar c : t) {
            if (!isDigit(c))
                return -1;
            n = n * 10 + (c.unicode() - u'0');
        }
        return n;
    }

    QStringList _tokens;
    QSet<QString> _seen;
    std::vector<bool> _numbers;
};

struct Range {
    qsizetype end = 0;   // one past the second number
    int first = 0, last = 0;
};

// A number of one to six digits at `i`, not followed by another digit; its value, or -1.
int readNumber(QStringView s, qsizetype &i)
{
    const qsizetype start = i;
    int value = 0;
    while (i < s.size() && isDigit(s[i])) {
        if (i - start == kMaxDigits)
            return -1;
        value = value * 10 + (s[i].unicode() - u'0');
        ++i;
    }
    return i == start ? -1 : value;
}

// The range pattern at `i`, where a digit not glued to a word character on its left begins.
std::optional<Range> readRange(QStringView s, qsizetype i, qint64 &steps)
{
    const qsizetype start = i;
    Range r;
    const auto done = [&](std::optional<Range> result) {
        steps += i - start;
        return result;
    };
    if ((r.first = readNumber(s, i)) < 0)
        return done(std::nullopt);
    while (i < s.size() && isSpace(s[i]))
        ++i;
    if (i == s.size() || !isDash(s[i]))
        return done(std::nullopt);
    ++i;
    while (i < s.size() && isSpace(s[i]))
        ++i;
    if ((r.last = readNumber(s, i)) < 0 || (i < s.size() && isWordChar(s[i])))
        return done(std::nullopt);
    r.end = i;
    return done(r);
}

} // namespace

QStringList extractTokens(QStringView message, Work *work)
{
    qint64 steps = 0;
    TokenList tokens;

    // Ranges, left to right; the text of a taken range becomes one space, a refused one stays.
    QString rest;
    rest.reserve(message.size());
    qsizetype copied = 0;
    for (qsizetype i = 0; i < message.size();) {
        ++steps;
        if (!isDigit(message[i]) || (i > 0 && isWordChar(message[i - 1]))) {
            ++i;
            continue;
        }
        const std::optional<Range> r = readRange(message, i, steps);
        if (!r) {
            ++i;
            continue;
        }
        if (r->first < r->last && r->last - r->first <= kMaxRangeSpan) {
            for (int n = r->first; n <= r->last; ++n)
                tokens.addNumber(n);
            steps += r->last - r->first + 1;
            rest += message.mid(copied, i - copied);
            rest += u' ';
            copied = r->end;
        }
        i = r->end;
    }
    rest += message.mid(copied);

    // Single tokens: runs of letters, digits, "_" and "-" that hold a digit.
    for (qsizetype i = 0; i < rest.size();) {
        if (!isTokenChar(rest[i])) {
            ++i;
            ++steps;
            continue;
        }
        qsizetype end = i;
        bool digit = false;
        for (; end < rest.size() && isTokenChar(rest[end]); ++end)
            digit = digit || isDigit(rest[end]);
        steps += end - i;
        if (digit) {
            qsizetype a = i, b = end;
            while (a < b && (rest[a] == u'-' || rest[a] == u'_'))
                ++a;
            while (b > a && (rest[b - 1] == u'-' || rest[b - 1] == u'_'))
                --b;
            if (a < b)
                tokens.add(rest.mid(a, b - a).toLower());
        }
        i = end;
    }

    if (work)
        work->steps = steps;
    return tokens.take();
}

QString problemOf(const ClientMatch &m)
{
    if (m.photos.isEmpty())
        return QStringLiteral("No hay ninguna imagen con ese número");
    if (m.photos.size() > 1)
        return QStringLiteral("varias con ese número");
    return {};
}

PhotoIndex::PhotoIndex(const QList<QPair<QUuid, QString>> &shots)
{
    for (const auto &[id, file] : shots) {
        const QString base = FileKinds::baseNameOf(file).toLower();
        _byName[base].append(id);
        if (const std::optional<int> n = fileNumber(base))
            _byNumber[*n].append(id);
    }
}

QList<QUuid> PhotoIndex::designated(const QString &token) const
{
    if (const auto it = _byName.constFind(token); it != _byName.cend())
        return it.value();
    if (const std::optional<int> n = fileNumber(token))
        return _byNumber.value(*n);
    return {};
}

QList<ClientMatch> match(const QStringList &tokens, const PhotoIndex &index)
{
    QList<ClientMatch> out;
    out.reserve(tokens.size());
    for (const QString &t : tokens)
        out.append({int(out.size()), t, index.designated(t), true});
    return out;
}

QList<QUuid> chosenPhotos(const QList<ClientMatch> &matches, const QSet<QUuid> &excluded)
{
    QList<QUuid> out;
    QSet<QUuid> seen;
    // Tokens of one number share the index's list: "412", "0412" and "dsc_0412" are one visit, so
    // the walk stays within the shots however many spellings the message repeats.
    QSet<const QUuid *> lists;
    for (const ClientMatch &m : matches) {
        if (!m.include || m.photos.isEmpty() || lists.contains(m.photos.constData()))
            continue;
        lists.insert(m.photos.constData());
        for (const QUuid &id : m.photos)
            if (!excluded.contains(id) && !seen.contains(id)) {
                seen.insert(id);
                out.append(id);
            }
    }
    return out;
}

QStringList missingTokens(const QList<ClientMatch> &matches)
{
    QStringList out;
    for (const ClientMatch &m : matches)
        if (m.photos.isEmpty())
            out.append(m.token);
    return out;
}

} // namespace ClientSelection
