#pragma once
// Dates in file and folder names, formatted with the fixed "en_US_POSIX" conventions: ASCII
// digits, English month and day names, whatever the user's locale. Formats use the Unicode date
// pattern syntax ("yyyyMMdd", "HHmmss", "yyyy-MM-dd", "d MMM yyyy", quoted 'literals').
// Thread-safe: formatters are compiled once per format string and kept in a process-wide table
// (guarded by one mutex) for the life of the process.
#include <QDateTime>
#include <QList>
#include <QString>
#include <memory>

class PosixDateFormatter
{
public:
    // The shared formatter for `format`, created on first use and never evicted.
    static std::shared_ptr<const PosixDateFormatter> forFormat(const QString &format);
    // Shorthand: forFormat(format)->format(date).
    static QString formatDate(const QDateTime &date, const QString &format);

    // `date` in local time; "" for an invalid date.
    QString format(const QDateTime &date) const;
    QString pattern() const { return _pattern; }

    // Number of formatters in the cache (tests).
    static int cacheSize();

    explicit PosixDateFormatter(const QString &pattern);   // use forFormat()

private:
    struct Field {
        QChar letter;     // pattern letter; null for a literal
        int count = 0;    // repetitions of the letter
        QString literal;
    };
    QString _pattern;
    QList<Field> _fields;
};
