#pragma once
// "Selección del cliente": the client's message pasted on the left, on the right one line per
// number or name found with the shots it designates, and the actions on them (a colour, the
// selection, the filter). The message is read on a worker a moment after the last keystroke, so a
// long paste never holds the window. GUI thread only.
#include "fileops/clientselection.h"

#include <QDialog>
#include <QFutureWatcher>
#include <QHash>
#include <QList>
#include <QPair>
#include <QPointer>
#include <QSet>
#include <QUuid>

class AppState;
class QCheckBox;
class QComboBox;
class QLabel;
class QPlainTextEdit;
class QPushButton;
class QStackedWidget;
class QTimer;
class QTreeWidget;
class QTreeWidgetItem;
class ThumbnailSource;

class ClientPickSheet : public QDialog
{
    Q_OBJECT
public:
    // Lines beyond this are counted, not drawn: a message of thousands of numbers stays usable.
    static constexpr int kMaxShownLines = 1000;

    ClientPickSheet(AppState &state, ThumbnailSource *thumbnails, QWidget *parent = nullptr);
    ~ClientPickSheet() override;

    // For the tests and the window.
    QPlainTextEdit *messageField() const { return _message; }
    QTreeWidget *lines() const { return _lines; }
    QPushButton *applyButton() const { return _apply; }
    QPushButton *copyMissingButton() const { return _copyMissing; }
    QLabel *copiedLabel() const { return _copied; }
    QComboBox *colorChoice() const { return _color; }
    QCheckBox *selectThem() const { return _selectThem; }
    QCheckBox *filterThem() const { return _filterThem; }
    const QList<ClientSelection::ClientMatch> &matches() const { return _matches; }
    bool isReading() const;   // a newer message waits to be read

signals:
    void matchesChanged();

private:
    bool takeShots();   // true when the folder's shots changed since the last time
    void scheduleRead();
    void startRead();
    void showMatches();
    void fillLines();
    void updateApply();
    void onItemChanged(QTreeWidgetItem *item, int column);
    void copyMissing();
    void apply();

    AppState &_state;
    QPointer<ThumbnailSource> _thumbnails;
    QPlainTextEdit *_message;
    QStackedWidget *_right;
    QLabel *_empty;
    QTreeWidget *_lines;
    QPushButton *_copyMissing;
    QLabel *_copied;
    QComboBox *_color;
    QCheckBox *_selectThem;
    QCheckBox *_filterThem;
    QPushButton *_apply;
    QTimer *_delay;

    QList<QPair<QUuid, QString>> _shots;   // each shot's identity and main file
    QFutureWatcher<QList<ClientSelection::ClientMatch>> _reader;
    bool _reading = false;              // until the worker's result is taken
    bool _readAgain = false;            // the text or the folder changed during a read
    QList<ClientSelection::ClientMatch> _matches;
    QSet<QUuid> _excluded;              // shots unticked inside lines of several
    QSet<QString> _offTokens;           // lines unticked, kept while the message is edited
    QHash<QUuid, QList<QTreeWidgetItem *>> _shotItems;   // where each shot is drawn, for its thumbnail
    bool _filling = false;
};
