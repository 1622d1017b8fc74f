#include "marksfilewatcher.h"

#include "marks/marksstore.h"

#include <QFile>
#include <QtConcurrent/QtConcurrentRun>
#include <sys/stat.h>

namespace {
MarksFileWatcher::Signature signatureOf(const QString &path)
{
    struct stat st {};
    if (::stat(QFile::encodeName(path).constData(), &st) != 0)
        return {};
    return {true, quint64(st.st_ino), qint64(st.st_size),
            qint64(st.st_mtim.tv_sec) * 1000000000 + st.st_mtim.tv_nsec,
            qint64(st.st_ctim.tv_sec) * 1000000000 + st.st_ctim.tv_nsec};
}
} // namespace

MarksFileWatcher::MarksFileWatcher(MarksStore *store, QObject *parent, int intervalMs)
    : QObject(parent)
    , _store(store)
{
    _timer.setInterval(intervalMs);
    connect(&_timer, &QTimer::timeout, this, &MarksFileWatcher::lookNow);
    connect(&_look, &QFutureWatcher<Look>::finished, this, &MarksFileWatcher::onLooked);
}

MarksFileWatcher::~MarksFileWatcher()
{
    _look.waitForFinished();
}

void MarksFileWatcher::watch(const QString &folder)
{
    _folder = folder;
    _known.reset();
    _timer.start();
    lookNow();
}

void MarksFileWatcher::stop()
{
    _timer.stop();
    _folder.clear();
    _known.reset();
}

void MarksFileWatcher::lookNow()
{
    if (_folder.isEmpty() || _look.isRunning())
        return;
    const int writes = _store ? _store->writeCount() : 0;
    _look.setFuture(QtConcurrent::run([folder = _folder, known = _known, writes] {
        Look look{folder, signatureOf(folder + QLatin1Char('/') + QLatin1String(MarksFile::kFileName)), {}, writes};
        if (!known || *known != look.signature) {
            const auto file = MarksFile::load(folder);
            look.marks = file ? file->marks : MarksMap{};
        }
        return look;
    }));
}

void MarksFileWatcher::onLooked()
{
    const Look look = _look.result();
    if (look.folder != _folder || !look.marks)
        return;
    // A write of ours that ended during the look may be missing from what was read (or be all
    // that changed): look again rather than report marks older than our own.
    if (_store && _store->writeCount() != look.storeWrites) {
        QTimer::singleShot(0, this, &MarksFileWatcher::lookNow);
        return;
    }
    _known = look.signature;
    emit marksChanged(look.folder, *look.marks);
}
