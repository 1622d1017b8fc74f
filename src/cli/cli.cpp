#include "cli.h"

#include "commands.h"
#include "ingestcommand.h"
#include "iptccommand.h"
#include "pickcommand.h"
#include "renamecommand.h"
#include "rawpreviewscommand.h"
#include "receivecommand.h"
#include "sharpnesscommand.h"
#include "thumbscommand.h"
#include "transfercommand.h"
#include "uploadcommand.h"
#include "xmpexportcommand.h"

#include <QCoreApplication>
#include <cstring>
#include <cstdio>

namespace Cli {
namespace {

struct Command {
    const char *name;
    int (*run)(const QStringList &args);
    const char *usage;
};

const Command kCommands[] = {
    {"scan", &Commands::scan, "corvane scan [--recursive] [--json] CARPETA"},
    {"marks", &Commands::marks, "corvane marks [--json] [--storage json|sidecar] CARPETA"},
    {"mark", &Commands::mark, "corvane mark [--color N] [--rating N] [--tag on|off] [--rotate N] [--storage json|sidecar] ARCHIVO..."},
    {"thumbs", &thumbsCommand, "corvane thumbs [--previews] [--json] CARPETA"},
    {"sharpness", &sharpnessCommand, "corvane sharpness [--json] [--sensitivity strict|normal|loose] CARPETA"},
    {"raw-previews", &rawPreviewsCommand, "corvane raw-previews [--json] [--size N] ARCHIVO..."},
    {"xmp-export", &xmpExportCommand, "corvane xmp-export CARPETA"},
    {"iptc", &iptcCommand,
     "corvane iptc show [--json] ARCHIVO... | corvane iptc apply (--template NOMBRE | --template-file ARCHIVO.json) [--json] ARCHIVO..."},
    {"sample-shoot", &Commands::sampleShoot, "corvane sample-shoot CARPETA"},
    {"receive", &receiveCommand, "corvane receive --to CARPETA [--port N]"},
    {"ingest", &ingestCommand,
     "corvane ingest --from CARPETA --to CARPETA [--backup CARPETA] [--structure none|yearDate|yearMonthDate|date|session] "
     "[--session TEXTO] [--rename] [--preset N | --pattern JSON] [--start N] [--digits N] [--skip-imported] [--video] "
     "[--verify] [--eject] [--iptc PLANTILLA] [--dry-run] [--json]"},
    {"rename", &renameCommand,
     "corvane rename [--mode simple|custom] [--name TEXTO] [--separator S] [--template ID] [--pattern JSON] [--start N] "
     "[--digits N] [--name-case keep|lower|upper] [--ext-case keep|lower|upper] [--dry-run] [--json] ARCHIVO..."},
    {"copy", &copyCommand, "corvane copy --to CARPETA [--verify] ARCHIVO..."},
    {"move", &moveCommand, "corvane move --to CARPETA [--verify] ARCHIVO..."},
    {"trash", &trashCommand, "corvane trash ARCHIVO..."},
    {"undo", &undoCommand, "corvane undo"},
    {"upload", &uploadCommand,
     "corvane upload (URL | --server NOMBRE) ARCHIVO... [--user U] [--password P | --password-file F] "
     "[--tls explicit|implicit] [--active] [--insecure] [--pin SHA256] [--tmp-name]"},
    {"check", &checkCommand,
     "corvane check (URL | --server NOMBRE) [--user U] [--password P | --password-file F] [--tls explicit|implicit] "
     "[--active] [--insecure] [--pin SHA256]"},
    {"queue", &queueCommand, "corvane queue [--json] [--run] [--clear]"},
    {"pick", &pickCommand, "corvane pick CARPETA (--message TEXTO | --message-file ARCHIVO | -) [--color N] [--select-only] [--json]"},
};

void printUsage(FILE *out)
{
    std::fprintf(out, "Uso:\n  corvane [CARPETA|ARCHIVO...]   abre la ventana\n");
    for (const Command &c : kCommands)
        std::fprintf(out, "  %s\n", c.usage);
}

} // namespace

bool isSubcommand(const char *arg)
{
    if (std::strcmp(arg, "help") == 0 || std::strcmp(arg, "--help") == 0 || std::strcmp(arg, "-h") == 0)
        return true;
    for (const Command &c : kCommands)
        if (std::strcmp(arg, c.name) == 0)
            return true;
    return false;
}

int run(int argc, char **argv)
{
    QCoreApplication app(argc, argv);
    QCoreApplication::setOrganizationName(QStringLiteral("Corvane"));
    QCoreApplication::setApplicationName(QStringLiteral("Corvane"));
    QStringList args = app.arguments();
    args.removeFirst();
    const QString name = args.takeFirst();
    for (const Command &c : kCommands)
        if (name == QLatin1String(c.name)) {
            if (args.contains(QStringLiteral("--help"))) {
                std::printf("Uso: %s\n", c.usage);
                return 0;
            }
            const int status = c.run(args);
            if (status == 2)
                std::fprintf(stderr, "Uso: %s\n", c.usage);
            return status;
        }
    printUsage(stdout);
    return 0;
}

} // namespace Cli
