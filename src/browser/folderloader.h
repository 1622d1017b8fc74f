#pragma once
// Lists a folder (or a whole tree) on its own worker under a fresh LoadToken, reads the marks files
// of the folders it found, and hands the result to the GUI thread in one step. A new load cancels
// the one before; results of a cancelled load never arrive. Also reads the metadata of shots that
// arrive later (camera, folder watcher) on the same worker. Lives on the GUI thread; its signals
// are emitted there.
#include "marks/marksfile.h"
#include "metadata/metareader.h"
#include "model/loadtoken.h"
#include "model/scanneditem.h"

#include <QHash>
#include <QList>
#include <QObject>
#include <QPair>
#include <QString>
#include <QUuid>
#include <optional>

class QThreadPool;

class FolderLoader : public QObject
{
    Q_OBJECT
public:
    struct Result {
        ScanResult scan;
        QHash<QString, MarksMap> marksByFolder;   // standardised folder → its marks file
    };
    using MetaBatch = QList<QPair<QUuid, std::optional<PhotoMeta>>>;

    explicit FolderLoader(QObject *parent = nullptr);
    ~FolderLoader() override;   // cancels and waits for the worker

    // `generation` comes back with every signal of this load.
    void load(quint64 generation, const QString &folder, bool recursive);
    void cancel();
    void readMeta(quint64 generation, const QList<MetaReader::Job> &jobs);

signals:
    void progress(quint64 generation, const QString &text, int count);   // a tree's listing
    void finished(quint64 generation, const FolderLoader::Result &result);
    void metaRead(quint64 generation, const FolderLoader::MetaBatch &batch);

private:
    QThreadPool *_pool;
    LoadTokenPtr _token;
};
