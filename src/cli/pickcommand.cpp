#include "pickcommand.h"

#include "argparser.h"
#include "folderargument.h"

#include "fileops/clientselection.h"
#include "marks/marksbook.h"
#include "marks/marksstore.h"

#include <QCoreApplication>
#include <QFile>
#include <QFileInfo>
#include <QHash>
#include <QJsonArray>
#include <QJsonDocument>
#include <QJsonObject>

#include <cstdio>

using namespace ClientSelection;

namespace {

// A client's message is a few lines; this only keeps a wrong file from filling memory.
constexpr qint64 kMaxMessageBytes = 16 << 20;

void out(const QString &line) { std::printf("%s\n", line.toUtf8().constData()); }
void err(const QString &line) { std::fprintf(stderr, "%s\n", line.toUtf8().constData()); }

// The message from the option, the file or standard input; nothing, after saying why, on failure.
std::optional<QString> readMessage(const ArgParser &p, bool fromStdin, int &status)
{
    const int sources = int(p.has("message")) + int(p.has("message-file")) + int(fromStdin);
    if (sources != 1) {
        err(QStringLiteral("Da el mensaje de una sola forma: --message TEXTO, --message-file ARCHIVO o - (entrada estándar)."));
        status = 2;
        return std::nullopt;
    }
    if (p.has("message"))
        return p.value("message");
    QFile file(p.value("message-file"));
    const bool opened = fromStdin ? file.open(stdin, QIODevice::ReadOnly) : file.open(QIODevice::ReadOnly);
    if (!opened) {
        err(QStringLiteral("No se puede leer «%1».").arg(file.fileName()));
        status = 1;
        return std::nullopt;
    }
    const QByteArray bytes = file.read(kMaxMessageBytes + 1);
    if (bytes.size() > kMaxMessageBytes) {
        err(QStringLiteral("El mensaje pasa de 16 MB."));
        status = 1;
        return std::nullopt;
    }
    return QString::fromUtf8(bytes);   // invalid UTF-8 becomes U+FFFD, which no token holds
}

} // namespace

int pickCommand(const QStringList &args)
{
    ArgParser p({"select-only", "json"}, {"message", "message-file", "color"});
    QStringList rest = args;
    const bool fromStdin = rest.removeAll(QStringLiteral("-")) > 0;
    int status = 0;
    const QString folder = FolderArgument::parse(p, rest, status);
    if (folder.isEmpty())
        return status;
    const std::optional<QString> message = readMessage(p, fromStdin, status);
    if (!message)
        return status;
    int color = -1;
    if (p.has("color")) {
        bool ok = false;
        color = p.value("color").toInt(&ok);
        if (!ok || color < 0 || color > 8) {
            err(QStringLiteral("--color va de 0 (sin color) a 8."));
            return 2;
        }
    }
    const auto scan = FolderArgument::list(folder);
    if (!scan)
        return 1;

    QList<QPair<QUuid, QString>> shots;
    QHash<QUuid, QString> fileOf;
    for (const ScannedItem &item : scan->items) {
        const QUuid id = QUuid::createUuid();
        shots.append({id, item.url});
        fileOf.insert(id, item.url);
    }
    const QList<ClientMatch> lines = match(extractTokens(*message), PhotoIndex(shots));
    const QList<QUuid> chosen = chosenPhotos(lines);
    const QStringList missing = missingTokens(lines);

    QStringList failures;
    if (color >= 0) {
        MarksStore store;
        MarksBook book(&store);
        QObject::connect(&store, &MarksStore::writeFailed, [&](const QString &m) { failures.append(m); });
        for (const QUuid &id : chosen) {
            const QString &file = fileOf[id];
            const Marks m = book.marksFor(file).value_or(Marks{});
            book.set(file, Marks::from(colorClassFromInt(color), m.r.value_or(0), m.t.value_or(false), m.o.value_or(0), m.k),
                     false);
        }
        book.persist(folder);
        store.flush();
        QCoreApplication::processEvents();   // deliver queued failure reports
    }

    const bool selectOnly = p.flag("select-only");
    if (p.flag("json")) {
        QJsonArray selected;
        for (const QUuid &id : chosen)
            selected.append(fileOf[id]);
        QJsonDocument doc;
        if (selectOnly) {
            doc.setArray(selected);
        } else {
            QJsonArray tokens;
            for (const ClientMatch &m : lines) {
                QJsonArray files;
                for (const QUuid &id : m.photos)
                    files.append(fileOf[id]);
                QJsonObject o{{QStringLiteral("token"), m.token}, {QStringLiteral("files"), files}};
                if (const QString problem = problemOf(m); !problem.isEmpty())
                    o.insert(QStringLiteral("problem"), problem);
                tokens.append(o);
            }
            doc.setObject({{QStringLiteral("folder"), folder},
                           {QStringLiteral("tokens"), tokens},
                           {QStringLiteral("selected"), selected},
                           {QStringLiteral("missing"), QJsonArray::fromStringList(missing)}});
        }
        std::printf("%s", doc.toJson(QJsonDocument::Indented).constData());
    } else if (selectOnly) {
        for (const QUuid &id : chosen)
            out(fileOf[id]);
    } else {
        for (const ClientMatch &m : lines) {
            QStringList names;
            for (const QUuid &id : m.photos)
                names << QFileInfo(fileOf[id]).fileName();
            const QString problem = problemOf(m);
            out(m.token + QLatin1Char('\t') + names.join(QStringLiteral(", "))
                + (problem.isEmpty() ? QString() : QLatin1Char('\t') + problem));
        }
        QString summary = chosen.size() == 1 ? QStringLiteral("1 imagen") : QStringLiteral("%1 imágenes").arg(chosen.size());
        if (color >= 0)
            summary += color == 0 ? QStringLiteral(", sin color") : QStringLiteral(", marcadas con el color %1").arg(color);
        if (!missing.isEmpty())
            summary += missing.size() == 1 ? QStringLiteral("; 1 número que no está")
                                           : QStringLiteral("; %1 números que no están").arg(missing.size());
        out(summary);
    }
    for (const QString &f : std::as_const(failures))
        err(f);
    if (!failures.isEmpty())
        return 1;
    return missing.isEmpty() ? 0 : 1;
}
