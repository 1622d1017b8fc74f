#include "uploadqueuepanel.h"

#include "datasize.h"

#include "upload/uploadqueue.h"

#include <QDialogButtonBox>
#include <QHeaderView>
#include <QProgressBar>
#include <QPushButton>
#include <QTreeWidget>
#include <QVBoxLayout>

namespace {

QString stateText(const UploadJob &j)
{
    switch (j.state) {
    case UploadJob::State::waiting:
        return QStringLiteral("En espera");
    case UploadJob::State::running:
        return QStringLiteral("Enviando");
    case UploadJob::State::retrying:
        return QStringLiteral("Reintentando: %1").arg(j.error);
    case UploadJob::State::failed:
        return QStringLiteral("Error: %1").arg(j.error);
    case UploadJob::State::cancelled:
        return QStringLiteral("Cancelado");
    case UploadJob::State::done:
        return QStringLiteral("Enviado");
    }
    return {};
}

QString timeLeft(qint64 seconds)
{
    if (seconds < 0)
        return {};
    if (seconds < 60)
        return QStringLiteral("%1 s").arg(seconds);
    return QStringLiteral("%1 min %2 s").arg(seconds / 60).arg(seconds % 60, 2, 10, QLatin1Char('0'));
}

} // namespace

UploadQueuePanel::UploadQueuePanel(UploadQueue &queue, QWidget *parent)
    : QDialog(parent)
    , _queue(queue)
    , _tree(new QTreeWidget(this))
    , _cancel(new QPushButton(QStringLiteral("Cancelar"), this))
    , _retry(new QPushButton(QStringLiteral("Reintentar"), this))
    , _clear(new QPushButton(QStringLiteral("Quitar terminados"), this))
{
    setObjectName(QStringLiteral("uploadQueuePanel"));
    setWindowTitle(QStringLiteral("Cola de envíos"));
    resize(760, 360);
    _tree->setHeaderLabels({QStringLiteral("Servidor"), QStringLiteral("Archivos"), QStringLiteral("Progreso"),
                            QStringLiteral("Velocidad"), QStringLiteral("Queda"), QStringLiteral("Estado")});
    _tree->setRootIsDecorated(true);
    _tree->setUniformRowHeights(true);
    _tree->header()->setStretchLastSection(true);
    _tree->setColumnWidth(2, 160);

    auto *buttons = new QDialogButtonBox(this);
    buttons->addButton(_cancel, QDialogButtonBox::ActionRole);
    buttons->addButton(_retry, QDialogButtonBox::ActionRole);
    buttons->addButton(_clear, QDialogButtonBox::ActionRole);
    buttons->addButton(QDialogButtonBox::Close);
    auto *body = new QVBoxLayout(this);
    body->addWidget(_tree);
    body->addWidget(buttons);

    connect(buttons, &QDialogButtonBox::rejected, this, &QDialog::close);
    connect(_cancel, &QPushButton::clicked, this, [this] { _queue.cancel(selectedJob()); });
    connect(_retry, &QPushButton::clicked, this, [this] { _queue.retry(selectedJob()); });
    connect(_clear, &QPushButton::clicked, this, [this] { _queue.clearFinished(); });
    connect(_tree, &QTreeWidget::currentItemChanged, this, &UploadQueuePanel::updateButtons);
    connect(&_queue, &UploadQueue::changed, this, &UploadQueuePanel::refresh);
    refresh();
}

QString UploadQueuePanel::selectedJob() const
{
    QTreeWidgetItem *item = _tree->currentItem();
    while (item && item->parent())
        item = item->parent();
    return item ? item->data(0, Qt::UserRole).toString() : QString();
}

QString UploadQueuePanel::rowText(int row) const
{
    QTreeWidgetItem *item = _tree->topLevelItem(row);
    if (!item)
        return {};
    QStringList cells;
    for (int c = 0; c < _tree->columnCount(); ++c)
        cells << item->text(c);
    return cells.join(QLatin1Char(' '));
}

void UploadQueuePanel::refresh()
{
    const QList<UploadJob> jobs = _queue.jobs();
    const QString selected = selectedJob();
    // Rows are kept and updated in place, so the selection and the scroll position stay put.
    while (_tree->topLevelItemCount() > jobs.size())
        delete _tree->takeTopLevelItem(_tree->topLevelItemCount() - 1);
    for (int row = 0; row < jobs.size(); ++row) {
        const UploadJob &j = jobs[row];
        QTreeWidgetItem *item = _tree->topLevelItem(row);
        if (!item) {
            item = new QTreeWidgetItem(_tree);
            _tree->setItemWidget(item, 2, new QProgressBar(_tree));
        }
        item->setData(0, Qt::UserRole, j.id);
        item->setText(0, j.serverName);
        item->setText(1, QStringLiteral("%1 de %2").arg(j.filesDone()).arg(j.files.size()));
        const qint64 total = j.bytesTotal();
        auto *bar = static_cast<QProgressBar *>(_tree->itemWidget(item, 2));
        bar->setRange(0, 1000);
        bar->setValue(total > 0 ? int(1000 * j.bytesDone() / total) : 0);
        bar->setFormat(QStringLiteral("%1 de %2").arg(dataSizeText(j.bytesDone()), dataSizeText(total)));
        item->setText(2, bar->format());
        const bool moving = j.state == UploadJob::State::running && j.speed > 0;
        item->setText(3, moving ? dataSizeText(qint64(j.speed)) + QStringLiteral("/s") : QString());
        item->setText(4, moving ? timeLeft(j.secondsLeft()) : QString());
        item->setText(5, stateText(j));
        item->setToolTip(5, stateText(j));
        // One child per file under way, with its own share.
        QList<QTreeWidgetItem *> children = item->takeChildren();
        qDeleteAll(children);
        for (const UploadFile &f : j.files)
            if (!f.done && f.sent > 0) {
                auto *child = new QTreeWidgetItem(item);
                child->setText(0, f.remoteName);
                child->setText(2, f.size > 0 ? QStringLiteral("%1 %").arg(100 * f.sent / f.size) : QString());
            }
        item->setExpanded(true);
        if (j.id == selected)
            _tree->setCurrentItem(item);
    }
    updateButtons();
}

void UploadQueuePanel::updateButtons()
{
    const auto job = _queue.job(selectedJob());
    _cancel->setEnabled(job && !job->finished());
    _retry->setEnabled(job && (job->state == UploadJob::State::failed || job->state == UploadJob::State::cancelled));
    bool anyFinished = false;
    for (const UploadJob &j : _queue.jobs())
        anyFinished = anyFinished || j.finished();
    _clear->setEnabled(anyFinished);
}
