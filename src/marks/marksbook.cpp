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
    if (persist && store)
        store->schedule(dir, map);
}

void MarksBook::persist(const QString &folderIn)
{
    const QString dir = FolderScanner::standardPath(folderIn);
    if (store)
        store->schedule(dir, folder(dir));
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
    byDir.remove(FolderScanner::standardPath(folderIn));
}
