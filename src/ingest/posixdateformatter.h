#pragma once
// Dates in file and folder names, formatted by ICU with the fixed "en_US_POSIX" conventions: ASCII
// digits, English month and day names, whatever the user's locale. Formats use the Unicode date
// pattern syntax ("yyyyMMdd", "HHmmss", "yyyy-MM-dd", "d MMM yyyy", quoted 'literals').
// Thread-safe: a formatter is compiled once per format string and kept in a process-wide table
// (guarded by one mutex) for the life of the process; each call formats with its own copy.
#include <QDateTime>
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
    ~PosixDateFormatter();

private:
    struct Compiled;
    QString _pattern;
    std::unique_ptr<Compiled> _compiled;   // null when ICU refused the pattern
};
