#include "blockeditor.h"

#include <QApplication>
#include <QComboBox>
#include <QDrag>
#include <QDragEnterEvent>
#include <QFrame>
#include <QGraphicsOpacityEffect>
#include <QGridLayout>
#include <QHBoxLayout>
#include <QKeyEvent>
#include <QLabel>
#include <QLineEdit>
#include <QMimeData>
#include <QMouseEvent>
#include <QPushButton>
#include <QScrollArea>
#include <QScrollBar>
#include <QSpinBox>
#include <QToolButton>
#include <QVBoxLayout>

#include <algorithm>

namespace {

const char kBlockMime[] = "application/x-corvane-name-block";

const QString kHelp = QStringLiteral(
    "Construye el nombre con bloques: añádelos con un clic, quítalos con la ✕ y arrástralos para cambiar el orden.");
const QString kWarning = QStringLiteral(
    "Sin «Número» ni «Nombre original» varias imágenes tendrán el mismo nombre: Corvane añadirá -2, -3… para no sobrescribir ninguna.");
const QString kEmpty = QStringLiteral("Sin bloques: se usará el nombre original. Añade bloques desde abajo.");

// Formats offered in the date and time chips; a stored format outside the list is offered too.
const QStringList kDateFormats{QStringLiteral("yyyyMMdd"), QStringLiteral("yyyy-MM-dd"), QStringLiteral("yyMMdd"),
                               QStringLiteral("ddMMyyyy"), QStringLiteral("dd-MM-yyyy"), QStringLiteral("yyyy-MM"),
                               QStringLiteral("yyyy")};
const QStringList kTimeFormats{QStringLiteral("HHmmss"), QStringLiteral("HHmm"), QStringLiteral("HH-mm-ss"),
                               QStringLiteral("HH.mm.ss"), QStringLiteral("HHmmssSS")};

struct SeparatorChoice {
    const char *value;
    const char *title;
};
const SeparatorChoice kSeparators[] = {
    {"_", "Guion bajo  _"}, {"-", "Guion  -"}, {".", "Punto  ."}, {" ", "Espacio"}, {"", "Ninguno"},
};

QToolButton *smallButton(const QString &text, const QString &help, QWidget *parent)
{
    auto *b = new QToolButton(parent);
    b->setText(text);
    b->setToolTip(help);
    b->setAccessibleName(help);
    b->setAutoRaise(true);
    b->setFocusPolicy(Qt::TabFocus);
    b->setCursor(Qt::ArrowCursor);
    return b;
}

} // namespace

// ----- One chip

