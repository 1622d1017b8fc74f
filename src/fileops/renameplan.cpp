#include "renameplan.h"

#include "ingest/namevalues.h"

#include <QFileInfo>
#include <QHash>

namespace {

struct Split {
    QString folder, base, ext;   // ext: everything after the base's dot ("NEF", "NEF.xmp")
};

Split split(const QString &path, const QString &base)
{
    const qsizetype slash = path.lastIndexOf(QLatin1Char('/'));
    const QString name = path.mid(slash + 1);
    Split s{path.left(slash), name, {}};
    if (name.size() > base.size() && name.startsWith(base, Qt::CaseInsensitive) && name[base.size()] == u'.') {
        s.base = name.left(base.size());
        s.ext = name.mid(base.size() + 1);
    }
    return s;
}

QString baseOf(const QString &mainFile)
{
    const QString name = QFileInfo(mainFile).fileName();
    const qsizetype dot = name.lastIndexOf(QLatin1Char('.'));
    return dot > 0 ? name.left(dot) : name;
}

// The extension with its case changed; in NAME.NEF.xmp each part changes.
QString casedExt(const QString &ext, const RenameOptions &o)
{
    return o.caseOn ? NameCases::apply(o.extCase, ext) : ext;
}

} // namespace

QStringList RenameShot::companions(const QStringList &files)
{
    QStringList all = files;
    QSet<QString> seen(files.begin(), files.end());
    const auto add = [&](const QString &path) {
        if (!seen.contains(path) && QFileInfo(path).isFile()) {
            seen.insert(path);
            all.append(path);
        }
    };
    for (const QString &f : files) {
        const qsizetype slash = f.lastIndexOf(QLatin1Char('/'));
        const qsizetype dot = f.lastIndexOf(QLatin1Char('.'));
        const QString stem = dot > slash + 1 ? f.left(dot) : f;
        for (const char *ext : {".xmp", ".XMP"}) {
            add(stem + QLatin1String(ext));
            add(f + QLatin1String(ext));
        }
    }
    return all;
}

int RenamePlan::conflicts() const
{
    return int(std::count_if(rows.begin(), rows.end(), [](const RenameRow &r) { return !r.problem.isEmpty(); }));
}

int RenamePlan::changedCount() const
{
    return int(std::count_if(rows.begin(), rows.end(), [](const RenameRow &r) { return r.changed; }));
}

int RenamePlan::fileCount() const
{
    int n = 0;
    for (const RenameRow &r : rows)
        n += int(r.moves.size());
    return n;
}

QString RenamePlan::footer() const
{
    const int c = conflicts();
    if (c == 1)
        return QStringLiteral("Corrige el nombre en conflicto para poder renombrar.");
    if (c > 1)
        return QStringLiteral("%1 nombres en conflicto para poder renombrar.").arg(c);
    if (changedCount() == 0)
        return QStringLiteral("Con estas opciones no cambia ningún nombre.");
    return {};
}

QString RenamePlan::buttonText() const
{
    const int n = changedCount();
    return n == 1 ? QStringLiteral("Renombrar 1 imagen") : QStringLiteral("Renombrar %1 imágenes").arg(n);
}

QString RenamePlan::repeatsNote()
{
    return QStringLiteral("Sin «Número» ni «Nombre original», Corvane añade -2, -3… a los nombres repetidos.");
}

RenamePlan planRename(const QList<RenameShot> &shots, const RenameOptions &o, const QStringList &folderFiles)
{
    RenamePlan plan;
    const NamePattern pattern = o.effectivePattern();
    plan.numbersRepeats = pattern.mayRepeatNames();

    // Names leaving their place free: every file of the shots handed over.
    QSet<QString> leaving;
    for (const RenameShot &s : shots)
        for (const QString &f : s.files)
            leaving.insert(QFileInfo(f).fileName().toLower());
    QSet<QString> taken;
    for (const QString &name : folderFiles)
        if (!leaving.contains(name.toLower()))
            taken.insert(name.toLower());

    QHash<QString, int> repeats;   // lower-cased new base → times given so far
    QSet<QString> claimed;         // lower-cased new file names of earlier rows
    for (int i = 0; i < shots.size(); ++i) {
        const RenameShot &s = shots[i];
        RenameRow row;
        row.index = i;
        row.oldName = baseOf(s.mainFile);

        NameValues v;
        v.date = s.date;
        v.seq = o.start + i;
        v.digits = o.digits;
        v.camera = s.camera;
        v.original = row.oldName;
        v.session = o.name.trimmed();
        const qsizetype slash = s.mainFile.lastIndexOf(QLatin1Char('/'));
        v.folder = QFileInfo(s.mainFile.left(slash)).fileName();
        QString base = pattern.render(v);
        if (base.isEmpty())
            base = row.oldName;
        if (o.caseOn)
            base = NameCases::apply(o.nameCase, base);
        if (plan.numbersRepeats) {
            const int seen = ++repeats[base.toLower()];
            if (seen > 1)
                base += QStringLiteral("-%1").arg(seen);
        }
        row.newName = base;

        for (const QString &f : s.files) {
            const Split part = split(f, row.oldName);
            const QString newExt = casedExt(part.ext, o);
            row.oldExts.append(part.ext);
            row.newExts.append(newExt);
            const QString newFile = part.ext.isEmpty() ? base : base + QLatin1Char('.') + newExt;
            const QString oldFile = f.mid(slash + 1);
            if (newFile == oldFile)
                continue;
            row.moves.append({f, part.folder + QLatin1Char('/') + newFile});
            const QString key = newFile.toLower();
            if (row.problem.isEmpty() && (taken.contains(key) || claimed.contains(key)))
                row.problem = newFile + QStringLiteral(" ya existe en la carpeta");
            claimed.insert(key);
        }
        row.changed = !row.moves.isEmpty();
        plan.rows.append(row);
    }
    return plan;
}
