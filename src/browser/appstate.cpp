#include "appstate.h"

#include "folderloader.h"
#include "folderwatcher.h"
#include "marksfilewatcher.h"

#include "model/filekinds.h"
#include "model/folderscanner.h"
#include "marks/legacyxattr.h"
#include "marks/marks.h"
#include "marks/marksbook.h"
#include "metadata/sidecarmarks.h"
#include "metadata/xmpstore.h"
#include "model/orientation.h"
#include "marks/marksfile.h"
#include "metadata/iptcfile.h"
#include "metadata/metareader.h"
#include "util/settings.h"

#include <QDir>
#include <algorithm>
#include <QFileInfo>
#include <QTimer>

namespace {
QList<Marks> marksOf(const QList<Photo *> &shots)
{
    QList<Marks> m;
    m.reserve(shots.size());
    for (const Photo *p : shots)
        m.append(Marks::fromPhoto(*p));
    return m;
}
// What the metadata pass reads for a shot: its preview file, with the sidecar's texts over it.
MetaReader::Job metaJob(const Photo &p)
{
    return {p.id, p.previewURL(), p.sidecarURL()};
}
} // namespace

AppState::AppState(MarksBook &book, QObject *parent)
    : QObject(parent)
    , _book(book)
    , _metaReader(new MetaReader(this))
    , _watcher(new FolderWatcher(this))
    , _xattr(new LegacyXattrReader(this))
    , _marksWatcher(new MarksFileWatcher(book.writer(), this))
    , _loader(new FolderLoader(this))
    , _resortTimer(new QTimer(this))
{
    _resortTimer->setSingleShot(true);
    _resortTimer->setInterval(400);
    connect(_resortTimer, &QTimer::timeout, this, [this] { resort(); });

    _sortKey = sortKeyFromString(Settings::sortKey.get());
    _sortAscending = Settings::sortAscending.get();
    _sensitivity = currentSharpSensitivity();
    _storage = MarksStorageSetting::get();

    connect(_metaReader, &MetaReader::metaReady, this, &AppState::applyMeta);
    connect(_metaReader, &MetaReader::finished, this, [this](quint64 gen) {
        if (gen == _generation && (_sortKey == SortKey::captureDate || _sortKey == SortKey::dimensions)) {
            _resortTimer->stop();
            resort();
        }
    });
    connect(_xattr, &LegacyXattrReader::found, this, &AppState::applyLegacyMarks);
    connect(_marksWatcher, &MarksFileWatcher::marksChanged, this, &AppState::applyMarksOnDisk);
    connect(_loader, &FolderLoader::progress, this, [this](quint64 gen, const QString &text, int count) {
        if (gen == _generation)
            setProgress(Progress{text, count, 0});
    });
    connect(_loader, &FolderLoader::finished, this, &AppState::applyScan);
    connect(_loader, &FolderLoader::metaRead, this, &AppState::applyMeta);
    connect(_watcher, &FolderWatcher::filesChanged, this, [this](const QStringList &added, const QStringList &removed) {
        if (!removed.isEmpty())
            removeFiles(removed);
        if (!added.isEmpty())
            addFiles(added, true);
    });
    connect(_watcher, &FolderWatcher::folderGone, this, [this](const QString &gone) {
        if (gone != _folder)
            return;
        _folderMissing = true;
        _photos.clear();
        _byId.clear();
        _byKey.clear();
        _subfolders.clear();
        _selection.clear();
        rebuildVisible(false);
        toast(QStringLiteral("La carpeta «%1» ya no existe.").arg(QFileInfo(gone).fileName()), true);
    });
}

AppState::~AppState() = default;

// ----- Opening

void AppState::open(const QString &pathIn)
{
    if (pathIn.isEmpty())
        return;
    const QString path = FolderScanner::standardPath(pathIn);
    const QFileInfo info(path);
    if (!info.exists())
        return;
    if (_progress) {
        toast(QStringLiteral("Termina la operación en curso y vuelve a soltar «%1»").arg(info.fileName()));
        return;
    }
    if (info.isDir())
        openFolder(path);
    else
        openFolder(FolderScanner::parentOf(path), path);
}

