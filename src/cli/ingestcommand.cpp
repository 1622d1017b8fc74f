#include "ingestcommand.h"

#include "argparser.h"
#include "terminalprogress.h"

#include "ingest/cardejector.h"
#include "ingest/ingestrunner.h"
#include "ingest/ingestsettings.h"
#include "ingest/namepattern.h"
#include "metadata/iptclibrary.h"

#include <QDir>
#include <QEventLoop>
#include <QFileInfo>
#include <QJsonArray>
#include <QJsonDocument>
#include <QJsonObject>
#include <QTimer>

#include <atomic>
#include <csignal>
#include <cstdio>

namespace {

void out(const QString &line) { std::printf("%s\n", line.toUtf8().constData()); }
void err(const QString &line) { std::fprintf(stderr, "%s\n", line.toUtf8().constData()); }

std::atomic<bool> g_interrupted{false};

extern "C" void onInterrupt(int)
{
    g_interrupted = true;
    // A second Ctrl+C ends the program at once.
    std::signal(SIGINT, SIG_DFL);
}

bool parseInt(const QString &text, qint64 lo, qint64 hi, qint64 &value)
{
    bool ok = false;
    value = text.toLongLong(&ok);
    return ok && value >= lo && value <= hi;
}

// The destination folder given on the command line is made when only its last part is missing;
// a missing parent is more likely a disk that is not mounted.
void makeDestination(const QString &path)
{
    const QFileInfo info(path);
    if (info.exists() || path.isEmpty())
        return;
    const QFileInfo parent(info.absolutePath());
    if (parent.isDir())
        QDir(parent.absoluteFilePath()).mkdir(info.fileName());
}

QString megabytes(qint64 bytes) { return QString::number(double(bytes) / 1e6, 'f', 1) + QStringLiteral(" MB"); }

QJsonObject destJson(const DestResult &d)
{
    QJsonObject o;
    o.insert(QStringLiteral("root"), d.root);
    o.insert(QStringLiteral("status"), d.statusText());
    o.insert(QStringLiteral("copied"), d.copied);
    o.insert(QStringLiteral("skipped"), d.skipped);
    o.insert(QStringLiteral("failed"), d.failed);
    o.insert(QStringLiteral("verifiedOK"), d.verifiedOK);
    o.insert(QStringLiteral("verifyBad"), d.verifyBad);
    o.insert(QStringLiteral("verifiedDone"), d.verifiedDone);
    o.insert(QStringLiteral("errors"), QJsonArray::fromStringList(d.errors));
    return o;
}

QString outcomeName(IngestOutcome o)
{
    switch (o) {
    case IngestOutcome::verified: return QStringLiteral("verified");
    case IngestOutcome::copied: return QStringLiteral("copied");
    case IngestOutcome::errors: return QStringLiteral("errors");
    case IngestOutcome::cancelled: return QStringLiteral("cancelled");
    case IngestOutcome::nothingToDo: return QStringLiteral("nothingToDo");
    case IngestOutcome::planned: return QStringLiteral("dryRun");
    }
    return {};
}

void printPlan(const IngestReport &r, int destCount)
{
    const IngestPlan &plan = r.plan;
    for (const PlannedFile &f : plan.files) {
        QString line = f.src + QStringLiteral(" → ") + f.relPath;
        for (int d = 0; d < destCount; ++d)
            if (f.presentOn(d))
                line += d == 0 ? QStringLiteral("  (ya en el disco de trabajo)") : QStringLiteral("  (ya en la copia de seguridad)");
        out(line);
    }
    if (plan.nothingToDo())
        out(QStringLiteral("Todo lo de la tarjeta ya está importado"));
    else
        out(QStringLiteral("%1 archivos por copiar (%2).").arg(plan.files.size()).arg(megabytes(plan.bytesTotal)));
    if (plan.skippedImported > 0)
        out(QStringLiteral("Ya importados antes: %1.").arg(plan.skippedImported));
    for (int d = 0; d < destCount; ++d)
        if (plan.present.value(d) > 0)
            out(QStringLiteral("Ya estaban en el disco «%1»: %2.").arg(r.dests[d].root).arg(plan.present.value(d)));
}

void printSummary(const IngestReport &r)
{
    out(r.summary.title);
    out(r.summary.body);
    for (const QString &e : r.errors)
        out(e);
    for (const DestResult &d : r.dests) {
        out(QString());
        out(QStringLiteral("%1: %2 — %3")
                .arg(d.id == 0 ? QStringLiteral("Disco de trabajo") : QStringLiteral("Copia de seguridad"), d.root,
                     d.statusText()));
        QStringList counts{QStringLiteral("copiadas: %1").arg(d.copied),
                           QStringLiteral("Ya estaban en el disco: %1").arg(d.skipped)};
        if (d.failed)
            counts << QStringLiteral("fallidas: %1").arg(d.failed);
        if (d.verifiedDone)
            counts << QStringLiteral("verificadas: %1").arg(d.verifiedOK);
        if (d.verifyBad)
            counts << QStringLiteral("no coinciden: %1").arg(d.verifyBad);
        out(QStringLiteral("  ") + counts.join(QStringLiteral(" · ")));
        for (const QString &e : d.errors)
            out(QStringLiteral("  ") + e);
    }
    if (!r.ejectMessage.isEmpty()) {
        out(QString());
        out(r.ejectMessage);
    }
}

} // namespace

