#include "sidecarmarks.h"

#include "model/folderscanner.h"

#include <QFileInfo>

namespace SidecarMarks {

QString sourceName(Source source)
{
    switch (source) {
    case Source::file: return QStringLiteral("file");
    case Source::sidecar: return QStringLiteral("sidecar");
    case Source::none: break;
    }
    return {};
}

XmpState stateOf(const Marks &m)
{
    XmpState s;
    s.color = m.c.value_or(0);
    s.rating = m.r.value_or(0);
    s.flag = m.t.value_or(false);
    s.rotation = m.o.value_or(0);
    return s;
}

namespace {
Marks withSidecar(const std::optional<Marks> &record, const XmpState &s)
{
    return Marks::from(colorClassFromInt(s.color), s.rating, s.flag, s.rotation, record ? record->k : std::nullopt);
}
} // namespace

Resolved resolve(MarksStorage storage, const std::optional<Marks> &record, const std::optional<XmpState> &sidecar)
{
    const bool recorded = record && !record->isEmpty();
    if (storage == MarksStorage::sidecar && sidecar) {
        const Marks m = withSidecar(record, *sidecar);
        if (m.isEmpty())
            return {};
        return {m, Source::sidecar};
    }
    if (recorded)
        return {*record, Source::file};
    if (sidecar) {
        const Marks m = withSidecar(std::nullopt, *sidecar);
        if (!m.isEmpty())
            return {m, Source::sidecar};
    }
    return {};
}

QString sidecarToRead(const QString &mainFile, const QString &sidecarURL, const QSet<QString> &xmpKeys)
{
    if (xmpKeys.contains(FolderScanner::groupingKey(mainFile)))
        return sidecarURL;
    if (!xmpKeys.contains(FolderScanner::groupingKey(mainFile + QStringLiteral(".xmp"))))
        return {};
    // The scan keys by lower-cased name: find the file as it is spelled on disk.
    for (const QString &ext : {QStringLiteral(".xmp"), QStringLiteral(".XMP")})
        if (QFileInfo::exists(mainFile + ext))
            return mainFile + ext;
    return {};
}

} // namespace SidecarMarks