void AppState::openFolder(const QString &folderIn, const QString &selectFile, bool recursive)
{
    _loader->cancel();
    _metaReader->cancel();
    _watcher->stop();
    _marksWatcher->stop();
    _resortTimer->stop();
    ++_generation;
    _folder = FolderScanner::standardPath(folderIn);
    _recursive = recursive;
    _loading = true;
    _accessDenied = false;
    _folderMissing = false;
    _photos.clear();
    _visible.clear();
    _byId.clear();
    _byKey.clear();
    _xmpKeys.clear();
    _subfolders.clear();
    _otherFiles.clear();
    _selection.clear();
    _currentIndex = -1;
    _filter.newOnly = false;   // "new" means new since this folder was opened

    Settings::lastFolder.set(_folder);
    QStringList recent = Settings::recentFolders.get();
    recent.removeAll(_folder);
    recent.prepend(_folder);
    while (recent.size() > Settings::kRecentFolders)
        recent.removeLast();
    Settings::recentFolders.set(recent);

    emit folderChanged();
    emit historyChanged();
    emit photosChanged();
    emit currentChanged(-1);
    emit selectionChanged();

    _selectAfterLoad = selectFile;
    if (recursive)
        setProgress(Progress{QStringLiteral("Buscando imágenes"), 0, 0});
    _loader->load(_generation, _folder, recursive);
}

void AppState::reload()
{
    if (!_folder.isEmpty())
        openFolder(_folder, current() ? current()->url() : QString(), _recursive);
}

void AppState::applyScan(quint64 gen, const FolderLoader::Result &result)
{
    if (gen != _generation)
        return;
    const QString selectFile = std::exchange(_selectAfterLoad, QString());
    const ScanResult &scan = result.scan;
    _loading = false;
    if (_recursive)
        setProgress(std::nullopt);
    _accessDenied = scan.denied;
    _folderMissing = !scan.denied && !QFileInfo(_folder).isDir();
    _subfolders = _recursive ? QStringList() : scan.subfolders;
    _otherFiles = scan.extras;
    _xmpKeys = scan.xmpKeys;

    // The book may hold newer marks than the files (a write still pending): keep those.
    for (auto it = result.marksByFolder.cbegin(); it != result.marksByFolder.cend(); ++it)
        if (!_book.isLoaded(it.key()))
            _book.seed(it.key(), it.value());

    _photos.reserve(scan.items.size());
    QStringList unmarked;
    for (const ScannedItem &item : scan.items) {
        auto p = std::make_shared<Photo>(item);
        if (const auto m = _book.marksFor(item.url))
            m->applyTo(*p);
        else
            unmarked.append(item.url);
        _byId.insert(p->id, p);
        _byKey.insert(FolderScanner::groupingKey(item.url), p->id);
        _photos.append(std::move(p));
    }
    sortPhotos(_photos, _sortKey, _sortAscending);
    _visible.clear();
    rebuildVisible(false);

    int select = _visible.isEmpty() ? -1 : 0;
    if (!selectFile.isEmpty()) {
        const QString wanted = FolderScanner::standardPath(selectFile);
        for (qsizetype i = 0; i < _visible.size(); ++i)
            if (_visible[i]->files().contains(wanted)) {
                select = int(i);
                break;
            }
    }
    _currentIndex = -2;   // force the signal
    setCurrentIndex(select);
    emit loaded();

    QList<MetaReader::Job> jobs;
    jobs.reserve(_photos.size());
    for (const PhotoPtr &p : std::as_const(_photos))
        jobs.append(metaJob(*p));
    _metaReader->start(jobs, _generation);
    if (!unmarked.isEmpty())
        _xattr->read(unmarked, _generation);
    readSidecars();
    if (!_recursive && !_accessDenied && !_folderMissing)
        watchFolder();
    if (!_accessDenied && !_folderMissing)
        _marksWatcher->watch(_folder);
}

void AppState::watchFolder()
{
    QStringList known;
    for (const PhotoPtr &p : std::as_const(_photos))
        known += p->files();
    _watcher->watch(_folder, known);
}