int ingestCommand(const QStringList &args)
{
    ArgParser p({"rename", "skip-imported", "video", "verify", "eject", "dry-run", "json"},
                {"from", "to", "backup", "structure", "session", "preset", "pattern", "start", "digits", "iptc"});
    if (!p.parse(args) || !p.positional().isEmpty() || !p.has("from") || !p.has("to")) {
        if (!p.error().isEmpty())
            err(p.error());
        else if (!p.positional().isEmpty())
            err(QStringLiteral("Argumento de más: %1").arg(p.positional().first()));
        else
            err(QStringLiteral("Faltan --from y --to."));
        return 2;
    }

    IngestOptions o;
    o.skipImported = p.flag("skip-imported");
    o.video = p.flag("video");
    o.verify = p.flag("verify");
    o.eject = p.flag("eject");
    o.rename = p.flag("rename");
    o.session = p.value("session");
    if (p.has("structure")) {
        const std::optional<IngestStructure> s = IngestStructures::fromRawValue(p.value("structure"));
        if (!s) {
            err(QStringLiteral("Estructura desconocida: %1 (none, yearDate, yearMonthDate, date o session)").arg(p.value("structure")));
            return 2;
        }
        o.structure = *s;
    }
    if (p.has("preset") && p.has("pattern")) {
        err(QStringLiteral("Usa --preset o --pattern, no los dos."));
        return 2;
    }
    o.pattern = IngestSettings::load().pattern();
    if (p.has("preset")) {
        const QList<NamePattern::Preset> presets = NamePattern::presets();
        qint64 n = 0;
        if (!parseInt(p.value("preset"), 1, presets.size(), n)) {
            err(QStringLiteral("--preset va de 1 a %1.").arg(presets.size()));
            return 2;
        }
        o.pattern = presets[int(n - 1)].pattern;
    }
    if (p.has("pattern")) {
        const std::optional<NamePattern> pattern = NamePattern::fromJsonText(p.value("pattern"));
        if (!pattern) {
            err(QStringLiteral("El patrón de --pattern no es un JSON de patrón válido."));
            return 2;
        }
        o.pattern = *pattern;
    }
    if (p.has("start") && !parseInt(p.value("start"), 0, 999999999, o.start)) {
        err(QStringLiteral("--start debe ser un número entre 0 y 999999999."));
        return 2;
    }
    if (p.has("digits") && !parseInt(p.value("digits"), 1, 8, o.digits)) {
        err(QStringLiteral("--digits va de 1 a 8."));
        return 2;
    }

    IngestRequest request;
    request.source = p.value("from");
    request.working = QFileInfo(p.value("to")).absoluteFilePath();
    request.backup = p.has("backup") ? QFileInfo(p.value("backup")).absoluteFilePath() : QString();
    request.options = o;
    request.dryRun = p.flag("dry-run");
    if (p.has("iptc")) {
        request.iptc = IptcLibrary::find(p.value("iptc"));
        if (!request.iptc) {
            err(QStringLiteral("No hay ninguna plantilla IPTC que se llame «%1».").arg(p.value("iptc")));
            return 1;
        }
    }
    if (!QFileInfo(request.source).isDir()) {
        err(QStringLiteral("«%1» no es una carpeta.").arg(request.source));
        return 1;
    }
    if (!request.dryRun) {
        makeDestination(request.working);
        makeDestination(request.backup);
    }

    IngestRunner runner;
    QEventLoop loop;
    TerminalProgress bar;
    QObject::connect(&runner, &IngestRunner::finished, &loop, &QEventLoop::quit);
    QObject::connect(&runner, &IngestRunner::progressChanged, &loop, [&] {
        QString label = ingestPhaseText(runner.phase());
        if (runner.phase() == IngestPhase::scanning) {
            label.chop(1);   // the bar adds its own "…" to a count
            bar.update(label, runner.done(), 0);
        } else if (runner.total() > 0) {
            bar.update(label + QLatin1Char(' ') + runner.currentName(), runner.done(), runner.total());
        }
    });
    // Ctrl+C cancels like the window's button: finished copies stay, the one at work is removed.
    g_interrupted = false;
    std::signal(SIGINT, onInterrupt);
    std::signal(SIGTERM, onInterrupt);
    QTimer interruptPoll;
    QObject::connect(&interruptPoll, &QTimer::timeout, &loop, [&] {
        if (g_interrupted)
            runner.cancel();
    });
    interruptPoll.start(100);

    runner.start(request);
    loop.exec();
    bar.finish();
    std::signal(SIGINT, SIG_DFL);
    std::signal(SIGTERM, SIG_DFL);

    const IngestReport &r = runner.report();
    const bool ejectFailed = o.eject && !request.dryRun && r.ejectMessage != QLatin1String(CardEjector::kEjectedText);
    const bool failed = r.hasErrors() || r.cancelled || ejectFailed;

    if (p.flag("json")) {
        QJsonObject j;
        j.insert(QStringLiteral("outcome"), outcomeName(r.summary.outcome));
        j.insert(QStringLiteral("title"), r.summary.title);
        j.insert(QStringLiteral("body"), r.summary.body);
        j.insert(QStringLiteral("cancelled"), r.cancelled);
        j.insert(QStringLiteral("verified"), r.verified);
        j.insert(QStringLiteral("copied"), r.copied);
        j.insert(QStringLiteral("skipped"), r.skipped);
        j.insert(QStringLiteral("found"), r.plan.itemCount);
        if (request.iptc)
            j.insert(QStringLiteral("iptcWritten"), r.iptcWritten);
        j.insert(QStringLiteral("resultFolder"), r.resultFolder);
        j.insert(QStringLiteral("errors"), QJsonArray::fromStringList(r.errors));
        if (!r.ejectMessage.isEmpty())
            j.insert(QStringLiteral("eject"), r.ejectMessage);
        QJsonArray dests;
        for (const DestResult &d : r.dests)
            dests.append(destJson(d));
        j.insert(QStringLiteral("dests"), dests);
        if (request.dryRun) {
            QJsonArray files;
            for (const PlannedFile &f : r.plan.files) {
                QJsonObject fo;
                fo.insert(QStringLiteral("src"), f.src);
                fo.insert(QStringLiteral("relPath"), f.relPath);
                fo.insert(QStringLiteral("size"), f.size);
                fo.insert(QStringLiteral("historyKey"), f.historyKey);
                QJsonArray present;
                for (int d = 0; d < r.dests.size(); ++d)
                    present.append(f.presentOn(d));
                fo.insert(QStringLiteral("present"), present);
                files.append(fo);
            }
            j.insert(QStringLiteral("files"), files);
            j.insert(QStringLiteral("skippedImported"), r.plan.skippedImported);
        }
        std::printf("%s\n", QJsonDocument(j).toJson(QJsonDocument::Indented).constData());
        return failed ? 1 : 0;
    }

    if (request.dryRun) {
        for (const QString &e : r.errors)
            err(e);
        for (const DestResult &d : r.dests)
            for (const QString &e : d.errors)
                err(e);
        printPlan(r, int(r.dests.size()));
        return failed ? 1 : 0;
    }
    printSummary(r);
    if (request.iptc)
        out(QStringLiteral("Plantilla IPTC «%1» puesta en %2 copias.").arg(request.iptc->name).arg(r.iptcWritten));
    return failed ? 1 : 0;
}