class BlockEditor::Chip : public QFrame
{
public:
    Chip(BlockEditor *editor, const NameToken &token, QWidget *row)
        : QFrame(row), _editor(editor), _id(token.id)
    {
        setObjectName(QStringLiteral("nameBlock"));
        setSizePolicy(QSizePolicy::Preferred, QSizePolicy::Fixed);
        setFrameShape(QFrame::StyledPanel);
        setFocusPolicy(Qt::StrongFocus);
        setCursor(Qt::OpenHandCursor);
        setStyleSheet(QStringLiteral(
            "#nameBlock { background: #3a3a3a; border: 1px solid #4a4a4a; border-radius: 6px; }"
            "#nameBlock:focus { border-color: #9a9a9a; }"
            "QToolButton { padding: 0 2px; }"));

        auto *v = new QVBoxLayout(this);
        v->setContentsMargins(8, 4, 4, 6);
        v->setSpacing(2);
        auto *top = new QHBoxLayout;
        top->setSpacing(0);
        _label = new QLabel(NameToken::label(token.kind), this);
        QFont bold = _label->font();
        bold.setBold(true);
        _label->setFont(bold);
        top->addWidget(_label);
        top->addSpacing(6);
        top->addStretch();
        _left = smallButton(QStringLiteral("‹"), QStringLiteral("Mover a la izquierda"), this);
        _right = smallButton(QStringLiteral("›"), QStringLiteral("Mover a la derecha"), this);
        _remove = smallButton(QStringLiteral("✕"), QStringLiteral("Quitar «%1»").arg(NameToken::label(token.kind)), this);
        top->addWidget(_left);
        top->addWidget(_right);
        top->addWidget(_remove);
        v->addLayout(top);

        _sample = new QLabel(this);
        _sample->setStyleSheet(QStringLiteral("color: #a8a8a8;"));
        _sample->setTextFormat(Qt::PlainText);
        v->addWidget(_sample);

        if (token.kind == NameToken::Kind::date || token.kind == NameToken::Kind::time) {
            _format = new QComboBox(this);
            _format->setToolTip(QStringLiteral("Formato"));
            const QString current = token.format.isEmpty() ? NameToken::defaultFormat(token.kind) : token.format;
            QStringList formats = token.kind == NameToken::Kind::date ? kDateFormats : kTimeFormats;
            if (!formats.contains(current))
                formats.append(current);
            for (const QString &f : formats)
                _format->addItem(f, f);
            _format->setCurrentIndex(int(formats.indexOf(current)));
            connect(_format, &QComboBox::currentIndexChanged, this, [this] {
                editToken([this](NameToken &t) { t.format = _format->currentData().toString(); });
            });
            v->addWidget(_format);
        } else if (token.kind == NameToken::Kind::text) {
            _text = new QLineEdit(token.text, this);
            _text->setPlaceholderText(QStringLiteral("Escribe el texto"));
            _text->setMinimumWidth(110);
            connect(_text, &QLineEdit::textEdited, this, [this](const QString &text) {
                editToken([&text](NameToken &t) { t.text = text; });
            });
            v->addWidget(_text);
        }

        connect(_remove, &QToolButton::clicked, this, [this] { _editor->removeBlock(index()); });
        connect(_left, &QToolButton::clicked, this, [this] {
            const int i = index();
            _editor->moveBlock(i, i - 1);
        });
        connect(_right, &QToolButton::clicked, this, [this] {
            const int i = index();
            _editor->moveBlock(i, i + 1);
        });
    }

    QUuid id() const { return _id; }
    int index() const { return _editor->indexOfId(_id); }
    QString label() const { return _label->text(); }
    QString sample() const { return _sample->text(); }
    QToolButton *removeButton() const { return _remove; }
    QToolButton *leftButton() const { return _left; }
    QToolButton *rightButton() const { return _right; }

    void update(const NameToken &token, const QString &rendered, int index, int count)
    {
        _sample->setText(rendered.isEmpty() ? BlockEditor::emptySampleText() : rendered);
        _left->setEnabled(index > 0);
        _right->setEnabled(index < count - 1);
        if (_text && _text->text() != token.text)
            _text->setText(token.text);
    }

protected:
    void mousePressEvent(QMouseEvent *e) override
    {
        if (e->button() == Qt::LeftButton)
            _pressPos = e->position().toPoint();
        setFocus(Qt::MouseFocusReason);
        QFrame::mousePressEvent(e);
    }

    void mouseMoveEvent(QMouseEvent *e) override
    {
        if (!(e->buttons() & Qt::LeftButton) || _pressPos.isNull()
            || (e->position().toPoint() - _pressPos).manhattanLength() < QApplication::startDragDistance())
            return;
        _pressPos = QPoint();
        auto *mime = new QMimeData;
        mime->setData(QString::fromLatin1(kBlockMime), _id.toByteArray());
        auto *drag = new QDrag(this);
        drag->setMimeData(mime);
        drag->setPixmap(grab());
        drag->setHotSpot(e->position().toPoint());
        drag->exec(Qt::MoveAction);
    }

    void keyPressEvent(QKeyEvent *e) override
    {
        const int i = index();
        const bool moveMod = e->modifiers() & (Qt::ControlModifier | Qt::AltModifier);
        if (moveMod && e->key() == Qt::Key_Left)
            _editor->moveBlock(i, i - 1);
        else if (moveMod && e->key() == Qt::Key_Right)
            _editor->moveBlock(i, i + 1);
        else if (e->key() == Qt::Key_Delete || e->key() == Qt::Key_Backspace)
            _editor->removeBlock(i);
        else if (e->key() == Qt::Key_Left && i > 0)
            _editor->focusChip(i - 1);
        else if (e->key() == Qt::Key_Right && i + 1 < _editor->blockCount())
            _editor->focusChip(i + 1);
        else
            QFrame::keyPressEvent(e);
    }

private:
    template <typename F>
    void editToken(F change)
    {
        const int i = index();
        if (i < 0)
            return;
        change(_editor->_pattern.tokens[i]);
        _editor->commit();
    }

