#include "commands.h"

#include "argparser.h"
#include "folderargument.h"
#include "terminalprogress.h"

#include "marks/marksbook.h"
#include "marks/marksfile.h"
#include "marks/marksstore.h"
#include "metadata/sidecarmarks.h"
#include "metadata/xmplabels.h"
#include "metadata/xmpsidecar.h"
#include "model/folderscanner.h"
#include "model/loadtoken.h"

#include "sampledata/sampleshoot.h"

#include <QCoreApplication>
#include <QDir>
#include <QFileInfo>
#include <QJsonArray>
#include <QJsonDocument>
#include <QJsonObject>

#include <cstdio>

namespace Commands {
namespace {

void out(const QString &line) { std::printf("%s\n", line.toUtf8().constData()); }
void err(const QString &line) { std::fprintf(stderr, "%s\n", line.toUtf8().constData()); }
void printJson(const QJsonDocument &doc) { std::printf("%s\n", doc.toJson(QJsonDocument::Indented).constData()); }

QString describeMarks(const Marks &m)
{
    QStringList parts;
    if (m.c)
        parts << QStringLiteral("color %1").arg(*m.c);
    if (m.r)
        parts << QString(*m.r, QChar(0x2605));
    if (m.t)
        parts << QStringLiteral("marcada");
    if (m.o)
        parts << QStringLiteral("giro %1°").arg(*m.o * 90);
    if (m.k)
        parts << QStringLiteral("recorte");
    return parts.join(QStringLiteral(" · "));
}

// The storage mode of this run: `--storage json|sidecar`, else the setting. Nothing (after
// saying so) when the option is wrong.
std::optional<MarksStorage> storageOf(const ArgParser &p)
{
    if (!p.has("storage"))
        return MarksStorageSetting::get();
    const auto storage = MarksStorageSetting::fromOption(p.value("storage"));
    if (!storage)
        err(QStringLiteral("--storage es json o sidecar."));
    return storage;
}

bool parseInt(const QString &text, int lo, int hi, int &value)
{
    bool ok = false;
    value = text.toInt(&ok);
    return ok && value >= lo && value <= hi;
}

} // namespace

int scan(const QStringList &args)
{
    ArgParser p({"recursive", "json"}, {});
    int status = 0;
    const QString folder = FolderArgument::parse(p, args, status);
    if (folder.isEmpty())
        return status;
    LoadToken token;
    ScanResult r;
    if (p.flag("recursive")) {
        TerminalProgress bar;
        r = FolderScanner::listTree(folder, token, [&](const QString &text, int count) { bar.update(text, count, 0); });
    } else {
        r = FolderScanner::listFolder(folder, token);
    }
    if (p.flag("json")) {
        QJsonArray items;
        for (const ScannedItem &item : std::as_const(r.items)) {
            QJsonObject o;
            o.insert(QStringLiteral("url"), item.url);
            o.insert(QStringLiteral("previewURL"), item.previewURL);
            o.insert(QStringLiteral("previewIsRaw"), item.previewIsRaw);
            o.insert(QStringLiteral("badge"), item.badge);
            o.insert(QStringLiteral("files"), QJsonArray::fromStringList(item.files));
            o.insert(QStringLiteral("size"), double(item.size));
            o.insert(QStringLiteral("hasSidecar"), r.xmpKeys.contains(FolderScanner::groupingKey(item.url)));
            items.append(o);
        }
        QJsonObject root;
        root.insert(QStringLiteral("items"), items);
        root.insert(QStringLiteral("subfolders"), QJsonArray::fromStringList(r.subfolders));
        root.insert(QStringLiteral("folderCount"), r.folderCount);
        root.insert(QStringLiteral("truncated"), r.truncated);
        root.insert(QStringLiteral("denied"), r.denied);
        printJson(QJsonDocument(root));
    } else {
        if (r.denied) {
            FolderArgument::reportDenied(folder);
            return 1;
        }
        for (const QString &s : std::as_const(r.subfolders))
            out(QStringLiteral("carpeta\t%1/").arg(s));
        for (const ScannedItem &item : std::as_const(r.items)) {
            const bool xmp = r.xmpKeys.contains(FolderScanner::groupingKey(item.url));
            out(QStringLiteral("%1\t%2\t%3%4").arg(item.badge).arg(item.size).arg(item.url, xmp ? QStringLiteral("\t+xmp") : QString()));
        }
        out(QStringLiteral("%1 imágenes en %2 carpetas%3")
                .arg(r.items.size())
                .arg(r.folderCount)
                .arg(r.truncated ? QStringLiteral(" (lista cortada)") : QString()));
    }
    return r.denied ? 1 : 0;
}

int marks(const QStringList &args)
{
    ArgParser p({"json"}, {"storage"});
    int status = 0;
    const QString folder = FolderArgument::parse(p, args, status);
    if (folder.isEmpty())
        return status;
    const auto storage = storageOf(p);
    if (!storage)
        return 2;
    const auto scan = FolderArgument::list(folder);
    if (!scan)
        return 1;
    const MarksFile f = MarksFile::load(folder).value_or(MarksFile{});

    // Every record of the file, then each shot as the window shows it (its sidecar's marks where
    // the mode says so).
    QMap<QString, SidecarMarks::Resolved> shown;
    for (auto it = f.marks.cbegin(); it != f.marks.cend(); ++it)
        if (!it->isEmpty())
            shown.insert(it.key(), {*it, SidecarMarks::Source::file});
    const QStringList labels = XmpLabels::userLabels();
    for (const ScannedItem &item : scan->items) {
        const QString key = MarksFile::keyFor(item.url);
        const auto record = f.marks.contains(key) ? std::optional<Marks>(f.marks.value(key)) : std::nullopt;
        if (*storage == MarksStorage::folderFile && record)
            continue;
        const QString path = SidecarMarks::sidecarToRead(item.url, item.sidecarURL, scan->xmpKeys);
        const auto sidecar = path.isEmpty() ? std::nullopt : XmpSidecar::read(path, labels);
        const SidecarMarks::Resolved r = SidecarMarks::resolve(*storage, record, sidecar);
        if (r.marks)
            shown.insert(key, r);
        else
            shown.remove(key);
    }

    if (p.flag("json")) {
        QJsonObject m, sources;
        for (auto it = shown.cbegin(); it != shown.cend(); ++it) {
            m.insert(it.key(), it->marks->toJson());
            sources.insert(it.key(), SidecarMarks::sourceName(it->source));
        }
        QJsonObject root;
        root.insert(QStringLiteral("folder"), folder);
        root.insert(QStringLiteral("marks"), m);
        root.insert(QStringLiteral("sources"), sources);
        QJsonObject offsets;
        for (auto it = f.cameraOffsets.cbegin(); it != f.cameraOffsets.cend(); ++it)
            offsets.insert(it.key(), it.value());
        root.insert(QStringLiteral("cameraOffsets"), offsets);
        printJson(QJsonDocument(root));
        return 0;
    }
    for (auto it = shown.cbegin(); it != shown.cend(); ++it)
        out(QStringLiteral("%1\t%2%3").arg(it.key(), describeMarks(*it->marks),
                                            it->source == SidecarMarks::Source::sidecar ? QStringLiteral("\t(.xmp)") : QString()));
    out(QStringLiteral("%1 imágenes con marcas").arg(shown.size()));
    return 0;
}

int mark(const QStringList &args)
{
    ArgParser p({}, {"color", "rating", "tag", "rotate", "storage"});
    if (!p.parse(args) || p.positional().isEmpty()) {
        if (!p.error().isEmpty())
            err(p.error());
        return 2;
    }
    int color = -1, rating = -1, rotate = 0;
    if (p.has("color") && !parseInt(p.value("color"), 0, 8, color)) {
        err(QStringLiteral("--color va de 0 (sin color) a 8."));
        return 2;
    }
    if (p.has("rating") && !parseInt(p.value("rating"), 0, 5, rating)) {
        err(QStringLiteral("--rating va de 0 a 5."));
        return 2;
    }
    if (p.has("rotate") && !parseInt(p.value("rotate"), -3, 3, rotate)) {
        err(QStringLiteral("--rotate son cuartos de vuelta, de -3 a 3."));
        return 2;
    }
    const QString tag = p.value("tag");
    if (p.has("tag") && tag != QLatin1String("on") && tag != QLatin1String("off")) {
        err(QStringLiteral("--tag es on u off."));
        return 2;
    }

    const auto storage = storageOf(p);
    if (!storage)
        return 2;
    const QStringList labels = XmpLabels::userLabels();

    MarksStore store;
    MarksBook book(&store);
    QStringList failures;
    QObject::connect(&store, &MarksStore::writeFailed, [&](const QString &m) { failures.append(m); });
    int status = 0;
    for (const QString &arg : p.positional()) {
        const QString path = FolderScanner::standardPath(arg);
        if (!QFileInfo(path).isFile()) {
            err(QStringLiteral("No existe el archivo «%1».").arg(arg));
            status = 1;
            continue;
        }
        // The marks the shot shows now, as the window would: the record, its sidecar's where the
        // mode says so.
        const QString sidecar = SidecarMarks::sidecarOf(path);
        const std::optional<Marks> record = book.marksFor(path);
        std::optional<XmpState> fromSidecar;
        if (*storage == MarksStorage::sidecar || !record) {
            fromSidecar = XmpSidecar::read(sidecar, labels);
            if (!fromSidecar && !QFileInfo::exists(sidecar))
                fromSidecar = XmpSidecar::read(path + QStringLiteral(".xmp"), labels);
        }
        const Marks m = SidecarMarks::resolve(*storage, record, fromSidecar).marks.value_or(Marks{});
        ColorClass c = colorClassFromInt(m.c.value_or(0));
        int r = m.r.value_or(0);
        bool t = m.t.value_or(false);
        int o = m.o.value_or(0);
        if (color >= 0)
            c = colorClassFromInt(color);
        if (rating >= 0)
            r = rating;
        if (p.has("tag"))
            t = tag == QLatin1String("on");
        o = ((o + rotate) % 4 + 4) % 4;
        const Marks next = Marks::from(c, r, t, o, m.k);
        book.set(path, next, true);
        if (*storage == MarksStorage::sidecar) {
            const XmpState state = SidecarMarks::withOrientation(SidecarMarks::stateOf(next), path, sidecar);
            if (!XmpSidecar::write(sidecar, state, labels).ok())
                status = 1;   // already said on stderr
        }
        out(QStringLiteral("%1\t%2").arg(QFileInfo(path).fileName(), describeMarks(next)));
    }
    store.flush();
    QCoreApplication::processEvents();   // deliver queued failure reports
    for (const QString &f : std::as_const(failures))
        err(f);
    return failures.isEmpty() ? status : 1;
}

int sampleShoot(const QStringList &args)
{
    if (args.size() != 1)
        return 2;
    TerminalProgress bar;
    const QString error = SampleShoot::generate(args.first(), [&](int done, int total) {
        bar.update(QStringLiteral("Creando la sesión de ejemplo"), done, total);
    });
    bar.finish();
    if (!error.isEmpty()) {
        err(error);
        return 1;
    }
    out(QDir(args.first()).absolutePath());
    return 0;
}

} // namespace Commands
