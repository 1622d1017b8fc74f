#include "renamecommand.h"

#include "argparser.h"
#include "fileopoutput.h"
#include "terminalprogress.h"

#include "fileops/fileopjournal.h"
#include "fileops/renameplan.h"
#include "fileops/shotrenamer.h"
#include "metadata/photometareader.h"
#include "model/folderscanner.h"
#include "model/loadtoken.h"

#include <QDir>
#include <QFileInfo>
#include <QHash>
#include <QJsonArray>
#include <QJsonDocument>
#include <QJsonObject>

#include <cstdio>

namespace {

void out(const QString &line) { std::printf("%s\n", line.toUtf8().constData()); }
void err(const QString &line) { std::fprintf(stderr, "%s\n", line.toUtf8().constData()); }

bool parseCase(const ArgParser &p, const char *option, NameCase &value)
{
    if (!p.has(option))
        return true;
    const auto c = NameCases::fromRaw(p.value(option));
    if (c)
        value = *c;
    return c.has_value();
}

bool parseInt(const ArgParser &p, const char *option, int lo, int hi, int &value)
{
    if (!p.has(option))
        return true;
    bool ok = false;
    const int n = p.value(option).toInt(&ok);
    if (!ok || n < lo || n > hi)
        return false;
    value = n;
    return true;
}

} // namespace

int renameCommand(const QStringList &args)
{
    ArgParser p({"dry-run", "json"}, {"mode", "name", "separator", "template", "pattern", "start", "digits", "name-case", "ext-case"});
    if (!p.parse(args) || p.positional().isEmpty()) {
        if (!p.error().isEmpty())
            err(p.error());
        return 2;
    }
    RenameOptions o;   // the command line's own choices: settings are the window's
    if (p.has("mode")) {
        if (p.value("mode") != QLatin1String("simple") && p.value("mode") != QLatin1String("custom")) {
            err(QStringLiteral("--mode es simple o custom."));
            return 2;
        }
        o.mode = p.value("mode") == QLatin1String("custom") ? RenameOptions::Mode::custom : RenameOptions::Mode::simple;
    }
    o.name = p.value("name");
    if (p.has("separator"))
        o.separator = p.value("separator");
    if (p.has("template")) {
        const auto t = RenameTemplate::byId(p.value("template"));
        if (!t) {
            err(QStringLiteral("Plantillas: simple, date-name, name-original, date-original, date-time, camera, number."));
            return 2;
        }
        o.mode = RenameOptions::Mode::custom;
        o.pattern = t->pattern(o.separator, o.name);
    }
    if (p.has("pattern")) {
        o.pattern = NamePattern::fromJsonText(p.value("pattern"));
        if (!o.pattern) {
            err(QStringLiteral("--pattern no es un patrón de nombres válido (JSON)."));
            return 2;
        }
        o.mode = RenameOptions::Mode::custom;
    }
    if (!parseInt(p, "start", 0, 99999999, o.start) || !parseInt(p, "digits", 1, 8, o.digits)) {
        err(QStringLiteral("--start va de 0 a 99999999 y --digits de 1 a 8."));
        return 2;
    }
    if (!parseCase(p, "name-case", o.nameCase) || !parseCase(p, "ext-case", o.extCase)) {
        err(QStringLiteral("--name-case y --ext-case son keep, lower o upper."));
        return 2;
    }
    o.caseOn = p.has("name-case") || p.has("ext-case");

    FileOpOutput::recover();
    // The shots of the files given, in the order given; one folder at a time.
    QString folder;
    for (const QString &arg : p.positional()) {
        const QFileInfo info(arg);
        if (!info.isFile()) {
            err(QStringLiteral("No existe el archivo «%1».").arg(arg));
            return 1;
        }
        const QString dir = FolderScanner::standardPath(info.absolutePath());
        if (!folder.isEmpty() && dir != folder) {
            err(QStringLiteral("Los archivos a renombrar tienen que estar en una misma carpeta."));
            return 2;
        }
        folder = dir;
    }
    LoadToken token;
    const ScanResult scan = FolderScanner::listFolder(folder, token);
    QHash<QString, const ScannedItem *> byFile;
    for (const ScannedItem &item : scan.items)
        for (const QString &f : item.files)
            byFile.insert(f, &item);
    QList<RenameShot> shots;
    QSet<const ScannedItem *> taken;
    for (const QString &arg : p.positional()) {
        const ScannedItem *item = byFile.value(FolderScanner::standardPath(QFileInfo(arg).absoluteFilePath()));
        if (!item || taken.contains(item))
            continue;
        taken.insert(item);
        RenameShot s;
        s.mainFile = item->url;
        s.files = RenameShot::companions(item->files);
        const auto meta = readPhotoMeta(item->previewURL.isEmpty() ? item->url : item->previewURL);
        s.date = meta && meta->captureDate.isValid() ? meta->captureDate : item->modified.value_or(QDateTime());
        if (meta && !meta->cameraName().isEmpty())
            s.camera = meta->cameraName();
        shots.append(s);
    }
    const RenamePlan plan = planRename(shots, o, QDir(folder).entryList(QDir::Files | QDir::Hidden | QDir::System));

    if (p.flag("dry-run")) {
        if (p.flag("json")) {
            QJsonArray rows;
            for (const RenameRow &r : plan.rows)
                rows.append(QJsonObject{{"old", r.oldName}, {"new", r.newName}, {"oldExts", QJsonArray::fromStringList(r.oldExts)},
                                        {"newExts", QJsonArray::fromStringList(r.newExts)}, {"changed", r.changed}, {"problem", r.problem}});
            std::printf("%s\n", QJsonDocument(QJsonObject{{"rows", rows}, {"conflicts", plan.conflicts()}})
                                    .toJson(QJsonDocument::Indented).constData());
        } else {
            for (const RenameRow &r : plan.rows)
                out(QStringLiteral("%1\t%2%3").arg(r.oldName, r.newName, r.problem.isEmpty() ? QString() : QStringLiteral("\t") + r.problem));
            if (plan.numbersRepeats)
                out(RenamePlan::repeatsNote());
            out(plan.footer().isEmpty() ? plan.buttonText() : plan.footer());
        }
        return plan.conflicts() > 0 ? 1 : 0;
    }
    if (plan.conflicts() > 0) {
        for (const RenameRow &r : plan.rows)
            if (!r.problem.isEmpty())
                err(QStringLiteral("%1: %2").arg(r.oldName, r.problem));
        err(plan.footer());
        return 1;
    }
    if (plan.changedCount() == 0) {
        out(plan.footer());
        return 0;
    }
    TerminalProgress bar;
    const RenameOutcome o2 = ShotRenamer::run(plan, [&](int done, int total) {
        bar.update(ShotRenamer::runningText(plan.changedCount()), done, total);
    });
    bar.finish();
    return FileOpOutput::print(o2);
}

int undoCommand(const QStringList &args)
{
    if (!args.isEmpty())
        return 2;
    FileOpOutput::recover();
    return FileOpOutput::print(FileOpEngine::undo());
}
