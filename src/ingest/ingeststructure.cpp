#include "ingeststructure.h"

#include "namecleaning.h"
#include "posixdateformatter.h"

namespace IngestStructures {

QList<IngestStructure> all()
{
    return {IngestStructure::none, IngestStructure::yearDate, IngestStructure::yearMonthDate, IngestStructure::date,
            IngestStructure::session};
}

QString rawValue(IngestStructure s)
{
    switch (s) {
    case IngestStructure::none: return QStringLiteral("none");
    case IngestStructure::yearDate: return QStringLiteral("yearDate");
    case IngestStructure::yearMonthDate: return QStringLiteral("yearMonthDate");
    case IngestStructure::date: return QStringLiteral("date");
    case IngestStructure::session: return QStringLiteral("session");
    }
    return {};
}

std::optional<IngestStructure> fromRawValue(const QString &raw)
{
    for (IngestStructure s : all())
        if (rawValue(s) == raw)
            return s;
    return std::nullopt;
}

QString label(IngestStructure s)
{
    switch (s) {
    case IngestStructure::none: return QStringLiteral("Directamente en el destino");
    case IngestStructure::yearDate: return QStringLiteral("Año › Fecha y sesión");
    case IngestStructure::yearMonthDate: return QStringLiteral("Año › Mes › Fecha y sesión");
    case IngestStructure::date: return QStringLiteral("Fecha y sesión");
    case IngestStructure::session: return QStringLiteral("Solo el nombre de la sesión");
    }
    return {};
}

QString dayFolder(const QDateTime &date, const QString &session)
{
    const QString day = PosixDateFormatter::formatDate(date, QStringLiteral("yyyy-MM-dd"));
    const QString clean = NameCleaning::name(session);
    // The session is already cleaned, but the joined folder name must still respect the limits.
    return clean.isEmpty() ? day : NameCleaning::name(day + QLatin1Char(' ') + clean);
}

QString folderFor(IngestStructure s, const QDateTime &date, const QString &session)
{
    switch (s) {
    case IngestStructure::none: return {};
    case IngestStructure::yearDate:
        return PosixDateFormatter::formatDate(date, QStringLiteral("yyyy")) + QLatin1Char('/') + dayFolder(date, session);
    case IngestStructure::yearMonthDate:
        return PosixDateFormatter::formatDate(date, QStringLiteral("yyyy")) + QLatin1Char('/')
               + PosixDateFormatter::formatDate(date, QStringLiteral("MM")) + QLatin1Char('/') + dayFolder(date, session);
    case IngestStructure::date: return dayFolder(date, session);
    case IngestStructure::session: {
        const QString clean = NameCleaning::name(session);
        return clean.isEmpty() ? dayFolder(date, {}) : clean;
    }
    }
    return {};
}

} // namespace IngestStructures
