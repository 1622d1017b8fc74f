#pragma once
// Watches the open folder for files added, removed or renamed by other programs
// (inotify through QFileSystemWatcher). GUI thread only. Changes are coalesced: one report
// about 250 ms after a burst of events, well inside a second (tests pass shorter delays).
#include <QElapsedTimer>
#include <QObject>
#include <QSet>
#include <QString>
#include <QStringList>
#include <QTimer>

class QFileSystemWatcher;

class FolderWatcher : public QObject
{
    Q_OBJECT
public:
    struct Timing {
        int debounceMs = 250;   // quiet time that ends a burst
        // A steady stream of events (a camera sending a burst) would keep restarting the
        // debounce; past this age the pending report goes out anyway.
        int maxDelayMs = 600;
    };
    explicit FolderWatcher(QObject *parent = nullptr);
    FolderWatcher(QObject *parent, Timing timing);
    // Starts watching `folder` (flat: its direct media files and sidecars). `known` are the files
    // already shown, so the first report holds only real changes.
    void watch(const QString &folder, const QStringList &known);
    void stop();
    QString folder() const { return _folder; }
    // A look at the folder is waiting for its burst to end.
    bool isPending() const { return _debounce.isActive(); }

signals:
    // Absolute paths of media files and sidecars that appeared or vanished. A rename reports the
    // old name as removed and the new one as added.
    void filesChanged(const QStringList &added, const QStringList &removed);
    // The folder itself vanished (deleted or unmounted).
    void folderGone(const QString &folder);

private:
    void onDirectoryChanged();
    void rescan();
    Timing _timing;
    QFileSystemWatcher *_watcher = nullptr;
    QTimer _debounce;
    QElapsedTimer _burst;   // since the first event of the burst waiting in _debounce
    QString _folder;
    QSet<QString> _known;   // absolute paths of the media files and sidecars seen
};
