#include "filterbar.h"

#include "colorchip.h"

#include "browser/appstate.h"

#include <QComboBox>
#include <QFrame>
#include <QHBoxLayout>
#include <QLabel>
#include <QToolButton>

namespace {
QFrame *separator(QWidget *parent)
{
    auto *line = new QFrame(parent);
    line->setFrameShape(QFrame::VLine);
    line->setFrameShadow(QFrame::Plain);
    line->setFixedHeight(16);
    line->setStyleSheet(QStringLiteral("color: #444;"));
    return line;
}

QComboBox *combo(QWidget *parent, const QString &name, const QStringList &items)
{
    auto *c = new QComboBox(parent);
    c->setObjectName(name);
    c->addItems(items);
    c->setFocusPolicy(Qt::NoFocus);
    c->setSizeAdjustPolicy(QComboBox::AdjustToContents);
    return c;
}

QLabel *caption(const QString &text, QWidget *parent)
{
    auto *l = new QLabel(text, parent);
    l->setForegroundRole(QPalette::PlaceholderText);
    return l;
}
} // namespace

FilterBar::FilterBar(AppState &state, QWidget *parent)
    : QWidget(parent)
    , _state(state)
{
    setObjectName(QStringLiteral("filterBar"));
    setAttribute(Qt::WA_StyledBackground);
    auto *layout = new QHBoxLayout(this);
    layout->setContentsMargins(10, 3, 10, 3);
    layout->setSpacing(6);

    for (int n = 0; n <= 8; ++n) {
        auto *chip = new ColorChip(n, this);
        _chips.append(chip);
        layout->addWidget(chip);
        if (n == 0)
            layout->addSpacing(2);
        connect(chip, &ColorChip::toggled, this, &FilterBar::apply);
    }
    layout->addSpacing(6);
    layout->addWidget(separator(this));

    layout->addWidget(caption(QStringLiteral("★ mínimo"), this));
    _stars = combo(this, QStringLiteral("starFilter"),
                   {QStringLiteral("Todas"), QStringLiteral("★"), QStringLiteral("★★"), QStringLiteral("★★★"),
                    QStringLiteral("★★★★"), QStringLiteral("★★★★★")});
    layout->addWidget(_stars);
    layout->addWidget(separator(this));

    layout->addWidget(caption(QStringLiteral("Bandera"), this));
    _flag = combo(this, QStringLiteral("flagFilter"),
                  {QStringLiteral("Todas"), QStringLiteral("Marcadas"), QStringLiteral("Sin marcar")});
    layout->addWidget(_flag);
    layout->addWidget(separator(this));

    layout->addWidget(caption(QStringLiteral("Nitidez"), this));
    _sharp = combo(this, QStringLiteral("sharpFilter"),
                   {QStringLiteral("Todas"), QStringLiteral("Desenfocadas"), QStringLiteral("Nítidas"), QStringLiteral("Ojos cerrados")});
    layout->addWidget(_sharp);
    layout->addWidget(separator(this));

    _newOnly = new QToolButton(this);
    _newOnly->setObjectName(QStringLiteral("newOnly"));
    _newOnly->setText(QStringLiteral("Solo nuevas"));
    _newOnly->setCheckable(true);
    _newOnly->setFocusPolicy(Qt::NoFocus);
    layout->addWidget(_newOnly);
    layout->addStretch(1);

    _clear = new QToolButton(this);
    _clear->setObjectName(QStringLiteral("clearFilters"));
    _clear->setText(QStringLiteral("Quitar filtros"));
    _clear->setFocusPolicy(Qt::NoFocus);
    layout->addWidget(_clear);

    connect(_stars, &QComboBox::currentIndexChanged, this, &FilterBar::apply);
    connect(_flag, &QComboBox::currentIndexChanged, this, &FilterBar::apply);
    connect(_sharp, &QComboBox::currentIndexChanged, this, &FilterBar::apply);
    connect(_newOnly, &QToolButton::toggled, this, &FilterBar::apply);
    connect(_clear, &QToolButton::clicked, &state, &AppState::clearFilter);
    connect(&state, &AppState::filterChanged, this, &FilterBar::follow);
    connect(&state, &AppState::folderChanged, this, &FilterBar::follow);
    follow();
}

void FilterBar::apply()
{
    if (_following)
        return;
    PhotoFilter f = _state.filter();
    f.colors.clear();
    for (ColorChip *chip : std::as_const(_chips))
        if (chip->isChecked())
            f.colors.insert(colorClassFromInt(chip->colorClass()));
    f.minRating = _stars->currentIndex();
    f.tag = TagFilter(_flag->currentIndex());
    f.sharp = SharpFilter(_sharp->currentIndex());
    f.newOnly = _newOnly->isChecked();
    _state.setFilter(f);
}

void FilterBar::follow()
{
    _following = true;
    const PhotoFilter &f = _state.filter();
    for (ColorChip *chip : std::as_const(_chips))
        chip->setChecked(f.colors.contains(colorClassFromInt(chip->colorClass())));
    _stars->setCurrentIndex(qBound(0, f.minRating, 5));
    _flag->setCurrentIndex(int(f.tag));
    _sharp->setCurrentIndex(int(f.sharp));
    _newOnly->setChecked(f.newOnly);
    _clear->setEnabled(!f.isEmpty());
    _following = false;
}
