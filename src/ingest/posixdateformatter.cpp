#include "posixdateformatter.h"

#include <QHash>
#include <QLocale>
#include <QMutex>
#include <QTimeZone>

namespace {

struct Cache {
    QMutex mutex;
    QHash<QString, std::shared_ptr<const PosixDateFormatter>> formatters;   // guarded by mutex
};

Cache &cache()
{
    static Cache c;
    return c;
}

QString padded(qint64 value, int width)
{
    QString s = QString::number(value < 0 ? -value : value);
    if (s.size() < width)
        s.prepend(QString(width - s.size(), QLatin1Char('0')));
    return value < 0 ? QLatin1Char('-') + s : s;
}

// en_US weeks: they start on Sunday and week 1 is the one holding January 1st.
int sundayBasedDayOfWeek(const QDate &d) { return d.dayOfWeek() % 7; }   // Sunday 0 … Saturday 6

void weekOfYear(const QDate &d, int *week, int *weekYear)
{
    const QDate saturday = d.addDays(6 - sundayBasedDayOfWeek(d));
    if (saturday.year() > d.year()) {   // this week already holds next year's January 1st
        *week = 1;
        *weekYear = d.year() + 1;
        return;
    }
    const QDate jan1(d.year(), 1, 1);
    *week = (d.dayOfYear() - 1 + sundayBasedDayOfWeek(jan1)) / 7 + 1;
    *weekYear = d.year();
}

QString offsetText(int seconds, bool colon, bool withMinutes)
{
    const QChar sign = seconds < 0 ? QLatin1Char('-') : QLatin1Char('+');
    const int abs = seconds < 0 ? -seconds : seconds;
    QString s = sign + padded(abs / 3600, 2);
    const int minutes = abs % 3600 / 60;
    if (withMinutes || minutes != 0)
        s += (colon ? QStringLiteral(":") : QString()) + padded(minutes, 2);
    return s;
}

} // namespace

std::shared_ptr<const PosixDateFormatter> PosixDateFormatter::forFormat(const QString &format)
{
    Cache &c = cache();
    QMutexLocker lock(&c.mutex);
    auto it = c.formatters.constFind(format);
    if (it != c.formatters.constEnd())
        return it.value();
    auto f = std::make_shared<const PosixDateFormatter>(format);
    c.formatters.insert(format, f);
    return f;
}

QString PosixDateFormatter::formatDate(const QDateTime &date, const QString &format)
{
    return forFormat(format)->format(date);
}

int PosixDateFormatter::cacheSize()
{
    Cache &c = cache();
    QMutexLocker lock(&c.mutex);
    return int(c.formatters.size());
}

PosixDateFormatter::PosixDateFormatter(const QString &pattern)
    : _pattern(pattern)
{
    // Letters are fields (a run of one letter); text in single quotes is literal, '' is a quote;
    // anything else is literal.
    auto addLiteral = [this](const QString &text) {
        if (!_fields.isEmpty() && _fields.last().letter.isNull())
            _fields.last().literal += text;
        else
            _fields.append(Field{QChar(), 0, text});
    };
    const int n = int(pattern.size());
    for (int i = 0; i < n;) {
        const QChar c = pattern.at(i);
        if (c == QLatin1Char('\'')) {
            if (i + 1 < n && pattern.at(i + 1) == QLatin1Char('\'')) {
                addLiteral(QStringLiteral("'"));
                i += 2;
                continue;
            }
            QString text;
            int j = i + 1;
            for (; j < n; ++j) {
                if (pattern.at(j) == QLatin1Char('\'')) {
                    if (j + 1 < n && pattern.at(j + 1) == QLatin1Char('\'')) {
                        text += QLatin1Char('\'');
                        ++j;
                        continue;
                    }
                    break;
                }
                text += pattern.at(j);
            }
            addLiteral(text);
            i = j + 1;
        } else if ((c >= QLatin1Char('a') && c <= QLatin1Char('z')) || (c >= QLatin1Char('A') && c <= QLatin1Char('Z'))) {
            int j = i;
            while (j < n && pattern.at(j) == c)
                ++j;
            _fields.append(Field{c, j - i, {}});
            i = j;
        } else {
            addLiteral(QString(c));
            ++i;
        }
    }
}

