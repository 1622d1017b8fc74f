#include "uploadsheet.h"

#include "labelcolors.h"

#include "browser/appstate.h"
#include "browser/uploadcenter.h"
#include "browser/uploadpreparer.h"
#include "upload/uploadservers.h"

#include <QCheckBox>
#include <QComboBox>
#include <QDialogButtonBox>
#include <QFormLayout>
#include <QHBoxLayout>
#include <QLabel>
#include <QPushButton>
#include <QRadioButton>
#include <QSpinBox>
#include <QVBoxLayout>

UploadSheet::UploadSheet(AppState &state, UploadCenter &center, QWidget *parent)
    : QDialog(parent)
    , _state(state)
    , _center(center)
    , _selection(new QRadioButton(QStringLiteral("La selección"), this))
    , _flagged(new QRadioButton(QStringLiteral("Las marcadas con bandera"), this))
    , _color(new QRadioButton(QStringLiteral("Las de un color:"), this))
    , _colors(new QComboBox(this))
    , _server(new QComboBox(this))
    , _jpegOnly(new QCheckBox(QStringLiteral("solo el JPEG de cada pareja RAW+JPEG"), this))
    , _resize(new QCheckBox(QStringLiteral("redimensionar a"), this))
    , _longSide(new QSpinBox(this))
    , _quality(new QSpinBox(this))
    , _summary(new QLabel(this))
    , _send(new QPushButton(QStringLiteral("Enviar"), this))
{
    setObjectName(QStringLiteral("uploadSheet"));
    setWindowTitle(QStringLiteral("Enviar"));
    for (int n = 1; n <= LabelColors::kCount; ++n)
        _colors->addItem(LabelColors::name(n), n);
    _longSide->setRange(200, 12000);
    _longSide->setValue(2048);
    _longSide->setSuffix(QStringLiteral(" px de lado largo"));
    _quality->setRange(1, 100);
    _quality->setValue(85);
    _quality->setPrefix(QStringLiteral("calidad "));
    _jpegOnly->setChecked(true);
    _selection->setChecked(true);

    auto *what = new QVBoxLayout;
    what->addWidget(_selection);
    what->addWidget(_flagged);
    auto *colorRow = new QHBoxLayout;
    colorRow->addWidget(_color);
    colorRow->addWidget(_colors);
    colorRow->addStretch();
    what->addLayout(colorRow);

    auto *serverRow = new QHBoxLayout;
    serverRow->addWidget(_server, 1);
    auto *servers = new QPushButton(QStringLiteral("Servidores…"), this);
    serverRow->addWidget(servers);

    auto *resizeRow = new QHBoxLayout;
    resizeRow->addWidget(_resize);
    resizeRow->addWidget(_longSide);
    resizeRow->addWidget(_quality);
    resizeRow->addStretch();

    auto *form = new QFormLayout;
    form->addRow(QStringLiteral("Qué"), what);
    form->addRow(QStringLiteral("A"), serverRow);
    form->addRow(QString(), _jpegOnly);
    form->addRow(QString(), resizeRow);

    auto *buttons = new QDialogButtonBox(this);
    buttons->addButton(_send, QDialogButtonBox::AcceptRole);
    buttons->addButton(QDialogButtonBox::Cancel);
    auto *body = new QVBoxLayout(this);
    body->addLayout(form);
    body->addWidget(_summary);
    body->addWidget(buttons);

    connect(buttons, &QDialogButtonBox::rejected, this, &QDialog::reject);
    connect(_send, &QPushButton::clicked, this, &UploadSheet::send);
    connect(servers, &QPushButton::clicked, this, &UploadSheet::serversWanted);
    for (QRadioButton *r : {_selection, _flagged, _color})
        connect(r, &QRadioButton::toggled, this, &UploadSheet::refresh);
    connect(_colors, &QComboBox::currentIndexChanged, this, [this] {
        _color->setChecked(true);
        refresh();
    });
    connect(_jpegOnly, &QCheckBox::toggled, this, &UploadSheet::refresh);
    connect(_server, &QComboBox::currentIndexChanged, this, &UploadSheet::refresh);
    reloadServers();
}

void UploadSheet::reloadServers()
{
    const QString current = _server->currentData().toString();
    _server->clear();
    for (const UploadServer &s : UploadServers::all()) {
        _server->addItem(s.label(), s.id);
        if (s.id == current)
            _server->setCurrentIndex(_server->count() - 1);
    }
    refresh();
}

QList<Photo *> UploadSheet::chosen() const
{
    if (_selection->isChecked())
        return _state.targets();
    QList<Photo *> out;
    const int color = _colors->currentData().toInt();
    for (const auto &p : _state.photos())
        if (_flagged->isChecked() ? p->tagged() : int(p->colorClass()) == color)
            out.append(p.get());
    return out;
}

void UploadSheet::refresh()
{
    const QStringList files = UploadPreparer::filesOf(chosen(), _jpegOnly->isChecked());
    if (_server->count() == 0)
        _summary->setText(QStringLiteral("Añade un servidor en «Servidores…» para poder enviar."));
    else
        _summary->setText(files.size() == 1 ? QStringLiteral("Se enviará 1 archivo.")
                                            : QStringLiteral("Se enviarán %1 archivos.").arg(files.size()));
    _send->setEnabled(!files.isEmpty() && _server->count() > 0);
}

void UploadSheet::send()
{
    UploadQueue::Options options;
    if (_resize->isChecked()) {
        options.resizeLongSide = _longSide->value();
        options.quality = _quality->value();
    }
    const QString id = _center.send(_server->currentData().toString(), chosen(), _jpegOnly->isChecked(), options);
    if (id.isEmpty())
        return;
    emit sent(id);
    accept();
}
