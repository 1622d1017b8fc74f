#include "iptccommand.h"

#include "argparser.h"
#include "terminalprogress.h"

#include "metadata/iptcbatch.h"
#include "metadata/iptcfile.h"
#include "metadata/iptclibrary.h"

#include <QFile>
#include <QFileInfo>
#include <QJsonArray>
#include <QJsonDocument>
#include <QJsonObject>

#include <cstdio>

namespace {

void out(const QString &line) { std::printf("%s\n", line.toUtf8().constData()); }
void err(const QString &line) { std::fprintf(stderr, "%s\n", line.toUtf8().constData()); }

QJsonObject valuesJson(const IptcValues &v)
{
    QJsonObject o;
    for (IptcField f : IptcFields::all())
        if (!v[f].isEmpty())
            o.insert(QLatin1String(IptcFields::jsonName(f)), v[f]);
    if (!v.keywords.isEmpty())
        o.insert(QLatin1String(IptcFields::kKeywordsJson), QJsonArray::fromStringList(v.keywords));
    return o;
}

int show(const QStringList &args)
{
    ArgParser p({"json"}, {});
    if (!p.parse(args) || p.positional().isEmpty()) {
        err(p.error().isEmpty() ? QStringLiteral("Falta al menos un archivo.") : p.error());
        return 2;
    }
    bool failed = false;
    QJsonArray files;
    for (const QString &file : p.positional()) {
        if (!QFileInfo(file).isFile()) {
            err(QStringLiteral("%1: el archivo no existe").arg(file));
            failed = true;
            continue;
        }
        const IptcValues v = IptcFile::read(file).value_or(IptcValues{});
        if (p.flag("json")) {
            QJsonObject o = valuesJson(v);
            o.insert(QStringLiteral("file"), file);
            files.append(o);
            continue;
        }
        if (p.positional().size() > 1)
            out(QStringLiteral("%1:").arg(file));
        const QString indent = p.positional().size() > 1 ? QStringLiteral("  ") : QString();
        for (IptcField f : IptcFields::all())
            if (!v[f].isEmpty())
                out(indent + IptcFields::label(f) + QStringLiteral(": ") + v[f]);
        if (!v.keywords.isEmpty())
            out(indent + IptcFields::keywordsLabel() + QStringLiteral(": ") + v.keywords.join(QStringLiteral(", ")));
        if (v.isEmpty())
            out(indent + QStringLiteral("(sin datos IPTC)"));
    }
    if (p.flag("json"))
        std::printf("%s", QJsonDocument(files).toJson(QJsonDocument::Indented).constData());
    return failed ? 1 : 0;
}

int apply(const QStringList &args)
{
    ArgParser p({"json"}, {"template", "template-file"});
    if (!p.parse(args) || p.positional().isEmpty() || p.has("template") == p.has("template-file")) {
        if (!p.error().isEmpty())
            err(p.error());
        else if (p.positional().isEmpty())
            err(QStringLiteral("Falta al menos un archivo."));
        else
            err(QStringLiteral("Usa --template o --template-file (uno de los dos)."));
        return 2;
    }
    IptcTemplate t;
    if (p.has("template")) {
        const auto found = IptcLibrary::find(p.value("template"));
        if (!found) {
            err(QStringLiteral("No hay ninguna plantilla IPTC que se llame «%1».").arg(p.value("template")));
            return 1;
        }
        t = *found;
    } else {
        QFile f(p.value("template-file"));
        if (!f.open(QIODevice::ReadOnly)) {
            err(QStringLiteral("No se puede leer «%1».").arg(p.value("template-file")));
            return 1;
        }
        QString why;
        const auto parsed = IptcTemplate::fromJsonBytes(f.read(IptcTemplate::kMaxJsonBytes + 1), &why);
        if (!parsed) {
            err(QStringLiteral("«%1»: %2.").arg(p.value("template-file"), why));
            return 1;
        }
        t = *parsed;
    }
    TerminalProgress bar;
    const IptcBatch::Outcome o = IptcBatch::apply(t, p.positional(), [&](int done, int total) {
        bar.update(QStringLiteral("Aplicando la plantilla IPTC"), done, total);
        return true;
    });
    bar.finish();
    for (const QString &m : o.messages)
        err(m);
    if (p.flag("json")) {
        QJsonObject j;
        j.insert(QStringLiteral("written"), o.written);
        j.insert(QStringLiteral("unchanged"), o.unchanged);
        j.insert(QStringLiteral("failed"), o.failed);
        j.insert(QStringLiteral("errors"), QJsonArray::fromStringList(o.messages));
        std::printf("%s", QJsonDocument(j).toJson(QJsonDocument::Indented).constData());
    } else {
        out(QStringLiteral("%1 escritos, %2 ya la tenían, %3 con errores").arg(o.written).arg(o.unchanged).arg(o.failed));
    }
    return o.failed ? 1 : 0;
}

} // namespace

int iptcCommand(const QStringList &args)
{
    if (args.isEmpty())
        return 2;
    const QString sub = args.first();
    if (sub == QLatin1String("show"))
        return show(args.mid(1));
    if (sub == QLatin1String("apply"))
        return apply(args.mid(1));
    err(QStringLiteral("Subcomando desconocido: %1 (show o apply)").arg(sub));
    return 2;
}
