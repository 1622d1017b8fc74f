#include "thumbscommand.h"

#include "argparser.h"
#include "folderargument.h"
#include "parallelrun.h"

#include "imaging/diskkind.h"
#include "imaging/imagepipeline.h"
#include "model/folderscanner.h"

#include <QElapsedTimer>
#include <QFileInfo>
#include <QJsonArray>
#include <QJsonDocument>
#include <QJsonObject>
#include <QMap>

#include <cstdio>
#include <vector>

namespace {

struct Row {
    QString file;
    ImagePipeline::Made thumb, preview;
};

QJsonObject madeJson(const ImagePipeline::Made &m)
{
    QJsonObject o;
    o.insert(QStringLiteral("source"), m.source);
    o.insert(QStringLiteral("ms"), qRound(m.ms * 10) / 10.0);
    o.insert(QStringLiteral("width"), m.box ? m.box->image.width() : 0);
    o.insert(QStringLiteral("height"), m.box ? m.box->image.height() : 0);
    return o;
}

void printSummary(const char *title, const std::vector<Row> &rows, bool preview)
{
    struct Stat {
        int count = 0;
        double ms = 0;
    };
    QMap<QString, Stat> bySource;
    int failed = 0;
    for (const Row &r : rows) {
        const ImagePipeline::Made &m = preview ? r.preview : r.thumb;
        if (!m.box) {
            ++failed;
            continue;
        }
        Stat &s = bySource[m.source];
        ++s.count;
        s.ms += m.ms;
    }
    std::printf("%s\n", title);
    for (auto it = bySource.cbegin(); it != bySource.cend(); ++it)
        std::printf("  %-26s %5d  media %7.1f ms  total %8.0f ms\n", it.key().toUtf8().constData(), it->count,
                    it->ms / it->count, it->ms);
    if (failed)
        std::printf("  %-26s %5d\n", "sin imagen", failed);
}

} // namespace

int thumbsCommand(const QStringList &args)
{
    ArgParser p({"previews", "json"}, {});
    int status = 0;
    const QString folder = FolderArgument::parse(p, args, status);
    if (folder.isEmpty())
        return status;
    const auto listed = FolderArgument::list(folder);
    if (!listed)
        return 1;
    const ScanResult &scan = *listed;
    ImagePipeline pipeline;
    const DiskKind kind = diskKindFor(folder);
    pipeline.configure(folder, kind);
    const bool previews = p.flag("previews");
    const int previewPx = pipeline.previewPixels();

    std::vector<Row> rows(size_t(scan.items.size()));
    QElapsedTimer wall;
    wall.start();
    parallelRun(scan.items.size(), pipeline.thumbQueueWidth(), QStringLiteral("Miniaturas"), [&](qsizetype i) {
        const ScannedItem &item = scan.items[i];
        Row row;
        row.file = item.url;
        row.thumb = pipeline.thumbnailNow(item.previewURL, item.previewIsRaw);
        if (previews)
            row.preview = pipeline.previewNow(item.previewURL, item.previewIsRaw, previewPx);
        rows[size_t(i)] = row;
    });
    pipeline.waitForIdle();
    const double totalMs = wall.nsecsElapsed() / 1e6;

    if (p.flag("json")) {
        QJsonArray out;
        for (const Row &r : std::as_const(rows)) {
            QJsonObject o = madeJson(r.thumb);
            o.insert(QStringLiteral("file"), r.file);
            if (previews)
                o.insert(QStringLiteral("preview"), madeJson(r.preview));
            out.append(o);
        }
        std::printf("%s\n", QJsonDocument(out).toJson(QJsonDocument::Indented).constData());
        return 0;
    }
    printSummary("Miniaturas", rows, false);
    if (previews)
        printSummary(QStringLiteral("Vistas previas (%1 px)").arg(previewPx).toUtf8().constData(), rows, true);
    std::printf("%lld imágenes en %.0f ms (%.0f por segundo), disco: %s, %d hilos\n", qint64(rows.size()), totalMs,
                totalMs > 0 ? rows.size() * 1000.0 / totalMs : 0.0, diskKindName(kind).toUtf8().constData(),
                pipeline.thumbQueueWidth());
    return 0;
}
