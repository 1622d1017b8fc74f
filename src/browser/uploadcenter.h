#pragma once
// The upload queue of the running program, with what only the browser knows: how to prepare a
// resized copy, which files of the chosen shots go, and the camera hub's forwarding of every
// received file to its upload server ("cam.autoServer"). The queue's journal keeps forwarded files
// that were not sent yet, so they go after a restart. GUI thread only.
#include "upload/uploadqueue.h"

#include <QObject>
#include <memory>

class CameraHub;
class Photo;

class UploadCenter : public QObject
{
    Q_OBJECT
public:
    // Loads the journal and starts what it holds. `journalPath` empty: the user's own.
    explicit UploadCenter(const QString &journalPath = {}, QObject *parent = nullptr);
    ~UploadCenter() override;

    UploadQueue &queue() { return *_queue; }

    // Sends the files of `photos` (see UploadPreparer::filesOf) to the server; returns the job id,
    // empty when there was nothing to send.
    QString send(const QString &serverId, const QList<Photo *> &photos, bool jpegOnly, const UploadQueue::Options &options);
    // Each file the hub receives goes to its upload server while one is set.
    void forwardFrom(CameraHub &hub);

private:
    std::unique_ptr<UploadQueue> _queue;
};
