#include "ingestsettings.h"

#include <QSettings>

namespace {
qint64 readInt(const QSettings &s, const char *key, qint64 fallback)
{
    bool ok = false;
    const qint64 v = s.value(QLatin1String(key)).toLongLong(&ok);
    return ok ? v : fallback;
}
} // namespace

IngestSettings IngestSettings::load()
{
    const QSettings s;
    IngestSettings r;
    r.dest = s.value(QStringLiteral("ingest.dest")).toString();
    r.backupOn = s.value(QStringLiteral("ingest.backupOn"), r.backupOn).toBool();
    r.backup = s.value(QStringLiteral("ingest.backup")).toString();
    r.structure = IngestStructures::fromRawValue(s.value(QStringLiteral("ingest.structure")).toString()).value_or(r.structure);
    r.renameOn = s.value(QStringLiteral("ingest.renameOn"), r.renameOn).toBool();
    r.namePattern = s.value(QStringLiteral("ingest.namePattern")).toString();
    r.start = readInt(s, "ingest.start", r.start);
    r.digits = readInt(s, "ingest.digits", r.digits);
    r.skipImported = s.value(QStringLiteral("ingest.skipImported"), r.skipImported).toBool();
    r.video = s.value(QStringLiteral("ingest.video"), r.video).toBool();
    r.fullVerify = s.value(QStringLiteral("ingest.fullVerify"), r.fullVerify).toBool();
    r.eject = s.value(QStringLiteral("ingest.eject"), r.eject).toBool();
    r.open = s.value(QStringLiteral("ingest.open"), r.open).toBool();
    return r;
}

void IngestSettings::save() const
{
    QSettings s;
    s.setValue(QStringLiteral("ingest.dest"), dest);
    s.setValue(QStringLiteral("ingest.backupOn"), backupOn);
    s.setValue(QStringLiteral("ingest.backup"), backup);
    s.setValue(QStringLiteral("ingest.structure"), IngestStructures::rawValue(structure));
    s.setValue(QStringLiteral("ingest.renameOn"), renameOn);
    s.setValue(QStringLiteral("ingest.namePattern"), namePattern);
    s.setValue(QStringLiteral("ingest.start"), start);
    s.setValue(QStringLiteral("ingest.digits"), digits);
    s.setValue(QStringLiteral("ingest.skipImported"), skipImported);
    s.setValue(QStringLiteral("ingest.video"), video);
    s.setValue(QStringLiteral("ingest.fullVerify"), fullVerify);
    s.setValue(QStringLiteral("ingest.eject"), eject);
    s.setValue(QStringLiteral("ingest.open"), open);
}

NamePattern IngestSettings::pattern() const
{
    if (namePattern.isEmpty())
        return NamePattern::defaultPattern();
    return NamePattern::fromJsonText(namePattern).value_or(NamePattern::defaultPattern());
}

IngestOptions IngestSettings::options(const QString &session) const
{
    IngestOptions o;
    o.structure = structure;
    o.session = session;
    o.rename = renameOn;
    o.pattern = pattern();
    o.start = start;
    o.digits = digits;
    o.skipImported = skipImported;
    o.video = video;
    o.verify = fullVerify;
    o.eject = eject;
    return o;
}
