#pragma once
// The folder layout under each destination. Pure functions: safe on any thread.
#include <QDateTime>
#include <QList>
#include <QString>
#include <optional>

enum class IngestStructure { none, yearDate, yearMonthDate, date, session };

namespace IngestStructures {

// Every structure, in the order the screen lists them.
QList<IngestStructure> all();
// "none", "yearDate", "yearMonthDate", "date", "session".
QString rawValue(IngestStructure s);
std::optional<IngestStructure> fromRawValue(const QString &raw);
// "Directamente en el destino", "Año › Fecha y sesión", ...
QString label(IngestStructure s);

// The day folder: "2024-05-18", or "2024-05-18 Boda Marta y Luis" with a session (name-cleaned).
QString dayFolder(const QDateTime &date, const QString &session);
// The folder under the destination root for a file of that date ("" for `none`), components
// joined with "/": "2024/2024-05-18 Boda", "2024/05/2024-05-18 Boda", "Boda"...
QString folderFor(IngestStructure s, const QDateTime &date, const QString &session);

} // namespace IngestStructures
