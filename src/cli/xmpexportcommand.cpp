#include "xmpexportcommand.h"

#include "argparser.h"
#include "folderargument.h"
#include "terminalprogress.h"

#include "marks/marksfile.h"
#include "metadata/sidecarmarks.h"
#include "metadata/xmplabels.h"
#include "metadata/xmpsidecar.h"


#include <cstdio>

int xmpExportCommand(const QStringList &args)
{
    ArgParser p({}, {});
    int status = 0;
    const QString folder = FolderArgument::parse(p, args, status);
    if (folder.isEmpty())
        return status;
    const auto scan = FolderArgument::list(folder);
    if (!scan)
        return 1;
    const MarksMap marks = MarksFile::load(folder).value_or(MarksFile{}).marks;

    struct Job {
        const ScannedItem *item;
        Marks marks;
    };
    QList<Job> jobs;
    for (const ScannedItem &item : scan->items) {
        const Marks m = marks.value(MarksFile::keyFor(item.url));
        if (!m.isEmpty())
            jobs.append({&item, m});
    }

    const QStringList labels = XmpLabels::userLabels();
    TerminalProgress bar;
    int written = 0, failed = 0;
    for (qsizetype i = 0; i < jobs.size(); ++i) {
        const ScannedItem &item = *jobs[i].item;
        const Marks &m = jobs[i].marks;
        const XmpState state = SidecarMarks::withOrientation(SidecarMarks::stateOf(m), item.url, item.sidecarURL);
        if (XmpSidecar::write(item.sidecarURL, state, labels).ok())
            ++written;
        else
            ++failed;   // already said on stderr
        bar.update(QStringLiteral("Exportando marcas a XMP"), i + 1, jobs.size());
    }
    bar.finish();
    std::printf("%s\n", QStringLiteral("%1 .xmp escritos").arg(written).toUtf8().constData());
    if (failed)
        std::fprintf(stderr, "%s\n", QStringLiteral("%1 .xmp no se pudieron escribir").arg(failed).toUtf8().constData());
    return failed ? 1 : 0;
}
