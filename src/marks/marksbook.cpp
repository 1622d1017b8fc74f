#include "marksbook.h"

#include "marksstore.h"
#include "model/folderscanner.h"

namespace {
QString folderOf(const QString &path)
{
    const QString p = FolderScanner::standardPath(path);
    const qsizetype slash = p.lastIndexOf(QLatin1Char('/'));
    return slash <= 0 ? QStringLiteral("/") : p.left(slash);
}
} // namespace

const MarksMap &MarksBook::folder(const QString &folderIn)
{
    const QString dir = FolderScanner::standardPath(folderIn);
    auto it = byDir.find(dir);
    if (it == byDir.end()) {
        const auto file = MarksFile::load(dir);
        it = byDir.insert(dir, file ? file->marks : MarksMap{});
    }
    return *it;
}

void MarksBook::seed(const QString &folderIn, const MarksMap &marks)
{
    byDir.insert(FolderScanner::standardPath(folderIn), marks);
}

bool MarksBook::isLoaded(const QString &folderIn) const
{
    return byDir.contains(FolderScanner::standardPath(folderIn));
}

std::optional<Marks> MarksBook::marksFor(const QString &mainFile)
{
    const MarksMap &map = folder(folderOf(mainFile));
    const auto it = map.constFind(MarksFile::keyFor(mainFile));
    if (it == map.constEnd())
        return std::nullopt;
    return *it;
}

void MarksBook::set(const QString &mainFile, std::optional<Marks> marks, bool persist)
{
    const QString dir = folderOf(mainFile);
    folder(dir);
    MarksMap &map = byDir[dir];
    const QString key = MarksFile::keyFor(mainFile);
    if (marks && !marks->isEmpty())
        map.insert(key, *marks);
    else
        map.remove(key);
    dirty[dir].insert(key);
    if (persist)
        this->persist(dir);
}

void MarksBook::persist(const QString &folderIn)
{
    const QString dir = FolderScanner::standardPath(folderIn);
    const QSet<QString> changed = dirty.take(dir);
    if (store)
        store->schedule(dir, folder(dir), changed);
}

QSet<QString> MarksBook::adopt(const QString &folderIn, const MarksMap &onDisk)
{
    const QString dir = FolderScanner::standardPath(folderIn);
    folder(dir);
    MarksMap &map = byDir[dir];
    QSet<QString> mine = dirty.value(dir);
    if (store)
        mine.unite(store->unwrittenKeys(dir));
    QSet<QString> changed;
    for (auto it = onDisk.cbegin(); it != onDisk.cend(); ++it) {
        if (mine.contains(it.key()) || it->isEmpty())
            continue;
        const auto old = map.constFind(it.key());
        if (old == map.constEnd() || *old != *it) {
            map.insert(it.key(), *it);
            changed.insert(it.key());
        }
    }
    for (auto it = map.begin(); it != map.end();) {
        if (!onDisk.contains(it.key()) && !mine.contains(it.key())) {
            changed.insert(it.key());
            it = map.erase(it);
        } else {
            ++it;
        }
    }
    return changed;
}

void MarksBook::move(const QString &oldMainFile, const QString &newMainFile)
{
    const auto marks = marksFor(oldMainFile);
    set(oldMainFile, std::nullopt, true);
    if (marks)
        set(newMainFile, marks, true);
}

void MarksBook::forget(const QString &folderIn)
{
    const QString dir = FolderScanner::standardPath(folderIn);
    byDir.remove(dir);
    dirty.remove(dir);
}
