#pragma once
// Ayuda › Atajos de teclado: every key of the window in one table.
#include <QDialog>

class QTreeWidget;

class ShortcutsDialog : public QDialog
{
    Q_OBJECT
public:
    explicit ShortcutsDialog(QWidget *parent = nullptr);
    QTreeWidget *table() const { return _table; }

private:
    QTreeWidget *_table;
};
