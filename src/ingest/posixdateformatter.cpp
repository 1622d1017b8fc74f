#include "posixdateformatter.h"

#include <QHash>
#include <QMutex>
#include <QTimeZone>

#include <unicode/simpletz.h>
#include <unicode/smpdtfmt.h>
#include <unicode/timezone.h>

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

icu::UnicodeString toIcu(const QString &s)
{
    return icu::UnicodeString(reinterpret_cast<const UChar *>(s.utf16()), int32_t(s.size()));
}

// The zone Qt calls local time, as ICU knows it. Looked up once per thread while the system zone
// stays the same. Where ICU does not know that zone, or disagrees with Qt about its offset at
// this moment, a fixed zone at Qt's offset keeps every field as Qt would show it.
const icu::TimeZone &localZone(const QDateTime &date)
{
    thread_local QByteArray id;
    thread_local std::unique_ptr<icu::TimeZone> zone;
    const QByteArray systemId = QTimeZone::systemTimeZoneId();
    if (!zone || systemId != id) {
        zone.reset(icu::TimeZone::createTimeZone(icu::UnicodeString::fromUTF8(systemId.constData())));
        id = systemId;
    }
    const int offsetMs = date.toLocalTime().offsetFromUtc() * 1000;
    int32_t raw = 0, dst = 0;
    UErrorCode status = U_ZERO_ERROR;
    zone->getOffset(UDate(date.toMSecsSinceEpoch()), false, raw, dst, status);
    if (*zone != icu::TimeZone::getUnknown() && U_SUCCESS(status) && raw + dst == offsetMs)
        return *zone;
    thread_local std::unique_ptr<icu::SimpleTimeZone> fixed;
    fixed = std::make_unique<icu::SimpleTimeZone>(offsetMs, icu::UnicodeString(u"Local"));
    return *fixed;
}

} // namespace

struct PosixDateFormatter::Compiled {
    std::unique_ptr<icu::SimpleDateFormat> format;
};

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
    UErrorCode status = U_ZERO_ERROR;
    auto format = std::make_unique<icu::SimpleDateFormat>(toIcu(pattern), icu::Locale("en_US_POSIX"), status);
    if (U_SUCCESS(status))
        _compiled.reset(new Compiled{std::move(format)});
}

PosixDateFormatter::~PosixDateFormatter() = default;

QString PosixDateFormatter::format(const QDateTime &date) const
{
    if (!date.isValid() || !_compiled)
        return {};
    // An ICU formatter is not safe to share between threads while it formats: each call works on
    // its own copy of the compiled one.
    const std::unique_ptr<icu::SimpleDateFormat> f(_compiled->format->clone());
    f->setTimeZone(localZone(date));
    icu::UnicodeString out;
    f->format(UDate(date.toMSecsSinceEpoch()), out);
    return QString(reinterpret_cast<const QChar *>(out.getBuffer()), out.length());
}
