#include "markssettingspage.h"

#include "labelcolors.h"
#include "markglyphs.h"
#include "settingstext.h"

#include "browser/appstate.h"
#include "metadata/xmplabels.h"
#include "util/settings.h"

#include <QButtonGroup>
#include <QComboBox>
#include <QGridLayout>
#include <QHBoxLayout>
#include <QLabel>
#include <QLineEdit>
#include <QPushButton>
#include <QRadioButton>
#include <QSignalBlocker>
#include <QVBoxLayout>

using SettingsText::explanation;
using SettingsText::heading;

MarksSettingsPage::MarksSettingsPage(AppState &state, QWidget *parent)
    : QWidget(parent)
    , _state(state)
    , _folderFile(new QRadioButton(QStringLiteral("Un archivo por carpeta (.corvane.json)"), this))
    , _sidecar(new QRadioButton(QStringLiteral("Un .xmp junto a cada imagen"), this))
    , _export(new QPushButton(QStringLiteral("Exportar marcas de la carpeta actual a XMP"), this))
    , _preset(new QComboBox(this))
    , _restore(new QPushButton(QStringLiteral("Restaurar colores y nombres"), this))
{
    auto *layout = new QVBoxLayout(this);
    layout->setContentsMargins(0, 0, 0, 0);
    layout->addWidget(heading(QStringLiteral("Guardar marcas en"), this));

    _folderFile->setObjectName(QStringLiteral("storageFolderFile"));
    _sidecar->setObjectName(QStringLiteral("storageSidecar"));
    auto *group = new QButtonGroup(this);
    group->addButton(_folderFile);
    group->addButton(_sidecar);
    layout->addWidget(_folderFile);
    layout->addWidget(explanation(
        QStringLiteral("Un solo archivo oculto por carpeta con todas las marcas: lo más rápido y no llena la carpeta "
                       "de archivos. Lightroom y Bridge no lo leen; para ellos usa «Exportar a XMP»."),
        this, 22));
    layout->addSpacing(8);
    layout->addWidget(_sidecar);
    layout->addWidget(explanation(
        QStringLiteral("Un .xmp junto a cada imagen: Lightroom, Bridge y Photo Mechanic lo leen directamente."), this, 22));
    (_state.marksStorage() == MarksStorage::sidecar ? _sidecar : _folderFile)->setChecked(true);
    connect(_sidecar, &QRadioButton::toggled, this, [this](bool on) {
        _state.setMarksStorage(on ? MarksStorage::sidecar : MarksStorage::folderFile);
    });

    layout->addSpacing(8);
    _export->setObjectName(QStringLiteral("exportXmpButton"));
    _export->setEnabled(!_state.folder().isEmpty());
    auto *exportRow = new QHBoxLayout;
    exportRow->addWidget(_export);
    exportRow->addStretch(1);
    layout->addLayout(exportRow);
    connect(_export, &QPushButton::clicked, this, &MarksSettingsPage::exportRequested);

    layout->addSpacing(12);
    auto *presetRow = new QHBoxLayout;
    presetRow->addWidget(new QLabel(QStringLiteral("Usar los textos de:"), this));
    _preset->setObjectName(QStringLiteral("labelPreset"));
    for (const XmpLabels::Preset &p : XmpLabels::presets())
        _preset->addItem(p.name, p.labels);
    presetRow->addWidget(_preset);
    presetRow->addStretch(1);
    layout->addLayout(presetRow);
    connect(_preset, &QComboBox::activated, this, [this] {
        showLabels(_preset->currentData().toStringList());
        storeLabels();
    });

    auto *grid = new QGridLayout;
    grid->setHorizontalSpacing(10);
    for (int n = 1; n <= LabelColors::kCount; ++n) {
        auto *dot = new QLabel(this);
        dot->setPixmap(MarkGlyphs::colorDot(LabelColors::color(n)).pixmap(12, 12));
        auto *edit = new QLineEdit(this);
        edit->setObjectName(QStringLiteral("label%1").arg(n));
        edit->setAccessibleName(LabelColors::name(n));
        const int row = (n - 1) % 4, col = (n - 1) / 4 * 3;
        grid->addWidget(dot, row, col);
        grid->addWidget(new QLabel(LabelColors::name(n), this), row, col + 1);
        grid->addWidget(edit, row, col + 2);
        if (n > 5) {
            // Colours 6…8 always carry these texts.
            edit->setText(XmpLabels::label(n, {}));
            edit->setReadOnly(true);
            edit->setEnabled(false);
        } else {
            connect(edit, &QLineEdit::editingFinished, this, &MarksSettingsPage::storeLabels);
        }
        _labels.append(edit);
    }
    layout->addLayout(grid);
    layout->addWidget(explanation(QStringLiteral("Lightroom y Bridge reconocen el color por el texto exacto de la etiqueta."), this));
    auto *restoreRow = new QHBoxLayout;
    _restore->setObjectName(QStringLiteral("restoreLabels"));
    restoreRow->addWidget(_restore);
    restoreRow->addStretch(1);
    layout->addLayout(restoreRow);
    connect(_restore, &QPushButton::clicked, this, [this] {
        Settings::adobeLabels.set({});
        showLabels(XmpLabels::userLabels());
        emit labelsChanged();
    });
    showLabels(XmpLabels::userLabels());
    layout->addStretch(1);
}

void MarksSettingsPage::showLabels(const QStringList &labels)
{
    for (int i = 0; i < 5 && i < labels.size(); ++i) {
        const QSignalBlocker quiet(_labels[i]);
        _labels[i]->setText(labels[i]);
    }
    // The preset those texts are, if any.
    const QSignalBlocker quiet(_preset);
    _preset->setCurrentIndex(-1);
    for (int i = 0; i < _preset->count(); ++i)
        if (_preset->itemData(i).toStringList() == labels)
            _preset->setCurrentIndex(i);
}

void MarksSettingsPage::storeLabels()
{
    QStringList labels;
    for (int i = 0; i < 5; ++i)
        labels.append(_labels[i]->text().trimmed());
    // An empty text cannot be matched by anyone: keep the list as it was.
    if (labels.contains(QString())) {
        showLabels(XmpLabels::userLabels());
        return;
    }
    Settings::adobeLabels.set(labels);
    showLabels(labels);
    emit labelsChanged();
}
