#pragma once
// The filter bar under the toolbar: colour chips ("Sin color" and the 8 labels), minimum stars,
// flag, sharpness, "Solo nuevas" and "Quitar filtros". Edits AppState's filter and follows it
// when it changes elsewhere (menus, the empty state's button). Its controls never take the
// keyboard focus, so a click on a chip leaves the mark keys working. GUI thread only.
#include <QWidget>

class AppState;
class ColorChip;
class QComboBox;
class QToolButton;

class FilterBar : public QWidget
{
    Q_OBJECT
public:
    explicit FilterBar(AppState &state, QWidget *parent = nullptr);

    ColorChip *chip(int colorClass) const { return _chips.value(colorClass); }
    QComboBox *starCombo() const { return _stars; }
    QComboBox *flagCombo() const { return _flag; }
    QComboBox *sharpCombo() const { return _sharp; }
    QToolButton *newOnlyButton() const { return _newOnly; }
    QToolButton *clearButton() const { return _clear; }

private:
    void apply();
    void follow();

    AppState &_state;
    QList<ColorChip *> _chips;
    QComboBox *_stars;
    QComboBox *_flag;
    QComboBox *_sharp;
    QToolButton *_newOnly;
    QToolButton *_clear;
    bool _following = false;
};