void AppState::applyMeta(quint64 gen, const QList<QPair<QUuid, std::optional<PhotoMeta>>> &batch)
{
    if (gen != _generation)
        return;
    QList<QUuid> ids;
    ids.reserve(batch.size());
    for (const auto &[id, meta] : batch) {
        const auto it = _byId.constFind(id);
        if (it == _byId.constEnd())
            continue;
        (*it)->setMeta(meta);
        ids.append(id);
    }
    if (ids.isEmpty())
        return;
    emit photosUpdated(ids);
    if (_sortKey == SortKey::captureDate || _sortKey == SortKey::dimensions) {
        if (!_resortTimer->isActive())
            _resortTimer->start();
    } else if (!_filter.meta.isEmpty() || !_filter.words.isEmpty()) {
        rebuildVisible();
    }
}

void AppState::applyLegacyMarks(quint64 gen, const QHash<QString, Marks> &marksByFile)
{
    if (gen != _generation)
        return;
    QList<Photo *> changed;
    for (auto it = marksByFile.cbegin(); it != marksByFile.cend(); ++it) {
        if (_book.marksFor(it.key()))
            continue;   // the folder file wins over the old attributes
        const auto idIt = _byKey.constFind(FolderScanner::groupingKey(it.key()));
        if (idIt == _byKey.constEnd())
            continue;
        Photo *p = photo(*idIt);
        it.value().applyTo(*p);
        changed.append(p);
    }
    // Carried into the folder file, the attributes are never needed again.
    persistMarks(changed);
}

// ----- Lookup

Photo *AppState::photo(const QUuid &id) const
{
    const auto it = _byId.constFind(id);
    return it == _byId.constEnd() ? nullptr : it->get();
}

int AppState::visibleIndexOf(const QUuid &id) const
{
    for (qsizetype i = 0; i < _visible.size(); ++i)
        if (_visible[i]->id == id)
            return int(i);
    return -1;
}

bool AppState::hasSidecar(const Photo &p) const
{
    return _xmpKeys.contains(FolderScanner::groupingKey(p.url()));
}

// ----- Current and selection

void AppState::setCurrentIndex(int index)
{
    if (_visible.isEmpty())
        index = -1;
    else
        index = std::clamp(index, 0, int(_visible.size()) - 1);
    if (index == _currentIndex)
        return;
    _currentIndex = index;
    emit currentChanged(index);
}

Photo *AppState::current() const
{
    return (_currentIndex >= 0 && _currentIndex < _visible.size()) ? _visible[_currentIndex].get() : nullptr;
}

void AppState::setSelection(const QSet<QUuid> &ids)
{
    if (ids == _selection)
        return;
    _selection = ids;
    emit selectionChanged();
}

void AppState::selectAll()
{
    QSet<QUuid> all;
    for (const PhotoPtr &p : std::as_const(_visible))
        all.insert(p->id);
    setSelection(all);
}

void AppState::invertSelection()
{
    QSet<QUuid> inverted;
    for (const PhotoPtr &p : std::as_const(_visible))
        if (!_selection.contains(p->id))
            inverted.insert(p->id);
    setSelection(inverted);
}

void AppState::clearSelection() { setSelection({}); }

QList<Photo *> AppState::targets() const
{
    QList<Photo *> out;
    if (_selection.size() > 1) {
        for (const PhotoPtr &p : std::as_const(_visible))   // in display order
            if (_selection.contains(p->id))
                out.append(p.get());
        return out;
    }
    if (Photo *p = current())
        out.append(p);
    return out;
}

void AppState::setViewMode(ViewMode m)
{
    if (m == _viewMode)
        return;
    _viewMode = m;
    emit viewModeChanged(m);
}

// ----- Marks