    BlockEditor *_editor;
    QUuid _id;
    QLabel *_label;
    QLabel *_sample;
    QToolButton *_left;
    QToolButton *_right;
    QToolButton *_remove;
    QComboBox *_format = nullptr;
    QLineEdit *_text = nullptr;
    QPoint _pressPos;
};

// ----- The row of chips: takes the drops and shows where a dragged chip will land

class BlockEditor::ChipRow : public QWidget
{
public:
    explicit ChipRow(BlockEditor *editor)
        : QWidget(editor), _editor(editor)
    {
        setAcceptDrops(true);
        _layout = new QHBoxLayout(this);
        _layout->setContentsMargins(6, 6, 6, 6);
        _layout->setSpacing(4);
        _layout->setAlignment(Qt::AlignTop | Qt::AlignLeft);
        _marker = new QFrame(this);
        _marker->setFixedWidth(3);
        _marker->setStyleSheet(QStringLiteral("background: #d0d0d0; border-radius: 1px;"));
        _marker->hide();
    }

    QHBoxLayout *layout() const { return _layout; }

    // Where a drop at x lands, as an insertion index among the chips (0…count).
    int insertionIndex(int x) const
    {
        int i = 0;
        for (Chip *c : _editor->_chips)
            if (c->geometry().center().x() < x)
                ++i;
        return i;
    }

protected:
    void dragEnterEvent(QDragEnterEvent *e) override
    {
        if (draggedIndex(e->mimeData()) >= 0)
            e->acceptProposedAction();
        else
            e->ignore();
    }

    void dragMoveEvent(QDragMoveEvent *e) override
    {
        if (draggedIndex(e->mimeData()) < 0) {
            e->ignore();
            return;
        }
        e->acceptProposedAction();
        showMarker(insertionIndex(e->position().toPoint().x()));
    }

    void dragLeaveEvent(QDragLeaveEvent *) override { _marker->hide(); }

    void dropEvent(QDropEvent *e) override
    {
        _marker->hide();
        const int from = draggedIndex(e->mimeData());
        if (from < 0) {
            e->ignore();
            return;
        }
        const int insert = insertionIndex(e->position().toPoint().x());
        e->acceptProposedAction();
        _editor->moveBlock(from, insert > from ? insert - 1 : insert);
    }

private:
    int draggedIndex(const QMimeData *mime) const
    {
        if (!mime || !mime->hasFormat(QString::fromLatin1(kBlockMime)))
            return -1;
        return _editor->indexOfId(QUuid::fromString(QString::fromLatin1(mime->data(QString::fromLatin1(kBlockMime)))));
    }

    void showMarker(int insert)
    {
        const auto &chips = _editor->_chips;
        if (chips.isEmpty())
            return;
        int x;
        if (insert < chips.size())
            x = chips[insert]->geometry().left() - 4;
        else
            x = chips.last()->geometry().right() + 2;
        const QRect r = chips.first()->geometry();
        _marker->setGeometry(qMax(0, x), r.top(), 3, r.height());
        _marker->raise();
        _marker->show();
    }

    BlockEditor *_editor;
    QHBoxLayout *_layout;
    QFrame *_marker;
};

// ----- The editor