QString PosixDateFormatter::format(const QDateTime &date) const
{
    if (!date.isValid())
        return {};
    const QDateTime local = date.toLocalTime();
    const QDate d = local.date();
    const QTime t = local.time();
    const QLocale c = QLocale::c();   // English names, ASCII digits: what en_US_POSIX gives

    QString out;
    for (const Field &f : _fields) {
        if (f.letter.isNull()) {
            out += f.literal;
            continue;
        }
        const int n = f.count;
        switch (f.letter.toLatin1()) {
        case 'G': {
            const bool ad = d.year() > 0;
            out += n == 4 ? (ad ? QStringLiteral("Anno Domini") : QStringLiteral("Before Christ"))
                 : n == 5 ? (ad ? QStringLiteral("A") : QStringLiteral("B"))
                          : (ad ? QStringLiteral("AD") : QStringLiteral("BC"));
            break;
        }
        case 'y': {
            const int year = d.year() > 0 ? d.year() : -d.year();   // year of era
            out += n == 2 ? padded(year % 100, 2) : padded(year, n);
            break;
        }
        case 'u':
            out += padded(d.year() > 0 ? d.year() : d.year() + 1, n);
            break;
        case 'Y': {
            int week, weekYear;
            weekOfYear(d, &week, &weekYear);
            out += n == 2 ? padded(weekYear % 100, 2) : padded(weekYear, n);
            break;
        }
        case 'Q':
        case 'q': {
            const int q = (d.month() - 1) / 3 + 1;
            static const char *const ordinals[] = {"1st", "2nd", "3rd", "4th"};
            out += n <= 2 ? padded(q, n)
                 : n == 3 ? QStringLiteral("Q%1").arg(q)
                 : n == 4 ? QStringLiteral("%1 quarter").arg(QLatin1String(ordinals[q - 1]))
                          : QString::number(q);
            break;
        }
        case 'M':
        case 'L':
            out += n <= 2 ? padded(d.month(), n)
                 : n == 3 ? c.monthName(d.month(), QLocale::ShortFormat)
                 : n == 4 ? c.monthName(d.month(), QLocale::LongFormat)
                          : c.monthName(d.month(), QLocale::LongFormat).left(1);   // narrow
            break;
        case 'w': {
            int week, weekYear;
            weekOfYear(d, &week, &weekYear);
            out += padded(week, n);
            break;
        }
        case 'W': {
            const QDate first(d.year(), d.month(), 1);
            out += padded((d.day() - 1 + sundayBasedDayOfWeek(first)) / 7 + 1, n);
            break;
        }
        case 'd':
            out += padded(d.day(), n);
            break;
        case 'D':
            out += padded(d.dayOfYear(), n);
            break;
        case 'F':
            out += padded((d.day() - 1) / 7 + 1, n);
            break;
        case 'e':
        case 'c':
            if (n <= 2) {
                out += padded(sundayBasedDayOfWeek(d) + 1, n);   // Sunday is 1 in en_US
                break;
            }
            [[fallthrough]];
        case 'E':
            out += n <= 3 ? c.dayName(d.dayOfWeek(), QLocale::ShortFormat)
                 : n == 4 ? c.dayName(d.dayOfWeek(), QLocale::LongFormat)
                 : n == 5 ? c.dayName(d.dayOfWeek(), QLocale::LongFormat).left(1)   // narrow
                          : c.dayName(d.dayOfWeek(), QLocale::ShortFormat).left(2);
            break;
        case 'a':
        case 'b':
        case 'B':
            out += t.hour() < 12 ? QStringLiteral("AM") : QStringLiteral("PM");
            break;
        case 'h':
            out += padded(t.hour() % 12 == 0 ? 12 : t.hour() % 12, n);
            break;
        case 'H':
            out += padded(t.hour(), n);
            break;
        case 'K':
            out += padded(t.hour() % 12, n);
            break;
        case 'k':
            out += padded(t.hour() == 0 ? 24 : t.hour(), n);
            break;
        case 'm':
            out += padded(t.minute(), n);
            break;
        case 's':
            out += padded(t.second(), n);
            break;
        case 'S': {
            // Fractional seconds, truncated to the requested digits.
            QString ms = padded(t.msec(), 3);
            out += n <= 3 ? ms.left(n) : ms + QString(n - 3, QLatin1Char('0'));
            break;
        }
        case 'A':
            out += padded(t.msecsSinceStartOfDay(), n);
            break;
        case 'z':
            out += n <= 3 ? local.timeZoneAbbreviation()
                          : local.timeZone().displayName(local, QTimeZone::LongName, c);
            break;
        case 'Z': {
            const int off = local.offsetFromUtc();
            out += n <= 3 ? offsetText(off, false, true)
                 : n == 4 ? QStringLiteral("GMT") + offsetText(off, true, true)
                          : (off == 0 ? QStringLiteral("Z") : offsetText(off, true, true));
            break;
        }
        case 'O': {
            const int off = local.offsetFromUtc();
            if (off == 0)
                out += QStringLiteral("GMT");
            else if (n == 1)
                out += QStringLiteral("GMT") + (off < 0 ? QStringLiteral("-") : QStringLiteral("+"))
                     + QString::number(qAbs(off) / 3600)
                     + (qAbs(off) % 3600 ? QStringLiteral(":") + padded(qAbs(off) % 3600 / 60, 2) : QString());
            else
                out += QStringLiteral("GMT") + offsetText(off, true, true);
            break;
        }
        case 'X':
        case 'x': {
            const int off = local.offsetFromUtc();
            if (f.letter == QLatin1Char('X') && off == 0)
                out += QStringLiteral("Z");
            else
                out += offsetText(off, n == 3 || n == 5, n != 1);
            break;
        }
        default:
            break;   // letters without a meaning here produce nothing
        }
    }
    return out;
}