void AppState::applyColorKey(int n)
{
    const QList<Photo *> t = targets();
    const Photo *shown = current();
    if (t.isEmpty() || n < 0 || n > 8)
        return;
    ColorClass c = colorClassFromInt(n);
    if (n != 0 && std::all_of(t.begin(), t.end(), [c](Photo *p) { return p->colorClass() == c; }))
        c = ColorClass::none;   // the same key again removes it
    const QList<Marks> before = marksOf(t);
    for (Photo *p : t)
        p->setColorClass(c);
    commitMarks(t, before, QStringLiteral("color"));
    advanceAfterMark(shown);
}

void AppState::applyRatingKey(int n)
{
    const QList<Photo *> t = targets();
    const Photo *shown = current();
    if (t.isEmpty() || n < 0 || n > 5)
        return;
    int r = n;
    if (n != 0 && std::all_of(t.begin(), t.end(), [n](Photo *p) { return p->rating() == n; }))
        r = 0;
    const QList<Marks> before = marksOf(t);
    for (Photo *p : t)
        p->setRating(r);
    commitMarks(t, before, QStringLiteral("estrellas"));
    advanceAfterMark(shown);
}

void AppState::toggleTag()
{
    const QList<Photo *> t = targets();
    const Photo *shown = current();
    if (t.isEmpty())
        return;
    // Several shots: flag them all unless all are flagged already.
    const bool flag = !std::all_of(t.begin(), t.end(), [](Photo *p) { return p->tagged(); });
    const QList<Marks> before = marksOf(t);
    for (Photo *p : t)
        p->setTagged(flag);
    commitMarks(t, before, QStringLiteral("bandera"));
    advanceAfterMark(shown);
}

void AppState::rotate(int quarterTurns)
{
    const QList<Photo *> t = targets();
    const QList<Marks> before = marksOf(t);
    for (Photo *p : t)
        p->setRotation(p->rotation() + quarterTurns);
    commitMarks(t, before, QStringLiteral("giro"));
}

void AppState::setMarks(Photo *p, const Marks &m, const QString &what)
{
    if (p)
        setMarks({{p, m}}, what);
}

void AppState::setMarks(const QList<QPair<Photo *, Marks>> &marks, const QString &what)
{
    QList<Photo *> changed;
    QList<Marks> before;
    for (const auto &[p, m] : marks) {
        if (!p)
            continue;
        changed.append(p);
        before.append(Marks::fromPhoto(*p));
        m.applyTo(*p);
    }
    commitMarks(changed, before, what);
}

void AppState::commitMarks(const QList<Photo *> &changed, const QList<Marks> &before, const QString &what)
{
    MarksChange change{what, {}, {}};
    for (qsizetype i = 0; i < changed.size(); ++i) {
        const Marks after = Marks::fromPhoto(*changed[i]);
        if (after == before[i])
            continue;
        const auto orNone = [](const Marks &m) { return m.isEmpty() ? std::nullopt : std::optional<Marks>(m); };
        change.shots.append({changed[i]->url(), orNone(before[i]), orNone(after)});
    }
    persistMarks(changed);
    if (change.isEmpty())
        return;
    const QString text = change.describe();
    const bool several = change.shots.size() > 1;
    _history.record(_folder, std::move(change));
    emit historyChanged();
    if (several)
        emit bulkMarksChanged(text.left(1).toUpper() + text.mid(1));
}

bool AppState::canUndo() const { return _history.nextUndo(_folder) != nullptr; }
bool AppState::canRedo() const { return _history.nextRedo(_folder) != nullptr; }

QString AppState::undoText() const
{
    const MarksChange *c = _history.nextUndo(_folder);
    return c ? QStringLiteral("Deshacer ") + c->describe() : QStringLiteral("Deshacer");
}

QString AppState::redoText() const
{
    const MarksChange *c = _history.nextRedo(_folder);
    return c ? QStringLiteral("Rehacer ") + c->describe() : QStringLiteral("Rehacer");
}

void AppState::undo() { stepHistory(true); }
void AppState::redo() { stepHistory(false); }

void AppState::recordFileOp(const QString &id, const QString &what)
{
    if (id.isEmpty())
        return;
    MarksChange change;
    change.what = what;
    change.fileOp = id;
    _history.record(_folder, change);
    emit historyChanged();
}

