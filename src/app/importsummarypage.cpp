#include "importsummarypage.h"

#include "importlabels.h"

#include "ingest/ingestjob.h"

#include <QFileInfo>
#include <QFrame>
#include <QHBoxLayout>
#include <QLabel>
#include <QPushButton>
#include <QScrollArea>
#include <QVBoxLayout>

namespace {

const QString kVerifyNowNote = QStringLiteral("Se lee cada copia desde el disco de destino y se compara su huella SHA-256 con la del original.");
const QString kErrorStyle = QStringLiteral("color: #e07a6a;");

QLabel *addLine(QVBoxLayout *layout, const QString &text, QWidget *parent, const QString &style = {})
{
    auto *label = new QLabel(text, parent);
    label->setTextFormat(Qt::PlainText);
    label->setWordWrap(true);
    label->setTextInteractionFlags(Qt::TextSelectableByMouse);
    if (!style.isEmpty())
        label->setStyleSheet(style);
    layout->addWidget(label);
    return label;
}

} // namespace

ImportSummaryPage::ImportSummaryPage(QWidget *parent)
    : QWidget(parent)
{
    auto *v = new QVBoxLayout(this);
    v->setContentsMargins(0, 24, 0, 0);
    _title = ImportLabels::heading(QString(), 1.35, this);
    v->addWidget(_title);
    _body = new QLabel(this);
    _body->setWordWrap(true);
    v->addWidget(_body);

    auto *scroll = new QScrollArea(this);
    scroll->setWidgetResizable(true);
    scroll->setFrameShape(QFrame::NoFrame);
    _destBoxes = new QWidget(scroll);
    auto *boxes = new QVBoxLayout(_destBoxes);
    boxes->setContentsMargins(0, 8, 0, 0);
    scroll->setWidget(_destBoxes);
    v->addWidget(scroll, 1);

    _ejectResult = new QLabel(this);
    v->addWidget(_ejectResult);
    auto *verifyRow = new QHBoxLayout;
    _verifyNow = new QPushButton(QStringLiteral("Verificar ahora"), this);
    verifyRow->addWidget(_verifyNow);
    _verifyNowNote = ImportLabels::dim(kVerifyNowNote, this);
    verifyRow->addWidget(_verifyNowNote, 1);
    v->addLayout(verifyRow);

    auto *bottom = new QHBoxLayout;
    _openResult = new QPushButton(QStringLiteral("Abrir en Corvane"), this);
    bottom->addWidget(_openResult);
    bottom->addStretch();
    _again = new QPushButton(QStringLiteral("Importar más"), this);
    _close = new QPushButton(QStringLiteral("Cerrar"), this);
    bottom->addWidget(_again);
    bottom->addWidget(_close);
    v->addLayout(bottom);

    connect(_verifyNow, &QPushButton::clicked, this, &ImportSummaryPage::verifyNowRequested);
    connect(_openResult, &QPushButton::clicked, this, &ImportSummaryPage::openRequested);
    connect(_again, &QPushButton::clicked, this, &ImportSummaryPage::againRequested);
    connect(_close, &QPushButton::clicked, this, &ImportSummaryPage::closeRequested);
}

void ImportSummaryPage::showReport(const IngestReport &report)
{
    _title->setText(report.summary.title);
    _body->setText(report.summary.body);

    auto *layout = static_cast<QVBoxLayout *>(_destBoxes->layout());
    while (QLayoutItem *item = layout->takeAt(0)) {
        if (item->widget())
            item->widget()->deleteLater();
        delete item;
    }
    if (!report.errors.isEmpty()) {
        auto *box = new QFrame(_destBoxes);
        auto *v = new QVBoxLayout(box);
        for (const QString &e : report.errors)
            addLine(v, e, box, kErrorStyle);
        layout->addWidget(box);
    }
    for (const DestResult &d : report.dests) {
        auto *box = new QFrame(_destBoxes);
        box->setObjectName(QStringLiteral("destBox"));
        box->setStyleSheet(QStringLiteral("#destBox { background: #262626; border: 1px solid #3a3a3a; border-radius: 6px; }"));
        auto *v = new QVBoxLayout(box);
        QLabel *head = addLine(v, (d.id == 0 ? QStringLiteral("Disco de trabajo: ") : QStringLiteral("Copia de seguridad: ")) + d.root, box);
        QFont bold = head->font();
        bold.setBold(true);
        head->setFont(bold);
        addLine(v, d.statusText(), box, d.hasErrors() ? kErrorStyle : QString());
        QStringList counts{QStringLiteral("Copiadas: %1").arg(d.copied), QStringLiteral("Ya estaban en el disco: %1").arg(d.skipped)};
        if (d.failed > 0)
            counts << QStringLiteral("Fallidas: %1").arg(d.failed);
        addLine(v, counts.join(QStringLiteral(" · ")), box);
        if (d.verifiedDone) {
            QString line = QStringLiteral("Verificadas: %1").arg(d.verifiedOK);
            if (d.verifyBad > 0)
                line += QStringLiteral(" · No coinciden: %1").arg(d.verifyBad);
            addLine(v, line, box, d.verifyBad > 0 ? kErrorStyle : QString());
        }
        for (const QString &e : d.errors)
            addLine(v, e, box, kErrorStyle);
        layout->addWidget(box);
    }
    if (report.iptcWritten > 0) {
        auto *box = new QFrame(_destBoxes);
        auto *v = new QVBoxLayout(box);
        addLine(v, report.iptcWritten == 1 ? QStringLiteral("Plantilla IPTC puesta en 1 copia.")
                                           : QStringLiteral("Plantilla IPTC puesta en %1 copias.").arg(report.iptcWritten), box);
        layout->addWidget(box);
    }
    layout->addStretch();

    _ejectResult->setText(report.ejectMessage);
    _ejectResult->setVisible(!report.ejectMessage.isEmpty());
    const bool canVerify = !report.verified && !report.cancelled && !report.records.isEmpty();
    _verifyNow->setVisible(canVerify);
    _verifyNowNote->setVisible(canVerify);
    _openResult->setEnabled(!report.resultFolder.isEmpty() && QFileInfo(report.resultFolder).isDir());
}

QString ImportSummaryPage::destinationsText() const
{
    QStringList lines;
    const QList<QLabel *> labels = _destBoxes->findChildren<QLabel *>();
    for (QLabel *l : labels)
        if (!l->text().isEmpty())
            lines << l->text();
    return lines.join(QLatin1Char('\n'));
}
