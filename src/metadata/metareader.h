#pragma once
// Reads capture metadata (exiv2) of the open folder's shots in the background, in batches.
// Lives on the GUI thread; owns one worker thread. Results arrive through metaReady on the GUI
// thread. start() cancels any earlier request.
#include "photometareader.h"

#include <QList>
#include <QObject>
#include <QPair>
#include <QString>
#include <QUuid>
#include <memory>
#include <optional>

class MetaReader : public QObject
{
    Q_OBJECT
public:
    explicit MetaReader(QObject *parent = nullptr);
    ~MetaReader() override;

    struct Job {
        QUuid id;
        QString path;   // the file read: the shot's preview file (the JPEG of a pair) or its RAW
        QString sidecar = {};   // its .xmp, whose IPTC texts win over the file's; "" for none
    };
    // Reads every job, cancelling the previous request. `generation` comes back with each batch.
    void start(const QList<Job> &jobs, quint64 generation);
    void cancel();

signals:
    // A batch (tens of shots, or whatever is ready after ~100 ms). Shots that have no metadata
    // are reported with std::nullopt so the caller knows they are done.
    void metaReady(quint64 generation, const QList<QPair<QUuid, std::optional<PhotoMeta>>> &batch);
    void finished(quint64 generation);

private:
    struct Worker;
    std::unique_ptr<Worker> d;
};