void AppState::stepHistory(bool back)
{
    const auto change = back ? _history.takeUndo(_folder) : _history.takeRedo(_folder);
    if (!change)
        return;
    if (!change->fileOp.isEmpty()) {
        _history.dropRedo(_folder);   // a file operation is not redone
        if (back)
            emit fileOpUndoRequested(change->fileOp, change->what);
        emit historyChanged();
        return;
    }
    QList<Photo *> shown;
    for (const MarksChange::Shot &shot : change->shots) {
        const std::optional<Marks> &m = back ? shot.before : shot.after;
        const auto id = _byKey.constFind(FolderScanner::groupingKey(shot.file));
        if (Photo *p = id == _byKey.constEnd() ? nullptr : photo(*id)) {
            m.value_or(Marks{}).applyTo(*p);
            shown.append(p);
        } else {
            // The shot is no longer listed (filtered out of a recursive view, or its file
            // moved): its marks still go back in the book and the file.
            _book.set(shot.file, m, true);
        }
    }
    persistMarks(shown);
    emit historyChanged();
}

void AppState::applyMarksOnDisk(const QString &folder, const MarksMap &marks)
{
    if (folder != _folder)
        return;
    const QSet<QString> keys = _book.adopt(folder, marks);
    if (keys.isEmpty())
        return;
    QList<QUuid> ids;
    for (const PhotoPtr &p : std::as_const(_photos)) {
        if (p->dirPath != folder || !keys.contains(MarksFile::keyFor(p->url())))
            continue;
        _book.marksFor(p->url()).value_or(Marks{}).applyTo(*p);
        ids.append(p->id);
    }
    if (ids.isEmpty())
        return;
    emit photosUpdated(ids);
    rebuildVisible();
}

void AppState::persistMarks(const QList<Photo *> &changed)
{
    if (changed.isEmpty())
        return;
    // Each folder's map goes to the store once: handing it over per shot would copy it per shot.
    QList<QUuid> ids;
    QSet<QString> folders;
    for (Photo *p : changed) {
        _book.set(p->url(), Marks::fromPhoto(*p), false);
        folders.insert(p->dirPath);
        ids.append(p->id);
    }
    for (const QString &dir : std::as_const(folders))
        _book.persist(dir);
    if (_storage == MarksStorage::sidecar)
        for (const Photo *p : changed)
            writeSidecar(*p);
    emit photosUpdated(ids);
    rebuildVisible();
}

// ----- Sidecars

void AppState::useSidecars(XMPStore &store)
{
    _xmp = &store;
    connect(_xmp, &XMPStore::sidecarsRead, this, &AppState::applySidecars);
    connect(_xmp, &XMPStore::writeFailed, this, [this](const QString &) {
        toast(QStringLiteral("No se pudo guardar un .xmp: revisa que la carpeta admita cambios."), true);
    });
    if (!_folder.isEmpty() && !_loading)
        readSidecars();
}

void AppState::readSidecars()
{
    _sidecarReads.clear();
    if (!_xmp || _xmpKeys.isEmpty())
        return;
    for (const PhotoPtr &p : std::as_const(_photos)) {
        // In the folder-file mode a sidecar only speaks for a shot the folder file leaves unmarked.
        if (_storage == MarksStorage::folderFile && _book.marksFor(p->url()))
            continue;
        const QString sidecar = SidecarMarks::sidecarToRead(p->url(), p->sidecarURL(), _xmpKeys);
        if (!sidecar.isEmpty())
            _sidecarReads.insert(sidecar, p->id);
    }
    if (!_sidecarReads.isEmpty())
        _xmp->read(_sidecarReads.keys(), _generation);
}

