#pragma once
// "Renombrar": the chosen shots renamed in one go, each with all its files and sidecars and its
// marks. A typed name with a number, or blocks (the import's editor) with seven ready templates;
// optional changes of case; a preview of every old and new name that blocks the rename while a
// name is taken; then the renaming on a worker with its progress, and the result. Every choice but
// the typed name is remembered ("rename.*"). GUI thread only.
#include "fileops/renameplan.h"
#include "fileops/shotrenamer.h"

#include <QDialog>
#include <QFutureWatcher>

class BlockEditor;
class BrowserSession;
class QCheckBox;
class QComboBox;
class QLabel;
class QLineEdit;
class QProgressBar;
class QPushButton;
class QRadioButton;
class QSpinBox;
class QStackedWidget;
class QTreeWidget;

class RenameSheet : public QDialog
{
    Q_OBJECT
public:
    // Renames the browser's targets (the selection, else the current shot), in the grid's order.
    explicit RenameSheet(BrowserSession &session, QWidget *parent = nullptr);

    // For the tests.
    QRadioButton *simpleRadio() const { return _simple; }
    QRadioButton *customRadio() const { return _custom; }
    QLineEdit *nameField() const { return _name; }
    QComboBox *templateCombo() const { return _template; }
    BlockEditor *blockEditor() const { return _blocks; }
    QSpinBox *startSpin() const { return _start; }
    QSpinBox *digitsSpin() const { return _digits; }
    QCheckBox *caseBox() const { return _caseOn; }
    QComboBox *nameCaseCombo() const { return _nameCase; }
    QComboBox *extCaseCombo() const { return _extCase; }
    QTreeWidget *preview() const { return _preview; }
    QLabel *footerLabel() const { return _footer; }
    QLabel *repeatsLabel() const { return _repeats; }
    QPushButton *renameButton() const { return _rename; }
    QLabel *resultTitle() const { return _resultTitle; }
    QLabel *resultBody() const { return _resultBody; }
    const RenamePlan &plan() const { return _plan; }

signals:
    // The rename ended; `outcome` says what was done.
    void renamed(const RenameOutcome &outcome);

protected:
    void closeEvent(QCloseEvent *event) override;

private:
    RenameOptions options() const;
    void refresh();
    void start();
    void finished();

    BrowserSession &_session;
    QList<RenameShot> _shots;
    QStringList _folderFiles;
    RenamePlan _plan;
    RenameOutcome _outcome;
    QFutureWatcher<RenameOutcome> _watcher;

    QStackedWidget *_pages;
    QRadioButton *_simple;
    QRadioButton *_custom;
    QStackedWidget *_modePages;
    QLineEdit *_name;
    QComboBox *_separator;
    QSpinBox *_start;
    QSpinBox *_digits;
    QComboBox *_template;
    BlockEditor *_blocks;
    QCheckBox *_caseOn;
    QComboBox *_nameCase;
    QComboBox *_extCase;
    QLabel *_repeats;
    QTreeWidget *_preview;
    QLabel *_footer;
    QPushButton *_rename;
    QLabel *_running;
    QProgressBar *_progress;
    QLabel *_resultTitle;
    QLabel *_resultBody;
};
