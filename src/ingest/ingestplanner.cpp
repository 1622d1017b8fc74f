#include "ingestplan.h"
#include "namecleaning.h"

#include "importedrecord.h"
#include "util/canceltoken.h"
#include "namevalues.h"
#include "sha256.h"

#include "model/filekinds.h"

#include <QDir>
#include <QFileInfo>
#include <QHash>

#include <algorithm>

int IngestPlan::toCopy(int rootIndex) const
{
    return int(std::count_if(files.begin(), files.end(), [&](const PlannedFile &f) { return !f.presentOn(rootIndex); }));
}

namespace IngestPlanner {
namespace {

struct Group {
    QList<int> members;           // item indices, by name
    QDateTime date;               // the earliest of its files
    QString name;                 // first member's file name
    QString path;                 // first member's path (breaks ties: 100CANON before 101CANON)
};

QString fileNameOf(const QString &path) { return path.mid(path.lastIndexOf(QLatin1Char('/')) + 1); }

// The extension as the camera wrote it ("NEF", "jpg"); "" without one.
QString extensionAsWritten(const QString &fileName)
{
    const qsizetype dot = fileName.lastIndexOf(QLatin1Char('.'));
    return dot <= 0 ? QString() : fileName.mid(dot + 1);
}

bool cancelled(const Input &in) { return in.cancel && in.cancel->isCancelled(); }

// Groups in the order they are numbered: capture date, then name, then path.
QList<Group> makeGroups(const QList<IngestItem> &items)
{
    QList<Group> groups;
    QHash<QString, int> byKey;
    QHash<int, QSet<QString>> extensions;   // lower-cased extensions already in each group
    for (int i = 0; i < items.size(); ++i) {
        const IngestItem &item = items[i];
        QString key = item.groupKey.isEmpty() ? item.url : item.groupKey;
        const QString ext = FileKinds::extensionOf(item.url);
        // "IMG_1.JPG" and "img_1.jpg" side by side (a case-sensitive card) are two shots: one
        // group cannot hold two files that would need the very same name.
        for (int n = 2; byKey.contains(key) && extensions[byKey[key]].contains(ext); ++n)
            key = (item.groupKey.isEmpty() ? item.url : item.groupKey) + QStringLiteral("#%1").arg(n);
        auto it = byKey.find(key);
        if (it == byKey.end()) {
            it = byKey.insert(key, int(groups.size()));
            groups.append(Group{});
        }
        groups[*it].members.append(i);
        extensions[*it].insert(ext);
    }
    for (Group &g : groups) {
        std::sort(g.members.begin(), g.members.end(), [&](int a, int b) {
            const int c = QString::compare(fileNameOf(items[a].url), fileNameOf(items[b].url), Qt::CaseInsensitive);
            return c != 0 ? c < 0 : items[a].url < items[b].url;
        });
        for (int m : std::as_const(g.members))
            if (items[m].date.isValid() && (!g.date.isValid() || items[m].date < g.date))
                g.date = items[m].date;
        g.name = fileNameOf(items[g.members.first()].url);
        g.path = items[g.members.first()].url;
    }
    std::stable_sort(groups.begin(), groups.end(), [](const Group &a, const Group &b) {
        // Undated shots go last.
        if (a.date.isValid() != b.date.isValid())
            return a.date.isValid();
        if (a.date != b.date)
            return a.date < b.date;
        const int c = QString::compare(a.name, b.name, Qt::CaseInsensitive);
        return c != 0 ? c < 0 : a.path < b.path;
    });
    return groups;
}

// What a destination already holds, folder by folder, read once per run.
class DestinationIndex
{
public:
    explicit DestinationIndex(QString root) : _root(std::move(root)) {}

    // Names in `relFolder` equal to `name` regardless of case.
    QStringList namesLike(const QString &relFolder, const QString &name)
    {
        auto it = _folders.find(relFolder);
        if (it == _folders.end()) {
            QMultiHash<QString, QString> entries;
            const QString abs = relFolder.isEmpty() ? _root : _root + QLatin1Char('/') + relFolder;
            const QStringList names =
                QDir(abs).entryList(QDir::AllEntries | QDir::Hidden | QDir::System | QDir::NoDotAndDotDot);
            for (const QString &n : names)
                entries.insert(n.toLower(), n);
            it = _folders.insert(relFolder, entries);
        }
        return it->values(name.toLower());
    }
    QString absolute(const QString &relFolder, const QString &name) const
    {
        return relFolder.isEmpty() ? _root + QLatin1Char('/') + name : _root + QLatin1Char('/') + relFolder + QLatin1Char('/') + name;
    }

private:
    QString _root;
    QHash<QString, QMultiHash<QString, QString>> _folders;
};

struct Member {
    int item = 0;
    QString base;                 // base name before any suffix
    QString ext;                  // as on the card
    bool imported = false;
    quint32 presentIn = 0;
};

class Planner
{
public:
    explicit Planner(const Input &in) : _in(in)
    {
        for (const QString &root : in.destRoots)
            _dests.emplace_back(QDir::cleanPath(root));
    }