void AppState::applySidecars(quint64 gen, const QHash<QString, XmpState> &states)
{
    if (gen != _generation)
        return;
    // Applied as read, never written back: the folder file and the sidecars stay as they are
    // until the user changes a mark.
    QList<QUuid> ids;
    for (auto it = states.cbegin(); it != states.cend(); ++it) {
        Photo *p = photo(_sidecarReads.value(it.key()));
        if (!p)
            continue;
        const std::optional<Marks> record = _book.marksFor(p->url());
        if (_storage == MarksStorage::folderFile && record)
            continue;   // marked here meanwhile
        const SidecarMarks::Resolved r = SidecarMarks::resolve(_storage, record, it.value());
        if (r.source != SidecarMarks::Source::sidecar || Marks::fromPhoto(*p) == *r.marks)
            continue;
        r.marks->applyTo(*p);
        ids.append(p->id);
    }
    if (ids.isEmpty())
        return;
    emit photosUpdated(ids);
    rebuildVisible();
}

void AppState::writeSidecar(const Photo &p)
{
    if (!_xmp)
        return;
    XmpState state = SidecarMarks::stateOf(Marks::fromPhoto(p));
    if (p.meta())
        state.orientation = Orientation::turned(p.meta()->orientation, state.rotation);
    _xmp->write(p.sidecarURL(), state, p.url());
    _xmpKeys.insert(FolderScanner::groupingKey(p.sidecarURL()));
}

void AppState::setMarksStorage(MarksStorage storage)
{
    MarksStorageSetting::set(storage);
    if (storage == _storage)
        return;
    _storage = storage;
    // Nothing is lost in the switch: the open folder's marks are written the new way.
    if (storage == MarksStorage::sidecar) {
        for (const PhotoPtr &p : std::as_const(_photos))
            if (!Marks::fromPhoto(*p).isEmpty() || hasSidecar(*p))
                writeSidecar(*p);
    } else {
        QSet<QString> folders;
        for (const PhotoPtr &p : std::as_const(_photos)) {
            _book.set(p->url(), Marks::fromPhoto(*p), false);
            folders.insert(p->dirPath);
        }
        for (const QString &dir : std::as_const(folders))
            _book.persist(dir);
    }
}

std::pair<quint64, int> AppState::exportSidecars()
{
    if (!_xmp)
        return {0, 0};
    QList<XMPStore::Job> jobs;
    for (const PhotoPtr &p : std::as_const(_photos)) {
        const Marks m = Marks::fromPhoto(*p);
        if (m.isEmpty())
            continue;
        XmpState state = SidecarMarks::stateOf(m);
        if (p->meta())
            state.orientation = Orientation::turned(p->meta()->orientation, state.rotation);
        jobs.append({p->sidecarURL(), state, p->url()});
        _xmpKeys.insert(FolderScanner::groupingKey(p->sidecarURL()));
    }
    if (jobs.isEmpty())
        return {0, 0};
    return {_xmp->writeAll(jobs), int(jobs.size())};
}

bool AppState::autoAdvance() const
{
    return Settings::autoAdvance.get();
}

void AppState::setAutoAdvance(bool on)
{
    Settings::autoAdvance.set(on);
}

void AppState::advanceAfterMark(const Photo *marked)
{
    // A shot the mark took out of the visible list has already given its place to the one that
    // followed it: that one is next.
    if (current() != marked)
        return;
    if (_selection.size() <= 1 && autoAdvance() && _currentIndex >= 0 && _currentIndex + 1 < _visible.size())
        setCurrentIndex(_currentIndex + 1);
}

// ----- Filter and sort

void AppState::setFilter(const PhotoFilter &f)
{
    if (f == _filter)
        return;
    _filter = f;
    emit filterChanged();
    rebuildVisible();
}

void AppState::clearFilter() { setFilter(PhotoFilter{}); }

void AppState::setSensitivity(SharpSensitivity s)
{
    Settings::sharpSensitivity.set(sharpSensitivityToString(s));
    if (s == _sensitivity)
        return;
    _sensitivity = s;
    QList<QUuid> ids;
    for (const PhotoPtr &p : std::as_const(_photos))
        if (p->sharpness() || p->faceSharpness())
            ids.append(p->id);
    emit photosUpdated(ids);
    rebuildVisible();
}

void AppState::setSort(SortKey key, bool ascending)
{
    const bool changed = key != _sortKey || ascending != _sortAscending;
    if (key != _sortKey)
        _sortKey = key;
    if (ascending != _sortAscending)
        _sortAscending = ascending;
    Settings::sortKey.set(sortKeyToString(key));
    Settings::sortAscending.set(ascending);
    if (!changed)
        return;
    emit sortChanged();
    QMetaObject::invokeMethod(this, [this] { resort(); }, Qt::QueuedConnection);
}

