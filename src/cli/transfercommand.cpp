#include "transfercommand.h"

#include "argparser.h"
#include "fileopoutput.h"
#include "terminalprogress.h"

#include "fileops/fileopjournal.h"
#include "fileops/shottransfer.h"
#include "model/folderscanner.h"
#include "model/loadtoken.h"

#include <QFileInfo>
#include <QHash>
#include <QSet>

#include <cstdio>

namespace {

void err(const QString &line) { std::fprintf(stderr, "%s\n", line.toUtf8().constData()); }

// The shots of the files given, in the order given, each with every file of its pair: naming the
// RAW carries its JPEG along, as the window does.
std::optional<QList<ShotTransfer::Shot>> shotsOf(const QStringList &args)
{
    QHash<QString, ScanResult> scans;
    QList<ShotTransfer::Shot> shots;
    QSet<QString> seen;
    for (const QString &arg : args) {
        const QFileInfo info(arg);
        if (!info.isFile()) {
            err(QStringLiteral("No existe el archivo «%1».").arg(arg));
            return std::nullopt;
        }
        const QString folder = FolderScanner::standardPath(info.absolutePath());
        if (!scans.contains(folder))
            scans.insert(folder, FolderScanner::listFolder(folder, LoadToken()));
        const QString file = FolderScanner::standardPath(info.absoluteFilePath());
        const ScannedItem *item = nullptr;
        for (const ScannedItem &i : scans[folder].items)
            if (i.files.contains(file))
                item = &i;
        ShotTransfer::Shot shot{file};
        if (item) {
            if (seen.contains(item->url))
                continue;
            seen.insert(item->url);
            shot = {item->url};
            for (const QString &f : item->files)
                if (f != item->url)
                    shot.append(f);
        }
        shots.append(shot);
    }
    return shots;
}

int transferCommand(FileOpJournal::Op op, const QStringList &args)
{
    ArgParser p({"verify"}, {"to"});
    if (!p.parse(args) || p.positional().isEmpty() || p.value("to").isEmpty()) {
        err(p.error().isEmpty() ? QStringLiteral("Falta --to CARPETA o algún archivo.") : p.error());
        return 2;
    }
    FileOpOutput::recover();
    const auto shots = shotsOf(p.positional());
    if (!shots)
        return 1;
    TerminalProgress bar;
    const auto progress = [&](int done, int total) { bar.update(ShotTransfer::runningText(op, int(shots->size())), done, total); };
    const FileOpOutcome o = op == FileOpJournal::Op::copy ? ShotTransfer::copy(*shots, p.value("to"), p.flag("verify"), progress)
                                                          : ShotTransfer::move(*shots, p.value("to"), p.flag("verify"), progress);
    bar.finish();
    return FileOpOutput::print(o);
}

} // namespace

int copyCommand(const QStringList &args) { return transferCommand(FileOpJournal::Op::copy, args); }
int moveCommand(const QStringList &args) { return transferCommand(FileOpJournal::Op::move, args); }

int trashCommand(const QStringList &args)
{
    ArgParser p({}, {});
    if (!p.parse(args) || p.positional().isEmpty()) {
        err(p.error().isEmpty() ? QStringLiteral("Falta algún archivo.") : p.error());
        return 2;
    }
    FileOpOutput::recover();
    const auto shots = shotsOf(p.positional());
    if (!shots)
        return 1;
    TerminalProgress bar;
    const FileOpOutcome o = ShotTransfer::trash(*shots, [&](int done, int total) {
        bar.update(ShotTransfer::runningText(FileOpJournal::Op::trash, int(shots->size())), done, total);
    });
    bar.finish();
    return FileOpOutput::print(o);
}
