#pragma once
// The window's file operations: "Copiar a…", "Mover a…", "Mover a la papelera" (Delete) and the
// undo of each (and of a rename) when Ctrl+Z reaches it. One operation at a time, on a worker, with
// a progress dialog when it lasts; the folder is read again when it ends, the operation joins the
// undo list and a toast says what happened, with "Deshacer". GUI thread only.
#include "fileops/fileopengine.h"

#include <QObject>
#include <QPointer>
#include <functional>

class BrowserSession;
class QProgressDialog;
class QWidget;
class Toast;

class FileOpController : public QObject
{
    Q_OBJECT
public:
    FileOpController(BrowserSession &session, Toast &toast, QWidget *window);

    void trashTargets();
    void showTransfer(FileOpJournal::Op op);   // copy or move
    void undo(const QString &id, const QString &what = {});
    // A rename finished in its sheet: it joins the undo list and the toast offers to undo it.
    void renamed(const FileOpOutcome &outcome);
    bool busy() const { return _busy; }

signals:
    void finished(const FileOpOutcome &outcome);   // for the tests

private:
    using Work = std::function<FileOpOutcome(const FileOpEngine::Progress &)>;
    void start(const QString &label, Work work);
    void done(const FileOpOutcome &outcome);

    BrowserSession &_session;
    Toast &_toast;
    QWidget *_window;
    QPointer<QProgressDialog> _progress;
    bool _busy = false;
};
