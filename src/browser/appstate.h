#pragma once
// The one browser state: the open folder, its shots, the visible list, current shot, selection,
// view mode, filter, sort, long-operation progress and toasts. GUI thread only: every Photo is
// created, read and changed here. Loading is the FolderLoader's; it and the other workers
// (metadata, legacy marks) hand their results back in one queued step, checked against the load
// generation so a late result of an older folder is dropped.
#include "folderloader.h"

#include "marks/markshistory.h"
#include "marks/marksstorage.h"
#include "metadata/xmpstate.h"
#include "model/photo.h"
#include "model/photofilter.h"
#include "model/sharpverdict.h"
#include "model/sortkey.h"
#include "model/viewmode.h"

#include <QHash>
#include <QList>
#include <QMap>
#include <QObject>
#include <QSet>
#include <QString>
#include <QStringList>
#include <QUuid>
#include <optional>

class QTimer;

class FolderWatcher;
class LegacyXattrReader;
class MarksBook;
class MarksFileWatcher;
class MetaReader;
class XMPStore;
struct Marks;

class AppState : public QObject
{
    Q_OBJECT
public:
    struct Progress {
        QString text;
        int done = 0;
        int total = 0;    // 0 when unknown
    };

    explicit AppState(MarksBook &book, QObject *parent = nullptr);
    ~AppState() override;

    // ----- Opening
    // A location handed over from outside (arguments, drops, a second launch). Ignores what does
    // not exist; refuses with a toast while a long operation runs; a file opens its folder and is
    // selected once the scan is applied.
    void open(const QString &path);
    void openFolder(const QString &folder, const QString &selectFile = {}, bool recursive = false);
    void reload();
    QString folder() const { return _folder; }
    bool isRecursive() const { return _recursive; }
    bool isLoading() const { return _loading; }
    bool accessDenied() const { return _accessDenied; }
    bool folderMissing() const { return _folderMissing; }

    // ----- Shots
    const QList<PhotoPtr> &photos() const { return _photos; }      // every shot, sorted
    const QList<PhotoPtr> &visible() const { return _visible; }    // passing the filter, sorted
    const QStringList &subfolders() const { return _subfolders; }
    // The folder's files that are neither shots nor sidecars: kinds Corvane does not show.
    const QStringList &otherFiles() const { return _otherFiles; }
    Photo *photo(const QUuid &id) const;
    int visibleIndexOf(const QUuid &id) const;                      // -1 when hidden or unknown

    // ----- Current shot and selection (indexes are into visible())
    int currentIndex() const { return _currentIndex; }
    void setCurrentIndex(int index);
    Photo *current() const;
    const QSet<QUuid> &selection() const { return _selection; }
    void setSelection(const QSet<QUuid> &ids);
    void selectAll();
    void invertSelection();
    void clearSelection();
    // What a mark applies to: the selection when it holds several shots, else the current shot.
    QList<Photo *> targets() const;

    ViewMode viewMode() const { return _viewMode; }
    void setViewMode(ViewMode m);

    // ----- Marks (on targets(); the same key again removes the mark)
    void applyColorKey(int n);     // 1…8 set/toggle, 0 removes
    void applyRatingKey(int n);    // 1…5 set/toggle, 0 removes
    void toggleTag();
    void rotate(int quarterTurns); // +1 right, -1 left
    // Sets marks directly (a click on a cell's flag, the client selection) as one undoable
    // change named `what` ("bandera", "selección del cliente"…).
    void setMarks(Photo *p, const Marks &m, const QString &what);
    void setMarks(const QList<QPair<Photo *, Marks>> &marks, const QString &what);

    // ----- Undo of marks changes, per folder, for the whole run
    bool canUndo() const;
    bool canRedo() const;
    QString undoText() const;   // "Deshacer color en 35 imágenes", or "Deshacer"
    QString redoText() const;
    void undo();
    void redo();
    // A finished file operation joins the list (its journal id; `what`: "papelera de 3 imágenes").
    void recordFileOp(const QString &id, const QString &what);
    bool autoAdvance() const;      // "Avanzar al marcar"
    void setAutoAdvance(bool on);

    // ----- Filter and sort
    const PhotoFilter &filter() const { return _filter; }
    void setFilter(const PhotoFilter &f);
    void clearFilter();
    SortKey sortKey() const { return _sortKey; }
    bool sortAscending() const { return _sortAscending; }
    void setSort(SortKey key, bool ascending);
    SharpSensitivity sensitivity() const { return _sensitivity; }
    void setSensitivity(SharpSensitivity s);
    // Counts of each value of a facet over the shots that pass every other criterion.
    QMap<QString, int> facetCounts(Facet f) const;

    // ----- Long operations and messages
    const std::optional<Progress> &progress() const { return _progress; }
    void setProgress(std::optional<Progress> p);
    void toast(const QString &text, bool error = false);