BlockEditor::BlockEditor(QWidget *parent)
    : QWidget(parent)
{
    auto *v = new QVBoxLayout(this);
    v->setContentsMargins(0, 0, 0, 0);
    v->setSpacing(8);

    _help = new QLabel(kHelp, this);
    _help->setWordWrap(true);
    _help->setStyleSheet(QStringLiteral("color: #a8a8a8;"));
    v->addWidget(_help);

    auto *top = new QHBoxLayout;
    top->addWidget(new QLabel(QStringLiteral("Patrón:"), this));
    _presets = new QComboBox(this);
    for (const auto &p : NamePattern::presets())
        _presets->addItem(p.title);
    _presets->addItem(QStringLiteral("Personalizado"));
    top->addWidget(_presets);
    top->addSpacing(16);
    top->addWidget(new QLabel(QStringLiteral("Separador:"), this));
    _separator = new QComboBox(this);
    for (const SeparatorChoice &s : kSeparators)
        _separator->addItem(QString::fromUtf8(s.title), QString::fromUtf8(s.value));
    top->addWidget(_separator);
    top->addStretch();
    v->addLayout(top);

    // The chips, in a frame that scrolls sideways when a long pattern does not fit.
    auto *frame = new QFrame(this);
    frame->setObjectName(QStringLiteral("blockRow"));
    frame->setStyleSheet(QStringLiteral("#blockRow { background: #232323; border: 1px solid #3a3a3a; border-radius: 6px; }"));
    auto *frameLayout = new QVBoxLayout(frame);
    frameLayout->setContentsMargins(0, 0, 0, 0);
    _row = new ChipRow(this);
    _row->setParent(frame);
    _row->setAutoFillBackground(false);
    auto *scroll = new QScrollArea(frame);
    _rowScroll = scroll;
    scroll->setWidget(_row);
    scroll->setWidgetResizable(true);
    scroll->setFrameShape(QFrame::NoFrame);
    scroll->setVerticalScrollBarPolicy(Qt::ScrollBarAlwaysOff);
    scroll->setStyleSheet(QStringLiteral("QScrollArea, QScrollArea > QWidget > QWidget { background: transparent; }"));
    scroll->setSizePolicy(QSizePolicy::Expanding, QSizePolicy::Fixed);
    frameLayout->addWidget(scroll);
    _empty = new QLabel(kEmpty, _row);
    _empty->setStyleSheet(QStringLiteral("color: #a8a8a8; padding: 6px;"));
    _empty->setWordWrap(true);
    v->addWidget(frame);

    // Two rows of four: the palette fits beside the import window's other column.
    auto *paletteRow = new QHBoxLayout;
    auto *addLabel = new QLabel(QStringLiteral("Añadir:"), this);
    paletteRow->addWidget(addLabel, 0, Qt::AlignTop);
    auto *palette = new QGridLayout;
    palette->setSpacing(4);
    paletteRow->addLayout(palette);
    paletteRow->addStretch();
    for (NameToken::Kind k : NameToken::allKinds()) {
        auto *b = new QPushButton(QStringLiteral("+ ") + NameToken::label(k), this);
        b->setObjectName(QStringLiteral("add_") + NameToken::rawValue(k));
        b->setAccessibleName(NameToken::label(k));
        auto *fade = new QGraphicsOpacityEffect(b);
        fade->setOpacity(1.0);
        b->setGraphicsEffect(fade);
        connect(b, &QPushButton::clicked, this, [this, k] { addBlock(k); });
        palette->addWidget(b, int(_palette.size()) / 4, int(_palette.size()) % 4);
        _palette.append(b);
    }
    v->addLayout(paletteRow);

    auto *numbers = new QHBoxLayout;
    numbers->addWidget(new QLabel(QStringLiteral("Número: empezar en"), this));
    _start = new QSpinBox(this);
    _start->setRange(0, 99999999);
    _start->setValue(1);
    numbers->addWidget(_start);
    numbers->addSpacing(16);
    // A stepper whose label carries the value: "Cifras: 4".
    _digits = new QSpinBox(this);
    _digits->setPrefix(QStringLiteral("Cifras: "));
    _digits->setRange(1, 6);
    _digits->setSingleStep(1);
    _digits->setValue(4);
    numbers->addWidget(_digits);
    numbers->addStretch();
    v->addLayout(numbers);

    _warning = new QLabel(kWarning, this);
    _warning->setWordWrap(true);
    _warning->setStyleSheet(QStringLiteral("color: #e0b050;"));
    v->addWidget(_warning);

    _example = new QLabel(this);
    _example->setTextFormat(Qt::PlainText);
    _example->setTextInteractionFlags(Qt::TextSelectableByMouse);
    v->addWidget(_example);

    connect(_presets, &QComboBox::activated, this, &BlockEditor::applyPreset);
    connect(_separator, &QComboBox::activated, this, &BlockEditor::applySeparator);
    connect(_start, &QSpinBox::valueChanged, this, [this](int value) {
        refresh();
        if (!_updating) {
            emit startChanged(value);
            emit edited();
        }
    });
    connect(_digits, &QSpinBox::valueChanged, this, [this](int value) {
        refresh();
        if (!_updating) {
            emit digitsChanged(value);
            emit edited();
        }
    });

    _pattern = NamePattern::defaultPattern();
    rebuildChips();
}

