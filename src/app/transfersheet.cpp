#include "transfersheet.h"

#include "labelcolors.h"

#include "browser/appstate.h"
#include "fileops/fileopoutcome.h"
#include "model/photo.h"
#include "util/settings.h"

#include <QCheckBox>
#include <QComboBox>
#include <QDialogButtonBox>
#include <QDir>
#include <QFileDialog>
#include <QFileInfo>
#include <QFormLayout>
#include <QHBoxLayout>
#include <QLabel>
#include <QLineEdit>
#include <QPushButton>
#include <QVBoxLayout>

namespace {

using Op = FileOpJournal::Op;

ShotTransfer::Shot filesOf(const Photo &p)
{
    ShotTransfer::Shot s{p.url()};
    for (const QString &f : p.files())
        if (f != p.url())
            s.append(f);
    return s;
}

const Setting<QString> &folderSetting(Op op) { return op == Op::copy ? Settings::fileOpsCopyFolder : Settings::fileOpsMoveFolder; }

} // namespace

TransferSheet::TransferSheet(AppState &state, FileOpJournal::Op op, QWidget *parent)
    : QDialog(parent)
    , _state(state)
    , _op(op)
    , _scope(new QComboBox(this))
    , _folder(new QLineEdit(this))
    , _verify(new QCheckBox(QStringLiteral("Comprobar cada copia leyéndola de nuevo (SHA-256)"), this))
    , _note(new QLabel(this))
{
    const bool copying = op == Op::copy;
    setObjectName(copying ? QStringLiteral("copiarA") : QStringLiteral("moverA"));
    setWindowTitle(copying ? QStringLiteral("Copiar a") : QStringLiteral("Mover a"));
    setMinimumWidth(520);

    // The choices of shots, each with its count; empty ones are not offered.
    const auto offer = [&](const QString &text, const QList<ShotTransfer::Shot> &shots) {
        if (shots.isEmpty())
            return;
        _scope->addItem(QStringLiteral("%1 (%2)").arg(text).arg(shots.size()));
        _scopes.append(shots);
    };
    QList<ShotTransfer::Shot> selection, flagged;
    QList<QList<ShotTransfer::Shot>> byColor(LabelColors::kCount + 1);
    for (const Photo *p : state.targets())
        selection.append(filesOf(*p));
    for (const PhotoPtr &p : state.visible()) {
        if (p->tagged())
            flagged.append(filesOf(*p));
        if (const int c = int(p->colorClass()); c > 0 && c <= LabelColors::kCount)
            byColor[c].append(filesOf(*p));
    }
    offer(selection.size() == 1 ? QStringLiteral("La imagen actual") : QStringLiteral("La selección"), selection);
    offer(QStringLiteral("Las marcadas con bandera"), flagged);
    for (int c = 1; c <= LabelColors::kCount; ++c)
        offer(QStringLiteral("Color %1").arg(LabelColors::name(c)), byColor[c]);

    _folder->setObjectName(QStringLiteral("carpetaDestino"));
    _folder->setText(folderSetting(op).get());
    _folder->setPlaceholderText(QStringLiteral("Elige una carpeta"));
    auto *choose = new QPushButton(QStringLiteral("Elegir…"), this);
    connect(choose, &QPushButton::clicked, this, [this] {
        const QString dir = QFileDialog::getExistingDirectory(this, windowTitle(), _folder->text().isEmpty() ? _state.folder() : _folder->text());
        if (!dir.isEmpty())
            _folder->setText(dir);
    });
    auto *folderRow = new QHBoxLayout;
    folderRow->addWidget(_folder, 1);
    folderRow->addWidget(choose);

    _verify->setChecked(Settings::fileOpsVerify.get());
    _note->setWordWrap(true);
    _note->setForegroundRole(QPalette::PlaceholderText);

    auto *form = new QFormLayout;
    form->addRow(QStringLiteral("Imágenes:"), _scope);
    form->addRow(QStringLiteral("Carpeta:"), folderRow);
    auto *buttons = new QDialogButtonBox(this);
    buttons->addButton(QStringLiteral("Cancelar"), QDialogButtonBox::RejectRole);
    _go = buttons->addButton(QString(), QDialogButtonBox::AcceptRole);
    _go->setDefault(true);
    connect(buttons, &QDialogButtonBox::accepted, this, &TransferSheet::accept);
    connect(buttons, &QDialogButtonBox::rejected, this, &TransferSheet::reject);

    auto *layout = new QVBoxLayout(this);
    layout->addLayout(form);
    layout->addWidget(_verify);
    layout->addWidget(_note);
    layout->addStretch(1);
    layout->addWidget(buttons);

    connect(_scope, &QComboBox::currentIndexChanged, this, &TransferSheet::refresh);
    connect(_folder, &QLineEdit::textChanged, this, &TransferSheet::refresh);
    refresh();
}

QList<ShotTransfer::Shot> TransferSheet::shots() const
{
    const int i = _scope->currentIndex();
    return i >= 0 && i < _scopes.size() ? _scopes[i] : QList<ShotTransfer::Shot>{};
}

QString TransferSheet::folder() const { return _folder->text().trimmed(); }

bool TransferSheet::verify() const { return _verify->isChecked(); }

void TransferSheet::refresh()
{
    const int n = int(shots().size());
    const bool copying = _op == Op::copy;
    _go->setText(QStringLiteral("%1 %2").arg(copying ? QStringLiteral("Copiar") : QStringLiteral("Mover"), shotCount(n)));
    const QString dest = folder();
    QString note = copying ? QStringLiteral("Se copian también la pareja RAW/JPG, el .xmp y las marcas.")
                           : QStringLiteral("Se mueven también la pareja RAW/JPG, el .xmp y las marcas. Entre discos, los originales se borran solo después de comprobar la copia.");
    note += QStringLiteral(" Nunca se reemplaza un archivo: si un nombre ya existe, la imagen se guarda con -2, -3…");
    bool ok = n > 0 && !dest.isEmpty();
    if (!dest.isEmpty() && !QDir::isAbsolutePath(dest)) {
        note = QStringLiteral("Escribe la ruta completa de la carpeta, o elígela.");
        ok = false;
    } else if (!dest.isEmpty() && QFileInfo(dest).exists() && !QFileInfo(dest).isDir()) {
        note = QStringLiteral("%1 no es una carpeta.").arg(dest);
        ok = false;
    } else if (!dest.isEmpty() && !QFileInfo::exists(dest)) {
        note += QStringLiteral(" La carpeta no existe: se creará.");
    }
    _note->setText(note);
    _go->setEnabled(ok);
}

void TransferSheet::accept()
{
    if (!_go->isEnabled())
        return;
    folderSetting(_op).set(folder());
    Settings::fileOpsVerify.set(verify());
    QDialog::accept();
}
