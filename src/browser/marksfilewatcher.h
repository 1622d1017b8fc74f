#pragma once
// Notices when another process (`corvane mark`, a second computer on a shared disk) rewrites the
// open folder's marks file, and hands its marks to the GUI thread. The file is looked at every
// `intervalMs` with a stat() on the global thread pool, so a slow network disk never blocks the
// window; inotify alone would miss writes made by another computer. Only a changed file is read.
// The first look after watch() always reports, which covers a change made between the folder's
// load and the watch. GUI thread only.
#include "marks/marksfile.h"

#include <QFutureWatcher>
#include <QObject>
#include <QString>
#include <QTimer>

class MarksStore;

class MarksFileWatcher : public QObject
{
    Q_OBJECT
public:
    static constexpr int kIntervalMs = 500;

    // `store` is this process's writer: a look that raced one of its writes is taken again.
    MarksFileWatcher(MarksStore *store, QObject *parent = nullptr, int intervalMs = kIntervalMs);
    ~MarksFileWatcher() override;

    void watch(const QString &folder);
    void stop();

    // What identifies one version of the file: a rename onto it changes the inode, a write in
    // place the size or the times.
    struct Signature {
        bool exists = false;
        quint64 inode = 0;
        qint64 size = 0;
        qint64 mtimeNs = 0;
        qint64 ctimeNs = 0;
        bool operator==(const Signature &) const = default;
    };
    struct Look {
        QString folder;
        Signature signature;
        std::optional<MarksMap> marks;   // read only when the signature changed
        int storeWrites = 0;             // the store's write count before the look
    };

signals:
    // The folder's marks as they are on disk now (empty when it keeps none).
    void marksChanged(const QString &folder, const MarksMap &marks);

private:
    void lookNow();
    void onLooked();

    MarksStore *_store;
    QTimer _timer;
    QFutureWatcher<Look> _look;
    QString _folder;
    std::optional<Signature> _known;   // the version last reported
};