    // ----- Files that arrive or vanish while the folder is open (camera, folder watcher)
    // Groups new files into the open folder: a late RAW joins its JPEG. Files outside the open
    // folder are ignored. Returns the shots added or grown.
    QList<Photo *> addFiles(const QStringList &paths, bool markNew);
    void removeFiles(const QStringList &paths);

    // Reads the metadata of these shots again in the background (their files' texts changed).
    void rereadMeta(const QList<QUuid> &ids);

    // Analysis results from the background (sharpness); re-applies the filter. A shot that
    // could be measured is readable, so no longer damaged.
    void applySharpness(const QHash<QUuid, std::pair<double, QPointF>> &results);
    // Shots none of whose files could be decoded.
    void markDamaged(const QList<QUuid> &ids);
    int damagedCount() const;

    quint64 generation() const { return _generation; }
    // Whether a sidecar (.xmp) exists for the shot.
    bool hasSidecar(const Photo &p) const;

    // ----- Sidecars
    // The sidecar writer and reader; without it marks live in the folder files only.
    void useSidecars(XMPStore &store);
    MarksStorage marksStorage() const { return _storage; }
    // Changes the storage mode (and the setting), writing the open folder's marks in the new mode.
    void setMarksStorage(MarksStorage storage);
    // Writes the sidecar of every marked shot of the open folder, whatever the mode. Returns the
    // XMPStore batch and the number of sidecars (0 and 0 when no shot is marked).
    std::pair<quint64, int> exportSidecars();

signals:
    void folderChanged();                      // a new load began; lists are empty
    void loaded();                             // the scan was applied
    void photosChanged();                      // the visible list was rebuilt (membership or order)
    void photosUpdated(const QList<QUuid> &ids);   // marks, metadata or analysis of these shots changed
    void currentChanged(int index);
    void selectionChanged();
    void viewModeChanged(ViewMode mode);
    void filterChanged();
    void sortChanged();
    void progressChanged();
    void toastRequested(const QString &text, bool error);
    void historyChanged();                     // what undo and redo would do changed
    // Undo reached a file operation: whoever runs file operations takes it back through its
    // journal (or records it again, with `what`, when it cannot now).
    void fileOpUndoRequested(const QString &id, const QString &what);
    // A change of marks touched several shots; the window offers to undo it.
    void bulkMarksChanged(const QString &text);

private:
    void startScan(const QString &folder, bool recursive);
    void applyScan(quint64 generation, const FolderLoader::Result &result);
    void applyMeta(quint64 generation, const QList<QPair<QUuid, std::optional<PhotoMeta>>> &batch);
    void applyLegacyMarks(quint64 generation, const QHash<QString, Marks> &marksByFile);
    void readSidecars();
    void applySidecars(quint64 generation, const QHash<QString, XmpState> &states);
    void writeSidecar(const Photo &p);
    void rebuildVisible(bool keepCurrent = true);
    void resort();
    void persistMarks(const QList<Photo *> &changed);
    // Persists and records as one undoable change: `before` holds each shot's marks before it.
    void commitMarks(const QList<Photo *> &changed, const QList<Marks> &before, const QString &what);
    void stepHistory(bool back);
    void applyMarksOnDisk(const QString &folder, const MarksMap &marks);
    void advanceAfterMark(const Photo *marked);   // `marked`: the shot shown when the key came
    void watchFolder();

    MarksBook &_book;
    MetaReader *_metaReader;
    FolderWatcher *_watcher;
    LegacyXattrReader *_xattr;
    MarksFileWatcher *_marksWatcher;
    MarksHistory _history;
    XMPStore *_xmp = nullptr;
    MarksStorage _storage = MarksStorage::folderFile;
    QHash<QString, QUuid> _sidecarReads;   // sidecar being read → its shot, for this generation

    QString _folder;
    bool _recursive = false;
    bool _loading = false;
    bool _accessDenied = false;
    bool _folderMissing = false;
    quint64 _generation = 0;
    QString _selectAfterLoad;   // a file handed over with its folder, selected once listed

    QList<PhotoPtr> _photos;
    QList<PhotoPtr> _visible;
    QHash<QUuid, PhotoPtr> _byId;
    QHash<QString, QUuid> _byKey;   // grouping key → shot
    QSet<QString> _xmpKeys;
    QStringList _subfolders;
    QStringList _otherFiles;

    int _currentIndex = -1;
    QSet<QUuid> _selection;
    ViewMode _viewMode = ViewMode::grid;
    PhotoFilter _filter;
    SortKey _sortKey = SortKey::name;
    bool _sortAscending = true;
    SharpSensitivity _sensitivity = SharpSensitivity::normal;
    std::optional<Progress> _progress;
    FolderLoader *_loader;
    QTimer *_resortTimer;   // coalesces re-sorting while metadata streams in
};
