#include "sharpnesscommand.h"

#include "argparser.h"
#include "folderargument.h"
#include "parallelrun.h"

#include "analysis/sharpness.h"
#include "analysis/sharpnesscache.h"
#include "model/sharpverdict.h"
#include "model/folderscanner.h"

#include <QFileInfo>
#include <QJsonArray>
#include <QJsonDocument>
#include <QJsonObject>
#include <QJsonValue>
#include <QThread>

#include <cstdio>
#include <vector>

namespace {

struct Row {
    QString file;
    std::optional<SharpResult> result;   // nothing when the shot could not be decoded
    int level = SharpUnmeasured;
    QString verdict;
};

QString verdictText(const SharpResult &r, SharpSensitivity s, int level)
{
    switch (level) {
    case SharpSharp: return QStringLiteral("Nítida");
    case SharpDoubtful: return QStringLiteral("Dudosa");
    case SharpBlurry: {
        // The browser's own wording, so the terminal and the window never disagree.
        return sharpReason(r.best, std::nullopt, s);
    }
    default: return {};
    }
}

} // namespace

int sharpnessCommand(const QStringList &args)
{
    ArgParser p({"json"}, {"sensitivity"});
    int status = 0;
    const QString folder = FolderArgument::parse(
        p, args, status, QStringLiteral("Uso: corvane sharpness [--json] [--sensitivity strict|normal|loose] CARPETA"));
    if (folder.isEmpty())
        return status;
    SharpSensitivity sensitivity = currentSharpSensitivity();
    if (p.has("sensitivity")) {
        const QString v = p.value("sensitivity");
        if (v != QLatin1String("strict") && v != QLatin1String("normal") && v != QLatin1String("loose")) {
            std::fprintf(stderr, "Sensibilidad desconocida: %s (strict, normal o loose)\n", v.toUtf8().constData());
            return 2;
        }
        sensitivity = sharpSensitivityFromString(v);
    }

    const auto listed = FolderArgument::list(folder);
    if (!listed)
        return 1;
    const ScanResult &scan = *listed;

    SharpnessCache &cache = SharpnessCache::shared();
    std::vector<Row> rows(size_t(scan.items.size()));
    parallelRun(scan.items.size(), QThread::idealThreadCount(), QStringLiteral("Nitidez"), [&](qsizetype i) {
        const ScannedItem &item = scan.items[i];
        const QString key = SharpnessCache::photoKey(item.previewURL);
        std::optional<SharpResult> result = cache.get(key);
        if (!result) {
            result = measureSharpnessOfFile(item.previewURL, item.previewIsRaw);
            if (result)
                cache.put(key, *result);
        }
        Row row;
        row.file = QFileInfo(item.url).fileName();
        row.result = result;
        if (result) {
            row.level = sharpVerdict(result->best, std::nullopt, sensitivity);
            row.verdict = verdictText(*result, sensitivity, row.level);
        } else {
            row.verdict = QStringLiteral("No se pudo leer la imagen");
        }
        rows[size_t(i)] = row;
    });
    if (!cache.save())
        std::fprintf(stderr, "No se pudo guardar la caché de nitidez en «%s».\n", cache.url().toUtf8().constData());

    if (p.flag("json")) {
        QJsonArray out;
        for (const Row &r : std::as_const(rows)) {
            QJsonObject o;
            o.insert(QStringLiteral("file"), r.file);
            o.insert(QStringLiteral("score"), r.result ? QJsonValue(r.result->best) : QJsonValue());
            o.insert(QStringLiteral("focusX"), r.result ? QJsonValue(r.result->focusX) : QJsonValue());
            o.insert(QStringLiteral("focusY"), r.result ? QJsonValue(r.result->focusY) : QJsonValue());
            o.insert(QStringLiteral("level"), r.level);
            o.insert(QStringLiteral("verdict"), r.verdict);
            out.append(o);
        }
        std::printf("%s\n", QJsonDocument(out).toJson(QJsonDocument::Indented).constData());
        return 0;
    }
    for (const Row &r : std::as_const(rows)) {
        if (r.result)
            std::printf("%-32s %9.1f  (%.3f, %.3f)  %d  %s\n", r.file.toUtf8().constData(), r.result->best,
                        r.result->focusX, r.result->focusY, r.level, r.verdict.toUtf8().constData());
        else
            std::printf("%-32s %9s  %-14s  %d  %s\n", r.file.toUtf8().constData(), "-", "-", r.level,
                        r.verdict.toUtf8().constData());
    }
    return 0;
}