BlockEditor::~BlockEditor() = default;

void BlockEditor::setPattern(const NamePattern &pattern)
{
    _pattern = pattern;
    rebuildChips();
}

qint64 BlockEditor::start() const
{
    return _start->value();
}

void BlockEditor::setStart(qint64 start)
{
    _updating = true;
    _start->setValue(int(std::clamp<qint64>(start, _start->minimum(), _start->maximum())));
    _updating = false;
}

int BlockEditor::digits() const
{
    return _digits->value();
}

void BlockEditor::setDigits(int digits)
{
    _updating = true;
    _digits->setValue(qBound(1, digits, 6));
    _updating = false;
}

void BlockEditor::setSampleValues(const NameValues &values)
{
    _sample = values;
    refresh();
}

NameValues BlockEditor::sampleValues() const
{
    NameValues v = _sample;
    v.seq = start();
    v.digits = digits();
    return v;
}

void BlockEditor::setSampleExtension(const QString &ext)
{
    _extension = ext;
    refresh();
}

void BlockEditor::addBlock(NameToken::Kind kind)
{
    if (_pattern.contains(kind) && !NameToken::repeatable(kind))
        return;
    _pattern.tokens.append(NameToken(kind, NameToken::defaultFormat(kind)));
    rebuildChips();
    commit();
}

void BlockEditor::removeBlock(int index)
{
    if (index < 0 || index >= _pattern.tokens.size())
        return;
    _pattern.tokens.removeAt(index);
    rebuildChips();
    commit();
    focusChip(qMin(index, blockCount() - 1));
}

void BlockEditor::moveBlock(int from, int to)
{
    const int n = blockCount();
    if (from < 0 || from >= n || to < 0 || to >= n || from == to)
        return;
    _pattern.tokens.move(from, to);
    rebuildChips();
    commit();
    focusChip(to);
}

QWidget *BlockEditor::chip(int index) const
{
    return index >= 0 && index < _chips.size() ? _chips[index] : nullptr;
}

QString BlockEditor::chipLabel(int index) const
{
    return index >= 0 && index < _chips.size() ? _chips[index]->label() : QString();
}

QString BlockEditor::chipSample(int index) const
{
    return index >= 0 && index < _chips.size() ? _chips[index]->sample() : QString();
}

QAbstractButton *BlockEditor::removeButton(int index) const
{
    return index >= 0 && index < _chips.size() ? _chips[index]->removeButton() : nullptr;
}

QAbstractButton *BlockEditor::moveLeftButton(int index) const
{
    return index >= 0 && index < _chips.size() ? _chips[index]->leftButton() : nullptr;
}

QAbstractButton *BlockEditor::moveRightButton(int index) const
{
    return index >= 0 && index < _chips.size() ? _chips[index]->rightButton() : nullptr;
}

QAbstractButton *BlockEditor::paletteButton(NameToken::Kind kind) const
{
    return _palette.value(int(NameToken::allKinds().indexOf(kind)));
}

int BlockEditor::indexOfId(const QUuid &id) const
{
    for (int i = 0; i < _pattern.tokens.size(); ++i)
        if (_pattern.tokens[i].id == id)
            return i;
    return -1;
}

void BlockEditor::focusChip(int index)
{
    if (index >= 0 && index < _chips.size())
        _chips[index]->setFocus(Qt::OtherFocusReason);
}

