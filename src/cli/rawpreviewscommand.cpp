#include "rawpreviewscommand.h"

#include "argparser.h"

#include "imaging/rawpreview.h"

#include <QFile>
#include <QFileInfo>
#include <QJsonArray>
#include <QJsonDocument>
#include <QJsonObject>

#include <cstdio>

namespace {

constexpr int kDefaultSize = 2560;

QJsonObject candidateJson(const RawPreview::Candidate &c, bool endResolved)
{
    QJsonObject o;
    o.insert(QStringLiteral("start"), c.start);
    // An end not declared by the file is not known until the JPEG is walked.
    o.insert(QStringLiteral("end"), c.hasKnownEnd || endResolved ? QJsonValue(c.end) : QJsonValue());
    o.insert(QStringLiteral("width"), c.width);
    o.insert(QStringLiteral("height"), c.height);
    o.insert(QStringLiteral("orientation"), c.exifOrientation ? QJsonValue(*c.exifOrientation) : QJsonValue());
    o.insert(QStringLiteral("knownEnd"), c.hasKnownEnd);
    return o;
}

QString describe(const RawPreview::Candidate &c, bool endResolved)
{
    const QString end = c.hasKnownEnd || endResolved ? QString::number(c.end) : QStringLiteral("?");
    return QStringLiteral("bytes %1–%2  %3×%4  orientación %5  fin conocido: %6")
        .arg(c.start)
        .arg(end)
        .arg(c.width)
        .arg(c.height)
        .arg(c.exifOrientation ? QString::number(*c.exifOrientation) : QStringLiteral("-"))
        .arg(c.hasKnownEnd ? QStringLiteral("sí") : QStringLiteral("no"));
}

void out(const QString &line) { std::printf("%s\n", line.toUtf8().constData()); }

} // namespace

int rawPreviewsCommand(const QStringList &args)
{
    ArgParser p({"json"}, {"size"});
    if (!p.parse(args)) {
        std::fprintf(stderr, "%s\n", p.error().toUtf8().constData());
        return 2;
    }
    int size = kDefaultSize;
    if (p.has(QStringLiteral("size"))) {
        bool ok = false;
        size = p.value(QStringLiteral("size")).toInt(&ok);
        if (!ok || size < 1) {
            std::fprintf(stderr, "El tamaño debe ser un número entero positivo.\n");
            return 2;
        }
    }
    if (p.positional().isEmpty())
        return 2;

    const bool json = p.flag(QStringLiteral("json"));
    QJsonArray files;
    int status = 0;
    for (const QString &path : p.positional()) {
        QFile file(path);
        if (!QFileInfo(path).isFile() || !file.open(QIODevice::ReadOnly)) {
            std::fprintf(stderr, "No se puede leer «%s».\n", path.toUtf8().constData());
            status = 1;
            continue;
        }
        // The same reading as the pipeline's: mapped, never copied.
        const qint64 n = file.size();
        const uchar *map = n > 0 ? file.map(0, n) : nullptr;
        if (n > 0 && !map) {
            std::fprintf(stderr, "No se puede leer «%s».\n", path.toUtf8().constData());
            status = 1;
            continue;
        }
        const QList<RawPreview::Candidate> candidates = RawPreview::findCandidates(map, n);
        const auto chosen = RawPreview::choose(map, n, size, 0, true, true);
        if (map)
            file.unmap(const_cast<uchar *>(map));

        if (json) {
            QJsonArray list;
            for (const RawPreview::Candidate &c : candidates)
                list.append(candidateJson(c, false));
            QJsonObject o;
            o.insert(QStringLiteral("file"), path);
            o.insert(QStringLiteral("candidates"), list);
            if (chosen) {
                QJsonObject c = candidateJson(chosen->candidate, true);
                c.insert(QStringLiteral("label"), chosen->label);
                o.insert(QStringLiteral("chosen"), c);
            } else {
                o.insert(QStringLiteral("chosen"), QJsonValue());
            }
            files.append(o);
            continue;
        }
        out(path);
        if (candidates.isEmpty())
            out(QStringLiteral("  sin JPEG en la estructura del archivo"));
        for (qsizetype i = 0; i < candidates.size(); ++i)
            out(QStringLiteral("  %1. %2").arg(i + 1).arg(describe(candidates[i], false)));
        if (chosen)
            out(QStringLiteral("  para %1 px: %2  «%3»").arg(size).arg(describe(chosen->candidate, true), chosen->label));
        else
            out(QStringLiteral("  para %1 px: ninguno").arg(size));
    }
    if (json)
        std::printf("%s\n", QJsonDocument(files).toJson(QJsonDocument::Indented).constData());
    return status;
}