    IngestPlan run()
    {
        IngestPlan p;
        p.itemCount = int(_in.items.size());
        p.present = QList<int>(_in.destRoots.size(), 0);
        const IngestOptions &o = _in.options;
        const quint32 allDests = (1u << _in.destRoots.size()) - 1;
        const QList<Group> groups = makeGroups(_in.items);
        qint64 seq = o.start;
        for (const Group &g : groups) {
            if (cancelled(_in)) {
                p.cancelled = true;
                return p;
            }
            const QString folder = IngestStructures::folderFor(o.structure, g.date, o.session);
            std::optional<QString> camera;
            for (int m : g.members)
                if (_in.items[m].camera && !_in.items[m].camera->isEmpty()) {
                    camera = _in.items[m].camera;
                    break;
                }
            QList<Member> members;
            for (int m : g.members) {
                const IngestItem &item = _in.items[m];
                const QString fileName = fileNameOf(item.url);
                Member mem;
                mem.item = m;
                mem.ext = extensionAsWritten(fileName);
                const QString original = mem.ext.isEmpty() ? fileName : fileName.left(fileName.size() - mem.ext.size() - 1);
                if (o.rename) {
                    NameValues v;
                    v.date = g.date;
                    v.seq = seq;
                    v.digits = o.digits;
                    v.camera = camera;
                    v.original = original;
                    v.session = o.session;
                    mem.base = o.pattern.render(v);
                }
                if (mem.base.isEmpty())
                    mem.base = original;
                mem.imported = o.skipImported && _in.imported.contains(historyKeyOf(item));
                members.append(mem);
            }
            ++seq;

            // The base is cut so that base, suffix and extension stay within one file name's
            // bytes; the longest extension of the group decides, so its files keep one base.
            int extBytes = 0;
            for (const Member &mem : std::as_const(members))
                extBytes = std::max(extBytes, mem.ext.isEmpty() ? 0 : 1 + NameCleaning::utf8Bytes(mem.ext));
            const QList<Member> uncut = members;

            // One suffix for the whole group: the first under which no file of the group collides
            // with this run's names or with a different file already in a destination.
            for (int n = 1;; ++n) {
                const QString suffix = n == 1 ? QString() : QStringLiteral("-%1").arg(n);
                for (qsizetype i = 0; i < members.size(); ++i)
                    members[i].base = NameCleaning::fit(uncut[i].base, NameCleaning::kMaxFileNameBytes - extBytes - int(suffix.size()));
                bool collides = false;
                for (Member &mem : members) {
                    mem.presentIn = 0;
                    const QString name = fileNameFor(mem, suffix);
                    if (_taken.contains(joined(folder, name).toLower()) || !checkDestinations(folder, name, mem)) {
                        collides = true;
                        break;
                    }
                }
                if (cancelled(_in)) {
                    p.cancelled = true;
                    return p;
                }
                if (collides)
                    continue;
                for (const Member &mem : std::as_const(members)) {
                    const IngestItem &item = _in.items[mem.item];
                    const QString relPath = joined(folder, fileNameFor(mem, suffix));
                    _taken.insert(relPath.toLower());
                    if (mem.imported) {
                        ++p.skippedImported;
                        continue;
                    }
                    for (int d = 0; d < _in.destRoots.size(); ++d)
                        if (mem.presentIn & (1u << d))
                            ++p.present[d];
                    if (mem.presentIn == allDests && allDests != 0) {
                        p.presentKeys.append(historyKeyOf(item));
                        continue;
                    }
                    PlannedFile f;
                    f.src = item.url;
                    f.relPath = relPath;
                    f.size = item.size;
                    f.historyKey = historyKeyOf(item);
                    f.presentIn = mem.presentIn;
                    p.bytesTotal += f.size;
                    p.files.append(f);
                }
                break;
            }
        }
        return p;
    }

private:
    static QString historyKeyOf(const IngestItem &item)
    {
        return ImportedRecord::historyKey(fileNameOf(item.url), item.size, item.date);
    }
    static QString fileNameFor(const Member &m, const QString &suffix)
    {
        return m.ext.isEmpty() ? m.base + suffix : m.base + suffix + QLatin1Char('.') + m.ext;
    }
    static QString joined(const QString &folder, const QString &name)
    {
        return folder.isEmpty() ? name : folder + QLatin1Char('/') + name;
    }

    // False when some destination holds a different file (or a folder) under this name, in any
    // case; a file with the card file's very bytes marks the member present there instead.
    bool checkDestinations(const QString &folder, const QString &name, Member &mem)
    {
        if (_in.check == DestinationCheck::none || mem.imported)
            return true;
        for (int d = 0; d < int(_dests.size()); ++d) {
            const QStringList existing = _dests[size_t(d)].namesLike(folder, name);
            if (existing.isEmpty())
                continue;
            bool same = false;
            for (const QString &e : existing)
                if (sameBytes(mem.item, _dests[size_t(d)].absolute(folder, e))) {
                    same = true;
                    break;
                }
            if (!same)
                return false;
            mem.presentIn |= 1u << d;
        }
        return true;
    }

    bool sameBytes(int item, const QString &destPath)
    {
        const QFileInfo info(destPath);
        if (!info.isFile() || info.isSymLink() || info.size() != _in.items[item].size)
            return false;
        auto it = _cardHashes.find(item);
        if (it == _cardHashes.end())
            it = _cardHashes.insert(item, digest(_in.items[item].url, false));
        if (it->isEmpty())
            return false;
        // The copy is read from the disk: a file that only looks right in memory proves nothing.
        return digest(destPath, true) == *it;
    }

    QByteArray digest(const QString &path, bool fromDisk)
    {
        const QString name = fileNameOf(path);
        const Sha256::FileDigest d = Sha256::ofFile(path, fromDisk, [&](qint64 bytes) {
            if (_in.comparing)
                _in.comparing(bytes, name);
            return !cancelled(_in);
        });
        return d.digest;
    }

    const Input &_in;
    std::vector<DestinationIndex> _dests;
    QSet<QString> _taken;                    // lower-cased relative paths planned in this run
    QHash<int, QByteArray> _cardHashes;      // item → SHA-256 of the card file
};

} // namespace

IngestPlan plan(const Input &input)
{
    return Planner(input).run();
}

} // namespace IngestPlanner