void AppState::resort()
{
    sortPhotos(_photos, _sortKey, _sortAscending);
    rebuildVisible();
}

QMap<QString, int> AppState::facetCounts(Facet f) const
{
    QMap<QString, int> counts;
    for (const PhotoPtr &p : std::as_const(_photos)) {
        if (!_filter.passes(*p, _sensitivity, f))
            continue;
        for (const QString &v : p->facets.value(f))
            ++counts[v];
    }
    return counts;
}

void AppState::rebuildVisible(bool keepCurrent)
{
    // The id, not the shot: a removed current shot is freed when _visible lets go of it below.
    const Photo *shown = keepCurrent ? current() : nullptr;
    const std::optional<QUuid> curId = shown ? std::optional(shown->id) : std::nullopt;
    const int oldIndex = _currentIndex;
    QList<PhotoPtr> next;
    next.reserve(_photos.size());
    for (const PhotoPtr &p : std::as_const(_photos))
        if (_filter.passes(*p, _sensitivity))
            next.append(p);
    const bool same = next == _visible;
    if (!same) {
        _visible = std::move(next);
        // Hidden shots leave the selection: a mark must never reach what the user cannot see.
        QSet<QUuid> kept;
        for (const PhotoPtr &p : std::as_const(_visible))
            if (_selection.contains(p->id))
                kept.insert(p->id);
        const bool selectionShrank = kept.size() != _selection.size();
        _selection = kept;
        emit photosChanged();
        if (selectionShrank)
            emit selectionChanged();
    }
    if (!keepCurrent)
        return;
    int index = curId ? visibleIndexOf(*curId) : -1;
    if (index < 0)
        index = oldIndex;   // the current shot was hidden: stay at the same place
    if (_visible.isEmpty())
        index = -1;
    else
        index = std::clamp(index, 0, int(_visible.size()) - 1);
    if (index != _currentIndex || !same) {
        _currentIndex = index;
        emit currentChanged(index);
    }
}

// ----- Progress and toasts

void AppState::setProgress(std::optional<Progress> p)
{
    _progress = std::move(p);
    emit progressChanged();
}

void AppState::toast(const QString &text, bool error)
{
    emit toastRequested(text, error);
}

// ----- Files arriving and vanishing

QList<Photo *> AppState::addFiles(const QStringList &pathsIn, bool markNew)
{
    QList<Photo *> touched;
    if (_folder.isEmpty())
        return touched;
    // Gather the new files by grouping key, with the members each key already has.
    QHash<QString, QStringList> byKey;
    QStringList order;
    for (const QString &in : pathsIn) {
        const QString path = FolderScanner::standardPath(in);
        const bool inside = _recursive ? path.startsWith(_folder + QLatin1Char('/')) : FolderScanner::parentOf(path) == _folder;
        if (!inside || FileKinds::baseNameOf(path).startsWith(QLatin1Char('.')))
            continue;
        if (FileKinds::isSidecar(path)) {
            _xmpKeys.insert(FolderScanner::groupingKey(path));
            continue;
        }
        if (!FileKinds::isMedia(path))
            continue;
        const QString key = FolderScanner::groupingKey(path);
        if (!byKey.contains(key)) {
            order.append(key);
            const auto idIt = _byKey.constFind(key);
            byKey.insert(key, idIt != _byKey.constEnd() ? photo(*idIt)->files() : QStringList());
        }
        if (!byKey[key].contains(path))
            byKey[key].append(path);
    }
    for (const QString &key : std::as_const(order)) {
        const FolderScanner::Grouped g = FolderScanner::group(byKey.value(key));
        if (g.items.isEmpty())
            continue;
        const ScannedItem &item = g.items.first();
        const auto idIt = _byKey.constFind(key);
        Photo *p = nullptr;
        if (idIt != _byKey.constEnd()) {
            p = photo(*idIt);
            if (p->files() == item.files && p->fileSize == item.size)
                continue;
            p->setFiles(item);
            p->fileSize = item.size;
            p->setDamaged(item.size == 0);   // judged again from its new files
            p->fileCreated = item.created;
            p->fileModified = item.modified;
        } else {
            auto np = std::make_shared<Photo>(item);
            if (const auto m = _book.marksFor(item.url))
                m->applyTo(*np);
            _byId.insert(np->id, np);
            _byKey.insert(key, np->id);
            p = np.get();
            _photos.append(std::move(np));
        }
        if (markNew)
            p->setIsNew(true);
        touched.append(p);
    }
    if (touched.isEmpty())
        return touched;
    QList<MetaReader::Job> jobs;
    QList<QUuid> ids;
    for (Photo *p : std::as_const(touched)) {
        jobs.append(metaJob(*p));
        ids.append(p->id);
    }
    sortPhotos(_photos, _sortKey, _sortAscending);
    rebuildVisible();
    emit photosUpdated(ids);
    // Metadata of the newcomers only, read off the GUI thread; the rest of the folder keeps its own.
    _loader->readMeta(_generation, jobs);
    return touched;
}

