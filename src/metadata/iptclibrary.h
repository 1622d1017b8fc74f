#pragma once
// The user's IPTC templates: one JSON file, "plantillas-iptc.json" in the application-support
// folder, holding an array of templates, rewritten whole and atomically. Names are unique without
// regard to case. Plain functions on the file; one writer at a time (the window or a command).
#include "iptctemplate.h"

#include <QList>
#include <QString>
#include <optional>

namespace IptcLibrary {

// The library file in the application-support folder; every function takes another (tests).
QString path();

// Every template, in the order kept; an unreadable file counts as empty.
QList<IptcTemplate> load(const QString &file = path());
std::optional<IptcTemplate> find(const QString &name, const QString &file = path());

// Saves `t`, replacing the template called `previousName` (or `t.name` when empty); a Spanish
// sentence when it cannot be saved (empty or duplicated name, limits, disk).
QString save(const IptcTemplate &t, const QString &previousName = {}, const QString &file = path());
QString remove(const QString &name, const QString &file = path());
// "Boda (copia)", "Boda (copia 2)"…: a name not yet taken.
QString copyName(const QString &name, const QString &file = path());

} // namespace IptcLibrary
