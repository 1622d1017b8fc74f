#pragma once
// Sharpness results kept across runs in "nitidez-v6.json" under the user's cache folder, keyed on
// the file's identity (path, size, modification time) so a changed file is measured again.
// Thread-safe: get(), put() and save() may be called from any thread.
#include "sharpness.h"

#include <QHash>
#include <QMutex>
#include <QString>
#include <optional>

class SharpnessCache
{
public:
    // Opens the cache file in `folder`: earlier generations there are deleted, then the file is
    // read. A missing or damaged file gives an empty cache.
    explicit SharpnessCache(const QString &folder);
    SharpnessCache(const SharpnessCache &) = delete;
    SharpnessCache &operator=(const SharpnessCache &) = delete;

    // The process-wide cache, opened on first use (so tests can move the cache folder first).
    static SharpnessCache &shared();
    // "<user cache>/com.tessaly.corvane".
    static QString defaultFolder();
    static QString photoKey(const QString &path);

    std::optional<SharpResult> get(const QString &key) const;
    void put(const QString &key, const SharpResult &result);
    // Writes the file atomically when something changed since the last save. False on a failed
    // write (the changes stay pending).
    bool save();

    const QString &url() const { return _url; }
    bool isDirty() const;

private:
    struct Stored {
        double best;
        double focusX, focusY;
    };

    const QString _url;
    mutable QMutex lock;
    QMutex saveLock;                 // held for a whole save
    QHash<QString, Stored> values;   // guarded by lock
    bool dirty = false;              // guarded by lock
    quint64 generation = 0;          // guarded by lock; counts puts, so a save racing a put stays dirty
};