void AppState::rereadMeta(const QList<QUuid> &ids)
{
    QList<MetaReader::Job> jobs;
    for (const QUuid &id : ids)
        if (const Photo *p = photo(id)) {
            MetaReader::Job job = metaJob(*p);
            if (job.sidecar.isEmpty())   // one written a moment ago, before the watcher told us
                job.sidecar = IptcFile::sidecarFor(p->url());
            jobs.append(job);
        }
    if (!jobs.isEmpty())
        _loader->readMeta(_generation, jobs);
}

void AppState::removeFiles(const QStringList &pathsIn)
{
    bool changed = false;
    for (const QString &in : pathsIn) {
        const QString path = FolderScanner::standardPath(in);
        const QString key = FolderScanner::groupingKey(path);
        if (FileKinds::isSidecar(path)) {
            _xmpKeys.remove(key);
            continue;
        }
        const auto idIt = _byKey.constFind(key);
        if (idIt == _byKey.constEnd())
            continue;
        Photo *p = photo(*idIt);
        QStringList rest = p->files();
        if (!rest.removeOne(path))
            continue;
        changed = true;
        if (rest.isEmpty()) {
            const QUuid id = p->id;
            _byKey.remove(key);
            _photos.removeIf([&](const PhotoPtr &x) { return x->id == id; });
            _selection.remove(id);
            _byId.remove(id);
            continue;
        }
        const FolderScanner::Grouped g = FolderScanner::group(rest);
        if (!g.items.isEmpty()) {
            p->setFiles(g.items.first());
            p->fileSize = g.items.first().size;
        }
    }
    if (changed)
        rebuildVisible();
}

void AppState::applySharpness(const QHash<QUuid, std::pair<double, QPointF>> &results)
{
    QList<QUuid> ids;
    bool healed = false;
    for (auto it = results.cbegin(); it != results.cend(); ++it)
        if (Photo *p = photo(it.key())) {
            p->setSharpness(it.value().first);
            p->setFocusPoint(it.value().second);
            healed |= p->damaged();
            p->setDamaged(false);
            ids.append(it.key());
        }
    if (ids.isEmpty())
        return;
    emit photosUpdated(ids);
    if (_filter.sharp != SharpFilter::any || (healed && _filter.damagedOnly))
        rebuildVisible();
}

void AppState::markDamaged(const QList<QUuid> &ids)
{
    QList<QUuid> changed;
    for (const QUuid &id : ids)
        if (Photo *p = photo(id); p && !p->damaged()) {
            p->setDamaged(true);
            changed.append(id);
        }
    if (changed.isEmpty())
        return;
    emit photosUpdated(changed);
    if (_filter.damagedOnly)
        rebuildVisible();
}

int AppState::damagedCount() const
{
    return int(std::count_if(_photos.cbegin(), _photos.cend(), [](const PhotoPtr &p) { return p->damaged(); }));
}
