#include "markshistory.h"

QString MarksChange::describe() const
{
    if (!fileOp.isEmpty())
        return what;
    return shots.size() == 1 ? QStringLiteral("%1 en 1 imagen").arg(what)
                             : QStringLiteral("%1 en %2 imágenes").arg(what).arg(shots.size());
}

void MarksHistory::record(const QString &folder, MarksChange change)
{
    if (change.isEmpty())
        return;
    Lists &l = _byFolder[folder];
    l.redo.clear();
    l.undo.append(std::move(change));
    while (l.undo.size() > kDepth)
        l.undo.removeFirst();
}

std::optional<MarksChange> MarksHistory::takeUndo(const QString &folder)
{
    const auto it = _byFolder.find(folder);
    if (it == _byFolder.end() || it->undo.isEmpty())
        return std::nullopt;
    MarksChange c = it->undo.takeLast();
    it->redo.append(c);
    return c;
}

std::optional<MarksChange> MarksHistory::takeRedo(const QString &folder)
{
    const auto it = _byFolder.find(folder);
    if (it == _byFolder.end() || it->redo.isEmpty())
        return std::nullopt;
    MarksChange c = it->redo.takeLast();
    it->undo.append(c);
    return c;
}

void MarksHistory::dropRedo(const QString &folder)
{
    if (const auto it = _byFolder.find(folder); it != _byFolder.end() && !it->redo.isEmpty())
        it->redo.removeLast();
}

const MarksChange *MarksHistory::nextUndo(const QString &folder) const
{
    const auto it = _byFolder.constFind(folder);
    return it == _byFolder.constEnd() || it->undo.isEmpty() ? nullptr : &it->undo.last();
}

const MarksChange *MarksHistory::nextRedo(const QString &folder) const
{
    const auto it = _byFolder.constFind(folder);
    return it == _byFolder.constEnd() || it->redo.isEmpty() ? nullptr : &it->redo.last();
}
