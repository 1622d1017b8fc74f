#include "importprogresspage.h"

#include "datasize.h"
#include "importlabels.h"

#include "ingest/ingestphase.h"
#include "ingest/ingestrunner.h"

#include <QHBoxLayout>
#include <QLabel>
#include <QProgressBar>
#include <QPushButton>
#include <QVBoxLayout>

#include <algorithm>

ImportProgressPage::ImportProgressPage(IngestRunner &runner, QWidget *parent)
    : QWidget(parent)
    , _runner(runner)
{
    auto *v = new QVBoxLayout(this);
    v->setContentsMargins(0, 24, 0, 0);
    _phase = ImportLabels::heading(QString(), 1.25, this);
    v->addWidget(_phase);
    _bar = new QProgressBar(this);
    _bar->setRange(0, 1000);
    _bar->setTextVisible(false);
    v->addWidget(_bar);
    auto *numbers = new QHBoxLayout;
    _files = new QLabel(this);
    _bytes = new QLabel(this);
    numbers->addWidget(_files);
    numbers->addSpacing(24);
    numbers->addWidget(_bytes);
    numbers->addStretch();
    _rate = new QLabel(this);
    numbers->addWidget(_rate);
    v->addLayout(numbers);
    _current = ImportLabels::dim(QString(), this);
    _current->setTextFormat(Qt::PlainText);
    v->addWidget(_current);
    v->addStretch();
    auto *bottom = new QHBoxLayout;
    bottom->addStretch();
    _cancel = new QPushButton(QStringLiteral("Cancelar"), this);
    bottom->addWidget(_cancel);
    v->addLayout(bottom);

    connect(_cancel, &QPushButton::clicked, this, [this] {
        _cancel->setEnabled(false);
        _runner.cancel();
    });
    connect(&_runner, &IngestRunner::phaseChanged, this, &ImportProgressPage::onPhase);
    connect(&_runner, &IngestRunner::progressChanged, this, &ImportProgressPage::onProgress);
}

void ImportProgressPage::begin(const QString &phase, bool clearNumbers)
{
    _cancel->setEnabled(true);
    _phase->setText(phase);
    if (!clearNumbers)
        return;
    _bar->setRange(0, 0);
    _files->clear();
    _bytes->clear();
    _rate->clear();
    _current->clear();
}

void ImportProgressPage::onPhase()
{
    const QString text = ingestPhaseText(_runner.phase());
    if (!text.isEmpty())
        _phase->setText(text);
    onProgress();
}

void ImportProgressPage::onProgress()
{
    const qint64 total = _runner.bytesTotal();
    if (total > 0) {
        _bar->setRange(0, 1000);
        _bar->setValue(int(std::clamp<qint64>(_runner.bytesDone() * 1000 / total, 0, 1000)));
        _bytes->setText(QStringLiteral("%1 de %2").arg(dataSizeText(_runner.bytesDone()), dataSizeText(total)));
    } else {
        _bar->setRange(0, 0);   // reading the card: no size known yet
        _bytes->clear();
    }
    _files->setText(_runner.total() > 0 ? QStringLiteral("%1 de %2 archivos").arg(_runner.done()).arg(_runner.total())
                                        : (_runner.done() > 0 ? QStringLiteral("%1 archivos").arg(_runner.done()) : QString()));
    _current->setText(_runner.currentName());
    const double rate = _runner.rate();
    if (rate > 0 && total > 0) {
        QString text = dataSizeText(qint64(rate)) + QStringLiteral("/s");
        const int left = _runner.secondsLeft();
        if (left >= 0)
            text += QStringLiteral(" · quedan ") + formatDuration(left);
        _rate->setText(text);
    } else {
        _rate->clear();
    }
}

QString ImportProgressPage::formatDuration(int seconds)
{
    if (seconds < 60)
        return QStringLiteral("%1 s").arg(seconds);
    if (seconds < 3600) {
        const int s = seconds % 60;
        return s ? QStringLiteral("%1 min %2 s").arg(seconds / 60).arg(s) : QStringLiteral("%1 min").arg(seconds / 60);
    }
    const int m = seconds % 3600 / 60;
    return m ? QStringLiteral("%1 h %2 min").arg(seconds / 3600).arg(m) : QStringLiteral("%1 h").arg(seconds / 3600);
}
