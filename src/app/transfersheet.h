#pragma once
// "Copiar a…" and "Mover a…": which shots (the selection, the flagged ones or a colour), the
// destination folder (remembered), and whether every copy is read back and compared; the work
// itself is the caller's (FileOpController). GUI thread only.
#include "fileops/fileopjournal.h"
#include "fileops/shottransfer.h"

#include <QDialog>

class AppState;
class QCheckBox;
class QComboBox;
class QLabel;
class QLineEdit;
class QPushButton;

class TransferSheet : public QDialog
{
    Q_OBJECT
public:
    TransferSheet(AppState &state, FileOpJournal::Op op, QWidget *parent = nullptr);

    QList<ShotTransfer::Shot> shots() const;   // the chosen ones, in the grid's order
    QString folder() const;
    bool verify() const;

    // For the tests.
    QComboBox *scopeCombo() const { return _scope; }
    QLineEdit *folderField() const { return _folder; }
    QCheckBox *verifyBox() const { return _verify; }
    QPushButton *goButton() const { return _go; }

private:
    void refresh();
    void accept() override;

    AppState &_state;
    FileOpJournal::Op _op;
    QList<QList<ShotTransfer::Shot>> _scopes;   // one list per entry of _scope
    QComboBox *_scope;
    QLineEdit *_folder;
    QCheckBox *_verify;
    QLabel *_note;
    QPushButton *_go;
};
