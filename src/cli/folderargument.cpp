#include "folderargument.h"

#include "model/loadtoken.h"

#include <QFileInfo>

#include <cstdio>

namespace FolderArgument {
namespace {
void err(const QString &line) { std::fprintf(stderr, "%s\n", line.toUtf8().constData()); }
} // namespace

QString parse(ArgParser &parser, const QStringList &args, int &status, const QString &usage)
{
    if (!parser.parse(args) || parser.positional().size() != 1) {
        const QString why = parser.error().isEmpty() ? usage : parser.error();
        if (!why.isEmpty())
            err(why);
        status = 2;
        return {};
    }
    const QString folder = FolderScanner::standardPath(parser.positional().first());
    if (!QFileInfo(folder).isDir()) {
        err(QStringLiteral("«%1» no es una carpeta.").arg(folder));
        status = 1;
        return {};
    }
    return folder;
}

std::optional<ScanResult> list(const QString &folder)
{
    ScanResult scan = FolderScanner::listFolder(folder, LoadToken());
    if (scan.denied) {
        reportDenied(folder);
        return std::nullopt;
    }
    return scan;
}

void reportDenied(const QString &folder)
{
    err(QStringLiteral("No tienes permiso para leer «%1».").arg(folder));
}

} // namespace FolderArgument
