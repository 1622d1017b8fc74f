#include "uploadcenter.h"

#include "uploadpreparer.h"

#include "camera/camerahub.h"

UploadCenter::UploadCenter(const QString &journalPath, QObject *parent)
    : QObject(parent),
      _queue(std::make_unique<UploadQueue>(journalPath.isEmpty() ? UploadQueue::defaultJournalPath() : journalPath))
{
    _queue->setPreparer(UploadPreparer::prepare);
    _queue->start();
}

UploadCenter::~UploadCenter() = default;

QString UploadCenter::send(const QString &serverId, const QList<Photo *> &photos, bool jpegOnly,
                           const UploadQueue::Options &options)
{
    const QStringList files = UploadPreparer::filesOf(photos, jpegOnly);
    return files.isEmpty() ? QString() : _queue->add(serverId, files, options);
}

void UploadCenter::forwardFrom(CameraHub &hub)
{
    connect(&hub, &CameraHub::fileReceived, this, [this, &hub](const QString &path) {
        if (!hub.autoServer().isEmpty())
            _queue->add(hub.autoServer(), {path});
    });
}
