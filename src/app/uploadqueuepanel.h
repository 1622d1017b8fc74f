#pragma once
// "Cola de envíos": every job of the upload queue with its progress (files, bytes, speed, time
// left), the line that says why it failed or waits, and Cancelar / Reintentar / Quitar terminados.
// A tool window that can stay open beside the main one. GUI thread only.
#include <QDialog>

class QPushButton;
class QTreeWidget;
class UploadQueue;

class UploadQueuePanel : public QDialog
{
    Q_OBJECT
public:
    explicit UploadQueuePanel(UploadQueue &queue, QWidget *parent = nullptr);

    QTreeWidget *tree() const { return _tree; }
    QPushButton *cancelButton() const { return _cancel; }
    QPushButton *retryButton() const { return _retry; }
    QPushButton *clearButton() const { return _clear; }
    // The text of a job's row, as shown (for the tests).
    QString rowText(int row) const;

private:
    void refresh();
    void updateButtons();
    QString selectedJob() const;

    UploadQueue &_queue;
    QTreeWidget *_tree;
    QPushButton *_cancel, *_retry, *_clear;
};
