#include "folderwatcher.h"

#include "model/filekinds.h"
#include "model/folderscanner.h"
#include "model/naturalcompare.h"

#include <QDirIterator>
#include <QFileInfo>
#include <QFileSystemWatcher>

#include <algorithm>

namespace {

// Files the watcher reports: visible media files and sidecars. Our own temporary files are hidden.
bool isWatchedName(const QString &name)
{
    return !name.startsWith(QLatin1Char('.')) && (FileKinds::isMedia(name) || FileKinds::isSidecar(name));
}

} // namespace

FolderWatcher::FolderWatcher(QObject *parent)
    : FolderWatcher(parent, Timing{})
{
}

FolderWatcher::FolderWatcher(QObject *parent, Timing timing)
    : QObject(parent)
    , _timing(timing)
{
    _debounce.setSingleShot(true);
    _debounce.setInterval(timing.debounceMs);
    connect(&_debounce, &QTimer::timeout, this, &FolderWatcher::rescan);
}

void FolderWatcher::watch(const QString &folder, const QStringList &known)
{
    stop();
    _folder = FolderScanner::standardPath(folder);
    if (_folder.isEmpty())
        return;

    // Only the direct entries are compared; files of subfolders (a recursive view) stay out.
    const QString prefix = _folder.endsWith(QLatin1Char('/')) ? _folder : _folder + QLatin1Char('/');
    for (const QString &path : known) {
        const QString p = FolderScanner::standardPath(path);
        if (p.startsWith(prefix) && p.indexOf(QLatin1Char('/'), prefix.size()) < 0
            && isWatchedName(p.mid(prefix.size())))
            _known.insert(p);
    }

    if (!_watcher) {
        _watcher = new QFileSystemWatcher(this);
        connect(_watcher, &QFileSystemWatcher::directoryChanged, this, &FolderWatcher::onDirectoryChanged);
    }
    _watcher->addPath(_folder);
    // Files that arrived between the listing and now are reported by a first look.
    onDirectoryChanged();
}

void FolderWatcher::stop()
{
    _debounce.stop();
    if (_watcher && !_watcher->directories().isEmpty())
        _watcher->removePaths(_watcher->directories());
    _folder.clear();
    _known.clear();
}

void FolderWatcher::onDirectoryChanged()
{
    if (_folder.isEmpty())
        return;
    if (!_debounce.isActive())
        _burst.start();
    else if (_burst.elapsed() >= _timing.maxDelayMs)
        return;   // let the running timer fire
    _debounce.start();
}

void FolderWatcher::rescan()
{
    if (_folder.isEmpty())
        return;
    const QFileInfo info(_folder);
    if (!info.isDir()) {
        const QString gone = _folder;
        stop();
        emit folderGone(gone);
        return;
    }
    // A folder we may no longer list (permissions changed) is not a folder emptied.
    if (!info.isReadable() || !info.isExecutable())
        return;
    // inotify drops the watch when the folder is deleted or replaced (a folder recreated under
    // the same name is a new inode): watch it again.
    if (_watcher && !_watcher->directories().contains(_folder))
        _watcher->addPath(_folder);

    const QString prefix = _folder.endsWith(QLatin1Char('/')) ? _folder : _folder + QLatin1Char('/');
    QSet<QString> current;
    current.reserve(_known.size() + 16);
    // QDir::Files without QDir::Hidden already leaves out dot-files; the name test keeps the rule
    // in one place.
    QDirIterator it(_folder, QDir::Files | QDir::NoDotAndDotDot);
    while (it.hasNext()) {
        it.next();
        const QString name = it.fileName();
        if (isWatchedName(name))
            current.insert(prefix + name);
    }

    QStringList added, removed;
    for (const QString &p : std::as_const(current))
        if (!_known.contains(p))
            added.append(p);
    for (const QString &p : std::as_const(_known))
        if (!current.contains(p))
            removed.append(p);
    if (added.isEmpty() && removed.isEmpty())
        return;
    std::sort(added.begin(), added.end(), naturalLess);
    std::sort(removed.begin(), removed.end(), naturalLess);
    _known = std::move(current);
    emit filesChanged(added, removed);
}
