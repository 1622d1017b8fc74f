#pragma once
// The naming-pattern editor: a row of chips ("bloques"), each with its label and what it renders
// for sample values, a palette to add blocks with a click, ✕ to remove, dragging or "Mover a la
// izquierda" / "Mover a la derecha" to reorder, the presets, the separator, the number's start and
// its width. Shared by the card import and the batch rename; it keeps no settings of its own (the
// owner loads and saves them). GUI thread only.
#include "ingest/namepattern.h"
#include "ingest/namevalues.h"

#include <QList>
#include <QWidget>

class QAbstractButton;
class QComboBox;
class QLabel;
class QScrollArea;
class QSpinBox;

class BlockEditor : public QWidget
{
    Q_OBJECT
public:
    explicit BlockEditor(QWidget *parent = nullptr);
    ~BlockEditor() override;

    NamePattern pattern() const { return _pattern; }
    void setPattern(const NamePattern &pattern);
    qint64 start() const;
    void setStart(qint64 start);
    int digits() const;                   // 1…6
    void setDigits(int digits);
    // Values the chips render (the number and its width come from the editor's own fields).
    void setSampleValues(const NameValues &values);
    NameValues sampleValues() const;      // with seq = start() and digits = digits()
    // Extension shown in the example line (".NEF").
    void setSampleExtension(const QString &ext);

    // Block `from` goes to position `to` (the move buttons, the keyboard and drops end here).
    void moveBlock(int from, int to);
    void removeBlock(int index);
    void addBlock(NameToken::Kind kind);

    // What the user sees, for the tests.
    int blockCount() const { return int(_pattern.tokens.size()); }
    QWidget *chip(int index) const;
    QString chipLabel(int index) const;
    QString chipSample(int index) const;             // "(vacío)" for an empty rendering
    QAbstractButton *removeButton(int index) const;
    QAbstractButton *moveLeftButton(int index) const;
    QAbstractButton *moveRightButton(int index) const;
    QAbstractButton *paletteButton(NameToken::Kind kind) const;
    QWidget *chipRow() const;                        // takes the drops
    QLabel *helpLabel() const { return _help; }
    QLabel *warningLabel() const { return _warning; }
    QLabel *emptyLabel() const { return _empty; }
    QLabel *exampleLabel() const { return _example; }
    QComboBox *presetCombo() const { return _presets; }
    QComboBox *separatorCombo() const { return _separator; }
    QSpinBox *startSpin() const { return _start; }
    QSpinBox *digitsSpin() const { return _digits; }

    static QString emptySampleText() { return QStringLiteral("(vacío)"); }
    static QString alreadyThereText() { return QStringLiteral("Ya está en el nombre"); }
    static constexpr double kDisabledOpacity = 0.45;

signals:
    void patternChanged();
    void startChanged(qint64 start);
    void digitsChanged(int digits);
    void edited();   // any of the three

private:
    class Chip;
    class ChipRow;
    friend class Chip;
    friend class ChipRow;

    void rebuildChips();
    void refresh();                 // samples, palette, warning, example, preset selection
    void commit();                  // after a change of the pattern
    void applyPreset(int index);
    void applySeparator(int index);
    int indexOfId(const QUuid &id) const;
    void focusChip(int index);

    NamePattern _pattern;
    NameValues _sample = NameValues::sample();
    QString _extension = QStringLiteral(".NEF");
    QList<Chip *> _chips;
    QList<QLabel *> _separatorMarks;
    QList<QAbstractButton *> _palette;   // in NameToken::allKinds() order

    QLabel *_help = nullptr;
    QComboBox *_presets = nullptr;
    QComboBox *_separator = nullptr;
    ChipRow *_row = nullptr;
    QScrollArea *_rowScroll = nullptr;
    QLabel *_empty = nullptr;
    QLabel *_warning = nullptr;
    QLabel *_example = nullptr;
    QSpinBox *_start = nullptr;
    QSpinBox *_digits = nullptr;
    bool _updating = false;
};
