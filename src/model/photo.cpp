#include "photo.h"

#include "filekinds.h"

#include <QFileInfo>

Photo::Photo(const ScannedItem &item)
{
    setFiles(item);
    fileCreated = item.created;
    fileModified = item.modified;
    fileSize = item.size;
    _damaged = item.size == 0;   // every file of the shot is empty
    facets = Facets::build(nullptr, badge);
}

void Photo::setFiles(const ScannedItem &item)
{
    _url = item.url;
    _previewURL = item.previewURL;
    previewIsRaw = item.previewIsRaw;
    _sidecarURL = item.sidecarURL;
    _files = item.files;
    badge = item.badge;
    const qsizetype slash = _url.lastIndexOf(QLatin1Char('/'));
    _name = _url.mid(slash + 1);
    dirPath = slash <= 0 ? QStringLiteral("/") : _url.left(slash);
    searchCache.reset();
}

void Photo::setMeta(std::optional<PhotoMeta> m)
{
    _meta = std::move(m);
    facets = Facets::build(_meta ? &*_meta : nullptr, badge);
    searchCache.reset();
}

std::optional<QDateTime> Photo::captureDate() const
{
    if (!_meta || !_meta->captureDate.isValid())
        return std::nullopt;
    return _meta->captureDate.addMSecs(qint64(_timeOffset * 1000.0));
}

const QString &Photo::searchText() const
{
    if (!searchCache) {
        QStringList parts;
        for (const QString &f : _files)
            parts << f.mid(f.lastIndexOf(QLatin1Char('/')) + 1);
        parts << dirPath.mid(dirPath.lastIndexOf(QLatin1Char('/')) + 1) << badge;
        if (_meta) {
            const PhotoMeta &m = *_meta;
            parts << m.make << m.model << m.lens << m.serial << m.title << m.caption << m.creator
                  << m.copyright << m.city << m.country << m.keywords;
            if (m.captureDate.isValid())
                parts << m.captureDate.toString(QStringLiteral("yyyy-MM-dd"));
        }
        searchCache = foldForSearch(parts.join(QLatin1Char(' ')));
    }
    return *searchCache;
}

QString foldForSearch(const QString &text)
{
    const QString decomposed = text.normalized(QString::NormalizationForm_D);
    QString out;
    out.reserve(decomposed.size());
    for (const QChar c : decomposed) {
        if (c.category() == QChar::Mark_NonSpacing)
            continue;
        out.append(c.toLower());
    }
    return out;
}