void BlockEditor::rebuildChips()
{
    QHBoxLayout *layout = _row->layout();
    while (QLayoutItem *item = layout->takeAt(0))
        delete item;
    // Later, not now: the chip whose ✕ or move button was clicked is still in its click handler.
    for (QWidget *w : std::as_const(_chips)) {
        w->hide();
        w->deleteLater();
    }
    _chips.clear();
    for (QWidget *w : std::as_const(_separatorMarks)) {
        w->hide();
        w->deleteLater();
    }
    _separatorMarks.clear();

    for (int i = 0; i < _pattern.tokens.size(); ++i) {
        if (i > 0) {
            // The separator between chips, as it will stand in the name.
            auto *mark = new QLabel(_row);
            mark->setStyleSheet(QStringLiteral("color: #8a8a8a;"));
            mark->setTextFormat(Qt::PlainText);
            layout->addWidget(mark);
            _separatorMarks.append(mark);
        }
        auto *c = new Chip(this, _pattern.tokens[i], _row);
        layout->addWidget(c, 0, Qt::AlignTop);
        c->show();
        _chips.append(c);
    }
    _empty->setVisible(_pattern.tokens.isEmpty());
    if (_pattern.tokens.isEmpty())
        layout->addWidget(_empty);
    layout->addStretch();
    // As tall as the chips and the sideways scroll bar: the row never takes a page's spare height.
    const int chipHeight = _chips.isEmpty() ? _empty->sizeHint().height() : _chips.first()->sizeHint().height();
    int tallest = chipHeight;
    for (Chip *c : std::as_const(_chips))
        tallest = qMax(tallest, c->sizeHint().height());
    const QMargins m = layout->contentsMargins();
    _rowScroll->setFixedHeight(tallest + m.top() + m.bottom() + _rowScroll->horizontalScrollBar()->sizeHint().height());
    refresh();
}

void BlockEditor::refresh()
{
    const NameValues values = sampleValues();
    const int n = blockCount();
    for (int i = 0; i < n && i < _chips.size(); ++i)
        _chips[i]->update(_pattern.tokens[i], _pattern.tokens[i].render(values, _pattern.separator), i, n);
    const QString shownSeparator = _pattern.separator.isEmpty() ? QStringLiteral("·")
                                 : _pattern.separator == QLatin1String(" ") ? QStringLiteral("␣")
                                                                             : _pattern.separator;
    for (QLabel *mark : std::as_const(_separatorMarks))
        mark->setText(shownSeparator);

    for (int i = 0; i < _palette.size(); ++i) {
        const NameToken::Kind k = NameToken::allKinds()[i];
        const bool present = _pattern.contains(k) && !NameToken::repeatable(k);
        QAbstractButton *b = _palette[i];
        b->setEnabled(!present);
        b->setToolTip(present ? alreadyThereText() : QStringLiteral("Añadir «%1» al nombre").arg(NameToken::label(k)));
        static_cast<QGraphicsOpacityEffect *>(b->graphicsEffect())->setOpacity(present ? kDisabledOpacity : 1.0);
    }

    _warning->setVisible(_pattern.mayRepeatNames());

    const QString base = _pattern.render(values);
    _example->setText(QStringLiteral("Ejemplo: ") + (base.isEmpty() ? values.original : base) + _extension);

    // The presets list shows the preset the pattern matches, else "Personalizado".
    int match = _presets->count() - 1;
    const auto presets = NamePattern::presets();
    for (int i = 0; i < presets.size(); ++i)
        if (presets[i].pattern.sameContent(_pattern)) {
            match = i;
            break;
        }
    _presets->setCurrentIndex(match);

    int sep = _separator->findData(_pattern.separator);
    if (sep < 0) {
        // A stored separator outside the usual ones stays selectable.
        _separator->addItem(QStringLiteral("«%1»").arg(_pattern.separator), _pattern.separator);
        sep = _separator->count() - 1;
    }
    _separator->setCurrentIndex(sep);
}

void BlockEditor::commit()
{
    refresh();
    emit patternChanged();
    emit edited();
}

void BlockEditor::applyPreset(int index)
{
    const auto presets = NamePattern::presets();
    if (index < 0 || index >= presets.size())
        return;
    _pattern = presets[index].pattern;   // fresh ids
    rebuildChips();
    commit();
}

void BlockEditor::applySeparator(int index)
{
    const QString sep = _separator->itemData(index).toString();
    if (sep == _pattern.separator)
        return;
    _pattern.separator = sep;
    commit();
}

QWidget *BlockEditor::chipRow() const
{
    return _row;
}
