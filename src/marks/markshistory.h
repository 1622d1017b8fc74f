#pragma once
// The undo and redo lists of marks changes, one pair per folder, kept for the whole run. A new
// change empties the folder's redo list; past kDepth changes the oldest is forgotten. Only the
// lists: applying a change back is the caller's. GUI thread only.
#include "markschange.h"

#include <QHash>
#include <QList>
#include <QString>
#include <optional>

class MarksHistory
{
public:
    static constexpr int kDepth = 200;

    void record(const QString &folder, MarksChange change);
    // The change to undo (moved to the redo list), or absent.
    std::optional<MarksChange> takeUndo(const QString &folder);
    // The change to redo (moved back to the undo list), or absent.
    std::optional<MarksChange> takeRedo(const QString &folder);
    // Forgets the change last moved to the redo list.
    void dropRedo(const QString &folder);
    const MarksChange *nextUndo(const QString &folder) const;
    const MarksChange *nextRedo(const QString &folder) const;

private:
    struct Lists {
        QList<MarksChange> undo;   // oldest first
        QList<MarksChange> redo;   // most recently undone last
    };
    QHash<QString, Lists> _byFolder;
};
