#include "sidecarmarks.h"

#include "photometareader.h"

#include "model/folderscanner.h"
#include "model/orientation.h"

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

XmpState withOrientation(XmpState state, const QString &image, const QString &sidecar)
{
    if (state.orientation || image.isEmpty())
        return state;
    if (state.rotation != 0 || QFileInfo::exists(sidecar))
        if (const auto meta = readPhotoMeta(image))
            state.orientation = Orientation::turned(meta->orientation, state.rotation);
    return state;
}

QString sidecarOf(const QString &mainFile)
{
    const qsizetype slash = mainFile.lastIndexOf(QLatin1Char('/'));
    const qsizetype dot = mainFile.lastIndexOf(QLatin1Char('.'));
    return (dot > slash + 1 ? mainFile.left(dot) : mainFile) + QStringLiteral(".xmp");
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
