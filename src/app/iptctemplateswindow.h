#pragma once
// "Plantillas IPTC": the user's templates listed on the left (new, duplicate, delete), the chosen
// one's fields on the right with their Spanish names, each with "reemplazar" or "solo si está
// vacío"; keywords may instead be added to a file's own. Every edit is saved to the library a
// moment after it is typed (and at once when another template is chosen or the window closes); a
// name already taken is refused with a sentence and nothing else is lost. GUI thread only.
#include "metadata/iptctemplate.h"

#include <QDialog>
#include <array>

class QComboBox;
class QLabel;
class QLineEdit;
class QListWidget;
class QPushButton;
class QTimer;
class QWidget;

class IptcTemplatesWindow : public QDialog
{
    Q_OBJECT
public:
    // `library`: the templates file (the user's own unless a test gives another).
    explicit IptcTemplatesWindow(QWidget *parent = nullptr, const QString &library = {});

    // Saves what is typed now; false (and the sentence shown) when the library refused it.
    bool saveNow();
    // Shows the template called `name`, saving the one shown first.
    void select(const QString &name);
    QString currentName() const { return _current; }

    // For the tests.
    QListWidget *list() const { return _list; }
    QPushButton *addButton() const { return _add; }
    QPushButton *duplicateButton() const { return _duplicate; }
    QPushButton *removeButton() const { return _remove; }
    QLineEdit *nameEdit() const { return _name; }
    // A QLineEdit, or a QPlainTextEdit for the fields of several lines.
    QWidget *fieldEdit(IptcField f) const { return _edits[size_t(f)]; }
    QComboBox *modeCombo(IptcField f) const { return _modes[size_t(f)]; }
    QLineEdit *keywordsEdit() const { return _keywords; }
    QComboBox *keywordModeCombo() const { return _keywordMode; }
    QLabel *messageLabel() const { return _message; }

signals:
    // The library changed (a template saved, added or deleted).
    void templatesChanged();

public slots:
    void reject() override;

protected:
    void closeEvent(QCloseEvent *event) override;

private:
    void reloadList(const QString &select);
    void display(const IptcTemplate &t);
    IptcTemplate edited() const;
    void edit();
    void addNew();
    void duplicate();
    void removeCurrent();
    void setMessage(const QString &text, bool error);

    QString _library;
    QString _current;        // the name the shown template is saved under
    bool _filling = false;   // the form is being filled, not edited
    bool _dirty = false;
    QTimer *_saveDelay;

    QListWidget *_list;
    QPushButton *_add;
    QPushButton *_duplicate;
    QPushButton *_remove;
    QWidget *_form;
    QLineEdit *_name;
    std::array<QWidget *, kIptcFieldCount> _edits{};
    std::array<QComboBox *, kIptcFieldCount> _modes{};
    QLineEdit *_keywords;
    QComboBox *_keywordMode;
    QLabel *_message;
};
