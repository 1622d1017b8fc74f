#include "fileopcontroller.h"

#include "toast.h"
#include "transfersheet.h"

#include "browser/appstate.h"
#include "browser/browsersession.h"
#include "fileops/shottransfer.h"
#include "marks/marksbook.h"
#include "marks/marksstore.h"
#include "model/photo.h"

#include <QFileInfo>
#include <QFutureWatcher>
#include <QProgressDialog>
#include <QtConcurrent>

namespace {

using Op = FileOpJournal::Op;

// What the undo list calls it: "Deshacer papelera de 3 imágenes".
QString historyText(const FileOpOutcome &o)
{
    const QString n = shotCount(o.done);
    switch (o.op) {
    case Op::copy: return QStringLiteral("copia de %1").arg(n);
    case Op::move: return QStringLiteral("traslado de %1").arg(n);
    case Op::trash: return QStringLiteral("papelera de %1").arg(n);
    case Op::untrash:
    case Op::rename: break;
    }
    return QStringLiteral("renombrado de %1").arg(n);
}

} // namespace

FileOpController::FileOpController(BrowserSession &session, Toast &toast, QWidget *window)
    : QObject(window)
    , _session(session)
    , _toast(toast)
    , _window(window)
{
    connect(&session.state(), &AppState::fileOpUndoRequested, this, &FileOpController::undo);
}

void FileOpController::start(const QString &label, Work work)
{
    _busy = true;
    // Marks still waiting to be written must be in the folder's file before it is read for moving.
    _session.store().flush();
    _progress = new QProgressDialog(label, QString(), 0, 0, _window);
    _progress->setObjectName(QStringLiteral("fileOpProgress"));
    _progress->setWindowTitle(QStringLiteral("Corvane"));
    _progress->setWindowModality(Qt::WindowModal);
    _progress->setMinimumDuration(400);
    _progress->setAutoClose(false);
    _progress->setAutoReset(false);
    QPointer<QProgressDialog> bar = _progress;
    auto *watcher = new QFutureWatcher<FileOpOutcome>(this);
    connect(watcher, &QFutureWatcher<FileOpOutcome>::finished, this, [this, watcher] {
        watcher->deleteLater();
        done(watcher->result());
    });
    watcher->setFuture(QtConcurrent::run([work = std::move(work), bar] {
        return work([bar](int n, int total) {
            QMetaObject::invokeMethod(bar, [bar, n, total] {
                if (bar) {
                    bar->setMaximum(total);
                    bar->setValue(n);
                }
            }, Qt::QueuedConnection);
        });
    }));
}

void FileOpController::done(const FileOpOutcome &o)
{
    _busy = false;
    if (_progress)
        _progress->deleteLater();
    AppState &state = _session.state();
    // The folder is read again: shots left, arrived or changed name.
    _session.book().forget(state.folder());
    state.reload();
    const bool failed = !o.error.isEmpty() || !o.kept.isEmpty() || !o.savedAs.isEmpty();
    if (!o.undo && !o.id.isEmpty()) {
        state.recordFileOp(o.id, historyText(o));
        if (failed)
            _toast.showMessage(o.summary() + (o.messages.isEmpty() ? QString() : QLatin1Char(' ') + o.messages.join(QStringLiteral("; "))), true);
        else
            _toast.showAction(o.summary(), QStringLiteral("Deshacer"), [&state] { state.undo(); });
    } else {
        QString text = o.summary();
        if (!o.messages.isEmpty())
            text += QLatin1Char(' ') + o.messages.join(QStringLiteral("; "));
        _toast.showMessage(text, failed);
    }
    emit finished(o);
}

void FileOpController::trashTargets()
{
    if (_busy)
        return;
    QList<ShotTransfer::Shot> shots;
    for (const Photo *p : _session.state().targets()) {
        ShotTransfer::Shot s{p->url()};
        for (const QString &f : p->files())
            if (f != p->url())
                s.append(f);
        shots.append(s);
    }
    if (shots.isEmpty())
        return;
    start(ShotTransfer::runningText(Op::trash, int(shots.size())),
          [shots](const FileOpEngine::Progress &progress) { return ShotTransfer::trash(shots, progress); });
}

void FileOpController::showTransfer(FileOpJournal::Op op)
{
    if (_busy || _session.state().photos().isEmpty())
        return;
    auto *sheet = new TransferSheet(_session.state(), op, _window);
    sheet->setAttribute(Qt::WA_DeleteOnClose);
    connect(sheet, &QDialog::accepted, this, [this, sheet, op] {
        const QList<ShotTransfer::Shot> shots = sheet->shots();
        const QString folder = sheet->folder();
        const bool verify = sheet->verify();
        start(ShotTransfer::runningText(op, int(shots.size())), [=](const FileOpEngine::Progress &progress) {
            return op == Op::copy ? ShotTransfer::copy(shots, folder, verify, progress) : ShotTransfer::move(shots, folder, verify, progress);
        });
    });
    sheet->open();
}

void FileOpController::undo(const QString &id, const QString &what)
{
    if (id.startsWith(QLatin1String("iptc:")))
        return;   // the window takes back a template apply itself
    if (_busy) {
        // Kept on the list for when the running operation has ended.
        _session.state().recordFileOp(id, what);
        _toast.showMessage(QStringLiteral("Espera a que termine la operación con archivos en curso."), true);
        return;
    }
    start(QStringLiteral("Deshaciendo…"), [id](const FileOpEngine::Progress &progress) { return FileOpEngine::undo(id, progress); });
}

void FileOpController::renamed(const FileOpOutcome &o)
{
    if (o.id.isEmpty())
        return;
    AppState &state = _session.state();
    state.recordFileOp(o.id, historyText(o));
    _toast.showAction(o.title(), QStringLiteral("Deshacer"), [&state] { state.undo(); });
}
